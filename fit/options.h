// The fit's options as a command line or a request types them ("80-16000", "1/6", "both"),
// read into FitOptions with the command's messages, so that `eqdrc fit` and the Python
// package's fit read the same text into the same numbers.
#ifndef EQDRC_FIT_OPTIONS_H
#define EQDRC_FIT_OPTIONS_H

#include <nlohmann/json.hpp>
#include <string>

#include "fit_tuning.h"
#include "target.h"

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

// A fit asked for in JSON (the C interface's and the studio's requests): the options by
// the command's names ("range", "smooth", "q", "channel", "bands", "max_boost",
// "max_cut"), each defaulting to the command's, and the target: "target" (flat, tilt:X,
// or a target file's name) with "target_text", the file's text, when it is a file.
struct FitRequest {
    OptionText options;
    std::string target = "flat";
    bool targetFromText = false;
    std::string targetText;

    // Throws nlohmann::json's errors for a value of the wrong type.
    static FitRequest from_json(const nlohmann::json &request);
    // The target it names, with the command's messages.
    Target read_target() const;
};

}  // namespace eqdrc_fit

#endif
