"""Loading libtqaudio_effect_eqdrc.so and declaring the C signatures used by the package."""
import ctypes
import ctypes.util
import os

_ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.realpath(__file__))))
_LIB_NAME = "libtqaudio_effect_eqdrc.so"

c_float_p = ctypes.POINTER(ctypes.c_float)
c_float_pp = ctypes.POINTER(c_float_p)
c_int16_p = ctypes.POINTER(ctypes.c_int16)


class LevelDetectorResult(ctypes.Structure):
    _fields_ = [("freq", ctypes.c_int16 * 10), ("level", ctypes.c_int16 * 10)]


class CrossoverParam(ctypes.Structure):
    _fields_ = [("bandMode", ctypes.c_int32), ("freq", ctypes.c_float * 6)]


def library_path():
    """Where the library is taken from: $TQEQDRC_LIB (the .so itself or its folder), the
    in-tree build/ folder, or the system loader's search."""
    env = os.environ.get("TQEQDRC_LIB")
    if env:
        return os.path.join(env, _LIB_NAME) if os.path.isdir(env) else env
    in_tree = os.path.join(_ROOT, "build", _LIB_NAME)
    if os.path.exists(in_tree):
        return in_tree
    return ctypes.util.find_library("tqaudio_effect_eqdrc") or _LIB_NAME


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

_lib = None


def lib():
    """The loaded library, with every signature above declared (loaded on first use)."""
    global _lib
    if _lib is None:
        handle = ctypes.CDLL(library_path())
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
