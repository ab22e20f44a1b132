// The curves of a tuning, computed with the library's own designs: each channel's EQ
// bands and their sum, the crossover bands (impulse responses of the library's
// crossover), the compressor bands' static curves, and the AGC and limiter curves.
// Each result is plain data, drawn by plot.js and read by the browser test.
export const CROSSOVER_IMPULSE = 4096;
// The compressor's bands in its own order, the crossover's outputs' (2 bands: low and high).
export const DRC_BANDS = ['low', 'high', 'middle_1', 'middle_2'];
const CURVE_ROWS = DRC_BANDS.length + 2;  // then the AGC's and the limiter's curve
const FREQ_POINTS = 300;

export function freqAxis(fs) {
    const lo = Math.log(20), hi = Math.log(fs / 2);
    return Array.from({ length: FREQ_POINTS }, (_, i) => Math.exp(lo + ((hi - lo) * i) / (FREQ_POINTS - 1)));
}

export function activeChannels(f) {
    return f.i('header.channel_link') !== 0 || f.i('header.channels') < 2 ? [0] : [0, 1];
}

// At `freqs` (the plot's axis unless given).
export function eqCurves(m, f, ch, fs, freqs = freqAxis(fs)) {
    const total = new Array(freqs.length).fill(0);
    const bands = [];
    // The library designs each band and gives its response: the page restates neither.
    const types = m._studio_filter_type_count();
    const c = m._malloc(20), at = m._malloc(8 * freqs.length), out = m._malloc(8 * freqs.length);
    try {
        m.HEAPF64.set(freqs, at >> 3);
        for (let b = 0; b < 10; b++) {
            const p = `eq10.channels[${ch}].bands[${b}].`;
            const type = f.i(p + 'filterTypes');
            if (f.i(p + 'enable') === 0 || type < 0 || type >= types) continue;
            m._filter_calculateCoeffs(c, type, fs, f(p + 'fc'), f(p + 'Q'), f(p + 'boost'));
            m._filter_responseDb(c, fs, at, out, freqs.length);
            const db = Array.from(m.HEAPF64.subarray(out >> 3, (out >> 3) + freqs.length));
            db.forEach((v, i) => { total[i] += v; });
            bands.push({ band: b, db, fc: f(p + 'fc'), boost: f(p + 'boost') });
        }
    } finally { m._free(c); m._free(at); m._free(out); }
    return { freqs, bands, total, on: f.i('header.enable.eq10') === 1 };
}

// In-place radix-2 FFT magnitude (dB) of a real signal, bins 0..n/2.
function spectrumDb(x) {
    const n = x.length;
    const re = Float64Array.from(x), im = new Float64Array(n);
    for (let i = 1, j = 0; i < n; i++) {
        let bit = n >> 1;
        for (; j & bit; bit >>= 1) j ^= bit;
        j ^= bit;
        if (i < j) { [re[i], re[j]] = [re[j], re[i]]; }
    }
    for (let len = 2; len <= n; len <<= 1) {
        const a = (-2 * Math.PI) / len;
        for (let i = 0; i < n; i += len) {
            for (let k = 0; k < len / 2; k++) {
                const wr = Math.cos(a * k), wi = Math.sin(a * k);
                const ur = re[i + k], ui = im[i + k];
                const vr = re[i + k + len / 2] * wr - im[i + k + len / 2] * wi;
                const vi = re[i + k + len / 2] * wi + im[i + k + len / 2] * wr;
                re[i + k] = ur + vr; im[i + k] = ui + vi;
                re[i + k + len / 2] = ur - vr; im[i + k + len / 2] = ui - vi;
            }
        }
    }
    return Array.from({ length: n / 2 + 1 }, (_, i) => 10 * Math.log10(re[i] * re[i] + im[i] * im[i]));
}

export function crossoverCurves(m, f, ch, fs) {
    const p = `multiband_drc.channels[${ch}].`;
    const count = f.i(p + 'crossover_band');
    const mode = Math.max(0, Math.min(count - 2, 2));
    const corners = [f(p + 'low.freq_end'), f(p + 'high.freq_start'), f(p + 'middle_1.freq_start'),
                     f(p + 'middle_1.freq_end'), f(p + 'middle_2.freq_start'), f(p + 'middle_2.freq_end')];
    const bandsN = 2 + mode;
    const param = m._malloc(28), io = m._malloc(4 + 16);
    const ir = Array.from({ length: bandsN }, () => new Float64Array(CROSSOVER_IMPULSE));
    m.HEAP32[param >> 2] = mode;
    corners.forEach((v, i) => { m.HEAPF32[(param >> 2) + 1 + i] = v; });
    const st = m._Filters_Crossover_filterInit(Math.trunc(fs), 1, param);
    try {
        for (let i = 0; i < CROSSOVER_IMPULSE; i++) {
            m.HEAPF32[io >> 2] = i === 0 ? 1 : 0;
            m._Filters_Crossover_filterProcess(st, io, io + 4);
            for (let b = 0; b < bandsN; b++) ir[b][i] = m.HEAPF32[(io >> 2) + 1 + b];
        }
    } finally {
        if (st) m._Filters_Crossover_filterDestroy(st);
        m._free(param); m._free(io);
    }
    const sum = new Float64Array(CROSSOVER_IMPULSE);
    ir.forEach((x) => x.forEach((v, i) => { sum[i] += v; }));
    const binHz = fs / CROSSOVER_IMPULSE;
    const first = Math.ceil(20 / binHz);
    const keep = (s) => s.slice(first);
    const freqs = keep(Array.from({ length: CROSSOVER_IMPULSE / 2 + 1 }, (_, i) => i * binHz));
    return { freqs, count, bands: ir.map((x, b) => ({ name: DRC_BANDS[b], db: keep(spectrumDb(x)) })),
             sum: keep(spectrumDb(sum)), on: f.i('header.enable.multiband_drc') === 1 };
}

// Output level through a table over x0..top: levels outside the grid take the end
// entries' gains, and no gain goes below the table floor.
// The static curves the library's own gain tables hold for channel `ch` at levels `x`:
// a row of gains (dB) per compressor band, the AGC and the limiter, with the knee widths
// (-1: that row does not exist).
function dynamicsCurves(m, ch, x) {
    const n = x.length, lv = m._malloc(4 * n), out = m._malloc(4 * n * CURVE_ROWS), kn = m._malloc(4 * CURVE_ROWS);
    try {
        m.HEAPF32.set(x, lv >> 2);
        m._studio_dynamics_curves(ch, lv, n, out, kn);
        const rows = Array.from({ length: CURVE_ROWS }, (_, r) => Array.from(m.HEAPF32.subarray((out >> 2) + r * n, (out >> 2) + (r + 1) * n)));
        return { rows, knees: Array.from(m.HEAP32.subarray(kn >> 2, (kn >> 2) + CURVE_ROWS)) };
    } finally { m._free(lv); m._free(out); m._free(kn); }
}

const levels = (lo, hi, n) => Array.from({ length: n }, (_, i) => Math.fround(lo + ((hi - lo) * i) / (n - 1)));
const through = (x, row, knee, extra = 0) => x.map((v, i) => (knee < 0 ? NaN : v + row[i] + extra));

export function drcCurves(m, f, ch) {
    const p = `multiband_drc.channels[${ch}].`;
    const x = levels(-100, 0, 201);
    const { rows, knees } = dynamicsCurves(m, ch, x);
    const bands = DRC_BANDS.flatMap((name, b) => {
        if (knees[b] < 0) return [];
        const y = through(x, rows[b], knees[b], f(p + name + '.gain_dB'));
        return [{ name, y, on: f.i(p + name + '.drc_enable') !== 0, compressStart: f(p + name + '.compress_start'), kneeDb: knees[b] }];
    });
    return { x, bands, on: f.i('header.enable.multiband_drc') === 1 };
}

export function agcLimiterCurves(m, f, ch) {
    const x = levels(-100, 10, 221);
    const { rows, knees } = dynamicsCurves(m, ch, x);
    const agcRow = DRC_BANDS.length, limiterRow = agcRow + 1;
    return { x, agc: through(x, rows[agcRow], knees[agcRow]), limiter: through(x, rows[limiterRow], knees[limiterRow]),
             agcOn: f.i('header.enable.agc') === 1, limiterOn: f.i('header.enable.maximizer') === 1,
             compressStart: f(`agc.channels[${ch}].compress_start`), threshold: f(`maximizer.channels[${ch}].max_threshold`) };
}
