// Skewed two-channel cascades.
#include "filters/paired_cascade.h"

#include "filters/biquad.h"
#include "filters/lanes.h"

#if defined(__clang__)
#define EQDRC_UNROLL _Pragma("unroll")
#elif defined(__GNUC__)
#define EQDRC_UNROLL _Pragma("GCC unroll 16")
#else
#define EQDRC_UNROLL
#endif

namespace eqdrc {
namespace {

// Stage k of the lanes: section k of each channel in lanes 0 and 1, section H + k in
// lanes 2 and 3.  With an odd count the second half is one section short: its last
// stage only passes lanes 2 and 3 through.
template <int H, bool Odd>
struct SkewedCascade {
    BiquadLanes c[H];
    f32x4 z1[H], z2[H];

    static bool second_half_has(int k) { return !(Odd && k == H - 1); }

    void load(const CascadeSections &s)
    {
        for (int k = 0; k < H; k++) {
            c[k] = BiquadLanes{};
            z1[k] = z2[k] = splat(0.0f);
            for (int lane = 0; lane < kLanes; lane++) {
                const int channel = lane & 1;
                const int section = lane < 2 ? k : H + k;
                if (lane >= 2 && !second_half_has(k))
                    continue;
                c[k].set(lane, s.coeffs[channel][section]);
                z1[k][lane] = s.state[channel][section][0];
                z2[k][lane] = s.state[channel][section][1];
            }
        }
    }

    void save(const CascadeSections &s) const
    {
        for (int k = 0; k < H; k++) {
            for (int lane = 0; lane < kLanes; lane++) {
                const int channel = lane & 1;
                const int section = lane < 2 ? k : H + k;
                if (lane >= 2 && !second_half_has(k))
                    continue;
                s.state[channel][section][0] = z1[k][lane];
                s.state[channel][section][1] = z2[k][lane];
            }
        }
    }

    f32x4 step(f32x4 v, m32x4 firstHalf)
    {
        // Unrolled, so that the memories stay in registers across the frame.
        EQDRC_UNROLL
        for (int k = 0; k < H; k++) {
            const f32x4 w = biquad_step(c[k], z1[k], z2[k], v);
            v = second_half_has(k) ? w : select(firstHalf, w, v);
        }
        return v;
    }

    // A step in which only the lanes in `live` may change their memories.
    f32x4 partial_step(f32x4 v, m32x4 live, m32x4 firstHalf)
    {
        f32x4 keep1[H], keep2[H];
        for (int k = 0; k < H; k++) {
            keep1[k] = z1[k];
            keep2[k] = z2[k];
        }
        v = step(v, firstHalf);
        for (int k = 0; k < H; k++) {
            z1[k] = select(live, z1[k], keep1[k]);
            z2[k] = select(live, z2[k], keep2[k]);
        }
        return v;
    }

    void run(const CascadeSections &s, const float *const x[2], float *const y[2], int n)
    {
        load(s);
        const m32x4 firstHalf = mask(true, true, false, false);
        const m32x4 secondHalf = mask(false, false, true, true);
        const float *x0 = x[0], *x1 = x[1];
        float *y0 = y[0], *y1 = y[1];
        // Sample 0 through the first half alone: there is no sample -1 for the second.
        f32x4 v = partial_step(lanes(x0[0], x1[0], 0.0f, 0.0f), firstHalf, firstHalf);
        for (int i = 1; i < n; i++) {
            v = step(lanes(x0[i], x1[i], v[0], v[1]), firstHalf);
            y0[i - 1] = v[2];
            y1[i - 1] = v[3];
        }
        // The last sample through the second half alone.
        v = partial_step(lanes(0.0f, 0.0f, v[0], v[1]), secondHalf, firstHalf);
        y0[n - 1] = v[2];
        y1[n - 1] = v[3];
        save(s);
    }
};

template <int H>
void run_halves(const CascadeSections &s, const float *const x[2], float *const y[2], int n)
{
    if (s.count & 1)
        SkewedCascade<H, true>().run(s, x, y, n);
    else
        SkewedCascade<H, false>().run(s, x, y, n);
}

}  // namespace

void run_paired_cascade(const CascadeSections &s, const float *const x[2], float *const y[2], int n)
{
    switch ((s.count + 1) / 2) {
    case 1: run_halves<1>(s, x, y, n); break;
    case 2: run_halves<2>(s, x, y, n); break;
    case 3: run_halves<3>(s, x, y, n); break;
    case 4: run_halves<4>(s, x, y, n); break;
    case 5: run_halves<5>(s, x, y, n); break;
    default: break;
    }
}

}  // namespace eqdrc
