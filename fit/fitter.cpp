// Bands are searched in unbounded parameters mapped through the logistic function onto
// their limits (log frequency over the range, gain between -max-cut and +max-boost, log Q
// or the shelf slope), so the optimiser never leaves what the record and the designer
// accept. Limits that involve the whole cascade (no boost below the range, the cascade
// under --max-boost) are one-sided penalty residuals.
#include "fitter.h"

#include <algorithm>
#include <cmath>
#include <Eigen/Core>
#include <unsupported/Eigen/LevenbergMarquardt>

#include "grid.h"
#include "tqaudio_eqdrc.h"

namespace eqdrc_fit {
namespace {

constexpr int kParamsPerBand = 3;           // frequency, gain, Q
constexpr double kPenaltyWeight = 3.0;      // a dB over a limit costs as 3 dB of error
constexpr double kDiffStep = 1e-4;          // far above the float rounding of the band's values
constexpr double kEdgeProbability = 1e-3;   // starting values stay off the limits
constexpr double kMinImprovement = 1e-3;    // a band must lower the squared error by 0.1 %
constexpr int kCandidateEvaluations = 60;   // one band on its own
constexpr int kJointEvaluations = 300;      // every band together
constexpr double kShelfStartSlope = 0.7;
constexpr double kShelfOctave = 1.0;        // a shelf starts one octave inside the range's end

double logistic(double u) { return 1.0 / (1.0 + std::exp(-u)); }
double logit(double p)
{
    p = std::clamp(p, kEdgeProbability, 1.0 - kEdgeProbability);
    return std::log(p / (1.0 - p));
}

bool is_shelf(int type) { return type == LowShelf || type == HighShelf; }

// Between a band and its three unbounded parameters.
class Bounds {
public:
    explicit Bounds(const FitProblem &p)
        : lnFcLow_(std::log(p.hz.front())), lnFcHigh_(std::log(p.hz.back())), gainLow_(-p.limits.maxCutDb),
          gainHigh_(p.limits.maxBoostDb), lnQLow_(std::log(p.limits.qMin)), lnQHigh_(std::log(p.limits.qMax))
    {
    }

    Band band(int type, const double *u) const
    {
        const double q = is_shelf(type) ? kShelfSlopeMin + (kShelfSlopeMax - kShelfSlopeMin) * logistic(u[2])
                                        : std::exp(lnQLow_ + (lnQHigh_ - lnQLow_) * logistic(u[2]));
        return {type, static_cast<float>(std::exp(lnFcLow_ + (lnFcHigh_ - lnFcLow_) * logistic(u[0]))),
                static_cast<float>(q), static_cast<float>(gainLow_ + (gainHigh_ - gainLow_) * logistic(u[1]))};
    }

    void params(const Band &b, double *u) const
    {
        u[0] = logit((std::log(b.fc) - lnFcLow_) / (lnFcHigh_ - lnFcLow_));
        u[1] = logit((b.gainDb - gainLow_) / (gainHigh_ - gainLow_));
        u[2] = is_shelf(b.type) ? logit((b.q - kShelfSlopeMin) / (kShelfSlopeMax - kShelfSlopeMin))
                                : logit((std::log(b.q) - lnQLow_) / (lnQHigh_ - lnQLow_));
    }

private:
    double lnFcLow_, lnFcHigh_, gainLow_, gainHigh_, lnQLow_, lnQHigh_;
};

// The residuals of some bands over a fixed cascade of others: the error on the range's
// grid, then the boost below the range, then the cascade's excess over --max-boost.
// Frequencies are the range's grid followed by the points below it.
class Residuals : public Eigen::DenseFunctor<double> {
public:
    Residuals(const FitProblem &p, const Bounds &bounds, std::vector<int> types, const std::vector<double> &allHz,
              const std::vector<double> &fixedDb)
        : DenseFunctor(static_cast<int>(types.size()) * kParamsPerBand,
                       static_cast<int>(2 * p.hz.size() + p.noBoostHz.size())),
          p_(p), bounds_(bounds), types_(std::move(types)), allHz_(allHz), fixedDb_(fixedDb)
    {
    }

    int operator()(const InputType &x, ValueType &f) const
    {
        std::vector<double> total = fixedDb_;
        for (size_t b = 0; b < types_.size(); ++b)
            add_response(band(x, b), p_.sampleRate, allHz_, total);
        fill(total, f);
        return 0;
    }

    // Forward differences, one band redesigned per column.
    int df(const InputType &x, JacobianType &jac) const
    {
        std::vector<std::vector<double>> own(types_.size());
        std::vector<double> total = fixedDb_;
        for (size_t b = 0; b < types_.size(); ++b) {
            own[b] = response_db(band(x, b), p_.sampleRate, allHz_);
            for (size_t i = 0; i < total.size(); ++i)
                total[i] += own[b][i];
        }
        ValueType f0(values()), f1(values());
        fill(total, f0);
        for (size_t b = 0; b < types_.size(); ++b) {
            for (int k = 0; k < kParamsPerBand; ++k) {
                InputType moved = x;
                const Eigen::Index col = static_cast<Eigen::Index>(b) * kParamsPerBand + k;
                moved[col] += kDiffStep;
                const std::vector<double> changed = response_db(band(moved, b), p_.sampleRate, allHz_);
                std::vector<double> t = total;
                for (size_t i = 0; i < t.size(); ++i)
                    t[i] += changed[i] - own[b][i];
                fill(t, f1);
                jac.col(col) = (f1 - f0) / kDiffStep;
            }
        }
        return 0;
    }

    Band band(const InputType &x, size_t b) const
    {
        return bounds_.band(types_[b], x.data() + static_cast<Eigen::Index>(b) * kParamsPerBand);
    }

private:
    void fill(const std::vector<double> &total, ValueType &f) const
    {
        const size_t n = p_.hz.size(), below = p_.noBoostHz.size();
        for (size_t i = 0; i < n; ++i) {
            f[static_cast<Eigen::Index>(i)] = total[i] - p_.wantedDb[i];
            f[static_cast<Eigen::Index>(n + below + i)] = kPenaltyWeight * std::max(0.0, total[i] - p_.limits.maxBoostDb);
        }
        for (size_t j = 0; j < below; ++j)
            f[static_cast<Eigen::Index>(n + j)] = kPenaltyWeight * std::max(0.0, total[n + j]);
    }

    const FitProblem &p_;
    const Bounds &bounds_;
    std::vector<int> types_;
    const std::vector<double> &allHz_;
    const std::vector<double> &fixedDb_;
};

struct Refined {
    std::vector<Band> bands;
    double error;  // squared norm of the residuals
};

Refined refine(const FitProblem &p, const Bounds &bounds, const std::vector<Band> &start,
               const std::vector<double> &allHz, const std::vector<double> &fixedDb, int evaluations)
{
    std::vector<int> types;
    for (const Band &b : start)
        types.push_back(b.type);
    Residuals fn(p, bounds, types, allHz, fixedDb);
    Eigen::VectorXd x(fn.inputs());
    for (size_t b = 0; b < start.size(); ++b)
        bounds.params(start[b], x.data() + b * kParamsPerBand);
    Eigen::LevenbergMarquardt<Residuals> lm(fn);
    lm.setMaxfev(evaluations);
    lm.minimize(x);
    Refined out;
    for (size_t b = 0; b < start.size(); ++b)
        out.bands.push_back(fn.band(x, b));
    Eigen::VectorXd f(fn.values());
    fn(x, f);
    out.error = f.squaredNorm();
    return out;
}

// Peaking-band start at the largest remaining deviation: its height, and the Q of its
// width at half height.
Band peak_start(const FitProblem &p, const std::vector<double> &remaining)
{
    const double qMid = std::sqrt(p.limits.qMin * p.limits.qMax);
    size_t at = 0;
    for (size_t i = 1; i < remaining.size(); ++i)
        if (std::fabs(remaining[i]) > std::fabs(remaining[at]))
            at = i;
    const double half = 0.5 * remaining[at];
    size_t lo = at, hi = at;
    while (lo > 0 && remaining[lo - 1] * half > half * half)
        --lo;
    while (hi + 1 < remaining.size() && remaining[hi + 1] * half > half * half)
        ++hi;
    const double octaves = std::max(std::log2(p.hz[hi] / p.hz[lo]), 2.0 / kGridPointsPerOctave);
    const double widthRatio = std::exp2(octaves);
    double q = half == 0.0 ? qMid : std::sqrt(widthRatio) / (widthRatio - 1.0);
    q = std::clamp(q, p.limits.qMin, p.limits.qMax);
    const double gain = std::clamp(remaining[at], -p.limits.maxCutDb, p.limits.maxBoostDb);
    return {Parametric, static_cast<float>(p.hz[at]), static_cast<float>(q), static_cast<float>(gain)};
}

// A shelf at one end of the range, at the mean remaining deviation of that end's octave.
Band shelf_start(const FitProblem &p, const std::vector<double> &remaining, bool high)
{
    const double edge = high ? p.hz.back() : p.hz.front();
    const double fc = high ? edge * std::exp2(-kShelfOctave) : edge * std::exp2(kShelfOctave);
    double sum = 0.0;
    int count = 0;
    for (size_t i = 0; i < p.hz.size(); ++i)
        if (high ? p.hz[i] >= fc : p.hz[i] <= fc) {
            sum += remaining[i];
            ++count;
        }
    const double gain = std::clamp(count ? sum / count : 0.0, -p.limits.maxCutDb, p.limits.maxBoostDb);
    return {high ? HighShelf : LowShelf, static_cast<float>(fc), static_cast<float>(kShelfStartSlope),
            static_cast<float>(gain)};
}

// The squared error of a cascade alone.
double cascade_error(const FitProblem &p, const Bounds &bounds, const std::vector<double> &allHz,
                     const std::vector<double> &cascadeDb)
{
    Residuals fn(p, bounds, {}, allHz, cascadeDb);
    Eigen::VectorXd x(0), f(fn.values());
    fn(x, f);
    return f.squaredNorm();
}

float round_to(double v, double step) { return static_cast<float>(std::round(v / step) * step); }

}  // namespace

std::vector<Band> fit_bands(const FitProblem &p)
{
    const Bounds bounds(p);
    std::vector<double> allHz = p.hz;
    allHz.insert(allHz.end(), p.noBoostHz.begin(), p.noBoostHz.end());
    const std::vector<double> none(allHz.size(), 0.0);

    // Greedy: each new band is the best of a peak at the largest deviation and, while
    // none is placed yet, a shelf at either end, fitted alone over the bands before it.
    std::vector<Band> placed;
    std::vector<double> placedDb = none;
    double error = cascade_error(p, bounds, allHz, placedDb);
    bool shelfUsed[2] = {false, false};
    while (static_cast<int>(placed.size()) < p.limits.bands) {
        std::vector<double> remaining(p.hz.size());
        for (size_t i = 0; i < p.hz.size(); ++i)
            remaining[i] = p.wantedDb[i] - placedDb[i];
        std::vector<Band> candidates = {peak_start(p, remaining)};
        for (int high = 0; high < 2; ++high)
            if (!shelfUsed[high])
                candidates.push_back(shelf_start(p, remaining, high != 0));
        Refined best{{}, error * (1.0 - kMinImprovement)};
        for (const Band &c : candidates) {
            Refined r = refine(p, bounds, {c}, allHz, placedDb, kCandidateEvaluations);
            if (r.error < best.error)
                best = r;
        }
        if (best.bands.empty())
            break;
        const Band &b = best.bands.front();
        if (is_shelf(b.type))
            shelfUsed[b.type == HighShelf] = true;
        placed.push_back(b);
        add_response(b, p.sampleRate, allHz, placedDb);
        error = best.error;
    }
    if (placed.empty())
        return placed;

    std::vector<Band> bands = refine(p, bounds, placed, allHz, none, kJointEvaluations).bands;
    for (Band &b : bands) {
        b.fc = round_to(b.fc, 0.1);
        b.q = round_to(b.q, 0.001);
        b.gainDb = round_to(std::clamp<double>(b.gainDb, -p.limits.maxCutDb, p.limits.maxBoostDb), 0.01);
    }
    std::stable_sort(bands.begin(), bands.end(), [](const Band &a, const Band &b) { return a.fc < b.fc; });
    return bands;
}

}  // namespace eqdrc_fit
