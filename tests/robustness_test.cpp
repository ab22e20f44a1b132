// Hostile records and signals: NaN, infinities, denormals and absurd sizes through every
// stage and the chain.  What each stage does with them is its ordinary arithmetic; these
// tests pin the outcomes a host can rely on (valid samples, table ends, a gain that a
// NaN frame cannot poison, recovery on retuning) and, under ASan/UBSan, that nothing
// reads, writes or computes out of bounds.
#include <cfloat>
#include <cmath>
#include <algorithm>
#include <cstring>
#include <functional>
#include <limits>
#include <vector>

#include "dynamics/maximizer.h"
#include "enhance/auto_gain.h"
#include "enhance/bass_enhancer.h"
#include "enhance/de_esser.h"
#include "enhance/exciter.h"
#include "support/test_support.h"
#include "tqaudio_eqdrc.h"

namespace {

using eqdrc_test::Planar;
using eqdrc_test::reference_record;
using eqdrc_test::same_bits;

constexpr int kFs = 48000;
constexpr int kFrame = 768;
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInf = std::numeric_limits<float>::infinity();
constexpr float kDenormal = 1e-40f;

// Sample values no signal should carry, and a few that are merely extreme.
const float kHostile[] = {kNaN, kInf, -kInf, kDenormal, -kDenormal, FLT_MAX, -FLT_MAX, 0.0f};

std::vector<int16_t> music_frame(int frame, int channels = 2)
{
    std::vector<int16_t> pcm(static_cast<size_t>(kFrame) * channels);
    for (int i = 0; i < kFrame; i++) {
        const double t = (frame * kFrame + i) / static_cast<double>(kFs);
        for (int c = 0; c < channels; c++)
            pcm[static_cast<size_t>(i) * channels + c] = static_cast<int16_t>(
                9000.0 * std::sin(2 * M_PI * 110.0 * t + c) + 3000.0 * std::sin(2 * M_PI * 3150.0 * t));
    }
    return pcm;
}

void fill(Planar &p, float v)
{
    for (auto &ch : p.data)
        for (float &x : ch)
            x = v;
}

void fill_sine(Planar &p, int start)
{
    for (auto &ch : p.data) {
        const std::vector<float> s = eqdrc_test::sine(static_cast<int>(ch.size()), 440.0f, kFs, 8000.0f, start);
        std::copy(s.begin(), s.end(), ch.begin());  // in place: the channel pointers stay valid
    }
}

bool all_finite(const Planar &p)
{
    for (const auto &ch : p.data)
        for (float x : ch)
            if (!std::isfinite(x))
                return false;
    return true;
}

// ---------------------------------------------------------------------------------
// The chain.

// A record whose every section word holds `v`, except the words whose misuse ends the
// process on purpose (equaliser band types, the auto gain's window and step).
std::vector<float> hostile_sections(float v)
{
    std::vector<float> rec = reference_record();
    for (int w = 30; w < EQDRC_RECORD_WORDS; w++) {
        const bool eqType = w >= 100 && w < 200 && (w - 100) % 5 == 1;
        const bool meterTimes = w == 33 || w == 34;
        if (!eqType && !meterTimes)
            rec[w] = v;
    }
    return rec;
}

TEST(HostileRecords, NaNPreGainOutputsFullScale)
{
    std::vector<float> rec = eqdrc_test::blank_record();
    rec[20] = rec[25] = kNaN;
    AudioPostState *chain = eqdrc_test::quiet_chain(rec.data(), kFrame);
    ASSERT_NE(chain, nullptr);
    std::vector<int16_t> pcm = music_frame(0);
    ASSERT_EQ(AudioPost_Process(chain, pcm.data(), pcm.data(), 2, kFrame), kFrame * 2 * 2);
    for (int16_t s : pcm)
        ASSERT_EQ(s, 32767);  // NaN is "not less than full scale"
    AudioPost_Destroy(chain);
}

TEST(HostileRecords, InfinitePreGainSaturatesBothWays)
{
    std::vector<float> rec = eqdrc_test::blank_record();
    rec[20] = rec[25] = kInf;
    AudioPostState *chain = eqdrc_test::quiet_chain(rec.data(), kFrame);
    std::vector<int16_t> pcm(kFrame * 2, 0);
    pcm[0] = 1;
    pcm[1] = -1;  // 0 x inf is NaN: full scale as well
    AudioPost_Process(chain, pcm.data(), pcm.data(), 2, kFrame);
    EXPECT_EQ(pcm[0], 32767);
    EXPECT_EQ(pcm[1], -32768);
    EXPECT_EQ(pcm[2], 32767);
    AudioPost_Destroy(chain);
}

// Every stage on, every section word hostile: the chain builds, runs, retunes, reports
// and tears down; the frame is always the full size.
class HostileSections : public testing::TestWithParam<float> {};

TEST_P(HostileSections, ChainRunsRetunesAndReadsBack)
{
    const std::vector<float> hostile = hostile_sections(GetParam());
    const std::vector<float> reference = reference_record();
    eqdrc_test::capture_stderr([&] {
        AudioPostState *st = AudioPost_Init(hostile.data(), kFrame);
        ASSERT_NE(st, nullptr);
        std::vector<float> back(EQDRC_RECORD_WORDS, 0.0f);
        for (int f = 0; f < 12; f++) {
            std::vector<int16_t> pcm = music_frame(f);
            ASSERT_EQ(AudioPost_Process(st, pcm.data(), pcm.data(), 2, kFrame), kFrame * 4);
            if (f == 4) {
                ASSERT_EQ(AudioPost_SetPara(st, reference.data(), kFrame), 0);
            }
            if (f == 8) {
                ASSERT_EQ(AudioPost_SetPara(st, hostile.data(), kFrame), 0);
            }
        }
        ASSERT_EQ(AudioPost_GetPara(st, back.data()), 0);
        AudioPost_Destroy(st);
    });
}

INSTANTIATE_TEST_SUITE_P(EveryValue, HostileSections, testing::ValuesIn(kHostile));

// Header words that size or time everything: a sample rate of zero or below, and channel
// counts from NaN (zero channels).  Nothing may hang or divide its way out of bounds.
TEST(HostileRecords, DegenerateSampleRatesAndChannelCounts)
{
    for (float rate : {0.0f, -48000.0f, kNaN, kInf, 1.0f}) {
        for (float channels : {kNaN, 0.0f, 1.0f, 2.0f}) {
            std::vector<float> rec = reference_record();
            rec[0] = rate;
            rec[3] = channels;
            rec[10] = 0.0f;  // the auto gain's step would be zero samples: a fatal frame
            AudioPostState *st = eqdrc_test::quiet_chain(rec.data(), kFrame);
            ASSERT_NE(st, nullptr);
            const int ch = std::isnan(channels) ? 0 : static_cast<int>(channels);
            for (int f = 0; f < 3; f++) {
                std::vector<int16_t> pcm = music_frame(f, 2);
                EXPECT_EQ(AudioPost_Process(st, pcm.data(), pcm.data(), ch, kFrame), kFrame * ch * 2);
            }
            std::vector<float> back(EQDRC_RECORD_WORDS);
            AudioPost_GetPara(st, back.data());
            AudioPost_Destroy(st);
        }
    }
}

// Frames [from, to) of music through `st`, and what came out.
std::vector<int16_t> run_frames(AudioPostState *st, int from, int to)
{
    std::vector<int16_t> out;
    for (int f = from; f < to; f++) {
        std::vector<int16_t> pcm = music_frame(f);
        AudioPost_Process(st, pcm.data(), pcm.data(), 2, kFrame);
        out.insert(out.end(), pcm.begin(), pcm.end());
    }
    return out;
}

// A live record whose header names another sample rate and bit depth: the stages that
// exist keep the rate and depth they were built for, and so does the output clamp; a
// stage the record switches on is built for the record's rate.
TEST(LiveRecord, ExistingStagesKeepTheirRateAndDepthNewOnesTakeTheRecords)
{
    std::vector<float> rec = reference_record(), moved = rec;
    moved[0] = 44100.0f;
    moved[1] = 24.0f;
    AudioPostState *kept = eqdrc_test::quiet_chain(rec.data(), kFrame);
    AudioPostState *changed = eqdrc_test::quiet_chain(rec.data(), kFrame);
    EXPECT_TRUE(run_frames(kept, 0, 4) == run_frames(changed, 0, 4));
    AudioPost_SetPara(kept, rec.data(), kFrame);
    AudioPost_SetPara(changed, moved.data(), kFrame);
    EXPECT_TRUE(run_frames(kept, 4, 40) == run_frames(changed, 4, 40));

    std::vector<float> eqAt44k = reference_record(), off;
    std::fill(eqAt44k.begin() + 10, eqAt44k.begin() + 18, 0.0f);
    eqAt44k[14] = 1.0f;  // the equaliser alone
    eqAt44k[0] = 44100.0f;
    off = eqAt44k;
    off[0] = 48000.0f;
    off[14] = 0.0f;
    AudioPostState *live = eqdrc_test::quiet_chain(off.data(), kFrame);
    run_frames(live, 0, 4);
    AudioPost_SetPara(live, eqAt44k.data(), kFrame);
    AudioPostState *fresh = eqdrc_test::quiet_chain(eqAt44k.data(), kFrame);
    EXPECT_TRUE(run_frames(live, 4, 12) == run_frames(fresh, 4, 12));
    for (AudioPostState *st : {kept, changed, live, fresh})
        eqdrc_test::destroy_quietly(st);
}

// ---------------------------------------------------------------------------------
// The stages, each fed every hostile value at several frame lengths (zero and negative
// included), then a sine.

template <class State, class Process>
void feed_hostile(State *st, Process process, int channels)
{
    for (int n : {kFrame, 1, 0, -5, kFrame / 3}) {
        for (float v : kHostile) {
            Planar p(channels, n > 0 ? n : 1);
            fill(p, v);
            process(st, p.ptrs(), p.ptrs(), n);
        }
    }
}

TEST(HostileSignals, EveryStageSurvivesEveryValue)
{
    const std::vector<float> rec = reference_record();
    eqdrc_test::capture_stderr([&] {
        EQ10State *eq = EQ10_Init(rec.data() + 100, 16, kFs, 2, kFrame, 0);
        feed_hostile(eq, EQ10_Process, 2);
        EQ10_Destroy(eq);

        MultiBandDRCState *drc = MultiBandDRC_Init(rec.data() + 200, 16, kFs, 2, 0);
        feed_hostile(drc, MultiBandDRC_Process, 2);
        MultiBandDRC_Destroy(drc);

        MaximizerState *mx = Maximizer_Init(rec.data() + 400, 16, kFs, 2, kFrame, 0);
        feed_hostile(mx, Agc_Process, 2);
        feed_hostile(mx, Maximizer_Process, 2);
        Maximizer_Destroy(mx);

        BassEnhancerState *be = BassEnhancer_Init(rec.data() + 60, 16, kFs, 2, 0);
        feed_hostile(be, BassEnhancer_Process, 2);
        BassEnhancer_Destroy(be);

        ExciterState *ex = Exciter_Init(rec.data() + 80, 16, kFs, 2, 0);
        feed_hostile(ex, Exciter_Process, 2);
        Exciter_Destroy(ex);

        DeEsserState *de = DeEsser_Init(rec.data() + 90, 16, kFs, 2, kFrame, 0);
        feed_hostile(de, DeEsser_Process, 2);
        DeEsser_Destroy(de);
    });
}

// A stage built for no channels, or given an empty or negative frame, touches neither
// the samples nor the caller's section: every per-channel loop runs zero times.
template <class State, class Process, class GetPara, class SetPara, class Destroy>
void expect_inert(const float *section, std::function<State *(int channels)> create, Process process,
                  GetPara getPara, SetPara setPara, Destroy destroy)
{
    State *none = create(0);
    ASSERT_NE(none, nullptr);
    std::vector<float> back(200, 99.0f);
    getPara(none, back.data());
    setPara(none, section);
    EXPECT_EQ(back, std::vector<float>(200, 99.0f));
    Planar buf(2, kFrame, 1000.0f);
    process(none, buf.ptrs(), buf.ptrs(), kFrame);
    EXPECT_EQ(destroy(none), 0);

    State *two = create(2);
    process(two, buf.ptrs(), buf.ptrs(), 0);
    process(two, buf.ptrs(), buf.ptrs(), -3);
    EXPECT_EQ(buf.data[0], std::vector<float>(kFrame, 1000.0f));
    EXPECT_EQ(buf.data[1], std::vector<float>(kFrame, 1000.0f));
    destroy(two);
}

TEST(HostileSizes, NoChannelsAndEmptyFramesLeaveEverythingAlone)
{
    const std::vector<float> rec = reference_record();
    const float *bass = rec.data() + 60, *exciter = rec.data() + 80, *deEsser = rec.data() + 90;
    const float *maximizer = rec.data() + 400;
    expect_inert<BassEnhancerState>(
        bass, [&](int ch) { return BassEnhancer_Init(bass, 16, kFs, ch, 0); }, BassEnhancer_Process,
        BassEnhancer_GetPara, BassEnhancer_SetPara, BassEnhancer_Destroy);
    expect_inert<ExciterState>(
        exciter, [&](int ch) { return Exciter_Init(exciter, 16, kFs, ch, 0); }, Exciter_Process, Exciter_GetPara,
        Exciter_SetPara, Exciter_Destroy);
    expect_inert<DeEsserState>(
        deEsser, [&](int ch) { return DeEsser_Init(deEsser, 16, kFs, ch, kFrame, 0); }, DeEsser_Process,
        DeEsser_GetPara, DeEsser_SetPara, DeEsser_Destroy);
    for (auto process : {Agc_Process, Maximizer_Process})
        expect_inert<MaximizerState>(
            maximizer, [&](int ch) { return Maximizer_Init(maximizer, 16, kFs, ch, kFrame, 0); }, process,
            Maximizer_GetPara, Maximizer_SetPara, Maximizer_Destroy);

    // The built-in tuning for no channels: adjusting channel 0 writes the arrays' own
    // entry and builds no table; the print-out is the two titles and rules.
    MaximizerState *empty = Maximizer_Init(nullptr, 16, kFs, 0, kFrame, 0);
    Maximizer_AdjustPara(empty, 0, -5.0f, -1.0f, 10.0f);
    const std::string err = eqdrc_test::capture_stderr([&] { Maximizer_PrintPara(empty); });
    EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 4);
    Maximizer_Destroy(empty);
}

// Degenerate windows, steps, strides and lengths leave a meter with an empty ring or
// nothing to measure; whatever it then reports, it must not read or write past its
// buffers (the sanitizer builds are the check).
TEST(HostileSizes, DegenerateWindowsStridesAndRingsStayInsideTheirBuffers)
{
    Planar buf(2, kFrame, 1000.0f);
    for (float window : {0.0f, -400.0f, kNaN}) {
        const float sec[5] = {-23.0f, 50.0f, 500.0f, window, 100.0f};
        AutoGainState *st = AutoGain_Init(sec, 16, kFs, 2, kFrame);
        for (int f = 0; f < 70; f++)
            AutoGain_Process(st, buf.ptrs(), buf.ptrs(), kFrame);
        AutoGain_Destroy(st);
    }
    const float noStep[5] = {-23.0f, 50.0f, 500.0f, 400.0f, kNaN};
    AutoGainState *gain = AutoGain_Init(noStep, 16, kFs, 2, kFrame);
    AutoGain_Process(gain, buf.ptrs(), buf.ptrs(), 0);  // a zero step makes any frame too long
    AutoGain_Process(gain, buf.ptrs(), buf.ptrs(), -5);
    AutoGain_Destroy(gain);

    for (int channels : {0, -2})
        for (int frameLen : {kFrame, 0, -1, -480}) {
            LevelDetectorState *st = nullptr;
            eqdrc_test::capture_stderr([&] {
                st = LevelDetector_Init(16, kFs, channels, frameLen);
                LevelDetector_SetPara(st, nullptr, kNaN, kNaN, -5.0f);
            });
            std::vector<int16_t> pcm(kFrame, 1000);
            EXPECT_EQ(LevelDetector_Process(st, pcm.data(), kFrame), kFrame);
            EXPECT_EQ(LevelDetector_Process(st, pcm.data(), -7), -7);
            LevelDetectorResult res;
            LevelDetector_GetRes(st, &res);
            LevelDetector_Destroy(st);
        }

    for (int windowMs : {0, -400})
        for (int stepMs : {0, -100, 100}) {
            Ebur128State *m = ebur128_init(16, kFs, 2, windowMs, stepMs);
            for (int f = 0; f < 60; f++)
                ebur128_addframes(m, buf.ptrs(), kFrame);
            EXPECT_LE(m->historyCount, 200);
            ebur128_gatedloudness(m);
            ebur128_destroy(m);
        }
    Ebur128State *none = ebur128_init(16, kFs, 0, 400, 100);
    ebur128_addframes(none, nullptr, kFrame);
    EXPECT_EQ(ebur128_gatedloudness(none), -1000.0f);
    ebur128_destroy(none);
    ebur128_destroy(nullptr);
}

// Channels past the loudness meter's weight table (L, R, C, two surrounds) weigh 1.0,
// rather than whatever lies past the table's end.
TEST(HostileSizes, ChannelsPastTheLoudnessWeightTableWeighOne)
{
    Ebur128State *m = ebur128_init(16, kFs, 7, 400, 100);
    const float want[7] = {1.0f, 1.0f, 1.0f, 1.41f, 1.41f, 1.0f, 1.0f};
    for (int ch = 0; ch < 7; ch++)
        EXPECT_EQ(m->channelWeights[ch], want[ch]) << "channel " << ch;
    ebur128_destroy(m);
}

// The limiter and the AGC measure a frame by its peak, which a NaN sample cannot raise:
// a NaN frame moves their gains exactly as a silent frame does, so the next real frame
// comes out bit for bit as after silence.
TEST(HostileSignals, NaNFrameMovesDynamicsGainsAsSilence)
{
    const std::vector<float> rec = reference_record();
    auto run = [&](float first) {
        MaximizerState *st = Maximizer_Init(rec.data() + 400, 16, kFs, 2, kFrame, 0);
        Planar p(2, kFrame);
        fill_sine(p, 0);
        Agc_Process(st, p.ptrs(), p.ptrs(), kFrame);
        Maximizer_Process(st, p.ptrs(), p.ptrs(), kFrame);
        fill(p, first);
        Agc_Process(st, p.ptrs(), p.ptrs(), kFrame);
        Maximizer_Process(st, p.ptrs(), p.ptrs(), kFrame);
        std::vector<float> gains = {st->agc.gains.gain[0], st->agc.gains.gain[1], st->limiter.gains.gain[0],
                                    st->limiter.gains.gain[1]};
        fill_sine(p, kFrame);
        Agc_Process(st, p.ptrs(), p.ptrs(), kFrame);
        Maximizer_Process(st, p.ptrs(), p.ptrs(), kFrame);
        gains.insert(gains.end(), p.data[0].begin(), p.data[0].end());
        gains.insert(gains.end(), p.data[1].begin(), p.data[1].end());
        Maximizer_Destroy(st);
        return gains;
    };
    const std::vector<float> afterSilence = run(0.0f);
    const std::vector<float> afterNaN = run(kNaN);
    for (size_t i = 0; i < 4; i++)
        EXPECT_TRUE(std::isfinite(afterNaN[i])) << "gain " << i;
    EXPECT_TRUE(same_bits(afterNaN, afterSilence));
}

// The auto gain's headroom is the frame's peak, which a NaN sample cannot raise either:
// the gain stays finite and a real frame after it comes out finite.
TEST(HostileSignals, NaNFrameLeavesTheAutoGainFinite)
{
    const std::vector<float> rec = reference_record();
    AutoGainState *st = AutoGain_Init(rec.data() + 30, 16, kFs, 2, kFrame);
    Planar p(2, kFrame);
    for (int f = 0; f < 40; f++) {
        fill_sine(p, f * kFrame);
        if (f == 10 || f == 11)
            fill(p, kNaN);
        AutoGain_Process(st, p.ptrs(), p.ptrs(), kFrame);
        ASSERT_TRUE(std::isfinite(st->currentGain)) << "frame " << f;
    }
    EXPECT_TRUE(all_finite(p));
    AutoGain_Destroy(st);
}

// The enhancers restart their filters from rest when retuned, so a NaN that reached
// their memories is gone after a _SetPara.  (The exciter's output stays finite even
// before: its clipper turns the NaN of its input filter into 1.0.)
TEST(HostileSignals, RetuningClearsANaNFromTheEnhancers)
{
    const std::vector<float> rec = reference_record();
    auto check = [](const char *name, auto *st, auto process, auto setPara, const float *section,
                    const float *memory) {
        Planar p(2, kFrame);
        fill(p, kNaN);
        process(st, p.ptrs(), p.ptrs(), kFrame);
        fill_sine(p, 0);
        process(st, p.ptrs(), p.ptrs(), kFrame);
        EXPECT_TRUE(std::isnan(*memory)) << name;  // a plain IIR filter keeps it
        setPara(st, section);
        fill_sine(p, kFrame);
        process(st, p.ptrs(), p.ptrs(), kFrame);
        EXPECT_TRUE(std::isfinite(*memory)) << name;
        EXPECT_TRUE(all_finite(p)) << name;
    };
    BassEnhancerState *be = BassEnhancer_Init(rec.data() + 60, 16, kFs, 2, 0);
    check("bass enhancer", be, BassEnhancer_Process, BassEnhancer_SetPara, rec.data() + 60, be->splitLow.state);
    BassEnhancer_Destroy(be);
    ExciterState *ex = Exciter_Init(rec.data() + 80, 16, kFs, 2, 0);
    check("exciter", ex, Exciter_Process, Exciter_SetPara, rec.data() + 80, ex->inputHighState);
    Exciter_Destroy(ex);
    DeEsserState *de = DeEsser_Init(rec.data() + 90, 16, kFs, 2, kFrame, 0);
    check("de-esser", de, DeEsser_Process, DeEsser_SetPara, rec.data() + 90, &de->bandPassState[0][0]);
    DeEsser_Destroy(de);
}

// ---------------------------------------------------------------------------------
// Levels and tables.

// NaN times give a NaN ballistic: the bands report level 0 (NaN truncates to 0), and
// nothing hangs or leaves the band arrays.
TEST(HostileLevels, LevelDetectorWithNaNTimesReportsZero)
{
    LevelDetectorState *st = nullptr;
    eqdrc_test::capture_stderr([&] {
        st = LevelDetector_Init(16, kFs, 2, kFrame);
        LevelDetector_SetPara(st, nullptr, kNaN, kNaN, kNaN);
    });
    std::vector<int16_t> pcm = music_frame(0);
    LevelDetector_Process(st, pcm.data(), kFrame);
    LevelDetectorResult res;
    LevelDetector_GetRes(st, &res);
    for (int b = 0; b < 10; b++)
        EXPECT_EQ(res.level[b], 0) << "band " << b;
    LevelDetector_Destroy(st);
}

}  // namespace

// ---------------------------------------------------------------------------------
// Records that break the channel rules, and absurd limiter thresholds: once found by the
// fuzzers, they must stay inside memory and free of undefined behaviour (the ASan+UBSan
// build is the real check).
namespace {

// A limiter threshold below about -5.4e8 dB makes a knee of 2^30 or more, whose double
// the gain curve forms in int.
TEST(ChannelRuleBreaks, HugeLimiterKneeDoesNotOverflow)
{
    // The doubled knee wraps to -2 as 32-bit arithmetic does on the device: a finite,
    // if odd, curve value rather than undefined behaviour.
    EXPECT_TRUE(std::isfinite(max_table_caculate(INT32_MAX, 0.0f, -3.0f)));
    MaximizerState *st = Maximizer_Init(nullptr, 16, kFs, 2, kFrame, 0);
    Maximizer_AdjustPara(st, 0, -2e9f, -1.0f, 100.0f);
    std::vector<float> frame(kFrame, 1000.0f);
    float *planes[2] = {frame.data(), frame.data()};
    Maximizer_Process(st, planes, planes, kFrame);
    Maximizer_Destroy(st);
}

// The read-back writes a pre-gain for every allocated channel at word 20 + 5c: more
// than 105 channels must not write past the 544 words.
TEST(ChannelRuleBreaks, ReadBackOfManyChannelsStaysInTheRecord)
{
    std::vector<float> rec = eqdrc_test::blank_record(kFs, 16, 200);
    AudioPostState *st = AudioPost_Init(rec.data(), 16);  // stderr left open for the report
    std::vector<float> back(EQDRC_RECORD_WORDS, -7.0f);
    AudioPost_GetPara(st, back.data());
    EXPECT_EQ(back[3], 200.0f);
    EXPECT_EQ(back[EQDRC_RECORD_WORDS - 4], 0.0f);  // channel 104's pre-gain, the last that fits
    AudioPost_Destroy(st);
}

// An unlinked equaliser of nine channels reads its ninth block past the record.
TEST(ChannelRuleBreaks, EqualiserOfNineChannelsStaysInTheRecord)
{
    std::vector<float> rec = eqdrc_test::blank_record(kFs, 16, 9);
    rec[14] = 1.0f;  // EQ10 on; the first eight channels boost, the ninth has no block
    for (int c = 0; c < 8; c++)
        for (int w : {0, 1, 2, 3, 4})
            rec[100 + 50 * c + w] = std::vector<float>{1.0f, 2.0f, 1000.0f, 1.0f, 6.0f}[w];
    AudioPostState *st = AudioPost_Init(rec.data(), 16);  // stderr left open for the report
    std::vector<int16_t> pcm(16 * 9);
    for (int i = 0; i < 16; i++)
        for (int c = 0; c < 9; c++)
            pcm[i * 9 + c] = 1000;
    AudioPost_Process(st, pcm.data(), pcm.data(), 9, 16);
    EXPECT_NE(pcm[0], 1000);  // channel 0 is boosted
    EXPECT_EQ(pcm[8], 1000);  // channel 8 has every band off
    EXPECT_EQ(AudioPost_SetPara(st, rec.data(), 16), 0);
    std::vector<float> back(EQDRC_RECORD_WORDS);
    AudioPost_GetPara(st, back.data());
    EXPECT_EQ(back[100 + 50 * 7 + 4], 6.0f);
    AudioPost_Destroy(st);
}

// The byte count frameLen x channels x 2 of a frame is formed in int.
TEST(ChannelRuleBreaks, FrameByteCountOfAnAbsurdChannelCountDoesNotOverflow)
{
    std::vector<float> rec = eqdrc_test::blank_record();
    rec[3] = -2147483648.0f;
    AudioPostState *st = AudioPost_Init(rec.data(), kFrame);
    int16_t pcm[1] = {};
    AudioPost_Process(st, pcm, pcm, 0, kFrame);
    AudioPost_Destroy(st);
}

}  // namespace
