#include "options.h"

#include <cerrno>

namespace eqdrc_alsa {

using eqdrc_plugin::Record;

void report_error(const std::string &message) { SNDERR("eqdrc: %s", message.c_str()); }

int parse_options(snd_config_t *conf, snd_config_t *&slave, Options &o)
{
    snd_config_iterator_t i, next;
    snd_config_for_each(i, next, conf) {
        snd_config_t *n = snd_config_iterator_entry(i);
        const char *id;
        if (snd_config_get_id(n, &id) < 0)
            continue;
        std::string key = id;
        if (key == "comment" || key == "type" || key == "hint")
            continue;
        if (key == "slave") {
            slave = n;
        } else if (key == "tuning" || key == "meters") {
            const char *s;
            if (snd_config_get_string(n, &s) < 0) {
                SNDERR("eqdrc: %s must be a file name", id);
                return -EINVAL;
            }
            (key == "tuning" ? o.tuning : o.meters) = s;
        } else if (key == "frame") {
            long v;
            if (snd_config_get_integer(n, &v) < 0 || v < 1 || v > 65536) {
                SNDERR("eqdrc: frame must be a whole number of samples from 1 to 65536");
                return -EINVAL;
            }
            o.frameLen = static_cast<int>(v);
        } else if (key == "reload" || key == "adapt" || key == "debug") {
            int v = snd_config_get_bool(n);
            if (v < 0) {
                SNDERR("eqdrc: %s must be on or off", id);
                return -EINVAL;
            }
            (key == "reload" ? o.reload : key == "adapt" ? o.adapt : o.debug) = v != 0;
        } else {
            SNDERR("eqdrc: unknown option %s (known: slave, tuning, meters, frame, reload, adapt, debug)", id);
            return -EINVAL;
        }
    }
    if (!slave) {
        SNDERR("eqdrc: no slave PCM given (slave.pcm \"hw:0,0\")");
        return -EINVAL;
    }
    if (o.tuning.empty()) {
        SNDERR("eqdrc: no tuning given (tuning \"/etc/eqdrc/speaker.bin\")");
        return -EINVAL;
    }
    return 0;
}

int check_tuning_at_open(const Options &o)
{
    Record raw, fitted;
    std::string error;
    if (!eqdrc_plugin::read_tuning_file(o.tuning, raw, error)) {
        report_error(error);
        return -ENOENT;
    }
    eqdrc_plugin::TuningFormat f = eqdrc_plugin::tuning_format(raw);
    if (!eqdrc_plugin::fit_tuning(raw, o.tuning, f.sampleRate, f.channels, false, o.frameLen, fitted, error)) {
        report_error(error);
        return -EINVAL;
    }
    return 0;
}

}  // namespace eqdrc_alsa
