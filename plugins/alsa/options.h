// The eqdrc device's options, read from its ALSA configuration, and the tuning they
// name checked when the device is opened. Every refusal is one ALSA error line.
#ifndef EQDRC_ALSA_OPTIONS_H
#define EQDRC_ALSA_OPTIONS_H

#include <alsa/asoundlib.h>

#include <string>

#include "tuning_source.h"

namespace eqdrc_alsa {

struct Options {
    std::string tuning;
    std::string meters;  // the live meter file to publish; empty: none
    int frameLen = eqdrc_plugin::kDefaultFrameLen;
    bool reload = false;
    bool adapt = false;
    bool debug = false;
};

// Reads tuning, meters, frame, reload, adapt and debug; `slave` is left to alsa-lib.
// Returns 0 or a negative error code.
int parse_options(snd_config_t *conf, snd_config_t *&slave, Options &o);

// Refuses a tuning that cannot be read or that fails the check for its own stream, so
// that a bad configuration is reported before any stream is set up.
int check_tuning_at_open(const Options &o);

// One line through alsa-lib's error handler (standard error unless the host set one).
void report_error(const std::string &message);

}  // namespace eqdrc_alsa

#endif
