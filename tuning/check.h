// Finds what in a tuning would make the library reject it, end the process, or behave
// in a way a tuner would not expect, and names each field with its value.
#ifndef EQDRC_TOOL_CHECK_H
#define EQDRC_TOOL_CHECK_H

#include <string>
#include <vector>

#include "layout.h"

namespace eqdrc_tool {

enum class Severity { Warning, Error };

struct Issue {
    Severity severity;
    std::string path;  // the field, e.g. "eq10.channels[0].bands[3].fc"
    float value;
    std::string message;
};

// `frameLen` is the frame the host will process with (the auto gain's step must cover it).
std::vector<Issue> check_tuning(const Record &rec, int frameLen, const Layout &layout = Layout::embedded());
int count_errors(const std::vector<Issue> &issues);
std::string format_issue(const Issue &issue);  // "error: PATH = VALUE: MESSAGE"

}  // namespace eqdrc_tool

#endif
