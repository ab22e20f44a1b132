// A magnitude response as the fit reads it: increasing frequencies with their levels,
// from a measurement tool's text export or a target file, read from text in memory.
#ifndef EQDRC_FIT_CURVE_H
#define EQDRC_FIT_CURVE_H

#include <string>
#include <vector>

namespace eqdrc_fit {

struct Curve {
    std::vector<double> hz;
    std::vector<double> db;
};

// What a file must hold to be a response at all.
constexpr size_t kMinCurvePoints = 8;
constexpr double kMinPlausibleDb = -200.0;  // dB SPL or dBFS; outside this a column is not a level
constexpr double kMaxPlausibleDb = 250.0;

// Reads lines of "frequency level [phase ...]" separated by blanks, commas, semicolons or
// tabs. Comment lines ('*', '#', '//', ';') and a header line before the first number are
// skipped; so is an empty line. Anything else that is not numbers, a frequency that is not
// positive and increasing, a non-finite value or a level out of the plausible range
// throws eqdrc_tool::Error "NAME:LINE: REASON" (NAME alone for a file-wide reason).
Curve parse_curve(const std::string &text, const std::string &name);

// The same checks for a curve made another way (an impulse response's spectrum).
void check_curve(const Curve &curve, const std::string &name);

// Level at `hz`, linear in log frequency between points, held flat beyond the ends.
double level_at(const Curve &curve, double hz);

}  // namespace eqdrc_fit

#endif
