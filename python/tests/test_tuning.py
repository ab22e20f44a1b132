import glob
import json
import os

import numpy as np
import pytest

import tqeqdrc
from conftest import TUNINGS, run
from tqeqdrc import tuning

SHIPPED = sorted(glob.glob(os.path.join(TUNINGS, "*.bin")) + glob.glob(os.path.join(TUNINGS, "*.json")))


def odd_record(seed):
    """544 awkward words: NaNs with payloads (signalling too), infinities, -0, subnormals, extremes,
    small integers (in enum fields too, out of range there) and random bits, also where no field is."""
    rng = np.random.default_rng(seed)
    specials = np.array([0x7FC00000, 0x7FC00001, 0x7F800001, 0xFFBFFFFF, 0x7F800000, 0xFF800000, 0x80000000,
                         0x00000001, 0x807FFFFF, 0x7F7FFFFF, 0x4B800000, 0x4B800001, 0xCB800000, 0x3DCCCCCD,
                         0x49742400, 0x5A0E1BCA, 0x26901D7D], dtype=np.uint32)
    pool = np.concatenate([specials, np.arange(-20, 20, dtype=np.float32).view(np.uint32)])
    random = rng.integers(0, 2**32, 544, dtype=np.uint64).astype(np.uint32)
    return np.where(rng.random(544) < 0.65, rng.choice(pool, 544), random).view(np.float32)


@pytest.mark.parametrize("source", SHIPPED + list(range(20)), ids=lambda s: os.path.basename(str(s)))
def test_records_decompile_and_compile_like_the_tool(source, eqdrc_tool, tmp_path):
    """Shipped and awkward records through the JSON text and back, byte for byte, read by both."""
    path, text_path = source, tmp_path / "text.json"
    if isinstance(source, int):
        path = tmp_path / "odd.bin"
        path.write_bytes(tuning.record_to_bytes(odd_record(source)))
    rec = tqeqdrc.read_tuning(str(path))
    text = tuning.format_json(tuning.record_to_json(rec))
    assert run([eqdrc_tool, "tuning", "decompile", path]) == (0, text, "")
    assert tuning.record_from_json(json.loads(text)).tobytes() == rec.tobytes()
    text_path.write_text(text)
    for source_path in (path, text_path):  # awkward records have errors: forced
        assert run([eqdrc_tool, "tuning", "compile", source_path, "-o", tmp_path / "c.bin", "--force"])[0] == 0
        assert tuning.record_to_bytes(rec) == (tmp_path / "c.bin").read_bytes(), source_path


def test_edited_json_compiles_like_the_tool(eqdrc_tool, tmp_path):
    doc = json.load(open(os.path.join(TUNINGS, "speech.json")))
    band = doc["eq10"]["channels"][1]["bands"][2]
    band.update({"filterTypes": "highshelf", "fc": 1234.5678, "Q": "0x7fc00003", "boost": "-inf",
                 "_note": "comments are ignored"})
    doc["header"]["pre_gain_dB"] = [1e-7, 3.4e38]
    doc["raw"] = {"9": 0.1, "543": "nan", "8": 1152921573326323713, "18": -16777217, "19": 1e300, "23": "inf",
                  "21": 18446744073709551615, "22": 18446744073709551617}
    path = tmp_path / "edited.json"
    path.write_text(json.dumps(doc))
    assert run([eqdrc_tool, "tuning", "compile", path, "-o", tmp_path / "c.bin", "--force"])[0] == 0  # NaN: errors
    assert tuning.record_to_bytes(tqeqdrc.read_tuning(str(path))) == (tmp_path / "c.bin").read_bytes()
    assert tqeqdrc.read_tuning(str(path))[21] == 2.0**64  # unsigned, not wrapped to -1
