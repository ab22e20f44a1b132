"""The library's filter designer, gain curves, crossover, loudness meter and level detector."""
import ctypes

import numpy as np

from . import _lib

FILTER_TYPES = ("Parametric", "LowShelf", "HighShelf", "GeneralLP", "GeneralHP", "BandPass",
                "ButterworthLP", "ButterworthHP")
GAIN_TABLE_LAST = 200


def design(ftype, fs, fc, q, gain_db):
    """b0, b1, b2, a1, a2 (float32) of filter_calculateCoeffs; `ftype` is a code or a name."""
    if isinstance(ftype, str):
        ftype = FILTER_TYPES.index(ftype)
    c = np.zeros(5, dtype=np.float32)
    _lib.lib().filter_calculateCoeffs(_lib.float_ptr(c), int(ftype), fs, fc, q, gain_db)
    return c


def response_db(coeffs, freqs, fs):
    """|H| in dB of a section (b0, b1, b2, a1, a2) at each of `freqs` (Hz), as the library computes it."""
    c = np.ascontiguousarray(coeffs, dtype=np.float32)
    f = np.ascontiguousarray(freqs, dtype=np.float64).ravel()
    db = np.empty_like(f)
    dp = ctypes.POINTER(ctypes.c_double)
    _lib.lib().filter_responseDb(_lib.float_ptr(c), float(fs), f.ctypes.data_as(dp), db.ctypes.data_as(dp), f.size)
    return db


# The compressor's bands in its own order (the crossover's outputs): 2 bands are low and
# high, 3 add middle_1, 4 add middle_2.
DRC_BAND_NAMES = ("low", "high", "middle_1", "middle_2")
_SECTION_DRC, _SECTION_MAXIMIZER = 200, 400
_CURVE_FRAME = 768  # only the stages' time constants depend on it


def dynamics_curves(record, channel, levels):
    """The static curves the record's compressor, AGC and limiter hold for `channel`, read
    from the library's own gain tables at `levels` (dBFS): {"multiband_drc": [(band name,
    knee dB, gain dB array), ...], "agc": (knee, gain), "maximizer": (knee, gain)}. The
    compressor's make-up gain (gain_dB) comes on top of its curves; the limiter's is in."""
    lib = _lib.lib()
    rec = np.ascontiguousarray(record, dtype=np.float32)
    x = np.ascontiguousarray(levels, dtype=np.float32)
    rate, bits, link, channels = (int(v) if np.isfinite(v) else 0 for v in rec[:4])
    channels = max(0, min(channels, 2))  # the stages end the process for more than two

    def curve(fn, *args):
        y = np.empty_like(x)
        knee = fn(*args, _lib.float_ptr(x), _lib.float_ptr(y), x.size)
        return (knee, y) if knee >= 0 else None

    out = {}
    from .chain import quiet_stderr  # the stages report a curve they refuse on standard error
    with quiet_stderr():
        drc = lib.MultiBandDRC_Init(_lib.float_ptr(rec[_SECTION_DRC:]), bits, rate, channels, link)
        mx = lib.Maximizer_Init(_lib.float_ptr(rec[_SECTION_MAXIMIZER:]), bits, rate, channels, _CURVE_FRAME, link)
    bands = [(name, curve(lib.MultiBandDRC_GetCurve, drc, channel, b)) for b, name in enumerate(DRC_BAND_NAMES)]
    out["multiband_drc"] = [(name, c[0], c[1]) for name, c in bands if c is not None]
    lib.MultiBandDRC_Destroy(drc)
    out["agc"] = curve(lib.Agc_GetCurve, mx, channel)
    out["maximizer"] = curve(lib.Maximizer_GetCurve, mx, channel)
    lib.Maximizer_Destroy(mx)
    return out


def table_caculate(knee, x, noise_threshold, expand_end, compress_start, max_gain, max_peak):
    """Expander/compressor curve: output dB for input dB `x` (a number or an array)."""
    f = _lib.lib().table_caculate
    xs = np.asarray(x, dtype=np.float32)
    out = np.array([f(knee, float(v), noise_threshold, expand_end, compress_start, max_gain, max_peak)
                    for v in xs.reshape(-1)], dtype=np.float32)
    return out.reshape(xs.shape) if xs.ndim else out[0]


def max_table_caculate(knee, x, threshold):
    """Limiter curve: output dB for input dB `x` (a number or an array)."""
    f = _lib.lib().max_table_caculate
    xs = np.asarray(x, dtype=np.float32)
    out = np.array([f(knee, float(v), threshold) for v in xs.reshape(-1)], dtype=np.float32)
    return out.reshape(xs.shape) if xs.ndim else out[0]


def table_search(last_index, table, level, x0, scale):
    """Linear gain of the table entry nearest to `level` dB."""
    t = np.ascontiguousarray(table, dtype=np.float32)
    if t.size <= max(int(last_index), 0):
        raise ValueError("the table has %d entries; last_index is %d" % (t.size, last_index))
    return _lib.lib().table_search(last_index, _lib.float_ptr(t), level, x0, scale)


def crossover_impulse(sample_rate, band_mode, freqs, length):
    """Impulse responses of one channel of the library's crossover, (bands, length) float32,
    in the order low, high, middle 1, middle 2.  `freqs`: low LP, high HP, band 2 HP and LP,
    band 3 HP and LP corners."""
    lib = _lib.lib()
    param = _lib.CrossoverParam(int(band_mode), (ctypes.c_float * 6)(*freqs))
    st = lib.Filters_Crossover_filterInit(int(sample_rate), 1, ctypes.byref(param))
    bands = 2 + int(band_mode)
    out = np.zeros((length, bands), dtype=np.float32)
    x = np.zeros(1, dtype=np.float32)
    try:
        for i in range(length):
            x[0] = 1.0 if i == 0 else 0.0
            lib.Filters_Crossover_filterProcess(st, _lib.float_ptr(x), _lib.float_ptr(out[i]))
    finally:
        lib.Filters_Crossover_filterDestroy(st)
    return out.T.copy()


class LoudnessMeter:
    """The library's K-weighted gated loudness meter (ebur128_ functions)."""

    def __init__(self, bits, sample_rate, channels, window_ms, step_ms):
        self._lib = _lib.lib()
        self.channels = channels
        self._st = self._lib.ebur128_init(bits, sample_rate, channels, window_ms, step_ms)
        if not self._st:
            raise ValueError("the loudness meter takes 16, 24 or 32 bits")

    def add(self, planar):
        """Feed one frame, (channels, n) float samples in integer scale."""
        p = np.ascontiguousarray(planar, dtype=np.float32)
        if p.ndim != 2 or p.shape[0] != self.channels:
            raise ValueError("expected (%d, n) planar samples" % self.channels)
        self._lib.ebur128_addframes(self._st, _lib.planar_ptrs(p), p.shape[1])

    def loudness(self):
        """Gated loudness in LUFS, or -1000.0 when nothing was measured."""
        return self._lib.ebur128_gatedloudness(self._st)

    def close(self):
        if getattr(self, "_st", None):
            self._lib.ebur128_destroy(self._st)
            self._st = None

    __del__ = close


def short_term_loudness(pcm, sample_rate, hop_s=0.5, window_s=3.0):
    """Loudness (LUFS) of each `window_s` window of int16 (samples, channels) audio, one every
    `hop_s` seconds, each measured by a fresh meter whose single block is the window (the
    first windows hold what there is so far).  Returns (window end times in s, LUFS; -1000
    for silence)."""
    pcm = np.asarray(pcm)
    if pcm.ndim == 1:
        pcm = pcm[:, None]
    channels = pcm.shape[1]
    win = int(round(window_s * sample_rate))
    hop = max(1, int(round(hop_s * sample_rate)))
    planar = np.ascontiguousarray(pcm.T, dtype=np.float32)
    times, values = [], []
    for end in range(min(hop, pcm.shape[0]), pcm.shape[0] + 1, hop):
        start = max(0, end - win)
        n = end - start
        meter = LoudnessMeter(16, sample_rate, channels, int(n * 1000 // sample_rate) or 1,
                              int(n * 1000 // sample_rate) or 1)
        seg = np.ascontiguousarray(planar[:, start:end])
        meter.add(seg)
        values.append(meter.loudness())
        meter.close()
        times.append(end / sample_rate)
    return np.array(times), np.array(values, dtype=np.float32)


class LevelDetector:
    """The library's ten-band level meter of the first channel of interleaved int16 frames."""

    def __init__(self, bits, sample_rate, channels, frame_len):
        self._lib = _lib.lib()
        self.channels = channels
        self._st = self._lib.LevelDetector_Init(bits, sample_rate, channels, frame_len)
        if not self._st:
            raise ValueError("the level detector was not created")

    def set_para(self, bands, rmstc, hold_time, decay_time):
        """`bands`: ten (frequency, Q) pairs or None to keep them; times in ms."""
        if bands is None:
            return self._lib.LevelDetector_SetPara(self._st, None, rmstc, hold_time, decay_time)
        b = np.ascontiguousarray(bands, dtype=np.float32).reshape(-1)
        if b.size != 20:
            raise ValueError("ten frequency/Q pairs")
        return self._lib.LevelDetector_SetPara(self._st, _lib.float_ptr(b), rmstc, hold_time, decay_time)

    def process(self, pcm):
        """Measure interleaved int16 samples; returns the samples per channel measured."""
        p = np.ascontiguousarray(pcm, dtype=np.int16).reshape(-1)
        n = p.size // self.channels
        return self._lib.LevelDetector_Process(self._st, _lib.int16_ptr(p), n)

    def result(self):
        """(frequencies Hz, levels dB) as int16 arrays."""
        r = _lib.LevelDetectorResult()
        self._lib.LevelDetector_GetRes(self._st, ctypes.byref(r))
        return np.array(r.freq, dtype=np.int16), np.array(r.level, dtype=np.int16)

    def close(self):
        if getattr(self, "_st", None):
            self._lib.LevelDetector_Destroy(self._st)
            self._st = None

    __del__ = close
