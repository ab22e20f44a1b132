// The response the fit aims for: flat, a tilt around 1 kHz, or a curve from a file. Only
// its shape matters: the fit matches its level to the measurement's over the range.
#ifndef EQDRC_FIT_TARGET_H
#define EQDRC_FIT_TARGET_H

#include <string>
#include <vector>

#include "curve.h"

namespace eqdrc_fit {

constexpr double kTiltPivotHz = 1000.0;

struct Target {
    double tiltDbPerOctave = 0.0;  // used when `curve` is empty
    Curve curve;
    std::string description;  // "flat", "tilt -0.8 dB/octave", or the file's name
};

// "flat" or "tilt:DB_PER_OCTAVE"; anything else throws eqdrc_tool::Error (the tool reads
// any other value as a file and passes its curve to target_from_curve).
Target target_from_option(const std::string &option);
Target target_from_curve(Curve curve, const std::string &name);
bool is_builtin_target(const std::string &option);

std::vector<double> target_db(const Target &target, const std::vector<double> &gridHz);

}  // namespace eqdrc_fit

#endif
