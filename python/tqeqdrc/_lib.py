"""Loading libtqaudio_effect_eqdrc.so and declaring the C signatures used by the package."""
import ctypes
import ctypes.util
import os

# The repository, when the package runs from its source tree (python/tqeqdrc).
_SOURCE_ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.realpath(__file__))))
_LIB_NAME = "libtqaudio_effect_eqdrc.so"
RULES_LIB_NAME = "libtqeqdrc_rules.so"
FIT_LIB_NAME = "libtqeqdrc_fit.so"

c_float_p = ctypes.POINTER(ctypes.c_float)
c_float_pp = ctypes.POINTER(c_float_p)
c_int16_p = ctypes.POINTER(ctypes.c_int16)


class LevelDetectorResult(ctypes.Structure):
    _fields_ = [("freq", ctypes.c_int16 * 10), ("level", ctypes.c_int16 * 10)]


class CrossoverParam(ctypes.Structure):
    _fields_ = [("bandMode", ctypes.c_int32), ("freq", ctypes.c_float * 6)]


def find_library(name=_LIB_NAME):
    """Where a library of this project is taken from: $TQEQDRC_LIB (the chain's .so, or
    the folder holding the libraries), the build/ folder of the source tree the package
    runs from, the package's own folder (where the Debian package keeps the two C
    interfaces only it loads), or the system loader's search (the standard library path,
    where `cmake --install` puts them, and $LD_LIBRARY_PATH)."""
    env = os.environ.get("TQEQDRC_LIB")
    if env:
        folder = env if os.path.isdir(env) else os.path.dirname(env)
        return env if os.path.basename(env) == name else os.path.join(folder, name)
    for folder in (os.path.join(_SOURCE_ROOT, "build"), os.path.dirname(os.path.realpath(__file__))):
        if os.path.exists(os.path.join(folder, name)):
            return os.path.join(folder, name)
    return ctypes.util.find_library(name[3:-3]) or name


def library_path():
    return find_library(_LIB_NAME)


def load(name):
    """The library `name`, or an OSError that says where it was looked for."""
    path = find_library(name)
    try:
        return ctypes.CDLL(path)
    except OSError:
        raise OSError("cannot load %s (looked for %s): build the project, install it with cmake --install, "
                      "or set TQEQDRC_LIB to the folder that holds it" % (name, path)) from None


# (name, result type, argument types)
_SIGNATURES = [
    ("AudioPost_Init", ctypes.c_void_p, [c_float_p, ctypes.c_int]),
    ("AudioPost_Destroy", ctypes.c_int, [ctypes.c_void_p]),
    ("AudioPost_Process", ctypes.c_int, [ctypes.c_void_p, c_int16_p, c_int16_p, ctypes.c_int, ctypes.c_int]),
    ("AudioPost_SetPara", ctypes.c_int, [ctypes.c_void_p, c_float_p, ctypes.c_int]),
    ("AudioPost_GetPara", ctypes.c_int, [ctypes.c_void_p, c_float_p]),
    ("AudioPost_EQ10_SetPara", ctypes.c_int, [ctypes.c_void_p, c_float_p]),
    ("AudioPost_EQ10_GetPara", ctypes.c_int, [ctypes.c_void_p, c_float_p]),
    ("AudioPost_EQ10_GetData", ctypes.c_int, [ctypes.c_void_p, c_float_pp, c_float_pp]),
    ("AudioPost_MultiBandDRC_Crossover_AdjustPara", ctypes.c_int,
     [ctypes.c_void_p, ctypes.c_int] + [ctypes.c_float] * 6),
    ("AudioPost_MultiBandDRC_DRC_AdjustPara", ctypes.c_int,
     [ctypes.c_void_p, ctypes.c_int, ctypes.c_int, ctypes.c_int] + [ctypes.c_float] * 9),
    ("AudioPost_Maximizer_AdjustPara", ctypes.c_int, [ctypes.c_void_p, ctypes.c_int] + [ctypes.c_float] * 3),
    ("AudioPost_Agc_AdjustPara", ctypes.c_int, [ctypes.c_void_p, ctypes.c_int] + [ctypes.c_float] * 8),
    ("filter_calculateCoeffs", None, [c_float_p, ctypes.c_int, ctypes.c_float, ctypes.c_float, ctypes.c_float,
                                      ctypes.c_float]),
    ("filter_responseDb", None, [c_float_p, ctypes.c_double, ctypes.POINTER(ctypes.c_double),
                                 ctypes.POINTER(ctypes.c_double), ctypes.c_int]),
    ("MultiBandDRC_Init", ctypes.c_void_p, [c_float_p] + [ctypes.c_int] * 4),
    ("MultiBandDRC_GetCurve", ctypes.c_int, [ctypes.c_void_p, ctypes.c_int, ctypes.c_int, c_float_p, c_float_p,
                                             ctypes.c_int]),
    ("MultiBandDRC_Destroy", ctypes.c_int, [ctypes.c_void_p]),
    ("Maximizer_Init", ctypes.c_void_p, [c_float_p] + [ctypes.c_int] * 5),
    ("Agc_GetCurve", ctypes.c_int, [ctypes.c_void_p, ctypes.c_int, c_float_p, c_float_p, ctypes.c_int]),
    ("Maximizer_GetCurve", ctypes.c_int, [ctypes.c_void_p, ctypes.c_int, c_float_p, c_float_p, ctypes.c_int]),
    ("Maximizer_Destroy", ctypes.c_int, [ctypes.c_void_p]),
    ("table_caculate", ctypes.c_float, [ctypes.c_int] + [ctypes.c_float] * 6),
    ("max_table_caculate", ctypes.c_float, [ctypes.c_int, ctypes.c_float, ctypes.c_float]),
    ("table_search", ctypes.c_float, [ctypes.c_int, c_float_p, ctypes.c_float, ctypes.c_float, ctypes.c_float]),
    ("Filters_Crossover_filterInit", ctypes.c_void_p, [ctypes.c_int, ctypes.c_int, ctypes.POINTER(CrossoverParam)]),
    ("Filters_Crossover_filterProcess", None, [ctypes.c_void_p, c_float_p, c_float_p]),
    ("Filters_Crossover_filterDestroy", ctypes.c_int, [ctypes.c_void_p]),
    ("ebur128_init", ctypes.c_void_p, [ctypes.c_int] * 5),
    ("ebur128_addframes", ctypes.c_int, [ctypes.c_void_p, c_float_pp, ctypes.c_int]),
    ("ebur128_gatedloudness", ctypes.c_float, [ctypes.c_void_p]),
    ("ebur128_destroy", None, [ctypes.c_void_p]),
    ("LevelDetector_Init", ctypes.c_void_p, [ctypes.c_int] * 4),
    ("LevelDetector_SetPara", ctypes.c_int, [ctypes.c_void_p, c_float_p, ctypes.c_float, ctypes.c_float,
                                             ctypes.c_float]),
    ("LevelDetector_Process", ctypes.c_int, [ctypes.c_void_p, c_int16_p, ctypes.c_int]),
    ("LevelDetector_GetRes", ctypes.c_int, [ctypes.c_void_p, ctypes.POINTER(LevelDetectorResult)]),
    ("LevelDetector_Destroy", ctypes.c_int, [ctypes.c_void_p]),
]

# The rules library's calls, each returning the size of the text it delivers:
# (name, argument types).
_text, _size = ctypes.c_char_p, ctypes.c_size_t
_RULES_SIGNATURES = [
    ("tqeqdrc_plan_stream", [_text, c_float_p, c_float_p, _text, _size]),
    ("tqeqdrc_check", [c_float_p, ctypes.c_int, _text, _text, _size]),
    ("tqeqdrc_refuse_overwrite", [_text, _text, ctypes.c_int, _text, _size]),
    ("tqeqdrc_ceiling_warning", [ctypes.c_int, ctypes.c_longlong, ctypes.c_float, ctypes.c_double, _text, _size]),
    ("tqeqdrc_tuning_to_json", [c_float_p, _text, _size]),
    ("tqeqdrc_tuning_from_json", [_text, _size, c_float_p, _text, _size]),
    ("tqeqdrc_format_json", [_text, _text, _size]),
]

_lib = None
_rules = None
_fit = None


def rules():
    """The loaded rules library (libtqeqdrc_rules.so), its signatures declared."""
    global _rules
    if _rules is None:
        handle = load(RULES_LIB_NAME)
        for name, args in _RULES_SIGNATURES:
            getattr(handle, name).argtypes = args
        _rules = handle
    return _rules


def fit_library():
    """The loaded fitting library (libtqeqdrc_fit.so), its signature declared."""
    global _fit
    if _fit is None:
        lib()  # the library it links, found as the package finds it, for the loader to reuse
        handle = load(FIT_LIB_NAME)
        handle.tqeqdrc_fit.argtypes = [_text, _size, _text, _text, c_float_p, _text, _size]
        _fit = handle
    return _fit


def text_of(call, size=4096):
    """Calls `call(buffer, size)`, again with a larger buffer when the text did not fit."""
    while True:
        buf = ctypes.create_string_buffer(size)
        need = call(buf, size)
        if need < 0:
            raise ValueError("malformed request to the tool's library")
        if need <= size:
            return buf.raw[:need - 1].decode()
        size = need


def lib():
    """The loaded library, with every signature above declared (loaded on first use)."""
    global _lib
    if _lib is None:
        handle = load(_LIB_NAME)
        for name, res, args in _SIGNATURES:
            fn = getattr(handle, name)
            fn.restype = res
            fn.argtypes = args
        _lib = handle
    return _lib


def float_ptr(a):
    return a.ctypes.data_as(c_float_p)


def int16_ptr(a):
    return a.ctypes.data_as(c_int16_p)


def planar_ptrs(planes):
    """A float** over the rows of a C-contiguous float32 2-D array (kept alive by the caller)."""
    arr = (c_float_p * planes.shape[0])()
    for i in range(planes.shape[0]):
        arr[i] = planes[i].ctypes.data_as(c_float_p)
    return arr
