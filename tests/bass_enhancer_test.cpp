// Bass enhancer: harmonics in place of the fundamental, settling, holds of one value,
// retuning, read-back and misuse.
#include <algorithm>
#include <cmath>
#include <complex>
#include <cstring>
#include <vector>

#include "enhance/bass_enhancer.h"
#include "support/test_support.h"

namespace {

using eqdrc_test::Planar;

constexpr int kFs = 48000;
constexpr int kFrame = 768;

// Twenty words: two channel blocks of ten.
struct Section {
    float w[20] = {};
    Section(float amountDb, float drive, float blend, float freq, float floorActive, float floor)
    {
        for (int ch = 0; ch < 2; ch++) {
            float *b = w + 10 * ch;
            b[0] = amountDb;
            b[1] = drive;
            b[2] = blend;
            b[3] = freq;
            b[4] = floorActive;
            b[5] = floor;
        }
    }
};

const Section kReference{3.0f, 4.0f, 2.0f, 100.0f, 1.0f, 40.0f};

// Amplitude of the `freq` component of x (a whole number of cycles long).
double tone_amplitude(const std::vector<float> &x, double freq)
{
    std::complex<double> acc = 0.0;
    for (size_t i = 0; i < x.size(); i++)
        acc += static_cast<double>(x[i]) * std::polar(1.0, -2.0 * M_PI * freq * i / kFs);
    return 2.0 * std::abs(acc) / static_cast<double>(x.size());
}

// Runs `in` (mono, one channel of a stereo state when `channels` is 2) frame by frame.
std::vector<float> run(BassEnhancerState *st, const std::vector<float> &in, int channels = 1)
{
    std::vector<float> out(in.size());
    Planar buf(channels, kFrame);
    for (size_t pos = 0; pos + kFrame <= in.size(); pos += kFrame) {
        for (int ch = 0; ch < channels; ch++)
            std::copy(in.begin() + static_cast<long>(pos), in.begin() + static_cast<long>(pos + kFrame),
                      buf.data[ch].begin());
        BassEnhancer_Process(st, buf.ptrs(), buf.ptrs(), kFrame);
        std::copy(buf.data[0].begin(), buf.data[0].end(), out.begin() + static_cast<long>(pos));
    }
    return out;
}

// ---------------------------------------------------------------------------------

// Harmonics of a 50 Hz tone at -6 dBFS for the given drive, relative to the tone.
struct Spectrum {
    double fundamental, second, third;
};

Spectrum bass_tone_spectrum(float drive)
{
    const Section sec{0.0f, drive, 8.0f, 100.0f, 0.0f, 40.0f};
    BassEnhancerState *st = BassEnhancer_Init(sec.w, 16, kFs, 1, 0);
    const float amp = 16384.0f;
    const std::vector<float> out = run(st, eqdrc_test::sine(250 * kFrame, 50.0f, kFs, amp));
    BassEnhancer_Destroy(st);
    // Two seconds past the filters' and DC blocker's transients.
    const std::vector<float> tail(out.begin() + kFs, out.begin() + 3 * kFs);
    return {tone_amplitude(tail, 50.0) / amp, tone_amplitude(tail, 100.0) / amp, tone_amplitude(tail, 150.0) / amp};
}

TEST(BassEnhancerHarmonics, FundamentalBelowFreqIsReplacedByItsHarmonics)
{
    const Spectrum driven = bass_tone_spectrum(8.0f);
    EXPECT_LT(driven.fundamental, 0.1);  // more than 20 dB down: the dry low band is gone
    EXPECT_GT(driven.second, 0.05);      // the input has nothing at 100 or 150 Hz
    EXPECT_GT(driven.third, 0.03);
    // More drive, more harmonics.
    const Spectrum gentle = bass_tone_spectrum(2.0f);
    EXPECT_GT(driven.second + driven.third, 3.0 * (gentle.second + gentle.third));
}

TEST(BassEnhancerHarmonics, ContentAboveFreqPassesAndAmountScalesOnlyTheHarmonics)
{
    // A 2 kHz tone lies above the harmonic band: the output is the high part alone.
    const std::vector<float> in = eqdrc_test::sine(63 * kFrame, 2000.0f, kFs, 8000.0f);
    for (float amountDb : {0.0f, 12.0f}) {
        const Section sec{amountDb, 4.0f, 2.0f, 100.0f, 0.0f, 40.0f};
        BassEnhancerState *st = BassEnhancer_Init(sec.w, 16, kFs, 1, 0);
        const std::vector<float> out = run(st, in);
        const std::vector<float> tail(out.begin() + kFs / 2, out.begin() + kFs);
        EXPECT_NEAR(tone_amplitude(tail, 2000.0), 8000.0, 8000.0 * 0.001) << amountDb;
        BassEnhancer_Destroy(st);
    }
    // On a bass tone, +12 dB of amount gives four times the harmonics.
    const std::vector<float> bass = eqdrc_test::sine(2 * kFs, 60.0f, kFs, 8000.0f);
    double harmonic[2];
    for (int k = 0; k < 2; k++) {
        const Section sec{k == 0 ? 0.0f : 12.0f, 4.0f, 2.0f, 100.0f, 0.0f, 40.0f};
        BassEnhancerState *st = BassEnhancer_Init(sec.w, 16, kFs, 1, 0);
        const std::vector<float> out = run(st, bass);
        harmonic[k] = tone_amplitude(std::vector<float>(out.begin() + kFs, out.begin() + 2 * kFs), 180.0);
        BassEnhancer_Destroy(st);
    }
    EXPECT_NEAR(harmonic[1] / harmonic[0], std::pow(10.0, 12.0 / 20.0), 0.05);
}

TEST(BassEnhancerHarmonics, SilenceSettlesToSilence)
{
    // With this much drive the shaper's output on silence is a constant step, which
    // the DC blocker has to remove.
    const Section sec{3.0f, 20.0f, 2.0f, 100.0f, 1.0f, 40.0f};
    BassEnhancerState *st = BassEnhancer_Init(sec.w, 16, kFs, 2, 0);
    const std::vector<float> out = run(st, std::vector<float>(313 * kFrame), 2);
    float early = 0.0f, late = 0.0f;
    for (int i = 0; i < kFs / 10; i++)
        early = std::max(early, std::fabs(out[i]));
    for (size_t i = out.size() - kFs; i < out.size(); i++)
        late = std::max(late, std::fabs(out[i]));
    EXPECT_GT(early, 1.0f);             // a transient there is
    EXPECT_LT(late, 1e-3f);             // far below one LSB
    EXPECT_EQ(st->dcPrevOut[0], 0.0f);  // flushed, not left denormal
    BassEnhancer_Destroy(st);
}

// The stereo frame runs both channels' split in lanes and, once its state repeats on a
// hold, copies the split's bands and shaped values; a mono state steps every sample.
TEST(BassEnhancerSilence, HoldsAreCopiedOnceTheSplitRepeatsAndGiveTheChannelLoopsBits)
{
    constexpr int kLongerHold = kFs / 2;
    const Section sections[] = {kReference, {6.0f, 8.0f, 4.0f, 60.0f, 0.0f, 30.0f}, {0.0f, 2.0f, 9.0f, 180.0f, 1.0f, 20.0f}};
    for (const Section &sec : sections)
        for (float held : {0.0f, -0.0f, 37.0f})
            for (int frameLen : {kFrame, 300, 17}) {  // 300: a short block after a whole one
                SCOPED_TRACE(testing::Message() << "freq " << sec.w[3] << " held " << held << " frame " << frameLen);
                // The split at these corners takes about a quarter second to reach the
                // denormal range, so the second hold is made longer.
                std::vector<float> stereo[2] = {eqdrc_test::bursts_and_holds(1, 900, held),
                                                eqdrc_test::bursts_and_holds(2, 950, held)};
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
                        ASSERT_TRUE(eqdrc_test::same_bits(std::vector<float>(buf[ch], buf[ch] + n),
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

TEST(BassEnhancerHarmonics, FloorFlagIsTruncatedBeforeItIsTested)
{
    const std::vector<float> in = eqdrc_test::sine(kFs / 2, 45.0f, kFs, 8000.0f);
    std::vector<float> out[3];
    const float flags[3] = {0.0f, 0.9f, 1.0f};
    for (int k = 0; k < 3; k++) {
        const Section sec{3.0f, 4.0f, 2.0f, 100.0f, flags[k], 90.0f};
        BassEnhancerState *st = BassEnhancer_Init(sec.w, 16, kFs, 1, 0);
        out[k] = run(st, in);
        BassEnhancer_Destroy(st);
    }
    EXPECT_TRUE(eqdrc_test::same_bits(out[0], out[1]));
    EXPECT_FALSE(eqdrc_test::same_bits(out[0], out[2]));
}

// ---------------------------------------------------------------------------------

TEST(BassEnhancerRetune, SetParaRestartsFromRest)
{
    const Section other{6.0f, 2.0f, 5.0f, 80.0f, 1.0f, 30.0f};
    const std::vector<float> in = eqdrc_test::sine(20 * kFrame, 70.0f, kFs, 9000.0f);
    BassEnhancerState *used = BassEnhancer_Init(kReference.w, 16, kFs, 2, 0);
    run(used, in, 2);
    BassEnhancer_SetPara(used, other.w);
    BassEnhancerState *fresh = BassEnhancer_Init(other.w, 16, kFs, 2, 0);
    EXPECT_TRUE(eqdrc_test::same_bits(run(used, in, 2), run(fresh, in, 2)));
    BassEnhancer_Destroy(used);
    BassEnhancer_Destroy(fresh);
}

TEST(BassEnhancerRetune, LinkedChannelsShareChannelZeroAndReadBackIntoBothBlocks)
{
    Section sec{3.0f, 4.0f, 2.0f, 100.0f, 1.0f, 40.0f};
    for (int i = 10; i < 20; i++)
        sec.w[i] = -7.0f;  // ignored when linked
    BassEnhancerState *st = BassEnhancer_Init(sec.w, 16, kFs, 2, 1);
    std::vector<float> back(24, 99.0f);
    BassEnhancer_GetPara(st, back.data());
    const std::vector<float> block{3.0f, 4.0f, 2.0f, 100.0f, 1.0f, 40.0f, 99.0f, 99.0f, 99.0f, 99.0f};
    EXPECT_EQ(std::vector<float>(back.begin(), back.begin() + 10), block);
    EXPECT_EQ(std::vector<float>(back.begin() + 10, back.begin() + 20), block);
    EXPECT_EQ(back[20], 99.0f);

    // Both channels run the same filters: identical input gives identical output.
    const std::vector<float> tone = eqdrc_test::sine(kFrame, 60.0f, kFs, 5000.0f);
    Planar buf(2, kFrame);
    buf.data[0] = tone;
    buf.data[1] = tone;
    buf.ptr = {buf.data[0].data(), buf.data[1].data()};
    BassEnhancer_Process(st, buf.ptrs(), buf.ptrs(), kFrame);
    EXPECT_TRUE(eqdrc_test::same_bits(buf.data[0], buf.data[1]));
    BassEnhancer_Destroy(st);
}

TEST(BassEnhancerRetune, MonoReadBackWritesOneBlockAndPrintsOneChannel)
{
    const Section sec{-1.5f, 4.25f, 2.0f, 90.0f, 1.9f, 35.5f};
    BassEnhancerState *st = BassEnhancer_Init(sec.w, 16, kFs, 1, 0);
    std::vector<float> back(20, 99.0f);
    BassEnhancer_GetPara(st, back.data());
    EXPECT_EQ(std::vector<float>(back.begin(), back.begin() + 6),
              (std::vector<float>{-1.5f, 4.25f, 2.0f, 90.0f, 1.0f, 35.5f}));
    EXPECT_EQ(std::vector<float>(back.begin() + 6, back.end()), std::vector<float>(14, 99.0f));
    EXPECT_EQ(eqdrc_test::capture_stderr([&] { BassEnhancer_PrintPara(st); }),
              "LOG (BassEnhancer_PrintPara(): ,375), BassEnhancer Param\n"
              "LOG (BassEnhancer_PrintPara(): ,376), =====================\n"
              "LOG (BassEnhancer_PrintPara(): ,378), ==== channel:0 ====\n"
              "LOG (BassEnhancer_PrintPara(): ,379), amount_dB:-1.50\n"
              "LOG (BassEnhancer_PrintPara(): ,380), drive:4.25\n"
              "LOG (BassEnhancer_PrintPara(): ,381), blend:2.00\n"
              "LOG (BassEnhancer_PrintPara(): ,382), freq:90.00\n"
              "LOG (BassEnhancer_PrintPara(): ,383), floor_active:1\n"
              "LOG (BassEnhancer_PrintPara(): ,384), floor:35.50\n");
    EXPECT_EQ(BassEnhancer_Destroy(st), 0);
}

// ---------------------------------------------------------------------------------

TEST(BassEnhancerMisuse, DegenerateDriveAndBlendRunWithoutMessage)
{
    // drive 0 and blend 10.5 give non-finite shaper constants; they must only make NaN.
    for (const Section &sec : {Section{3.0f, 0.0f, 2.0f, 100.0f, 0.0f, 40.0f},
                               Section{3.0f, 4.0f, 10.5f, 100.0f, 0.0f, 40.0f}}) {
        BassEnhancerState *st = nullptr;
        EXPECT_EQ(eqdrc_test::capture_stderr([&] { st = BassEnhancer_Init(sec.w, 16, kFs, 2, 0); }), "");
        run(st, eqdrc_test::sine(4 * kFrame, 60.0f, kFs, 5000.0f), 2);
        BassEnhancer_Destroy(st);
    }
}

}  // namespace
