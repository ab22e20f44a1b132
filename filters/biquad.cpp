// The exported biquad object: a small record owning its coefficient and state blocks.
#include "filters/biquad.h"

#include <cstdlib>
#include <cstring>

#include "core/alloc.h"

namespace eqdrc {
namespace {
constexpr int kObjectStateWords = 4;  // two used; the block is four wide so hosts may keep spare state
}

BiquadState *biquad_object_create()
{
    auto *b = zeroed<BiquadState>(1);
    b->coeffs = zeroed<float>(kBiquadCoeffs);
    b->state = zeroed<float>(kObjectStateWords);
    return b;
}

void biquad_object_free(BiquadState *b)
{
    std::free(b->coeffs);
    b->coeffs = nullptr;
    std::free(b->state);
    std::free(b);
}

void biquad_object_reset(BiquadState *b) { std::memset(b->state, 0, kObjectStateWords * sizeof(float)); }

void biquad_object_set(BiquadState *b, const float *coeffs)
{
    std::memcpy(b->coeffs, coeffs, kBiquadCoeffs * sizeof(float));
}

}  // namespace eqdrc
