// Exciter: dry/wet mix, the soft clipper, the drive law, silence tails, retuning,
// read-back and misuse.
#include <cmath>
#include <limits>
#include <vector>

#include "core/mathf.h"
#include "enhance/exciter.h"
#include "filters/repeating_state.h"
#include "support/test_support.h"

namespace {

using eqdrc_test::Planar;

constexpr int kFs = 48000;
constexpr int kFrame = 768;

// Ten words: two channel blocks of five; word 4 of each is unused.
struct Section {
    float w[10] = {};
    Section(float even, float distortion, float cutoff, float mix)
    {
        for (int ch = 0; ch < 2; ch++) {
            w[5 * ch + 0] = even;
            w[5 * ch + 1] = distortion;
            w[5 * ch + 2] = cutoff;
            w[5 * ch + 3] = mix;
        }
    }
};

const Section kReference{0.05f, 0.3f, 3000.0f, 0.2f};

// Runs `frames` frames of a mono sine (the same on every channel) and returns channel 0.
std::vector<float> run_sine(ExciterState *st, int channels, int frames, float freq, float amp)
{
    std::vector<float> out;
    Planar buf(channels, kFrame);
    for (int f = 0; f < frames; f++) {
        const std::vector<float> s = eqdrc_test::sine(kFrame, freq, kFs, amp, f * kFrame);
        for (auto &d : buf.data)
            std::copy(s.begin(), s.end(), d.begin());
        Exciter_Process(st, buf.ptrs(), buf.ptrs(), kFrame);
        out.insert(out.end(), buf.data[0].begin(), buf.data[0].end());
    }
    return out;
}

double peak(const std::vector<float> &x, size_t from)
{
    double p = 0.0;
    for (size_t i = from; i < x.size(); i++)
        p = std::max(p, std::fabs(static_cast<double>(x[i])));
    return p;
}

double rms(const std::vector<float> &x, size_t from)
{
    double s = 0.0;
    for (size_t i = from; i < x.size(); i++)
        s += static_cast<double>(x[i]) * x[i];
    return std::sqrt(s / static_cast<double>(x.size() - from));
}

// ---------------------------------------------------------------------------------

TEST(ExciterMix, MixZeroIsTheIdentity)
{
    const Section sec{0.3f, 1.0f, 2000.0f, 0.0f};
    ExciterState *st = Exciter_Init(sec.w, 16, kFs, 2, 0);
    Planar buf(2, kFrame);
    for (int i = 0; i < kFrame; i++) {
        buf.data[0][i] = static_cast<float>((i * 7919) % 65536 - 32768);
        buf.data[1][i] = static_cast<float>(-i);
    }
    const Planar dry = buf;
    Planar out(2, kFrame);
    Exciter_Process(st, buf.ptrs(), out.ptrs(), kFrame);
    // Full scale is a power of two, so the scaling round trip is exact.
    EXPECT_TRUE(eqdrc_test::same_bits(out.data[0], dry.data[0]));
    EXPECT_TRUE(eqdrc_test::same_bits(out.data[1], dry.data[1]));
    Exciter_Destroy(st);
}

TEST(ExciterMix, UndrivenSmallSignalIsTheInputHighPassedTwiceTimesOneAndAHalf)
{
    // The clipper is nearly linear (1.5v) for small v.
    const Section sec{0.0f, 0.0f, 1000.0f, 1.0f};
    ExciterState *st = Exciter_Init(sec.w, 16, kFs, 1, 0);
    const float amp = 32.768f;  // -60 dBFS
    const std::vector<float> high = run_sine(st, 1, 20, 12000.0f, amp);
    EXPECT_NEAR(rms(high, kFs / 10), 1.5 * amp / std::sqrt(2.0), 1.5 * amp * 0.01);
    Exciter_SetPara(st, sec.w);
    // Two octaves below the corner each section gives about -24 dB.
    const std::vector<float> low = run_sine(st, 1, 20, 250.0f, amp);
    EXPECT_LT(peak(low, kFs / 10), 1.5 * amp * std::pow(10.0, -45.0 / 20.0));
    Exciter_Destroy(st);
}

TEST(ExciterClipper, BoundariesAndNaN)
{
    EXPECT_EQ(ExciterState::soft_clip(1.0f), 1.0f);  // cubic branch, lands exactly on 1
    EXPECT_EQ(ExciterState::soft_clip(std::nextafter(1.0f, 2.0f)), 1.0f);
    EXPECT_EQ(ExciterState::soft_clip(-1.0f), -1.0f);
    EXPECT_EQ(ExciterState::soft_clip(std::nextafter(-1.0f, -2.0f)), -1.0f);
    EXPECT_EQ(ExciterState::soft_clip(1e30f), 1.0f);
    EXPECT_EQ(ExciterState::soft_clip(-std::numeric_limits<float>::infinity()), -1.0f);
    EXPECT_EQ(ExciterState::soft_clip(std::nanf("")), 1.0f);
    EXPECT_EQ(ExciterState::soft_clip(0.5f), 0.6875f);
}

// The lanes clamp first and take the cubic of the clamped value; every lane must give the
// scalar clipper's bits, signed zeros and the values next to the ends included.
TEST(ExciterClipper, LanesEqualTheScalarClipper)
{
    const float inf = std::numeric_limits<float>::infinity();
    std::vector<float> v = {0.0f, -0.0f, 1.0f, -1.0f, std::nextafter(1.0f, 0.0f), std::nextafter(1.0f, 2.0f),
                            std::nextafter(-1.0f, 0.0f), std::nextafter(-1.0f, -2.0f), inf, -inf, std::nanf(""),
                            -std::nanf(""), 1e-40f, -1e-40f, 3.0f, -3.0f};
    for (int i = -1000; i <= 1000; i++)
        v.push_back(static_cast<float>(i) * 0.00137f);
    while (v.size() % 4 != 0)
        v.push_back(0.25f);
    for (size_t i = 0; i < v.size(); i += 4) {
        const eqdrc::f32x4 y = ExciterState::soft_clip(eqdrc::lanes(v[i], v[i + 1], v[i + 2], v[i + 3]));
        for (int k = 0; k < 4; k++)
            EXPECT_TRUE(eqdrc_test::same_bits(y[k], ExciterState::soft_clip(v[i + k]))) << v[i + k];
    }
}

TEST(ExciterClipper, HeavyDriveBoundsTheWetPath)
{
    // Whatever the drive, the clipper output is within [-1, 1]: the wet share of the
    // output shrinks as 1 / drive.
    const Section sec{0.0f, 1.0f, 1000.0f, 1.0f};
    ExciterState *st = Exciter_Init(sec.w, 16, kFs, 1, 0);
    const std::vector<float> out = run_sine(st, 1, 20, 5000.0f, 30000.0f);
    EXPECT_LT(peak(out, kFs / 10), 32768.0 * 2.0 / 100.0);
    EXPECT_GT(peak(out, kFs / 10), 32768.0 * 0.5 / 100.0);
    Exciter_Destroy(st);
}

// ---------------------------------------------------------------------------------

// One channel sample by sample from the exported biquad: the form every faster path
// must equal bit for bit.
std::vector<float> reference_channel(const Section &sec, int ch, const std::vector<float> &in)
{
    const float *p = sec.w + 5 * ch;
    float coeffs[5], zIn[4] = {}, zOut[4] = {};
    filter_calculateCoeffs(coeffs, ButterworthHP, static_cast<float>(kFs), p[2], 0.0f, 0.0f);
    const float drive = eqdrc::mathf::powf(eqdrc::mathf::kTen, p[1] + p[1]);
    const float dry = 1.0f - p[3], wet = p[3] * (1.0f / drive);
    std::vector<float> out;
    for (float sample : in) {
        const float x = sample / 32768.0f;
        const float h = update_biquad_filter(coeffs, zIn, x);
        const float z = update_biquad_filter(coeffs, zOut, ExciterState::soft_clip((h + p[0]) * drive));
        out.push_back((dry * x + wet * z) * 32768.0f);
    }
    return out;
}

TEST(ExciterSilence, HoldsAreCopiedOnceTheyRepeatAndGiveTheRecursionsBits)
{
    // Offset 0.05 at 3 kHz settles in a denormal fixed point, offset 0 in a cycle of six;
    // a held DC value settles in normal numbers.
    const Section sections[] = {kReference, {0.0f, 0.3f, 3000.0f, 0.2f}, {0.3f, 0.8f, 1000.0f, 0.9f},
                                {0.0f, 0.0f, 8000.0f, 0.5f}};
    const float holds[] = {0.0f, -0.0f, 37.0f};
    for (const Section &sec : sections)
        for (float held : holds)
            for (int channels = 1; channels <= 2; channels++)
                for (int frameLen : {kFrame, 96, 17}) {
                    SCOPED_TRACE(testing::Message() << "cutoff " << sec.w[2] << " offset " << sec.w[0] << " held "
                                                    << held << " channels " << channels << " frame " << frameLen);
                    const std::vector<float> in[2] = {eqdrc_test::bursts_and_holds(1, 900, held),
                                                      eqdrc_test::bursts_and_holds(2, 950, held)};
                    ExciterState *st = Exciter_Init(sec.w, 16, kFs, channels, 0);
                    std::vector<float> got[2] = {in[0], in[1]};
                    bool denormalHeld = false;
                    for (int at = 0; at < 9000; at += frameLen) {
                        const int n = std::min(frameLen, 9000 - at);
                        float *buf[2] = {got[0].data() + at, got[1].data() + at};
                        Exciter_Process(st, buf, buf, n);
                        denormalHeld |= std::fpclassify(st->inputHighState[0]) == FP_SUBNORMAL;
                    }
                    for (int ch = 0; ch < channels; ch++)
                        ASSERT_TRUE(eqdrc_test::same_bits(got[ch], reference_channel(sec, ch, in[ch])));
                    if (held == 0.0f && sec.w[2] == 3000.0f)
                        EXPECT_TRUE(denormalHeld);
                    Exciter_Destroy(st);
                }
}

TEST(ExciterSilence, RepeatsFillTheRestAndLeaveTheStateWhereTheStepsWould)
{
    // A counter modulo `period` from 0, with `wander` steps before it starts cycling.
    struct Counter {
        int k;
    };
    for (int period : {1, 2, 5, eqdrc::kMaxRepeatPeriod, eqdrc::kMaxRepeatPeriod + 1})
        for (int wander : {0, 3, 20})
            for (int total : {1, 7, 16, 40}) {
                SCOPED_TRACE(testing::Message() << "period " << period << " wander " << wander << " total " << total);
                const auto next = [&](int k) { return k < wander ? k + 1 : wander + (k - wander + 1) % period; };
                Counter c{0};
                std::vector<float> out(static_cast<size_t>(total), -1.0f);
                const int steps = std::min(16, total);
                const int written = eqdrc::run_until_repeating(
                    c, [&](Counter &s) { return static_cast<float>(s.k = next(s.k)); }, out.data(), steps, total);
                int k = 0;
                for (int i = 0; i < written; i++)
                    EXPECT_EQ(out[static_cast<size_t>(i)], static_cast<float>(k = next(k))) << i;
                const bool repeats = period <= eqdrc::kMaxRepeatPeriod && wander + period < steps;
                EXPECT_EQ(written, repeats ? total : steps);
                EXPECT_EQ(c.k, k);
            }
    EXPECT_EQ(eqdrc::constant_tail_start(std::vector<float>{1.0f, 0.0f, -0.0f, 0.0f}.data(), 4), 3);
    EXPECT_EQ(eqdrc::constant_tail_start(std::vector<float>{2.0f, 2.0f, 2.0f}.data(), 3), 0);
}

TEST(ExciterRetune, SetParaRestartsFromRest)
{
    const Section other{0.1f, 0.5f, 4000.0f, 0.7f};
    ExciterState *used = Exciter_Init(kReference.w, 16, kFs, 2, 0);
    run_sine(used, 2, 5, 6000.0f, 12000.0f);
    Exciter_SetPara(used, other.w);
    ExciterState *fresh = Exciter_Init(other.w, 16, kFs, 2, 0);
    EXPECT_TRUE(eqdrc_test::same_bits(run_sine(used, 2, 5, 6000.0f, 12000.0f),
                                      run_sine(fresh, 2, 5, 6000.0f, 12000.0f)));
    Exciter_Destroy(used);
    Exciter_Destroy(fresh);
}

TEST(ExciterRetune, LinkedReadBackWritesBothBlocksAndLeavesTheSpareWords)
{
    Section sec{0.25f, 0.5f, 2500.0f, 0.75f};
    for (int i = 5; i < 10; i++)
        sec.w[i] = -3.0f;  // ignored when linked
    ExciterState *st = Exciter_Init(sec.w, 24, kFs, 2, 1);
    std::vector<float> back(12, 99.0f);
    Exciter_GetPara(st, back.data());
    EXPECT_EQ(back, (std::vector<float>{0.25f, 0.5f, 2500.0f, 0.75f, 99.0f, 0.25f, 0.5f, 2500.0f, 0.75f, 99.0f,
                                        99.0f, 99.0f}));
    EXPECT_EQ(eqdrc_test::capture_stderr([&] { Exciter_PrintPara(st); }),
              "LOG (Exciter_PrintPara(): ,195), Exciter Param\n"
              "LOG (Exciter_PrintPara(): ,196), =====================\n"
              "LOG (Exciter_PrintPara(): ,198), ==== channel:0 ====\n"
              "LOG (Exciter_PrintPara(): ,199), even_harmonics:0.25\n"
              "LOG (Exciter_PrintPara(): ,200), distortion_amount:0.50\n"
              "LOG (Exciter_PrintPara(): ,201), Cutoff:2500.00\n"
              "LOG (Exciter_PrintPara(): ,202), mix:0.75\n"
              "LOG (Exciter_PrintPara(): ,198), ==== channel:1 ====\n"
              "LOG (Exciter_PrintPara(): ,199), even_harmonics:0.25\n"
              "LOG (Exciter_PrintPara(): ,200), distortion_amount:0.50\n"
              "LOG (Exciter_PrintPara(): ,201), Cutoff:2500.00\n"
              "LOG (Exciter_PrintPara(): ,202), mix:0.75\n");
    EXPECT_EQ(Exciter_Destroy(st), 0);
}

// ---------------------------------------------------------------------------------

}  // namespace
