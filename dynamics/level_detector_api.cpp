// C entry points of the level detector.
#include "dynamics/level_detector.h"

namespace {
constexpr int kNullHandle = -3;
}

extern "C" {

LevelDetectorState *LevelDetector_Init(int bit_rate, int sampleRate, int channels, int frameLen)
{
    return LevelDetectorState::create(bit_rate, sampleRate, channels, frameLen);
}

int LevelDetector_SetPara(LevelDetectorState *state, const float *bands, float rmstc, float hold_time,
                          float decay_time)
{
    return state != nullptr ? state->set_para(bands, rmstc, hold_time, decay_time) : 0;
}

int LevelDetector_Process(LevelDetectorState *state, const int16_t *pcm, int n)
{
    return state != nullptr ? state->process(pcm, n) : 0;
}

int LevelDetector_GetRes(const LevelDetectorState *state, LevelDetectorResult *out)
{
    return state != nullptr ? state->get_result(out) : 0;
}

int LevelDetector_Destroy(LevelDetectorState *state)
{
    if (state == nullptr)
        return kNullHandle;
    state->destroy();
    return 0;
}

}  // extern "C"
