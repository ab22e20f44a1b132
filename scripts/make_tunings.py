#!/usr/bin/env python3
"""Writes the shipped tuning records (2176-byte little-endian float32 images).

    scripts/make_tunings.py [OUT_DIR]      (default: tunings/)

reference.bin  48 kHz 16-bit stereo, every stage on: the tuning the benchmarks and
               the demo use.
bypass.bin     the same header with every stage off and 0 dB pre-gain: output equals input.

The other examples (tunings/*.json) are written by hand in eqdrc's JSON form, which is
their source; `eqdrc tuning compile` turns them into records.
"""
import os
import struct
import sys

WORDS = 544


def header(rec, rate=48000, bits=16, link=0, channels=2):
    rec[0:5] = [rate, bits, link, channels, 2.0]
    rec[5:8] = [1, 0, 0]  # parameter version 1.0.0


def reference():
    rec = [0.0] * WORDS
    header(rec)
    rec[10:18] = [1] * 8
    rec[20] = rec[25] = 0.0  # pre-gains, dB
    # auto gain: target LUFS, attack ms, release ms, meter window ms, step ms
    rec[30:35] = [-16.0, 1000.0, 3000.0, 400.0, 100.0]
    for ch in range(2):
        # bass enhancer: amount dB, drive, blend, freq Hz, floor on, floor Hz
        rec[60 + 10 * ch: 66 + 10 * ch] = [3.0, 4.0, 2.0, 100.0, 1.0, 40.0]
        # exciter: even harmonics, distortion amount, cutoff Hz, mix
        rec[80 + 5 * ch: 84 + 5 * ch] = [0.05, 0.3, 3000.0, 0.2]
        # de-esser: f0 Hz, threshold dBFS
        rec[90 + 5 * ch: 92 + 5 * ch] = [6000.0, -30.0]
        # equaliser: ten bands of enable, type, fc, Q, boost
        bands = [(1, 80, 1.0, 2.0), (0, 125, 1.0, 1.0), (0, 250, 1.0, -1.0), (0, 500, 1.0, -0.5),
                 (0, 1000, 1.0, 0.5), (0, 2000, 1.0, 1.0), (0, 4000, 1.0, 1.5), (0, 8000, 1.0, 1.0),
                 (0, 12000, 1.0, 0.5), (2, 10000, 1.0, 1.0)]
        for b, (typ, fc, q, boost) in enumerate(bands):
            base = 100 + 50 * ch + 5 * b
            rec[base: base + 5] = [1, typ, fc, q, boost]
        # compressor: four bands; groups at 10 (low), 70 (high), 30 (middle 1), 50 (middle 2)
        blk = 200 + 100 * ch
        rec[blk] = 4
        groups = {10: (0, 200), 30: (200, 1000), 50: (1000, 4000), 70: (4000, 20000)}
        for g, (lo, hi) in groups.items():
            rec[blk + g: blk + g + 12] = [lo, hi, 0.0, 1, -20.0, -50.0, -60.0, 0.0, -10.0, 10, 100, 0]
        # maximizer and AGC: threshold, ceiling, release, then the AGC curve and times
        mx = 400 + 20 * ch
        rec[mx: mx + 11] = [-3.0, -1.0, 100.0, -20.0, -40.0, -60.0, 6.0, -3.0, 50.0, 500.0, 0.0]
    return rec


def bypass():
    rec = [0.0] * WORDS
    header(rec)
    return rec


def write(path, rec):
    with open(path, "wb") as f:
        f.write(struct.pack("<%df" % WORDS, *rec))


def main():
    out = sys.argv[1] if len(sys.argv) > 1 else os.path.join(os.path.dirname(__file__), "..", "tunings")
    os.makedirs(out, exist_ok=True)
    write(os.path.join(out, "reference.bin"), reference())
    write(os.path.join(out, "bypass.bin"), bypass())


if __name__ == "__main__":
    main()
