"""The browser test's signals: 5 s of stereo tones and noise at 48 kHz, and 1 s at 8 kHz."""
import math
import random
import struct
import sys
import wave


def write(path, rate, seconds, seed):
    rng = random.Random(seed)
    frames = bytearray()
    for i in range(int(rate * seconds)):
        t = i / rate
        left = 8000 * math.sin(2 * math.pi * 220 * t) + 3000 * math.sin(2 * math.pi * 3100 * t)
        right = 6000 * math.sin(2 * math.pi * 440 * t) * (0.5 + 0.5 * math.sin(2 * math.pi * 0.5 * t))
        frames += struct.pack("<hh", int(left) + rng.randint(-500, 500), int(right) + rng.randint(-500, 500))
    with wave.open(path, "wb") as w:
        w.setnchannels(2)
        w.setsampwidth(2)
        w.setframerate(rate)
        w.writeframes(bytes(frames))


write(sys.argv[1] + "/tone.wav", 48000, 5.0, 1)
write(sys.argv[1] + "/tone-8k.wav", 8000, 1.0, 2)
