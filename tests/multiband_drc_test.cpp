// Multi-band compressor: settling to its curve, the table ends, live retuning, read-back,
// messages and misuse.
#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "support/test_support.h"

namespace {

using eqdrc_test::Planar;

constexpr int kFs = 48000;
constexpr int kFrame = 768;
constexpr int kGroups[4] = {10, 70, 30, 50};  // band slots 0..3: low, high, middle 1, middle 2

struct Band {
    float freqStart, freqEnd, gainDb, enable, compressStart, expandEnd, noiseThreshold, maxGain, maxPeak, attackMs,
        releaseMs, holdMs;
};

// Low band below 2 kHz compressing 4:1 above -40 dBFS to -30 dBFS at full scale, so a
// -12 dBFS level is taken down 21 dB; 5 ms attack, 200 ms release.
constexpr Band kLowCompressor{0, 2000, 0, 1, -40, -60, -70, 0, -30, 5, 200, 0};
constexpr Band kHighPlain{4000, 20000, 0, 0, -40, -60, -70, 0, -30, 5, 200, 0};
constexpr Band kMidPlain{2000, 3000, 0, 0, -40, -60, -70, 0, -30, 5, 200, 0};

struct Section {
    std::vector<float> w = std::vector<float>(200, 0.0f);
    Section(int count0, int count1)
    {
        w[0] = static_cast<float>(count0);
        w[100] = static_cast<float>(count1);
        for (int blk = 0; blk < 2; blk++)
            set(blk, 0, kLowCompressor).set(blk, 1, kHighPlain).set(blk, 2, kMidPlain).set(blk, 3, kMidPlain);
    }
    Section &set(int blk, int slot, const Band &b)
    {
        float *g = &w[static_cast<size_t>(100 * blk + kGroups[slot])];
        const float v[12] = {b.freqStart,      b.freqEnd,  b.gainDb,  b.enable,   b.compressStart, b.expandEnd,
                             b.noiseThreshold, b.maxGain,  b.maxPeak, b.attackMs, b.releaseMs,     b.holdMs};
        std::copy(v, v + 12, g);
        return *this;
    }
    const float *data() const { return w.data(); }
};

using eqdrc_test::amplitude;
double db(double ratio) { return 20.0 * std::log10(ratio); }

// Feeds every channel the level `dc` (or a sine when `freq` > 0) for `samples` samples
// and returns each channel's output.
std::vector<std::vector<float>> run(MultiBandDRCState *st, int channels, int samples, float dc, float freq = 0.0f)
{
    std::vector<std::vector<float>> out(static_cast<size_t>(channels));
    for (int done = 0; done < samples; done += kFrame) {
        const int n = std::min(kFrame, samples - done);
        const std::vector<float> in = freq > 0.0f ? eqdrc_test::sine(n, freq, kFs, dc, done)
                                                  : std::vector<float>(static_cast<size_t>(n), dc);
        Planar buf(channels, n);
        for (auto &ch : buf.data)
            ch.assign(in.begin(), in.end());
        MultiBandDRC_Process(st, buf.ptrs(), buf.ptrs(), n);
        for (size_t c = 0; c < out.size(); c++)
            out[c].insert(out[c].end(), buf.data[c].begin(), buf.data[c].end());
    }
    return out;
}

void adjust(MultiBandDRCState *st, int ch, int band, const Band &b)
{
    MultiBandDRC_DRC_AdjustPara(st, ch, band, static_cast<int>(b.enable), b.gainDb, b.compressStart, b.expandEnd,
                                b.noiseThreshold, b.maxGain, b.maxPeak, b.attackMs, b.releaseMs, b.holdMs);
}

// The same band with a 4:3 slope to -10 dBFS: -12 dBFS is taken down 7 dB.
Band milder() { Band b = kLowCompressor; b.maxPeak = -10; return b; }

// ---------------------------------------------------------------------------------

TEST(CompressorDynamics, SteadyLevelSettlesToTheCurveGainWithinTheAttackTime)
{
    Section sec(2, 2);
    MultiBandDRCState *st = MultiBandDRC_Init(sec.data(), 16, kFs, 1, 0);
    const float a = amplitude(-12.0);
    EXPECT_NEAR(db(run(st, 1, 3 * kFs, a)[0].back() / a), -21.0, 0.2);

    // A milder curve raises the gain, and a rising gain follows the 5 ms attack time.
    adjust(st, 0, 0, milder());
    std::vector<float> out = run(st, 1, 1200, a)[0];
    EXPECT_LT(db(out[239] / a), -8.0);  // one time constant: still on its way
    EXPECT_NEAR(db(out[1199] / a), -7.0, 0.15);  // five: there
    MultiBandDRC_Destroy(st);
}

TEST(CompressorDynamics, LevelsOffTheTableReadItsEnds)
{
    // Expander below -40 dBFS (slope 1.6 through -50 dBFS), +6 dB make-up, compressor
    // above -20 dBFS to -6 dBFS.  The table starts at -54 dBFS, where the curve is
    // 2.4 dB down; at full scale it is 6 dB down.
    Section sec(2, 2);
    sec.set(0, 0, {0, 2000, 0, 1, -20, -40, -50, 6, -6, 1, 1, 0});
    const struct {
        float in;
        double gainDb;
    } cases[] = {{1.0f, -2.4}, {8.0f, -2.4}, {65536.0f, -6.0}};
    for (const auto &c : cases) {
        MultiBandDRCState *st = MultiBandDRC_Init(sec.data(), 16, kFs, 1, 0);
        EXPECT_NEAR(db(run(st, 1, kFs / 2, c.in)[0].back() / c.in), c.gainDb, 0.01) << c.in;
        MultiBandDRC_Destroy(st);
    }

    // Silence stays exactly silent: the detector's +1 keeps the logarithm finite.
    MultiBandDRCState *st = MultiBandDRC_Init(sec.data(), 16, kFs, 1, 0);
    const std::vector<float> silent = run(st, 1, kFrame, 0.0f)[0];
    for (float v : silent)
        ASSERT_EQ(v, 0.0f);
    MultiBandDRC_Destroy(st);
}

TEST(CompressorRetuning, SetParaWithTheSameBandCountsKeepsTheDetectorsAndGains)
{
    Section sec(2, 2);
    MultiBandDRCState *kept = MultiBandDRC_Init(sec.data(), 16, kFs, 1, 0);
    MultiBandDRCState *untouched = MultiBandDRC_Init(sec.data(), 16, kFs, 1, 0);
    const float a = amplitude(-12.0);
    run(kept, 1, 3 * kFs, a);
    run(untouched, 1, 3 * kFs, a);
    MultiBandDRC_SetPara(kept, sec.data());
    MultiBandDRCState *fresh = MultiBandDRC_Init(sec.data(), 16, kFs, 1, 0);

    const std::vector<float> k = run(kept, 1, 144, a)[0], u = run(untouched, 1, 144, a)[0], f = run(fresh, 1, 144, a)[0];
    EXPECT_GT(k[0], 5.0f * u[0]);                // the crossover restarts: the high band sees a new edge
    EXPECT_NEAR(db(k[143] / u[143]), 0.0, 0.1);  // 3 ms on: the settled gain carried over
    EXPECT_GT(std::fabs(db(f[143] / u[143])), 3.0);  // a new state is still far from it
    for (MultiBandDRCState *st : {kept, untouched, fresh})
        MultiBandDRC_Destroy(st);
}

TEST(CompressorRetuning, SetParaFrom4To2BandsRestartsTheDetectorsButKeepsTheGains)
{
    // Settle at -21 dB with fast times, then switch to 1 s times so the gain barely
    // moves in the 30 ms watched.
    Section four(4, 4), two(2, 2), twoSlow(2, 2);
    Band slow = kLowCompressor;
    slow.attackMs = slow.releaseMs = 1000;
    twoSlow.set(0, 0, slow);
    MultiBandDRCState *shrunk = MultiBandDRC_Init(four.data(), 16, kFs, 1, 0);
    MultiBandDRCState *same = MultiBandDRC_Init(two.data(), 16, kFs, 1, 0);
    const float a = amplitude(-12.0);
    run(shrunk, 1, 3 * kFs, a);
    run(same, 1, 3 * kFs, a);
    MultiBandDRC_SetPara(shrunk, twoSlow.data());
    MultiBandDRC_SetPara(same, twoSlow.data());

    const std::vector<float> s = run(shrunk, 1, 1440, a)[0], k = run(same, 1, 1440, a)[0];
    EXPECT_NEAR(db(s[95] / k[95]), 0.0, 0.5);  // the smoothed gain was carried over
    // The detector restarts from zero, so the gain creeps towards the low-level entry.
    EXPECT_GT(db(s[1439] / k[1439]), 1.0);

    std::vector<float> back(200, 0.0f);
    MultiBandDRC_GetPara(shrunk, back.data());
    EXPECT_EQ(back[0], 2.0f);
    MultiBandDRC_Destroy(shrunk);
    MultiBandDRC_Destroy(same);
}

TEST(CompressorRetuning, DrcAdjustParaRetunesOneBandOfOneChannelOrOfAllWhenLinked)
{
    Section sec(2, 2);
    const float a = amplitude(-12.0);
    MultiBandDRCState *st = MultiBandDRC_Init(sec.data(), 16, kFs, 2, 0);
    MultiBandDRCState *ref = MultiBandDRC_Init(sec.data(), 16, kFs, 2, 0);
    run(st, 2, kFs, a);
    run(ref, 2, kFs, a);
    adjust(st, 1, 0, milder());
    auto out = run(st, 2, 1440, a), expected = run(ref, 2, 1440, a);
    EXPECT_TRUE(eqdrc_test::same_bits(out[0], expected[0]));
    EXPECT_NEAR(db(out[1].back() / a), -7.0, 0.15);

    // Linked, channel 0's call retunes channel 1 as well.
    MultiBandDRCState *linked = MultiBandDRC_Init(sec.data(), 16, kFs, 2, 1);
    run(linked, 2, kFs, a);
    adjust(linked, 0, 0, milder());
    EXPECT_NEAR(db(run(linked, 2, 1440, a)[1].back() / a), -7.0, 0.15);
    for (MultiBandDRCState *s : {st, ref, linked})
        MultiBandDRC_Destroy(s);
}

TEST(CompressorReadBack, GetParaWritesEverythingButGainAndEnable)
{
    Section sec(3, 2);
    sec.set(0, 2, {2000, 3000, 4.5f, 1, -30, -45, -55, 2, -20, 12.7f, 99.9f, 33.3f});
    MultiBandDRCState *st = MultiBandDRC_Init(sec.data(), 16, kFs, 2, 1);
    std::vector<float> back(200, -999.0f);
    MultiBandDRC_GetPara(st, back.data());
    // Linked: both channels took block 0, and each is written to its own block.
    for (int blk = 0; blk < 2; blk++) {
        const float *b = back.data() + 100 * blk;
        EXPECT_EQ(b[0], 3.0f);
        for (int slot = 0; slot < 3; slot++) {
            const float *got = b + kGroups[slot];
            const float *want = sec.data() + kGroups[slot];
            for (int w : {0, 1, 4, 5, 6, 7, 8})
                EXPECT_EQ(got[w], want[w]) << "block " << blk << " slot " << slot << " word " << w;
            for (int w : {9, 10, 11})
                EXPECT_EQ(got[w], std::trunc(want[w])) << "block " << blk << " slot " << slot << " word " << w;
            EXPECT_EQ(got[2], -999.0f);
            EXPECT_EQ(got[3], -999.0f);
        }
        EXPECT_EQ(b[kGroups[3]], -999.0f);  // three bands: the second middle group is left
    }
    MultiBandDRC_Destroy(st);
}

TEST(CompressorMessages, WarningsCarryTheirFunctionAndLine)
{
    Section sec(2, 2);
    sec.set(1, 1, {4000, 20000, 0, 1, -40, -30, -70, 0, -30, 5, 200, 0});  // expand_end above compress_start
    MultiBandDRCState *st = nullptr;
    std::string err = eqdrc_test::capture_stderr([&] { st = MultiBandDRC_Init(sec.data(), 16, kFs, 2, 0); });
    EXPECT_EQ(err, "LOG (MultiBandDRC_Init(): ,171), wrong param for MultiDRC, please check again\n\n");
    err = eqdrc_test::capture_stderr([&] { MultiBandDRC_SetPara(st, sec.data()); });
    EXPECT_EQ(err, "LOG (MultiBandDRC_SetPara(): ,391), wrong param for MultiDRC, please check again\n\n");

    // Band 4 of channel 0 is band 0 of channel 1: out of bound, and written all the same.
    Band b = kLowCompressor;
    b.maxPeak = -50;
    err = eqdrc_test::capture_stderr([&] { adjust(st, 0, 4, b); });
    EXPECT_EQ(err, "LOG (MultiBandDRC_DRC_AdjustPara(): ,535), i_band out of bound\n"
                   "LOG (MultiBandDRC_DRC_AdjustPara(): ,600), wrong param for MultiDRC, please check again\n\n");
    std::vector<float> back(200, 0.0f);
    MultiBandDRC_GetPara(st, back.data());
    EXPECT_EQ(back[100 + 10 + 8], -50.0f);

    err = eqdrc_test::capture_stderr([&] { MultiBandDRC_PrintPara(st); });
    EXPECT_EQ(err.rfind("LOG (MultiBandDRC_PrintPara(): ,460), MultiBandDRC Param\n", 0), 0u);
    EXPECT_NE(err.find("LOG (MultiBandDRC_PrintPara(): ,464), crossover_band:2\n"
                       "LOG (MultiBandDRC_PrintPara(): ,467), ---- band:0 ----\n"
                       "LOG (MultiBandDRC_PrintPara(): ,468), freq_start:0.00\n"
                       "LOG (MultiBandDRC_PrintPara(): ,469), freq_end:2000.00\n"),
              std::string::npos);
    EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 2 + 2 * (2 + 2 * 13));  // title, channels, bands
    MultiBandDRC_Destroy(st);
}

// A state built without a section outputs silence and takes a section later.
TEST(CompressorMisuse, NoSectionIsSilentUntilOneIsSet)
{
    Section sec(2, 2);
    MultiBandDRCState *st = MultiBandDRC_Init(nullptr, 16, kFs, 2, 0);
    eqdrc_test::capture_stderr([&] {
        MultiBandDRC_Crossover_AdjustPara(st, 0, 100, 5000, 100, 500, 500, 5000);
        adjust(st, 1, 0, kLowCompressor);
    });
    const std::vector<float> silent = run(st, 2, kFrame, 1000.0f)[1];
    for (float v : silent)
        ASSERT_EQ(v, 0.0f);
    MultiBandDRC_SetPara(st, sec.data());
    EXPECT_GT(run(st, 2, kFrame, 1000.0f)[1].back(), 100.0f);
    MultiBandDRC_Destroy(st);
}

// The rest runs clean under AddressSanitizer: band counts and indices that would
// reach past the band arrays keep their in-bounds results.
TEST(CompressorMisuse, BandCountsAboveFourSumTheFirstThreeBands)
{
    const float a = amplitude(-12.0);
    Section three(3, 3);
    MultiBandDRCState *ref = MultiBandDRC_Init(three.data(), 16, kFs, 1, 0);
    const std::vector<float> expected = run(ref, 1, kFs / 4, a, 997.0f)[0];
    MultiBandDRC_Destroy(ref);

    for (float count : {5.0f, 9.0f, 1e9f}) {
        Section sec(static_cast<int>(count), 3);
        sec.w[0] = count;
        MultiBandDRCState *st = nullptr;
        const std::string err =
            eqdrc_test::capture_stderr([&] { st = MultiBandDRC_Init(sec.data(), 16, kFs, 1, 0); });
        EXPECT_NE(err.find("LOG (MultiBandDRC_Init(): ,147), There is something wrong with crossover"),
                  std::string::npos);
        EXPECT_TRUE(eqdrc_test::same_bits(run(st, 1, kFs / 4, a, 997.0f)[0], expected)) << count;
        eqdrc_test::capture_stderr([&] {
            std::vector<float> back(200);
            MultiBandDRC_GetPara(st, back.data());
            MultiBandDRC_PrintPara(st);
        });
        MultiBandDRC_Destroy(st);
    }

    // Five bands on channel 1 would run past the last slot: channel 0 is unaffected.
    Section mixed(3, 5);
    MultiBandDRCState *st = nullptr;
    eqdrc_test::capture_stderr([&] { st = MultiBandDRC_Init(mixed.data(), 16, kFs, 2, 0); });
    const auto out = run(st, 2, kFs / 4, a, 997.0f);
    EXPECT_TRUE(eqdrc_test::same_bits(out[0], expected));
    EXPECT_TRUE(eqdrc_test::same_bits(out[1], expected));
    MultiBandDRC_Destroy(st);
}

TEST(CompressorMisuse, BandCountsOfOneOrLess)
{
    // One band keeps the low band only: a 16 kHz tone is gone.  None is silence.
    for (int count : {1, 0, -3}) {
        Section sec(count, count);
        MultiBandDRCState *st = MultiBandDRC_Init(sec.data(), 16, kFs, 2, 0);
        const std::vector<float> out = run(st, 2, kFs / 10, amplitude(-6.0), 16000.0f)[1];
        if (count == 1)
            EXPECT_LT(eqdrc_test::rms_db(out.data() + out.size() / 2, static_cast<int>(out.size() / 2)), -60.0);
        else
            for (float v : out)
                ASSERT_EQ(v, 0.0f) << count;
        MultiBandDRC_Destroy(st);
    }
}

TEST(CompressorMisuse, RaisedBandCountsAndStrayIndices)
{
    Section two(2, 2), four(4, 4);
    MultiBandDRCState *st = MultiBandDRC_Init(two.data(), 16, kFs, 2, 0);
    run(st, 2, kFrame, 5000.0f, 440.0f);
    MultiBandDRC_SetPara(st, four.data());  // above the creation count
    for (const auto &ch : run(st, 2, kFs / 10, 5000.0f, 440.0f))
        for (float v : ch)
            ASSERT_TRUE(std::isfinite(v));

    eqdrc_test::capture_stderr([&] {
        for (int ch : {2, -1, 1000})
            MultiBandDRC_Crossover_AdjustPara(st, ch, 100, 5000, 100, 500, 500, 5000);
        for (int ch : {2, -1, 1000})
            adjust(st, ch, 0, kLowCompressor);
        for (int band : {8, 100, -100})
            adjust(st, 0, band, kLowCompressor);
    });
    // Channel 1's band -1 is channel 0's band 3.
    Band b = kLowCompressor;
    b.compressStart = -33;
    adjust(st, 1, -1, b);
    std::vector<float> back(200, 0.0f);
    MultiBandDRC_GetPara(st, back.data());
    EXPECT_EQ(back[50 + 4], -33.0f);
    for (const auto &ch : run(st, 2, kFrame, 5000.0f, 440.0f))
        for (float v : ch)
            ASSERT_TRUE(std::isfinite(v));
    MultiBandDRC_Destroy(st);

    // Adjusting a channel that was never built.
    MultiBandDRCState *mono = MultiBandDRC_Init(two.data(), 16, kFs, 1, 0);
    eqdrc_test::capture_stderr([&] {
        MultiBandDRC_Crossover_AdjustPara(mono, 1, 100, 5000, 100, 500, 500, 5000);
        adjust(mono, 1, 0, kLowCompressor);
    });
    MultiBandDRC_Destroy(mono);
}

}  // namespace
