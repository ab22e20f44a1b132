// The chain's C entry points: argument checks, messages, then the chain object.
#include "chain/audio_post.h"
#include "chain/record_file.h"
#include "core/log.h"

using namespace eqdrc;

#ifndef EQDRC_BUILD_VERSION
#define EQDRC_BUILD_VERSION "2.0.0"
#endif

namespace {

// What every chain entry point gives for a null chain.  The calls below with a message
// for it print that first; the pass-throughs return it without one.
constexpr int kNullChain = -1;

constexpr float kReleaseVersion = 2.0f;
constexpr const char *kProductLabel = "EQ/DRC";

void dump_version()
{
    static const char kRule[] = "---------------------------------------------------------\n";
    log_line("dump_version", 47, "%s", kRule);
    log_line("dump_version", 48, "%s version: %s\n", kProductLabel, "tqaudio_effect_eqdrc-" EQDRC_BUILD_VERSION);
    log_line("dump_version", 49, "%s building: %s\n", kProductLabel, __DATE__ " " __TIME__);
    log_line("dump_version", 50, "%s", kRule);
}

}  // namespace

extern "C" {

AudioPostState *AudioPost_Init(const float *pfPara, int frameLen)
{
    dump_version();
    log_line("AudioPost_Init", 95, "TQ_AudioEffect-RELEASE-VERSION %.2f, RELEASE DATE %s, %s\n\n",
             static_cast<double>(kReleaseVersion), __DATE__, __TIME__);
    if (pfPara == nullptr) {
        log_line("AudioPost_Init", 99, "error (%s) - Param is NULL\n\n", "AudioPost_Init");
        return nullptr;
    }
    return AudioPostState::create(pfPara, frameLen);
}

AudioPostState *AudioPost_InitByPath(const char *pfParaPath, int frameLen)
{
    static const char kFn[] = "AudioPost_InitByPath";
    if (pfParaPath == nullptr) {
        log_line(kFn, 224, "error (%s) - pfParaPath is NULL\n\n", kFn);
        return nullptr;
    }
    const RecordFile file = RecordFile::read(kFn, pfParaPath);
    if (file.words == nullptr)
        return nullptr;
    AudioPostState *st = AudioPost_Init(file.words, frameLen);
    log_line(kFn, 251, "%s - success\n\n", kFn);  // printed whatever AudioPost_Init returned
    return st;
}

int AudioPost_Destroy(AudioPostState *st)
{
    if (st == nullptr) {
        log_line("AudioPost_Destroy", 257, "error (%s) - st_ is NULL\n\n", "AudioPost_Destroy");
        return kNullChain;
    }
    st->destroy();
    return 0;
}

int AudioPost_Process(AudioPostState *st, const int16_t *in, int16_t *out, int reserved, int swFrmLen)
{
    (void)reserved;
    if (st == nullptr) {
        log_line("AudioPost_Process", 315, "error, st is NULL!\n\n");
        return kNullChain;
    }
    return st->process(in, out, swFrmLen);
}

int AudioPost_SetPara(AudioPostState *st, const float *pfPara, int swFrmLen)
{
    if (pfPara == nullptr || st == nullptr) {
        log_line("AudioPost_SetPara", 395, "error, st or pfPara is NULL!\n\n");
        return kNullChain;
    }
    return st->set_para(pfPara, swFrmLen);
}

int AudioPost_GetPara(AudioPostState *st, float *pfPara)
{
    if (st == nullptr) {
        log_line("AudioPost_GetPara", 505, "error, EQ_DRC doesn't init!\n\n");
        return kNullChain;
    }
    return st->get_para(pfPara);
}

int AudioPost_EQ10_SetPara(AudioPostState *st, const float *eqSection)
{
    if (st == nullptr)
        return kNullChain;
    st->set_eq_section(eqSection);
    return 0;
}

int AudioPost_EQ10_GetPara(AudioPostState *st, float *eqSection)
{
    if (st == nullptr)
        return kNullChain;
    if (st->eq10 == nullptr) {
        log_line("AudioPost_EQ10_GetPara", 578, "error, EQ10 doesn't init!\n\n");
        fatal_exit();
    }
    EQ10_GetPara(st->eq10, eqSection);
    return 0;
}

int AudioPost_EQ10_GetData(AudioPostState *st, float **inFrames, float **outFrames)
{
    if (st == nullptr)
        return kNullChain;
    // Without an equaliser there is nothing to copy (its handle would be null).
    if (st->eq10)
        EQ10_GetData(st->eq10, inFrames, outFrames);
    return 0;
}

int AudioPost_MultiBandDRC_Crossover_AdjustPara(AudioPostState *st, int ch, float lowEnd, float highStart,
                                                float mid1Start, float mid1End, float mid2Start, float mid2End)
{
    if (st == nullptr)
        return kNullChain;
    static const char kFn[] = "AudioPost_MultiBandDRC_Crossover_AdjustPara";
    if (st->multiBandDrc == nullptr) {
        log_line(kFn, 599, "error (%s), MBDRC doesn't init!\n\n", kFn);
        fatal_exit();
    }
    MultiBandDRC_Crossover_AdjustPara(st->multiBandDrc, ch, lowEnd, highStart, mid1Start, mid1End, mid2Start,
                                      mid2End);
    return 0;
}

int AudioPost_MultiBandDRC_DRC_AdjustPara(AudioPostState *st, int ch, int band, int drc_enable, float gain_dB,
                                          float compress_start, float expand_end, float noise_threshold,
                                          float max_gain, float max_peak, float attack_time, float release_time,
                                          float hold_time)
{
    if (st == nullptr)
        return kNullChain;
    static const char kFn[] = "AudioPost_MultiBandDRC_DRC_AdjustPara";
    if (st->multiBandDrc == nullptr) {
        log_line(kFn, 612, "error (%s), MBDRC doesn't init!\n\n", kFn);
        fatal_exit();
    }
    MultiBandDRC_DRC_AdjustPara(st->multiBandDrc, ch, band, drc_enable, gain_dB, compress_start, expand_end,
                                noise_threshold, max_gain, max_peak, attack_time, release_time, hold_time);
    return 0;
}

int AudioPost_Maximizer_AdjustPara(AudioPostState *st, int channel, float max_threshold, float ceiling, float release)
{
    if (st == nullptr)
        return kNullChain;
    if (st->maximizer == nullptr) {
        log_line("AudioPost_Maximizer_AdjustPara", 625, "error, Maximizer doesn't init!\n\n");
        fatal_exit();
    }
    Maximizer_AdjustPara(st->maximizer, channel, max_threshold, ceiling, release);
    return 0;
}

int AudioPost_Agc_AdjustPara(AudioPostState *st, int channel, float compress_start, float expand_end,
                             float noise_threshold, float max_gain, float max_peak, float attack_time,
                             float release_time, float hold_time)
{
    if (st == nullptr)
        return kNullChain;
    // The Agc lives on the maximizer's state.
    if (st->maximizer == nullptr) {
        log_line("AudioPost_Agc_AdjustPara", 638, "error, Agc doesn't init!\n\n");
        fatal_exit();
    }
    Agc_AdjustPara(st->maximizer, channel, compress_start, expand_end, noise_threshold, max_gain, max_peak,
                   attack_time, release_time, hold_time);
    return 0;
}

}  // extern "C"
