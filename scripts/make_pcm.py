#!/usr/bin/env python3
"""Writes a music-like raw stereo 16-bit PCM file (48 kHz): chords with a bass line,
percussive noise bursts and a quiet passage, so every stage has work to do.

    scripts/make_pcm.py OUT.raw [SECONDS]      (default 8 s)
"""
import math
import random
import struct
import sys

RATE = 48000


def main():
    out = sys.argv[1]
    seconds = float(sys.argv[2]) if len(sys.argv) > 2 else 8.0
    n = int(seconds * RATE)
    rng = random.Random(1)
    chords = [(110.0, 220.0, 277.2, 329.6), (98.0, 196.0, 246.9, 293.7), (87.3, 174.6, 220.0, 261.6)]
    frames = bytearray()
    burst = 0.0
    for i in range(n):
        t = i / RATE
        chord = chords[int(t / 2.0) % len(chords)]
        quiet = 0.1 if 4.0 <= t % 8.0 < 5.0 else 1.0
        tone = sum(math.sin(2 * math.pi * f * t) / (k + 1) for k, f in enumerate(chord))
        if i % (RATE // 4) == 0:
            burst = 1.0
        burst *= 0.9995
        noise = (rng.random() * 2 - 1) * burst
        left = quiet * (7000 * tone + 6000 * noise)
        right = quiet * (6000 * tone - 5000 * noise + 2000 * math.sin(2 * math.pi * 6500 * t))
        frames += struct.pack("<hh", max(-32768, min(32767, int(left))), max(-32768, min(32767, int(right))))
    with open(out, "wb") as f:
        f.write(frames)


if __name__ == "__main__":
    main()
