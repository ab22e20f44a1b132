#!/usr/bin/env python3
"""Writes the chain fuzz target's seed corpus (tests/fuzz/corpus/chain/) from the shipped
tunings, in the input layout the target reads.

    tests/fuzz/make_corpus.py
"""
import math
import os
import struct

HERE = os.path.dirname(os.path.abspath(__file__))
TUNINGS = os.path.join(HERE, "..", "..", "tunings")


def f32(*v):
    return struct.pack("<%df" % len(v), *v)


def i32(*v):
    return struct.pack("<%di" % len(v), *v)


def record(name):
    with open(os.path.join(TUNINGS, name), "rb") as f:
        return bytearray(f.read())


def with_words(rec, first, *values):
    rec = bytearray(rec)
    rec[4 * first: 4 * (first + len(values))] = f32(*values)
    return rec


def pcm(frames):
    return b"".join(struct.pack("<hh", int(12000 * math.sin(i * 0.07)), int(9000 * math.sin(i * 0.31)))
                    for i in range(frames))


def chain_seeds():
    ref, byp = record("reference.bin"), record("bypass.bin")
    args = i32(0) + f32(200, 4000, 200, 1000, 1000, 4000) + i32(1, 2, 1) + f32(0, -20, -50, -60, 0, -10, 10, 100, 0)
    args = (args + bytes(96))[:96]
    # control: frame length, init mode, frame counts, signal, pass-through ops
    yield "reference", ref + bytes([0, 0, 0x05, 0, 0x7F, 0, 0, 0]) + byp + args + pcm(64)
    yield "bypass", byp + bytes([3, 0, 0x01, 2, 0, 0, 0, 0]) + ref + args + pcm(16)
    yield "by_path", ref + bytes([4, 0x1F, 0x10, 4, 0x03, 0, 0, 0]) + ref + args
    linked = with_words(ref, 2, 1.0)
    yield "linked", linked + bytes([5, 0, 0x0A, 3, 0x78, 0, 0, 0]) + ref + args
    mono = with_words(ref, 3, 1.0)
    yield "mono", mono + bytes([2, 0, 0x01, 0, 0x01, 0, 0, 0]) + mono + args + pcm(8)
    bits24 = with_words(ref, 1, 24.0)
    yield "bits24", bits24 + bytes([6, 0, 0x05, 2, 0x20, 0, 0, 0]) + ref + args


def main():
    out = os.path.join(HERE, "corpus", "chain")
    os.makedirs(out, exist_ok=True)
    for name, data in chain_seeds():
        with open(os.path.join(out, name), "wb") as f:
            f.write(bytes(data))


if __name__ == "__main__":
    main()
