"""The processing chain over whole int16 arrays."""
import contextlib
import os
import sys
import tempfile

import numpy as np

from . import _lib
from .tuning import RECORD_WORDS, as_record, layout

EQ_SECTION_WORDS = 100


@contextlib.contextmanager
def quiet_stderr(enabled=True):
    """Keep the library's standard-error lines (banner, parameter dumps) off the terminal;
    the context value is a list that receives them as one text on exit."""
    caught = []
    if not enabled:
        yield caught
        return
    sys.stderr.flush()
    saved = os.dup(2)
    with tempfile.TemporaryFile() as tmp:
        try:
            os.dup2(tmp.fileno(), 2)
            yield caught
        finally:
            os.dup2(saved, 2)
            os.close(saved)
            tmp.seek(0)
            caught.append(tmp.read().decode(errors="replace"))


class Chain:
    """One chain built from a 544-word record, run frame by frame over whole arrays.

    `process` takes int16 samples shaped (samples, channels) or, for the record's channel
    count, flat interleaved; the last partial frame is padded with silence and its
    padding dropped from the output, as `eqdrc process` does.
    """

    def __init__(self, record, frame_len, quiet=True):
        self.record = as_record(record)
        self.frame_len = int(frame_len)
        self.channels = int(self.record[layout().word("header.channels")])
        self._lib = _lib.lib()
        with quiet_stderr(quiet) as log:
            self._st = self._lib.AudioPost_Init(_lib.float_ptr(self.record), self.frame_len)
        if not self._st:
            lines = [ln for ln in "".join(log).splitlines() if ln.strip()]
            raise ValueError("the library rejected the tuning record" + (": " + lines[-1] if lines else ""))
        self._quiet = quiet

    def close(self):
        if getattr(self, "_st", None):
            self._lib.AudioPost_Destroy(self._st)
            self._st = None

    def __del__(self):
        self.close()

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()

    def _handle(self):
        if not self._st:
            raise ValueError("the chain is closed")
        return self._st

    def process(self, pcm, progress=None):
        """Processed copy of `pcm` (int16, same shape). `progress(done, total)`, when
        given, is called after frames with the samples per channel done so far."""
        pcm = np.asarray(pcm)
        if pcm.dtype != np.int16:
            raise TypeError("process takes int16 samples, not %s" % pcm.dtype)
        shape = pcm.shape
        flat = np.ascontiguousarray(pcm).reshape(-1)
        if pcm.ndim == 2 and shape[1] != self.channels:
            raise ValueError("%d channels given; the chain has %d" % (shape[1], self.channels))
        if flat.size % self.channels:
            raise ValueError("%d samples do not make whole %d-channel frames" % (flat.size, self.channels))
        step = self.frame_len * self.channels
        total = flat.size
        padded = np.zeros(-(-total // step) * step, dtype=np.int16)
        padded[:total] = flat
        st = self._handle()
        for start in range(0, padded.size, step):
            p = _lib.int16_ptr(padded[start:start + step])
            self._lib.AudioPost_Process(st, p, p, self.channels, self.frame_len)
            if progress is not None:
                progress(min(start + step, total) // self.channels, total // self.channels)
        return padded[:total].reshape(shape)

    def set_para(self, record):
        rec = as_record(record)
        if self._lib.AudioPost_SetPara(self._handle(), _lib.float_ptr(rec), self.frame_len) != 0:
            raise ValueError("the library rejected the tuning record")
        self.record = rec

    def get_para(self, into=None):
        """The live record; words no stage reports come from `into` (default: the record
        the chain was last given)."""
        rec = as_record(self.record if into is None else into)
        self._lib.AudioPost_GetPara(self._handle(), _lib.float_ptr(rec))
        return rec

    # ---- pass-throughs to the stages --------------------------------------------------

    def eq10_set_para(self, section):
        sec = np.ascontiguousarray(section, dtype=np.float32).copy()
        if sec.shape != (EQ_SECTION_WORDS,):
            raise ValueError("the equaliser section has 100 words")
        self._lib.AudioPost_EQ10_SetPara(self._handle(), _lib.float_ptr(sec))

    def eq10_get_para(self):
        sec = np.zeros(EQ_SECTION_WORDS, dtype=np.float32)
        self._lib.AudioPost_EQ10_GetPara(self._handle(), _lib.float_ptr(sec))
        return sec

    def eq10_get_data(self):
        """The equaliser's last input and output frame, each (channels, frame_len) float32."""
        ins = np.zeros((self.channels, self.frame_len), dtype=np.float32)
        outs = np.zeros_like(ins)
        self._lib.AudioPost_EQ10_GetData(self._handle(), _lib.planar_ptrs(ins), _lib.planar_ptrs(outs))
        return ins, outs

    def crossover_adjust(self, ch, low_end, high_start, mid1_start, mid1_end, mid2_start, mid2_end):
        self._lib.AudioPost_MultiBandDRC_Crossover_AdjustPara(self._handle(), ch, low_end, high_start, mid1_start,
                                                              mid1_end, mid2_start, mid2_end)

    def drc_adjust(self, ch, band, drc_enable, gain_dB, compress_start, expand_end, noise_threshold, max_gain,
                   max_peak, attack_time, release_time, hold_time):
        self._lib.AudioPost_MultiBandDRC_DRC_AdjustPara(self._handle(), ch, band, drc_enable, gain_dB,
                                                        compress_start, expand_end, noise_threshold, max_gain,
                                                        max_peak, attack_time, release_time, hold_time)

    def maximizer_adjust(self, channel, max_threshold, ceiling, release):
        self._lib.AudioPost_Maximizer_AdjustPara(self._handle(), channel, max_threshold, ceiling, release)

    def agc_adjust(self, channel, compress_start, expand_end, noise_threshold, max_gain, max_peak, attack_time,
                   release_time, hold_time):
        self._lib.AudioPost_Agc_AdjustPara(self._handle(), channel, compress_start, expand_end, noise_threshold,
                                           max_gain, max_peak, attack_time, release_time, hold_time)


__all__ = ["Chain", "quiet_stderr", "RECORD_WORDS"]
