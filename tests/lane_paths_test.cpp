// The fast paths are the slow paths: every lane (SIMD) form must give the bits of the
// one-sample-at-a-time form it replaces, over random parameters and awkward signals
// (NaN, infinities, signed zeros, subnormals), in place and not.
//
// Stages whose channels are independent run their stereo frames in lanes and a mono
// state sample by sample, so a stereo state must equal two mono states.  Where the
// channels interact (AGC, limiter, auto gain, de-esser, loudness meter) or the lanes run
// inside one channel (compressor), the lane helpers they are built from are compared
// with their scalar forms here, and the whole library is built once more with scalar
// lanes in CI (./test.sh scalar) against the conformance vectors.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>
#include <cstdint>
#include <limits>
#include <vector>

#include "chain/pcm_lanes.h"
#include "core/record.h"
#include "dsp/buffer_aliasing.h"
#include "dsp/frame_peak.h"
#include "dsp/gain_ramp.h"
#include "dsp/lanes.h"
#include "dsp/smoothing.h"
#include "dynamics/multiband_drc.h"
#include "enhance/bass_shaper.h"
#include "filters/biquad.h"
#include "support/test_support.h"
#include "tqaudio_eqdrc.h"

namespace {

using eqdrc_test::same_bits;

constexpr int kFs = 48000;
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInf = std::numeric_limits<float>::infinity();

struct Random {
    uint32_t s;
    uint32_t next() { return s = s * 1664525u + 1013904223u; }
    float uniform(float lo, float hi) { return lo + (hi - lo) * static_cast<float>(next() >> 8) / 16777216.0f; }
    int below(int n) { return static_cast<int>((next() >> 8) % static_cast<uint32_t>(n)); }
};

// Programme-like samples with, now and then, a NaN of either sign, an infinity, a
// signed zero, a subnormal or full scale.
std::vector<float> awkward(int n, Random &r, bool specials = true)
{
    const float odd[] = {kNaN, -kNaN, kInf, -kInf, -0.0f, 0.0f, 1e-40f, -3e-39f, 32767.0f, -32768.5f, 1.0000001f};
    std::vector<float> x(static_cast<size_t>(n));
    for (float &v : x)
        v = specials && r.below(64) == 0 ? odd[r.below(sizeof odd / sizeof odd[0])] : r.uniform(-20000.0f, 20000.0f);
    return x;
}

// A stage's creation, frame and tear-down for one parameter section.
struct StageOps {
    void *(*create)(const float *section, int channels);
    void (*process)(void *st, float **in, float **out, int n);
    int (*destroy)(void *st);
    int channelWords;  // a channel block's stride in the section
};

// Runs `frames` frames through a stereo state and through one mono state per channel
// (each given its own channel block), in place or into separate buffers, and requires
// the same bits from both.
void expect_stereo_equals_mono(const StageOps &ops, const std::vector<float> &section, Random &r, int frameLen,
                               bool inPlace, const char *what)
{
    void *stereo = ops.create(section.data(), 2);
    void *mono[2] = {ops.create(section.data(), 1), ops.create(section.data() + ops.channelWords, 1)};
    for (int frame = 0; frame < 3; frame++) {
        std::vector<float> in[2] = {awkward(frameLen, r, frame > 0), awkward(frameLen, r, frame > 0)};
        std::vector<float> lanes[2] = {in[0], in[1]}, scalar[2] = {in[0], in[1]};
        std::vector<float> laneOut[2] = {std::vector<float>(frameLen), std::vector<float>(frameLen)};
        float *li[2] = {lanes[0].data(), lanes[1].data()};
        float *lo[2] = {laneOut[0].data(), laneOut[1].data()};
        ops.process(stereo, li, inPlace ? li : lo, frameLen);
        for (int c = 0; c < 2; c++) {
            std::vector<float> out(frameLen);
            float *si[1] = {scalar[c].data()};
            float *so[1] = {out.data()};
            ops.process(mono[c], si, inPlace ? si : so, frameLen);
            const std::vector<float> &got = inPlace ? lanes[c] : laneOut[c];
            const std::vector<float> &want = inPlace ? scalar[c] : out;
            ASSERT_TRUE(same_bits(got, want)) << what << ": frame " << frame << ", channel " << c;
        }
    }
    ops.destroy(stereo);
    ops.destroy(mono[0]);
    ops.destroy(mono[1]);
}

const StageOps kEqualiser = {
    [](const float *s, int ch) -> void * { return EQ10_Init(s, 16, kFs, ch, 256, 0); },
    [](void *st, float **in, float **out, int n) { EQ10_Process(static_cast<EQ10State *>(st), in, out, n); },
    [](void *st) { return EQ10_Destroy(static_cast<EQ10State *>(st)); }, 50};

const StageOps kBass = {
    [](const float *s, int ch) -> void * { return BassEnhancer_Init(s, 16, kFs, ch, 0); },
    [](void *st, float **in, float **out, int n) {
        BassEnhancer_Process(static_cast<BassEnhancerState *>(st), in, out, n);
    },
    [](void *st) { return BassEnhancer_Destroy(static_cast<BassEnhancerState *>(st)); }, 10};

// Both channels' exciter blocks, each its own.
std::vector<float> random_exciter(Random &r)
{
    std::vector<float> exciter(10, 0.0f);
    for (int c = 0; c < 2; c++) {
        float *w = exciter.data() + 5 * c;
        w[0] = r.uniform(0.0f, 0.5f);
        w[1] = r.uniform(0.0f, 1.0f);
        w[2] = r.uniform(1000.0f, 12000.0f);
        w[3] = r.uniform(0.0f, 1.0f);
    }
    return exciter;
}

const StageOps kExciter = {
    [](const float *s, int ch) -> void * { return Exciter_Init(s, 16, kFs, ch, 0); },
    [](void *st, float **in, float **out, int n) { Exciter_Process(static_cast<ExciterState *>(st), in, out, n); },
    [](void *st) { return Exciter_Destroy(static_cast<ExciterState *>(st)); }, 5};

TEST(LanePaths, StereoStagesEqualTwoMonoStages)
{
    Random r{7};
    for (int round = 0; round < 12; round++) {
        const int frameLen = round % 3 == 0 ? 768 : 1 + r.below(300);
        const bool inPlace = round % 2 == 0;

        std::vector<float> eq(100, 0.0f);
        for (int b = 0; b < 20; b++) {
            float *w = eq.data() + 5 * b;
            w[0] = r.below(4) != 0 ? 1.0f : 0.0f;
            w[1] = static_cast<float>(r.below(8));
            w[2] = r.uniform(20.0f, 20000.0f);
            w[3] = r.uniform(0.3f, 4.0f);
            w[4] = r.uniform(-12.0f, 12.0f);
        }
        expect_stereo_equals_mono(kEqualiser, eq, r, frameLen, inPlace, "equaliser");

        std::vector<float> bass(20, 0.0f);
        const float floorActive = static_cast<float>(r.below(2));
        for (int c = 0; c < 2; c++) {
            float *w = bass.data() + 10 * c;
            w[0] = r.uniform(-6.0f, 9.0f);
            w[1] = r.uniform(0.5f, 10.0f);
            w[2] = r.uniform(0.0f, 10.0f);
            w[3] = r.uniform(40.0f, 200.0f);
            w[4] = floorActive;  // the pair form runs when both floors agree
            w[5] = r.uniform(15.0f, 60.0f);
        }
        expect_stereo_equals_mono(kBass, bass, r, frameLen, inPlace, "bass enhancer");

        const std::vector<float> exciter = random_exciter(r);
        expect_stereo_equals_mono(kExciter, exciter, r, frameLen, inPlace, "exciter");
    }
}

// The two channels' cascade is cut into groups of sections that run skewed by two samples
// each; every band count leaves a different last group (short or empty), and frames
// shorter than the skew never fill it.
TEST(LanePaths, EveryBandCountAndFramesShorterThanTheSkew)
{
    Random r{11};
    for (int bands = 1; bands <= 10; bands++) {
        std::vector<float> eq(100, 0.0f);
        for (int b = 0; b < 20; b++) {
            float *w = eq.data() + 5 * b;
            w[0] = b % 10 < bands ? 1.0f : 0.0f;
            w[1] = static_cast<float>(r.below(8));
            w[2] = r.uniform(20.0f, 20000.0f);
            w[3] = r.uniform(0.3f, 4.0f);
            w[4] = r.uniform(-12.0f, 12.0f);
        }
        for (int frameLen : {1, 2, 3, 4, 5, 37})
            expect_stereo_equals_mono(kEqualiser, eq, r, frameLen, frameLen % 2 == 0, "equaliser");
    }
    // The exciter's output filters run two samples behind its input filters.
    for (int frameLen : {1, 2, 3, 4}) {
        const std::vector<float> exciter = random_exciter(r);
        expect_stereo_equals_mono(kExciter, exciter, r, frameLen, frameLen % 2 == 0, "exciter");
    }
}

const StageOps kCompressor = {
    [](const float *s, int ch) -> void * { return MultiBandDRC_Init(s, 16, kFs, ch, 0); },
    [](void *st, float **in, float **out, int n) {
        MultiBandDRC_Process(static_cast<MultiBandDRCState *>(st), in, out, n);
    },
    [](void *st) { return MultiBandDRC_Destroy(static_cast<MultiBandDRCState *>(st)); }, 100};

// The compressor's lane forms against its sample-at-a-time loop, which runs where an
// output starts inside its input: with each output at its input's last sample, the loop
// reads every input sample as given but the last, which it reads as its own first
// output; the lanes are fed the same samples. Random band counts per channel, partly
// disabled bands, and level indices made to fail their check (the lanes then take the
// logarithm, as the loop always does).
TEST(LanePaths, CompressorLanesEqualItsSampleLoop)
{
    Random r{23};
    const std::vector<float> reference = eqdrc_test::reference_record();
    for (int trial = 0; trial < 16; trial++) {
        std::vector<float> section(reference.begin() + 200, reference.begin() + 400);
        for (float *block : {section.data(), section.data() + 100}) {
            block[0] = static_cast<float>(1 + r.below(4));  // bands
            for (int group : {10, 30, 50, 70}) {
                block[group + 2] = r.uniform(-6.0f, 6.0f);          // make-up gain
                block[group + 3] = static_cast<float>(r.below(2));  // dynamics on
                block[group + 9] = r.uniform(1.0f, 50.0f);          // attack, release
                block[group + 10] = r.uniform(10.0f, 500.0f);
            }
        }
        const int channels = 1 + trial % 2, n = trial < 8 ? 768 : 37;
        MultiBandDRCState *lanes = MultiBandDRC_Init(section.data(), 16, kFs, channels, 0);
        MultiBandDRCState *loop = MultiBandDRC_Init(section.data(), 16, kFs, channels, 0);
        for (eqdrc::DrcSlotCoefficients &k : lanes->coefficients)
            if (k.levelIndex != nullptr && r.below(3) == 0)
                k.levelIndex->exact = false;
        for (int f = 0; f < 12; f++) {
            std::vector<float> shared[2], in[2], out[2];
            float *loopIn[2], *loopOut[2], *inPtr[2], *outPtr[2];
            for (int c = 0; c < 2; c++) {
                in[c] = awkward(n, r);
                shared[c] = in[c];
                shared[c].resize(2 * n - 1);
                loopIn[c] = shared[c].data();
                loopOut[c] = shared[c].data() + n - 1;
            }
            MultiBandDRC_Process(loop, loopIn, loopOut, n);
            for (int c = 0; c < 2; c++) {
                in[c][n - 1] = loopOut[c][0];
                out[c].assign(n, 0.0f);
                inPtr[c] = in[c].data();
                outPtr[c] = out[c].data();
            }
            MultiBandDRC_Process(lanes, inPtr, outPtr, n);
            for (int c = 0; c < channels; c++)
                ASSERT_TRUE(same_bits(out[c], std::vector<float>(loopOut[c], loopOut[c] + n)))
                    << "trial " << trial << " frame " << f << " channel " << c;
        }
        MultiBandDRC_Destroy(lanes);
        MultiBandDRC_Destroy(loop);
    }
}

// Caller buffers that overlap: each channel's output one sample into its own input, or
// channel 1's output over channel 0's input.  A stereo frame must give what the channels
// one after the other give; the lane forms, which read ahead of their writes and run the
// channels interleaved, may run only where that holds.
TEST(LanePaths, OverlappingBuffersGiveTheChannelsOneAfterTheOther)
{
    const std::vector<float> rec = eqdrc_test::reference_record();
    const struct {
        const StageOps &ops;
        int section;
        const char *what;
    } stages[] = {{kEqualiser, eqdrc::kSectionEq10, "equaliser"},
                  {kBass, eqdrc::kSectionBassEnhancer, "bass enhancer"},
                  {kExciter, eqdrc::kSectionExciter, "exciter"},
                  {kCompressor, eqdrc::kSectionMultiBandDrc, "compressor"}};
    Random r{5};
    const int n = 256;  // the equaliser's creation length
    for (const auto &stage : stages) {
        const float *section = rec.data() + stage.section;
        void *stereo = stage.ops.create(section, 2);
        void *mono[2] = {stage.ops.create(section, 1), stage.ops.create(section + stage.ops.channelWords, 1)};
        for (int frame = 0; frame < 2; frame++) {
            // Shifted: out[c] = in[c] + 1.
            std::vector<float> a[2] = {awkward(n + 1, r, false), awkward(n + 1, r, false)};
            std::vector<float> b[2] = {a[0], a[1]};
            float *in[2] = {a[0].data(), a[1].data()}, *out[2] = {a[0].data() + 1, a[1].data() + 1};
            stage.ops.process(stereo, in, out, n);
            for (int c = 0; c < 2; c++) {
                float *mi[1] = {b[c].data()}, *mo[1] = {b[c].data() + 1};
                stage.ops.process(mono[c], mi, mo, n);
                ASSERT_TRUE(same_bits(a[c], b[c])) << stage.what << ": shifted, channel " << c;
            }
            // Crossed: channel 1 writes over channel 0's input.
            std::vector<float> x0 = awkward(n, r, false), x1 = awkward(n, r, false), y0(n);
            std::vector<float> want0(n), want1(n), m0 = x0, m1 = x1;
            float *cin[2] = {x0.data(), x1.data()}, *cout[2] = {y0.data(), x0.data()};
            stage.ops.process(stereo, cin, cout, n);
            float *i0[1] = {m0.data()}, *o0[1] = {want0.data()}, *i1[1] = {m1.data()}, *o1[1] = {want1.data()};
            stage.ops.process(mono[0], i0, o0, n);
            stage.ops.process(mono[1], i1, o1, n);
            ASSERT_TRUE(same_bits(y0, want0)) << stage.what << ": crossed, channel 0";
            ASSERT_TRUE(same_bits(x0, want1)) << stage.what << ": crossed, channel 1";
        }
        stage.ops.destroy(stereo);
        stage.ops.destroy(mono[0]);
        stage.ops.destroy(mono[1]);
    }
    // The compressor's stereo form works in blocks, the crossover a block ahead: frames
    // around the block length, with awkward signals that keep its table searches busy.
    for (int frameLen : {1, 63, 255, 256, 257, 768})
        expect_stereo_equals_mono(kCompressor, std::vector<float>(rec.begin() + eqdrc::kSectionMultiBandDrc, rec.end()),
                                  r, frameLen, frameLen % 2 == 0, "compressor");
}

// ---------------------------------------------------------------------------------
// The lane helpers against their scalar forms.

eqdrc::f32x4 lanes_of(const float *v) { return eqdrc::lanes(v[0], v[1], v[2], v[3]); }

float awkward_value(Random &r)
{
    const float odd[] = {kNaN, kInf, -kInf, -0.0f, 0.0f, 1e-40f, -3e-39f, 1.0f, 0.999f};
    return r.below(6) == 0 ? odd[r.below(sizeof odd / sizeof odd[0])] : r.uniform(-2.0f, 2.0f);
}

TEST(LanePaths, SmoothersAndBiquadEqualTheirScalarForms)
{
    Random r{11};
    for (int i = 0; i < 20000; i++) {
        float x[4], env[4], attack[4], release[4], z1[4], z2[4], c[5];
        for (int k = 0; k < 4; k++) {
            x[k] = awkward_value(r);
            env[k] = awkward_value(r);
            attack[k] = r.uniform(0.0f, 1.0f);
            release[k] = r.uniform(0.0f, 1.0f);
            z1[k] = awkward_value(r);
            z2[k] = awkward_value(r);
        }
        for (float &v : c)
            v = r.uniform(-2.0f, 2.0f);
        const eqdrc::f32x4 e = eqdrc::follow_envelope(lanes_of(x), lanes_of(env), lanes_of(attack), lanes_of(release));
        const eqdrc::f32x4 g = eqdrc::smooth_gain(lanes_of(x), lanes_of(env), lanes_of(attack), lanes_of(release));
        eqdrc::BiquadLanes bl;
        for (int k = 0; k < 4; k++)
            bl.set(k, c);
        eqdrc::f32x4 lz1 = lanes_of(z1), lz2 = lanes_of(z2);
        const eqdrc::f32x4 y = eqdrc::biquad_step(bl, lz1, lz2, lanes_of(x));
        for (int k = 0; k < 4; k++) {
            ASSERT_TRUE(same_bits(e[k], eqdrc::follow_envelope(x[k], env[k], attack[k], release[k])));
            ASSERT_TRUE(same_bits(g[k], eqdrc::smooth_gain(x[k], env[k], attack[k], release[k])));
            float z[2] = {z1[k], z2[k]};
            ASSERT_TRUE(same_bits(y[k], eqdrc::biquad_step(c, z, x[k])));
            ASSERT_TRUE(same_bits(lz1[k], z[0]) && same_bits(lz2[k], z[1]));
        }
    }
}

// The shaper's lanes evaluate each branch in a rearranged form with its constants
// selected; the bits must stay those of shape(), including at the arcs' zeros (y = a,
// y = -p), at the flush level, and for the infinite and NaN constants that drive 0 and
// blend 10.5 give.
TEST(LanePaths, BassShaperLanesEqualShape)
{
    Random r{17};
    const float designs[][2] = {{1.0f, 0.0f}, {6.0f, 4.0f}, {10.0f, 10.0f}, {0.0f, 3.0f}, {4.0f, 10.5f}, {-2.0f, 12.0f}};
    for (const auto &d : designs) {
        for (int round = 0; round < 200; round++) {
            const eqdrc::BassShaper s = round == 0 ? eqdrc::BassShaper::design(d[0], d[1])
                                                   : eqdrc::BassShaper::design(r.uniform(0.1f, 12.0f), r.uniform(0.0f, 11.0f));
            const float special[] = {s.a, -s.p, s.a * 0.5f, -s.p * 0.5f, 1e-8f, -1e-8f, 1.0001e-8f, 1e-4f, -1e-4f};
            for (int i = 0; i < 50; i++) {
                float y[4];
                for (float &v : y)
                    v = r.below(3) == 0 ? special[r.below(sizeof special / sizeof special[0])] : awkward_value(r);
                const eqdrc::f32x4 w = eqdrc::ShaperLanes<eqdrc::f32x4>(s, s).shape(lanes_of(y));
                for (int k = 0; k < 4; k++)
                    ASSERT_TRUE(same_bits(w[k], s.shape(y[k]))) << "y " << y[k] << " drive " << d[0];
            }
        }
    }
}

// The gain ramp in blocks of four against the loop it replaces; the probe against its
// definition; the frame peak and mean square against theirs.
TEST(LanePaths, RampProbeAndPeakEqualTheirLoops)
{
    Random r{13};
    for (int round = 0; round < 400; round++) {
        const int n = r.below(40);
        const std::vector<float> x = awkward(n, r);
        const int m = n == 0 ? 0 : 1 + r.below(n);
        const float from = r.uniform(0.0f, 2.0f), to = r.uniform(0.0f, 2.0f);

        std::vector<float> y(static_cast<size_t>(n)), want(static_cast<size_t>(n));
        eqdrc::ramp_then_hold(x.data(), y.data(), n, m, from, to);
        const float delta = (to - from) / static_cast<float>(m);
        float a = from;
        for (int i = 0; i < n; i++) {
            if (i < m)
                a = a + delta;
            want[i] = x[i] * a;
        }
        ASSERT_TRUE(same_bits(y, want)) << "round " << round;
        std::vector<float> inPlace = x;
        eqdrc::ramp_then_hold(inPlace.data(), inPlace.data(), n, m, from, to);
        ASSERT_TRUE(same_bits(inPlace, want));

        const float step = r.uniform(-0.1f, 0.1f), bound = r.uniform(1000.0f, 32768.0f);
        int first = n;
        a = from;
        for (int i = 0; i < n && first == n; i++) {
            a = a + step;
            if (std::fabs(x[i] * a) > bound)
                first = i;
        }
        ASSERT_EQ(eqdrc::first_overload(x.data(), n, from, step, bound), first);

        const float start = r.below(2) ? 0.0f : 7.0f, frames = static_cast<float>(n > 0 ? n : 1);
        float peak = start, meanSquare = 0.5f, laneMeanSquare = 0.5f;
        for (int i = 0; i < n; i++) {
            const float mag = std::fabs(x[i]);
            meanSquare = meanSquare + mag * mag / frames;
            if (mag > peak)
                peak = mag;
        }
        ASSERT_TRUE(same_bits(eqdrc::running_peak(x.data(), n, start, frames, &laneMeanSquare), peak));
        ASSERT_TRUE(same_bits(eqdrc::running_peak(x.data(), n, start, frames, nullptr), peak));
        ASSERT_TRUE(same_bits(laneMeanSquare, meanSquare));

        // Two channels at once, their sums side by side: each as one channel alone.
        const std::vector<float> other = awkward(n, r);
        const float *const both[] = {x.data(), other.data()};
        float pairPeak[2] = {start, 3.0f}, pairMeanSquare[2] = {0.5f, 0.25f};
        eqdrc::running_peaks<2>(both, n, pairPeak, frames, pairMeanSquare);
        float otherMeanSquare = 0.25f;
        const float otherPeak = eqdrc::running_peak(other.data(), n, 3.0f, frames, &otherMeanSquare);
        ASSERT_TRUE(same_bits(pairPeak[0], peak) && same_bits(pairPeak[1], otherPeak));
        ASSERT_TRUE(same_bits(pairMeanSquare[0], meanSquare) && same_bits(pairMeanSquare[1], otherMeanSquare));
    }
}

// The chain's 16-bit input and output in lanes against the sample-at-a-time forms, at
// every bit depth's clamp and across the int32 range, where the output falls back.
TEST(LanePaths, PcmConversionsEqualTheirScalarForms)
{
    Random r{3};
    const float depths[][2] = {{-32768.0f, 32767.0f}, {-8388608.0f, 8388607.0f}, {-2147483648.0f - 1.0f, 2147483648.0f}};
    const float odd[] = {kNaN, -kNaN, kInf, -kInf, -0.0f, 0.5f, -0.5f, 32767.5f, -32768.5f, 65535.9f, 2147483520.0f, -3e9f};
    for (const auto &d : depths) {
        const int n = 39;
        std::vector<float> left(n), right(n);
        for (int i = 0; i < n; i++) {
            left[i] = r.below(3) == 0 ? odd[r.below(12)] : r.uniform(-2.0f, 2.0f) * d[1];
            right[i] = r.below(3) == 0 ? odd[r.below(12)] : r.uniform(-2.0f, 2.0f) * d[1];
        }
        std::vector<int16_t> got(2 * n), want(2 * n);
        eqdrc::channels_to_pcm(left.data(), right.data(), got.data(), d[0], d[1], n);
        for (int i = 0; i < n; i++) {
            want[2 * i] = eqdrc::to_pcm16(left[i], d[0], d[1]);
            want[2 * i + 1] = eqdrc::to_pcm16(right[i], d[0], d[1]);
        }
        EXPECT_EQ(got, want) << "clamp at " << d[1];
    }
    std::vector<int16_t> pcm(2 * 37);
    for (auto &v : pcm)
        v = static_cast<int16_t>(r.next() >> 16);
    std::vector<float> left(37), right(37);
    eqdrc::pcm_to_channels(pcm.data(), left.data(), right.data(), 0.7f, 1.3f, 37);
    for (int i = 0; i < 37; i++) {
        EXPECT_TRUE(same_bits(std::vector<float>{left[i]}, std::vector<float>{static_cast<float>(pcm[2 * i]) * 0.7f}));
        EXPECT_TRUE(
            same_bits(std::vector<float>{right[i]}, std::vector<float>{static_cast<float>(pcm[2 * i + 1]) * 1.3f}));
    }
}

TEST(LanePaths, ReadsStayAheadRefusesOnlyAnOutputStartingInsideItsInput)
{
    float buf[32];
    EXPECT_TRUE(eqdrc::reads_stay_ahead(buf, buf, 16));       // in place
    EXPECT_TRUE(eqdrc::reads_stay_ahead(buf + 8, buf, 16));   // writes trail the reads
    EXPECT_TRUE(eqdrc::reads_stay_ahead(buf, buf + 16, 16));  // apart
    EXPECT_FALSE(eqdrc::reads_stay_ahead(buf, buf + 1, 16));  // a write lands on a later read
    EXPECT_FALSE(eqdrc::reads_stay_ahead(buf, buf + 15, 16));
}

}  // namespace
