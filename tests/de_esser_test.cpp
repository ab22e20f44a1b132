// De-esser: the band decision, fading and recovery, the shared band energy, the ramp,
// holds of one value, retuning, the read-back and misuse.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "enhance/de_esser.h"
#include "support/test_support.h"

namespace {

using eqdrc_test::Planar;

constexpr int kFs = 48000;
constexpr int kFrame = 768;
constexpr float kF0 = 6000.0f;

// Ten words: two channel blocks of five; words 2..4 of each are unused.
struct Section {
    float w[10] = {};
    Section(float f0, float threshold0, float threshold1)
    {
        w[0] = f0;
        w[1] = threshold0;
        w[5] = f0;
        w[6] = threshold1;
    }
};

using eqdrc_test::amplitude;

// Runs `frames` frames; channel c carries a sine of amps[c] at freq (0 for silence).
// Returns channel 0's output of the last frame.
std::vector<float> run(DeEsserState *st, int frames, float freq, std::vector<float> amps, int *clock,
                       int frameLen = kFrame)
{
    const int channels = static_cast<int>(amps.size());
    Planar buf(channels, frameLen);
    for (int f = 0; f < frames; f++) {
        for (int c = 0; c < channels; c++) {
            const std::vector<float> s = eqdrc_test::sine(frameLen, freq, kFs, amps[c], *clock);
            std::copy(s.begin(), s.end(), buf.data[c].begin());
        }
        *clock += frameLen;
        DeEsser_Process(st, buf.ptrs(), buf.ptrs(), frameLen);
    }
    return buf.data[0];
}

// ---------------------------------------------------------------------------------

TEST(DeEsserDecision, BandLevelIsComparedWithTheThresholdInDbfs)
{
    // A sine at f0 of -20 dBFS peak has a band level of about -23 dBFS.
    for (const auto &c : {std::pair<float, bool>{-24.0f, true}, {-22.0f, false}}) {
        const Section sec{kF0, c.first, c.first};
        DeEsserState *st = DeEsser_Init(sec.w, 16, kFs, 1, kFrame, 0);
        int clock = 0;
        run(st, 6, kF0, {amplitude(-20.0)}, &clock);
        if (c.second)
            EXPECT_LT(st->gain[0], 0.2f) << c.first;
        else
            EXPECT_GT(st->gain[0], 0.999f) << c.first;
        DeEsser_Destroy(st);
    }
}

TEST(DeEsserDecision, SilenceSitsAtMinusTwentyTimesLogFullScale)
{
    // 16-bit: -90.309 dBFS.  Only a threshold below that fades silence.
    for (const auto &c : {std::pair<float, bool>{-90.32f, true}, {-90.30f, false}}) {
        const Section sec{kF0, c.first, c.first};
        DeEsserState *st = DeEsser_Init(sec.w, 16, kFs, 1, kFrame, 0);
        int clock = 0;
        run(st, 3, kF0, {0.0f}, &clock);
        if (c.second)
            EXPECT_LT(st->gain[0], 0.5f) << c.first;
        else
            EXPECT_GT(st->gain[0], 0.999f) << c.first;
        DeEsser_Destroy(st);
    }
}

TEST(DeEsserFading, SibilantBandIsNotchedAndTheGainRecovers)
{
    const Section sec{kF0, -30.0f, -30.0f};
    DeEsserState *st = DeEsser_Init(sec.w, 16, kFs, 1, kFrame, 0);
    int clock = 0;
    const float amp = amplitude(-6.0);
    const std::vector<float> faded = run(st, 30, kF0, {amp}, &clock);
    EXPECT_GT(st->gain[0], 0.0f);  // geometric: never exactly 0
    EXPECT_LT(st->gain[0], 1e-3f);
    EXPECT_LT(eqdrc_test::rms_db(faded.data(), kFrame), -6.0 - 3.0 - 30.0);

    // Out of band the decision releases and the output returns to the dry input.
    const std::vector<float> dry = eqdrc_test::sine(kFrame, 500.0f, kFs, amp, clock + 59 * kFrame);
    const std::vector<float> recovered = run(st, 60, 500.0f, {amp}, &clock);
    EXPECT_GT(st->gain[0], 0.999f);
    double worst = 0.0;
    for (int i = 0; i < kFrame; i++)
        worst = std::max(worst, std::fabs(static_cast<double>(recovered[i]) - dry[i]));
    EXPECT_LT(worst, amp * 0.01);
    DeEsser_Destroy(st);
}

TEST(DeEsserFading, ChannelOneHearsChannelZerosBandButNotTheOtherWayRound)
{
    const Section sec{kF0, -30.0f, -30.0f};
    const float amp = amplitude(-6.0);

    DeEsserState *st = DeEsser_Init(sec.w, 16, kFs, 2, kFrame, 0);
    int clock = 0;
    run(st, 10, kF0, {amp, 0.0f}, &clock);
    EXPECT_LT(st->gain[0], 0.1f);
    EXPECT_LT(st->gain[1], 0.1f);  // silent, yet faded: the energy accumulates across channels
    DeEsser_Destroy(st);

    st = DeEsser_Init(sec.w, 16, kFs, 2, kFrame, 0);
    clock = 0;
    run(st, 10, kF0, {0.0f, amp}, &clock);
    EXPECT_GT(st->gain[0], 0.999f);  // channel 0 decides before channel 1 is measured
    EXPECT_LT(st->gain[1], 0.1f);
    DeEsser_Destroy(st);
}

TEST(DeEsserFading, RampIsSizedByTheCreationFrameLength)
{
    const Section sec{kF0, -30.0f, -30.0f};
    DeEsserState *st = DeEsser_Init(sec.w, 16, kFs, 1, kFrame, 0);
    const float attack = st->attackCoef;
    int clock = 0;
    // Half a frame ends the ramp half way, yet the next frame starts from the target.
    run(st, 1, kF0, {amplitude(-6.0)}, &clock, kFrame / 2);
    EXPECT_EQ(st->gain[0], attack);
    // A frame longer than at creation runs the ramp past the target and stays within
    // the caller's buffers.
    run(st, 1, kF0, {amplitude(-6.0)}, &clock, 2 * kFrame);
    EXPECT_EQ(st->gain[0], attack * attack);
    // An empty frame still takes the decision (on a zero band energy).
    run(st, 1, kF0, {0.0f}, &clock, 0);
    EXPECT_GT(st->gain[0], attack * attack);
    DeEsser_Destroy(st);
}

TEST(DeEsserSilence, HoldsAreCopiedOnceTheyRepeatAndGiveTheChannelLoopsBits)
{
    // The stereo frame runs both channels' filters in lanes and copies a repeating state
    // on a hold; an output buffer that overlaps the other channel's input sends the same
    // frame through the channel-by-channel loop, which steps every sample.
    for (float f0 : {kF0, 150.0f, 2500.0f, 11000.0f})
        for (float held : {0.0f, -0.0f, 37.0f})
            for (int frameLen : {kFrame, 96, 17}) {
                SCOPED_TRACE(testing::Message() << "f0 " << f0 << " held " << held << " frame " << frameLen);
                const Section sec{f0, -60.0f, -45.0f};
                const std::vector<float> in[2] = {eqdrc_test::bursts_and_holds(1, 900, held),
                                                  eqdrc_test::bursts_and_holds(2, 950, held)};
                DeEsserState *lanes = DeEsser_Init(sec.w, 16, kFs, 2, frameLen, 0);
                DeEsserState *steps = DeEsser_Init(sec.w, 16, kFs, 2, frameLen, 0);
                std::vector<float> got[2] = {in[0], in[1]}, want[2] = {in[0], in[1]};
                std::vector<float> spare(static_cast<size_t>(frameLen));
                bool denormalHeld = false;
                for (int at = 0; at < 9000; at += frameLen) {
                    const int n = std::min(frameLen, 9000 - at);
                    float *buf[2] = {got[0].data() + at, got[1].data() + at};
                    DeEsser_Process(lanes, buf, buf, n);
                    float *src[2] = {want[0].data() + at, want[1].data() + at};
                    float *dst[2] = {spare.data(), src[0]};  // channel 1 lands on channel 0's input
                    DeEsser_Process(steps, src, dst, n);
                    std::copy(src[0], src[0] + n, src[1]);
                    std::copy(spare.data(), spare.data() + n, src[0]);
                    denormalHeld |= std::fpclassify(lanes->notchState[0][0]) == FP_SUBNORMAL ||
                                    std::fpclassify(lanes->bandPassState[0][1]) == FP_SUBNORMAL;
                    ASSERT_EQ(std::memcmp(lanes, steps, sizeof(DeEsserState)), 0) << at;
                }
                for (int ch = 0; ch < 2; ch++)
                    ASSERT_TRUE(eqdrc_test::same_bits(got[ch], want[ch])) << ch;
                if (held == 0.0f && f0 == kF0)
                    EXPECT_TRUE(denormalHeld);
                DeEsser_Destroy(lanes);
                DeEsser_Destroy(steps);
            }
}

// ---------------------------------------------------------------------------------

TEST(DeEsserRetune, SetParaRestartsFiltersAndGain)
{
    const Section first{kF0, -30.0f, -40.0f};
    const Section other{4000.0f, -20.0f, -25.0f};
    DeEsserState *used = DeEsser_Init(first.w, 16, kFs, 2, kFrame, 0);
    int clock = 0;
    run(used, 8, 4000.0f, {amplitude(-6.0), amplitude(-10.0)}, &clock);
    DeEsser_SetPara(used, other.w);
    DeEsserState *fresh = DeEsser_Init(other.w, 16, kFs, 2, kFrame, 0);
    EXPECT_EQ(std::memcmp(used, fresh, sizeof(DeEsserState)), 0);  // all inline, so all compared
    DeEsser_Destroy(used);
    DeEsser_Destroy(fresh);
}

TEST(DeEsserRetune, LinkedChannelsReadChannelZerosWords)
{
    const Section sec{5000.0f, -35.0f, -12.0f};
    DeEsserState *st = DeEsser_Init(sec.w, 16, kFs, 2, kFrame, 1);
    EXPECT_EQ(st->f0Hz[1], 5000.0f);
    EXPECT_EQ(st->thresholdDb[1], -35.0f);
    DeEsser_Destroy(st);
}

TEST(DeEsserRetune, ReadBackTouchesOnlyWordsFiveAndSix)
{
    const Section sec{5000.0f, -35.0f, -12.0f};
    std::vector<float> back(10, 99.0f);

    DeEsserState *mono = DeEsser_Init(sec.w, 16, kFs, 1, kFrame, 0);
    DeEsser_GetPara(mono, back.data());
    EXPECT_EQ(back, (std::vector<float>{99, 99, 99, 99, 99, -35.0f, 99, 99, 99, 99}));
    DeEsser_Destroy(mono);

    // With two channels only channel 1 comes back, and channel 0's words are untouched.
    back.assign(10, 99.0f);
    DeEsserState *stereo = DeEsser_Init(sec.w, 16, kFs, 2, kFrame, 0);
    DeEsser_GetPara(stereo, back.data());
    EXPECT_EQ(back, (std::vector<float>{99, 99, 99, 99, 99, 5000.0f, -12.0f, 99, 99, 99}));
    EXPECT_EQ(eqdrc_test::capture_stderr([&] { DeEsser_PrintPara(stereo); }),
              "LOG (DeEsser_PrintPara(): ,270), DeEsser Param\n"
              "LOG (DeEsser_PrintPara(): ,271), =====================\n"
              "LOG (DeEsser_PrintPara(): ,274), ---- channel:0 ----\n"
              "LOG (DeEsser_PrintPara(): ,275), f0:5000.00\n"
              "LOG (DeEsser_PrintPara(): ,276), threshold:-35.00\n"
              "LOG (DeEsser_PrintPara(): ,274), ---- channel:1 ----\n"
              "LOG (DeEsser_PrintPara(): ,275), f0:5000.00\n"
              "LOG (DeEsser_PrintPara(): ,276), threshold:-12.00\n");
    EXPECT_EQ(DeEsser_Destroy(stereo), 0);
}

// ---------------------------------------------------------------------------------

}  // namespace
