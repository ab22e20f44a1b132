// C entry points of the maximizer and the automatic gain control.
#include "dynamics/maximizer.h"

namespace {
constexpr int kNullHandle = -3;
}

extern "C" {

MaximizerState *Maximizer_Init(const float *section, int bit_rate, int sampleRate, int channels, int frameLen,
                               int channelLink)
{
    return MaximizerState::create(section, bit_rate, sampleRate, channels, frameLen, channelLink);
}

void Maximizer_Process(MaximizerState *state, float **in, float **out, int frameLen)
{
    if (state != nullptr)
        state->process_limiter(in, out, frameLen);
}

void Maximizer_SetPara(MaximizerState *state, const float *section)
{
    if (state != nullptr)
        state->set_para(section);
}

void Maximizer_GetPara(const MaximizerState *state, float *section)
{
    if (state != nullptr)
        state->get_para(section);
}

int Maximizer_PrintPara(const MaximizerState *state) { return state != nullptr ? state->print_para() : 0; }

void Maximizer_AdjustPara(MaximizerState *state, int channel, float max_threshold, float ceiling, float release)
{
    if (state != nullptr)
        state->adjust_limiter(channel, max_threshold, ceiling, release);
}

int Maximizer_Destroy(MaximizerState *state)
{
    if (state == nullptr)
        return kNullHandle;
    state->destroy();
    return 0;
}

void Agc_Process(MaximizerState *state, float **in, float **out, int frameLen)
{
    if (state != nullptr)
        state->process_agc(in, out, frameLen);
}

void Agc_AdjustPara(MaximizerState *state, int channel, float compress_start, float expand_end,
                    float noise_threshold, float max_gain, float max_peak, float attack_time, float release_time,
                    float hold_time)
{
    if (state != nullptr)
        state->adjust_agc(channel, {compress_start, expand_end, noise_threshold, max_gain, max_peak, attack_time,
                                    release_time, hold_time});
}

}  // extern "C"
