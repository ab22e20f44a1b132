import os
import struct
import zlib

import numpy as np
import pytest

import tqeqdrc
import tqeqdrc.plots
from conftest import TUNINGS, test_signal
from tqeqdrc.__main__ import main


def png_size(path):
    """Width and height of a PNG whose signature and header chunk are intact."""
    data = open(path, "rb").read()
    assert data[:8] == b"\x89PNG\r\n\x1a\n"
    length, kind = struct.unpack(">I4s", data[8:16])
    assert kind == b"IHDR" and length == 13
    assert struct.unpack(">I", data[29:33])[0] == zlib.crc32(data[12:29])
    assert data.rstrip(b"\0")[-8:-4] == b"IEND"
    return struct.unpack(">II", data[16:24])


def distinct_colours(path):
    import matplotlib.image
    img = matplotlib.image.imread(path)
    return len(np.unique(img.reshape(-1, img.shape[-1])[::97], axis=0))


@pytest.mark.parametrize("name", ["reference.bin", "loud-small-speaker.json", "bypass.json"])
def test_plot_command_draws_a_tuning(name, tmp_path):
    out = tmp_path / "t.png"
    assert main(["plot", os.path.join(TUNINGS, name), "-o", str(out)]) == 0
    assert png_size(str(out)) == (1280, 960)
    assert distinct_colours(str(out)) > 20


def test_plot_of_a_mono_tuning_has_one_column(tmp_path):
    rec = tqeqdrc.read_tuning(os.path.join(TUNINGS, "speech.json"))
    rec[tqeqdrc.layout().word("header.channels")] = 1
    out = tmp_path / "mono.png"
    assert tqeqdrc.plots.plot_tuning(rec, str(out)) == (1280, 960)
    assert png_size(str(out)) == (1280, 960)


def test_process_report_draws_loudness_and_gain_reduction(tmp_path):
    src, dst, report = tmp_path / "in.wav", tmp_path / "out.wav", tmp_path / "report.png"
    tqeqdrc.write_wav(str(src), test_signal(5.0, rate=16000), 16000)
    assert main(["process", str(src), str(dst), "--tuning", os.path.join(TUNINGS, "loud-small-speaker.json"),
                 "--report", str(report)]) == 0
    assert png_size(str(report)) == (960, 640)
    assert distinct_colours(str(report)) > 10
    assert tqeqdrc.read_wav(str(dst))[0].shape == (80000, 2)


def test_commands_report_a_bad_tuning(tmp_path, capsys):
    bad = tmp_path / "bad.json"
    bad.write_text('{"eq10": {"channels": 3}}')
    assert main(["plot", str(bad), "-o", str(tmp_path / "x.png")]) == 2
    assert "eq10.channels: expected an array of 2" in capsys.readouterr().err
    assert not (tmp_path / "x.png").exists()


def test_example_script_runs(tmp_path):
    import subprocess
    import sys
    script = os.path.join(os.path.dirname(os.path.dirname(os.path.abspath(__file__))), "examples", "process_wav.py")
    r = subprocess.run([sys.executable, script], cwd=tmp_path, env=dict(os.environ, OUT_DIR=str(tmp_path)),
                       capture_output=True, text=True, timeout=120)
    assert r.returncode == 0, r.stderr
    assert "LUFS" in r.stdout
    for name in ("example-out.wav", "example-tuning.png", "example-report.png"):
        assert (tmp_path / name).stat().st_size > 0


def test_example_script_refuses_like_the_tool(tmp_path):
    import subprocess
    import sys
    import soundfile
    soundfile.write(tmp_path / "8k.wav", np.zeros((8000, 2), dtype=np.int16), 8000, subtype="PCM_16")
    script = os.path.join(os.path.dirname(os.path.dirname(os.path.abspath(__file__))), "examples", "process_wav.py")
    r = subprocess.run([sys.executable, script, str(tmp_path / "8k.wav"), str(tmp_path / "out.wav")], cwd=tmp_path,
                       capture_output=True, text=True, timeout=120)
    assert r.returncode == 1  # sys.exit with a message
    assert r.stderr.splitlines()[-1].startswith("process_wav.py: ") and "error(s) above" in r.stderr
    assert "Traceback" not in r.stderr
    assert not (tmp_path / "out.wav").exists()


def _texts(ax):
    return [t.get_text() for t in ax.texts]


def _legend_labels(ax):
    return [t.get_text() for t in ax.get_legend().get_texts()]


def test_tuning_picture_reads_as_the_chain_runs():
    import matplotlib.pyplot as plt
    lay = tqeqdrc.layout()
    rec = tqeqdrc.read_tuning(os.path.join(TUNINGS, "reference.bin"))

    # Identical channels are drawn once, named as both.
    fig = tqeqdrc.plots.tuning_figure(rec)
    assert fig.axes[0].get_gridspec().ncols == 1
    assert all("both channels" in ax.get_title() for ax in fig.axes)
    eq, _, drc, limiter = fig.axes[:4]
    # Frequency ticks an engineer reads, and the EQ legend beside the plot, off the curves.
    assert list(eq.get_xticks()) == [20, 50, 100, 200, 500, 1000, 2000, 5000, 10000, 20000]
    assert [t.get_text() for t in eq.get_xticklabels()][-3:] == ["5k", "10k", "20k"]
    fig.canvas.draw()
    assert eq.get_legend().get_window_extent().x0 >= eq.get_window_extent().x1
    # Thresholds and knees are marked on each curve.
    for ax in (drc, limiter):
        assert any(line.get_marker() == "o" for line in ax.lines), ax.get_title()
    assert any("knee 12 dB around max_threshold -3" in label for label in _legend_labels(limiter))
    assert not any(_texts(ax) for ax in fig.axes)  # every stage on: nothing marked off
    plt.close(fig)

    # A switched-off stage is grey and says so; different channels get a column each.
    off = rec.copy()
    off[lay.word("header.enable.eq10")] = 0
    off[lay.word("header.enable.maximizer")] = 0
    off[lay.word("eq10.channels[1].bands[0].boost")] = 6
    fig = tqeqdrc.plots.tuning_figure(off)
    assert fig.axes[0].get_gridspec().ncols == 2
    assert "channels[1]" in fig.axes[1].get_title() or "channels[1]" in fig.axes[4].get_title()
    eq, limiter = fig.axes[0], fig.axes[6]
    assert _texts(eq) == ["eq10 off"]
    assert all(line.get_color() == tqeqdrc.plots.OFF_COLOUR for line in eq.lines)
    assert _texts(limiter) == ["maximizer off"]
    plt.close(fig)


def test_loudness_picture_names_what_it_shows():
    import matplotlib.pyplot as plt
    pcm = test_signal(4.0)
    rec = tqeqdrc.adapt(tqeqdrc.read_tuning(os.path.join(TUNINGS, "reference.bin")), 48000, 2)
    with tqeqdrc.Chain(rec, 768) as chain:
        out = chain.process(pcm)
    fig = tqeqdrc.plots.report_figure(pcm, out, 48000, record=rec)
    top, bottom = fig.axes
    labels = _legend_labels(top)
    assert "auto_gain.target_i_dB: -16 LUFS" in labels
    for name in ("input", "output"):
        value = tqeqdrc.plots.integrated_loudness(pcm if name == "input" else out, 48000)
        assert "%s integrated: %.1f LUFS" % (name, value) in labels
    assert "output below input (all stages, EQ included)" in _legend_labels(bottom)
    assert not any("gain reduction" in label for label in _legend_labels(bottom))
    plt.close(fig)
