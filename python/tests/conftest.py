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


@pytest.fixture(scope="session")
def eqdrc_tool():
    path = os.path.join(BUILD, "tools", "eqdrc", "eqdrc")
    if not os.path.exists(path):
        pytest.fail("the eqdrc tool is not built in " + BUILD)
    return path


@pytest.fixture(scope="session")
def cref(tmp_path_factory):
    """Runs the small C program that calls the library directly; returns its output lines."""
    exe = str(tmp_path_factory.mktemp("cref") / "cref")
    subprocess.run(["cc", "-std=c99", "-O1", "-o", exe, os.path.join(ROOT, "python", "tests", "cref.c"),
                    "-I", os.path.join(ROOT, "include"), "-L", BUILD, "-Wl,-rpath," + BUILD,
                    "-ltqaudio_effect_eqdrc"], check=True)

    def run(*args):
        r = subprocess.run([exe] + [str(a) for a in args], check=True, capture_output=True, text=True)
        return r.stdout.split("\n")[:-1]
    return run


def fbits(v):
    """Hex bits of a float32 value, as cref takes and prints them."""
    return "%08x" % int(np.array([v], dtype=np.float32).view(np.uint32)[0])


def test_signal(seconds, rate=48000, channels=2, seed=1):
    """Music-like int16 test audio: tones, a loud burst, noise and a quiet tail."""
    rng = np.random.default_rng(seed)
    n = int(seconds * rate)
    t = np.arange(n) / rate
    env = np.where((t > seconds * 0.3) & (t < seconds * 0.6), 1.0, 0.15)
    sig = np.empty((n, channels))
    for c in range(channels):
        sig[:, c] = env * (9000 * np.sin(2 * np.pi * (110 + 50 * c) * t) + 5000 * np.sin(2 * np.pi * 3100 * t)
                           + 3000 * rng.standard_normal(n))
    return np.clip(np.round(sig), -32768, 32767).astype(np.int16)


test_signal.__test__ = False
