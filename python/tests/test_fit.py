"""`tqeqdrc fit` and `eqdrc fit` on the same measurement: the same bits, words and refusals."""
import json
import os

import numpy as np
import pytest

import tqeqdrc
import tqeqdrc.plots
from conftest import PY, TUNINGS, run
from test_plots import picture, texts


def response(hz, path, level=85.0, peak_db=5.0):
    """A synthetic speaker as text: a closed box at 60 Hz, a dip at 400 Hz, a tweeter peak."""
    s = 1j * hz / 60.0
    db = (level + 20 * np.log10(np.abs(s * s / (s * s + s / 0.7 + 1))) - 4 * np.exp(-4 * np.log2(hz / 400) ** 2)
          + peak_db * np.exp(-6 * np.log2(hz / 2500) ** 2) + 0.3 * np.sin(hz / 37.0))
    path.write_text("* synthetic\nFreq(Hz) SPL(dB)\n" + "".join("%.4f %.3f\n" % p for p in zip(hz, db)))
    return path


@pytest.mark.parametrize("every_option", [False, True])
def test_fit_writes_the_tools_bits(eqdrc_tool, tmp_path, every_option):
    m = response(np.geomspace(20, 20000, 240), tmp_path / "m.txt")
    target = response(np.geomspace(20, 20000, 12), tmp_path / "house.txt", 0.0, 0.0)
    base = os.path.join(TUNINGS, "music.json")
    args, kwargs = [], {}
    if every_option:
        args = ["--target", target, "--range", "100-12000", "--smooth", "1/3", "--bands", "6", "--max-boost", "3",
                "--max-cut", "9", "--q", "0.5-4", "--base", base, "--channel", "1"]
        kwargs = dict(target=str(target), range=(100, 12000), smooth="1/3", bands=6, max_boost=3, max_cut=9,
                      q=(0.5, 4), base=base, channel=1)
    lines = {}
    for who, cmd, plot in (("eqdrc", [eqdrc_tool], []), ("tqeqdrc", PY, ["--plot", tmp_path / "fit.png"])):
        status, _, err = run(cmd, "fit", m, "-o", tmp_path / (who + ".json"), "--report",
                             tmp_path / (who + ".report.json"), *args, *plot)
        assert status == 0 and err.startswith(who + ": fit: "), err
        lines[who] = err[len(who) + 2:]
    assert lines["eqdrc"] == lines["tqeqdrc"]
    for name in (".json", ".report.json"):
        assert (tmp_path / ("eqdrc" + name)).read_bytes() == (tmp_path / ("tqeqdrc" + name)).read_bytes()

    # The function, from the file and from its text, gives the tool's record and report.
    tool_record = tqeqdrc.read_tuning(str(tmp_path / "eqdrc.json")).tobytes()
    done = tqeqdrc.fit(str(m), **kwargs)
    assert done.record.tobytes() == tool_record and "fit: " + done.summary + "\n" == lines["eqdrc"]
    assert done.report == json.loads((tmp_path / "eqdrc.report.json").read_text())
    assert tqeqdrc.fit(m.read_text(), **kwargs).record.tobytes() == tool_record
    assert done.report["after"]["rms_dB"] < 0.5 * done.report["before"]["rms_dB"]

    # The picture: the curves above, every band and their sum below, as the EQ picture has them.
    width, height, colours = picture(tmp_path / "fit.png")
    assert (width, height) == (960, 720) and colours > 10
    top, bottom = tqeqdrc.plots.fit_figure(done.report).axes
    assert [t.split(" ")[0] for t in texts(top, legend=True)] == ["measured", "target:", "predicted"]
    assert len(texts(bottom, legend=True)) == len(done.report["bands"]) + 1 and bottom.get_xscale() == "log"


@pytest.mark.parametrize("text, args", [
    ("100 80\n200 81\n", []),
    ("20 80\n40 81\n60 nan\n", []),
    (None, ["--range", "10-16000"]),
    (None, ["--q", "0.3"]),
    (None, ["--target", "tilt:9"]),
    (None, ["--channel", "2"]),
])
def test_refusals_are_the_tools_one_line(eqdrc_tool, tmp_path, text, args):
    m = tmp_path / "m.txt"
    m.write_text(text) if text else response(np.geomspace(20, 20000, 100), m)
    errs = []
    for who, cmd in (("eqdrc", [eqdrc_tool]), ("tqeqdrc", PY)):
        status, _, err = run(cmd, "fit", m, "-o", tmp_path / "out.json", *args)
        assert status == 2 and err.startswith(who + ": " + (str(m) if text else "")) and err.count("\n") == 1, err
        errs.append(err[len(who):])
    assert errs[0] == errs[1] and sorted(os.listdir(tmp_path)) == ["m.txt"]
    if not args:
        with pytest.raises(tqeqdrc.FitError) as e:
            tqeqdrc.fit(str(m))
        assert ": " + str(e.value) + "\n" == errs[0]


def test_an_impulse_response_is_left_to_the_tool(tmp_path):
    tqeqdrc.write_wav(str(tmp_path / "ir.wav"), np.zeros((480, 1), dtype=np.int16), 48000)
    with pytest.raises(tqeqdrc.FitError, match="ir.wav: an impulse response: .*`eqdrc fit` reads"):
        tqeqdrc.fit(str(tmp_path / "ir.wav"))
