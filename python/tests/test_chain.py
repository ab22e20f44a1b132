"""The chain and its building blocks through the bindings (the chain's output: test_same_rules).
The values are the library's own; these are ones a misplaced or mistyped setting would change."""
import os

import numpy as np
import pytest

import tqeqdrc
from conftest import TUNINGS, test_signal

REFERENCE = tqeqdrc.read_tuning(os.path.join(TUNINGS, "reference.bin"))

# Response in dB at 20 Hz, 1 kHz and 20 kHz of each type designed at 48 kHz, 1 kHz, Q 0.707
# and +6 dB (0 dB for the Butterworth sections, which are only true ones then).
RESPONSES = {
    "Parametric": [0.0, 6.0, 0.0], "LowShelf": [6.0, 3.0, 0.0], "HighShelf": [0.0, 3.0, 6.0],
    "GeneralLP": [6.0, 3.0, -64.2], "GeneralHP": [-62.0, 3.0, 6.0], "BandPass": [-34.1, 6.0, -35.2],
    "ButterworthLP": [0.0, -3.0, -70.2], "ButterworthHP": [-68.0, -3.0, 0.0],
}


def test_stream_parameters_and_live_adjustments():
    pcm, lay = test_signal(0.5), tqeqdrc.layout()
    with tqeqdrc.Chain(REFERENCE, 256) as whole, tqeqdrc.Chain(REFERENCE, 256) as chain:
        pieces = [chain.process(pcm[:256 * 30]), chain.process(pcm[256 * 30:])]
        assert np.array_equal(np.concatenate(pieces), whole.process(pcm))

        eq10 = lay.word("eq10.channels[0].bands[0].enable")
        boost = lay.word("eq10.channels[0].bands[1].boost") - eq10
        section = chain.eq10_get_para()
        assert chain.get_para()[eq10:eq10 + 100].tobytes() == section.tobytes() == REFERENCE[eq10:eq10 + 100].tobytes()
        section[boost] = 6.0
        chain.eq10_set_para(section)
        assert chain.eq10_get_para()[boost] == 6.0
        chain.process(pcm[:256])
        eq_in, eq_out = chain.eq10_get_data()
        assert eq_in.shape == eq_out.shape == (2, 256) and not np.array_equal(eq_in, eq_out)

        retuned = REFERENCE.copy()
        retuned[lay.word("maximizer.channels[0].ceiling")] = -6.0
        chain.set_para(retuned)
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


def test_bad_input_is_refused_before_the_library_sees_it():
    with tqeqdrc.Chain(REFERENCE, 64) as chain:
        with pytest.raises(TypeError):
            chain.process(np.zeros((64, 2), dtype=np.float32))
        with pytest.raises(ValueError, match="channels"):
            chain.process(np.zeros((64, 3), dtype=np.int16))
        with pytest.raises(ValueError, match="whole"):
            chain.process(np.zeros(63, dtype=np.int16))
    bad = REFERENCE.copy()
    bad[tqeqdrc.layout().word("header.tool_version")] = 1.0
    with pytest.raises(ValueError, match="rejected"):
        tqeqdrc.Chain(bad, 64)


@pytest.mark.parametrize("name", RESPONSES)
def test_designs_have_their_types_response(name):
    coeffs = tqeqdrc.design(name, 48000.0, 1000.0, 0.707, 0.0 if name.startswith("Butterworth") else 6.0)
    assert np.allclose(tqeqdrc.response_db(coeffs, [20, 1000, 20000], 48000), RESPONSES[name], atol=0.05)


def test_gain_curves_and_table_lookup():
    # Expanding below the noise threshold (-60), +6 dB between the knees, 0 dBFS held at max_peak.
    curve = (-60.0, -45.0, -20.0, 6.0, -3.0)
    assert [tqeqdrc.table_caculate(4, x, *curve) for x in (-100.0, -60.0, -30.0, 0.0)] == [-116.0, -60.0, -24.0, -3.0]
    assert list(tqeqdrc.table_caculate(4, np.array([-30.0, -60.0]), *curve)) == [-24.0, -60.0]
    assert tqeqdrc.table_caculate(0, -10.0, *curve) == 0.0
    # The limiter: unity below its 12 dB knee, the threshold above it, rounded within it.
    assert [tqeqdrc.max_table_caculate(12, x, -3.0) for x in (-20.0, 0.0, 7.0)] == [-20.0, -3.375, -3.0]
    # The nearest entry of a table from -60 dB at 2 entries per dB, clamped at both ends.
    table = np.arange(201, dtype=np.float32)
    assert [tqeqdrc.table_search(200, table, x, -60.0, 2.0) for x in (-80.0, -50.0, 100.0)] == [0.0, 20.0, 200.0]
    with pytest.raises(ValueError):  # shorter than last_index says: the library would read past its end
        tqeqdrc.table_search(200, table[:10], -50.0, -60.0, 2.0)


def test_loudness_meter_window_bits_and_planes():
    rate, step = 48000, 4800
    planes = np.zeros((2, rate // 2), np.float32)
    planes[1] = 16384 * np.sin(2 * np.pi * 997 * np.arange(rate // 2) / rate)  # second channel only
    at_16 = 20 * np.log10(0.5) - 3.01  # a sine measures 3 dB below its peak
    for bits, lufs in ((16, at_16), (24, at_16 - 20 * np.log10(256))):
        meter = tqeqdrc.LoudnessMeter(bits, rate, 2, 400, 100)
        readings = []
        for start in range(0, planes.shape[1], step):
            meter.add(planes[:, start:start + step])
            readings.append(meter.loudness())
        with pytest.raises(ValueError):
            meter.add(planes[:1])
        meter.close()
        assert readings[:3] == [-1000.0] * 3  # nothing until the first 400 ms window is full
        assert np.allclose(readings[3:], lufs, atol=0.05)


def test_level_detector_measures_the_first_channel():
    rate, frame = 48000, 256
    t = np.arange(rate)[:, None] / rate
    pcm = np.round(8000 * np.sin(2 * np.pi * np.array([1000, 4000]) * t)).astype(np.int16)  # 1 kHz left, 4 kHz right
    det = tqeqdrc.LevelDetector(16, rate, 2, frame)
    assert det.set_para(None, 100.0, 50.0, 300.0) == frame
    assert all(det.process(pcm[s:s + frame]) == frame for s in range(0, rate - frame + 1, frame))
    freq, level = det.result()
    assert list(freq) == [31, 62, 125, 250, 500, 1000, 2000, 4000, 8000, 16000]
    assert max(level) == level[5] == -15  # the left tone's RMS, in its own band


def test_short_term_loudness_follows_the_level():
    rate = 16000
    t = np.arange(8 * rate) / rate
    tone = np.sin(2 * np.pi * 1000 * t) * np.where(t < 4, 3000, 30000)
    times, lufs = tqeqdrc.short_term_loudness(np.round(tone).astype(np.int16)[:, None], rate, hop_s=1.0)
    assert list(times) == [1.0, 2.0, 3.0, 4.0, 5.0, 6.0, 7.0, 8.0]
    assert abs(lufs[-1] - lufs[0] - 20.0) < 0.5
    assert np.all(tqeqdrc.short_term_loudness(np.zeros((rate * 4, 1), np.int16), rate)[1] == -1000.0)
