#!/usr/bin/env python3
"""Writes the seed corpus of the eqdrc tool's fuzz targets (tests/fuzz/corpus/TARGET/
for tuning_json, tuning_record and audio_file) from the shipped tunings and a few
short generated audio files.

    tests/fuzz/make_tool_corpus.py
"""
import io
import math
import os
import shutil
import struct
import wave

HERE = os.path.dirname(os.path.abspath(__file__))
TUNINGS = os.path.join(HERE, "..", "..", "tunings")
CORPUS = os.path.join(HERE, "corpus")


def write(target, name, data):
    folder = os.path.join(CORPUS, target)
    os.makedirs(folder, exist_ok=True)
    with open(os.path.join(folder, name), "wb") as f:
        f.write(data)


def tone(frames, channels, rate, amplitude=12000):
    return [int(amplitude * math.sin(2 * math.pi * (440 + 220 * c) * i / rate))
            for i in range(frames) for c in range(channels)]


def wav16(frames, channels, rate):
    buf = io.BytesIO()
    with wave.open(buf, "wb") as w:
        w.setnchannels(channels)
        w.setsampwidth(2)
        w.setframerate(rate)
        w.writeframes(struct.pack("<%dh" % (frames * channels), *tone(frames, channels, rate)))
    return buf.getvalue()


def wav_float(frames, channels, rate):
    """IEEE float WAV (format 3), written by hand: the wave module writes PCM only."""
    data = struct.pack("<%df" % (frames * channels), *[s / 32768.0 for s in tone(frames, channels, rate)])
    fmt = struct.pack("<HHIIHH", 3, channels, rate, rate * channels * 4, channels * 4, 32)
    body = b"WAVE" + b"fmt " + struct.pack("<I", len(fmt)) + fmt + b"data" + struct.pack("<I", len(data)) + data
    return b"RIFF" + struct.pack("<I", len(body)) + body


def aiff16(frames, channels, rate):
    """Big-endian 16-bit AIFF; the rate is an 80-bit extended float."""
    exponent = int(math.floor(math.log2(rate)))
    mantissa = int(rate * 2 ** (63 - exponent))
    rate80 = struct.pack(">HQ", 16383 + exponent, mantissa)
    comm = struct.pack(">hIh", channels, frames, 16) + rate80
    ssnd = struct.pack(">II", 0, 0) + struct.pack(">%dh" % (frames * channels), *tone(frames, channels, rate))
    body = b"AIFF" + b"COMM" + struct.pack(">I", len(comm)) + comm + b"SSND" + struct.pack(">I", len(ssnd)) + ssnd
    return b"FORM" + struct.pack(">I", len(body)) + body


def main():
    for t in ("tuning_json", "tuning_record", "audio_file"):
        shutil.rmtree(os.path.join(CORPUS, t), ignore_errors=True)
    for name in sorted(os.listdir(TUNINGS)):
        with open(os.path.join(TUNINGS, name), "rb") as f:
            data = f.read()
        base = os.path.splitext(name)[0]
        if name.endswith(".json"):
            write("tuning_json", base, data)
        else:
            # frame length 768 (767 + 1), 48 kHz, stereo, not adapted; then 44.1 kHz mono adapted
            write("tuning_record", base, bytes([0xFF, 0x02, 4, 2]) + data)
            write("tuning_record", base + "-adapted", bytes([0xFF, 0x02, 8 | 3, 1]) + data)
    write("audio_file", "stereo-48k.wav", wav16(1000, 2, 48000))
    write("audio_file", "mono-44k1.wav", wav16(800, 1, 44100))
    write("audio_file", "float-48k.wav", wav_float(600, 2, 48000))
    write("audio_file", "stereo-48k.aiff", aiff16(600, 2, 48000))


if __name__ == "__main__":
    main()
