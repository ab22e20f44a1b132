#include "slave.h"

#include <cerrno>
#include <string>

#include "options.h"

namespace eqdrc_alsa {

int open_slave(snd_pcm_t *&pcm, snd_config_t *root, snd_config_t *slave, snd_pcm_stream_t stream, int mode)
{
    snd_config_t *node = nullptr;
    if (snd_config_get_type(slave) != SND_CONFIG_TYPE_COMPOUND || snd_config_search(slave, "pcm", &node) < 0) {
        report_error("slave must name its PCM (slave.pcm \"hw:0,0\")");
        return -EINVAL;
    }
    const char *name = nullptr;
    if (snd_config_get_string(node, &name) >= 0) {
        int err = snd_pcm_open_lconf(&pcm, name, stream, mode, root);
        if (err < 0)
            report_error(std::string("cannot open the slave ") + name + ": " + snd_strerror(err));
        return err;
    }
    // A definition in place: opened by a name of its own in a copy of the configuration,
    // so that the names it uses in turn (null, hw, ...) still resolve.
    const char *kName = "eqdrc_slave";
    snd_config_t *copy = nullptr, *pcms = nullptr, *def = nullptr;
    int err = snd_config_copy(&copy, root);
    if (err >= 0 && (err = snd_config_search(copy, "pcm", &pcms)) < 0) {
        if ((err = snd_config_make_compound(&pcms, "pcm", 0)) >= 0 && (err = snd_config_add(copy, pcms)) < 0)
            snd_config_delete(pcms);
    }
    if (err >= 0 && (err = snd_config_copy(&def, node)) >= 0) {
        snd_config_t *old = nullptr;
        if (snd_config_search(pcms, kName, &old) >= 0)
            snd_config_delete(old);
        snd_config_set_id(def, kName);
        if ((err = snd_config_add(pcms, def)) < 0)
            snd_config_delete(def);
    }
    if (err >= 0)
        err = snd_pcm_open_lconf(&pcm, kName, stream, mode, copy);
    if (copy)
        snd_config_delete(copy);
    if (err < 0)
        report_error(std::string("cannot open the slave: ") + snd_strerror(err));
    return err;
}

int set_up_slave(snd_pcm_t *pcm, unsigned rate, unsigned channels, snd_pcm_uframes_t period,
                 snd_pcm_uframes_t buffer)
{
    snd_pcm_hw_params_t *hw;
    snd_pcm_hw_params_alloca(&hw);
    int err;
    const char *step = "its configuration";
    if ((err = snd_pcm_hw_params_any(pcm, hw)) < 0 ||
        (step = "interleaved access", err = snd_pcm_hw_params_set_access(pcm, hw, SND_PCM_ACCESS_RW_INTERLEAVED)) < 0 ||
        (step = "S16_LE", err = snd_pcm_hw_params_set_format(pcm, hw, SND_PCM_FORMAT_S16_LE)) < 0 ||
        (step = "the channel count", err = snd_pcm_hw_params_set_channels(pcm, hw, channels)) < 0 ||
        (step = "the rate", err = snd_pcm_hw_params_set_rate(pcm, hw, rate, 0)) < 0 ||
        (step = "the period", err = snd_pcm_hw_params_set_period_size_near(pcm, hw, &period, nullptr)) < 0 ||
        (step = "the buffer", err = snd_pcm_hw_params_set_buffer_size_near(pcm, hw, &buffer)) < 0 ||
        (step = "the hardware parameters", err = snd_pcm_hw_params(pcm, hw)) < 0) {
        report_error(std::string("the slave refuses ") + step + " (" + std::to_string(rate) + " Hz, " +
                     std::to_string(channels) + " channel(s)): " + snd_strerror(err));
        return err;
    }
    snd_pcm_sw_params_t *sw;
    snd_pcm_sw_params_alloca(&sw);
    snd_pcm_hw_params_get_buffer_size(hw, &buffer);
    if ((err = snd_pcm_sw_params_current(pcm, sw)) < 0 ||
        (err = snd_pcm_sw_params_set_start_threshold(pcm, sw, buffer)) < 0 || (err = snd_pcm_sw_params(pcm, sw)) < 0)
        report_error(std::string("the slave refuses its start threshold: ") + snd_strerror(err));
    return err;
}

}  // namespace eqdrc_alsa
