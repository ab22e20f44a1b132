"""A file through the chain as `eqdrc process` runs it: the same refusals, notes, checks
and warnings (from the tool's own rules), the same samples, progress on a terminal."""
import collections
import os
import sys
import time

from . import audiofile, rules
from .chain import Chain
from .tuning import read_tuning

DEFAULT_TUNING = os.path.join(os.path.dirname(os.path.realpath(__file__)), "data", "reference.bin")
DEFAULT_TUNING_NAME = "built-in default tuning"
PROGRESS_WIDTH = 40
PROGRESS_INTERVAL_S = 0.1


Processed = collections.namedtuple("Processed", "pcm_in pcm_out sample_rate warnings record")


class ProcessError(ValueError):
    """Why a file was not processed, in one line."""


class TerminalProgress:
    """A bar on `to` when it is a terminal; nothing otherwise."""

    def __init__(self, to, rate):
        self.to, self.rate = to, rate
        self.shown = hasattr(to, "isatty") and to.isatty()
        self.last = None

    def __call__(self, done, total):
        if not self.shown or total <= 0:
            return
        now = time.monotonic()
        if self.last is not None and now - self.last < PROGRESS_INTERVAL_S and done < total:
            return
        self.last = now
        pct = min(100, done * 100 // total)
        bar = ("#" * (pct * PROGRESS_WIDTH // 100)).ljust(PROGRESS_WIDTH)
        self.to.write("\r[%s] %3d%%  %.1f of %.1f s" % (bar, pct, done / self.rate, total / self.rate))
        self.to.flush()

    def close(self):
        if self.shown and self.last is not None:
            self.to.write("\r\033[K")
            self.to.flush()


def process_file(input_path, output_path, tuning=None, frame=768, bypass=(), force=False, log=None,
                 prefix="tqeqdrc: "):
    """Runs the chain over a file; returns Processed(input int16, output int16, sample
    rate, warning lines, the record as it ran). Notes and check results go to `log` (default standard error), each line
    starting with `prefix`. Raises ProcessError, audiofile.AudioError or TuningError with
    one line; nothing is written then."""
    log = log or sys.stderr
    input_path, output_path = str(input_path), str(output_path)
    info = audiofile.probe(input_path)
    tuning_name = str(tuning) if tuning else DEFAULT_TUNING_NAME
    base = None
    if 1 <= info.channels <= 2:  # a refused input needs no tuning
        base = read_tuning(tuning if tuning else DEFAULT_TUNING)
    record, lines, refusal, ceilings = rules.plan_stream(input_path, info.sample_rate, info.channels, info.bits,
                                                         tuning_name, base, bypass, frame)
    for line in lines:
        log.write(prefix + line + "\n")
    if refusal:
        raise ProcessError(refusal)
    inputs = [input_path] + ([str(tuning)] if tuning else [])
    audiofile.output_format(output_path)
    refusal = rules.overwrite_refusal(output_path, inputs, force)
    if refusal:
        raise ProcessError(refusal)
    pcm, rate = audiofile.read_audio(input_path)
    progress = TerminalProgress(log, rate)
    try:
        with Chain(record, frame) as chain:
            out = chain.process(pcm, progress=progress)
    finally:
        progress.close()
    audiofile.write_audio(output_path, out, rate, inputs, force)
    return Processed(pcm, out, rate, rules.ceiling_warnings(out, ceilings), record)
