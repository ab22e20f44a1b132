// Short-term loudness with the library's own meter, as the Python package's report
// measures it: a window of WINDOW_S seconds every HOP_S seconds, each window measured by
// a fresh meter whose single block is the window (the first windows hold what there is
// so far). Silence reads SILENT_LUFS.
export const HOP_S = 0.5;
export const WINDOW_S = 3.0;
export const SILENT_LUFS = -1000;

export function shortTermLoudness(m, pcm, rate, channels) {
    const frames = pcm.length / channels;
    const win = Math.round(WINDOW_S * rate);
    const hop = Math.max(1, Math.round(HOP_S * rate));
    const times = [];
    const values = [];
    const planes = m._malloc(channels * 4);
    const data = m._malloc(Math.min(win, frames) * channels * 4 + 4);
    try {
        for (let end = Math.min(hop, frames); end > 0 && end <= frames; end += hop) {
            const start = Math.max(0, end - win);
            const n = end - start;
            const ms = Math.floor((n * 1000) / rate) || 1;
            const st = m._ebur128_init(16, rate, channels, ms, ms);
            for (let c = 0; c < channels; c++) {
                const plane = (data >> 2) + c * n;
                m.HEAP32[(planes >> 2) + c] = plane << 2;
                for (let i = 0; i < n; i++) m.HEAPF32[plane + i] = pcm[(start + i) * channels + c];
            }
            m._ebur128_addframes(st, planes, n);
            values.push(m._ebur128_gatedloudness(st));
            m._ebur128_destroy(st);
            times.push(end / rate);
        }
    } finally {
        m._free(data);
        m._free(planes);
    }
    return { times, values };
}
