#!/usr/bin/env python3
"""Writes the fuzz targets' seed corpus (tests/fuzz/corpus/TARGET/) from the shipped
tunings, in the input layouts the targets read.

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


def u16(v):
    return struct.pack("<H", v)


def record(name):
    with open(os.path.join(TUNINGS, name), "rb") as f:
        return bytearray(f.read())


def words(rec, first, count):
    return bytes(rec[4 * first: 4 * (first + count)])


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


def stages_seeds():
    ref = record("reference.bin")
    head = bytes([0, 0, 0, 6])  # 16 bits, 48 kHz, 768 samples, two unlinked channels
    process = bytes([0, 0, 7, 0])  # op 0 at the creation length, signal kind 7
    burst = bytes([0, 0, 5, 0])
    sections = {
        0: (bytes([1]) + words(ref, 100, 100), 1),
        1: (bytes([1]) + words(ref, 200, 200), 1),
        2: (bytes([1]) + words(ref, 400, 40), 2),
        3: (words(ref, 30, 5), 1),
        4: (words(ref, 60, 20), 1),
        5: (words(ref, 80, 10), 1),
        6: (words(ref, 90, 10), 1),
    }
    names = ["eq10", "mbdrc", "maximizer", "auto_gain", "bass", "exciter", "de_esser"]
    for sel, (body, setop) in sections.items():
        sec = body[1:] if body[:1] == b"\x01" and sel in (0, 1, 2) else body
        yield names[sel], bytes([sel]) + head + body + process + burst + bytes([setop]) + sec + process


def primitives_seeds():
    yield "designer_peak", bytes([0, 0, 0]) + f32(48000, 1000, 1.0, 6.0) + f32(*([1000.0] * 10))
    yield "designer_bp", bytes([0, 0, 5]) + f32(48000, 250, 2.0, 0.0) + f32(*([-500.0] * 10))
    yield "tables", bytes([1]) + i32(4) + f32(-30, -60, -40, -20, 6, -3, -10) + f32(-50, -20, -5, 3) + u16(200) + \
        f32(-64, 3.125) + f32(-70, -64, -1, 0)
    yield "crossover", bytes([2, 0]) + u16(3) + bytes([1, 0, 2]) + f32(200, 4000, 200, 1000, 1000, 4000) + \
        u16(64) + b"".join(f32(1000 * math.sin(i), -1000 * math.sin(i)) + b"\x00" for i in range(64))
    yield "meter", bytes([3, 0, 0]) + u16(3) + i32(400, 100) + u16(768) + f32(100.0) + f32(*([3000.0] * 32))
    yield "level_detector", bytes([4, 0, 0]) + u16(3) + u16(769) + bytes([1]) + u16(257) + \
        b"".join(struct.pack("<h", int(8000 * math.sin(i * 0.2))) for i in range(512)) + bytes([2])


def main():
    for target, seeds in (("chain", chain_seeds()), ("stages", stages_seeds()), ("primitives", primitives_seeds())):
        out = os.path.join(HERE, "corpus", target)
        os.makedirs(out, exist_ok=True)
        for name, data in seeds:
            with open(os.path.join(out, name), "wb") as f:
                f.write(bytes(data))


if __name__ == "__main__":
    main()
