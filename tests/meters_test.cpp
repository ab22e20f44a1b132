// The chain's live meters: reading them changes no output bit, and they read what the
// chain did to the frame.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "core/record.h"
#include "support/test_support.h"

namespace {

using namespace eqdrc;

constexpr int kFrame = 768;
constexpr int kRate = 48000;

// Stereo frame `f` at `amplitude` of full scale: a tone near `lowHz` (channel 1 30 Hz
// above), one at `highHz` and `noise`.
std::vector<int16_t> music(int f, double amplitude, double lowHz = 110.0, double highHz = 2500.0, double noise = 0.1)
{
    std::vector<int16_t> pcm(2 * kFrame);
    uint32_t seed = 977u * static_cast<uint32_t>(f) + 1u;
    for (int i = 0; i < 2 * kFrame; i++) {
        const int c = i % 2;
        const double t = static_cast<double>(f * kFrame + i / 2) / kRate;
        seed = seed * 1664525u + 1013904223u;
        const double v = 0.6 * std::sin(2 * M_PI * (lowHz + 30.0 * c) * t) + 0.3 * std::sin(2 * M_PI * highHz * t + c) +
                         noise * (static_cast<double>(seed >> 16) / 32768.0 - 1.0);
        pcm[static_cast<size_t>(i)] = static_cast<int16_t>(std::max(-32768.0, std::min(32767.0, amplitude * 32767.0 * v)));
    }
    return pcm;
}

struct Chain {
    explicit Chain(const std::vector<float> &rec) : st(eqdrc_test::quiet_chain(rec.data(), kFrame)) {}
    ~Chain() { eqdrc_test::destroy_quietly(st); }
    // Processes `pcm` in place, then reads the meters.
    AudioPostMeters run(std::vector<int16_t> &pcm)
    {
        AudioPost_Process(st, pcm.data(), pcm.data(), 0, kFrame);
        AudioPostMeters m;
        EXPECT_EQ(AudioPost_GetMeters(st, &m), 0);
        return m;
    }
    AudioPostMeters run(std::vector<int16_t> &&pcm) { return run(pcm); }
    AudioPostState *st;
};

}  // namespace

TEST(ChainMeters, ReadingAfterEveryFrameChangesNoOutputBit)
{
    const std::vector<float> rec = eqdrc_test::reference_record();
    Chain read(rec), unread(rec);
    // Loud, quiet, silent and loud again: every stage's gain moves both ways.
    for (int f = 0; f < 400; f++) {
        std::vector<int16_t> a = music(f, f < 150 ? 1.0 : f < 250 ? 0.05 : f < 300 ? 0.0 : 0.8), b = a;
        const AudioPostMeters m = read.run(a);
        AudioPost_Process(unread.st, b.data(), b.data(), 0, kFrame);
        ASSERT_EQ(std::memcmp(a.data(), b.data(), a.size() * sizeof(int16_t)), 0) << "frame " << f;
        ASSERT_EQ(m.frames, static_cast<uint64_t>(f) + 1u);
        ASSERT_EQ(m.stagesRun, 0xFFu) << "the reference tuning runs every stage";
    }
}

TEST(ChainMeters, PeaksReadTheFrameInAndOutWithEveryStageOff)
{
    std::vector<float> rec = eqdrc_test::blank_record();
    rec[kWordPreGain + kPreGainStride] = -6.0f;  // channel 1
    Chain stereo(rec);
    std::vector<int16_t> pcm(2 * kFrame, 0);
    pcm[2 * 100] = -32768;
    pcm[2 * 300 + 1] = 16384;
    AudioPostMeters m = stereo.run(pcm);
    EXPECT_EQ(m.stagesRun, 0u);
    EXPECT_EQ(m.inputPeakDb[0], 0.0f);
    EXPECT_EQ(m.outputPeakDb[0], 0.0f) << "-32768 passes through";
    EXPECT_NEAR(m.inputPeakDb[1], -6.0206f, 1e-4f) << "the input as handed in, before the pre-gain";
    EXPECT_NEAR(m.outputPeakDb[1], -12.0206f, 0.001f) << "after the pre-gain";
    m = stereo.run(std::vector<int16_t>(2 * kFrame, 0));
    EXPECT_EQ(m.inputPeakDb[1], EQDRC_METER_FLOOR_DB);
    EXPECT_EQ(m.outputPeakDb[0], EQDRC_METER_FLOOR_DB);

    Chain mono(eqdrc_test::blank_record(kRate, 16, 1));
    m = mono.run(std::vector<int16_t>(kFrame, -8192));
    EXPECT_EQ(m.channels, 1);
    EXPECT_NEAR(m.inputPeakDb[0], -12.0412f, 1e-4f);
    EXPECT_EQ(m.inputPeakDb[1], EQDRC_METER_FLOOR_DB) << "a channel the chain does not have";
}

// The reference tuning: quiet music, then a loud passage the limiter and the compressor
// take down, then silence that lets them go; a stage switched off reads 0 dB though it
// keeps its state.
TEST(ChainMeters, LoudPassageShowsTheDynamicsAtWorkAndSilenceReleasesThem)
{
    std::vector<float> rec = eqdrc_test::reference_record();
    Chain chain(rec);
    AudioPostMeters m{};
    for (int f = 0; f < 200; f++)  // long enough for the AGC to lift it fully
        m = chain.run(music(f, 0.05));
    EXPECT_NEAR(m.limiterGainDb[0], 0.0f, 0.05f) << "quiet music is not limited";
    EXPECT_NEAR(m.compressorGainDb[0][3], 0.0f, 0.05f);
    float lowestLimiter = 0.0f, lowestBand = 0.0f;
    for (int f = 200; f < 260; f++) {
        m = chain.run(music(f, 1.0));
        lowestLimiter = std::min({lowestLimiter, m.limiterGainDb[0], m.limiterGainDb[1]});
        for (const auto &channel : m.compressorGainDb)
            lowestBand = std::min(lowestBand, *std::min_element(channel, channel + EQDRC_METER_BANDS));
    }
    EXPECT_LT(lowestLimiter, -1.0f);
    EXPECT_LT(lowestBand, -2.0f);
    EXPECT_LT(m.outputPeakDb[0], -1.0f) << "the limiter's ceiling is -1 dB";

    for (int f = 0; f < 100; f++)
        m = chain.run(std::vector<int16_t>(2 * kFrame, 0));
    EXPECT_EQ(m.inputPeakDb[0], EQDRC_METER_FLOOR_DB);
    EXPECT_NEAR(m.limiterGainDb[0], 0.0f, 0.01f);

    rec[kWordEnable + 7] = 0.0f;  // the maximizer off
    ASSERT_EQ(AudioPost_SetPara(chain.st, rec.data(), kFrame), 0);
    m = chain.run(music(0, 1.0));
    EXPECT_EQ(m.stagesRun, 0x7Fu);
    EXPECT_EQ(m.limiterGainDb[0], 0.0f);
    EXPECT_NE(m.agcGainDb[0], 0.0f) << "the AGC still runs";
}

// A loud tone is compressed in its own band, named in the compressor's order (low,
// high, middle 1, middle 2: the reference crossover splits at 200, 1000 and 4000 Hz).
TEST(ChainMeters, CompressorBandsComeInTheCompressorsOrder)
{
    const std::vector<float> reference = eqdrc_test::reference_record();
    std::vector<float> rec = eqdrc_test::blank_record();
    std::copy(reference.begin() + kSectionMultiBandDrc, reference.begin() + kSectionMaximizer,
              rec.begin() + kSectionMultiBandDrc);
    rec[kWordEnable + 5] = 1.0f;
    const double toneHz[] = {80.0, 9000.0, 500.0, 2000.0};
    for (int band = 0; band < 4; band++) {
        Chain chain(rec);
        AudioPostMeters m{};
        for (int f = 0; f < 40; f++)
            m = chain.run(music(f, 0.7, toneHz[band], toneHz[band], 0.0));
        for (const float *gains : m.compressorGainDb) {
            EXPECT_EQ(std::min_element(gains, gains + EQDRC_METER_BANDS) - gains, band) << toneHz[band] << " Hz";
            EXPECT_LT(gains[band], -3.0f) << toneHz[band] << " Hz";
        }
    }
}

TEST(ChainMeters, NullArgumentsAreRefusedAndNothingIsWritten)
{
    AudioPostMeters m;
    std::memset(&m, 0x5A, sizeof m);
    const AudioPostMeters before = m;
    EXPECT_EQ(AudioPost_GetMeters(nullptr, &m), -1);
    EXPECT_EQ(std::memcmp(&m, &before, sizeof m), 0);
    Chain chain(eqdrc_test::blank_record());
    EXPECT_EQ(AudioPost_GetMeters(chain.st, nullptr), -1);
}
