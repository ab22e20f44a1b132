"""Python access to libtqaudio_effect_eqdrc: the chain, its building blocks, tuning files
(the JSON form of the eqdrc tool) and pictures of a tuning.

    import tqeqdrc
    rec = tqeqdrc.read_tuning("tunings/reference.bin")
    with tqeqdrc.Chain(rec, 768) as chain:
        out = chain.process(pcm)          # int16 (samples, channels)
"""
from .chain import Chain, quiet_stderr
from .dsp import (FILTER_TYPES, LevelDetector, LoudnessMeter, crossover_impulse, design, max_table_caculate,
                  short_term_loudness, table_caculate, table_search)
from .tuning import (Layout, TuningError, adapt, format_json, layout, read_tuning, record_from_json,
                     record_to_bytes, record_to_json, write_json, write_record)
from .wavio import read_wav, write_wav

__all__ = ["Chain", "quiet_stderr", "FILTER_TYPES", "LevelDetector", "LoudnessMeter", "crossover_impulse", "design",
           "max_table_caculate", "short_term_loudness", "table_caculate", "table_search", "Layout", "TuningError",
           "adapt", "format_json", "layout", "read_tuning", "record_from_json", "record_to_bytes", "record_to_json",
           "write_json", "write_record", "read_wav", "write_wav"]
