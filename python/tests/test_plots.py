import os
import sys

import matplotlib.image
import matplotlib.pyplot as plt
import numpy as np
import pytest

import tqeqdrc
import tqeqdrc.plots
from conftest import ROOT, TUNINGS, run, test_signal
from tqeqdrc.__main__ import main


def picture(path):
    """(width, height, distinct colours in a sample of the pixels) of a PNG."""
    img = matplotlib.image.imread(str(path))
    return img.shape[1], img.shape[0], len(np.unique(img.reshape(-1, img.shape[-1])[::97], axis=0))


def texts(ax, legend=False):
    return [t.get_text() for t in (ax.get_legend().get_texts() if legend else ax.texts)]


@pytest.mark.parametrize("name", ["reference.bin", "loud-small-speaker.json", "bypass.json"])
def test_plot_command_draws_a_tuning(name, tmp_path):
    assert main(["plot", os.path.join(TUNINGS, name), "-o", str(tmp_path / "t.png")]) == 0
    width, height, colours = picture(tmp_path / "t.png")
    assert (width, height) == (1280, 960) and colours > 20


def test_example_script_runs(tmp_path):
    script = os.path.join(ROOT, "python", "examples", "process_wav.py")
    status, out, err = run([sys.executable, script], cwd=tmp_path, env=dict(os.environ, OUT_DIR=str(tmp_path)),
                           timeout=120)
    assert status == 0 and "LUFS" in out, err
    assert all((tmp_path / n).stat().st_size for n in ("example-out.wav", "example-tuning.png", "example-report.png"))


def test_tuning_picture_reads_as_the_chain_runs():
    lay = tqeqdrc.layout()
    rec = tqeqdrc.read_tuning(os.path.join(TUNINGS, "reference.bin"))

    # Identical channels are drawn once, named as both, with thresholds and knees marked.
    fig = tqeqdrc.plots.tuning_figure(rec)
    _, _, drc, limiter = fig.axes[:4]
    assert fig.axes[0].get_gridspec().ncols == 1
    assert all("both channels" in ax.get_title() for ax in fig.axes)
    assert all(any(line.get_marker() == "o" for line in ax.lines) for ax in (drc, limiter))
    assert any("knee 12 dB around max_threshold -3" in label for label in texts(limiter, legend=True))
    assert not any(texts(ax) for ax in fig.axes)  # every stage on: nothing marked off
    plt.close(fig)

    # A switched-off stage is grey and says so; different channels get a column each.
    off = rec.copy()
    off[lay.word("header.enable.eq10")] = 0
    off[lay.word("header.enable.maximizer")] = 0
    off[lay.word("eq10.channels[1].bands[0].boost")] = 6
    fig = tqeqdrc.plots.tuning_figure(off)
    eq, limiter = fig.axes[0], fig.axes[6]
    assert fig.axes[0].get_gridspec().ncols == 2
    assert "channels[1]" in fig.axes[1].get_title() or "channels[1]" in fig.axes[4].get_title()
    assert texts(eq) == ["eq10 off"] and texts(limiter) == ["maximizer off"]
    assert all(line.get_color() == tqeqdrc.plots.OFF_COLOUR for line in eq.lines)
    plt.close(fig)

    # A mono tuning has one column, whatever its unused second channel holds.
    off[lay.word("header.channels")] = 1
    assert tqeqdrc.plots.tuning_figure(off).axes[0].get_gridspec().ncols == 1
    plt.close("all")


def test_process_report_shows_what_it_names(tmp_path):
    pcm = test_signal(5.0, rate=16000)
    src, dst, report = tmp_path / "in.wav", tmp_path / "out.wav", tmp_path / "report.png"
    tqeqdrc.write_wav(str(src), pcm, 16000)
    tuning = os.path.join(TUNINGS, "loud-small-speaker.json")
    assert main(["process", str(src), str(dst), "--tuning", tuning, "--report", str(report)]) == 0
    width, height, colours = picture(report)
    assert (width, height) == (960, 640) and colours > 10
    out = tqeqdrc.read_wav(str(dst))[0]

    fig = tqeqdrc.plots.report_figure(pcm, out, 16000, record=tqeqdrc.read_tuning(tuning))
    top, bottom = fig.axes
    assert "auto_gain.target_i_dB: -14 LUFS" in texts(top, legend=True)
    for name, samples in (("input", pcm), ("output", out)):
        value = tqeqdrc.plots.integrated_loudness(samples, 16000)
        assert "%s integrated: %.1f LUFS" % (name, value) in texts(top, legend=True)
    # The level difference is every stage's, and is not called the compressor's gain reduction.
    assert "output below input (all stages, EQ included)" in texts(bottom, legend=True)
    assert not any("gain reduction" in label for label in texts(bottom, legend=True))
    plt.close(fig)
