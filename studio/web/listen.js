// A file through the chain: decoded (16-bit WAV exactly), processed by the library in
// a worker, its short-term loudness before and after shown.
import { $, FRAME_LEN, message, page, studio } from './page.js';
import { drawPlot } from './plot.js';
import { parseWav } from './wav.js';
import { SILENT_LUFS } from './loudness.js';
import { stopPlayback } from './player.js';

const DECODE_RATE = 48000; // what files other than 16-bit WAV are decoded to

let worker;

export function startWorker() {
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

export async function openAudio(name, buf) {
    if (!page.tuningName) { message('open a tuning first', 'error'); return; }
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
    worker.postMessage({ name, tuningName: page.tuningName, record: page.engine.record().slice(), pcm: a.pcm, rate: a.rate, channels: a.channels, frameLen: FRAME_LEN });
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
