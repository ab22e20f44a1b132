"""16-bit PCM WAV files through Python's wave module."""
import wave

import numpy as np


def read_wav(path):
    """(int16 samples shaped (frames, channels), sample rate)."""
    with wave.open(str(path), "rb") as w:
        if w.getsampwidth() != 2:
            raise ValueError("%s: %d-bit samples; only 16-bit WAV files are read" % (path, 8 * w.getsampwidth()))
        channels, rate, frames = w.getnchannels(), w.getframerate(), w.getnframes()
        data = np.frombuffer(w.readframes(frames), dtype="<i2").astype(np.int16)
    return data.reshape(-1, channels), rate


def write_wav(path, pcm, sample_rate):
    pcm = np.asarray(pcm, dtype=np.int16)
    if pcm.ndim == 1:
        pcm = pcm[:, None]
    with wave.open(str(path), "wb") as w:
        w.setnchannels(pcm.shape[1])
        w.setsampwidth(2)
        w.setframerate(int(sample_rate))
        w.writeframes(pcm.astype("<i2").tobytes())
