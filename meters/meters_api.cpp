// C entry points of the two meters: the K-weighted loudness meter and the ten-band
// level detector.
#include "core/fp_environment.h"
#include "core/handle.h"
#include "meters/level_detector.h"
#include "meters/loudness_meter.h"

extern "C" {

Ebur128State *ebur128_init(int bitDepth, int sampleRate, int channels, int windowMs, int stepMs)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    return Ebur128State::create(bitDepth, sampleRate, channels, windowMs, stepMs);
}

int ebur128_addframes(Ebur128State *state, float **channels, int frameLen)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    if (state != nullptr)
        state->add_frames(channels, frameLen);
    return 0;
}

float ebur128_gatedloudness(Ebur128State *state)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    return state != nullptr ? state->gated_loudness() : eqdrc::kNoLoudness;
}

void ebur128_destroy(Ebur128State *state)
{
    if (state != nullptr)
        state->destroy();
}

LevelDetectorState *LevelDetector_Init(int bitDepth, int sampleRate, int channels, int frameLen)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    return LevelDetectorState::create(bitDepth, sampleRate, channels, frameLen);
}

int LevelDetector_SetPara(LevelDetectorState *state, const float *bands, float rmstc, float hold_time,
                          float decay_time)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    return state != nullptr ? state->set_para(bands, rmstc, hold_time, decay_time) : 0;
}

int LevelDetector_Process(LevelDetectorState *state, const int16_t *pcm, int n)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    return state != nullptr ? state->process(pcm, n) : 0;
}

int LevelDetector_GetRes(const LevelDetectorState *state, LevelDetectorResult *out)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    return state != nullptr ? state->get_result(out) : 0;
}

int LevelDetector_Destroy(LevelDetectorState *state) { return eqdrc::destroy_handle(state); }

}  // extern "C"
