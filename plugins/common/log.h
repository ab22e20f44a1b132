// The plugins' own messages: one line on standard error, prefixed "eqdrc: ".
#ifndef EQDRC_PLUGIN_LOG_H
#define EQDRC_PLUGIN_LOG_H

namespace eqdrc_plugin {

void log_line(const char *format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace eqdrc_plugin

#endif
