"""Audio files in and out, as `eqdrc process` reads and writes them: any format libsndfile
reads (through python3-soundfile; without it, 16-bit WAV only), taken to 16 bits with the
tool's one rounding, and 16-bit output written beside its place and renamed into it."""
import os
import wave

import numpy as np

from .files import write_atomic

try:
    import soundfile
except ImportError:  # optional: 16-bit WAV still works through the wave module
    soundfile = None

FULL_SCALE = 32768.0
# Output formats by the name's ending, as the tool chooses them.
OUTPUT_FORMATS = {"wav": "WAV", "flac": "FLAC", "aif": "AIFF", "aiff": "AIFF", "au": "AU", "snd": "AU",
                  "caf": "CAF", "w64": "W64", "rf64": "RF64"}
_SUBTYPE_BITS = {"PCM_S8": 8, "PCM_U8": 8, "DPCM_8": 8, "PCM_16": 16, "DPCM_16": 16, "DWVW_16": 16,
                 "ALAC_16": 16, "PCM_24": 24, "DWVW_24": 24, "ALAC_24": 24, "PCM_32": 32, "ALAC_32": 32}
_NEEDS_SOUNDFILE = "reading anything but 16-bit WAV needs python3-soundfile (apt-get install python3-soundfile)"


class AudioError(ValueError):
    """A file that cannot be read or written, in one line naming it."""


class AudioInfo:
    def __init__(self, sample_rate, channels, bits, frames):
        self.sample_rate, self.channels, self.bits, self.frames = sample_rate, channels, bits, frames


def to_pcm16(samples):
    """Full scale 1.0 to int16: the nearest step, a tie to the even one, clipped; NaN is 0
    (the tool's conversion)."""
    s = np.nan_to_num(np.asarray(samples, dtype=np.float64), nan=0.0) * FULL_SCALE
    return np.clip(np.rint(s), -32768, 32767).astype(np.int16)


def _open_check(path):
    if os.path.isdir(path):
        raise AudioError("%s: is a folder, not an audio file" % path)
    try:
        with open(path, "rb"):
            pass
    except OSError as e:
        raise AudioError("%s: cannot open: %s" % (path, e.strerror)) from None


def _wave_info(path):
    try:
        with wave.open(path, "rb") as w:
            if w.getsampwidth() != 2:
                raise AudioError("%s: %d-bit WAV; %s" % (path, 8 * w.getsampwidth(), _NEEDS_SOUNDFILE))
            return AudioInfo(w.getframerate(), w.getnchannels(), 16, w.getnframes())
    except (wave.Error, EOFError):
        raise AudioError("%s: %s" % (path, _NEEDS_SOUNDFILE)) from None


def probe(path):
    """Sample rate, channels, bits per sample (0 for floating point) and length of a file."""
    path = str(path)
    _open_check(path)
    if soundfile is None:
        return _wave_info(path)
    try:
        info = soundfile.info(path)
    except RuntimeError as e:
        why = getattr(e, "error_string", None) or str(e)
        raise AudioError("%s: not an audio file libsndfile can read (%s)" % (path, why)) from None
    return AudioInfo(info.samplerate, info.channels, _SUBTYPE_BITS.get(info.subtype, 0), info.frames)


def read_audio(path):
    """(int16 samples shaped (frames, channels), sample rate) of any file libsndfile reads."""
    path = str(path)
    info = probe(path)
    if soundfile is None:
        with wave.open(path, "rb") as w:
            data = np.frombuffer(w.readframes(info.frames), dtype="<i2").astype(np.int16)
        return data.reshape(-1, info.channels), info.sample_rate
    data, rate = soundfile.read(path, dtype="float64", always_2d=True)
    return to_pcm16(data), rate


def output_format(path):
    ext = os.path.splitext(str(path))[1][1:].lower()
    if ext not in OUTPUT_FORMATS:
        raise AudioError("%s: cannot tell the output format from the name; end it in .wav, .flac, .aiff, .caf, "
                         ".w64 or .au" % path)
    return OUTPUT_FORMATS[ext]


def write_audio(path, pcm, sample_rate, inputs=(), force=False):
    """16-bit output in the format its name ends in (files.write_atomic: refused when it
    would replace one of `inputs`, unless `force`)."""
    path = str(path)
    fmt = output_format(path)
    pcm = np.asarray(pcm, dtype=np.int16)
    if pcm.ndim == 1:
        pcm = pcm[:, None]
    if soundfile is None and fmt != "WAV":
        raise AudioError("%s: writing %s needs python3-soundfile (apt-get install python3-soundfile)" % (path, fmt))

    def write(tmp):
        if soundfile is not None:
            soundfile.write(tmp, pcm, int(sample_rate), format=fmt, subtype="PCM_16")
            return
        with wave.open(tmp, "wb") as w:
            w.setnchannels(pcm.shape[1])
            w.setsampwidth(2)
            w.setframerate(int(sample_rate))
            w.writeframes(pcm.astype("<i2").tobytes())
    write_atomic(path, write, inputs, force)


# Shorter names for scripts; any format works through them.
read_wav = read_audio


def write_wav(path, pcm, sample_rate):
    write_audio(path, pcm, sample_rate)
