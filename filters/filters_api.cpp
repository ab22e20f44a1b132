// C entry points of the filter primitives: the biquad, the filter designer and the
// crossover bank.
#include "core/fp_environment.h"
#include "core/handle.h"
#include "filters/biquad.h"
#include "filters/crossover.h"
#include "filters/designer.h"
#include "tqaudio_eqdrc.h"

extern "C" {

float update_biquad_filter(const float *coeffs, float *state, float x)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    return eqdrc::biquad_step(coeffs, state, x);
}

BiquadState *biquad_init(void)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    return eqdrc::biquad_object_create();
}

int biquad_destroy(BiquadState *b)
{
    if (b != nullptr)
        eqdrc::biquad_object_free(b);
    return 0;
}

void biquad_reset(BiquadState *b)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    eqdrc::biquad_object_reset(b);
}

int biquad_setCoefficients(BiquadState *b, const float coeffs[5])
{
    const eqdrc::FpEnvironment libraryEnvironment;
    eqdrc::biquad_object_set(b, coeffs);
    return 0;
}

float biquad_processAudioSample(BiquadState *b, float x)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    return eqdrc::biquad_step(b->coeffs, b->state, x);
}

float biquad_1st_processAudioSample(BiquadState *b, float x)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    return eqdrc::biquad_first_order_step(b->coeffs, b->state, x);
}

void filter_calculateCoeffs(float coeffs[5], int type, float fs, float fc, float q, float gainDb)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    eqdrc::design_biquad(coeffs, type, fs, fc, q, gainDb);
}

void filter_responseDb(const float coeffs[5], double fs, const double *freqs, double *db, int count)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    eqdrc::biquad_response_db(coeffs, fs, freqs, db, count);
}

CrossoverParam *Filters_Crossover_paramInit(void)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    return eqdrc::new_default_param();
}

CrossoverState *Filters_Crossover_filterInit(int sampleRate, int channels, const CrossoverParam *param)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    return CrossoverState::create(sampleRate, channels, param);
}

void Filters_Crossover_filterSetParam(CrossoverState *st, const CrossoverParam *param)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    if (st != nullptr && param != nullptr)
        st->set_param(param);
}

void Filters_Crossover_filterProcess(CrossoverState *st, const float *in, float *out)
{
    const eqdrc::FpEnvironment libraryEnvironment;
    if (st != nullptr)
        st->process(in, out);
}

int Filters_Crossover_filterDestroy(CrossoverState *st) { return eqdrc::destroy_handle(st); }

}  // extern "C"
