// The exported biquad: the sample function and a small object owning its blocks.
#include "filters/biquad.h"

#include <cstdlib>
#include <cstring>

#include "tqaudio_eqdrc.h"

namespace {
constexpr int kObjectStateWords = 4;  // two used; the block has always been four wide
}

extern "C" {

float update_biquad_filter(const float *coeffs, float *state, float x) { return eqdrc::biquad_step(coeffs, state, x); }

BiquadState *biquad_init(void)
{
    auto *b = static_cast<BiquadState *>(std::calloc(1, sizeof(BiquadState)));
    b->coeffs = static_cast<float *>(std::calloc(eqdrc::kBiquadCoeffs, sizeof(float)));
    b->state = static_cast<float *>(std::calloc(kObjectStateWords, sizeof(float)));
    return b;
}

int biquad_destroy(BiquadState *b)
{
    if (b == nullptr)
        return 0;
    std::free(b->coeffs);
    b->coeffs = nullptr;
    std::free(b->state);
    std::free(b);
    return 0;
}

void biquad_reset(BiquadState *b) { std::memset(b->state, 0, kObjectStateWords * sizeof(float)); }

int biquad_setCoefficients(BiquadState *b, const float coeffs[5])
{
    std::memcpy(b->coeffs, coeffs, eqdrc::kBiquadCoeffs * sizeof(float));
    return 0;
}

float biquad_processAudioSample(BiquadState *b, float x) { return eqdrc::biquad_step(b->coeffs, b->state, x); }

float biquad_1st_processAudioSample(BiquadState *b, float x)
{
    return eqdrc::biquad_first_order_step(b->coeffs, b->state, x);
}

}  // extern "C"
