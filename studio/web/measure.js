// The Measurement panel: a measured response (text) fitted to the EQ by the fitting
// library, as `eqdrc fit` does it, into the held record; then the EQ plots of the fitted
// channels carry the measurement and the target at the report's level and the predicted
// result, the measurement plus the EQ as it now stands, so hand edits show at once.
import { $, message, page, studio } from './page.js';
import { showValues } from './editor.js';
import { eqCurves } from './curves.js';

export const MEASUREMENT_EXTENSIONS = /\.(txt|csv|frd|dat)$/i;

let measurement = null;   // { name, text }
let targetFile = null;    // { name, text }

export function openMeasurement(name, text) {
    measurement = { name, text };
    $('measurement-name').textContent = name;
    $('fit').disabled = false;
    message(`${name} opened: press Fit`);
}

// A number field, or an exception naming it.
function number(id, what) {
    const t = $(id).value.trim();
    const v = Number(t);
    if (t === '' || !Number.isFinite(v)) throw new Error(`${what}: "${t}" is not a number`);
    return v;
}

// The options as `eqdrc fit` takes them on its command line: the engine reads the text
// with the tool's own reader, and its messages.
function request() {
    const r = {
        range: $('fit-range').value.trim(), smooth: $('fit-smooth').value.trim(), q: $('fit-q').value.trim(),
        channel: $('fit-channel').value, bands: number('fit-bands', '--bands'),
        max_boost: number('fit-max-boost', '--max-boost'), max_cut: number('fit-max-cut', '--max-cut'),
        // No tuning open: the base `eqdrc fit` takes without --base, every stage off.
        base: page.tuningName ? 'held' : 'neutral',
    };
    if (!Number.isInteger(r.bands)) throw new Error(`--bands: "${$('fit-bands').value}" is not a whole number`);
    const kind = $('fit-target').value;
    if (kind === 'file') {
        if (!targetFile) throw new Error('--target: choose a target file');
        r.target = targetFile.name;
        r.target_text = targetFile.text;
    } else {
        r.target = kind === 'tilt' ? 'tilt:' + $('fit-tilt').value.trim() : 'flat';
    }
    return r;
}

function runFit() {
    let o;
    try {
        o = request();
    } catch (err) {
        message(err.message, 'error');
        return;
    }
    const t0 = performance.now();
    const r = page.engine.fit(measurement.text, measurement.name, o);
    const ms = performance.now() - t0;
    if (!r.ok) {
        message(r.error, 'error');
        return;
    }
    if (!page.tuningName) {
        page.tuningName = measurement.name.replace(/\.[^.]*$/, '') + '.json';
        $('tuning-name').textContent = page.tuningName;
        $('save-json').disabled = $('save-bin').disabled = false;
    }
    studio.fit = { report: r.report, ms };
    $('fit-summary').textContent = `${r.summary} (fitted in ${Math.round(ms)} ms)`;
    showValues();
    page.changed();
    message(r.summary);
}

// The overlay for channel `ch`'s EQ plot, or null when the last fit did not set that
// channel: the curves on the report's grid, moved together so the target sits near 0 dB.
export function fitCurves(m, f, ch, fs) {
    const report = studio.fit && studio.fit.report;
    if (!report || !report.channels.includes(ch)) return null;
    const { hz, measured_dB: measured, target_dB: target } = report.curves;
    const shift = target.reduce((a, v) => a + v, 0) / target.length;
    const eq = eqCurves(m, f, ch, fs, hz);
    return {
        hz,
        measured: measured.map((v) => v - shift),
        target: target.map((v) => v - shift),
        predicted: measured.map((v, i) => v + (eq.on ? eq.total[i] : 0) - shift),
    };
}

export function setupMeasurement(readText) {
    $('measurement-file').addEventListener('change', async (e) => {
        const file = e.target.files[0];
        if (file) openMeasurement(file.name, await readText(file));
        e.target.value = '';
    });
    $('fit-target-file').addEventListener('change', async (e) => {
        const file = e.target.files[0];
        if (!file) return;
        targetFile = { name: file.name, text: await readText(file) };
        $('fit-target').value = 'file';
        e.target.value = '';
    });
    $('fit').addEventListener('click', runFit);
    // Anything dropped on the panel is a measurement, whatever its name.
    const panel = $('measurement');
    panel.addEventListener('dragover', (e) => { e.preventDefault(); panel.classList.add('dragover'); });
    panel.addEventListener('dragleave', () => panel.classList.remove('dragover'));
    panel.addEventListener('drop', async (e) => {
        e.preventDefault();
        e.stopPropagation();
        panel.classList.remove('dragover');
        const file = e.dataTransfer.files[0];
        if (file) openMeasurement(file.name, await readText(file));
    });
}
