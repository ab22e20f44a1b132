import os
import subprocess
import sys

import numpy as np
import pytest

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
sys.path.insert(0, os.path.join(ROOT, "python"))

# The build under test: $TQEQDRC_LIB (its folder or the .so), else build/.
_env = os.environ.get("TQEQDRC_LIB")
BUILD = (_env if os.path.isdir(_env) else os.path.dirname(_env)) if _env else os.path.join(ROOT, "build")
os.environ["TQEQDRC_LIB"] = os.path.join(BUILD, "libtqaudio_effect_eqdrc.so")
TUNINGS = os.path.join(ROOT, "tunings")
PY = [sys.executable, "-m", "tqeqdrc"]
PY_ENV = dict(os.environ, PYTHONPATH=os.path.join(ROOT, "python"))


def run(cmd, *args, **kwargs):
    """(status, standard output, standard error) of a command, by default with the package importable."""
    kwargs.setdefault("env", PY_ENV)
    r = subprocess.run([str(a) for a in list(cmd) + list(args)], capture_output=True, text=True, **kwargs)
    return r.returncode, r.stdout, r.stderr


@pytest.fixture(scope="session")
def eqdrc_tool():
    path = os.path.join(BUILD, "tools", "eqdrc", "eqdrc")
    assert os.path.exists(path), "the eqdrc tool is not built in " + BUILD
    return path


def test_signal(seconds, rate=48000, channels=2, seed=1):
    """Music-like int16 test audio: tones and noise, with a loud burst amid a quiet passage."""
    t = np.arange(int(seconds * rate))[:, None] / rate
    loud = np.where((t > seconds * 0.3) & (t < seconds * 0.6), 1.0, 0.15)
    tones = 9000 * np.sin(2 * np.pi * (110 + 50 * np.arange(channels)) * t) + 5000 * np.sin(2 * np.pi * 3100 * t)
    noise = 3000 * np.random.default_rng(seed).standard_normal((t.size, channels))
    return np.clip(np.round(loud * (tones + noise)), -32768, 32767).astype(np.int16)


test_signal.__test__ = False
