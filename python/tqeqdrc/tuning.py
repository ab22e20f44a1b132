"""Tuning records: the 2176-byte image and the JSON form of the eqdrc tool.

The field names, words and kinds come from tools/eqdrc/tuning_layout.json, read at run
time, so this module and the C++ tool share one description of the record.  The JSON
text written here is byte for byte what `eqdrc tuning decompile` writes.
"""
import ctypes
import json
import math
import os
import struct

import numpy as np

from ._grisu import number_text
from .files import write_atomic

RECORD_WORDS = 544
RECORD_BYTES = RECORD_WORDS * 4
_EXACT_INTEGER_LIMIT = 16777216.0  # integers up to 2^24 are exact in float32
_LINE_LIMIT = 110

_libc = ctypes.CDLL(None)
_libc.strtof.restype = ctypes.c_float
_libc.strtof.argtypes = [ctypes.c_char_p, ctypes.c_void_p]


def default_layout_path():
    env = os.environ.get("TQEQDRC_LAYOUT")
    if env:
        return env
    # The tool's own file: a link in the source tree, a copy in an installed package.
    return os.path.join(os.path.dirname(os.path.realpath(__file__)), "data", "tuning_layout.json")


class TuningError(ValueError):
    """A tuning that cannot be read; the message names the field or file."""


class Field:
    __slots__ = ("path", "section", "word", "kind", "labels")

    def __init__(self, path, section, word, kind, labels):
        self.path, self.section, self.word, self.kind, self.labels = path, section, word, kind, labels


class Layout:
    """The record layout: a tree of sections (templates resolved) and its flat field list."""

    def __init__(self, path=None):
        with open(path or default_layout_path(), encoding="utf-8") as f:
            doc = json.load(f)
        self.format = doc["format"]
        if doc["record_words"] != RECORD_WORDS:
            raise TuningError("tuning layout: record_words is not 544")
        self.enums = {k: list(v) for k, v in doc["enums"].items()}
        templates = doc["templates"]

        def build(j):
            node = {"name": j["name"], "word": j["word"], "count": j.get("count", 0),
                    "stride": j.get("stride", 0)}
            if "kind" in j:
                node["kind"] = j["kind"]
                if j["kind"] not in ("float", "int", "enum"):
                    raise TuningError("tuning layout: unknown kind '%s'" % j["kind"])
                node["labels"] = self.enums[j["enum"]] if j["kind"] == "enum" else None
            else:
                node["kind"] = "group"
                node["children"] = [build(c) for c in (templates[j["template"]] if "template" in j else j["fields"])]
            return node

        self.sections = [build(s) for s in doc["sections"]]
        self.fields = []
        for s in self.sections:
            self._flatten(s, 0, "", s["name"])
        self.by_word = [None] * RECORD_WORDS
        self.by_path = {}
        for f in self.fields:
            if not 0 <= f.word < RECORD_WORDS:
                raise TuningError("tuning layout: %s lies outside the record" % f.path)
            if self.by_word[f.word] is not None:
                raise TuningError("tuning layout: %s and %s share word %d" % (f.path, self.by_word[f.word].path, f.word))
            self.by_word[f.word] = f
            self.by_path[f.path] = f

    def _flatten(self, node, base, prefix, section):
        path = node["name"] if not prefix else prefix + "." + node["name"]
        start = base + node["word"]
        for k in range(node["count"] or 1):
            p = "%s[%d]" % (path, k) if node["count"] else path
            w = start + k * node["stride"]
            if node["kind"] == "group":
                for c in node["children"]:
                    self._flatten(c, w, p, section)
            else:
                self.fields.append(Field(p, section, w, node["kind"], node.get("labels")))

    def word(self, path):
        """The absolute word of a field path such as 'eq10.channels[0].bands[3].fc'."""
        try:
            return self.by_path[path].word
        except KeyError:
            raise TuningError("tuning layout has no field " + path) from None


_default_layout = None


def layout():
    """The layout shipped with the tree (read once)."""
    global _default_layout
    if _default_layout is None:
        _default_layout = Layout()
    return _default_layout


# ---- float32 words and their text ------------------------------------------------------

def _bits(v):
    return struct.unpack("<I", struct.pack("<f", v))[0]


def _int_bits(j):
    """Bits of the float32 nearest to the integer j (ties to even), rounded once, as a C
    conversion from a 64-bit integer does; a detour through double could round twice."""
    a = abs(j)
    if a.bit_length() > 24:
        shift = a.bit_length() - 24
        q, r = divmod(a, 1 << shift)
        half = 1 << (shift - 1)
        if r > half or (r == half and q & 1):
            q += 1
        a = q << shift
    return _bits(float(-a if j < 0 else a))


def _strtof(text):
    return float(_libc.strtof(text.encode(), None))


def _is_plain_integer(v):
    return math.isfinite(v) and v == math.trunc(v) and abs(v) <= _EXACT_INTEGER_LIMIT and \
        not (v == 0.0 and math.copysign(1.0, v) < 0)


def shortest_text(v):
    """The shortest decimal text that reads back (strtof) to the float32 value v."""
    if math.isnan(v):
        return "nan(0x%08x)" % _bits(v)
    if math.isfinite(v) and v == math.trunc(v) and abs(v) < 1e16:
        return "-0" if v == 0.0 and math.copysign(1.0, v) < 0 else "%.0f" % v
    text = ""
    for precision in range(1, 10):
        text = "%.*g" % (precision, v)
        if _bits(_strtof(text)) == _bits(v):
            break
    return text


def encode_value(v, kind, labels=None, bits=None):
    """One word as a JSON value: a label, an int, a number, or hex bits for NaN, inf, -0.
    `bits` gives a NaN's exact bits (a signalling NaN does not survive a Python float)."""
    if kind == "enum" and labels and _is_plain_integer(v) and 0.0 <= v < len(labels):
        return labels[int(v)]
    if kind in ("int", "enum") and _is_plain_integer(v):
        return int(v)
    if not math.isfinite(v) or (v == 0.0 and math.copysign(1.0, v) < 0):
        return "0x%08x" % (bits if bits is not None else _bits(v))
    d = float(shortest_text(v))
    if _bits(d) != _bits(v):  # struct packs double -> float with C's rounding
        d = float(v)
    return d


def decode_value(j, kind, labels, path):
    """A JSON value back to the bits of a float32 word."""
    if isinstance(j, bool) or j is None or isinstance(j, (list, dict)):
        names = {True: "boolean", False: "boolean", None: "null"}
        found = names.get(j, "array" if isinstance(j, list) else "object") if not isinstance(j, (list, dict)) \
            else ("array" if isinstance(j, list) else "object")
        raise TuningError("%s: expected a number, found %s" % (path, found))
    if isinstance(j, int) and -2**63 <= j < 2**64:
        # The tool reads these as 64-bit integers, signed or unsigned.
        return _int_bits(j)
    if isinstance(j, (int, float)):
        with np.errstate(over="ignore"):
            return int(np.array([float(j)], dtype=np.float64).astype(np.float32).view(np.uint32)[0])
    s = j
    if kind == "enum" and labels:
        for i, label in enumerate(labels):
            if label.lower() == s.lower():
                return _bits(float(i))
    if 2 < len(s) <= 10 and s[:2] in ("0x", "0X") and all(c in "0123456789abcdefABCDEF" for c in s[2:]):
        return int(s[2:], 16)
    if s in ("inf", "+inf"):
        return 0x7F800000
    if s == "-inf":
        return 0xFF800000
    if s == "nan":
        return 0x7FC00000
    hint = ' (a filter type name or code, e.g. "Parametric")' if kind == "enum" and labels else ""
    raise TuningError('%s: cannot read "%s" as a value%s' % (path, s, hint))


# ---- record <-> JSON ---------------------------------------------------------------------

def as_record(rec):
    """A float32 array of 544 words from bytes, a sequence or an array."""
    if isinstance(rec, (bytes, bytearray)):
        if len(rec) < RECORD_BYTES:
            raise TuningError("%d bytes; a tuning record is 2176 bytes (544 float32 words)" % len(rec))
        return np.frombuffer(bytes(rec[:RECORD_BYTES]), dtype="<f4").astype(np.float32)
    a = np.ascontiguousarray(rec, dtype=np.float32)
    if a.shape != (RECORD_WORDS,):
        raise TuningError("a tuning record has 544 words, not %s" % (a.shape,))
    return a.copy()


def record_to_json(rec, lay=None):
    """The JSON form as ordered dicts and lists (field order of the layout)."""
    lay = lay or layout()
    a = as_record(rec)
    words = [float(x) for x in a]
    bits = [int(b) for b in a.view(np.uint32)]

    def node_json(node, base, parent):
        start = base + node["word"]

        def one(w):
            if node["kind"] != "group":
                return encode_value(words[w], node["kind"], node.get("labels"), bits[w])
            obj = {}
            for c in node["children"]:
                node_json(c, w, obj)
            return obj

        if not node["count"]:
            parent[node["name"]] = one(start)
        else:
            parent[node["name"]] = [one(start + k * node["stride"]) for k in range(node["count"])]

    doc = {"format": lay.format}
    for s in lay.sections:
        node_json(s, 0, doc)
    raw = {}
    for w in range(RECORD_WORDS):
        if lay.by_word[w] is None and bits[w] != 0:
            raw[str(w)] = encode_value(words[w], "float", None, bits[w])
    doc["raw"] = raw
    return doc


def record_from_json(doc, lay=None):
    """A 544-word float32 record from the JSON form; missing fields are 0."""
    lay = lay or layout()
    rec = np.zeros(RECORD_WORDS, dtype=np.uint32)

    def node_from(node, value, base, path):
        start = base + node["word"]

        def one(v, w, p):
            if node["kind"] != "group":
                rec[w] = decode_value(v, node["kind"], node.get("labels"), p)
                return
            if not isinstance(v, dict):
                raise TuningError(p + ": expected an object of fields")
            for key, child in v.items():
                if key.startswith("_"):
                    continue
                match = [c for c in node["children"] if c["name"] == key]
                if not match:
                    raise TuningError("%s: unknown field '%s'" % (p, key))
                node_from(match[0], child, w, p + "." + key)

        if not node["count"]:
            one(value, start, path)
            return
        if not isinstance(value, list) or len(value) != node["count"]:
            raise TuningError("%s: expected an array of %d entries (one per %s)"
                              % (path, node["count"], "channel" if node["count"] == 2 else "element"))
        for k in range(node["count"]):
            one(value[k], start + k * node["stride"], "%s[%d]" % (path, k))

    if not isinstance(doc, dict):
        raise TuningError("expected a JSON object with the tuning's sections")
    for key, value in doc.items():
        if key.startswith("_"):
            continue
        if key == "format":
            if value != lay.format:
                raise TuningError('format: expected "%s"' % lay.format)
            continue
        if key == "raw":
            if not isinstance(value, dict):
                raise TuningError("raw: expected an object of word index: value")
            for index, v in value.items():
                if not index.isdigit() or int(index) >= RECORD_WORDS:
                    raise TuningError("raw: '%s' is not a word index 0-543" % index)
                f = lay.by_word[int(index)]
                if f is not None:
                    raise TuningError("raw: word %s is the field %s; set it there" % (index, f.path))
                rec[int(index)] = decode_value(v, "float", None, "raw." + index)
            continue
        match = [s for s in lay.sections if s["name"] == key]
        if not match:
            raise TuningError("unknown section '%s'" % key)
        node_from(match[0], value, 0, key)
    return rec.view(np.float32)


def _dump_scalar(v):
    if isinstance(v, str):
        return json.dumps(v, ensure_ascii=False)
    if isinstance(v, bool) or v is None:
        return json.dumps(v)
    if isinstance(v, int):
        return str(v)
    return number_text(v)


def _format_into(j, indent, out):
    if not isinstance(j, (dict, list)):
        out.append(_dump_scalar(j))
        return
    is_obj = isinstance(j, dict)
    opening, closing = ("{", "}") if is_obj else ("[", "]")
    if not j:
        out.append(opening + closing)
        return
    items = list(j.items()) if is_obj else [(None, v) for v in j]
    if all(not isinstance(v, (dict, list)) for _, v in items):
        line = opening + ", ".join((_dump_scalar(k) + ": " if is_obj else "") + _dump_scalar(v)
                                   for k, v in items) + closing
        if len(line.encode()) + indent <= _LINE_LIMIT:
            out.append(line)
            return
    pad = " " * (indent + 2)
    out.append(opening)
    for i, (k, v) in enumerate(items):
        out.append("\n" if i == 0 else ",\n")
        out.append(pad)
        if is_obj:
            out.append(_dump_scalar(k) + ": ")
        _format_into(v, indent + 2, out)
    out.append("\n" + " " * indent + closing)


def format_json(doc):
    """The JSON text: flat objects and arrays on one line when short, the rest indented."""
    out = []
    _format_into(doc, 0, out)
    return "".join(out) + "\n"


# ---- files -------------------------------------------------------------------------------

def is_json_text(data):
    stripped = data.lstrip(b" \t\r\n")
    return stripped[:1] == b"{"


def read_tuning(path):
    """A record from a tuning file: JSON (first non-blank character '{') or binary."""
    if os.path.isdir(path):  # worded as the tool words it
        raise TuningError("%s: is a folder, not a file" % path)
    try:
        with open(path, "rb") as f:
            data = f.read()
    except OSError as e:
        raise TuningError("%s: cannot open: %s" % (path, e.strerror)) from None
    if is_json_text(data):
        try:
            doc = json.loads(data.decode("utf-8"))
        except ValueError as e:
            raise TuningError("%s: not valid JSON: %s" % (path, e)) from None
        try:
            return record_from_json(doc)
        except TuningError as e:
            raise TuningError("%s: %s" % (path, e)) from None
    if len(data) != RECORD_BYTES:
        raise TuningError("%s: %d bytes; a tuning is a JSON file or a 2176-byte record (544 float32 words)"
                          % (path, len(data)))
    return as_record(data)


def record_to_bytes(rec):
    return as_record(rec).astype("<f4").tobytes()


def _write_bytes(path, data, inputs, force):
    def write(tmp):
        with open(tmp, "wb") as f:
            f.write(data)
    write_atomic(path, write, inputs, force)


def write_record(path, rec, inputs=(), force=False):
    """The 2176-byte record; refused when it would replace one of `inputs`, unless `force`."""
    _write_bytes(path, record_to_bytes(rec), inputs, force)


def write_json(path, rec, inputs=(), force=False):
    _write_bytes(path, format_json(record_to_json(rec)).encode("utf-8"), inputs, force)


def adapt(rec, sample_rate, channels, bypass=()):
    """The record set to a file's sample rate and channel count, with stages switched off,
    as `eqdrc process` does before running the chain."""
    lay = layout()
    rec = as_record(rec)
    rec[lay.word("header.sample_rate")] = sample_rate
    rec[lay.word("header.channels")] = channels
    for stage in bypass:
        rec[lay.word("header.enable." + stage)] = 0.0
    return rec
