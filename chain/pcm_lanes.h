// Interleaved 16-bit stereo to two float channels and back, four samples at a time
// where the build has vector lanes.  Every lane performs the scalar conversion's
// operations: an int16 is exactly a float; the output clamp, then truncation, then the
// low 16 bits.
#ifndef EQDRC_CHAIN_PCM_LANES_H
#define EQDRC_CHAIN_PCM_LANES_H

#include <cstdint>
#include <cstring>

#include "core/numeric.h"
#include "filters/lanes.h"

namespace eqdrc {

// x scaled by the channel's gain, into left and right.
inline void pcm_to_channels(const int16_t *in, float *left, float *right, float gainLeft, float gainRight, int n)
{
    int i = 0;
#if !EQDRC_SCALAR_LANES
    typedef int16_t i16x8 __attribute__((vector_size(16)));
    typedef int16_t i16x4 __attribute__((vector_size(8)));
    const f32x4 gl = splat(gainLeft), gr = splat(gainRight);
    for (; i + kLanes <= n; i += kLanes) {
        i16x8 v;
        std::memcpy(&v, in + 2 * i, sizeof v);
        const i16x4 l = __builtin_shufflevector(v, v, 0, 2, 4, 6), r = __builtin_shufflevector(v, v, 1, 3, 5, 7);
        store(left + i, __builtin_convertvector(l, f32x4) * gl);
        store(right + i, __builtin_convertvector(r, f32x4) * gr);
    }
#endif
    for (; i < n; i++) {
        left[i] = static_cast<float>(in[2 * i]) * gainLeft;
        right[i] = static_cast<float>(in[2 * i + 1]) * gainRight;
    }
}

// v clamped to [low, high] (NaN to high), truncated, its low 16 bits.
inline int16_t to_pcm16(float v, float low, float high)
{
    if (!(v < high))
        v = high;
    const int32_t s = v <= low ? to_int32(low) : to_int32(v);
    return static_cast<int16_t>(static_cast<uint16_t>(static_cast<uint32_t>(s) & 0xFFFFu));
}

// Both channels to interleaved 16-bit words.  The lanes truncate as to_int32 does only
// inside the int32 range, so they run when [low, high] lies inside it.
inline void channels_to_pcm(const float *left, const float *right, int16_t *out, float low, float high, int n)
{
    int i = 0;
#if !EQDRC_SCALAR_LANES
    typedef int32_t i32x4 __attribute__((vector_size(16)));
    typedef int16_t i16x4 __attribute__((vector_size(8)));
    typedef int16_t i16x8 __attribute__((vector_size(16)));
    if (high < 2147483648.0f && low >= -2147483648.0f) {
        const f32x4 lo = splat(low), hi = splat(high);
        auto convert = [&](f32x4 v) {
            v = select(v < hi, v, hi);
            v = select(v <= lo, lo, v);
            return __builtin_convertvector(__builtin_convertvector(v, i32x4), i16x4);
        };
        for (; i + kLanes <= n; i += kLanes) {
            const i16x4 l = convert(load(left + i)), r = convert(load(right + i));
            const i16x8 v = __builtin_shufflevector(l, r, 0, 4, 1, 5, 2, 6, 3, 7);
            std::memcpy(out + 2 * i, &v, sizeof v);
        }
    }
#endif
    for (; i < n; i++) {
        out[2 * i] = to_pcm16(left[i], low, high);
        out[2 * i + 1] = to_pcm16(right[i], low, high);
    }
}

}  // namespace eqdrc

#endif
