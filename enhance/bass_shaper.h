// The bass enhancer's waveshaper: an asymmetric curve made of two circular arcs, whose
// even and odd harmonics of the low band stand in for the bass a small loudspeaker
// cannot reproduce.
//
// For an input y (the low band, in units of full scale):
//   y >= 0:  w = ( sqrt(E + (A - y) y) + B) H    the upper half of a circle centred at
//            y = A/2 with radius^2 = E + A^2/4: rises steeply from y = 0 and levels off
//            towards the top of the circle, a soft saturation of positive half-waves;
//   y < 0:   w = -H (D + sqrt(F - (y + P) y))    an arc of a circle centred at y = -P/2,
//            radius^2 = F + P^2/4, which passes through w = 0 at y = 0 (D = -sqrt(F)
//            for a positive m below).
// The two halves bend differently, so the shaper adds even harmonics as well as odd
// ones; the offset it leaves at y = 0, (sqrt(E) + B) H, is removed by the DC blocker
// after it.  Square roots of arguments at or below 1e-8 in magnitude give 0, and an
// argument's sign is dropped, so the curve stays real and out of the denormal range.
#ifndef EQDRC_ENHANCE_BASS_SHAPER_H
#define EQDRC_ENHANCE_BASS_SHAPER_H

#include "dsp/lanes8.h"

#include <cmath>

namespace eqdrc {

// Below this a square-root argument or a DC-blocker memory counts as 0.
constexpr float kBassFlush = 1e-8f;

// sqrt(|v|), or 0 when |v| is at most the flush level.
inline float sqrt_flushed(float v)
{
    const float a = std::fabs(v);
    return a > kBassFlush ? std::sqrt(a) : 0.0f;
}

struct BassShaper {
    float a, b, p, d, e, f;  // the arcs' constants, in the record's order
    float scale;             // H, the output scale of both arcs

    // From the stage's drive and blend: k = 12 / drive sets the positive arc's width,
    // m = k / (10.5 - blend) × 23.64 the negative arc's.  Drive 0 or blend 10.5 give
    // infinities or NaN, which are left as they come.
    static BassShaper design(float drive, float blend);

    // A NaN takes the negative branch.
    float shape(float y) const
    {
        if (y >= 0.0f)
            return (sqrt_flushed(e + (a - y) * y) + b) * scale;
        return -(scale * (d + sqrt_flushed(f - (y + p) * y)));
    }
};

// The shaper in lanes, even lanes with `even`'s constants and odd lanes with `odd`'s: one
// shaper in every lane, or two channels' over their interleaved samples.  Each lane gives the bits of
// shape(), with its branch in one form and its constants selected: the root drops its
// argument's sign, so the positive arc may take -(e + (a - y) y) = (y - a) y - e and the
// negative one -(f - (y + p) y) = (y + p) y - f, the same bits as rounding is symmetric;
// and -(H (d + r)) is -((r + d) H).
template <class V>
struct ShaperLanes {
    V negA, p, negE, negF, b, d, scale;

    ShaperLanes(const BassShaper &even, const BassShaper &odd)
    {
        for (int k = 0; k < static_cast<int>(sizeof(V) / sizeof(float)); k++) {
            const BassShaper &s = k % 2 == 0 ? even : odd;
            negA[k] = -s.a;
            p[k] = s.p;
            negE[k] = -s.e;
            negF[k] = -s.f;
            b[k] = s.b;
            d[k] = s.d;
            scale[k] = s.scale;
        }
    }

    EQDRC_LANE_INLINE V shape(V y) const
    {
        const V flush = broadcast<V>(kBassFlush), zero = broadcast<V>(0.0f);
        const auto up = greater_equal(y, zero);
        const V m = eqdrc::abs((y + select_fixed(up, negA, p)) * y + select_fixed(up, negE, negF));
        const V root = select(greater(m, flush), eqdrc::sqrt(m), zero);
        return negate_unless(up, (root + select_fixed(up, b, d)) * scale);
    }
};

}  // namespace eqdrc

#endif
