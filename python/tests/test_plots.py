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
