"""Process an audio file through the chain from Python, step by step (each "# %%" is a
notebook cell).

    python3 python/examples/process_wav.py [IN [OUT [TUNING]]]

Without an input it makes a 4-second test file first.  The file goes through the same
checks as `eqdrc process` (a refused input or tuning ends the script with one line and
status 1).  The library comes from $TQEQDRC_LIB, else build/, else the system's library
path; with the package installed (see the README) the set-up cell is not needed.
"""
# %% Set-up: make the package importable from the source tree.
import os
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(os.path.dirname(HERE))
sys.path.insert(0, os.path.join(ROOT, "python"))

import numpy as np  # noqa: E402

import tqeqdrc  # noqa: E402
import tqeqdrc.plots  # noqa: E402

args = sys.argv[1:]
out_dir = os.environ.get("OUT_DIR", ".")
in_path = args[0] if len(args) > 0 else os.path.join(out_dir, "example-in.wav")
out_path = args[1] if len(args) > 1 else os.path.join(out_dir, "example-out.wav")
tuning_path = args[2] if len(args) > 2 else os.path.join(ROOT, "tunings", "reference.bin")

# %% An input: the given file, or a test signal (a quiet passage, then a loud one).
if not args:
    rate = 48000
    t = np.arange(4 * rate) / rate
    level = np.where(t < 2, 2000, 20000)
    left = level * np.sin(2 * np.pi * 220 * t)
    right = level * np.sin(2 * np.pi * 330 * t)
    tqeqdrc.write_audio(in_path, np.round(np.stack([left, right], axis=1)).astype(np.int16), rate)

# %% Look at a few fields of the tuning.
doc = tqeqdrc.record_to_json(tqeqdrc.read_tuning(tuning_path))
print("enabled stages:", [k for k, v in doc["header"]["enable"].items() if v])
print("limiter ceiling (dBFS):", doc["maximizer"]["channels"][0]["ceiling"])

# %% Run the chain over the whole file, 768 samples per channel per frame, with the tool's
# checks: its notes and warnings go to standard error, a refusal ends the script.
try:
    pcm, out, rate, warnings, record = tqeqdrc.process_file(in_path, out_path, tuning_path, frame=768)
except (OSError, ValueError) as e:
    sys.exit("process_wav.py: %s" % e)
print("%s: %d samples x %d channel(s) at %d Hz" % (in_path, pcm.shape[0], pcm.shape[1], rate))
for line in warnings:
    print(line)

# %% Compare the loudness before and after with the library's own meter.
_, lufs_in = tqeqdrc.short_term_loudness(pcm, rate)
_, lufs_out = tqeqdrc.short_term_loudness(out, rate)
print("short-term loudness, last 3 s: %.1f -> %.1f LUFS" % (lufs_in[-1], lufs_out[-1]))

# %% Pictures: the tuning's curves and the processed file's loudness and level difference.
tqeqdrc.plots.plot_tuning(record, os.path.join(out_dir, "example-tuning.png"))
tqeqdrc.plots.plot_report(pcm, out, rate, os.path.join(out_dir, "example-report.png"), record=record)
print("wrote", out_path, "example-tuning.png and example-report.png in", out_dir)
