"""Tuning records: the 2176-byte image and the JSON form of the eqdrc tool.

The JSON text is read and written by the tool's own code (libtqeqdrc_rules.so), so it is
byte for byte what `eqdrc tuning decompile` writes, and read with the tool's messages.
The field names, words and kinds come from tuning/tuning_layout.json, read at run time,
for looking fields up from Python.
"""
import json
import math
import os

import numpy as np

from . import _lib
from .files import read_input, write_atomic

RECORD_WORDS = 544
RECORD_BYTES = RECORD_WORDS * 4


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


def _tool_layout(lay):
    """The tool reads and writes tunings in the layout it was built with, and no other."""
    if lay is not None and lay.format != layout().format:
        raise TuningError('the eqdrc tool reads and writes tunings of format "%s" only' % layout().format)


def _json_text(doc):
    """A document as JSON text for the tool: numpy scalars as numbers, and NaN and the
    infinities, which JSON has no numbers for, as the words the tool reads them by."""
    def plain(j):
        if isinstance(j, np.generic):
            j = j.item()
        if isinstance(j, float) and not math.isfinite(j):
            return "nan" if math.isnan(j) else "inf" if j > 0 else "-inf"
        if isinstance(j, dict):
            return {k: plain(v) for k, v in j.items()}
        if isinstance(j, (list, tuple)):
            return [plain(v) for v in j]
        return j
    return json.dumps(plain(doc)).encode()


def record_to_json_text(rec, lay=None):
    """The JSON text `eqdrc tuning decompile` writes for the record."""
    _tool_layout(lay)
    a = as_record(rec)
    rules = _lib.rules()
    return _lib.text_of(lambda buf, size: rules.tqeqdrc_tuning_to_json(_lib.float_ptr(a), buf, size))


def _record_from_text(text):
    """The record the tool reads from a JSON text (bytes), or TuningError with its message."""
    rec = np.zeros(RECORD_WORDS, dtype=np.float32)
    rules = _lib.rules()
    message = _lib.text_of(lambda buf, size: rules.tqeqdrc_tuning_from_json(
        text, len(text), _lib.float_ptr(rec), buf, size))
    if message:
        raise TuningError(message)
    return rec


def record_to_json(rec, lay=None):
    """The JSON form as ordered dicts and lists (field order of the layout)."""
    return json.loads(record_to_json_text(rec, lay))


def record_from_json(doc, lay=None):
    """A 544-word float32 record from the JSON form; missing fields are 0."""
    _tool_layout(lay)
    return _record_from_text(_json_text(doc))


def format_json(doc):
    """The JSON text: flat objects and arrays on one line when short, the rest indented."""
    rules = _lib.rules()
    return _lib.text_of(lambda buf, size: rules.tqeqdrc_format_json(_json_text(doc), buf, size))


# ---- files -------------------------------------------------------------------------------

def is_json_text(data):
    stripped = data.lstrip(b" \t\r\n")
    return stripped[:1] == b"{"


def read_tuning(path):
    """A record from a tuning file: JSON (first non-blank character '{') or binary."""
    data = read_input(path, TuningError)
    if is_json_text(data):
        try:
            return _record_from_text(data)
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
    _write_bytes(path, record_to_json_text(rec).encode("utf-8"), inputs, force)


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
