"""Python access to libtqaudio_effect_eqdrc: the chain, its building blocks, tuning files
(the JSON form of the eqdrc tool), audio files processed as the tool processes them, the
EQ fitted to a measured response as `eqdrc fit` fits it, and pictures of a tuning and a fit.

    import tqeqdrc
    rec = tqeqdrc.read_tuning("tunings/reference.bin")
    with tqeqdrc.Chain(rec, 768) as chain:
        out = chain.process(pcm)          # int16 (samples, channels)
"""
__version__ = "2.0.0"

try:
    import numpy as _numpy  # noqa: F401
except ImportError:
    _numpy = None

if _numpy is None:
    # One line instead of a traceback, for the command and for `import tqeqdrc` alike.
    MISSING = "tqeqdrc needs numpy: install python3-numpy (apt-get install python3-numpy) or, in a venv, numpy"

    def __getattr__(name):
        raise ImportError(MISSING)
else:
    from .audiofile import AudioError, read_audio, read_wav, to_pcm16, write_audio, write_wav
    from .chain import Chain, quiet_stderr
    from .dsp import (FILTER_TYPES, LevelDetector, LoudnessMeter, crossover_impulse, design, max_table_caculate,
                      response_db, short_term_loudness, table_caculate, table_search)
    from .files import OutputError
    from .fitting import Fit, FitError, fit
    from .process import ProcessError, process_file
    from .tuning import (Layout, TuningError, adapt, format_json, layout, read_tuning, record_from_json,
                         record_to_bytes, record_to_json, write_json, write_record)

    __all__ = ["Chain", "quiet_stderr", "FILTER_TYPES", "LevelDetector", "LoudnessMeter", "crossover_impulse",
               "design", "max_table_caculate", "response_db", "short_term_loudness", "table_caculate", "table_search", "Layout",
               "TuningError", "adapt", "format_json", "layout", "read_tuning", "record_from_json", "record_to_bytes",
               "record_to_json", "write_json", "write_record", "AudioError", "read_audio", "read_wav", "to_pcm16",
               "write_audio", "write_wav", "OutputError", "ProcessError", "process_file",
               "Fit", "FitError", "fit"]
