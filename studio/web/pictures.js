// The curves of the open tuning, redrawn after each change, and dragging a band's
// handle on an EQ plot.
import { $, message, page, reader, studio } from './page.js';
import * as curves from './curves.js';
import { drawPlot } from './plot.js';
import { setField } from './editor.js';
import { fitCurves } from './measure.js';

const FREQ_TICKS = [20, 50, 100, 200, 500, 1000, 2000, 5000, 10000, 20000];
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

export function drawCurves() {
    const m = page.engine.module;
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
                eq.fit = fitCurves(m, f, ch, fs);
                plots[`eq${ch}`] = eq;
                const fit = eq.fit ? [{ x: eq.fit.hz, y: eq.fit.measured, color: '#999', width: 1.2, label: 'measurement' },
                                      { x: eq.fit.hz, y: eq.fit.target, color: '#2ca02c', dash: true, label: 'target' },
                                      { x: eq.fit.hz, y: eq.fit.predicted, color: '#d62728', width: 2, label: 'predicted' }] : [];
                const eqCanvas = keep(`eq${ch}`);
                eqCanvas.dataset.channel = String(ch);
                eqCanvas.setAttribute('aria-label', `EQ response of channel ${ch}; drag a band to move its fc and boost`);
                eqMaps.set(eqCanvas, drawPlot(eqCanvas, {
                    title: `eq10.channels[${ch}]`, xlog: true, xlim: [20, fs / 2], ylim: [-24, 24], ystep: 6,
                    xticks: FREQ_TICKS.filter((t) => t <= fs / 2), grey: !eq.on,
                    series: [...eq.bands.map((b) => ({ x: eq.freqs, y: b.db, label: `bands[${b.band}]`, width: 0.9 })),
                             { x: eq.freqs, y: eq.total, color: '#000', width: 2, label: 'sum' }, ...fit],
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

export function endDrag() { drag = null; }

// Where a band's handle is on the page (for the browser test's drag).
studio.handleAt = (ch, band) => {
    const canvas = document.getElementById(`plot-eq${ch}`);
    const f = reader();
    const p = `eq10.channels[${ch}].bands[${band}].`;
    const [x, y] = eqMaps.get(canvas).toPixel(f(p + 'fc'), f(p + 'boost'));
    const r = canvas.getBoundingClientRect();
    return { x: r.left + x, y: r.top + y };
};

export function startDrag(e) {
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

export function moveDrag(e) {
    if (!drag || e.target !== drag.canvas) return;
    const r = drag.canvas.getBoundingClientRect();
    const [fc, boost] = drag.map.toData(e.clientX - r.left, e.clientY - r.top);
    const fs = reader()('header.sample_rate');
    setField(drag.p + 'fc', Math.fround(Math.round(Math.min(Math.max(fc, 20), fs / 2 - 1))));
    setField(drag.p + 'boost', Math.fround(Math.round(boost * 10) / 10));
    page.changed();
}
