// Linkwitz-Riley crossover bank.  The bands are independent filters of the same input:
// no tree of splits and no all-pass compensation, so they need not sum flat.
#include "filters/crossover.h"

#include <cstdlib>
#include <cstring>

#include "core/alloc.h"
#include "core/log.h"
#include "filters/designer.h"
#include "filters/filters_log.h"

namespace eqdrc {
namespace {

constexpr int32_t kDefaultBandMode = 0;
constexpr float kDefaultCorners[kCrossoverCorners] = {250.0f, 3000.0f, 250.0f, 1000.0f, 1000.0f, 3000.0f};

// Butterworth sections are designed with the quality ignored and at 0 dB.
constexpr float kDesignQ = 0.0f;
constexpr float kDesignGainDb = 0.0f;

}  // namespace

void LinkwitzRiley4::allocate(int channels)
{
    coeffs = zeroed<float>(count_of(channels) * kCoeffStride);
    state = zeroed<float>(count_of(channels) * kStateStride);
}

void LinkwitzRiley4::release()
{
    std::free(coeffs);
    std::free(state);
    coeffs = nullptr;
    state = nullptr;
}

void LinkwitzRiley4::design(int channels, int type, float fs, float fc)
{
    const size_t n = count_of(channels);
    std::memset(state, 0, n * kStateStride * sizeof(float));
    float section[kBiquadCoeffs];
    design_biquad(section, type, fs, fc, kDesignQ, kDesignGainDb);
    for (size_t c = 0; c < n; c++) {
        std::memcpy(coeffs + c * kCoeffStride, section, sizeof section);
        std::memcpy(coeffs + c * kCoeffStride + kBiquadCoeffs, section, sizeof section);
    }
}

bool LinkwitzRiley4::outer_taps_equal(int channels) const
{
    constexpr int kB2 = 2;  // b2's slot in a section's record, after b0 and b1
    for (int k = 0; k < channels * kCoeffStride; k += kBiquadCoeffs) {
        if (std::memcmp(&coeffs[k], &coeffs[k + kB2], sizeof(float)) != 0)
            return false;
    }
    return true;
}

namespace {

// Where one channel's fourth-order filter sits in the lane banks: its first section at
// stage `stage`, its second at stage + 1, both in lane `lane`.
struct LanePlace {
    const LinkwitzRiley4 *filter;  // null: a band the mode does not run
    int stage;
    int lane;
};

constexpr int kBandPassStage = 2;

template <class Plan>
void lane_plan(const CrossoverState &xover, Plan each)
{
    const bool band2 = xover.bandMode > 0, band3 = xover.bandMode == 2;
    const LanePlace plan[] = {
        {&xover.lowLp, 0, 0},
        {&xover.highHp, 0, 1},
        {band2 ? &xover.band2Hp : nullptr, 0, 2},
        {band3 ? &xover.band3Hp : nullptr, 0, 3},
        {band2 ? &xover.band2Lp : nullptr, kBandPassStage, 2},
        {band3 ? &xover.band3Lp : nullptr, kBandPassStage, 3},
    };
    for (const LanePlace &p : plan)
        if (p.filter != nullptr)
            each(p);
}

}  // namespace

void CrossoverLanes::load(const CrossoverState &xover, int channel)
{
    *this = CrossoverLanes{};
    BiquadLanes *const banks[] = {&first, &second, &third, &fourth};
    lane_plan(xover, [&](const LanePlace &p) {
        const float *c = p.filter->coeffs + channel * LinkwitzRiley4::kCoeffStride;
        const float *z = p.filter->state + channel * LinkwitzRiley4::kStateStride;
        for (int k = 0; k < 2; k++) {
            banks[p.stage + k]->set(p.lane, c + k * kBiquadCoeffs);
            z1[p.stage + k][p.lane] = z[k * kBiquadState];
            z2[p.stage + k][p.lane] = z[k * kBiquadState + 1];
        }
    });
}

void CrossoverLanes::save(CrossoverState &xover, int channel) const
{
    lane_plan(xover, [&](const LanePlace &p) {
        float *z = p.filter->state + channel * LinkwitzRiley4::kStateStride;
        for (int k = 0; k < 2; k++) {
            z[k * kBiquadState] = z1[p.stage + k][p.lane];
            z[k * kBiquadState + 1] = z2[p.stage + k][p.lane];
        }
    });
}

void crossover_default_param(CrossoverParam *param)
{
    param->bandMode = kDefaultBandMode;
    std::memcpy(param->freq, kDefaultCorners, sizeof param->freq);
}

CrossoverParam *new_default_param()
{
    auto *param = static_cast<CrossoverParam *>(std::malloc(sizeof(CrossoverParam)));
    if (param == nullptr) {
        log_line(site::kCrossoverParamAlloc, "CrossoverParam malloc error \n\n");
        return nullptr;
    }
    crossover_default_param(param);
    return param;
}

}  // namespace eqdrc

CrossoverState *CrossoverState::create(int sampleRate, int channels, const CrossoverParam *param)
{
    CrossoverParam defaults;
    if (param == nullptr) {
        eqdrc::crossover_default_param(&defaults);
        param = &defaults;
    }
    auto *st = eqdrc::zeroed<CrossoverState>(1);
    std::memcpy(st->freq, param->freq, sizeof st->freq);
    st->sampleRate = sampleRate;
    st->channels = channels;
    st->bandMode = param->bandMode;

    // The extra bands are allocated on "nonzero" and "not 0 or 1" but designed and run
    // on "positive" and "exactly 2": a mode of 3 or more carries unused band-3 arrays,
    // a negative mode unused band-2 and band-3 arrays.  Deliberate; hosts rely only on
    // modes 0..2.
    st->lowLp.allocate(channels);
    st->highHp.allocate(channels);
    if (st->bandMode != 0) {
        st->band2Hp.allocate(channels);
        st->band2Lp.allocate(channels);
    }
    if (st->bandMode != 0 && st->bandMode != 1) {
        st->band3Hp.allocate(channels);
        st->band3Lp.allocate(channels);
    }
    st->design();
    return st;
}

void CrossoverState::design()
{
    using eqdrc::kButterworthHP;
    using eqdrc::kButterworthLP;
    const float fs = static_cast<float>(sampleRate);
    lowLp.design(channels, kButterworthLP, fs, freq[eqdrc::kCornerLowLp]);
    highHp.design(channels, kButterworthHP, fs, freq[eqdrc::kCornerHighHp]);
    if (bandMode > 0) {
        band2Hp.design(channels, kButterworthHP, fs, freq[eqdrc::kCornerBand2Hp]);
        band2Lp.design(channels, kButterworthLP, fs, freq[eqdrc::kCornerBand2Lp]);
        if (bandMode == 2) {
            band3Hp.design(channels, kButterworthHP, fs, freq[eqdrc::kCornerBand3Hp]);
            band3Lp.design(channels, kButterworthLP, fs, freq[eqdrc::kCornerBand3Lp]);
        }
    }
    outerTapsEqual = lowLp.outer_taps_equal(channels) && highHp.outer_taps_equal(channels) &&
                     (bandMode <= 0 || (band2Hp.outer_taps_equal(channels) && band2Lp.outer_taps_equal(channels))) &&
                     (bandMode != 2 || (band3Hp.outer_taps_equal(channels) && band3Lp.outer_taps_equal(channels)));
}

void CrossoverState::process(const float *in, float *out)
{
    int k = 0;
    for (int c = 0; c < channels; c++) {
        const float x = in[c];
        // The high band comes second, before the band-pass bands.
        out[k++] = lowLp.step(c, x);
        out[k++] = highHp.step(c, x);
        if (bandMode > 0)
            out[k++] = band2Lp.step(c, band2Hp.step(c, x));
        if (bandMode == 2)
            out[k++] = band3Lp.step(c, band3Hp.step(c, x));
    }
}

void CrossoverState::set_param(const CrossoverParam *param)
{
    std::memcpy(freq, param->freq, sizeof freq);
    design();
}

void CrossoverState::destroy()
{
    // Every array that was allocated, the unused ones of an out-of-range mode included.
    lowLp.release();
    highHp.release();
    band2Hp.release();
    band2Lp.release();
    band3Hp.release();
    band3Lp.release();
    std::free(this);
}
