// C entry points of the ten-band equaliser.
#include "core/fp_environment.h"
#include "core/handle.h"
#include "eq/equaliser.h"

extern "C" {

EQ10State *EQ10_Init(const float *section, int bitDepth, int sampleRate, int channels, int frameLen, int link)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    return EQ10State::create(section, bitDepth, sampleRate, channels, frameLen, link);
}

void EQ10_Process(EQ10State *st, float **in, float **out, int frameLen)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    if (st != nullptr)
        st->process(in, out, frameLen);
}

void EQ10_SetPara(EQ10State *st, const float *section)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    if (st != nullptr)
        st->set_para(section);
}

void EQ10_GetPara(EQ10State *st, float *section)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    if (st != nullptr)
        st->get_para(section);
}

void EQ10_GetData(EQ10State *st, float **inFrames, float **outFrames)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    if (st != nullptr)
        st->get_data(inFrames, outFrames);
}

int EQ10_PrintPara(EQ10State *st)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    return st != nullptr ? st->print_para() : 0;
}

int EQ10_Destroy(EQ10State *st) { return eqdrc::destroy_handle(st); }

}  // extern "C"
