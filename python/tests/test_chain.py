import os
import subprocess

import numpy as np
import pytest

import tqeqdrc
from conftest import TUNINGS, test_signal
from tqeqdrc import tuning


def compiled(name, tmp_path, rate=48000, channels=2):
    """A shipped tuning as a record file set to the given rate and channel count."""
    rec = tqeqdrc.adapt(tqeqdrc.read_tuning(os.path.join(TUNINGS, name)), rate, channels)
    path = tmp_path / (name + ".bin")
    tqeqdrc.write_record(str(path), rec)
    return rec, str(path)


@pytest.mark.parametrize("name, frame, channels, seconds", [
    ("reference.bin", 768, 2, 2.0),
    ("music.json", 480, 2, 1.37),          # last frame partial
    ("loud-small-speaker.json", 100, 1, 0.9),
    ("speech.json", 1, 2, 0.05),
])
def test_chain_output_equals_the_library_called_from_c(name, frame, channels, seconds, cref, tmp_path):
    rec, path = compiled(name, tmp_path, channels=channels)
    pcm = test_signal(seconds, channels=channels)
    raw_in, raw_out = tmp_path / "in.raw", tmp_path / "out.raw"
    raw_in.write_bytes(pcm.astype("<i2").tobytes())
    cref("chain", path, frame, raw_in, raw_out)
    expected = np.frombuffer(raw_out.read_bytes(), dtype="<i2").reshape(pcm.shape)
    with tqeqdrc.Chain(rec, frame) as chain:
        got = chain.process(pcm)
    assert got.dtype == np.int16 and got.shape == pcm.shape
    assert np.array_equal(got, expected)
    assert not np.array_equal(got, pcm)


def test_process_command_equals_eqdrc_process(eqdrc_tool, tmp_path):
    pcm = test_signal(1.3, rate=44100)
    src, ours, theirs = tmp_path / "in.wav", tmp_path / "py.wav", tmp_path / "cc.wav"
    tqeqdrc.write_wav(str(src), pcm, 44100)
    tuning_path = os.path.join(TUNINGS, "music.json")
    subprocess.run([eqdrc_tool, "process", str(src), str(theirs), "--tuning", tuning_path, "--frame", "333",
                    "--bypass", "exciter"], check=True, capture_output=True)
    from tqeqdrc.__main__ import main
    assert main(["process", str(src), str(ours), "--tuning", tuning_path, "--frame", "333",
                 "--bypass", "exciter"]) == 0
    a, rate_a = tqeqdrc.read_wav(str(ours))
    b, rate_b = tqeqdrc.read_wav(str(theirs))
    assert rate_a == rate_b == 44100
    assert np.array_equal(a, b)


def test_processing_in_pieces_continues_the_stream(tmp_path):
    rec, _ = compiled("reference.bin", tmp_path)
    pcm = test_signal(0.5)
    with tqeqdrc.Chain(rec, 256) as whole, tqeqdrc.Chain(rec, 256) as pieces:
        expected = whole.process(pcm)
        got = np.concatenate([pieces.process(pcm[:256 * 30]), pieces.process(pcm[256 * 30:])])
    assert np.array_equal(got, expected)


def test_parameters_read_back_and_retune(tmp_path):
    rec, _ = compiled("reference.bin", tmp_path)
    lay = tqeqdrc.layout()
    with tqeqdrc.Chain(rec, 768) as chain:
        back = chain.get_para()
        eq = slice(lay.word("eq10.channels[0].bands[0].enable"), lay.word("eq10.channels[0].bands[0].enable") + 100)
        assert back[eq].tobytes() == rec[eq].tobytes()

        section = chain.eq10_get_para()
        assert section.tobytes() == rec[eq].tobytes()
        section[lay.word("eq10.channels[0].bands[1].boost") - eq.start] = 6.0
        chain.eq10_set_para(section)
        assert chain.eq10_get_para()[lay.word("eq10.channels[0].bands[1].boost") - eq.start] == 6.0

        pcm = test_signal(0.1)
        chain.process(pcm[:768])
        eq_in, eq_out = chain.eq10_get_data()
        assert eq_in.shape == eq_out.shape == (2, 768) and not np.array_equal(eq_in, eq_out)

        louder = rec.copy()
        louder[lay.word("maximizer.channels[0].ceiling")] = -6.0
        chain.set_para(louder)
        assert chain.get_para()[lay.word("maximizer.channels[0].ceiling")] == -6.0
        chain.maximizer_adjust(0, -3.0, -2.0, 50.0)
        chain.agc_adjust(1, -25.0, -50.0, -70.0, 4.0, -2.0, 20.0, 300.0, 0.0)
        chain.crossover_adjust(0, 180.0, 5000.0, 180.0, 900.0, 900.0, 5000.0)
        chain.drc_adjust(1, 0, 1, 0.0, -22.0, -55.0, -75.0, 3.0, -12.0, 10.0, 200.0, 0.0)
        back = chain.get_para()
        for path, value in (("maximizer.channels[0].ceiling", -2.0), ("agc.channels[1].compress_start", -25.0),
                            ("agc.channels[1].release_time", 300.0), ("multiband_drc.channels[0].low.freq_end", 180.0),
                            ("multiband_drc.channels[0].high.freq_start", 5000.0),
                            ("multiband_drc.channels[1].low.compress_start", -22.0)):
            assert back[lay.word(path)] == value, path


def test_bad_input_is_refused_before_the_library_sees_it(tmp_path):
    rec, _ = compiled("reference.bin", tmp_path)
    with tqeqdrc.Chain(rec, 64) as chain:
        with pytest.raises(TypeError):
            chain.process(np.zeros((64, 2), dtype=np.float32))
        with pytest.raises(ValueError, match="channels"):
            chain.process(np.zeros((64, 3), dtype=np.int16))
        with pytest.raises(ValueError, match="whole"):
            chain.process(np.zeros(63, dtype=np.int16))
    bad = rec.copy()
    bad[tqeqdrc.layout().word("header.tool_version")] = 1.0
    with pytest.raises(ValueError, match="rejected"):
        tqeqdrc.Chain(bad, 64)
