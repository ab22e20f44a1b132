"""Pictures of a tuning and of a processed file, drawn from the library's own designs."""
import math

import matplotlib

matplotlib.use("Agg")
import matplotlib.ticker  # noqa: E402
import matplotlib.pyplot as plt  # noqa: E402
import numpy as np  # noqa: E402

from . import dsp  # noqa: E402
from .tuning import as_record, layout  # noqa: E402

FIGURE_SIZE = (16, 12)      # inches
DPI = 80                    # 1280 x 960 pixels
REPORT_FIGURE_SIZE = (12, 8)  # inches: 960 x 640 pixels
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


FREQ_TICKS_HZ = (20, 50, 100, 200, 500, 1000, 2000, 5000, 10000, 20000)
OFF_COLOUR = "0.72"
PER_CHANNEL_SECTIONS = ("eq10", "multiband_drc", "agc", "maximizer")


def _freq_axis(fs):
    return np.geomspace(20.0, fs / 2, 600)


def _frequency_ticks(ax, fs):
    """Ticks a tuning engineer reads: 20, 50, 100, 200 ... 20k."""
    ticks = [t for t in FREQ_TICKS_HZ if t <= fs / 2]
    ax.set_xticks(ticks)
    ax.set_xticklabels(["%gk" % (t / 1000) if t >= 1000 else "%g" % t for t in ticks])
    ax.xaxis.set_minor_formatter(matplotlib.ticker.NullFormatter())


def _stage_on(f, stage):
    return f.i("header.enable." + stage) == 1


def _mark_off(ax, stages):
    """A switched-off stage is drawn in grey under a large "off"."""
    if stages:
        ax.text(0.5, 0.5, "\n".join("%s off" % s for s in stages), transform=ax.transAxes, ha="center",
                va="center", fontsize=18, color="0.45", zorder=10)


def _channels_identical(f):
    """Whether channel 1's settings equal channel 0's, word for word, in every drawn section."""
    lay = f.lay
    for fld in lay.fields:
        if fld.section in PER_CHANNEL_SECTIONS and "channels[1]" in fld.path:
            other = lay.word(fld.path.replace("channels[1]", "channels[0]"))
            if f.rec[fld.word].tobytes() != f.rec[other].tobytes():
                return False
    return True


def _columns(f):
    """(channel whose settings are drawn, how the column is named) per column."""
    if f.i("header.channels") < 2:
        return [(0, "channels[0]")]
    if f.i("header.channel_link") != 0:
        return [(0, "both channels (channel_link: channels[0])")]
    if _channels_identical(f):
        return [(0, "both channels (identical settings)")]
    return [(0, "channels[0]"), (1, "channels[1]")]


def _plot_eq(ax, f, ch, who, fs):
    freqs = _freq_axis(fs)
    on = _stage_on(f, "eq10")
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
        m = dsp.response_db(c, freqs, fs)
        total += m
        drawn += 1
        ax.semilogx(freqs, m, lw=0.9, alpha=0.7, color=None if on else OFF_COLOUR,
                    label="bands[%d] %s fc=%g Q=%g boost=%g" % (b, dsp.FILTER_TYPES[ftype], f(base + "fc"),
                                                                   f(base + "Q"), f(base + "boost")))
    ax.semilogx(freqs, total, color="k" if on else OFF_COLOUR, lw=2, label="combined")
    ax.set_title("eq10, %s (%s, %d bands)" % (who, "on" if on else "off", drawn))
    _eq_axes(ax, fs)
    _mark_off(ax, [] if on else ["eq10"])


def _eq_axes(ax, fs, ylabel="magnitude (dB)"):
    """The EQ pictures' axes: log frequency from 20 Hz to half the sample rate, dB."""
    ax.set_xscale("log")
    ax.set_xlabel("frequency (Hz)")
    ax.set_ylabel(ylabel)
    ax.set_xlim(20, fs / 2)
    _frequency_ticks(ax, fs)
    ax.grid(True, which="both", alpha=0.3)
    # Beside the axes, never over the combined curve.
    ax.legend(fontsize=6, loc="upper left", bbox_to_anchor=(1.01, 1.0), borderaxespad=0.0)


def _plot_crossover(ax, f, ch, who, fs):
    p = "multiband_drc.channels[%d]." % ch
    on = _stage_on(f, "multiband_drc")
    count = f.i(p + "crossover_band")
    mode = max(0, min(count - 2, 2))
    corners = [f(p + "low.freq_end"), f(p + "high.freq_start"), f(p + "middle_1.freq_start"),
               f(p + "middle_1.freq_end"), f(p + "middle_2.freq_start"), f(p + "middle_2.freq_end")]
    ir = dsp.crossover_impulse(fs, mode, corners, CROSSOVER_IMPULSE)
    order = dsp.DRC_BAND_NAMES[:ir.shape[0]]
    resp = np.fft.rfft(ir.astype(np.float64), axis=1)
    bins = np.fft.rfftfreq(CROSSOVER_IMPULSE, 1.0 / fs)
    keep = bins >= 20
    with np.errstate(divide="ignore"):
        for name, s in zip(order, resp):
            ax.semilogx(bins[keep], 20 * np.log10(np.abs(s[keep])), label=name,
                        color=None if on else OFF_COLOUR)
        ax.semilogx(bins[keep], 20 * np.log10(np.abs(resp.sum(axis=0)[keep])), "--", color="k" if on else OFF_COLOUR,
                    lw=1, label="sum")
    ax.set_title("multiband_drc crossover, %s (crossover_band: %d%s)" % (who, count, "" if on else ", off"))
    ax.set_xlabel("frequency (Hz)")
    ax.set_ylabel("magnitude (dB)")
    ax.set_xlim(20, fs / 2)
    ax.set_ylim(-60, 6)
    _frequency_ticks(ax, fs)
    ax.grid(True, which="both", alpha=0.3)
    ax.legend(fontsize=7)
    _mark_off(ax, [] if on else ["multiband_drc"])


def _mark_knees(ax, x, y, spans, colour):
    """Thickens the curve over each knee span and dots its threshold (span centre)."""
    for lo, hi in spans:
        inside = (x >= lo) & (x <= hi)
        if inside.any():
            ax.plot(x[inside], y[inside], color=colour, lw=5, alpha=0.35, solid_capstyle="butt")
        centre = 0.5 * (lo + hi)
        ax.plot([centre], [np.interp(centre, x, y)], "o", color=colour, ms=4)


def _curve_knees(knee, args):
    """The expander and compressor knees: `knee` dB around expand_end and compress_start."""
    h = knee // 2
    return [(args[1] - h, args[1] + h), (args[2] - h, args[2] + h)]


def _curve_args(f, base):
    return [f(base + k) for k in ("noise_threshold", "expand_end", "compress_start", "max_gain", "max_peak")]


def _plot_drc_curves(ax, f, ch, who):
    p = "multiband_drc.channels[%d]." % ch
    stage_on = _stage_on(f, "multiband_drc")
    x = np.linspace(-100.0, 0.0, 401, dtype=np.float32)
    ax.plot(x, x, color="0.6", lw=0.8, ls=":", label="unity")
    for name, knee, curve in dsp.dynamics_curves(f.rec, ch, x)["multiband_drc"]:
        args = _curve_args(f, p + name + ".")
        gain = f(p + name + ".gain_dB")
        y = x + curve + gain
        on = f.i(p + name + ".drc_enable") != 0
        line, = ax.plot(x, y, lw=1.5, ls="-" if on else "--", color=None if stage_on else OFF_COLOUR,
                        label="%s (drc_enable %d, gain_dB %g; knees at expand_end %g, compress_start %g)"
                        % (name, int(on), gain, args[1], args[2]))
        _mark_knees(ax, x, y, _curve_knees(knee, args), line.get_color())
    ax.set_title("multiband_drc static curves, %s (output = curve + gain_dB)" % who)
    ax.set_xlabel("input level (dBFS)")
    ax.set_ylabel("output level (dBFS)")
    ax.set_xlim(-100, 0)
    ax.grid(True, alpha=0.3)
    ax.legend(fontsize=7)
    _mark_off(ax, [] if stage_on else ["multiband_drc"])


def _plot_agc_limiter(ax, f, ch, who):
    x = np.linspace(-100.0, 10.0, 441, dtype=np.float32)
    ax.plot(x, x, color="0.6", lw=0.8, ls=":", label="unity")
    curves = dsp.dynamics_curves(f.rec, ch, x)
    a = "agc.channels[%d]." % ch
    agc_on, lim_on = _stage_on(f, "agc"), _stage_on(f, "maximizer")
    if curves["agc"] is not None:
        knee, gain = curves["agc"]
        line, = ax.plot(x, x + gain, lw=1.5, color="tab:blue" if agc_on else OFF_COLOUR,
                        label="agc (knees at expand_end %g, compress_start %g; max_gain %g, max_peak %g)%s"
                        % (f(a + "expand_end"), f(a + "compress_start"), f(a + "max_gain"), f(a + "max_peak"),
                           "" if agc_on else ", off"))
        _mark_knees(ax, x, x + gain, _curve_knees(knee, _curve_args(f, a)), line.get_color())
    m = "maximizer.channels[%d]." % ch
    thr, ceiling = f(m + "max_threshold"), f(m + "ceiling")
    if curves["maximizer"] is not None:
        knee, gain = curves["maximizer"]
        line, = ax.plot(x, x + gain, lw=1.5, color="tab:orange" if lim_on else OFF_COLOUR,
                        label="maximizer (knee %d dB around max_threshold %g, ceiling %g)%s"
                        % (knee, thr, ceiling, "" if lim_on else ", off"))
        _mark_knees(ax, x, x + gain, [(thr - (knee >> 1), thr + (knee >> 1))] if knee > 0 else [], line.get_color())
    if lim_on:
        ax.axhline(ceiling, color="tab:orange", lw=0.8, ls="--", label="ceiling %g dBFS" % ceiling)
    ax.set_title("agc and maximizer, %s (agc %s, maximizer %s)"
                 % (who, "on" if agc_on else "off", "on" if lim_on else "off"))
    ax.set_xlabel("input level (dBFS)")
    ax.set_ylabel("output level (dBFS)")
    ax.set_xlim(-100, 10)
    ax.grid(True, alpha=0.3)
    ax.legend(fontsize=7)
    _mark_off(ax, [s for s, on in (("agc", agc_on), ("maximizer", lim_on)) if not on])


def tuning_figure(record, title=None):
    """The figure plot_tuning saves: per column (one per distinct channel) the EQ
    response, crossover bands, compressor curves, AGC and limiter curves."""
    rec = as_record(record)
    f = _Fields(rec)
    fs = f("header.sample_rate")
    columns = _columns(f)
    fig, axes = plt.subplots(4, len(columns), figsize=FIGURE_SIZE, dpi=DPI, squeeze=False)
    for col, (ch, who) in enumerate(columns):
        _plot_eq(axes[0][col], f, ch, who, fs)
        _plot_crossover(axes[1][col], f, ch, who, fs)
        _plot_drc_curves(axes[2][col], f, ch, who)
        _plot_agc_limiter(axes[3][col], f, ch, who)
    fig.suptitle(title or "tuning at %g Hz, %d channel(s)" % (fs, f.i("header.channels")))
    fig.tight_layout()
    return fig


def _save(fig, out_path, size):
    """One PNG of `fig`, closed after. Returns its pixel size."""
    fig.savefig(out_path, dpi=DPI)
    plt.close(fig)
    return int(size[0] * DPI), int(size[1] * DPI)


def plot_tuning(record, out_path, title=None):
    """One PNG of tuning_figure. Returns the figure's pixel size."""
    return _save(tuning_figure(record, title), out_path, FIGURE_SIZE)


GR_BLOCK_S = 0.05


def integrated_loudness(pcm, sample_rate):
    """Gated loudness (LUFS) of the whole programme by the library's meter, its window and
    step the programme's length; None for silence."""
    pcm = np.asarray(pcm)
    pcm = pcm.reshape(len(pcm), -1)
    whole_ms = max(1, int(len(pcm) * 1000 // sample_rate))
    meter = dsp.LoudnessMeter(16, sample_rate, pcm.shape[1], whole_ms, whole_ms)
    meter.add(np.ascontiguousarray(pcm.T, dtype=np.float32))
    value = meter.loudness()
    meter.close()
    return value if value > -1000.0 else None


def report_figure(pcm_in, pcm_out, sample_rate, title=None, record=None):
    """The figure plot_report saves. With the record the file ran with, the auto gain's
    target loudness is drawn too."""
    t_in, l_in = dsp.short_term_loudness(pcm_in, sample_rate)
    t_out, l_out = dsp.short_term_loudness(pcm_out, sample_rate)
    fig, (ax1, ax2) = plt.subplots(2, 1, figsize=REPORT_FIGURE_SIZE, dpi=DPI, sharex=True)
    silent = -1000.0
    in_line, = ax1.plot(t_in, np.where(l_in <= silent, np.nan, l_in), label="input, short-term")
    out_line, = ax1.plot(t_out, np.where(l_out <= silent, np.nan, l_out), label="output, short-term")
    for pcm, line, name in ((pcm_in, in_line, "input"), (pcm_out, out_line, "output")):
        value = integrated_loudness(pcm, sample_rate)
        if value is not None:
            ax1.axhline(value, color=line.get_color(), ls="--", lw=1,
                        label="%s integrated: %.1f LUFS" % (name, value))
    if record is not None:
        f = _Fields(as_record(record))
        if _stage_on(f, "auto_gain"):
            target = f("auto_gain.target_i_dB")
            ax1.axhline(target, color="k", ls=":", lw=1.2, label="auto_gain.target_i_dB: %g LUFS" % target)
    ax1.set_ylabel("loudness (LUFS; short-term: 3 s)")
    ax1.grid(True, alpha=0.3)
    ax1.legend(fontsize=8)
    ax1.set_title(title or "loudness and level difference")

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
        ax2.plot(t, change, color="0.5", lw=0.8, label="output - input, broadband (50 ms RMS)")
        # Every stage and the EQ change the broadband level: this is not the compressor's
        # gain reduction alone.
        ax2.fill_between(t, np.minimum(np.nan_to_num(change), 0), 0, color="tab:red", alpha=0.4,
                         label="output below input (all stages, EQ included)")
    ax2.set_xlabel("time (s)")
    ax2.set_ylabel("level difference (dB)")
    ax2.grid(True, alpha=0.3)
    ax2.legend(fontsize=8)
    fig.tight_layout()
    return fig


def plot_report(pcm_in, pcm_out, sample_rate, out_path, title=None, record=None):
    """One PNG of report_figure: input and output loudness over time (the library's meter)
    with their integrated loudness, and the output's broadband level against the input."""
    return _save(report_figure(pcm_in, pcm_out, sample_rate, title, record), out_path, REPORT_FIGURE_SIZE)


FIT_FIGURE_SIZE = (12, 9)   # inches: 960 x 720 pixels


def fit_figure(report, title=None):
    """The figure plot_fit saves from a fit's report (what `eqdrc fit --report` writes): the
    smoothed measurement, the target at its level and the predicted result above; each
    band and the whole EQ below, as in the tuning picture."""
    fs, c = report["sample_rate"], report["curves"]
    low, high = report["range_hz"]
    hz = np.asarray(c["hz"])
    fig, (top, bottom) = plt.subplots(2, 1, figsize=FIT_FIGURE_SIZE, dpi=DPI, sharex=True)
    top.plot(hz, c["measured_dB"], color="0.45", lw=1.2, label="measured (%s)" % report["smoothing"])
    top.plot(hz, c["target_dB"], "--", color="k", lw=1, label="target: %s" % report["target"])
    top.plot(hz, c["predicted_dB"], color="tab:blue", lw=2, label="predicted with the EQ")
    for ax in (top, bottom):
        ax.axvspan(20, low, color="0.9")
        ax.axvspan(high, fs / 2, color="0.9")
    for i, (band, curve) in enumerate(zip(report["bands"], c["band_dB"])):
        bottom.plot(hz, curve, lw=0.9, alpha=0.7, label="bands[%d] %s fc=%g Q=%g boost=%g"
                    % (i, band["filterTypes"], band["fc"], band["Q"], band["boost"]))
    bottom.plot(hz, c["eq_dB"], color="k", lw=2, label="combined")
    before, after = report["before"], report["after"]
    top.set_title(title or "%s: RMS %.2f -> %.2f dB, max %.2f -> %.2f dB from the target over %g-%g Hz"
                  % (report["measurement"], before["rms_dB"], after["rms_dB"], before["max_dB"], after["max_dB"],
                     low, high))
    bottom.set_title("eq10, %d bands" % len(report["bands"]))
    _eq_axes(top, fs, "level (dB)")
    top.set_xlabel("")  # the axis below says it
    _eq_axes(bottom, fs)
    fig.tight_layout()
    return fig


def plot_fit(report, out_path, title=None):
    """One PNG of fit_figure. Returns the figure's pixel size."""
    return _save(fit_figure(report, title), out_path, FIT_FIGURE_SIZE)
