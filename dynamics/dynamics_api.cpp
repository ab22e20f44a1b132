// C entry points of the dynamics stages: the multi-band compressor, and the maximizer
// with the automatic gain control that shares its record; and of the gain-curve tables
// they are built on.
#include "core/fp_environment.h"
#include "core/handle.h"
#include "dynamics/gain_table.h"
#include "dynamics/maximizer.h"
#include "dynamics/multiband_drc.h"

extern "C" {

MultiBandDRCState *MultiBandDRC_Init(const float *section, int bitDepth, int sampleRate, int channels, int link)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    return MultiBandDRCState::create(section, bitDepth, sampleRate, channels, link);
}

void MultiBandDRC_Process(MultiBandDRCState *st, float **in, float **out, int frameLen)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    if (st != nullptr)
        st->process(in, out, frameLen);
}

void MultiBandDRC_SetPara(MultiBandDRCState *st, const float *section)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    if (st != nullptr && section != nullptr)
        st->set_para(section);
}

void MultiBandDRC_GetPara(MultiBandDRCState *st, float *section)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    if (st != nullptr && section != nullptr)
        st->get_para(section);
}

int MultiBandDRC_PrintPara(MultiBandDRCState *st)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    return st != nullptr ? st->print_para() : 0;
}

int MultiBandDRC_Destroy(MultiBandDRCState *st) { return eqdrc::destroy_handle(st); }

void MultiBandDRC_Crossover_AdjustPara(MultiBandDRCState *st, int ch, float lowEnd, float highStart, float mid1Start,
                                       float mid1End, float mid2Start, float mid2End)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    if (st == nullptr)
        return;
    const float corners[eqdrc::kCrossoverCorners] = {lowEnd, highStart, mid1Start, mid1End, mid2Start, mid2End};
    st->adjust_crossover(ch, corners);
}

void MultiBandDRC_DRC_AdjustPara(MultiBandDRCState *st, int ch, int band, int drc_enable, float gain_dB,
                                 float compress_start, float expand_end, float noise_threshold, float max_gain,
                                 float max_peak, float attack_time, float release_time, float hold_time)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    if (st == nullptr)
        return;
    st->adjust_band(ch, band,
                    {drc_enable, gain_dB, {compress_start, expand_end, noise_threshold, max_gain, max_peak}, attack_time,
                     release_time, hold_time});
}

int MultiBandDRC_GetCurve(const MultiBandDRCState *st, int ch, int band, const float *levelDb, float *gainDb,
                          int count)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    return st != nullptr ? st->curve(ch, band, levelDb, gainDb, count) : -1;
}

MaximizerState *Maximizer_Init(const float *section, int bitDepth, int sampleRate, int channels, int frameLen,
                               int channelLink)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    return MaximizerState::create(section, bitDepth, sampleRate, channels, frameLen, channelLink);
}

void Maximizer_Process(MaximizerState *state, float **in, float **out, int frameLen)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    if (state != nullptr)
        state->limiter.process(state->format, in, out, frameLen);
}

void Maximizer_SetPara(MaximizerState *state, const float *section)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    if (state != nullptr)
        state->set_para(section);
}

void Maximizer_GetPara(const MaximizerState *state, float *section)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    if (state != nullptr)
        state->get_para(section);
}

int Maximizer_PrintPara(const MaximizerState *state)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    return state != nullptr ? state->print_para() : 0;
}

void Maximizer_AdjustPara(MaximizerState *state, int channel, float max_threshold, float ceiling, float release)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    if (state != nullptr)
        state->limiter.adjust(state->format, channel, max_threshold, ceiling, release);
}

int Maximizer_Destroy(MaximizerState *state) { return eqdrc::destroy_handle(state); }

void Agc_Process(MaximizerState *state, float **in, float **out, int frameLen)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    if (state != nullptr)
        state->agc.process(state->format, in, out, frameLen);
}

void Agc_AdjustPara(MaximizerState *state, int channel, float compress_start, float expand_end,
                    float noise_threshold, float max_gain, float max_peak, float attack_time, float release_time,
                    float hold_time)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    if (state != nullptr)
        state->agc.adjust(state->format, channel,
                          {{compress_start, expand_end, noise_threshold, max_gain, max_peak}, attack_time,
                           release_time, hold_time});
}

int Agc_GetCurve(const MaximizerState *state, int channel, const float *levelDb, float *gainDb, int count)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    return state != nullptr ? state->agc.curve(state->format, channel, levelDb, gainDb, count) : -1;
}

int Maximizer_GetCurve(const MaximizerState *state, int channel, const float *levelDb, float *gainDb, int count)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    return state != nullptr ? state->limiter.curve(state->format, channel, levelDb, gainDb, count) : -1;
}

float table_caculate(int knee, float x, float noise_threshold, float expand_end, float compress_start, float max_gain,
                     float max_peak)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    return eqdrc::expander_compressor_curve(knee, x, noise_threshold, expand_end, compress_start, max_gain, max_peak);
}

float max_table_caculate(int knee, float x, float threshold)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    return eqdrc::limiter_curve(knee, x, threshold);
}

float table_search(int last_index, const float *table, float level, float x0, float scale)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    return eqdrc::gain_table_lookup(last_index, table, level, x0, scale);
}

}  // extern "C"
