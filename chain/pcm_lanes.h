// Interleaved 16-bit stereo to two float channels and back, four samples at a time
// where the build has vector lanes.  Every lane performs the scalar conversion's
// operations: an int16 is exactly a float; the output clamp, then truncation, then the
// low 16 bits.
#ifndef EQDRC_CHAIN_PCM_LANES_H
#define EQDRC_CHAIN_PCM_LANES_H

#include <cstdint>
#include <cstring>

#include "core/numeric.h"
#include "dsp/lanes.h"

#if !EQDRC_SCALAR_LANES && defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace eqdrc {

#if !EQDRC_SCALAR_LANES
typedef int32_t i32x4 __attribute__((vector_size(16)));
typedef uint32_t u32x4 __attribute__((vector_size(16)));

// The low 16 bits of every lane, sign-extended.
inline i32x4 low_halves(i32x4 w) { return reinterpret_cast<i32x4>(reinterpret_cast<u32x4>(w) << 16) >> 16; }
#endif

// x scaled by the channel's gain, into left and right.
inline void pcm_to_channels(const int16_t *in, float *left, float *right, float gainLeft, float gainRight, int n)
{
    int i = 0;
#if !EQDRC_SCALAR_LANES && defined(__aarch64__)
    // Eight frames at a time, split into the channels by the load itself.
    const float32x4_t gl = vdupq_n_f32(gainLeft), gr = vdupq_n_f32(gainRight);
    for (; i + 2 * kLanes <= n; i += 2 * kLanes) {
        const int16x8x2_t w = vld2q_s16(in + 2 * i);
        vst1q_f32(left + i, vmulq_f32(vcvtq_f32_s32(vmovl_s16(vget_low_s16(w.val[0]))), gl));
        vst1q_f32(left + i + kLanes, vmulq_f32(vcvtq_f32_s32(vmovl_high_s16(w.val[0])), gl));
        vst1q_f32(right + i, vmulq_f32(vcvtq_f32_s32(vmovl_s16(vget_low_s16(w.val[1]))), gr));
        vst1q_f32(right + i + kLanes, vmulq_f32(vcvtq_f32_s32(vmovl_high_s16(w.val[1])), gr));
    }
#elif !EQDRC_SCALAR_LANES && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    const f32x4 gl = splat(gainLeft), gr = splat(gainRight);
    for (; i + kLanes <= n; i += kLanes) {
        // Each 32-bit word holds a left sample in its low half, a right one in its high.
        i32x4 w;
        std::memcpy(&w, in + 2 * i, sizeof w);
        const i32x4 l = low_halves(w), r = w >> 16;
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

// The lanes truncate as to_int32 does only inside the int32 range, so they run when
// [low, high] lies inside it.
inline bool pcm16_lanes_apply(float low, float high) { return high < 2147483648.0f && low >= -2147483648.0f; }

#if !EQDRC_SCALAR_LANES
// to_pcm16 of each lane, sign-extended, where pcm16_lanes_apply: neither bound is NaN
// there, and after the first clamp neither is v, so the clamps are a min and a max.
inline i32x4 pcm16_lanes(f32x4 v, f32x4 lo, f32x4 hi)
{
    return low_halves(__builtin_convertvector(max_ordered(min_ordered(v, hi), lo), i32x4));
}
#endif

// Both channels to interleaved 16-bit words.
inline void channels_to_pcm(const float *left, const float *right, int16_t *out, float low, float high, int n)
{
    int i = 0;
#if !EQDRC_SCALAR_LANES && defined(__aarch64__)
    if (pcm16_lanes_apply(low, high)) {
        // fminnm gives the bound for a NaN, as the first clamp does, and a clamped value
        // is no NaN, so fmaxnm is the second; equal values differ at most in the sign of
        // a zero, which truncates alike.  The narrowing keeps the low 16 bits, and the
        // store interleaves the channels.
        const float32x4_t lo = vdupq_n_f32(low), hi = vdupq_n_f32(high);
        const auto words = [lo, hi](const float *x) {
            return vmovn_s32(vcvtq_s32_f32(vmaxnmq_f32(vminnmq_f32(vld1q_f32(x), hi), lo)));
        };
        for (; i + kLanes <= n; i += kLanes)
            vst2_s16(out + 2 * i, int16x4x2_t{{words(left + i), words(right + i)}});
    }
#elif !EQDRC_SCALAR_LANES
    typedef int16_t i16x8 __attribute__((vector_size(16)));
    if (pcm16_lanes_apply(low, high)) {
        const f32x4 lo = splat(low), hi = splat(high);
        for (; i + kLanes <= n; i += kLanes) {
            // Sign-extended 16-bit values, which a saturating pack keeps.
            const i32x4 l = pcm16_lanes(load(left + i), lo, hi), r = pcm16_lanes(load(right + i), lo, hi);
            const i32x4 first = __builtin_shufflevector(l, r, 0, 4, 1, 5), second = __builtin_shufflevector(l, r, 2, 6, 3, 7);
#if defined(__SSE2__)
            const i16x8 v = reinterpret_cast<i16x8>(
                _mm_packs_epi32(reinterpret_cast<__m128i>(first), reinterpret_cast<__m128i>(second)));
#else
            const i16x8 v = __builtin_convertvector(__builtin_shufflevector(first, second, 0, 1, 2, 3, 4, 5, 6, 7), i16x8);
#endif
            std::memcpy(out + 2 * i, &v, sizeof v);
        }
    }
#endif
    for (; i < n; i++) {
        out[2 * i] = to_pcm16(left[i], low, high);
        out[2 * i + 1] = to_pcm16(right[i], low, high);
    }
}

// The largest magnitude in each of the first two channels of interleaved x (n samples
// per channel) into peak[0..1] (-32768 counts as 32768; a channel x lacks gets 0).  One
// or two channels go eight words at a time: word k of eight is channel k % channels.
inline void pcm_peaks(const int16_t *x, int channels, int n, int32_t peak[2])
{
    const int metered = channels < 2 ? channels : 2;
    int32_t high[2] = {0, 0}, low[2] = {0, 0};
    int frame = 0;
#if !EQDRC_SCALAR_LANES
    typedef int16_t i16x8 __attribute__((vector_size(16)));
    if (channels == 1 || channels == 2) {
        const int words = n * channels;
        i16x8 top = {}, bottom = {};
        int i = 0;
        for (; i + 8 <= words; i += 8) {
            i16x8 v;
            std::memcpy(&v, x + i, sizeof v);
            top = v > top ? v : top;
            bottom = v < bottom ? v : bottom;
        }
        for (int k = 0; k < 8; k++) {
            const int c = k % channels;
            high[c] = top[k] > high[c] ? top[k] : high[c];
            low[c] = bottom[k] < low[c] ? bottom[k] : low[c];
        }
        frame = i / channels;
    }
#endif
    for (; frame < n; frame++) {
        for (int c = 0; c < metered; c++) {
            const int32_t v = x[static_cast<size_t>(frame) * channels + c];
            high[c] = v > high[c] ? v : high[c];
            low[c] = v < low[c] ? v : low[c];
        }
    }
    for (int c = 0; c < 2; c++)
        peak[c] = high[c] > -low[c] ? high[c] : -low[c];
}

// The largest magnitude of the 16-bit words to_pcm16 makes of x[0..n).
inline int32_t pcm16_peak(const float *x, int n, float low, float high)
{
    int32_t peak = 0;
    int i = 0;
#if !EQDRC_SCALAR_LANES
    if (pcm16_lanes_apply(low, high)) {
        const f32x4 lo = splat(low), hi = splat(high);
        i32x4 top = {}, bottom = {};
        for (; i + kLanes <= n; i += kLanes) {
            const i32x4 v = pcm16_lanes(load(x + i), lo, hi);
            top = v > top ? v : top;
            bottom = v < bottom ? v : bottom;
        }
        for (int k = 0; k < kLanes; k++) {
            peak = top[k] > peak ? top[k] : peak;
            peak = -bottom[k] > peak ? -bottom[k] : peak;
        }
    }
#endif
    for (; i < n; i++) {
        const int32_t v = to_pcm16(x[i], low, high);
        const int32_t magnitude = v < 0 ? -v : v;
        peak = magnitude > peak ? magnitude : peak;
    }
    return peak;
}

}  // namespace eqdrc

#endif
