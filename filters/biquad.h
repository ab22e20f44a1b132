// The second-order section every filtering stage rests on.
#ifndef EQDRC_FILTERS_BIQUAD_H
#define EQDRC_FILTERS_BIQUAD_H

#include "dsp/lanes.h"
#include "tqaudio_eqdrc.h"

namespace eqdrc {

// Coefficient record: b0, b1, b2, a1, a2 with a0 divided out.
constexpr int kBiquadCoeffs = 5;
// Section state: z1, z2 of the transposed direct form II.
constexpr int kBiquadState = 2;

// One sample through a transposed direct form II section.  The operation order is
// part of the output: keep it.
inline float biquad_step(const float *c, float *z, float x)
{
    float y = z[0] + c[0] * x;
    z[0] = z[1] + (c[1] * x - c[3] * y);
    z[1] = c[2] * x - c[4] * y;
    return y;
}

// First-order form on slots b0, b1 and a1 of the same record.
inline float biquad_first_order_step(const float *c, float *z, float x)
{
    float y = z[0] + c[0] * x;
    z[0] = c[1] * x - c[3] * y;
    return y;
}

// Four (or eight) sections in lanes, one coefficient of every lane per vector.
template <class V>
struct BiquadBank {
    V b0, b1, b2, a1, a2;

    // Lane `lane` takes the record `c`.
    void set(int lane, const float *c)
    {
        b0[lane] = c[0];
        b1[lane] = c[1];
        b2[lane] = c[2];
        a1[lane] = c[3];
        a2[lane] = c[4];
    }
};
using BiquadLanes = BiquadBank<f32x4>;

// biquad_step in every lane of a bank of four (or eight) sections: the same operations
// in the same order.
template <class Bank, class V>
EQDRC_LANE_INLINE V biquad_step(const Bank &c, V &z1, V &z2, V x)
{
    const V y = z1 + c.b0 * x;
    z1 = z2 + (c.b1 * x - c.a1 * y);
    z2 = c.b2 * x - c.a2 * y;
    return y;
}

// The exported biquad object (biquad_init and friends): zeroed blocks, freed together.
BiquadState *biquad_object_create();
void biquad_object_free(BiquadState *b);
void biquad_object_reset(BiquadState *b);
void biquad_object_set(BiquadState *b, const float *coeffs);

}  // namespace eqdrc

#endif
