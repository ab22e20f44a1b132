// The second-order section every filtering stage rests on.
#ifndef EQDRC_FILTERS_BIQUAD_H
#define EQDRC_FILTERS_BIQUAD_H

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

}  // namespace eqdrc

#endif
