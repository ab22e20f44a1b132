// C entry points of the auto gain.
#include "enhance/auto_gain.h"

namespace {
constexpr int kNullHandle = -3;
}

extern "C" {

AutoGainState *AutoGain_Init(const float *section, int bits, int sampleRate, int channels, int frameLen)
{
    return AutoGainState::create(section, bits, sampleRate, channels, frameLen);
}

void AutoGain_Process(AutoGainState *st, float **in, float **out, int frameLen)
{
    if (st != nullptr)
        st->process(in, out, frameLen);
}

void AutoGain_SetPara(AutoGainState *st, const float *section)
{
    if (st != nullptr)
        st->set_para(section);
}

void AutoGain_GetPara(AutoGainState *st, float *section)
{
    if (st != nullptr)
        st->get_para(section);
}

int AutoGain_PrintPara(AutoGainState *st) { return st != nullptr ? st->print_para() : 0; }

int AutoGain_Destroy(AutoGainState *st)
{
    if (st == nullptr)
        return kNullHandle;
    st->destroy();
    return 0;
}

}  // extern "C"
