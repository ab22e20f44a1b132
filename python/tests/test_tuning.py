import os

import numpy as np

import tqeqdrc
from conftest import TUNINGS, run


def test_json_is_the_tools_and_reads_back_from_python_values(eqdrc_tool, tmp_path):
    """Python writes `eqdrc tuning decompile`'s text; its JSON form, as Python objects, reads
    back to the record, also when a script sets values JSON has no numbers for, or numpy's."""
    path = os.path.join(TUNINGS, "reference.bin")
    rec = tqeqdrc.read_tuning(path)
    tqeqdrc.write_json(str(tmp_path / "py.json"), rec)
    text = (tmp_path / "py.json").read_text()
    assert run([eqdrc_tool, "tuning", "decompile", path]) == (0, text, "")
    doc = tqeqdrc.record_to_json(rec)
    assert tqeqdrc.format_json(doc) == text and tqeqdrc.record_from_json(doc).tobytes() == rec.tobytes()
    doc["raw"] = {"9": float("-inf"), "543": np.float32(0.1)}
    doc["header"]["pre_gain_dB"] = [float("nan"), np.int64(-3)]
    back, lay = tqeqdrc.record_from_json(doc), tqeqdrc.layout()
    assert back[9] == -np.inf and back[543] == np.float32(0.1)
    assert np.isnan(back[lay.word("header.pre_gain_dB[0]")]) and back[lay.word("header.pre_gain_dB[1]")] == -3
