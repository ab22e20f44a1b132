import numpy as np
import pytest

import tqeqdrc
from conftest import fbits, test_signal

DESIGNS = [(t, fs, fc, q, g)
           for t in range(8)
           for fs, fc in ((48000.0, 1000.0), (44100.0, 63.5), (16000.0, 7900.0), (48000.0, 23999.0))
           for q, g in ((0.707, 6.0), (0.005, -25.0), (17.0, 0.1), (2.5, -3.3))]


@pytest.mark.parametrize("ftype", range(8))
def test_designer_coefficients_equal_the_c_call(ftype, cref):
    for t, fs, fc, q, g in [d for d in DESIGNS if d[0] == ftype]:
        got = tqeqdrc.design(tqeqdrc.FILTER_TYPES[t], fs, fc, q, g)
        expected = cref("design", t, fbits(fs), fbits(fc), fbits(q), fbits(g))
        assert [fbits(c) for c in got] == expected, (t, fs, fc, q, g)


def test_gain_curves_equal_the_c_call(cref):
    curve = (-60.0, -45.0, -20.0, 6.0, -3.0)
    for x in (-100.0, -64.0, -61.5, -50.0, -20.0, -18.0, -0.5, 0.0, 7.25):
        assert fbits(tqeqdrc.table_caculate(4, x, *curve)) == cref("table", 4, fbits(x), *map(fbits, curve))[0]
        assert fbits(tqeqdrc.max_table_caculate(12, x, -3.0)) == cref("maxtable", 12, fbits(x), fbits(-3.0))[0]
    xs = np.array([-30.0, -10.0], dtype=np.float32)
    assert tqeqdrc.table_caculate(4, xs, *curve).shape == (2,)
    assert tqeqdrc.table_caculate(0, -10.0, *curve) == 0.0


def test_table_search_takes_the_nearest_entry_and_clamps():
    table = np.arange(201, dtype=np.float32)
    assert tqeqdrc.table_search(200, table, -80.0, -60.0, 2.0) == 0.0
    assert tqeqdrc.table_search(200, table, 100.0, -60.0, 2.0) == 200.0
    assert tqeqdrc.table_search(200, table, -50.0, -60.0, 2.0) == 20.0
    with pytest.raises(ValueError):
        tqeqdrc.table_search(200, table[:10], -50.0, -60.0, 2.0)


@pytest.mark.parametrize("bits, rate, channels, window, step, frame", [
    (16, 48000, 2, 400, 100, 480),
    (24, 44100, 1, 700, 50, 441),
])
def test_loudness_meter_equals_the_c_call(bits, rate, channels, window, step, frame, cref, tmp_path):
    pcm = test_signal(1.5, rate=rate, channels=channels, seed=3)
    raw = tmp_path / "in.raw"
    raw.write_bytes(pcm.astype("<i2").tobytes())
    expected = cref("meter", bits, rate, channels, window, step, frame, raw)
    meter = tqeqdrc.LoudnessMeter(bits, rate, channels, window, step)
    got = []
    for start in range(0, len(pcm) - frame + 1, frame):
        meter.add(pcm[start:start + frame].T.astype(np.float32))
        got.append(fbits(meter.loudness()))
    meter.close()
    assert got == expected
    assert expected[-1] != fbits(-1000.0)


def test_short_term_loudness_follows_the_level():
    rate = 16000
    t = np.arange(8 * rate) / rate
    tone = np.sin(2 * np.pi * 1000 * t) * np.where(t < 4, 3000, 30000)
    pcm = np.round(tone).astype(np.int16)[:, None]
    times, lufs = tqeqdrc.short_term_loudness(pcm, rate, hop_s=1.0)
    assert list(times) == [1.0, 2.0, 3.0, 4.0, 5.0, 6.0, 7.0, 8.0]
    assert abs(lufs[-1] - lufs[0] - 20.0) < 0.5
    silent = tqeqdrc.short_term_loudness(np.zeros((rate * 4, 1), np.int16), rate)[1]
    assert np.all(silent == -1000.0)


def test_level_detector_equals_the_c_call(cref, tmp_path):
    rate, channels, frame = 48000, 2, 256
    pcm = test_signal(0.5, rate=rate, channels=channels, seed=5)
    raw = tmp_path / "in.raw"
    raw.write_bytes(pcm.astype("<i2").tobytes())
    expected = cref("level", rate, channels, frame, raw)
    det = tqeqdrc.LevelDetector(16, rate, channels, frame)
    assert det.set_para(None, 100.0, 50.0, 300.0) == frame
    flat = pcm.reshape(-1)
    got = []
    for start in range(0, flat.size - frame * channels + 1, frame * channels):
        assert det.process(flat[start:start + frame * channels]) == frame
        freq, level = det.result()
        got.append(" ".join("%d %d" % (f, l) for f, l in zip(freq, level)))
    det.close()
    assert got == expected


def test_crossover_bands_sum_to_an_allpass():
    ir = tqeqdrc.crossover_impulse(48000, 2, [250, 4000, 250, 1000, 1000, 4000], 8192)
    assert ir.shape == (4, 8192)
    total = np.abs(np.fft.rfft(ir.sum(axis=0).astype(np.float64)))
    assert np.all(np.abs(20 * np.log10(total[10:])) < 3.0)
