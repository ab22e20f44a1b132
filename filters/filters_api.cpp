// C entry points of the filter primitives: the biquad, the filter designer, the
// crossover bank and the gain-curve tables.
#include "core/handle.h"
#include "filters/biquad.h"
#include "filters/crossover.h"
#include "filters/designer.h"
#include "filters/gain_table.h"
#include "tqaudio_eqdrc.h"

extern "C" {

float update_biquad_filter(const float *coeffs, float *state, float x) { return eqdrc::biquad_step(coeffs, state, x); }

BiquadState *biquad_init(void) { return eqdrc::biquad_object_create(); }

int biquad_destroy(BiquadState *b)
{
    if (b != nullptr)
        eqdrc::biquad_object_free(b);
    return 0;
}

void biquad_reset(BiquadState *b) { eqdrc::biquad_object_reset(b); }

int biquad_setCoefficients(BiquadState *b, const float coeffs[5])
{
    eqdrc::biquad_object_set(b, coeffs);
    return 0;
}

float biquad_processAudioSample(BiquadState *b, float x) { return eqdrc::biquad_step(b->coeffs, b->state, x); }

float biquad_1st_processAudioSample(BiquadState *b, float x)
{
    return eqdrc::biquad_first_order_step(b->coeffs, b->state, x);
}

void filter_calculateCoeffs(float coeffs[5], int type, float fs, float fc, float q, float gainDb)
{
    eqdrc::design_biquad(coeffs, type, fs, fc, q, gainDb);
}

CrossoverParam *Filters_Crossover_paramInit(void) { return eqdrc::new_default_param(); }

CrossoverState *Filters_Crossover_filterInit(int sampleRate, int channels, const CrossoverParam *param)
{
    return CrossoverState::create(sampleRate, channels, param);
}

void Filters_Crossover_filterSetParam(CrossoverState *st, const CrossoverParam *param)
{
    if (st != nullptr && param != nullptr)
        st->set_param(param);
}

void Filters_Crossover_filterProcess(CrossoverState *st, const float *in, float *out)
{
    if (st != nullptr)
        st->process(in, out);
}

int Filters_Crossover_filterDestroy(CrossoverState *st) { return eqdrc::destroy_handle(st); }

float table_caculate(int knee, float x, float noise_threshold, float expand_end, float compress_start, float max_gain,
                     float max_peak)
{
    return eqdrc::expander_compressor_curve(knee, x, noise_threshold, expand_end, compress_start, max_gain, max_peak);
}

float max_table_caculate(int knee, float x, float threshold) { return eqdrc::limiter_curve(knee, x, threshold); }

float table_search(int last_index, const float *table, float level, float x0, float scale)
{
    return eqdrc::gain_table_lookup(last_index, table, level, x0, scale);
}

}  // extern "C"
