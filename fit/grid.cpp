// Smoothing integrates the curve in log2 frequency (trapezoids between its points) and
// divides by the window's width, so sparse and dense exports smooth alike.
#include "grid.h"

#include <algorithm>
#include <cmath>

namespace eqdrc_fit {

std::vector<double> log_grid(double lowHz, double highHz, double pointsPerOctave)
{
    const double octaves = std::log2(highHz / lowHz);
    const int steps = std::max(1, static_cast<int>(std::ceil(octaves * pointsPerOctave)));
    std::vector<double> grid(static_cast<size_t>(steps) + 1);
    for (int i = 0; i <= steps; ++i)
        grid[static_cast<size_t>(i)] = lowHz * std::exp2(octaves * i / steps);
    grid.back() = highHz;
    return grid;
}

namespace {

// The running integral of the curve over log2 frequency, at its points.
class LogIntegral {
public:
    explicit LogIntegral(const Curve &c) : curve_(c), x_(c.hz.size()), sum_(c.hz.size())
    {
        for (size_t i = 0; i < x_.size(); ++i) {
            x_[i] = std::log2(c.hz[i]);
            sum_[i] = i == 0 ? 0.0 : sum_[i - 1] + 0.5 * (c.db[i] + c.db[i - 1]) * (x_[i] - x_[i - 1]);
        }
    }

    // The integral from the first point to x; the ends are held flat beyond the curve.
    double at(double x) const
    {
        if (x <= x_.front())
            return (x - x_.front()) * curve_.db.front();
        if (x >= x_.back())
            return sum_.back() + (x - x_.back()) * curve_.db.back();
        const size_t i = static_cast<size_t>(std::upper_bound(x_.begin(), x_.end(), x) - x_.begin());
        const double dx = x - x_[i - 1], t = dx / (x_[i] - x_[i - 1]);
        const double level = curve_.db[i - 1] + t * (curve_.db[i] - curve_.db[i - 1]);
        return sum_[i - 1] + 0.5 * (curve_.db[i - 1] + level) * dx;
    }

private:
    const Curve &curve_;
    std::vector<double> x_, sum_;
};

}  // namespace

std::vector<double> smooth_onto(const Curve &curve, const std::vector<double> &gridHz, double octaves)
{
    std::vector<double> out(gridHz.size());
    if (octaves <= 0.0) {
        for (size_t i = 0; i < gridHz.size(); ++i)
            out[i] = level_at(curve, gridHz[i]);
        return out;
    }
    const LogIntegral integral(curve);
    for (size_t i = 0; i < gridHz.size(); ++i) {
        const double x = std::log2(gridHz[i]);
        out[i] = (integral.at(x + 0.5 * octaves) - integral.at(x - 0.5 * octaves)) / octaves;
    }
    return out;
}

}  // namespace eqdrc_fit
