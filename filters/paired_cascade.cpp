// Skewed two-channel cascades.
#include "filters/paired_cascade.h"

#include "filters/skewed_cascade.h"

namespace eqdrc {
namespace {

// From the channels' arrays to theirs, two steps at a time a 64-bit load and store per
// channel.
struct PairArrays {
    const float *x0, *x1;
    float *y0, *y1;

    EQDRC_LANE_INLINE Pair in(int t) const { return pair_lanes(x0[t], x1[t]); }
    EQDRC_LANE_INLINE f32x4 in_two(int t) const { return load_two_pairs(x0 + t, x1 + t); }
    EQDRC_LANE_INLINE void out(int i, Pair y) const { store_lanes(y0 + i, y1 + i, y); }
    EQDRC_LANE_INLINE void out_two(int i, f32x4 rows) const { store_pairs(y0 + i, y1 + i, rows); }
};

template <class V, int Count>
void run_skewed(const CascadeSections &s, const float *const x[2], float *const y[2], int n)
{
    PairArrays io{x[0], x[1], y[0], y[1]};
    skew::SkewedCascade<V, Count>().run_io(s, n, io);
}

}  // namespace

void run_paired_cascade(const CascadeSections &s, const float *const x[2], float *const y[2], int n)
{
    using skew::Widest;
    switch (s.count) {
    case 1: run_skewed<Widest<1>, 1>(s, x, y, n); break;
    case 2: run_skewed<Widest<2>, 2>(s, x, y, n); break;
    case 3: run_skewed<Widest<3>, 3>(s, x, y, n); break;
    case 4: run_skewed<Widest<4>, 4>(s, x, y, n); break;
    case 5: run_skewed<Widest<5>, 5>(s, x, y, n); break;
    case 6: run_skewed<Widest<6>, 6>(s, x, y, n); break;
    case 7: run_skewed<Widest<7>, 7>(s, x, y, n); break;
    case 8: run_skewed<Widest<8>, 8>(s, x, y, n); break;
    case 9: run_skewed<Widest<9>, 9>(s, x, y, n); break;
    case 10: run_skewed<Widest<10>, 10>(s, x, y, n); break;
    default: break;
    }
}

}  // namespace eqdrc
