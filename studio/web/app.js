// The tuning studio page: a tuning opened from a file, every field editable by name
// with the tool's check messages beside it, curves redrawn as fields change, the EQ
// fitted to a measurement, audio processed by the library in a worker and played A/B,
// and the tuning saved as the tool writes it. Served by `eqdrc serve`, it edits the
// tuning a device plays and shows the device's meters.
import { loadEngine } from './engine-api.js';
import { layoutFields } from './fields.js';
import { writeWav } from './wav.js';
import { $, download, message, page, studio } from './page.js';
import { buildEditor, runCheck, showValues } from './editor.js';
import { drawCurves, endDrag, moveDrag, startDrag } from './pictures.js';
import { openAudio, startWorker } from './listen.js';
import { MEASUREMENT_EXTENSIONS, openMeasurement, setupMeasurement } from './measure.js';
import { toggleAB, togglePlay } from './player.js';
import { connect } from './connection.js';

const AUDIO_EXTENSIONS = /\.(wav|flac|ogg|oga|mp3|m4a|aac|opus|webm)$/i;

let redrawQueued = false;

const baseName = () => (page.tuningName || 'tuning').replace(/\.(json|bin)$/i, '');

function refresh() {
    runCheck();
    if (!redrawQueued) {
        redrawQueued = true;
        requestAnimationFrame(() => { redrawQueued = false; drawCurves(); });
    }
}

function openTuning(name, bytes) {
    let error;
    try {
        error = page.engine.read(name, bytes);
    } catch (err) {
        error = `${name}: cannot read: ${err}`;
    }
    if (error) {
        message(error, 'error');
        return false;
    }
    page.tuningName = name;
    $('tuning-name').textContent = name;
    $('save-json').disabled = $('save-bin').disabled = false;
    showValues();
    page.changed();
    const errors = studio.issues.filter((i) => i.severity === 'error').length;
    if (errors) message(`${name}: ${errors} error(s): the library would reject this tuning or stop; see the fields marked`, 'error');
    else message(`${name} opened`);
    return true;
}

async function openShipped(name) {
    try {
        const r = await fetch('tunings/' + name);
        if (!r.ok) throw new Error(r.statusText);
        openTuning(name, new Uint8Array(await r.arrayBuffer()));
    } catch (err) {
        message(`tunings/${name}: cannot load: ${err.message}`, 'error');
    }
}

async function openFile(file) {
    const buf = await file.arrayBuffer();
    const isAudio = AUDIO_EXTENSIONS.test(file.name) || (file.type.startsWith('audio/'));
    if (isAudio) await openAudio(file.name, buf);
    else if (MEASUREMENT_EXTENSIONS.test(file.name)) openMeasurement(file.name, new TextDecoder().decode(buf));
    else openTuning(file.name, new Uint8Array(buf));
}

async function main() {
    try {
        page.engine = await loadEngine();
    } catch (err) {
        message('the engine (engine.wasm) did not load: ' + err, 'error');
        return;
    }
    buildEditor(layoutFields(JSON.parse(page.engine.layoutText())));
    page.changed = refresh;
    startWorker();
    setupMeasurement((file) => file.text());
    // Cleared after each file, so that opening the same file again reads it again.
    for (const id of ['tuning-file', 'audio-file']) {
        $(id).addEventListener('change', async (e) => {
            const file = e.target.files[0];
            if (file) await openFile(file);
            e.target.value = '';
        });
    }
    $('shipped').addEventListener('change', (e) => e.target.value && openShipped(e.target.value));
    $('save-json').addEventListener('click', () => download(baseName() + '.json', page.engine.jsonText(), 'application/json'));
    $('save-bin').addEventListener('click', () => download(baseName() + '.bin', page.engine.recordBytes(), 'application/octet-stream'));
    $('save-audio').addEventListener('click', () => {
        const a = studio.audio;
        download(a.name.replace(/\.[^.]*$/, '') + '-processed.wav', writeWav(a.out, a.rate, a.channels), 'audio/wav');
    });
    $('plots').addEventListener('pointerdown', startDrag);
    $('plots').addEventListener('pointermove', moveDrag);
    $('plots').addEventListener('pointerup', endDrag);
    $('play').addEventListener('click', togglePlay);
    $('ab').addEventListener('click', toggleAB);
    document.addEventListener('keydown', (e) => {
        if (e.target.closest('input, select, textarea') || e.ctrlKey || e.metaKey || e.altKey) return;
        if (e.key === 'b' || e.key === 'B') { toggleAB(); e.preventDefault(); }
        else if (e.key === ' ' && !e.target.closest('button, summary')) { togglePlay(); e.preventDefault(); }
    });
    document.addEventListener('dragover', (e) => e.preventDefault());
    document.addEventListener('drop', (e) => {
        e.preventDefault();
        for (const file of e.dataTransfer.files) openFile(file);
    });
    try {
        const r = await fetch('tunings/index.json');
        for (const name of await r.json()) $('shipped').add(new Option(name, name));
    } catch { /* opened without the shipped tunings: file picker only */ }
    await connect(openTuning);
    studio.ready = true;
}

main();
