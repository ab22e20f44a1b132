// Maximizer and automatic gain control: makeup and ceiling, the first frame, the shared
// stereo peak, the probe cases at the edge of full scale, retuning, read-back, the
// print-out and misuse.
#include <algorithm>
#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include "dynamics/maximizer.h"
#include "filters/gain_table.h"
#include "support/test_support.h"

namespace {

using eqdrc_test::Planar;

constexpr int kFs = 48000;
constexpr int kFrame = 768;
constexpr float kFullScale = 32768.0f;
constexpr float kDefaultMakeup = 1.2564076f;  // 0.998 × 10^(2/20): ceiling -1 over threshold -3
constexpr eqdrc::AgcSettings kAgc = {{-20.0f, -40.0f, -45.0f, 16.0f, -1.0f}, 200.0f, 400.0f, 200.0f};

using Stage = void (*)(MaximizerState *, float **, float **, int);

using eqdrc_test::amplitude;

// A two-channel section with the given limiter values and the AGC curve above.
std::vector<float> section(float threshold, float ceiling, float release, int channels = 2)
{
    std::vector<float> s(144, 0.0f);
    for (int ch = 0; ch < channels; ch++) {
        float *b = s.data() + 20 * ch;
        b[0] = threshold;
        b[1] = ceiling;
        b[2] = release;
        kAgc.to_block(b + eqdrc::kAgcWordCompressStart);
    }
    return s;
}

// Fills each channel with a square wave at Nyquist of the given peak, so that every
// sample's ratio out / in is the gain applied to it.
void fill(Planar *buf, const std::vector<float> &peaks)
{
    for (size_t ch = 0; ch < peaks.size(); ch++)
        for (size_t i = 0; i < buf->data[ch].size(); i++)
            buf->data[ch][i] = (i & 1) ? -peaks[ch] : peaks[ch];
}

// Runs `frames` frames in place; leaves the last output in `buf`.
void run(Stage stage, MaximizerState *st, Planar *buf, const std::vector<float> &peaks, int frames)
{
    for (int f = 0; f < frames; f++) {
        fill(buf, peaks);
        stage(st, buf->ptrs(), buf->ptrs(), kFrame);
    }
}

// Gain applied to the last sample of channel `ch` in the last frame run.
float last_gain(const Planar &buf, const std::vector<float> &peaks, int ch)
{
    const float in = (kFrame - 1) & 1 ? -peaks[ch] : peaks[ch];
    return buf.data[ch][kFrame - 1] / in;
}

// ---------------------------------------------------------------------------------

TEST(LimiterLevels, QuietSignalIsLiftedByTheMakeup)
{
    MaximizerState *st = Maximizer_Init(nullptr, 16, kFs, 1, kFrame, 0);
    Planar buf(1, kFrame);
    const std::vector<float> quiet{amplitude(-30.0)};
    run(Maximizer_Process, st, &buf, quiet, 3);
    EXPECT_EQ(last_gain(buf, quiet, 0), kDefaultMakeup);

    // A ceiling at the threshold leaves only the trim below it.
    Maximizer_AdjustPara(st, 0, -6.0f, -6.0f, 1.0f);
    EXPECT_EQ(st->limiter.makeup[0], 0.998f);
    run(Maximizer_Process, st, &buf, quiet, 3);
    EXPECT_FLOAT_EQ(last_gain(buf, quiet, 0), 0.998f);
    Maximizer_Destroy(st);
}

TEST(LimiterLevels, ReleaseOutputIsClampedAtFullScale)
{
    // A ceiling above 0 dB lifts a peak just under the threshold past full scale.
    const std::vector<float> sec = section(-6.0f, 6.0f, 1.0f);
    MaximizerState *st = Maximizer_Init(sec.data(), 16, kFs, 2, kFrame, 0);
    Planar buf(2, kFrame);
    const std::vector<float> peaks{amplitude(-7.0), amplitude(-7.0)};
    float loudest = 0.0f;
    for (int f = 0; f < 4; f++) {
        run(Maximizer_Process, st, &buf, peaks, 1);
        for (const auto &ch : buf.data)
            for (float v : ch)
                loudest = std::fmax(loudest, std::fabs(v));
    }
    EXPECT_EQ(loudest, kFullScale);
    EXPECT_EQ(buf.data[0][0], kFullScale);
    EXPECT_EQ(buf.data[1][1], -kFullScale);

    // A NaN sample (its peak ignored) leaves the release clamp at the bottom.
    fill(&buf, peaks);
    buf.data[0][5] = buf.data[1][kFrame - 2] = std::nanf("");
    Maximizer_Process(st, buf.ptrs(), buf.ptrs(), kFrame);
    EXPECT_EQ(buf.data[0][5], -kFullScale);
    EXPECT_EQ(buf.data[1][kFrame - 2], -kFullScale);
    Maximizer_Destroy(st);
}

TEST(LimiterLevels, FirstFrameFadesInFromSilence)
{
    MaximizerState *st = Maximizer_Init(nullptr, 16, kFs, 1, kFrame, 0);
    Planar buf(1, kFrame, 1000.0f);
    Maximizer_Process(st, buf.ptrs(), buf.ptrs(), kFrame);
    const std::vector<float> &y = buf.data[0];
    EXPECT_LT(y[0], 2.0f);
    for (int i = 1; i < kFrame; i++)
        ASSERT_GE(y[i], y[i - 1]) << i;
    EXPECT_NEAR(y[kFrame - 1], 1000.0f * kDefaultMakeup, 0.5f);
    Maximizer_Destroy(st);
}

// Attack: when the first or second gained sample would pass full scale the whole frame
// takes the target gain; from the third on the gain ramps up to the overload.  With this
// tuning p + (g - p) rounds away from g, so a one-sample ramp would show.
TEST(LimiterLevels, OverloadEarlyInTheFrameAppliesTheTargetAtOnce)
{
    const std::vector<float> sec = section(-3.0f, -2.0f, 1.0f);
    for (int overloadAt : {0, 1, 2}) {
        SCOPED_TRACE(overloadAt);
        MaximizerState *st = Maximizer_Init(sec.data(), 16, kFs, 1, kFrame, 0);
        Planar buf(1, kFrame);
        run(Maximizer_Process, st, &buf, {amplitude(-30.0)}, 3);
        const float before = st->limiter.gains.gain[0];
        fill(&buf, {1000.0f});
        buf.data[0][overloadAt] = 3.0f * kFullScale;
        const std::vector<float> in = buf.data[0];
        Maximizer_Process(st, buf.ptrs(), buf.ptrs(), kFrame);
        const float target = st->limiter.gains.gain[0];
        ASSERT_LT(target, before);
        if (overloadAt <= 1) {
            for (int i = 0; i < kFrame; i++)
                ASSERT_EQ(buf.data[0][i], in[i] * target) << i;
        } else {
            const float step = (target - before) / 2.0f;
            EXPECT_EQ(buf.data[0][0], in[0] * (before + step));
            EXPECT_EQ(buf.data[0][kFrame - 1], in[kFrame - 1] * ((before + step) + step));
        }
        Maximizer_Destroy(st);
    }
}

// ---------------------------------------------------------------------------------

// Both stages carry the frame's peak from channel 0 into channel 1, never back.
class PeakSharing : public testing::TestWithParam<Stage> {};

TEST_P(PeakSharing, LoudChannel0GovernsChannel1)
{
    const std::vector<float> sec = section(-3.0f, -1.0f, 50.0f);
    MaximizerState *st = Maximizer_Init(sec.data(), 16, kFs, 2, kFrame, 0);
    Planar buf(2, kFrame);
    const std::vector<float> peaks{amplitude(-0.5), amplitude(-50.0)};
    run(GetParam(), st, &buf, peaks, 6);
    EXPECT_FLOAT_EQ(last_gain(buf, peaks, 1), last_gain(buf, peaks, 0));
    Maximizer_Destroy(st);
}

TEST_P(PeakSharing, LoudChannel1LeavesChannel0Alone)
{
    const std::vector<float> sec = section(-3.0f, -1.0f, 50.0f);
    MaximizerState *stereo = Maximizer_Init(sec.data(), 16, kFs, 2, kFrame, 0);
    MaximizerState *mono = Maximizer_Init(sec.data(), 16, kFs, 1, kFrame, 0);
    Planar both(2, kFrame), alone(1, kFrame);
    const float quiet = amplitude(-50.0);
    run(GetParam(), stereo, &both, {quiet, amplitude(-0.5)}, 6);
    run(GetParam(), mono, &alone, {quiet}, 6);
    EXPECT_TRUE(eqdrc_test::same_bits(both.data[0], alone.data[0]));
    EXPECT_GT(std::fabs(last_gain(both, {quiet, amplitude(-0.5)}, 0) - last_gain(both, {quiet, amplitude(-0.5)}, 1)),
              0.05f);
    Maximizer_Destroy(stereo);
    Maximizer_Destroy(mono);
}

INSTANTIATE_TEST_SUITE_P(Stages, PeakSharing, testing::Values<Stage>(Agc_Process, Maximizer_Process),
                         [](const testing::TestParamInfo<Stage> &info) {
                             return info.param == Agc_Process ? std::string("Agc") : std::string("Limiter");
                         });

// ---------------------------------------------------------------------------------

// Between expand_end and compress_start the curve is a flat boost of max_gain, reached
// at the attack rate even when the release is slow.
TEST(AgcLevels, QuietPassageGetsTheFlatBoostAtTheAttackRate)
{
    MaximizerState *st = Maximizer_Init(nullptr, 16, kFs, 1, kFrame, 0);
    Agc_AdjustPara(st, 0, -20.0f, -40.0f, -45.0f, 12.0f, -1.0f, 20.0f, 3000.0f, 0.0f);
    Planar buf(1, kFrame);
    const std::vector<float> quiet{amplitude(-30.0)};
    run(Agc_Process, st, &buf, quiet, 4);  // 64 ms
    EXPECT_NEAR(20.0 * std::log10(last_gain(buf, quiet, 0)), 12.0, 0.5);
    Maximizer_Destroy(st);
}

// A falling gain whose first gained sample leaves ±32766 keeps the old gain for the
// whole frame; the target is stored for the next one.
TEST(AgcFallingGain, OverloadOnTheFirstSampleKeepsTheOldGain)
{
    MaximizerState *st = Maximizer_Init(nullptr, 16, kFs, 1, kFrame, 0);
    Planar buf(1, kFrame);
    fill(&buf, {30000.0f});
    buf.data[0][0] = 40000.0f;
    const std::vector<float> in = buf.data[0];
    Agc_Process(st, buf.ptrs(), buf.ptrs(), kFrame);
    EXPECT_TRUE(eqdrc_test::same_bits(buf.data[0], in));  // previous gain 1
    EXPECT_LT(st->agc.gains.gain[0], 1.0f);

    // One sample later the frame ramps (over that one sample) to the target instead.
    Agc_AdjustPara(st, 0, -20.0f, -40.0f, -45.0f, 16.0f, -1.0f, 200.0f, 400.0f, 200.0f);
    fill(&buf, {30000.0f});
    buf.data[0][1] = 40000.0f;
    Agc_Process(st, buf.ptrs(), buf.ptrs(), kFrame);
    const float target = st->agc.gains.gain[0];
    EXPECT_EQ(buf.data[0][5], -30000.0f * (1.0f + (target - 1.0f)));
    Maximizer_Destroy(st);
}

TEST(AgcFallingGain, ProbeBoundStaysSixteenBitAt24Bits)
{
    // Unity below -30 dB, gentle compression above: a -18 dBFS frame lowers the gain.
    MaximizerState *st = Maximizer_Init(nullptr, 24, kFs, 1, kFrame, 0);
    Agc_AdjustPara(st, 0, -30.0f, -40.0f, -45.0f, 0.0f, -1.0f, 200.0f, 400.0f, 200.0f);
    Planar buf(1, kFrame);
    fill(&buf, {1000.0f});
    buf.data[0][0] = 40000.0f;  // -46 dBFS at 24 bits, yet over the probe bound
    buf.data[0][10] = 1.05e6f;
    const std::vector<float> in = buf.data[0];
    Agc_Process(st, buf.ptrs(), buf.ptrs(), kFrame);
    EXPECT_LT(st->agc.gains.gain[0], 1.0f);
    EXPECT_TRUE(eqdrc_test::same_bits(buf.data[0], in));
    Maximizer_Destroy(st);
}

// ---------------------------------------------------------------------------------

TEST(MaximizerRetune, SetParaRestartsTheAgcGainOnly)
{
    const std::vector<float> sec = section(-6.0f, -1.0f, 100.0f);
    MaximizerState *st = Maximizer_Init(sec.data(), 16, kFs, 2, kFrame, 0);
    Planar buf(2, kFrame);
    auto both = [](MaximizerState *s, float **in, float **out, int n) {
        Agc_Process(s, in, out, n);
        Maximizer_Process(s, out, out, n);
    };
    run(both, st, &buf, {amplitude(-35.0), amplitude(-2.0)}, 5);
    const float limiter[2] = {st->limiter.gains.gain[0], st->limiter.gains.gain[1]};
    ASSERT_NE(st->agc.gains.gain[0], 1.0f);
    ASSERT_NE(st->agc.gains.gain[1], 1.0f);
    Maximizer_SetPara(st, sec.data());
    EXPECT_EQ(st->agc.gains.gain[0], 1.0f);
    EXPECT_EQ(st->agc.gains.gain[1], 1.0f);
    EXPECT_EQ(st->limiter.gains.gain[0], limiter[0]);
    EXPECT_EQ(st->limiter.gains.gain[1], limiter[1]);
    Maximizer_Destroy(st);
}

TEST(MaximizerRetune, ReadBackReturnsElevenWordsPerChannel)
{
    std::vector<float> sec = section(-4.0f, -0.5f, 120.0f);
    for (int w = 0; w <= 10; w++)
        sec[20 + w] += 1.0f;  // channel 1 differs everywhere
    // Linked channels all read block 0, yet a second channel is still written back.
    for (auto [channels, link] : {std::pair{1, 0}, std::pair{2, 0}, std::pair{2, 1}}) {
        SCOPED_TRACE(testing::Message() << channels << " channels, link " << link);
        MaximizerState *st = Maximizer_Init(nullptr, 16, kFs, channels, kFrame, link);
        Maximizer_SetPara(st, sec.data());
        std::vector<float> back(144, 777.0f);
        Maximizer_GetPara(st, back.data());
        for (int w = 0; w < 144; w++) {
            const bool first = w <= 10;
            const bool second = channels == 2 && w >= 20 && w <= 30;
            const float expected = first ? sec[w] : second ? sec[link ? w - 20 : w] : 777.0f;
            EXPECT_EQ(back[w], expected) << w;
        }
        Maximizer_Destroy(st);
    }
}

TEST(MaximizerRetune, InconsistentAgcCurveIsReportedAndKept)
{
    MaximizerState *st = Maximizer_Init(nullptr, 16, kFs, 2, kFrame, 0);
    // max_peak below compress_start + max_gain.
    std::string err = eqdrc_test::capture_stderr(
        [&] { Agc_AdjustPara(st, 1, -10.0f, -40.0f, -45.0f, 16.0f, -1.0f, 200.0f, 400.0f, 200.0f); });
    EXPECT_EQ(err, "LOG (Agc_AdjustPara(): ,670), wrong param for agc, please check again\n\n");
    EXPECT_EQ(st->agc.settings[1].curve.compressStartDb, -10.0f);
    EXPECT_EQ(st->agc.settings[0].curve.compressStartDb, -20.0f);
    Maximizer_Destroy(st);

    st = Maximizer_Init(nullptr, 16, kFs, 2, kFrame, 1);
    err = eqdrc_test::capture_stderr(
        [&] { Agc_AdjustPara(st, 0, -10.0f, -40.0f, -45.0f, 16.0f, -1.0f, 200.0f, 400.0f, 200.0f); });
    EXPECT_EQ(err, "LOG (Agc_AdjustPara(): ,640), wrong param for agc, please check again\n\n"
                   "LOG (Agc_AdjustPara(): ,640), wrong param for agc, please check again\n\n");
    EXPECT_EQ(st->agc.settings[1].curve.compressStartDb, -10.0f);
    Maximizer_Destroy(st);
}

// A channel index past the record's tables changes nothing it does not own.
TEST(MaximizerRetune, OutOfRangeChannelStaysInBounds)
{
    MaximizerState *st = Maximizer_Init(nullptr, 16, kFs, 1, kFrame, 0);
    const std::vector<float> table0(st->limiter.gains.tables[0], st->limiter.gains.tables[0] + eqdrc::kGainTableSize);
    Maximizer_AdjustPara(st, 1, -8.0f, -2.0f, 50.0f);
    Agc_AdjustPara(st, 1, -25.0f, -40.0f, -45.0f, 10.0f, -1.0f, 100.0f, 300.0f, 0.0f);
    EXPECT_EQ(st->limiter.thresholdDb[1], -8.0f);
    EXPECT_EQ(st->agc.settings[1].curve.compressStartDb, -25.0f);
    for (int channel : {2, 7, -1, -100000}) {
        Maximizer_AdjustPara(st, channel, -9.0f, -2.0f, 50.0f);
        Agc_AdjustPara(st, channel, -26.0f, -40.0f, -45.0f, 10.0f, -1.0f, 100.0f, 300.0f, 0.0f);
    }
    EXPECT_EQ(st->limiter.thresholdDb[0], -3.0f);
    EXPECT_EQ(st->limiter.thresholdDb[1], -8.0f);
    EXPECT_EQ(st->agc.settings[0].curve.compressStartDb, -20.0f);
    EXPECT_TRUE(eqdrc_test::same_bits(
        table0, std::vector<float>(st->limiter.gains.tables[0], st->limiter.gains.tables[0] + eqdrc::kGainTableSize)));
    Maximizer_Destroy(st);
}

// ---------------------------------------------------------------------------------

TEST(MaximizerPrint, OneChannelDefaults)
{
    MaximizerState *st = Maximizer_Init(nullptr, 16, kFs, 1, kFrame, 0);
    const std::string err = eqdrc_test::capture_stderr([&] { Maximizer_PrintPara(st); });
    EXPECT_EQ(err, "LOG (Maximizer_PrintPara(): ,549), AGC Param\n"
                   "LOG (Maximizer_PrintPara(): ,550), ===================== \n"
                   "LOG (Maximizer_PrintPara(): ,552), ---- channel:0 ----\n"
                   "LOG (Maximizer_PrintPara(): ,553), compress_start:-20.00\n"
                   "LOG (Maximizer_PrintPara(): ,554), expand_end:-40.00\n"
                   "LOG (Maximizer_PrintPara(): ,555), noise_threshold:-45.00\n"
                   "LOG (Maximizer_PrintPara(): ,556), max_gain:16.00\n"
                   "LOG (Maximizer_PrintPara(): ,557), max_peak:-1.00\n"
                   "LOG (Maximizer_PrintPara(): ,558), attack_time:200.00\n"
                   "LOG (Maximizer_PrintPara(): ,559), release_time:400.00\n"
                   "LOG (Maximizer_PrintPara(): ,560), hold_time:200.000000\n"
                   "LOG (Maximizer_PrintPara(): ,563), Maximizer Param\n"
                   "LOG (Maximizer_PrintPara(): ,564), =====================\n"
                   "LOG (Maximizer_PrintPara(): ,566), ==== channel:0 ====\n"
                   "LOG (Maximizer_PrintPara(): ,567), max_threshold:-3.00\n"
                   "LOG (Maximizer_PrintPara(): ,568), ceiling:-1.00\n"
                   "LOG (Maximizer_PrintPara(): ,569), release:1.00\n");
    Maximizer_Destroy(st);
}

// ---------------------------------------------------------------------------------

// Non-finite and absurd levels read the tables' end entries, never past them.
TEST(MaximizerMisuse, NonFiniteSamplesStayInsideTheTables)
{
    MaximizerState *st = Maximizer_Init(nullptr, 16, kFs, 2, kFrame, 0);
    Planar buf(2, kFrame);
    for (float v : {std::nanf(""), INFINITY, -1e38f, 0.0f, 1e-30f}) {
        for (int f = 0; f < 2; f++) {
            fill(&buf, {v, 1000.0f});
            Agc_Process(st, buf.ptrs(), buf.ptrs(), kFrame);
            Maximizer_Process(st, buf.ptrs(), buf.ptrs(), kFrame);
        }
    }
    Maximizer_Process(st, buf.ptrs(), buf.ptrs(), 0);
    Agc_Process(st, buf.ptrs(), buf.ptrs(), -4);
    for (float v : buf.data[1])
        ASSERT_LE(std::fabs(v), kFullScale);
    Maximizer_Destroy(st);
}

}  // namespace
