// The fit's options as a command line or a request types them ("80-16000", "1/6", "both"),
// read into FitOptions with the command's messages, so that `eqdrc fit` and the Python
// package's fit read the same text into the same numbers.
#ifndef EQDRC_FIT_OPTIONS_H
#define EQDRC_FIT_OPTIONS_H

#include <string>

#include "fit_tuning.h"

namespace eqdrc_fit {

// The defaults are the command's.
struct OptionText {
    std::string range = "80-16000";  // LOW-HIGH Hz
    std::string smooth = "1/6";      // 1/N octave, a width in octaves, or 0 for none
    std::string q = "0.3-6";         // LOW-HIGH of the peaking bands
    std::string channel = "both";    // 0, 1 or both
    int bands = 10;
    double maxBoostDb = 6.0, maxCutDb = 12.0;
};

// Throws eqdrc_tool::Error naming the option for a text not of its form; whether the
// values are within limits is fit_tuning's check.
FitOptions read_options(const OptionText &text);

}  // namespace eqdrc_fit

#endif
