"""A player's file slave across a live hand-over, against the chain: before the logged
frame what `eqdrc process` writes with the old tuning, from it the new tuning taken over
by the running chain, its state kept. Needs TQEQDRC_LIB (the native build) and the package.
    handover_check.py EQDRC SLAVE.raw PLAYED.raw OLD.json NEW.json FRAME   (48 kHz stereo)
"""
import subprocess
import sys
import wave

import numpy as np
from tqeqdrc.chain import Chain

eqdrc, slave, played, old, new, frame = sys.argv[1:7]
run = lambda *args: subprocess.run([eqdrc, *args], check=True, capture_output=True)
pcm = np.fromfile(played, dtype="<i2")
with wave.open(played + ".wav", "wb") as w:
    w.setnchannels(2), w.setsampwidth(2), w.setframerate(48000), w.writeframes(pcm.tobytes())
run("process", "--tuning", old, played + ".wav", played + ".old.wav")
with wave.open(played + ".old.wav") as w:
    tool = np.frombuffer(w.readframes(w.getnframes()), dtype="<i2")
for t in (old, new):
    run("tuning", "compile", t, "-o", t + ".bin")
cut = int(frame) * 768 * 2
with Chain(open(old + ".bin", "rb").read(), 768) as chain:
    head = chain.process(pcm[:cut])
    chain.set_para(open(new + ".bin", "rb").read())
    want = np.concatenate([head, chain.process(pcm[cut:])])
got = np.fromfile(slave, dtype="<i2")
wrong = np.nonzero(got[:want.size] != want[:got.size])[0]
checks = [(np.array_equal(head, tool[:cut]), "before the hand-over frame the chain is `eqdrc process` with the old tuning"),
          (not np.array_equal(want[cut:], tool[cut:]), "from the hand-over frame the new tuning sounds different"),
          (got.size >= want.size and wrong.size == 0, f"the played output is the chain's, the new tuning from frame {frame} "
           f"({got.size} and {want.size} samples, first difference at {wrong[0] if wrong.size else '-'})")]
for ok, what in checks:
    print(("ok   " if ok else "FAIL ") + what)
sys.exit(0 if all(ok for ok, _ in checks) else 1)
