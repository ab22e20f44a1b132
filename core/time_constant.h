// Time constants in milliseconds as one-pole factors.
//
// A frame-rate factor is 1 - expf(-kTimeConstantFactor × frameLen / (sampleRate × T)):
// the gain moves that fraction of the way to its target once per frame.  The stages
// evaluate the product and the quotient in different int32/float forms; each form gives
// its own bits for some inputs, and the output is specified to the bit, so each form is
// a named function here rather than one merged formula.
#ifndef EQDRC_CORE_TIME_CONSTANT_H
#define EQDRC_CORE_TIME_CONSTANT_H

#include <cstdint>

#include "core/mathf.h"
#include "core/numeric.h"

namespace eqdrc {

// 2200 = 2.2 × 1000 makes T a 10 %-90 % rise time in milliseconds.
constexpr int kTimeConstantFactor = 2200;

// expf(-2200 × frameLen / (sampleRate × ms)) with the numerator as a float product.
// (The maximizer's limiter and AGC, the de-esser.)
inline float frame_decay_float_product(int32_t frameLen, int32_t sampleRate, float ms)
{
    const float num = static_cast<float>(frameLen) * -static_cast<float>(kTimeConstantFactor);
    return mathf::expf(num / (static_cast<float>(sampleRate) * ms));
}

// The same with the numerator as an int32 product that wraps, then converted: equal to
// the float product while |frameLen| × 2200 fits in int32, different beyond.  (The auto
// gain, the level detector's set-up of times.)
inline float frame_decay_int_product(int32_t frameLen, int32_t sampleRate, float ms)
{
    const int32_t num = wrapping_mul(-kTimeConstantFactor, frameLen);
    return mathf::expf(static_cast<float>(num) / (static_cast<float>(sampleRate) * ms));
}

// A whole number of milliseconds: the denominator sampleRate × ms as an int32 product
// that wraps, converted once, rather than a float product of two rounded factors.
// (The level detector's built-in times.)
inline float frame_decay_int_denominator(int32_t frameLen, int32_t sampleRate, int32_t ms)
{
    const float num = static_cast<float>(frameLen) * -static_cast<float>(kTimeConstantFactor);
    return mathf::expf(num / static_cast<float>(wrapping_mul(ms, sampleRate)));
}

// The per-sample factor expf(-1000 / (sampleRate × ms)), the product in int32 (0 ms:
// 0, the value follows at once).  (The multi-band compressor's envelope.)
inline float sample_decay(int32_t sampleRate, int32_t ms)
{
    return mathf::expf(-1000.0f / static_cast<float>(wrapping_mul(sampleRate, ms)));
}

// The fraction of the way a one-pole moves per step, from its decay.
inline float one_pole_coefficient(float decay) { return 1.0f - decay; }

}  // namespace eqdrc

#endif
