// From a measurement to a tuning: the range smoothed onto the grid, the target levelled to
// the measurement, the bands fitted, written into the base tuning's eq10 section and
// checked, with the report. No file is read or written here.
#ifndef EQDRC_FIT_FIT_TUNING_H
#define EQDRC_FIT_FIT_TUNING_H

#include <string>

#include "curve.h"
#include "fitter.h"
#include "report.h"
#include "target.h"
#include "tuning.h"

namespace eqdrc_fit {

constexpr int kBothChannels = -1;

struct FitOptions {
    double lowHz = 80.0, highHz = 16000.0;
    double smoothOctaves = 1.0 / 6.0;
    FitLimits limits;
    int channel = kBothChannels;  // 0, 1 or both
};

struct FitResult {
    eqdrc_tool::Record tuning;  // passes the tuning check
    ReportFacts facts;
    eqdrc_tool::OrderedJson report;
    std::string summary;  // one line, without a trailing newline
};

// Throws eqdrc_tool::Error naming the option or the measurement for options outside what
// the record and the designer accept, a measurement that does not cover the range, or a
// channel the base tuning does not have.
FitResult fit_tuning(const Curve &measurement, const std::string &name, const Target &target,
                     const FitOptions &options, const eqdrc_tool::Record &base);

// The base when none is given: the shipped neutral tuning (every stage off).
eqdrc_tool::Record neutral_tuning();

}  // namespace eqdrc_fit

#endif
