"""The Python command and `eqdrc` on the same input: the same words, exit status and samples."""
import json
import os
import shlex
import subprocess
import sys

import numpy as np
import pytest
import soundfile

import tqeqdrc
from conftest import PY, TUNINGS, run, test_signal
from tqeqdrc.__main__ import main

# Tunings refused before any processing, each with the field at fault named: by the
# check, and by the reader (whose every message its own tests check).
BAD_TUNINGS = {
    "short-step.json": {"header": {"sample_rate": 48000, "bit_depth": 16, "channels": 2, "tool_version": 2,
                                   "enable": {"auto_gain": 1}},
                        "auto_gain": {"attack_time": 100, "release_time": 100, "r128_wins": 400, "r128_steps": 10}},
    "typo.json": {"eq10": {"channels": [{"bands": [{"fc2": 1}] * 10}, {}]}},
}


def both(eqdrc_tool, words, *args):
    """(status, stdout, stderr lines less the prefix) of `eqdrc WORDS... ARGS` and `tqeqdrc WORDS[-1] ARGS`."""
    results = []
    for cmd, prefix in (([eqdrc_tool, *words], "eqdrc: "), (PY + [words[-1]], "tqeqdrc: ")):
        status, out, err = run(cmd, *args)
        assert all(ln.startswith(prefix) for ln in err.splitlines()), err
        results.append((status, out, [ln[len(prefix):] for ln in err.splitlines()]))
    return results


@pytest.fixture
def files(tmp_path):
    pcm = test_signal(1.0)
    soundfile.write(tmp_path / "fine.wav", pcm, 48000, subtype="PCM_16")
    soundfile.write(tmp_path / "8k.wav", test_signal(1.0, rate=8000), 8000, subtype="PCM_16")
    soundfile.write(tmp_path / "six.wav", np.zeros((4800, 6), dtype=np.int16), 48000, subtype="PCM_16")
    soundfile.write(tmp_path / "eight.wav", pcm, 48000, subtype="PCM_U8")
    (tmp_path / "notes.txt").write_text("these are not samples\n")
    (tmp_path / "folder.wav").mkdir()
    (tmp_path / "short.bin").write_bytes(b"\0" * 100)
    for name, doc in BAD_TUNINGS.items():
        (tmp_path / name).write_text(json.dumps(doc))
    return tmp_path


@pytest.mark.parametrize("args", [
    "8k.wav out.wav", "six.wav out.wav", "eight.wav out.wav", "missing.wav out.wav",
    "folder.wav out.wav", "notes.txt out.wav", "fine.wav out.wav --tuning missing.json",
    "fine.wav out.wav --tuning folder.wav", "fine.wav out.wav --tuning short.bin", "fine.wav out.wav --bypass limiter",
    "fine.wav out.wav --frame 0", "fine.wav fine.wav", "fine.wav no-such-folder/out.wav", "fine.wav out.mp3",
] + ["fine.wav out.wav --tuning " + name for name in BAD_TUNINGS])
def test_bad_inputs_are_refused_with_the_tools_words(files, eqdrc_tool, args):
    before = sorted(os.listdir(files))
    tool, py = both(eqdrc_tool, ["process"], *[files / a if "." in a else a for a in args.split()])
    assert tool[0] == 2
    assert py == tool
    assert sorted(os.listdir(files)) == before


def test_notes_and_ceiling_warnings_match(files, eqdrc_tool):
    rng = np.random.default_rng(3)
    noise = np.clip(rng.standard_normal((48000 * 3, 2)) * 20000, -32768, 32767).astype(np.int16)
    soundfile.write(files / "noise.wav", noise, 44100, subtype="PCM_16")
    tool, py = both(eqdrc_tool, ["process"], files / "noise.wav", files / "out.wav", "--tuning",
                    os.path.join(TUNINGS, "music.json"))
    assert tool[0] == py[0] == 0
    assert any("note: the tuning is for 48000 Hz" in ln for ln in tool[2])
    assert py[2] == tool[2]
    warnings = [ln for ln in tool[1].splitlines() if ln.startswith("warning:")]
    assert warnings, "the noise no longer drives the limiter past its ceiling"
    assert py[1].splitlines() == warnings


def test_compile_refuses_errors_like_the_tool(tmp_path, eqdrc_tool):
    bad = tmp_path / "bad.json"
    bad.write_text(open(os.path.join(TUNINGS, "music.json")).read().replace('"fc": 2500.0', '"fc": 30000.0'))
    tool, py = both(eqdrc_tool, ["tuning", "compile"], bad, "-o", tmp_path / "bad.bin")
    assert tool[0] == 1
    assert py == tool
    assert sorted(os.listdir(tmp_path)) == ["bad.json"]
    assert run(PY + ["compile", bad, "-o", bad])[0] == 1
    assert run(PY + ["compile", bad, "-o", bad, "--force"])[0] == 0  # forced: errors and all, over the input
    assert len(bad.read_bytes()) == 2176


@pytest.mark.parametrize("name, subtype, rate, channels, options", [
    ("pcm16.wav", "PCM_16", 48000, 2, []),
    ("pcm24.wav", "PCM_24", 48000, 2, ["--tuning", "music.json", "--frame", "480"]),
    ("pcm24.flac", "PCM_24", 48000, 1, ["--tuning", "loud-small-speaker.json", "--frame", "100"]),
    ("float.wav", "FLOAT", 48000, 2, ["--tuning", "speech.json", "--frame", "1"]),
    ("double.wav", "DOUBLE", 44100, 2, ["--tuning", "music.json", "--frame", "333", "--bypass", "exciter"]),
    ("pcm32.wav", "PCM_32", 48000, 2, ["--tuning", "reference.bin"]),
])
def test_process_reads_and_runs_like_the_tool(tmp_path, eqdrc_tool, name, subtype, rate, channels, options):
    pcm = test_signal(1.0101, rate=rate, channels=channels)  # ends on a partial frame at each size but 1
    if subtype.startswith("PCM"):  # half a 16-bit step more: a tie wherever the format holds it
        data = (pcm.astype(np.int32) << 16) + 0x8000
    else:  # ties too, and what the conversion clips and zeroes
        data = (pcm + 0.5) / 32768.0
        data[:3, 0] = [1.5, -1.5, np.nan]
    src = tmp_path / name
    soundfile.write(src, data, rate, subtype=subtype)
    options = [os.path.join(TUNINGS, o) if o.endswith((".json", ".bin")) else o for o in options]
    status, _, err = run([eqdrc_tool, "process", src, tmp_path / "tool.wav"] + options)
    assert status == 0, err
    assert main(["process", str(src), str(tmp_path / "py.flac")] + options) == 0
    py, tool = (tqeqdrc.read_audio(tmp_path / n) for n in ("py.flac", "tool.wav"))
    assert py[1] == tool[1] == rate
    assert np.array_equal(py[0], tool[0]) and not np.array_equal(py[0], pcm)


def test_without_numpy_one_line_and_no_traceback():
    code = ("import sys; sys.modules['numpy'] = None; from tqeqdrc.__main__ import main; "
            "sys.exit(main(['decompile', %r]))" % os.path.join(TUNINGS, "reference.bin"))
    status, _, err = run([sys.executable, "-c", code])
    assert status == 2 and len(err.splitlines()) == 1, err
    assert err.startswith("tqeqdrc: tqeqdrc needs numpy: install python3-numpy")


def test_progress_on_a_terminal_only(tmp_path, eqdrc_tool):
    soundfile.write(tmp_path / "long.wav", test_signal(6.0), 48000, subtype="PCM_16")
    args = [tmp_path / "long.wav", tmp_path / "out.wav", "--bypass", "auto_gain"]
    for cmd in ([eqdrc_tool, "process"], PY + ["process"]):
        # util-linux `script` runs the command on a terminal of its own and shows what it printed there.
        status, shown, _ = run(["script", "-qefc", shlex.join(str(a) for a in cmd + args), "/dev/null"],
                               stdin=subprocess.DEVNULL)
        assert status == 0
        assert "100%" in shown and "of 6.0 s" in shown, shown
        status, _, err = run(cmd, *args)
        assert status == 0 and "%" not in err
