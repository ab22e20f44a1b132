// `eqdrc fit`: the files around the fitting library: the measurement (text or an impulse
// response), a target file, the base tuning, and the tuning and report written.
#ifndef EQDRC_TOOL_FIT_COMMAND_H
#define EQDRC_TOOL_FIT_COMMAND_H

#include <cstdio>
#include <string>

#include "options.h"

namespace eqdrc_tool {

// The options as typed (the fit's own from the fitting library, which reads them); they
// are read and checked by run_fit.
struct FitCommand : eqdrc_fit::OptionText {
    std::string measurement;
    std::string target = "flat";  // flat, tilt:DB_PER_OCTAVE or a file
    std::string base;             // empty: the neutral tuning
    std::string output, report;
    bool force = false;
};

// Writes the tuning (and the report) only when everything succeeded; prints the summary
// line to `summary`. Throws Error with one line naming the file or option otherwise.
void run_fit(const FitCommand &cmd, FILE *summary);

}  // namespace eqdrc_tool

#endif
