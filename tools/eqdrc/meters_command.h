// `eqdrc meters PATH`: the live meters a plugin publishes (its `meters` setting), shown
// in the terminal and refreshed in place, or one reading printed for scripts.
#ifndef EQDRC_TOOL_METERS_COMMAND_H
#define EQDRC_TOOL_METERS_COMMAND_H

#include <cstdio>
#include <string>

namespace eqdrc_tool {

struct MetersCommand {
    std::string path;
    bool once = false;      // print one reading and exit
    bool json = false;      // with once: the reading as one JSON object
    double interval = 0.1;  // seconds between refreshes of the display
};

// Shows the meters on `out` until Ctrl-C (or SIGTERM), waiting while there is no file.
// With `once`, prints the reading as "name: value" lines or JSON. Problems go to
// standard error. Returns an exit status: 0, or 2 for a bad interval or when `once`
// finds no reading.
int run_meters(const MetersCommand &c, FILE *out);

}  // namespace eqdrc_tool

#endif
