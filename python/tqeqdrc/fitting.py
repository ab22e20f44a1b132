"""Fitting a tuning's EQ to a measured response, with the code `eqdrc fit` runs
(libtqeqdrc_fit.so): the same options read the same way, the same fit, the same tuning
bit for bit, the same report and the same messages."""
import collections
import json
import os

from . import _lib
from .files import read_input
from .tuning import _record_from_text, as_record, read_tuning

# What libsndfile's formats start with: an impulse response, which only the tool reads.
_AUDIO_MAGIC = (b"RIFF", b"RIFX", b"RF64", b"fLaC", b"OggS", b"FORM", b"caff", b".snd")
_FIRST_RESULT_BYTES = 1 << 17  # a ten-band report and its tuning fit in one call


class FitError(ValueError):
    """A measurement, target, option or base that `eqdrc fit` refuses, in its one line."""


Fit = collections.namedtuple("Fit", "record report summary tuning_json report_json")
Fit.__doc__ = """A fitted tuning: the record (float32, 544 words) and the report (a dict), the
summary line, and the texts `eqdrc fit` writes for them (-o and --report)."""


def is_builtin_target(target):
    """Whether a target is the tool's own ("flat", "tilt:..."), not a curve."""
    return isinstance(target, str) and (target == "flat" or target.startswith("tilt:"))


def _text(source, what):
    """(bytes, name in messages) of a measurement or target given as a path or as text."""
    if isinstance(source, bytes) or (isinstance(source, str) and "\n" in source):
        return (source if isinstance(source, bytes) else source.encode()), what
    path = os.fspath(source)
    data = read_input(path, FitError)
    if data.startswith(_AUDIO_MAGIC):
        raise FitError("%s: an impulse response: the Python package reads measurements as text only "
                       "(`eqdrc fit` reads impulse responses)" % path)
    return data, path


def _span(value):
    """A (LOW, HIGH) pair as the command types it, or its text as given."""
    if isinstance(value, str):
        return value
    return "-".join(str(int(v)) if float(v).is_integer() else repr(float(v)) for v in value)


def fit(measurement, target="flat", range=(80, 16000), smooth="1/6", bands=10, max_boost=6, max_cut=12,
        q=(0.3, 6), base=None, channel="both"):
    """Fits the EQ of `base` to `measurement` as `eqdrc fit` does; returns a Fit.

    measurement: a text export (two or three columns, REW, CSV) as a path, or its text
    (str with a newline, or bytes; named "measurement" in messages). An impulse response
    (WAV, FLAC, ...) is read by `eqdrc fit` only: export it as text for Python.
    target: "flat", "tilt:DB_PER_OCTAVE" (around 1 kHz), or a two-column curve as a path
    or its text. range and q: (LOW, HIGH) or "LOW-HIGH"; smooth: "1/N" octave, a width in
    octaves, or 0. base: a tuning file or record whose other stages are kept (None: every
    stage off). channel: 0, 1 or "both". Raises FitError with the tool's message."""
    request = {"range": _span(range), "smooth": str(smooth), "q": _span(q), "channel": str(channel),
               "bands": int(bands), "max_boost": float(max_boost), "max_cut": float(max_cut)}
    if is_builtin_target(target):
        request["target"] = target
    else:
        text, request["target"] = _text(target, "target")
        request["target_text"] = text.decode("utf-8", "replace")
    if base is not None:
        base = read_tuning(os.fspath(base)) if isinstance(base, (str, os.PathLike)) else as_record(base)
    data, name = _text(measurement, "measurement")
    base_ptr = None if base is None else _lib.float_ptr(base)
    lib = _lib.fit_library()
    result = json.loads(_lib.text_of(lambda buf, size: lib.tqeqdrc_fit(
        data, len(data), os.fsencode(name), json.dumps(request).encode(), base_ptr, buf, size), _FIRST_RESULT_BYTES))
    if "error" in result:
        raise FitError(result["error"])
    return Fit(_record_from_text(result["tuning"].encode()), json.loads(result["report"]), result["summary"],
               result["tuning"], result["report"])
