// C entry points of the auto gain, the bass enhancer, the exciter and the de-esser.
#include "core/fp_environment.h"
#include "core/handle.h"
#include "enhance/auto_gain.h"
#include "enhance/bass_enhancer.h"
#include "enhance/de_esser.h"
#include "enhance/exciter.h"

extern "C" {

AutoGainState *AutoGain_Init(const float *section, int bitDepth, int sampleRate, int channels, int frameLen)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    return AutoGainState::create(section, bitDepth, sampleRate, channels, frameLen);
}

void AutoGain_Process(AutoGainState *st, float **in, float **out, int frameLen)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    if (st != nullptr)
        st->process(in, out, frameLen);
}

void AutoGain_SetPara(AutoGainState *st, const float *section)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    if (st != nullptr)
        st->set_para(section);
}

void AutoGain_GetPara(AutoGainState *st, float *section)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    if (st != nullptr)
        st->get_para(section);
}

int AutoGain_PrintPara(AutoGainState *st)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    return st != nullptr ? st->print_para() : 0;
}

int AutoGain_Destroy(AutoGainState *st) { return eqdrc::destroy_handle(st); }

BassEnhancerState *BassEnhancer_Init(const float *section, int bitDepth, int sampleRate, int channels, int link)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    return BassEnhancerState::create(section, bitDepth, sampleRate, channels, link);
}

void BassEnhancer_Process(BassEnhancerState *st, float **in, float **out, int frameLen)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    if (st != nullptr)
        st->process(in, out, frameLen);
}

void BassEnhancer_SetPara(BassEnhancerState *st, const float *section)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    if (st != nullptr)
        st->set_para(section);
}

void BassEnhancer_GetPara(BassEnhancerState *st, float *section)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    if (st != nullptr)
        st->get_para(section);
}

int BassEnhancer_PrintPara(BassEnhancerState *st)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    return st != nullptr ? st->print_para() : 0;
}

int BassEnhancer_Destroy(BassEnhancerState *st) { return eqdrc::destroy_handle(st); }

ExciterState *Exciter_Init(const float *section, int bitDepth, int sampleRate, int channels, int link)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    return ExciterState::create(section, bitDepth, sampleRate, channels, link);
}

void Exciter_Process(ExciterState *st, float **in, float **out, int frameLen)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    if (st != nullptr)
        st->process(in, out, frameLen);
}

void Exciter_SetPara(ExciterState *st, const float *section)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    if (st != nullptr)
        st->set_para(section);
}

void Exciter_GetPara(ExciterState *st, float *section)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    if (st != nullptr)
        st->get_para(section);
}

int Exciter_PrintPara(ExciterState *st)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    return st != nullptr ? st->print_para() : 0;
}

int Exciter_Destroy(ExciterState *st) { return eqdrc::destroy_handle(st); }

DeEsserState *DeEsser_Init(const float *section, int bitDepth, int sampleRate, int channels, int frameLen, int link)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    return DeEsserState::create(section, bitDepth, sampleRate, channels, frameLen, link);
}

void DeEsser_Process(DeEsserState *st, float **in, float **out, int frameLen)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    if (st != nullptr)
        st->process(in, out, frameLen);
}

void DeEsser_SetPara(DeEsserState *st, const float *section)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    if (st != nullptr)
        st->set_para(section);
}

void DeEsser_GetPara(DeEsserState *st, float *section)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    if (st != nullptr)
        st->get_para(section);
}

int DeEsser_PrintPara(DeEsserState *st)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    return st != nullptr ? st->print_para() : 0;
}

int DeEsser_Destroy(DeEsserState *st) { return eqdrc::destroy_handle(st); }

}  // extern "C"
