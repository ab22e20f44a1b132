// Level detector: band selectivity, rise/hold/decay ballistics, retuning, the result
// record and inputs that must not take it outside its buffers.
#include <cmath>
#include <regex>
#include <vector>

#include "meters/level_detector.h"
#include "support/test_support.h"

namespace {

constexpr int kFs = 48000;
constexpr int kFrame = 480;  // 10 ms

// Interleaved int16 frames of a sine on channel 0 and `other` on the rest.
struct Feeder {
    int channels;
    int clock = 0;
    explicit Feeder(int ch) : channels(ch) {}

    void run(LevelDetectorState *st, double ms, float freq, float amp, int frameLen = kFrame, int16_t other = 0)
    {
        const int frames = static_cast<int>(ms * kFs / 1000.0 / frameLen + 0.5);
        std::vector<int16_t> pcm(static_cast<size_t>(frameLen * channels));
        for (int f = 0; f < frames; f++) {
            std::vector<float> s = eqdrc_test::sine(frameLen, freq, kFs, amp, clock);
            clock += frameLen;
            for (int i = 0; i < frameLen; i++)
                for (int c = 0; c < channels; c++)
                    pcm[static_cast<size_t>(i * channels + c)] =
                        c == 0 ? static_cast<int16_t>(std::lrint(s[i])) : other;
            EXPECT_EQ(LevelDetector_Process(st, pcm.data(), frameLen), frameLen);
        }
    }
};

LevelDetectorState *quiet_init(int bits = 16, int channels = 1, int frameLen = kFrame)
{
    LevelDetectorState *st = nullptr;
    eqdrc_test::capture_stderr([&] { st = LevelDetector_Init(bits, kFs, channels, frameLen); });
    return st;
}

void quiet_set(LevelDetectorState *st, const float *bands, float rise, float hold, float decay)
{
    eqdrc_test::capture_stderr([&] { LevelDetector_SetPara(st, bands, rise, hold, decay); });
}

int loudest_band(const LevelDetectorState *st)
{
    int best = 0;
    for (int b = 1; b < eqdrc::kLevelBands; b++)
        if (st->bandLevelDb[b] > st->bandLevelDb[best])
            best = b;
    return best;
}

// ---------------------------------------------------------------------------------

struct BandCase {
    float freq;
    int band;
};

class LevelDetectorBands : public testing::TestWithParam<BandCase> {};

// A tone lands in its own band; at a band-pass centre it reads its true power
// (-6 dBFS peak: -9.03 dB mean power, less the frameLen/(frameLen+1) scaling).
TEST_P(LevelDetectorBands, ToneIsLoudestInItsBand)
{
    const BandCase c = GetParam();
    LevelDetectorState *st = quiet_init();
    Feeder(1).run(st, 2000, c.freq, 16384.0f);
    EXPECT_EQ(loudest_band(st), c.band);
    if (c.band >= 1 && c.band <= 8)
        EXPECT_NEAR(st->bandLevelDb[c.band], -9.03 - 10.0 * std::log10((kFrame + 1.0) / kFrame), 0.05);
    LevelDetector_Destroy(st);
}

INSTANTIATE_TEST_SUITE_P(DefaultBands, LevelDetectorBands,
                         testing::Values(BandCase{15.0f, 0}, BandCase{62.0f, 1}, BandCase{125.0f, 2},
                                         BandCase{250.0f, 3}, BandCase{500.0f, 4}, BandCase{1000.0f, 5},
                                         BandCase{2000.0f, 6}, BandCase{4000.0f, 7}, BandCase{8000.0f, 8},
                                         BandCase{20000.0f, 9}));

TEST(LevelDetectorBandsSetup, SilenceReadsMinusNinetyAtEveryDepth)
{
    for (int bits : {16, 24, 32, 20}) {
        LevelDetectorState *st = quiet_init(bits);
        Feeder(1).run(st, 500, 1000.0f, 0.0f);
        LevelDetectorResult res;
        LevelDetector_GetRes(st, &res);
        const int expected = bits == 16 ? -90 : bits == 24 ? -144 : -192;
        for (int b = 0; b < eqdrc::kLevelBands; b++)
            EXPECT_EQ(res.level[b], expected) << "bits " << bits << " band " << b;
        LevelDetector_Destroy(st);
    }
}

TEST(LevelDetectorBandsSetup, OnlyTheFirstInterleavedChannelIsMeasured)
{
    LevelDetectorState *mono = quiet_init(16, 1);
    LevelDetectorState *stereo = quiet_init(16, 2);
    Feeder(1).run(mono, 500, 1000.0f, 8000.0f);
    Feeder(2).run(stereo, 500, 1000.0f, 8000.0f, kFrame, 30000);  // loud DC on the right
    for (int b = 0; b < eqdrc::kLevelBands; b++)
        EXPECT_TRUE(eqdrc_test::same_bits(mono->bandLevelDb[b], stereo->bandLevelDb[b])) << "band " << b;
    LevelDetector_Destroy(mono);
    LevelDetector_Destroy(stereo);
}

TEST(LevelDetectorBandsSetup, CreationPrintsTheBuildBanner)
{
    LevelDetectorState *st = nullptr;
    const std::string err = eqdrc_test::capture_stderr([&] { st = LevelDetector_Init(16, kFs, 1, kFrame); });
    EXPECT_TRUE(std::regex_match(err, std::regex("LOG \\(LevelDetector_Init\\(\\): ,117\\), "
                                                 "TQ_LevelDetector-VERSION_1\\.0\\.0:\\[[0-9]{4}-[A-Z][a-z]{2}-"
                                                 "[0-9]{1,2}:[0-9]{2}:[0-9]{2}:[0-9]{2}\\]\n\n")))
        << err;
    LevelDetector_Destroy(st);
}

// ---------------------------------------------------------------------------------

// 10 %-90 % times: after `rmstc` ms of a steady tone the power is within 1 - e^-2.2 of
// its final value (-0.51 dB); after `decay` ms of silence it has lost e^-2.2 (-9.55 dB).
TEST(LevelDetectorBallistics, RiseAndDecayFollowTheirTimeConstants)
{
    LevelDetectorState *st = quiet_init();
    quiet_set(st, nullptr, 300.0f, 0.0f, 500.0f);
    Feeder feed(1);
    feed.run(st, 300, 1000.0f, 16384.0f);
    const float afterRise = st->bandLevelDb[5];
    feed.run(st, 3000, 1000.0f, 16384.0f);
    const float steady = st->bandLevelDb[5];
    EXPECT_NEAR(afterRise - steady, 10.0 * std::log10(1.0 - std::exp(-2.2)), 0.05);

    feed.run(st, 500, 1000.0f, 0.0f);
    EXPECT_NEAR(st->bandLevelDb[5] - steady, -22.0 / std::log(10.0), 0.1);
    LevelDetector_Destroy(st);
}

TEST(LevelDetectorBallistics, HoldDelaysTheDecayByTheHoldTime)
{
    for (float holdMs : {0.0f, 100.0f}) {
        LevelDetectorState *st = quiet_init();
        quiet_set(st, nullptr, 50.0f, holdMs, 200.0f);
        Feeder feed(1);
        feed.run(st, 1000, 1000.0f, 16384.0f);
        EXPECT_EQ(st->holdCounter[5], st->holdSamples);
        const float held = st->bandLevelDb[5];
        // Each silent frame uses 10 ms of hold; the frame that exhausts it decays.
        const int heldFrames = static_cast<int>(holdMs / 10.0f) - 1;
        for (int f = 0; f < heldFrames; f++) {
            feed.run(st, 10, 1000.0f, 0.0f);
            EXPECT_EQ(st->bandLevelDb[5], held) << "hold " << holdMs << " frame " << f;
        }
        feed.run(st, 10, 1000.0f, 0.0f);
        EXPECT_LT(st->bandLevelDb[5], held - 0.3f) << "hold " << holdMs;
        LevelDetector_Destroy(st);
    }
}

TEST(LevelDetectorBallistics, LongerCallsStillDivideByTheCreationLength)
{
    LevelDetectorState *single = quiet_init();
    LevelDetectorState *twice = quiet_init();
    quiet_set(single, nullptr, 1.0f, 0.0f, 1.0f);
    quiet_set(twice, nullptr, 1.0f, 0.0f, 1.0f);
    Feeder(1).run(single, 500, 1000.0f, 8000.0f, kFrame);
    Feeder(1).run(twice, 500, 1000.0f, 8000.0f, 2 * kFrame);
    EXPECT_NEAR(twice->bandLevelDb[5] - single->bandLevelDb[5], 10.0 * std::log10(2.0), 0.05);
    LevelDetector_Destroy(single);
    LevelDetector_Destroy(twice);
}

// ---------------------------------------------------------------------------------

TEST(LevelDetectorRetune, NullBandTableChangesOnlyTimesAndClearsBallistics)
{
    LevelDetectorState *st = quiet_init();
    Feeder feed(1);
    feed.run(st, 500, 1000.0f, 16384.0f);
    std::vector<float> coeffs(st->bandCoeffs, st->bandCoeffs + eqdrc::kLevelBands * 5);
    const float z1 = st->bandState[10];
    const std::string err = eqdrc_test::capture_stderr(
        [&] { EXPECT_EQ(LevelDetector_SetPara(st, nullptr, 100.0f, 20.5f, 300.0f), kFrame); });
    EXPECT_EQ(err, "LOG (LevelDetector_SetPara(): ,245), rmstc is 100.000000, hold_time is 20.500000, "
                   "decay_time 300.000000\n");
    EXPECT_EQ(st->holdSamples, 984);  // 20.5 ms at 48 kHz, truncated
    EXPECT_TRUE(eqdrc_test::same_bits(std::vector<float>(st->bandCoeffs, st->bandCoeffs + 50), coeffs));
    EXPECT_EQ(st->bandState[10], z1);  // filter memories kept
    for (int b = 0; b < eqdrc::kLevelBands; b++) {
        EXPECT_EQ(st->bandPower[b], 0.0f);
        EXPECT_EQ(st->holdCounter[b], 0);
    }
    LevelDetectorResult res;
    LevelDetector_GetRes(st, &res);
    const int16_t defaults[10] = {31, 62, 125, 250, 500, 1000, 2000, 4000, 8000, 16000};
    EXPECT_EQ(std::vector<int16_t>(res.freq, res.freq + 10), std::vector<int16_t>(defaults, defaults + 10));
    LevelDetector_Destroy(st);
}

TEST(LevelDetectorRetune, ResultTruncatesTowardZeroAndKeepsTheLowSixteenBits)
{
    LevelDetectorState *st = quiet_init();
    float bands[20];
    for (int b = 0; b < 10; b++) {
        bands[2 * b] = 1000.0f;
        bands[2 * b + 1] = 1.0f;
    }
    bands[0] = 40000.9f;  // far above the int16 range
    bands[2] = 123.9f;
    quiet_set(st, bands, 200.0f, 0.0f, 200.0f);
    st->bandLevelDb[3] = -9.9f;
    st->bandLevelDb[4] = 70000.0f;
    LevelDetectorResult res;
    EXPECT_EQ(LevelDetector_GetRes(st, &res), kFrame);
    EXPECT_EQ(res.freq[0], static_cast<int16_t>(40000 - 65536));
    EXPECT_EQ(res.freq[1], 123);
    EXPECT_EQ(res.level[3], -9);
    EXPECT_EQ(res.level[4], static_cast<int16_t>(70000 - 65536));
    LevelDetector_Destroy(st);
    EXPECT_EQ(LevelDetector_Destroy(nullptr), -3);
}

// ---------------------------------------------------------------------------------

// Strides of zero or less measure the buffer's first sample instead of reading before
// it; negative call lengths read nothing; odd creation lengths and times only give
// odd numbers.
TEST(LevelDetectorMemorySafety, DegenerateStridesLengthsAndTimesStayInsideBuffers)
{
    const float nan = std::nanf("");
    for (int channels : {0, -2}) {
        for (int frameLen : {kFrame, 0, -1, -480}) {
            LevelDetectorState *st = quiet_init(16, channels, frameLen);
            quiet_set(st, nullptr, nan, nan, -5.0f);
            EXPECT_EQ(st->holdSamples, 0);
            std::vector<int16_t> pcm(kFrame, 1000);
            EXPECT_EQ(LevelDetector_Process(st, pcm.data(), kFrame), kFrame);
            EXPECT_EQ(LevelDetector_Process(st, pcm.data(), -7), -7);
            LevelDetectorResult res;
            LevelDetector_GetRes(st, &res);
            LevelDetector_Destroy(st);
        }
    }
}

}  // namespace
