#include "enhance/bass_shaper.h"

namespace eqdrc {
namespace {

constexpr float kDriveScale = 12.0f;
constexpr float kBlendPivot = 10.5f;
constexpr float kShaperGain = 23.64f;  // bit pattern 0x41BD1EB8

}  // namespace

BassShaper BassShaper::design(float drive, float blend)
{
    BassShaper s;
    const float k = kDriveScale / drive;
    const float m = (k / (kBlendPivot - blend)) * kShaperGain;
    // Positive arc: A = 1 + sqrt|2k^2 - 1|, B = (2 - A) / 2, E = (k^2 - A + 1) / 2.
    const float t = std::fabs((k + k) * k - 1.0f);
    const float r = t > kBassFlush ? std::sqrt(t) : 0.0f;
    s.a = r + 1.0f;
    s.b = (2.0f - s.a) * 0.5f;
    s.e = ((k * k - s.a) + 1.0f) * 0.5f;
    // Negative arc, through the origin.
    const float q = sqrt_flushed(2.0f * r - 2.0f * k * k);
    const float u = s.a / q;  // q == 0 gives an infinite u: no guard
    const float su = 1.0f + u * u;
    const float rootS = su > kBassFlush ? std::sqrt(su) : 0.0f;
    s.p = (2.0f * u * m) / rootS;
    s.d = -m / rootS;
    s.f = m * m / su;
    const float rr = sqrt_flushed(2.0f * s.p + 4.0f * s.f - 1.0f);
    s.scale = 2.0f / (2.0f * s.d + rr + 1.0f);
    return s;
}

}  // namespace eqdrc
