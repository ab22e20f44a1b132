// The log-frequency grid the fit works on, and fractional-octave smoothing onto it.
#ifndef EQDRC_FIT_GRID_H
#define EQDRC_FIT_GRID_H

#include <vector>

#include "curve.h"

namespace eqdrc_fit {

// Dense enough that a band of the highest Q the fit allows spans several points.
constexpr double kGridPointsPerOctave = 24.0;

// From `lowHz` to `highHz` (both included), evenly spaced in log frequency.
std::vector<double> log_grid(double lowHz, double highHz, double pointsPerOctave = kGridPointsPerOctave);

// The curve's mean level over `octaves` (e.g. 1/6) centred on each grid frequency, the
// curve taken as linear in log frequency between its points: every point in the window
// counts, however densely an FFT spaced them. `octaves` 0 reads the curve unsmoothed.
std::vector<double> smooth_onto(const Curve &curve, const std::vector<double> &gridHz, double octaves);

}  // namespace eqdrc_fit

#endif
