// The device's meters as the server relays the player's readings: per channel the input
// and output peaks, each compressor band's gain, the AGC's and the limiter's gain, as
// bars with their dB values, and the last tuning hand-over.
import { $, page, reader, studio } from './page.js';
import { DRC_BANDS } from './curves.js';

const PEAK_RANGE = [-60, 0];   // dBFS, bars grow from the left
const GAIN_RANGE = [-24, 12];  // dB, bars grow from 0
const IDLE_MS = 1000;          // no reading for this long: the player is not publishing

studio.meters = { readings: 0, last: null };
let latest = null, drawQueued = false, idleTimer = null, shape = '';
let bars = [];  // per channel: { input, output, bands: [[index, row]], agc, limiter }

function row(parent, name) {
    const el = document.createElement('div');
    el.className = 'meter';
    const label = document.createElement('span');
    label.textContent = name;
    const track = document.createElement('span');
    track.className = 'track';
    const bar = document.createElement('span');
    track.appendChild(bar);
    const value = document.createElement('output');
    el.append(label, track, value);
    parent.appendChild(el);
    return { bar, value };
}

function setBar({ bar, value }, db, [lo, hi], from) {
    const at = (v) => ((Math.min(Math.max(v, lo), hi) - lo) / (hi - lo)) * 100;
    bar.style.left = Math.min(at(from), at(db)) + '%';
    bar.style.width = Math.abs(at(db) - at(from)) + '%';
    bar.className = db < from ? 'below' : '';
    value.textContent = (Math.abs(db) < 0.05 ? 0 : db).toFixed(1) + ' dB';  // never "-0.0"
}

// The compressor bands a channel has, in frequency order, with their place in the
// reading (the compressor's order); all four when no tuning is open.
function bandsOf(ch) {
    const count = page.tuningName ? Math.min(Math.max(reader().i(`multiband_drc.channels[${Math.min(ch, 1)}].crossover_band`), 2), 4) : 4;
    return ['low', 'middle_1', 'middle_2', 'high'].filter((n) => DRC_BANDS.indexOf(n) < count).map((n) => [n, DRC_BANDS.indexOf(n)]);
}

function build(channels) {
    const root = $('meter-channels');
    root.textContent = '';
    bars = [];
    for (let ch = 0; ch < channels; ch++) {
        const box = document.createElement('fieldset');
        const legend = document.createElement('legend');
        legend.textContent = `channel ${ch}`;
        box.appendChild(legend);
        bars.push({ input: row(box, 'input peak'), output: row(box, 'output peak'),
                    bands: bandsOf(ch).map(([name, i]) => [i, row(box, name)]),
                    agc: row(box, 'agc'), limiter: row(box, 'limiter') });
        root.appendChild(box);
    }
}

function draw() {
    drawQueued = false;
    const m = latest;
    const next = `${m.channels}:${bandsOf(0).length}:${bandsOf(1).length}`;
    if (next !== shape) { shape = next; build(m.channels); }
    bars.forEach((b, ch) => {
        setBar(b.input, m.inputPeakDb[ch], PEAK_RANGE, PEAK_RANGE[0]);
        setBar(b.output, m.outputPeakDb[ch], PEAK_RANGE, PEAK_RANGE[0]);
        for (const [i, r] of b.bands) setBar(r, m.compressorGainDb[ch][i], GAIN_RANGE, 0);
        setBar(b.agc, m.agcGainDb[ch], GAIN_RANGE, 0);
        setBar(b.limiter, m.limiterGainDb[ch], GAIN_RANGE, 0);
    });
    if (m.handovers > 0) showHandover(m.handoverFrame, m.handovers);
}

export function showMeters(reading) {
    latest = reading;
    studio.meters.readings++;
    studio.meters.last = reading;
    if (!drawQueued) {
        drawQueued = true;
        requestAnimationFrame(draw);
    }
    $('meters').classList.remove('idle');
    clearTimeout(idleTimer);
    idleTimer = setTimeout(() => $('meters').classList.add('idle'), IDLE_MS);
}

export function showHandover(frame, handovers) {
    $('handover').textContent = `last tuning hand-over at frame ${frame} (${handovers} since the player started)`;
}
