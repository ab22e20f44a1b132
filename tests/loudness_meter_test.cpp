// Loudness meter: calibration against reference tones, the gates, the block history,
// the channel weights and windows that leave the ring without slots.
#include <cmath>
#include <vector>

#include "meters/loudness_meter.h"
#include "support/test_support.h"

namespace {

using eqdrc_test::Planar;

using eqdrc_test::amplitude;

// Feeds `seconds` of a sine on the channels flagged in `active` (silence elsewhere),
// in frames of `frameLen`.  Returns the number of frames fed.
int feed_sine(Ebur128State *m, int channels, const std::vector<bool> &active, int sampleRate, int frameLen,
              double seconds, float freq, float amp, int *clock)
{
    Planar buf(channels, frameLen);
    const int frames = static_cast<int>(seconds * sampleRate / frameLen);
    for (int f = 0; f < frames; f++) {
        std::vector<float> s = eqdrc_test::sine(frameLen, freq, sampleRate, amp, *clock);
        for (int ch = 0; ch < channels; ch++)
            for (int i = 0; i < frameLen; i++)
                buf.data[ch][i] = active[ch] ? s[i] : 0.0f;
        ebur128_addframes(m, buf.ptrs(), frameLen);
        *clock += frameLen;
    }
    return frames;
}

float measure_sine(int bits, int sampleRate, int channels, const std::vector<bool> &active, double dbfs,
                   int frameLen = 480, bool negate = false)
{
    const double fullScale = bits == 16 ? 32768.0 : bits == 24 ? 8388608.0 : 2147483648.0;
    Ebur128State *m = ebur128_init(bits, sampleRate, channels, 400, 100);
    int clock = 0;
    feed_sine(m, channels, active, sampleRate, frameLen, 3.0, 1000.0f,
              (negate ? -1.0f : 1.0f) * amplitude(dbfs, fullScale), &clock);
    const float lufs = ebur128_gatedloudness(m);
    ebur128_destroy(m);
    return lufs;
}

// ---------------------------------------------------------------------------------

class LoudnessCalibration : public testing::TestWithParam<int> {};

// The reference case of loudness metering: a 1 kHz sine at -23 dBFS on both channels
// of a stereo programme reads -23 LUFS, at every sample rate.
TEST_P(LoudnessCalibration, StereoSineAtMinus23DbfsReadsMinus23Lufs)
{
    EXPECT_NEAR(measure_sine(16, GetParam(), 2, {true, true}, -23.0), -23.0, 0.1);
}

INSTANTIATE_TEST_SUITE_P(SampleRates, LoudnessCalibration, testing::Values(44100, 48000, 96000));

TEST(LoudnessScale, EveryBitDepthMeasuresAgainstItsFullScaleWhateverThePolarity)
{
    const float l16 = measure_sine(16, 48000, 2, {true, true}, -23.0);
    EXPECT_NEAR(measure_sine(24, 48000, 2, {true, true}, -23.0), l16, 0.01);
    EXPECT_NEAR(measure_sine(32, 48000, 2, {true, true}, -23.0), l16, 0.01);
    // The 32-bit divisor is negative; only squares reach the result.
    EXPECT_EQ(measure_sine(32, 48000, 1, {true}, -20.0, 512, false),
              measure_sine(32, 48000, 1, {true}, -20.0, 512, true));
}

// ---------------------------------------------------------------------------------

TEST(LoudnessGates, SilenceIsNoMeasurement)
{
    Ebur128State *m = ebur128_init(16, 48000, 2, 400, 100);
    EXPECT_EQ(ebur128_gatedloudness(m), -1000.0f);
    int clock = 0;
    feed_sine(m, 2, {true, true}, 48000, 768, 2.0, 1000.0f, 0.0f, &clock);
    EXPECT_EQ(m->historyCount, 0);
    EXPECT_EQ(ebur128_gatedloudness(m), -1000.0f);
    ebur128_destroy(m);
}

// The absolute gate keeps a block whose mean energy equals it exactly.  A power-of-two
// window (32 ms at 32 kHz = 1024 samples) lets the mean be placed on the boundary.
TEST(LoudnessGates, BlockExactlyOnTheAbsoluteGateIsStored)
{
    const float gate = 1.1724653e-7f;
    for (float mean : {gate, std::nextafter(gate, 0.0f)}) {
        Ebur128State *m = ebur128_init(16, 32000, 1, 32, 32);
        ASSERT_EQ(m->windowSamples, 1024);
        m->channelSums[0] = mean * 1024.0f;
        m->countdown = 0;
        Planar none(1, 1);
        ebur128_addframes(m, none.ptrs(), 0);  // evaluates a block without adding samples
        if (mean == gate) {
            EXPECT_EQ(m->historyCount, 1);
            EXPECT_NEAR(ebur128_gatedloudness(m), -70.0f, 0.001f);
        } else {
            EXPECT_EQ(m->historyCount, 0);
            EXPECT_EQ(ebur128_gatedloudness(m), -1000.0f);
        }
        ebur128_destroy(m);
    }
}

TEST(LoudnessGates, RelativeGateDropsBlocksTenDecibelsBelowTheAverage)
{
    // Two seconds at -20 dBFS, then one of a tone 40 dB lower that still passes the
    // absolute gate.  Without the relative gate the quiet third would pull the reading
    // down by more than 1.5 LU; with it only the few blocks straddling the change count.
    Ebur128State *m = ebur128_init(16, 48000, 1, 100, 20);
    int clock = 0;
    feed_sine(m, 1, {true}, 48000, 480, 2.0, 1000.0f, amplitude(-20.0), &clock);
    const float loud = ebur128_gatedloudness(m);
    feed_sine(m, 1, {true}, 48000, 480, 1.0, 1000.0f, amplitude(-60.0), &clock);
    double all = 0.0;
    for (int i = 0; i < m->historyCount; i++)
        all += m->blockHistory[i];
    const double ungated = 10.0 * std::log10(all / m->historyCount) - 0.691;
    EXPECT_LT(ungated, loud - 1.5);
    EXPECT_NEAR(ebur128_gatedloudness(m), loud, 0.15);
    ebur128_destroy(m);
}

// ---------------------------------------------------------------------------------

TEST(LoudnessHistory, TwoHundredAndFirstBlockOverwritesTheOldest)
{
    Ebur128State *m = ebur128_init(16, 48000, 1, 100, 10);  // a block every 480 samples
    int clock = 0;
    // 100 ms fills the window (first block), then 200 more steps.
    feed_sine(m, 1, {true}, 48000, 480, 0.1 + 200 * 0.01, 1000.0f, amplitude(-20.0), &clock);
    EXPECT_EQ(m->historyCount, 200);
    EXPECT_EQ(m->historyIndex, 1);
    ebur128_destroy(m);
}

TEST(LoudnessHistory, ReadingCoversOnlyTheLastTwoHundredSteps)
{
    Ebur128State *m = ebur128_init(16, 48000, 1, 100, 10);
    int clock = 0;
    feed_sine(m, 1, {true}, 48000, 480, 3.0, 1000.0f, amplitude(-20.0), &clock);
    // 200 steps of 10 ms plus one window: every stored block is of the quieter tone.
    feed_sine(m, 1, {true}, 48000, 480, 2.0 + 0.1, 1000.0f, amplitude(-26.0), &clock);
    EXPECT_NEAR(ebur128_gatedloudness(m), measure_sine(16, 48000, 1, {true}, -26.0), 0.02);
    ebur128_destroy(m);
}

TEST(LoudnessHistory, FrameLongerThanTheStepGivesOneBlockPerCall)
{
    // Window 4800 samples, step 480, frames of 1500: the window is full on call 4, and
    // from then on every call evaluates exactly one block.
    Ebur128State *m = ebur128_init(16, 48000, 2, 100, 10);
    int clock = 0;
    const int calls = feed_sine(m, 2, {true, true}, 48000, 1500, 1500 * 20 / 48000.0, 1000.0f, amplitude(-20.0),
                                &clock);
    ASSERT_EQ(calls, 20);
    EXPECT_EQ(m->historyCount, calls - 3);
    EXPECT_LE(m->countdown, 0);
    ebur128_destroy(m);
}

// ---------------------------------------------------------------------------------

// Frames that divide the window keep every ring slot with one channel, so a tone on one
// channel of a multichannel meter measures exactly as the same tone on a mono meter,
// up to that channel's weight.
TEST(LoudnessChannelWeights, SurroundsCountOnePointFourOneAndChannelsPastTheTableOne)
{
    const float mono = measure_sine(16, 48000, 1, {true}, -20.0);
    std::vector<bool> only3(5, false), only6(7, false);
    only3[3] = true;
    only6[6] = true;
    EXPECT_NEAR(measure_sine(16, 48000, 5, only3, -20.0), mono + 10.0 * std::log10(1.41), 0.001);
    EXPECT_EQ(measure_sine(16, 48000, 7, only6, -20.0), mono);
}

// Windows of zero or fewer samples leave the ring without slots, and a meter may have no
// channels: neither may be read or written past, whatever the meter then reports.
TEST(LoudnessMemorySafety, EmptyRingsAndNoChannelsStayInsideTheirBuffers)
{
    for (int windowMs : {0, -400}) {
        for (int stepMs : {0, -100, 100}) {
            Ebur128State *m = ebur128_init(16, 48000, 2, windowMs, stepMs);
            int clock = 0;
            feed_sine(m, 2, {true, true}, 48000, 480, 0.5, 1000.0f, amplitude(-20.0), &clock);
            EXPECT_LE(m->historyCount, 200);
            ebur128_gatedloudness(m);
            ebur128_destroy(m);
        }
    }
    Ebur128State *none = ebur128_init(16, 48000, 0, 400, 100);
    ebur128_addframes(none, nullptr, 480);
    EXPECT_EQ(ebur128_gatedloudness(none), -1000.0f);
    ebur128_destroy(none);
    ebur128_destroy(nullptr);
}

}  // namespace
