import glob
import json
import os
import subprocess

import numpy as np
import pytest

import tqeqdrc
from conftest import ROOT, TUNINGS
from tqeqdrc import tuning

SHIPPED = sorted(glob.glob(os.path.join(TUNINGS, "*.bin")) + glob.glob(os.path.join(TUNINGS, "*.json")))


def tool(eqdrc, *args):
    return subprocess.run([eqdrc, "tuning"] + list(args), check=True, capture_output=True).stdout


def odd_record(seed):
    """A record of awkward words: NaNs with payloads (signalling too), infinities, -0,
    subnormals, huge and tiny values, non-integers in integer fields, out-of-range enums,
    and non-zero words that no field covers."""
    rng = np.random.default_rng(seed)
    bits = rng.integers(0, 2**32, 544, dtype=np.uint64).astype(np.uint32)
    specials = np.array([0x7FC00000, 0x7FC00001, 0x7F800001, 0xFFBFFFFF, 0x7F800000, 0xFF800000, 0x80000000,
                         0x00000001, 0x807FFFFF, 0x7F7FFFFF, 0x4B800000, 0x4B800001, 0xCB800000, 0x3F800000,
                         0x40E00000, 0x41000000, 0xBF800000, 0x3DCCCCCD, 0x49742400, 0x5A0E1BCA, 0x26901D7D],
                        dtype=np.uint32)
    pick = rng.random(544) < 0.5
    bits[pick] = specials[rng.integers(0, specials.size, pick.sum())]
    small = rng.random(544) < 0.3
    bits[small] = np.array(rng.integers(-20, 20, small.sum()), dtype=np.float32).view(np.uint32)
    return bits.view(np.float32)


@pytest.mark.parametrize("path", SHIPPED, ids=os.path.basename)
def test_shipped_tunings_decompile_and_compile_like_the_tool(path, eqdrc_tool, tmp_path):
    rec = tqeqdrc.read_tuning(path)
    text = tuning.format_json(tuning.record_to_json(rec))
    assert text.encode() == tool(eqdrc_tool, "decompile", path)
    out = tmp_path / "c.bin"
    tool(eqdrc_tool, "compile", path, "-o", str(out))
    assert tuning.record_to_bytes(rec) == out.read_bytes()


@pytest.mark.parametrize("seed", range(20))
def test_awkward_records_round_trip_byte_for_byte(seed, eqdrc_tool, tmp_path):
    rec = odd_record(seed)
    binary = tmp_path / "odd.bin"
    binary.write_bytes(tuning.record_to_bytes(rec))
    text = tuning.format_json(tuning.record_to_json(rec))
    assert text.encode() == tool(eqdrc_tool, "decompile", str(binary))
    back = tuning.record_from_json(json.loads(text))
    assert back.tobytes() == rec.tobytes()


def test_edited_json_compiles_like_the_tool(eqdrc_tool, tmp_path):
    doc = json.load(open(os.path.join(TUNINGS, "speech.json")))
    band = doc["eq10"]["channels"][1]["bands"][2]
    band.update({"filterTypes": "highshelf", "fc": 1234.5678, "Q": "0x7fc00003", "boost": "-inf",
                 "_note": "comments are ignored"})
    doc["header"]["pre_gain_dB"] = [1e-7, 3.4e38]
    doc["raw"] = {"9": 0.1, "543": "nan", "8": 1152921573326323713, "18": -16777217, "19": 1e300,
                  "21": 18446744073709551615, "22": 18446744073709551617}
    path = tmp_path / "edited.json"
    path.write_text(json.dumps(doc))
    out = tmp_path / "edited.bin"
    tool(eqdrc_tool, "compile", str(path), "-o", str(out), "--force")  # NaN and infinities are errors
    assert tuning.record_to_bytes(tqeqdrc.read_tuning(str(path))) == out.read_bytes()
    assert tqeqdrc.read_tuning(str(path))[21] == 2.0**64  # unsigned, not wrapped to -1


@pytest.mark.parametrize("doc, message", [
    ({"eq10": {"channels": [{"bands": [{"fc2": 1}]}]}}, "eq10.channels: expected an array of 2 entries"),
    ({"eq10": {"channels": [{"bands": [{"fc2": 1}] * 10}, {}]}}, "eq10.channels[0].bands[0]: unknown field 'fc2'"),
    ({"eq10": {"channels": [{"bands": [{"filterTypes": "Notch"}] * 10}, {}]}}, 'cannot read "Notch"'),
    ({"format": "other"}, 'format: expected "eqdrc-tuning-1"'),
    ({"raw": {"0": 1}}, "raw: word 0 is the field header.sample_rate"),
    ({"stages": {}}, "unknown section 'stages'"),
    ({"header": {"channels": [2]}}, "header.channels: expected a number, found array"),
])
def test_bad_json_names_the_field(doc, message):
    with pytest.raises(tuning.TuningError, match=message.replace("[", r"\[").replace("]", r"\]")
                       .replace("(", r"\(").replace(")", r"\)")):
        tuning.record_from_json(doc)


def test_the_layout_file_is_the_only_description(tmp_path, monkeypatch):
    lay = json.load(open(os.path.join(ROOT, "tools", "eqdrc", "tuning_layout.json")))
    lay["sections"][0]["fields"][0]["name"] = "rate_hz"
    path = tmp_path / "layout.json"
    path.write_text(json.dumps(lay))
    other = tuning.Layout(str(path))
    rec = tqeqdrc.read_tuning(os.path.join(TUNINGS, "reference.bin"))
    doc = tuning.record_to_json(rec, other)
    assert doc["header"]["rate_hz"] == 48000 and "sample_rate" not in doc["header"]
    assert tuning.record_from_json(doc, other).tobytes() == rec.tobytes()
    assert len(tuning.layout().fields) == len(other.fields)


def test_binary_tuning_of_wrong_size_is_refused(tmp_path):
    path = tmp_path / "short.bin"
    path.write_bytes(b"\0" * 100)
    with pytest.raises(tuning.TuningError, match="100 bytes"):
        tqeqdrc.read_tuning(str(path))
