// The chain's C entry points: argument checks, messages, then the chain object.
#include "chain/audio_post.h"
#include "chain/chain_log.h"
#include "chain/record_file.h"
#include "core/fp_environment.h"
#include "core/log.h"
#include "dsp/lane_code.h"

using namespace eqdrc;

// The version comes from the build (the project's version in CMakeLists.txt).
#define EQDRC_TEXT(x) #x
#define EQDRC_VERSION_TEXT(major, minor, patch) EQDRC_TEXT(major) "." EQDRC_TEXT(minor) "." EQDRC_TEXT(patch)
#define EQDRC_BUILD_VERSION EQDRC_VERSION_TEXT(EQDRC_VERSION_MAJOR, EQDRC_VERSION_MINOR, EQDRC_VERSION_PATCH)

namespace {

// What every chain entry point gives for a null chain.  The calls below with a message
// for it print that first; the pass-throughs return it without one.
constexpr int kNullChain = -1;

constexpr float kReleaseVersion = 2.0f;
constexpr const char *kProductLabel = "EQ/DRC";

void dump_version()
{
    static const char kRule[] = "---------------------------------------------------------\n";
    log_line(site::kBannerRuleTop, "%s", kRule);
    log_line(site::kBannerVersion, "%s version: %s\n", kProductLabel, "tqaudio_effect_eqdrc-" EQDRC_BUILD_VERSION);
    // The second stamp also names the processing code that runs (one of several copies on
    // x86-64, chosen at load).
    log_line(site::kBannerBuilding, "%s building: %s\n", kProductLabel,
             __DATE__ " " __TIME__ ", " EQDRC_LANE_CODE " processing code");
    log_line(site::kBannerRuleBottom, "%s", kRule);
}

}  // namespace

extern "C" {

const char *AudioPost_GetVersion(int *major, int *minor, int *patch)
{
    if (major != nullptr)
        *major = EQDRC_VERSION_MAJOR;
    if (minor != nullptr)
        *minor = EQDRC_VERSION_MINOR;
    if (patch != nullptr)
        *patch = EQDRC_VERSION_PATCH;
    return EQDRC_BUILD_VERSION;
}

const char *AudioPost_GetProcessingCode(void) { return EQDRC_LANE_CODE; }

void AudioPost_SetLogSink(AudioPostLogSink sink, void *user) { set_log_sink(sink, user); }

AudioPostState *AudioPost_Init(const float *pfPara, int frameLen)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    dump_version();
    log_line(site::kInitRelease, "TQ_AudioEffect-RELEASE-VERSION %.2f, RELEASE DATE %s, %s\n\n",
             static_cast<double>(kReleaseVersion), __DATE__, __TIME__);
    if (pfPara == nullptr) {
        log_line(site::kInitNullRecord, "error (%s) - Param is NULL\n\n", site::kInitNullRecord.function);
        return nullptr;
    }
    return AudioPostState::create(pfPara, frameLen);
}

AudioPostState *AudioPost_InitByPath(const char *pfParaPath, int frameLen)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    if (pfParaPath == nullptr) {
        log_line(site::kInitByPathNull, "error (%s) - pfParaPath is NULL\n\n", site::kInitByPathNull.function);
        return nullptr;
    }
    const RecordFile file = RecordFile::read(pfParaPath);
    if (file.words == nullptr)
        return nullptr;
    AudioPostState *st = AudioPost_Init(file.words, frameLen);
    log_line(site::kInitByPathDone, "%s - success\n\n", site::kInitByPathDone.function);  // printed whatever AudioPost_Init returned
    return st;
}

int AudioPost_Destroy(AudioPostState *st)
{
    if (st == nullptr) {
        log_line(site::kDestroyNull, "error (%s) - st_ is NULL\n\n", site::kDestroyNull.function);
        return kNullChain;
    }
    st->destroy();
    return 0;
}

int AudioPost_Process(AudioPostState *st, const int16_t *in, int16_t *out, int reserved, int swFrmLen)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    (void)reserved;
    if (st == nullptr) {
        log_line(site::kProcessNull, "error, st is NULL!\n\n");
        return kNullChain;
    }
    return st->process(in, out, swFrmLen);
}

int AudioPost_SetPara(AudioPostState *st, const float *pfPara, int swFrmLen)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    if (pfPara == nullptr || st == nullptr) {
        log_line(site::kSetParaNull, "error, st or pfPara is NULL!\n\n");
        return kNullChain;
    }
    return st->set_para(pfPara, swFrmLen);
}

int AudioPost_GetPara(AudioPostState *st, float *pfPara)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    if (st == nullptr) {
        log_line(site::kGetParaNull, "error, EQ_DRC doesn't init!\n\n");
        return kNullChain;
    }
    return st->get_para(pfPara);
}

int AudioPost_GetMeters(const AudioPostState *st, AudioPostMeters *out)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    // No message for a null argument: the call stays real-time safe even then.
    if (st == nullptr || out == nullptr)
        return kNullChain;
    st->get_meters(out);
    return 0;
}

int AudioPost_EQ10_SetPara(AudioPostState *st, const float *eqSection)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    if (st == nullptr)
        return kNullChain;
    st->set_eq_section(eqSection);
    return 0;
}

int AudioPost_EQ10_GetPara(AudioPostState *st, float *eqSection)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    if (st == nullptr)
        return kNullChain;
    if (st->eq10 == nullptr) {
        log_line(site::kEqGetParaMissing, "error, EQ10 doesn't init!\n\n");
        fatal_exit();
    }
    EQ10_GetPara(st->eq10, eqSection);
    return 0;
}

int AudioPost_EQ10_GetData(AudioPostState *st, float **inFrames, float **outFrames)
{
    const eqdrc::FpEnvironment libraryEnvironment;
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
    const eqdrc::FpEnvironment libraryEnvironment;
    if (st == nullptr)
        return kNullChain;
    if (st->multiBandDrc == nullptr) {
        log_line(site::kCrossoverAdjustMissing, "error (%s), MBDRC doesn't init!\n\n",
                 site::kCrossoverAdjustMissing.function);
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
    const eqdrc::FpEnvironment libraryEnvironment;
    if (st == nullptr)
        return kNullChain;
    if (st->multiBandDrc == nullptr) {
        log_line(site::kDrcAdjustMissing, "error (%s), MBDRC doesn't init!\n\n", site::kDrcAdjustMissing.function);
        fatal_exit();
    }
    MultiBandDRC_DRC_AdjustPara(st->multiBandDrc, ch, band, drc_enable, gain_dB, compress_start, expand_end,
                                noise_threshold, max_gain, max_peak, attack_time, release_time, hold_time);
    return 0;
}

int AudioPost_Maximizer_AdjustPara(AudioPostState *st, int channel, float max_threshold, float ceiling, float release)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    if (st == nullptr)
        return kNullChain;
    if (st->maximizer == nullptr) {
        log_line(site::kMaximizerAdjustMissing, "error, Maximizer doesn't init!\n\n");
        fatal_exit();
    }
    Maximizer_AdjustPara(st->maximizer, channel, max_threshold, ceiling, release);
    return 0;
}

int AudioPost_Agc_AdjustPara(AudioPostState *st, int channel, float compress_start, float expand_end,
                             float noise_threshold, float max_gain, float max_peak, float attack_time,
                             float release_time, float hold_time)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    if (st == nullptr)
        return kNullChain;
    // The Agc lives on the maximizer's state.
    if (st->maximizer == nullptr) {
        log_line(site::kAgcAdjustMissing, "error, Agc doesn't init!\n\n");
        fatal_exit();
    }
    Agc_AdjustPara(st->maximizer, channel, compress_start, expand_end, noise_threshold, max_gain, max_peak,
                   attack_time, release_time, hold_time);
    return 0;
}

}  // extern "C"
