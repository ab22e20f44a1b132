"""Pictures of a tuning and of a processed file, drawn from the library's own designs."""
import math

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt  # noqa: E402
import numpy as np  # noqa: E402

from . import dsp  # noqa: E402
from .tuning import as_record, layout  # noqa: E402

GAIN_CURVE_KNEE = 4        # knee width the compressor and AGC tables use
LIMITER_KNEE_BASE_DB = 6.0
LIMITER_MAKEUP_TRIM = 0.998  # the limiter's make-up gain is trimmed by this factor
DRC_BANDS = ("low", "middle_1", "middle_2", "high")  # crossover output order: low, high, mid 1, mid 2
FIGURE_SIZE = (16, 12)      # inches
DPI = 80                    # 1280 x 960 pixels
CROSSOVER_IMPULSE = 16384


class _Fields:
    """Read record words by field path."""

    def __init__(self, rec):
        self.rec, self.lay = rec, layout()

    def __call__(self, path):
        return float(self.rec[self.lay.word(path)])

    def i(self, path):
        v = self(path)
        return int(v) if math.isfinite(v) else 0


def magnitude_db(coeffs, freqs, fs):
    """|H| in dB of b0, b1, b2, a1, a2 (y = b0 x + b1 x1 + b2 x2 - a1 y1 - a2 y2)."""
    b0, b1, b2, a1, a2 = (float(c) for c in coeffs)
    z = np.exp(-1j * 2 * np.pi * np.asarray(freqs) / fs)
    h = (b0 + b1 * z + b2 * z * z) / (1 + a1 * z + a2 * z * z)
    with np.errstate(divide="ignore"):
        return 20 * np.log10(np.abs(h))


def _freq_axis(fs):
    return np.geomspace(20.0, fs / 2, 600)


def _active_channels(f):
    linked = f.i("header.channel_link") != 0
    return [0] if linked or f.i("header.channels") < 2 else [0, 1]


def _plot_eq(ax, f, ch, fs):
    freqs = _freq_axis(fs)
    total = np.zeros_like(freqs)
    base = "eq10.channels[%d].bands[%d]." % (ch, 0)
    drawn = 0
    for b in range(10):
        base = "eq10.channels[%d].bands[%d]." % (ch, b)
        if f.i(base + "enable") == 0:
            continue
        ftype = f.i(base + "filterTypes")
        if not 0 <= ftype < len(dsp.FILTER_TYPES):
            continue
        c = dsp.design(ftype, fs, f(base + "fc"), f(base + "Q"), f(base + "boost"))
        m = magnitude_db(c, freqs, fs)
        total += m
        drawn += 1
        ax.semilogx(freqs, m, lw=0.9, alpha=0.7,
                    label="bands[%d] %s fc=%g Q=%g boost=%g" % (b, dsp.FILTER_TYPES[ftype], f(base + "fc"),
                                                                   f(base + "Q"), f(base + "boost")))
    ax.semilogx(freqs, total, "k", lw=2, label="combined")
    state = "on" if f.i("header.enable.eq10") == 1 else "off"
    ax.set_title("eq10.channels[%d] (header.enable.eq10: %s, %d bands)" % (ch, state, drawn))
    ax.set_xlabel("frequency (Hz)")
    ax.set_ylabel("magnitude (dB)")
    ax.set_xlim(20, fs / 2)
    ax.grid(True, which="both", alpha=0.3)
    ax.legend(fontsize=6, loc="best")


def _drc_bands(f, ch):
    count = f.i("multiband_drc.channels[%d].crossover_band" % ch)
    return count, [b for b in DRC_BANDS[:max(2, min(count, 4))]]


def _plot_crossover(ax, f, ch, fs):
    p = "multiband_drc.channels[%d]." % ch
    count, names = _drc_bands(f, ch)
    mode = max(0, min(count - 2, 2))
    corners = [f(p + "low.freq_end"), f(p + "high.freq_start"), f(p + "middle_1.freq_start"),
               f(p + "middle_1.freq_end"), f(p + "middle_2.freq_start"), f(p + "middle_2.freq_end")]
    ir = dsp.crossover_impulse(fs, mode, corners, CROSSOVER_IMPULSE)
    order = ["low", "high", "middle_1", "middle_2"][:ir.shape[0]]
    resp = np.fft.rfft(ir.astype(np.float64), axis=1)
    bins = np.fft.rfftfreq(CROSSOVER_IMPULSE, 1.0 / fs)
    keep = bins >= 20
    with np.errstate(divide="ignore"):
        for name, s in zip(order, resp):
            ax.semilogx(bins[keep], 20 * np.log10(np.abs(s[keep])), label=name)
        ax.semilogx(bins[keep], 20 * np.log10(np.abs(resp.sum(axis=0)[keep])), "k--", lw=1, label="sum")
    ax.set_title("multiband_drc.channels[%d] crossover (crossover_band: %d)" % (ch, count))
    ax.set_xlabel("frequency (Hz)")
    ax.set_ylabel("magnitude (dB)")
    ax.set_xlim(20, fs / 2)
    ax.set_ylim(-60, 6)
    ax.grid(True, which="both", alpha=0.3)
    ax.legend(fontsize=7)


GAIN_FLOOR_DB = -60.0        # tables hold no gain below 0.001
TABLE_HEADROOM_DB = 4.0      # compressor and AGC tables start this far below noise_threshold
DRC_TABLE_TOP_DB = 0.0
AGC_TABLE_TOP_DB = 10.0
LIMITER_TABLE_TOP_DB = 10.0


def _as_tabled(curve, x, x0, top):
    """Output level through a 201-entry table over x0..top: levels outside the grid take the
    end entries' gains, and no gain goes below the table floor."""
    xs = np.clip(x, x0, top).astype(np.float32)
    gain = curve(xs).astype(np.float64) - xs
    return x + np.maximum(gain, GAIN_FLOOR_DB)


def _curve_args(f, base):
    return [f(base + k) for k in ("noise_threshold", "expand_end", "compress_start", "max_gain", "max_peak")]


def _plot_drc_curves(ax, f, ch):
    p = "multiband_drc.channels[%d]." % ch
    count, names = _drc_bands(f, ch)
    x = np.linspace(-100.0, 0.0, 401, dtype=np.float32)
    ax.plot(x, x, color="0.6", lw=0.8, ls=":", label="unity")
    for name in names:
        args = _curve_args(f, p + name + ".")
        gain = f(p + name + ".gain_dB")
        y = _as_tabled(lambda v: dsp.table_caculate(GAIN_CURVE_KNEE, v, *args), x,
                       args[0] - TABLE_HEADROOM_DB, DRC_TABLE_TOP_DB)
        on = f.i(p + name + ".drc_enable") != 0
        ax.plot(x, y + gain, lw=1.5, ls="-" if on else "--",
                label="%s (drc_enable %d, gain_dB %g)" % (name, int(on), gain))
    ax.set_title("multiband_drc.channels[%d] static curves (output = curve + gain_dB)" % ch)
    ax.set_xlabel("input level (dBFS)")
    ax.set_ylabel("output level (dBFS)")
    ax.set_xlim(-100, 0)
    ax.grid(True, alpha=0.3)
    ax.legend(fontsize=7)


def _plot_agc_limiter(ax, f, ch):
    x = np.linspace(-100.0, 10.0, 441, dtype=np.float32)
    ax.plot(x, x, color="0.6", lw=0.8, ls=":", label="unity")
    a = "agc.channels[%d]." % ch
    agc_args = _curve_args(f, a)
    agc = _as_tabled(lambda v: dsp.table_caculate(GAIN_CURVE_KNEE, v, *agc_args), x,
                     agc_args[0] - TABLE_HEADROOM_DB, AGC_TABLE_TOP_DB)
    ax.plot(x, agc, lw=1.5, label="agc (compress_start %g, max_gain %g, max_peak %g)"
            % (f(a + "compress_start"), f(a + "max_gain"), f(a + "max_peak")))
    m = "maximizer.channels[%d]." % ch
    thr, ceiling = f(m + "max_threshold"), f(m + "ceiling")
    knee = int(-thr + -thr + LIMITER_KNEE_BASE_DB) if math.isfinite(thr) else 0
    lim = _as_tabled(lambda v: dsp.max_table_caculate(knee, v, thr), x, 2 * thr - LIMITER_KNEE_BASE_DB,
                     LIMITER_TABLE_TOP_DB) + (ceiling - thr) + 20 * math.log10(LIMITER_MAKEUP_TRIM)
    ax.plot(x, lim, lw=1.5, label="maximizer (max_threshold %g, ceiling %g)" % (thr, ceiling))
    ax.set_title("agc.channels[%d] and maximizer.channels[%d] (agc %s, maximizer %s)"
                 % (ch, ch, "on" if f.i("header.enable.agc") == 1 else "off",
                    "on" if f.i("header.enable.maximizer") == 1 else "off"))
    ax.set_xlabel("input level (dBFS)")
    ax.set_ylabel("output level (dBFS)")
    ax.set_xlim(-100, 10)
    ax.grid(True, alpha=0.3)
    ax.legend(fontsize=7)


def plot_tuning(record, out_path, title=None):
    """One PNG: per channel the EQ response, crossover bands, compressor curves, AGC and
    limiter curves.  Returns the figure's pixel size."""
    rec = as_record(record)
    f = _Fields(rec)
    fs = f("header.sample_rate")
    chans = _active_channels(f)
    fig, axes = plt.subplots(4, len(chans), figsize=FIGURE_SIZE, dpi=DPI, squeeze=False)
    for col, ch in enumerate(chans):
        _plot_eq(axes[0][col], f, ch, fs)
        _plot_crossover(axes[1][col], f, ch, fs)
        _plot_drc_curves(axes[2][col], f, ch)
        _plot_agc_limiter(axes[3][col], f, ch)
    fig.suptitle(title or "tuning at %g Hz, %d channel(s)%s" % (fs, f.i("header.channels"),
                                                               ", channel_link" if len(chans) == 1 and
                                                               f.i("header.channels") > 1 else ""))
    fig.tight_layout()
    fig.savefig(out_path, dpi=DPI)
    plt.close(fig)
    return int(FIGURE_SIZE[0] * DPI), int(FIGURE_SIZE[1] * DPI)


GR_BLOCK_S = 0.05


def plot_report(pcm_in, pcm_out, sample_rate, out_path, title=None):
    """One PNG: input and output short-term loudness over time (the library's meter), and
    the level change of the output against the input in 50 ms blocks."""
    t_in, l_in = dsp.short_term_loudness(pcm_in, sample_rate)
    t_out, l_out = dsp.short_term_loudness(pcm_out, sample_rate)
    fig, (ax1, ax2) = plt.subplots(2, 1, figsize=(12, 8), dpi=DPI, sharex=True)
    silent = -1000.0
    ax1.plot(t_in, np.where(l_in <= silent, np.nan, l_in), label="input")
    ax1.plot(t_out, np.where(l_out <= silent, np.nan, l_out), label="output")
    ax1.set_ylabel("short-term loudness (LUFS, 3 s)")
    ax1.grid(True, alpha=0.3)
    ax1.legend()
    ax1.set_title(title or "loudness and gain reduction")

    a = np.asarray(pcm_in, dtype=np.float64).reshape(len(pcm_in), -1)
    b = np.asarray(pcm_out, dtype=np.float64).reshape(len(pcm_out), -1)
    block = max(1, int(GR_BLOCK_S * sample_rate))
    n = min(len(a), len(b)) // block
    if n:
        ea = (a[:n * block] ** 2).reshape(n, -1).mean(axis=1)
        eb = (b[:n * block] ** 2).reshape(n, -1).mean(axis=1)
        with np.errstate(divide="ignore", invalid="ignore"):
            change = 10 * np.log10(eb / ea)
        change[~np.isfinite(change)] = np.nan
        t = (np.arange(n) + 1) * block / sample_rate
        ax2.plot(t, change, color="0.5", lw=0.8, label="output - input (50 ms RMS)")
        ax2.fill_between(t, np.minimum(np.nan_to_num(change), 0), 0, color="tab:red", alpha=0.4,
                         label="gain reduction")
    ax2.set_xlabel("time (s)")
    ax2.set_ylabel("dB")
    ax2.grid(True, alpha=0.3)
    ax2.legend()
    fig.tight_layout()
    fig.savefig(out_path, dpi=DPI)
    plt.close(fig)
    return 12 * DPI, 8 * DPI
