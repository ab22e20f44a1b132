// The tuning studio page: a tuning opened from a file, every field editable by name
// with the tool's check messages beside it, curves redrawn as fields change, audio
// processed by the library in a worker and played A/B, and the tuning saved as the
// tool writes it. window.studio exposes the state the browser test reads.
import { loadEngine } from './engine-api.js';
import * as curves from './curves.js';
import { drawPlot } from './plot.js';
import { layoutFields, floatText, parseFloatText } from './fields.js';
import { parseWav, writeWav } from './wav.js';
import { SILENT_LUFS } from './loudness.js';

const FRAME_LEN = 768; // the frame `eqdrc tuning check` and `eqdrc process` assume
const DECODE_RATE = 48000; // what files other than 16-bit WAV are decoded to
const AUDIO_EXTENSIONS = /\.(wav|flac|ogg|oga|mp3|m4a|aac|opus|webm)$/i;
const FREQ_TICKS = [20, 50, 100, 200, 500, 1000, 2000, 5000, 10000, 20000];

const $ = (id) => document.getElementById(id);
const studio = { ready: false, plots: {}, issues: [], audio: null, messages: [] };
window.studio = studio;

let engine, fields, byPath;
let tuningName = '';
let redrawQueued = false;

function message(text, kind = '') {
    const el = $('message');
    el.textContent = text;
    el.className = kind;
    studio.messages.push({ text, kind });
}

function download(name, bytes, type) {
    const url = URL.createObjectURL(new Blob([bytes], { type }));
    const a = document.createElement('a');
    a.href = url; a.download = name;
    document.body.appendChild(a); a.click(); a.remove();
    setTimeout(() => URL.revokeObjectURL(url), 10000);
}

const baseName = () => (tuningName || 'tuning').replace(/\.(json|bin)$/i, '');

// Reads record words by field path, as the curves want them.
function reader() {
    const rec = engine.record();
    const f = (path) => rec[byPath.get(path).field.word];
    f.i = (path) => { const v = f(path); return Number.isFinite(v) ? Math.trunc(v) : 0; };
    return f;
}

// ---- the editor ------------------------------------------------------------------
function buildEditor() {
    const root = $('fields');
    root.textContent = '';
    byPath = new Map();
    let details, fieldset, section, group;
    for (const field of fields) {
        if (field.section !== section) {
            section = field.section;
            details = document.createElement('details');
            details.open = section === 'header';
            const s = document.createElement('summary');
            s.textContent = section;
            s.dataset.section = section;
            details.appendChild(s);
            root.appendChild(details);
            group = null;
        }
        if (field.group !== group) {
            group = field.group;
            fieldset = document.createElement('fieldset');
            const legend = document.createElement('legend');
            legend.textContent = group;
            fieldset.appendChild(legend);
            details.appendChild(fieldset);
        }
        const row = document.createElement('div');
        row.className = 'field';
        const id = 'f-' + field.path.replace(/[^a-zA-Z0-9_]/g, '-');
        const label = document.createElement('label');
        label.htmlFor = id;
        label.textContent = field.name;
        label.title = field.path + (field.doc ? ': ' + field.doc : '');
        let input;
        if (field.labels) {
            input = document.createElement('select');
            field.labels.forEach((l, i) => input.add(new Option(l, String(i))));
        } else {
            input = document.createElement('input');
            input.type = 'text';
            input.inputMode = 'decimal';
        }
        input.id = id;
        input.dataset.path = field.path;
        input.addEventListener('input', () => edit(field.path));
        const unit = document.createElement('span');
        unit.className = 'unit';
        unit.textContent = field.unit;
        const issue = document.createElement('div');
        issue.className = 'issue';
        issue.hidden = true;
        row.append(label, input, unit, issue);
        fieldset.appendChild(row);
        byPath.set(field.path, { field, input, issue, details });
    }
}

function showValues() {
    const rec = engine.record();
    for (const { field, input } of byPath.values()) {
        const v = rec[field.word];
        if (field.labels) {
            const known = Number.isInteger(v) && v >= 0 && v < field.labels.length;
            for (const o of [...input.options]) if (o.dataset.raw) o.remove();
            if (!known) {
                const o = new Option(floatText(v), floatText(v));
                o.dataset.raw = '1';
                input.add(o);
            }
            input.value = known ? String(v) : floatText(v);
        } else {
            input.value = floatText(v);
        }
        input.classList.remove('bad');
    }
}

function edit(path) {
    const { field, input } = byPath.get(path);
    const v = field.labels && /^\d+$/.test(input.value) ? Number(input.value) : parseFloatText(input.value);
    if (v === null) {
        input.classList.add('bad');
        return;
    }
    input.classList.remove('bad');
    engine.record()[field.word] = v;
    refresh();
}

function runCheck() {
    const issues = engine.check(FRAME_LEN);
    studio.issues = issues;
    for (const { issue } of byPath.values()) { issue.hidden = true; issue.textContent = ''; }
    for (const i of issues) {
        const entry = byPath.get(i.path);
        if (!entry) continue;
        entry.issue.hidden = false;
        entry.issue.className = 'issue ' + i.severity;
        entry.issue.textContent += (entry.issue.textContent ? '\n' : '') + i.text;
    }
    const errors = issues.filter((i) => i.severity === 'error').length;
    const sum = $('check-summary');
    sum.className = errors ? 'error' : '';
    sum.textContent = `${tuningName}: ${errors} error(s), ${issues.length - errors} warning(s)` +
        (errors ? ' — the library would reject this tuning or stop' : '');
    const unplaced = issues.filter((i) => !byPath.has(i.path));
    if (unplaced.length) sum.textContent += '\n' + unplaced.map((i) => i.text).join('\n');
    const rec = engine.record();
    for (const s of document.querySelectorAll('summary[data-section]')) {
        const e = byPath.get('header.enable.' + s.dataset.section);
        s.classList.toggle('off', !!e && rec[e.field.word] !== 1);
    }
}

function refresh() {
    runCheck();
    if (!redrawQueued) {
        redrawQueued = true;
        requestAnimationFrame(() => { redrawQueued = false; drawCurves(); });
    }
}

// ---- the curves ------------------------------------------------------------------
function canvasFor(key) {
    let c = document.getElementById('plot-' + key);
    if (!c) {
        c = document.createElement('canvas');
        c.id = 'plot-' + key;
        c.className = 'plot';
        c.setAttribute('role', 'img');
        $('plots').appendChild(c);
    }
    return c;
}

// Each distinct compress_start once, with the knee's edges either side.
function kneeMarks(bands) {
    const seen = new Map();
    for (const b of bands) seen.set(b.compressStart, [...(seen.get(b.compressStart) || []), b.name]);
    return [...seen].flatMap(([x, names], i) => [
        { x, label: `${names.join(', ')} compress_start`, y: i },
        { x: x - bands[0].kneeDb / 2, label: '' },
        { x: x + bands[0].kneeDb / 2, label: '' }]);
}

function drawCurves() {
    const m = engine.module;
    const f = reader();
    const fs = f('header.sample_rate');
    const plots = {};
    for (const el of [...$('plots').children]) el.dataset.keep = '';
    const keep = (key) => { const c = canvasFor(key); c.dataset.keep = '1'; return c; };
    if (!(fs > 0)) {
        message('header.sample_rate must be positive to draw the curves', 'error');
    } else {
        for (const ch of curves.activeChannels(f)) {
            const stack = m.stackSave();
            try {
                const eq = curves.eqCurves(m, f, ch, fs);
                plots[`eq${ch}`] = eq;
                const eqCanvas = keep(`eq${ch}`);
                eqCanvas.dataset.channel = String(ch);
                eqCanvas.setAttribute('aria-label', `EQ response of channel ${ch}; drag a band to move its fc and boost`);
                eqMaps.set(eqCanvas, drawPlot(eqCanvas, {
                    title: `eq10.channels[${ch}]`, xlog: true, xlim: [20, fs / 2], ylim: [-24, 24], ystep: 6,
                    xticks: FREQ_TICKS.filter((t) => t <= fs / 2), grey: !eq.on,
                    series: [...eq.bands.map((b) => ({ x: eq.freqs, y: b.db, label: `bands[${b.band}]`, width: 0.9 })),
                             { x: eq.freqs, y: eq.total, color: '#000', width: 2, label: 'sum' }],
                    points: eq.bands.map((b) => ({ x: b.fc, y: b.boost })),
                }));
                const xo = curves.crossoverCurves(m, f, ch, fs);
                plots[`crossover${ch}`] = xo;
                drawPlot(keep(`crossover${ch}`), {
                    title: `multiband_drc.channels[${ch}] crossover`, xlog: true, xlim: [20, fs / 2], ylim: [-60, 6], ystep: 12,
                    xticks: FREQ_TICKS.filter((t) => t <= fs / 2), grey: !xo.on,
                    series: [...xo.bands.map((b) => ({ x: xo.freqs, y: b.db, label: b.name })),
                             { x: xo.freqs, y: xo.sum, color: '#000', dash: true, label: 'sum' }],
                });
                const drc = curves.drcCurves(m, f, ch);
                plots[`drc${ch}`] = drc;
                drawPlot(keep(`drc${ch}`), {
                    title: `multiband_drc.channels[${ch}] static curves`, xlim: [-100, 0], ylim: [-100, 12], ystep: 20,
                    xticks: [-100, -80, -60, -40, -20, 0], grey: !drc.on,
                    marks: kneeMarks(drc.bands),
                    series: [{ x: drc.x, y: drc.x, color: '#bbb', width: 0.8 },
                             ...drc.bands.map((b) => ({ x: drc.x, y: b.y, dash: !b.on, label: `${b.name}${b.on ? '' : ' (off)'}` }))],
                });
                const al = curves.agcLimiterCurves(m, f, ch);
                plots[`agc${ch}`] = al;
                drawPlot(keep(`agc${ch}`), {
                    title: `agc / maximizer channels[${ch}]`, xlim: [-100, 10], ylim: [-100, 12], ystep: 20,
                    xticks: [-100, -80, -60, -40, -20, 0], grey: !al.agcOn && !al.limiterOn,
                    marks: [{ x: al.compressStart, label: 'agc' }, { x: al.threshold, label: 'limit', color: '#d62728' }],
                    series: [{ x: al.x, y: al.x, color: '#bbb', width: 0.8 },
                             { x: al.x, y: al.agc, dash: !al.agcOn, label: `agc${al.agcOn ? '' : ' (off)'}` },
                             { x: al.x, y: al.limiter, dash: !al.limiterOn, label: `maximizer${al.limiterOn ? '' : ' (off)'}` }],
                });
            } catch (err) {
                m.stackRestore(stack); // a library call that ends the process unwinds no further
                message(`the curves of channel ${ch} could not be computed: ${err && err.name === 'ExitStatus' ? 'the library stopped' : err}`, 'error');
            }
        }
    }
    for (const el of [...$('plots').children]) if (!el.dataset.keep) el.remove();
    studio.plots = plots;
    studio.redraws = (studio.redraws || 0) + 1;
}

// Dragging on an EQ plot moves the enabled band whose centre is nearest: fc along the
// frequency axis, boost up and down.
const DRAG_REACH_PX = 30;
const eqMaps = new Map();
let drag = null;

// Where a band's handle is on the page (for the browser test's drag).
studio.handleAt = (ch, band) => {
    const canvas = document.getElementById(`plot-eq${ch}`);
    const f = reader();
    const p = `eq10.channels[${ch}].bands[${band}].`;
    const [x, y] = eqMaps.get(canvas).toPixel(f(p + 'fc'), f(p + 'boost'));
    const r = canvas.getBoundingClientRect();
    return { x: r.left + x, y: r.top + y };
};

function setField(path, v) {
    const { field, input } = byPath.get(path);
    engine.record()[field.word] = v;
    input.value = floatText(v);
}

function startDrag(e) {
    const canvas = e.target;
    const map = eqMaps.get(canvas);
    if (!map) return;
    const ch = Number(canvas.dataset.channel);
    const f = reader();
    const r = canvas.getBoundingClientRect();
    let best = null;
    for (let b = 0; b < 10; b++) {
        const p = `eq10.channels[${ch}].bands[${b}].`;
        if (f.i(p + 'enable') === 0) continue;
        const [px, py] = map.toPixel(f(p + 'fc'), f(p + 'boost'));
        const d = Math.hypot(px - (e.clientX - r.left), py - (e.clientY - r.top));
        if (d < DRAG_REACH_PX && (!best || d < best.d)) best = { d, p };
    }
    if (!best) return;
    drag = { canvas, map, p: best.p };
    canvas.setPointerCapture(e.pointerId);
    e.preventDefault();
}

function moveDrag(e) {
    if (!drag || e.target !== drag.canvas) return;
    const r = drag.canvas.getBoundingClientRect();
    const [fc, boost] = drag.map.toData(e.clientX - r.left, e.clientY - r.top);
    const fs = reader()('header.sample_rate');
    setField(drag.p + 'fc', Math.fround(Math.round(Math.min(Math.max(fc, 20), fs / 2 - 1))));
    setField(drag.p + 'boost', Math.fround(Math.round(boost * 10) / 10));
    refresh();
}

// ---- tunings -----------------------------------------------------------------------
function openTuning(name, bytes) {
    let error;
    try {
        error = engine.read(name, bytes);
    } catch (err) {
        error = `${name}: cannot read: ${err}`;
    }
    if (error) {
        message(error, 'error');
        return false;
    }
    tuningName = name;
    $('tuning-name').textContent = name;
    $('save-json').disabled = $('save-bin').disabled = false;
    showValues();
    refresh();
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

// ---- audio -------------------------------------------------------------------------
let worker;
let player = null; // { ctx, buffers: [A, B], source, startedAt, offset, which }

function startWorker() {
    worker = new Worker(new URL('./worker.js', import.meta.url), { type: 'module' });
    worker.onmessage = (e) => onWorker(e.data);
    worker.onerror = (e) => {
        message('processing failed: ' + (e.message || 'the worker stopped'), 'error');
        $('progress').hidden = true;
        worker.terminate();
        startWorker();
    };
}

async function decodeAudio(name, buf) {
    const wav = parseWav(buf);
    if (wav && !wav.unsupported) return wav;
    // Anything else the browser decodes, as 16-bit samples; the browser resamples to
    // its decoding rate.
    const probe = new OfflineAudioContext(1, 1, DECODE_RATE);
    let decoded;
    try {
        decoded = await probe.decodeAudioData(buf.slice(0));
    } catch {
        throw new Error(`${name}: not an audio file this browser can decode`);
    }
    const channels = decoded.numberOfChannels;
    const pcm = new Int16Array(decoded.length * channels);
    for (let c = 0; c < channels; c++) {
        const d = decoded.getChannelData(c);
        for (let i = 0; i < d.length; i++) pcm[i * channels + c] = Math.max(-32768, Math.min(32767, Math.round(d[i] * 32768)));
    }
    return { rate: decoded.sampleRate, channels, pcm, decoded: true };
}

async function openAudio(name, buf) {
    if (!tuningName) { message('open a tuning first', 'error'); return; }
    let a;
    try {
        a = await decodeAudio(name, buf);
    } catch (err) {
        message(err.message, 'error');
        return;
    }
    if (a.channels < 1 || a.channels > 2) { message(`${name}: ${a.channels} channels; the chain takes mono or stereo`, 'error'); return; }
    stopPlayback();
    studio.audio = { name, rate: a.rate, channels: a.channels, pcm: a.pcm, out: null, state: 'processing' };
    $('audio-info').textContent = `${name}: ${(a.pcm.length / a.channels / a.rate).toFixed(2)} s, ${a.rate} Hz, ${a.channels === 1 ? 'mono' : 'stereo'}` +
        (a.decoded ? ` (decoded by the browser to 16-bit at ${DECODE_RATE} Hz; a 16-bit WAV is read exactly)` : '');
    $('progress').hidden = false;
    $('progress').value = 0;
    $('play').disabled = $('ab').disabled = $('save-audio').disabled = true;
    message(`processing ${name}…`);
    worker.postMessage({ name, tuningName, record: engine.record().slice(), pcm: a.pcm, rate: a.rate, channels: a.channels, frameLen: FRAME_LEN });
}

function onWorker(d) {
    const a = studio.audio;
    if (d.type === 'progress') { $('progress').value = d.done / d.total; return; }
    $('progress').hidden = true;
    const notes = (d.notes || []).map((n) => `note: ${n}`);
    const issues = (d.issues || []).map((i) => i.text);
    if (d.type === 'error') {
        a.state = 'error';
        $('loudness-table').textContent = '';
        $('loudness').getContext('2d').clearRect(0, 0, $('loudness').width, $('loudness').height);
        message([...notes, ...issues, d.message].join('\n'), 'error');
        return;
    }
    a.out = d.out;
    a.loudness = d.loudness;
    a.state = 'done';
    message([`${a.name} processed`, ...notes, ...issues].join('\n'), notes.length || issues.length ? 'note' : '');
    $('play').disabled = $('ab').disabled = $('save-audio').disabled = false;
    drawLoudness(a);
}

function drawLoudness(a) {
    const { input, output } = a.loudness;
    const clean = (v) => v.map((x) => (x <= SILENT_LUFS ? NaN : x));
    drawPlot($('loudness'), {
        title: 'short-term loudness (LUFS, 3 s)', xlim: [0, Math.max(0.5, input.times.at(-1) || 0)], ylim: [-60, 0], ystep: 10,
        xticks: input.times.filter((t) => Number.isInteger(t)),
        series: [{ x: input.times, y: clean(input.values), label: 'input' }, { x: output.times, y: clean(output.values), label: 'output' }],
    });
    const stat = (v) => { const s = clean(v).filter(Number.isFinite); return s.length ? [Math.max(...s), s.reduce((x, y) => x + y, 0) / s.length] : [NaN, NaN]; };
    const [imax, imean] = stat(input.values), [omax, omean] = stat(output.values);
    const t = (v) => (Number.isFinite(v) ? v.toFixed(1) : '-inf');
    $('loudness-table').innerHTML = '<tr><th></th><th>input</th><th>output</th></tr>' +
        `<tr><td>max short-term</td><td>${t(imax)} LUFS</td><td>${t(omax)} LUFS</td></tr>` +
        `<tr><td>mean short-term</td><td>${t(imean)} LUFS</td><td>${t(omean)} LUFS</td></tr>`;
}

function audioBuffer(ctx, pcm, channels, rate) {
    const frames = pcm.length / channels;
    const b = ctx.createBuffer(channels, frames, rate);
    for (let c = 0; c < channels; c++) {
        const d = b.getChannelData(c);
        for (let i = 0; i < frames; i++) d[i] = pcm[i * channels + c] / 32768;
    }
    return b;
}

function position() {
    return player.source ? (player.ctx.currentTime - player.startedAt + player.offset) % player.buffers[0].duration : player.offset;
}

function startSource(at) {
    const s = player.ctx.createBufferSource();
    s.buffer = player.buffers[player.which];
    s.loop = true;
    s.connect(player.ctx.destination);
    s.start(0, at);
    player.source = s;
    player.startedAt = player.ctx.currentTime;
    player.offset = at;
}

function stopPlayback() {
    if (player && player.source) { player.source.stop(); player.source = null; }
    player = null;
    $('play').textContent = 'Play (space)';
}

function togglePlay() {
    const a = studio.audio;
    if (!a || !a.out) return;
    if (!player) {
        const ctx = new AudioContext({ sampleRate: a.rate });
        player = { ctx, buffers: [audioBuffer(ctx, a.pcm, a.channels, a.rate), audioBuffer(ctx, a.out, a.channels, a.rate)],
                   source: null, startedAt: 0, offset: 0, which: $('ab').getAttribute('aria-pressed') === 'true' ? 1 : 0 };
    }
    if (player.source) {
        player.offset = position();
        player.source.stop();
        player.source = null;
        $('play').textContent = 'Play (space)';
    } else {
        startSource(player.offset);
        $('play').textContent = 'Pause (space)';
    }
}

// Switches original and processed at the same position.
function toggleAB() {
    const ab = $('ab');
    const processed = ab.getAttribute('aria-pressed') !== 'true';
    ab.setAttribute('aria-pressed', String(processed));
    ab.textContent = `A/B: ${processed ? 'processed' : 'original'} (b)`;
    if (!player) return;
    player.which = processed ? 1 : 0;
    if (player.source) {
        const at = position();
        player.source.stop();
        startSource(at);
    }
}

// ---- files in ----------------------------------------------------------------------
async function openFile(file) {
    const buf = await file.arrayBuffer();
    const isAudio = AUDIO_EXTENSIONS.test(file.name) || (file.type.startsWith('audio/'));
    if (isAudio) await openAudio(file.name, buf);
    else openTuning(file.name, new Uint8Array(buf));
}

async function main() {
    try {
        engine = await loadEngine();
    } catch (err) {
        message('the engine (engine.wasm) did not load: ' + err, 'error');
        return;
    }
    fields = layoutFields(JSON.parse(engine.layoutText()));
    buildEditor();
    startWorker();
    // Cleared after each file, so that opening the same file again reads it again.
    for (const id of ['tuning-file', 'audio-file']) {
        $(id).addEventListener('change', async (e) => {
            const file = e.target.files[0];
            if (file) await openFile(file);
            e.target.value = '';
        });
    }
    $('shipped').addEventListener('change', (e) => e.target.value && openShipped(e.target.value));
    $('save-json').addEventListener('click', () => download(baseName() + '.json', engine.jsonText(), 'application/json'));
    $('save-bin').addEventListener('click', () => download(baseName() + '.bin', engine.recordBytes(), 'application/octet-stream'));
    $('save-audio').addEventListener('click', () => {
        const a = studio.audio;
        download(a.name.replace(/\.[^.]*$/, '') + '-processed.wav', writeWav(a.out, a.rate, a.channels), 'audio/wav');
    });
    $('plots').addEventListener('pointerdown', startDrag);
    $('plots').addEventListener('pointermove', moveDrag);
    $('plots').addEventListener('pointerup', () => { drag = null; });
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
    studio.ready = true;
}

main();
