"""The rules `eqdrc process` applies before and after running the chain, called from the
tool's own code (libtqeqdrc_rules.so) so that both refuse, note and warn with the same
words: which inputs are refused, how a tuning is adapted to a file and checked, which
outputs would replace an input, and the warning about peaks above the limiter's ceiling."""
import json

import numpy as np

from . import _lib
from .tuning import RECORD_WORDS, as_record


def plan_stream(input_name, sample_rate, channels, bits, tuning_name, tuning, bypass, frame):
    """(record as it will run, log lines, refusal or "", the maximizer's ceiling per channel)."""
    request = json.dumps({"input": str(input_name), "sample_rate": int(sample_rate), "channels": int(channels),
                          "bits": int(bits), "tuning_name": str(tuning_name), "bypass": list(bypass),
                          "frame": int(frame)}).encode()
    rec = as_record(tuning) if tuning is not None else np.zeros(RECORD_WORDS, dtype=np.float32)
    out = np.zeros(RECORD_WORDS, dtype=np.float32)
    lib = _lib.rules()
    report = json.loads(_lib.text_of(lambda buf, size: lib.tqeqdrc_plan_stream(
        request, _lib.float_ptr(rec), _lib.float_ptr(out), buf, size)))
    return out, report["log"], report["refusal"], report["ceiling_dB"]


def check(record, frame, name):
    """(the lines `eqdrc tuning check` prints for the record, the number of errors)."""
    rec = as_record(record)
    lib = _lib.rules()
    report = json.loads(_lib.text_of(lambda buf, size: lib.tqeqdrc_check(
        _lib.float_ptr(rec), int(frame), str(name).encode(), buf, size)))
    return report["log"], report["errors"]


def overwrite_refusal(output, inputs, force=False):
    """Why `output` must not be written (it is one of `inputs`, also through a link), or ""."""
    lib = _lib.rules()
    return _lib.text_of(lambda buf, size: lib.tqeqdrc_refuse_overwrite(
        str(output).encode(), json.dumps([str(i) for i in inputs]).encode(), int(bool(force)), buf, size))


def ceiling_warnings(pcm, ceilings_db):
    """The warning lines for output samples above each channel's ceiling."""
    lib = _lib.rules()
    lines = []
    for c, ceiling in enumerate(ceilings_db):
        limit = 32768.0 * 10.0 ** (float(np.float32(ceiling)) / 20.0)
        magnitude = np.abs(pcm[:, c].astype(np.int32))
        above = magnitude[magnitude > limit]
        if above.size:
            highest = 20.0 * np.log10(above.max() / 32768.0)
            lines.append(_lib.text_of(lambda buf, size: lib.tqeqdrc_ceiling_warning(
                c, int(above.size), float(ceiling), float(highest), buf, size)))
    return lines
