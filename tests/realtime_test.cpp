// Real-time safety: on the processing path nothing allocates, locks, sleeps or does I/O,
// as the probe (support/realtime_probe.h) counts the calls.
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "support/realtime_probe.h"
#include "support/test_support.h"

namespace {

using namespace eqdrc_test;

constexpr int kFrame = 768;
constexpr int kChannels = 2;
constexpr int kRate = 48000;
constexpr int kBits = 16;
constexpr int kFrames = 2000;  // 32 s of audio per pass

// Music-like stereo test input: two detuned tones and a noise burst that comes and goes,
// loud enough to drive every dynamics stage both ways.
void fill_frame(int16_t *dst, int frame)
{
    unsigned seed = 12345u + static_cast<unsigned>(frame);
    for (int i = 0; i < kFrame; ++i) {
        const double t = static_cast<double>(frame * kFrame + i) / kRate;
        seed = seed * 1103515245u + 12345u;
        const double burst = (frame / 20) % 2 ? static_cast<int>(seed >> 17) - 16384 : 0.0;
        const double level = 0.2 + 0.8 * ((frame / 50) % 3) / 2.0;
        const double l = level * (12000.0 * std::sin(2 * M_PI * 110.0 * t) + 6000.0 * std::sin(2 * M_PI * 4300.0 * t)) +
                         0.4 * burst;
        const double r = level * (12000.0 * std::sin(2 * M_PI * 82.0 * t) + 6000.0 * std::sin(2 * M_PI * 7100.0 * t)) -
                         0.4 * burst;
        dst[2 * i] = static_cast<int16_t>(std::max(-32768.0, std::min(32767.0, l)));
        dst[2 * i + 1] = static_cast<int16_t>(std::max(-32768.0, std::min(32767.0, r)));
    }
}

class RealTime : public testing::Test {
protected:
    void SetUp() override
    {
#if !EQDRC_RT_INTERPOSED
        GTEST_SKIP() << "sanitizers replace the interposed functions";
#endif
        rec = eqdrc_test::reference_record();
        for (int f = 0; f < 2; ++f)
            for (int k = 10; k <= 17; ++k)
                ASSERT_NE(rec[static_cast<size_t>(k)], 0.0f) << "the reference tuning enables every stage";
    }
    std::vector<float> rec;
};

}  // namespace

// The interposition itself works: a plain allocation, a write and a lock are seen.
TEST_F(RealTime, InterpositionSeesTheCallsItCounts)
{
    pthread_mutex_t m = PTHREAD_MUTEX_INITIALIZER;
    auto c = calls_during([&] {
        void *volatile block = malloc(16);  // volatile: the compiler may drop a malloc/free pair
        free(block);
        pthread_mutex_lock(&m);
        pthread_mutex_unlock(&m);
        std::fwrite("", 1, 0, stderr);
        usleep(0);
    });
    EXPECT_EQ(c[kAlloc], 2);
    EXPECT_EQ(c[kLock], 1);
    EXPECT_EQ(c[kIo], 1);
    EXPECT_EQ(c[kSleep], 1);
}

// The whole chain, every stage on, with every real-time-safe live call between frames.
TEST_F(RealTime, ChainProcessAndLiveAdjustCallsNeitherAllocateLockNorDoIo)
{
    AudioPostState *st = eqdrc_test::quiet_chain(rec.data(), kFrame);
    ASSERT_NE(st, nullptr);
    std::vector<int16_t> in(kFrame * kChannels), out(in.size());
    std::vector<float> readBack(EQDRC_RECORD_WORDS), eq(100);
    Planar eqIn(kChannels, kFrame), eqOut(kChannels, kFrame);
    AudioPostMeters meters;
    std::vector<float> retune = rec;
    for (int f = 0; f < kFrames; ++f) {
        fill_frame(in.data(), f);
        const float wobble = static_cast<float>(f % 7);
        EXPECT_REALTIME_SAFE("frame " + std::to_string(f), {
            AudioPost_Process(st, in.data(), out.data(), 0, kFrame);
            AudioPost_Maximizer_AdjustPara(st, f % 2, -1.0f - wobble * 0.1f, -0.3f, 50.0f + wobble);
            AudioPost_Agc_AdjustPara(st, f % 2, -20.0f, -50.0f, -70.0f, 6.0f + wobble * 0.1f, -3.0f, 5.0f, 200.0f,
                                     10.0f);
            AudioPost_MultiBandDRC_DRC_AdjustPara(st, f % 2, f % 4, 1, 1.0f, -24.0f + wobble, -50.0f, -70.0f, 6.0f,
                                                  -3.0f, 5.0f, 100.0f, 10.0f);
            AudioPost_MultiBandDRC_Crossover_AdjustPara(st, f % 2, 150.0f + wobble, 5000.0f, 150.0f, 1500.0f,
                                                        1500.0f, 5000.0f);
            AudioPost_EQ10_GetPara(st, eq.data());
            AudioPost_EQ10_SetPara(st, eq.data());
            AudioPost_EQ10_GetData(st, eqIn.ptrs(), eqOut.ptrs());
            AudioPost_GetMeters(st, &meters);
            AudioPost_GetPara(st, readBack.data());
        });
        if (testing::Test::HasFailure())
            break;
        if (f % 100 == 99) {  // a whole new record with the same stages enabled
            retune[30] = rec[30] + wobble;
            EXPECT_REALTIME_SAFE("SetPara at frame " + std::to_string(f),
                                 AudioPost_SetPara(st, retune.data(), kFrame));
        }
    }
    eqdrc_test::destroy_quietly(st);
}

// The exported meters and primitives the chain does not run: the level detector, the
// loudness meter's read-out, a crossover bank and a biquad section, after creation.
TEST_F(RealTime, MetersAndPrimitivesNeitherAllocateLockNorDoIo)
{
    LevelDetectorState *ld = LevelDetector_Init(kBits, kRate, kChannels, kFrame);
    Ebur128State *meter = ebur128_init(kBits, kRate, kChannels, 400, 100);
    CrossoverParam *xp = Filters_Crossover_paramInit();
    CrossoverState *xo = Filters_Crossover_filterInit(kRate, kChannels, xp);
    BiquadState *bq = biquad_init();
    float coeffs[5];
    filter_calculateCoeffs(coeffs, 0, kRate, 1000.0f, 0.7f, 3.0f);
    biquad_setCoefficients(bq, coeffs);
    ASSERT_TRUE(ld && meter && xp && xo && bq);

    std::vector<int16_t> pcm(kFrame * kChannels);
    Planar a(kChannels, kFrame);
    LevelDetectorResult levels;
    std::vector<float> xoIn(kFrame * kChannels, 1000.0f), xoOut(kChannels * 4);
    for (int f = 0; f < kFrames / 4; ++f) {
        fill_frame(pcm.data(), f);
        for (int c = 0; c < kChannels; ++c)
            for (int i = 0; i < kFrame; ++i)
                a.data[c][i] = pcm[static_cast<size_t>(i * kChannels + c)];
        EXPECT_REALTIME_SAFE("frame " + std::to_string(f), {
            LevelDetector_Process(ld, pcm.data(), kFrame);
            LevelDetector_GetRes(ld, &levels);
            ebur128_addframes(meter, a.ptrs(), kFrame);
            ebur128_gatedloudness(meter);
            for (int i = 0; i < kFrame; ++i)
                Filters_Crossover_filterProcess(xo, xoIn.data() + i * kChannels, xoOut.data());
            for (int i = 0; i < kFrame; ++i)
                biquad_processAudioSample(bq, a.data[0][static_cast<size_t>(i)]);
        });
        if (testing::Test::HasFailure())
            break;
    }
    biquad_destroy(bq);
    Filters_Crossover_filterDestroy(xo);
    free(xp);
    ebur128_destroy(meter);
    LevelDetector_Destroy(ld);
}

// The calls the header lists as not real-time safe are so for the reason it gives:
// if one of them became safe, or another kind of call crept in, the list is wrong.
TEST_F(RealTime, CallsListedAsNotRealTimeSafeDoWhatTheHeaderSays)
{
    std::vector<float> base = rec;
    base[13] = 0.0f;  // de-esser off, to be enabled live
    AudioPostState *st = eqdrc_test::quiet_chain(base.data(), kFrame);
    ASSERT_NE(st, nullptr);
    std::array<int, kKinds> c{};
    eqdrc_test::capture_stderr([&] { c = calls_during([&] { AudioPost_SetPara(st, rec.data(), kFrame); }); });
    EXPECT_GT(c[kAlloc], 0) << "SetPara enabling a stage creates it";
    eqdrc_test::destroy_quietly(st);

    // Each of these is refused or restarts something, and says so or reallocates.
    struct Case {
        const char *what;
        Kind kind;
        std::function<void(AudioPostState *)> call;
    };
    std::vector<float> newWindow = rec, badVersion = rec;
    newWindow[33] += 100.0f;  // auto gain meter window
    badVersion[4] = 3.0f;
    const Case cases[] = {
        {"SetPara changing the loudness window", kAlloc,
         [&](AudioPostState *s) { AudioPost_SetPara(s, newWindow.data(), kFrame); }},
        {"SetPara with a wrong tool version", kIo,
         [&](AudioPostState *s) { AudioPost_SetPara(s, badVersion.data(), kFrame); }},
        {"an AGC curve that is not monotonic", kIo,
         [](AudioPostState *s) { AudioPost_Agc_AdjustPara(s, 0, -50.0f, -20.0f, -70.0f, 6.0f, -3.0f, 5, 200, 10); }},
        {"a compressor band out of range", kIo,
         [](AudioPostState *s) {
             AudioPost_MultiBandDRC_DRC_AdjustPara(s, 0, 9, 1, 0, -24, -50, -70, 6, -3, 5, 100, 10);
         }},
        {"a compressor curve that is not monotonic", kIo,
         [](AudioPostState *s) {
             AudioPost_MultiBandDRC_DRC_AdjustPara(s, 0, 0, 1, 0, -50, -24, -70, 6, -3, 5, 100, 10);
         }},
    };
    for (const Case &k : cases) {
        st = eqdrc_test::quiet_chain(rec.data(), kFrame);
        eqdrc_test::capture_stderr([&] { c = calls_during([&] { k.call(st); }); });
        EXPECT_GT(c[k.kind], 0) << k.what << ": " << describe(c);
        eqdrc_test::destroy_quietly(st);
    }

    eqdrc_test::capture_stderr([&] {
        c = calls_during([&] { st = AudioPost_Init(rec.data(), kFrame); });
        EXPECT_GT(c[kAlloc], 0);
        EXPECT_GT(c[kIo], 0) << "creation prints the version banner";
        c = calls_during([&] { AudioPost_Destroy(st); });
        EXPECT_GT(c[kAlloc], 0);
    });
}
