// Auto gain: steering towards the target, its caps, live retuning and misuse.
#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

#include "enhance/auto_gain.h"
#include "support/test_support.h"

namespace {

using eqdrc_test::Planar;

constexpr int kFs = 48000;
constexpr int kFrame = 768;

// target (LUFS), attack, release, window, step (ms)
using Section = std::array<float, 5>;

using eqdrc_test::amplitude;

// Runs a stereo sine through the stage in place for `seconds`, feeding the output to
// `meter` when given; reports the largest gain and output peak seen.
struct RunResult {
    double maxRatio = 0.0;
    float peakOut = 0.0f;
};

RunResult run_sine(AutoGainState *st, double seconds, float amp, int *clock, Ebur128State *meter = nullptr)
{
    RunResult r;
    Planar buf(2, kFrame);
    const int frames = static_cast<int>(seconds * kFs / kFrame);
    for (int f = 0; f < frames; f++) {
        const std::vector<float> s = eqdrc_test::sine(kFrame, 997.0f, kFs, amp, *clock);
        *clock += kFrame;
        std::copy(s.begin(), s.end(), buf.data[0].begin());
        std::copy(s.begin(), s.end(), buf.data[1].begin());
        AutoGain_Process(st, buf.ptrs(), buf.ptrs(), kFrame);
        for (int i = 0; i < kFrame; i++) {
            if (s[i] != 0.0f)
                r.maxRatio = std::max(r.maxRatio, static_cast<double>(buf.data[0][i]) / s[i]);
            r.peakOut = std::max(r.peakOut, std::fabs(buf.data[0][i]));
        }
        if (meter != nullptr)
            ebur128_addframes(meter, buf.ptrs(), kFrame);
    }
    return r;
}

// ---------------------------------------------------------------------------------

struct SteerCase {
    float targetLufs;
    double inputDbfs;
};

class AutoGainSteering : public testing::TestWithParam<SteerCase> {};

// Quiet programmes are raised and loud ones lowered (with no lower bound) to the target.
TEST_P(AutoGainSteering, ProgrammeIsBroughtToTheTarget)
{
    const SteerCase c = GetParam();
    const Section sec{c.targetLufs, 50.0f, 50.0f, 400.0f, 100.0f};
    AutoGainState *st = AutoGain_Init(sec.data(), 16, kFs, 2, kFrame);
    int clock = 0;
    run_sine(st, 4.0, amplitude(c.inputDbfs), &clock);  // settle
    Ebur128State *out = ebur128_init(16, kFs, 2, 400, 100);
    run_sine(st, 2.0, amplitude(c.inputDbfs), &clock, out);
    EXPECT_NEAR(ebur128_gatedloudness(out), c.targetLufs, 0.3);
    ebur128_destroy(out);
    AutoGain_Destroy(st);
}

INSTANTIATE_TEST_SUITE_P(Levels, AutoGainSteering,
                         testing::Values(SteerCase{-23.0f, -35.0}, SteerCase{-40.0f, -6.0}));

TEST(AutoGainLimits, GainNeverExceedsTwentyDecibels)
{
    // Target 37 LU above the programme: the target gain is exactly 10.
    const Section sec{-23.0f, 10.0f, 500.0f, 400.0f, 100.0f};
    AutoGainState *st = AutoGain_Init(sec.data(), 16, kFs, 2, kFrame);
    int clock = 0;
    const RunResult r = run_sine(st, 5.0, amplitude(-60.0), &clock);
    EXPECT_EQ(st->targetGain, 10.0f);
    EXPECT_LE(r.maxRatio, 10.0 * (1.0 + 1e-4));  // the ramp's running sum rounds
    EXPECT_GT(r.maxRatio, 9.9);
    AutoGain_Destroy(st);
}

TEST(AutoGainLimits, PeakCapKeepsTheOutputWithinFullScale)
{
    // Asks for far more gain than the -6 dBFS peaks allow: the cap (2.0) wins.
    const Section sec{0.0f, 10.0f, 500.0f, 400.0f, 100.0f};
    AutoGainState *st = AutoGain_Init(sec.data(), 16, kFs, 2, kFrame);
    int clock = 0;
    const RunResult r = run_sine(st, 4.0, amplitude(-6.0), &clock);
    EXPECT_LE(r.peakOut, 32768.0f * (1.0f + 1e-4f));  // up to the ramp's rounding
    EXPECT_GT(r.peakOut, 32768.0f * 0.99f);
    EXPECT_LT(st->targetGain, 2.01f);  // the cap is stored as the target
    AutoGain_Destroy(st);
}

TEST(AutoGainLimits, ProgrammeBelowTheGateKeepsUnityGainBitForBit)
{
    const Section sec{-23.0f, 50.0f, 500.0f, 400.0f, 100.0f};
    AutoGainState *st = AutoGain_Init(sec.data(), 16, kFs, 2, kFrame);
    int clock = 0;
    const RunResult r = run_sine(st, 3.0, amplitude(-80.0), &clock);
    EXPECT_EQ(r.maxRatio, 1.0);
    EXPECT_EQ(st->currentGain, 1.0f);
    AutoGain_Destroy(st);
}

// ---------------------------------------------------------------------------------

TEST(AutoGainRetune, UnchangedWindowAndStepKeepTheMeterAndGains)
{
    const Section sec{-23.0f, 50.0f, 500.0f, 400.0f, 100.0f};
    AutoGainState *st = AutoGain_Init(sec.data(), 16, kFs, 2, kFrame);
    int clock = 0;
    run_sine(st, 2.0, amplitude(-35.0), &clock);
    Ebur128State *meter = st->meter;
    const int blocks = meter->historyCount;
    const float gain = st->currentGain;
    ASSERT_GT(blocks, 0);
    ASSERT_GT(gain, 1.5f);

    const Section retuned{-20.0f, 80.0f, 300.0f, 400.7f, 100.2f};  // same after truncation
    AutoGain_SetPara(st, retuned.data());
    EXPECT_EQ(st->meter, meter);
    EXPECT_EQ(st->meter->historyCount, blocks);
    EXPECT_EQ(st->currentGain, gain);
    EXPECT_EQ(st->targetLufs, -20.0f);
    AutoGain_Destroy(st);
}

TEST(AutoGainRetune, ChangedWindowOrStepRestartsMeterAndGains)
{
    const Section sec{-23.0f, 50.0f, 500.0f, 400.0f, 100.0f};
    for (const Section &retuned : {Section{-23.0f, 50.0f, 500.0f, 300.0f, 100.0f},
                                   Section{-23.0f, 50.0f, 500.0f, 400.0f, 50.0f}}) {
        AutoGainState *st = AutoGain_Init(sec.data(), 16, kFs, 2, kFrame);
        int clock = 0;
        run_sine(st, 2.0, amplitude(-35.0), &clock);
        const float smoothed = st->smoothedLufs;
        AutoGain_SetPara(st, retuned.data());
        EXPECT_EQ(st->meter->historyCount, 0);
        EXPECT_EQ(st->currentGain, 1.0f);
        EXPECT_EQ(st->targetGain, 1.0f);
        EXPECT_EQ(st->countdown, 0);
        EXPECT_EQ(st->stepSamples, static_cast<int>(retuned[4]) * kFs / 1000);
        EXPECT_EQ(st->smoothedLufs, smoothed);  // carried over on purpose
        AutoGain_Destroy(st);
    }
}

TEST(AutoGainRetune, ReadBackTruncatesWindowAndStep)
{
    const Section sec{-23.5f, 50.0f, 500.0f, 400.9f, 100.6f};
    AutoGainState *st = AutoGain_Init(sec.data(), 16, kFs, 2, kFrame);
    float back[5] = {};
    AutoGain_GetPara(st, back);
    EXPECT_EQ(std::vector<float>(back, back + 5), (std::vector<float>{-23.5f, 50.0f, 500.0f, 400.0f, 100.0f}));
    const std::string printed = eqdrc_test::capture_stderr([&] { AutoGain_PrintPara(st); });
    EXPECT_EQ(printed,
              "LOG (AutoGain_PrintPara(): ,225), AutoGain Param\n"
              "LOG (AutoGain_PrintPara(): ,226), =====================\n"
              "LOG (AutoGain_PrintPara(): ,227), target_i_dB:-23.50\n"
              "LOG (AutoGain_PrintPara(): ,228), attack_time:50.00\n"
              "LOG (AutoGain_PrintPara(): ,229), release_time:500.00\n"
              "LOG (AutoGain_PrintPara(): ,230), r128_wins:400\n"
              "LOG (AutoGain_PrintPara(): ,231), r128_steps:100\n");
    AutoGain_Destroy(st);
}

// ---------------------------------------------------------------------------------

using AutoGainMisuseDeathTest = testing::Test;

TEST(AutoGainMisuseDeathTest, FrameLongerThanTheStepEndsTheProcess)
{
    // A 16 ms step at 48 kHz is 768 samples: a 768-sample frame is accepted.
    const Section sec{-23.0f, 50.0f, 500.0f, 400.0f, 16.0f};
    AutoGainState *st = AutoGain_Init(sec.data(), 16, kFs, 2, 769);
    Planar buf(2, 769, 1000.0f);
    AutoGain_Process(st, buf.ptrs(), buf.ptrs(), 768);
    EXPECT_EXIT(AutoGain_Process(st, buf.ptrs(), buf.ptrs(), 769), testing::ExitedWithCode(255),
                "LOG \\(AutoGain_Process\\(\\): ,119\\), frameLen is greater than steps! 0\n\n");
    AutoGain_Destroy(st);
}

// Zero, negative or unreadable window and step words leave the meter with an empty
// ring; a zero step makes any frame too long, so these run with empty frames only.
TEST(AutoGainMisuse, DegenerateWindowsStayInsideTheirBuffers)
{
    const float nan = std::nanf("");
    for (float window : {0.0f, -400.0f, nan}) {
        const Section sec{-23.0f, 50.0f, 500.0f, window, 100.0f};
        AutoGainState *st = AutoGain_Init(sec.data(), 16, kFs, 2, kFrame);
        int clock = 0;
        run_sine(st, 1.0, amplitude(-20.0), &clock);
        AutoGain_Destroy(st);
    }
    const Section sec{-23.0f, 50.0f, 500.0f, 400.0f, nan};
    AutoGainState *st = AutoGain_Init(sec.data(), 16, kFs, 2, kFrame);
    EXPECT_EQ(st->stepMs, 0);
    Planar buf(2, kFrame, 1000.0f);
    AutoGain_Process(st, buf.ptrs(), buf.ptrs(), 0);
    AutoGain_Process(st, buf.ptrs(), buf.ptrs(), -5);
    EXPECT_EQ(buf.data[0][0], 1000.0f);
    AutoGain_Destroy(st);
}

}  // namespace
