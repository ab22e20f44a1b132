// The plugins' own messages: one line on standard error, prefixed "eqdrc: ".
#ifndef EQDRC_PLUGIN_LOG_H
#define EQDRC_PLUGIN_LOG_H

#include <string>

namespace eqdrc_plugin {

void log_line(const char *format, ...) __attribute__((format(printf, 1, 2)));

// The library loaded, which need not be the one the plugin was built with, and the
// processing code it runs: "libtqaudio_effect_eqdrc 2.0.0, avx2 processing code".
std::string library_identity();

}  // namespace eqdrc_plugin

#endif
