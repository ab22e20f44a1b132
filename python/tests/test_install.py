"""As a user installs it: `cmake --install` to a prefix, and the package into a venv used elsewhere."""
import os

import tqeqdrc
import numpy as np
from conftest import BUILD, ROOT, TUNINGS, run, test_signal
from test_fit import response


def clean_env(**extra):
    env = {k: v for k, v in os.environ.items() if k not in ("TQEQDRC_LIB", "LD_LIBRARY_PATH", "PYTHONPATH")}
    return dict(env, **{k: str(v) for k, v in extra.items()})


def test_installed_tool_and_package_find_the_installed_library(tmp_path):
    prefix, venv, work = tmp_path / "prefix", tmp_path / "venv", tmp_path / "elsewhere"
    assert run(["cmake", "--install", BUILD, "--prefix", prefix])[0] == 0
    assert run(["/usr/bin/python3", "-m", "venv", "--system-site-packages", venv])[0] == 0
    status, _, err = run([venv / "bin" / "pip", "install", "-q", "--no-build-isolation", "--no-index",
                          os.path.join(ROOT, "python")])
    assert status == 0, err
    libdir = next(p for p in (prefix / "lib", prefix / "lib64") if (p / "libtqaudio_effect_eqdrc.so").exists())

    status, out, err = run([prefix / "bin" / "eqdrc", "--version"], env=clean_env())
    assert status == 0 and out.startswith("eqdrc 2."), err

    tqeqdrc.write_wav(str(tmp_path / "in.wav"), test_signal(1.0), 48000)
    response(np.geomspace(20, 20000, 100), tmp_path / "m.txt")
    work.mkdir()
    status, out, err = run([venv / "bin" / "python", "-c", "import tqeqdrc; print(tqeqdrc.__file__)"], cwd=work,
                           env=clean_env())
    assert status == 0 and str(venv) in out, err
    for env in (clean_env(LD_LIBRARY_PATH=libdir), clean_env(TQEQDRC_LIB=libdir)):
        status, _, err = run([venv / "bin" / "tqeqdrc", "process", "../in.wav", "out.flac", "--tuning",
                              os.path.join(TUNINGS, "music.json")], cwd=work, env=env)
        assert status == 0, err
        status, _, err = run([venv / "bin" / "tqeqdrc", "fit", "../m.txt", "-o", "t.json"], cwd=work, env=env)
        assert status == 0 and "10 band(s)" in err, err
        assert (work / "out.flac").stat().st_size > 0
        for name in ("out.flac", "t.json"):
            (work / name).unlink()
    # Without a way to the library: one line that says where to point, and nothing written.
    status, _, err = run([venv / "bin" / "tqeqdrc", "process", "../in.wav", "out.wav"], cwd=work, env=clean_env())
    assert status == 2
    assert err.startswith("tqeqdrc: cannot load lib") and "TQEQDRC_LIB" in err
    assert len(err.splitlines()) == 1
    assert os.listdir(work) == []
