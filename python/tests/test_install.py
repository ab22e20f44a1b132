"""The project as a user installs it: `cmake --install` to a prefix, the tool run from
there, the Python package installed into a venv and used from another folder."""
import os
import shutil
import subprocess
import sys

import pytest

from conftest import BUILD, ROOT, TUNINGS, test_signal


@pytest.fixture(scope="module")
def installed(tmp_path_factory):
    base = tmp_path_factory.mktemp("installed")
    prefix = base / "prefix"
    subprocess.run(["cmake", "--install", BUILD, "--prefix", prefix], check=True, capture_output=True)
    venv = base / "venv"
    subprocess.run(["/usr/bin/python3", "-m", "venv", "--system-site-packages", venv], check=True)
    r = subprocess.run([venv / "bin" / "pip", "install", "-q", "--no-build-isolation", "--no-index",
                        os.path.join(ROOT, "python")], capture_output=True, text=True)
    assert r.returncode == 0, r.stderr
    libdir = next(p for p in (prefix / "lib", prefix / "lib64") if (p / "libtqaudio_effect_eqdrc.so").exists())
    return prefix, libdir, venv, base


def clean_env(**extra):
    env = {k: v for k, v in os.environ.items() if k not in ("TQEQDRC_LIB", "LD_LIBRARY_PATH", "PYTHONPATH")}
    env.update({k: str(v) for k, v in extra.items()})
    return env


def test_installed_tool_runs_from_its_prefix(installed):
    prefix, _, _, base = installed
    r = subprocess.run([prefix / "bin" / "eqdrc", "--version"], capture_output=True, text=True, env=clean_env())
    assert r.returncode == 0, r.stderr
    assert r.stdout.startswith("eqdrc 2.")


def test_installed_package_finds_the_installed_library(installed):
    prefix, libdir, venv, base = installed
    import soundfile
    soundfile.write(base / "in.wav", test_signal(1.0), 48000, subtype="PCM_16")
    work = base / "elsewhere"
    work.mkdir(exist_ok=True)
    r = subprocess.run([venv / "bin" / "python", "-c", "import tqeqdrc; print(tqeqdrc.__file__)"], cwd=work,
                       capture_output=True, text=True, env=clean_env())
    assert r.returncode == 0 and str(venv) in r.stdout, r.stderr
    for env in (clean_env(LD_LIBRARY_PATH=libdir), clean_env(TQEQDRC_LIB=libdir)):
        r = subprocess.run([venv / "bin" / "tqeqdrc", "process", "../in.wav", "out.flac", "--tuning",
                            os.path.join(TUNINGS, "music.json")], cwd=work, capture_output=True, text=True, env=env)
        assert r.returncode == 0, r.stderr
        assert (work / "out.flac").stat().st_size > 0
        (work / "out.flac").unlink()
    r = subprocess.run([venv / "bin" / "tqeqdrc", "process", "../in.wav", "out.wav"], cwd=work, capture_output=True,
                       text=True, env=clean_env())
    assert r.returncode == 2
    assert r.stderr.startswith("tqeqdrc: cannot load lib") and "TQEQDRC_LIB" in r.stderr
    assert len(r.stderr.splitlines()) == 1
    assert os.listdir(work) == []
