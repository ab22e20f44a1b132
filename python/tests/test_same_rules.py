"""The Python command and `eqdrc` on the same inputs: the same refusals and warnings, word
for word, the same exit status, the same samples from every input format."""
import os
import subprocess
import sys

import numpy as np
import pytest
import soundfile

import tqeqdrc
from conftest import ROOT, TUNINGS, test_signal

PY = [sys.executable, "-m", "tqeqdrc"]
PY_ENV = dict(os.environ, PYTHONPATH=os.path.join(ROOT, "python"))


def run(cmd, *args):
    r = subprocess.run(cmd + [str(a) for a in args], capture_output=True, text=True, env=PY_ENV)
    return r.returncode, r.stdout, r.stderr


def unprefixed(text, prefix):
    lines = text.splitlines()
    assert all(ln.startswith(prefix) for ln in lines), text
    return [ln[len(prefix):] for ln in lines]


def both(eqdrc_tool, *args):
    """Runs the same process command through both; returns their (status, stdout, stderr lines)."""
    tool = run([eqdrc_tool, "process"], *args)
    py = run(PY + ["process"], *args)
    return ((tool[0], tool[1], unprefixed(tool[2], "eqdrc: ")), (py[0], py[1], unprefixed(py[2], "tqeqdrc: ")))


@pytest.fixture
def files(tmp_path):
    pcm = test_signal(1.0)
    soundfile.write(tmp_path / "fine.wav", pcm, 48000, subtype="PCM_16")
    soundfile.write(tmp_path / "8k.wav", test_signal(1.0, rate=8000), 8000, subtype="PCM_16")
    soundfile.write(tmp_path / "six.wav", np.zeros((4800, 6), dtype=np.int16), 48000, subtype="PCM_16")
    soundfile.write(tmp_path / "three.flac", np.zeros((4800, 3), dtype=np.int16), 48000, subtype="PCM_16")
    soundfile.write(tmp_path / "eight.wav", pcm, 48000, subtype="PCM_U8")
    (tmp_path / "notes.txt").write_text("these are not samples\n")
    (tmp_path / "folder.wav").mkdir()
    (tmp_path / "short-step.json").write_text(
        '{"header": {"sample_rate": 48000, "bit_depth": 16, "channels": 2, "tool_version": 2,'
        ' "enable": {"auto_gain": 1}}, "auto_gain": {"attack_time": 100, "release_time": 100,'
        ' "r128_wins": 400, "r128_steps": 10}}')
    return tmp_path


@pytest.mark.parametrize("args", [
    ["8k.wav", "out.wav"],
    ["six.wav", "out.wav"],
    ["three.flac", "out.wav"],
    ["eight.wav", "out.wav"],
    ["missing.wav", "out.wav"],
    ["folder.wav", "out.wav"],
    ["notes.txt", "out.wav"],
    ["fine.wav", "out.wav", "--tuning", "short-step.json"],
    ["fine.wav", "out.wav", "--tuning", "missing.json"],
    ["fine.wav", "out.wav", "--tuning", "folder.wav"],
    ["fine.wav", "out.wav", "--bypass", "limiter"],
    ["fine.wav", "out.wav", "--frame", "0"],
    ["fine.wav", "fine.wav"],
    ["fine.wav", "no-such-folder/out.wav"],
    ["fine.wav", "out.mp3"],
], ids=lambda a: " ".join(a))
def test_bad_inputs_are_refused_with_the_tools_words(files, eqdrc_tool, args):
    before = sorted(os.listdir(files))
    tool, py = both(eqdrc_tool, *[files / a if not a.startswith("-") and "." in a else a for a in args])
    assert tool[0] == 2
    assert py == tool
    assert sorted(os.listdir(files)) == before


def test_notes_and_ceiling_warnings_match(files, eqdrc_tool):
    rng = np.random.default_rng(3)
    noise = np.clip(rng.standard_normal((48000 * 3, 1)) * 20000, -32768, 32767).astype(np.int16)
    soundfile.write(files / "noise.wav", noise, 44100, subtype="PCM_16")
    tool, py = both(eqdrc_tool, files / "noise.wav", files / "out.wav", "--tuning", os.path.join(TUNINGS, "music.json"))
    assert tool[0] == py[0] == 0
    assert any("note: the tuning is for 48000 Hz" in ln for ln in tool[2])
    assert py[2] == tool[2]
    warnings = [ln for ln in tool[1].splitlines() if ln.startswith("warning:")]
    assert warnings, "the noise no longer drives the limiter past its ceiling"
    assert py[1].splitlines() == warnings


def test_compile_refuses_errors_like_the_tool(tmp_path, eqdrc_tool):
    bad = tmp_path / "bad.json"
    bad.write_text(open(os.path.join(TUNINGS, "music.json")).read().replace('"fc": 2500.0', '"fc": 30000.0'))
    tool = run([eqdrc_tool, "tuning", "compile", bad, "-o", tmp_path / "a.bin"])
    py = run(PY + ["compile", bad, "-o", tmp_path / "b.bin"])
    assert tool[0] == py[0] == 1
    assert unprefixed(py[2], "tqeqdrc: ") == unprefixed(tool[2], "eqdrc: ")
    assert sorted(os.listdir(tmp_path)) == ["bad.json"]
    assert run(PY + ["compile", bad, "-o", bad])[0] == 1
    assert run(PY + ["compile", bad, "-o", bad, "--force"])[0] == 0  # forced: errors and all, over the input
    assert len(bad.read_bytes()) == 2176


FORMATS = [("pcm16.wav", "PCM_16"), ("pcm24.wav", "PCM_24"), ("pcm32.wav", "PCM_32"), ("float.wav", "FLOAT"),
           ("double.wav", "DOUBLE"), ("pcm16.flac", "PCM_16"), ("pcm24.flac", "PCM_24")]


def test_every_format_gives_the_tools_samples(tmp_path, eqdrc_tool):
    pcm = test_signal(2.0)
    expected = None
    for name, subtype in FORMATS:
        src = tmp_path / name
        data = pcm.astype(np.int32) << 16 if subtype.startswith("PCM") else pcm / 32768.0
        soundfile.write(src, data, 48000, subtype=subtype)
        assert run([eqdrc_tool, "process", src, tmp_path / "tool.wav"])[0] == 0
        status, _, err = run(PY + ["process", src, tmp_path / "py.flac"])
        assert status == 0, err
        tool_out, _ = tqeqdrc.read_audio(tmp_path / "tool.wav")
        py_out, _ = tqeqdrc.read_audio(tmp_path / "py.flac")
        assert np.array_equal(py_out, tool_out), name
        expected = tool_out if expected is None else expected
        assert np.array_equal(tool_out, expected), name


def test_wider_samples_round_like_the_tool():
    lows = np.array([0x00, 0x7f, 0x80, 0x81, 0xff])
    wide = (np.array([100, 101, -100, -101, 32767])[:, None] * 256 + lows).ravel()
    got = tqeqdrc.to_pcm16(wide / 8388608.0)
    assert list(got[:5]) == [100, 100, 100, 101, 101]   # 100.5 is a tie: to the even 100
    assert list(got[5:10]) == [101, 101, 102, 102, 102]  # 101.5: to the even 102
    assert list(tqeqdrc.to_pcm16([1.5, -1.5, np.nan])) == [32767, -32768, 0]


def test_without_numpy_one_line_and_no_traceback(tmp_path):
    code = ("import sys; sys.modules['numpy'] = None; from tqeqdrc.__main__ import main; "
            "sys.exit(main(['decompile', %r]))" % os.path.join(TUNINGS, "reference.bin"))
    r = subprocess.run([sys.executable, "-c", code], capture_output=True, text=True, env=PY_ENV)
    assert r.returncode == 2
    assert r.stderr.startswith("tqeqdrc: tqeqdrc needs numpy: install python3-numpy")
    assert len(r.stderr.splitlines()) == 1


def on_terminal(cmd):
    """Runs `cmd` with standard error on a pseudo-terminal; returns what it printed there."""
    import pty
    main_fd, side = pty.openpty()
    p = subprocess.Popen([str(c) for c in cmd], stdout=subprocess.DEVNULL, stderr=side, env=PY_ENV)
    os.close(side)
    text = b""
    while True:
        try:
            chunk = os.read(main_fd, 4096)
        except OSError:
            break
        if not chunk:
            break
        text += chunk
    p.wait()
    os.close(main_fd)
    return p.returncode, text.decode(errors="replace")


def test_progress_on_a_terminal_only(tmp_path, eqdrc_tool):
    soundfile.write(tmp_path / "long.wav", test_signal(6.0), 48000, subtype="PCM_16")
    for cmd in ([eqdrc_tool, "process"], PY + ["process"]):
        status, shown = on_terminal(cmd + [tmp_path / "long.wav", tmp_path / "out.wav", "--bypass", "auto_gain"])
        assert status == 0
        assert "100%" in shown and "of 6.0 s" in shown, shown
        status, _, err = run(cmd, tmp_path / "long.wav", tmp_path / "out.wav", "--bypass", "auto_gain")
        assert status == 0 and "%" not in err
