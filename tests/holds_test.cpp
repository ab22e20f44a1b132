// Holds of one value: the exciter, de-esser and bass enhancer copy a repeating state
// instead of stepping it (on x86 each denormal step is a microcode assist).  The copy
// must give the bits the steps give, down to the denormal fixed points the recursions
// ring into, and must leave the state where the steps would.  The conformance vectors
// hold no long silences, so these are the only guard of the copies.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "core/mathf.h"
#include "dsp/repeating_state.h"
#include "enhance/bass_enhancer.h"
#include "enhance/de_esser.h"
#include "enhance/exciter.h"
#include "support/test_support.h"

namespace {

using eqdrc_test::bursts_and_holds;
using eqdrc_test::same_bits;

constexpr int kFs = 48000;
constexpr int kFrame = 768;
constexpr int kSignal = 9000;  // bursts_and_holds' length
const float kHolds[] = {0.0f, -0.0f, 37.0f};

// A stage section with the same channel block repeated for both channels.
template <int Words>
struct Section {
    float w[2 * Words] = {};
    Section(std::initializer_list<float> block)
    {
        for (int ch = 0; ch < 2; ch++)
            std::copy(block.begin(), block.end(), w + Words * ch);
    }
};

// Exciter block: even offset, distortion, cutoff, mix.
using ExciterSection = Section<5>;

// One exciter channel sample by sample from the exported biquad: the form every faster
// path must equal bit for bit.
std::vector<float> exciter_reference(const ExciterSection &sec, int ch, const std::vector<float> &in)
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

TEST(Holds, ExciterCopiesGiveTheRecursionsBits)
{
    // Offset 0.05 at 3 kHz settles in a denormal fixed point, offset 0 in a cycle of six;
    // a held DC value settles in normal numbers.
    const ExciterSection sections[] = {{0.05f, 0.3f, 3000.0f, 0.2f}, {0.0f, 0.3f, 3000.0f, 0.2f},
                                       {0.3f, 0.8f, 1000.0f, 0.9f}, {0.0f, 0.0f, 8000.0f, 0.5f}};
    for (const ExciterSection &sec : sections)
        for (float held : kHolds)
            for (int channels = 1; channels <= 2; channels++)
                for (int frameLen : {kFrame, 96, 17}) {
                    SCOPED_TRACE(testing::Message() << "cutoff " << sec.w[2] << " offset " << sec.w[0] << " held "
                                                    << held << " channels " << channels << " frame " << frameLen);
                    const std::vector<float> in[2] = {bursts_and_holds(1, 900, held), bursts_and_holds(2, 950, held)};
                    ExciterState *st = Exciter_Init(sec.w, 16, kFs, channels, 0);
                    std::vector<float> got[2] = {in[0], in[1]};
                    bool denormalHeld = false;
                    for (int at = 0; at < kSignal; at += frameLen) {
                        const int n = std::min(frameLen, kSignal - at);
                        float *buf[2] = {got[0].data() + at, got[1].data() + at};
                        Exciter_Process(st, buf, buf, n);
                        denormalHeld |= std::fpclassify(st->inputHighState[0]) == FP_SUBNORMAL;
                    }
                    for (int ch = 0; ch < channels; ch++)
                        ASSERT_TRUE(same_bits(got[ch], exciter_reference(sec, ch, in[ch])));
                    if (held == 0.0f && sec.w[2] == 3000.0f)
                        EXPECT_TRUE(denormalHeld);
                    Exciter_Destroy(st);
                }
}

TEST(Holds, DeEsserCopiesGiveTheChannelLoopsBits)
{
    // The stereo frame runs both channels' filters in lanes and copies a repeating state
    // on a hold; an output buffer that overlaps the other channel's input sends the same
    // frame through the channel-by-channel loop, which steps every sample.
    for (float f0 : {6000.0f, 150.0f, 2500.0f, 11000.0f})
        for (float held : kHolds)
            for (int frameLen : {kFrame, 96, 17}) {
                SCOPED_TRACE(testing::Message() << "f0 " << f0 << " held " << held << " frame " << frameLen);
                Section<5> sec{f0, -60.0f};  // centre frequency, threshold
                sec.w[6] = -45.0f;
                const std::vector<float> in[2] = {bursts_and_holds(1, 900, held), bursts_and_holds(2, 950, held)};
                DeEsserState *lanes = DeEsser_Init(sec.w, 16, kFs, 2, frameLen, 0);
                DeEsserState *steps = DeEsser_Init(sec.w, 16, kFs, 2, frameLen, 0);
                std::vector<float> got[2] = {in[0], in[1]}, want[2] = {in[0], in[1]};
                std::vector<float> spare(static_cast<size_t>(frameLen));
                bool denormalHeld = false;
                for (int at = 0; at < kSignal; at += frameLen) {
                    const int n = std::min(frameLen, kSignal - at);
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
                    ASSERT_TRUE(same_bits(got[ch], want[ch])) << ch;
                if (held == 0.0f && f0 == 6000.0f)
                    EXPECT_TRUE(denormalHeld);
                DeEsser_Destroy(lanes);
                DeEsser_Destroy(steps);
            }
}

TEST(Holds, BassEnhancerCopiesGiveTheChannelLoopsBits)
{
    // The stereo frame runs both channels' split in lanes and copies the split's bands
    // and shaped values once its state repeats; a mono state steps every sample.  The
    // split at these corners takes about a quarter second to reach the denormal range,
    // so the second hold is made longer.
    constexpr int kLongerHold = kFs / 2;
    using BassSection = Section<10>;  // amount dB, drive, blend, freq, floor active, floor
    const BassSection sections[] = {{3.0f, 4.0f, 2.0f, 100.0f, 1.0f, 40.0f}, {6.0f, 8.0f, 4.0f, 60.0f, 0.0f, 30.0f},
                                    {0.0f, 2.0f, 9.0f, 180.0f, 1.0f, 20.0f}};
    for (const BassSection &sec : sections)
        for (float held : kHolds)
            for (int frameLen : {kFrame, 300, 17}) {  // 300: a short block after a whole one
                SCOPED_TRACE(testing::Message() << "freq " << sec.w[3] << " held " << held << " frame " << frameLen);
                std::vector<float> stereo[2] = {bursts_and_holds(1, 900, held), bursts_and_holds(2, 950, held)};
                for (auto &x : stereo)
                    x.insert(x.end(), kLongerHold, held);
                const int total = static_cast<int>(stereo[0].size());
                std::vector<float> mono[2] = {stereo[0], stereo[1]};
                BassEnhancerState *pair = BassEnhancer_Init(sec.w, 16, kFs, 2, 0);
                BassEnhancerState *single[2] = {BassEnhancer_Init(sec.w, 16, kFs, 1, 0),
                                                BassEnhancer_Init(sec.w + 10, 16, kFs, 1, 0)};
                bool denormalHeld = false;
                for (int at = 0; at < total; at += frameLen) {
                    const int n = std::min(frameLen, total - at);
                    float *buf[2] = {stereo[0].data() + at, stereo[1].data() + at};
                    BassEnhancer_Process(pair, buf, buf, n);
                    for (int ch = 0; ch < 2; ch++) {
                        float *one[1] = {mono[ch].data() + at};
                        BassEnhancer_Process(single[ch], one, one, n);
                        ASSERT_TRUE(same_bits(std::vector<float>(buf[ch], buf[ch] + n),
                                              std::vector<float>(one[0], one[0] + n)))
                            << "channel " << ch << " at " << at;
                        for (auto filter : {&BassEnhancerState::splitLow, &BassEnhancerState::splitHigh,
                                            &BassEnhancerState::harmonicLow, &BassEnhancerState::harmonicHigh})
                            ASSERT_EQ(std::memcmp((pair->*filter).state + 4 * ch, (single[ch]->*filter).state,
                                                  4 * sizeof(float)),
                                      0)
                                << "channel " << ch << " at " << at;
                        denormalHeld |= std::fpclassify(pair->splitLow.state[4 * ch]) == FP_SUBNORMAL;
                    }
                }
                if (held == 0.0f)
                    EXPECT_TRUE(denormalHeld);
                BassEnhancer_Destroy(pair);
                BassEnhancer_Destroy(single[0]);
                BassEnhancer_Destroy(single[1]);
            }
}

TEST(Holds, RepeatsFillTheRestAndLeaveTheStateWhereTheStepsWould)
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

}  // namespace
