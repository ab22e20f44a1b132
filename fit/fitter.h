// Fits EQ bands to a wanted correction: greedy placement at the largest deviations, then
// every band refined together (Levenberg-Marquardt), each band's response from the
// library's designer. Pure computation: the same problem gives the same bands, bit for bit.
#ifndef EQDRC_FIT_FITTER_H
#define EQDRC_FIT_FITTER_H

#include <vector>

#include "band.h"

namespace eqdrc_fit {

struct FitLimits {
    int bands = 10;
    double maxBoostDb = 6.0;  // for one band and for the cascade
    double maxCutDb = 12.0;
    double qMin = 0.3, qMax = 6.0;  // of the peaking bands
};

struct FitProblem {
    float sampleRate = 48000.0f;
    std::vector<double> hz;         // the range's grid, log spaced
    std::vector<double> wantedDb;   // the correction that would meet the target exactly
    std::vector<double> noBoostHz;  // below the range: the EQ may cut there, never boost
    FitLimits limits;
};

// Shelf slopes the fitter tries: steep enough to be a shelf, never the overshoot above 1.
constexpr double kShelfSlopeMin = 0.5;
constexpr double kShelfSlopeMax = 1.0;

// At most `limits.bands` bands, sorted by frequency, with values rounded to what a tuner
// would write (0.1 Hz, 0.001 of Q, 0.01 dB); a band that would not lower the error is
// left out.
std::vector<Band> fit_bands(const FitProblem &problem);

}  // namespace eqdrc_fit

#endif
