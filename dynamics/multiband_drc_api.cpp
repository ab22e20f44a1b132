// C entry points of the multi-band compressor.
#include "dynamics/multiband_drc.h"

namespace {
constexpr int kNullHandle = -3;
}

extern "C" {

MultiBandDRCState *MultiBandDRC_Init(const float *section, int bitDepth, int sampleRate, int channels, int link)
{
    return MultiBandDRCState::create(section, bitDepth, sampleRate, channels, link);
}

void MultiBandDRC_Process(MultiBandDRCState *st, float **in, float **out, int frameLen)
{
    if (st != nullptr)
        st->process(in, out, frameLen);
}

void MultiBandDRC_SetPara(MultiBandDRCState *st, const float *section)
{
    if (st != nullptr && section != nullptr)
        st->set_para(section);
}

void MultiBandDRC_GetPara(MultiBandDRCState *st, float *section)
{
    if (st != nullptr && section != nullptr)
        st->get_para(section);
}

int MultiBandDRC_PrintPara(MultiBandDRCState *st) { return st != nullptr ? st->print_para() : 0; }

int MultiBandDRC_Destroy(MultiBandDRCState *st)
{
    if (st == nullptr)
        return kNullHandle;
    st->destroy();
    return 0;
}

void MultiBandDRC_Crossover_AdjustPara(MultiBandDRCState *st, int ch, float lowEnd, float highStart, float mid1Start,
                                       float mid1End, float mid2Start, float mid2End)
{
    if (st == nullptr)
        return;
    const float corners[eqdrc::kCrossoverCorners] = {lowEnd, highStart, mid1Start, mid1End, mid2Start, mid2End};
    st->adjust_crossover(ch, corners);
}

void MultiBandDRC_DRC_AdjustPara(MultiBandDRCState *st, int ch, int band, int drc_enable, float gain_dB,
                                 float compress_start, float expand_end, float noise_threshold, float max_gain,
                                 float max_peak, float attack_time, float release_time, float hold_time)
{
    if (st == nullptr)
        return;
    st->adjust_band(ch, band,
                    {drc_enable, gain_dB, compress_start, expand_end, noise_threshold, max_gain, max_peak,
                     attack_time, release_time, hold_time});
}

}  // extern "C"
