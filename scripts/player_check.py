#!/usr/bin/env python3
"""What a player played against the chain: the programme for the ALSA plugin's soak
(scripts/plugin-soak.sh), its pacing, and the check of what a file slave received
across live hand-overs (the soak, and the studio's connected test).

    player_check.py make OUT.raw SECONDS           48 kHz stereo music-like, deterministic
    player_check.py feed IN.raw SPEED              IN to standard output at SPEED x real time
    player_check.py check IN.raw SLAVE.raw LOG A.bin B.bin
        the slave's first len(IN) samples against the chain: A from the start, then B, A,
        B ... from each frame the log names ("took effect at frame N"), the chain's state
        kept across each; the last line says how many hand-overs there were
"""
import re
import sys

import numpy as np

RATE = 48000
FRAME = 768
CHUNK_SECONDS = 60


def make(out, seconds):
    """Chords on a bass line that move every half second, noise bursts every quarter, and a
    level that wanders over minutes from near silence to loud; the same bytes every run."""
    rng = np.random.default_rng(7)
    with open(out, "wb") as f:
        for start in range(0, seconds, CHUNK_SECONDS):
            n = min(CHUNK_SECONDS, seconds - start) * RATE
            t = (start * RATE + np.arange(n)) / RATE
            beat = np.floor(t * 2)
            root = 55.0 * 2 ** (((beat * 5) % 12) / 12)
            tone = sum(np.sin(2 * np.pi * root * k * t) / k for k in (1, 2, 3, 5))
            drums = rng.standard_normal(n) * np.exp(-(t % 0.25) * 30)
            level = 0.02 + 0.98 * (0.5 + 0.5 * np.sin(2 * np.pi * t / 173.0))
            left = 6000 * level * (tone + 0.5 * drums)
            right = 6000 * level * (0.8 * tone - 0.4 * drums)
            pcm = np.clip(np.stack([left, right], axis=1), -32768, 32767).astype("<i2")
            f.write(pcm.tobytes())


def feed(played, speed):
    """Paces the programme, so that rewrites every so many seconds of wall clock land every
    so many seconds of audio."""
    import time
    step = RATE * 4 // 10  # a tenth of a second of audio
    start = time.monotonic()
    with open(played, "rb") as f, open(sys.stdout.fileno(), "wb", closefd=False) as out:
        for k, chunk in enumerate(iter(lambda: f.read(step), b"")):
            out.write(chunk)
            ahead = start + (k + 1) * 0.1 / speed - time.monotonic()
            if ahead > 0:
                time.sleep(ahead)


def check(played, slave, log, a, b):
    from tqeqdrc.chain import Chain
    frames = [int(m) for m in re.findall(r"took effect at frame (\d+)", open(log, errors="replace").read())]
    pcm = np.memmap(played, dtype="<i2", mode="r")
    got = np.memmap(slave, dtype="<i2", mode="r")
    records = [open(a, "rb").read(), open(b, "rb").read()]
    if got.size < pcm.size:
        print(f"FAIL the slave has {got.size} samples, the programme {pcm.size}")
        return 1
    cuts = [f * FRAME * 2 for f in frames] + [pcm.size]
    at = 0
    with Chain(records[0], FRAME) as chain:
        for k, cut in enumerate(cuts):
            if k:
                chain.set_para(records[k % 2])
            for lo in range(at, cut, FRAME * 2 * 4096):  # in pieces, to bound memory
                hi = min(cut, lo + FRAME * 2 * 4096)
                want = chain.process(np.asarray(pcm[lo:hi]))
                wrong = np.nonzero(want != got[lo:hi])[0]
                if wrong.size:
                    print(f"FAIL first difference at sample {lo + wrong[0]} (after hand-over {k})")
                    return 1
            at = cut
    print(f"ok   {pcm.size // 2} samples per channel, {len(frames)} hand-overs, every bit the chain's")
    return 0


if __name__ == "__main__":
    if sys.argv[1] == "make":
        make(sys.argv[2], int(sys.argv[3]))
    elif sys.argv[1] == "feed":
        feed(sys.argv[2], float(sys.argv[3]))
    else:
        sys.exit(check(*sys.argv[2:7]))
