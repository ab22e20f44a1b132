// libasound_module_pcm_eqdrc.so: the chain as an ALSA filter plugin (extplug).
//
//   pcm.speaker { type eqdrc slave.pcm "hw:0,0" tuning "/etc/eqdrc/speaker.bin" }
//   options: frame N (768), reload on|off (off), adapt on|off (off), debug on|off (off)
//
// extplug gives back as many frames as it takes, so the plugin is a delay line: the
// slave receives one frame of silence, then the chain's output (see FrameStream).
// Every prepare (start, recovery from an underrun, after drop or drain) clears the delay
// line: the partial frame collected is dropped and the next frame out is silence again;
// the chain keeps its filter state. Pause and resume leave everything as it is.
#include <alsa/asoundlib.h>
#include <alsa/pcm_external.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <string>
#include <vector>

#include "frame_stream.h"
#include "log.h"
#include "options.h"
#include "swap_reporter.h"
#include "tuning_source.h"
#include "tuning_watcher.h"

namespace {

using namespace eqdrc_plugin;
using namespace eqdrc_alsa;

constexpr snd_pcm_uframes_t kChunk = 512;  // samples per channel gathered per step

struct Plugin {
    snd_pcm_extplug_t ext{};
    Options options;
    // Set up at hw_params for the stream's rate and channel count.
    RecordHandoff handoff;
    std::unique_ptr<FrameStream> stream;
    std::unique_ptr<TuningWatcher> watcher;
    std::unique_ptr<SwapReporter> reporter;
    std::vector<int16_t> in, out;  // one chunk, interleaved
};

Plugin *plugin_of(snd_pcm_extplug_t *ext) { return static_cast<Plugin *>(ext->private_data); }

inline int16_t *sample_at(const snd_pcm_channel_area_t &a, snd_pcm_uframes_t frame)
{
    return reinterpret_cast<int16_t *>(static_cast<char *>(a.addr) + (a.first + frame * a.step) / 8);
}

snd_pcm_sframes_t eqdrc_transfer(snd_pcm_extplug_t *ext, const snd_pcm_channel_area_t *dst,
                                 snd_pcm_uframes_t dstOffset, const snd_pcm_channel_area_t *src,
                                 snd_pcm_uframes_t srcOffset, snd_pcm_uframes_t size)
{
    Plugin *p = plugin_of(ext);
    const unsigned channels = ext->channels;
    if (!p->stream) {  // no stream set up (its hw_params was refused): pass silence on
        snd_pcm_areas_silence(dst, dstOffset, channels, size, SND_PCM_FORMAT_S16_LE);
        return static_cast<snd_pcm_sframes_t>(size);
    }
    for (snd_pcm_uframes_t done = 0; done < size;) {
        snd_pcm_uframes_t n = std::min(kChunk, size - done);
        for (unsigned c = 0; c < channels; c++)
            for (snd_pcm_uframes_t i = 0; i < n; i++)
                p->in[i * channels + c] = *sample_at(src[c], srcOffset + done + i);
        p->stream->process(p->in.data(), p->out.data(), n);
        for (unsigned c = 0; c < channels; c++)
            for (snd_pcm_uframes_t i = 0; i < n; i++)
                *sample_at(dst[c], dstOffset + done + i) = p->out[i * channels + c];
        done += n;
    }
    return static_cast<snd_pcm_sframes_t>(size);
}

int eqdrc_hw_free(snd_pcm_extplug_t *ext)
{
    Plugin *p = plugin_of(ext);
    p->watcher.reset();  // first: it offers to the hand-over the stream reads
    p->stream.reset();
    p->reporter.reset();
    return 0;
}

int eqdrc_hw_params(snd_pcm_extplug_t *ext, snd_pcm_hw_params_t *params)
{
    Plugin *p = plugin_of(ext);
    const Options &o = p->options;
    eqdrc_hw_free(ext);
    unsigned rate = 0, channels = 0;
    int dir = 0;
    snd_pcm_hw_params_get_rate(params, &rate, &dir);
    snd_pcm_hw_params_get_channels(params, &channels);

    Record raw, rec;
    std::string error;
    bool read = read_tuning_file(o.tuning, raw, error);
    if (!read || !fit_tuning(raw, o.tuning, static_cast<int>(rate), static_cast<int>(channels), o.adapt,
                             o.frameLen, rec, error)) {
        TuningFormat f = read ? tuning_format(raw) : TuningFormat{};
        if (read && !o.adapt && (f.sampleRate != static_cast<int>(rate) || f.channels != static_cast<int>(channels)))
            error += " (adapt on retunes it for the stream)";
        report_error(error);
        return -EINVAL;
    }
    p->stream = FrameStream::create(rec, o.frameLen, o.reload ? &p->handoff : nullptr, error);
    if (!p->stream) {
        report_error(o.tuning + ": " + error);
        return -EINVAL;
    }
    p->in.assign(kChunk * channels, 0);
    p->out.assign(kChunk * channels, 0);
    if (o.debug) {
        p->reporter = std::make_unique<SwapReporter>(o.tuning);
        p->stream->set_swap_callback(&SwapReporter::on_swap, p->reporter.get());
        log_line("%s: %u Hz, %u channel(s), frames of %d; the slave runs %d samples behind", o.tuning.c_str(), rate,
                 channels, o.frameLen, o.frameLen);
    }
    if (o.reload) {
        // Drop a record staged for an earlier stream: it was fitted to that stream.
        p->handoff.take();
        p->watcher = TuningWatcher::start(o.tuning, static_cast<int>(rate), static_cast<int>(channels), o.adapt,
                                          o.frameLen, p->handoff, error);
        if (!p->watcher)
            log_line("%s; playing without live tuning", error.c_str());
    }
    return 0;
}

int eqdrc_init(snd_pcm_extplug_t *ext)
{
    Plugin *p = plugin_of(ext);
    if (p->stream)
        p->stream->reset();
    return 0;
}

int eqdrc_close(snd_pcm_extplug_t *ext)
{
    Plugin *p = plugin_of(ext);
    eqdrc_hw_free(ext);
    delete p;
    return 0;
}

const snd_pcm_extplug_callback_t kCallbacks = [] {
    snd_pcm_extplug_callback_t cb{};
    cb.transfer = eqdrc_transfer;
    cb.close = eqdrc_close;
    cb.hw_params = eqdrc_hw_params;
    cb.hw_free = eqdrc_hw_free;
    cb.init = eqdrc_init;
    return cb;
}();

int open_plugin(snd_pcm_t **pcmp, const char *name, snd_config_t *root, snd_config_t *conf, snd_pcm_stream_t stream,
                int mode)
{
    snd_config_t *slave = nullptr;
    auto p = std::make_unique<Plugin>();
    int err = parse_options(conf, slave, p->options);
    if (err < 0)
        return err;
    if ((err = check_tuning_at_open(p->options)) < 0)
        return err;

    p->ext.version = SND_PCM_EXTPLUG_VERSION;
    p->ext.name = "eqdrc: EQ/DRC post-processing";
    p->ext.callback = &kCallbacks;
    p->ext.private_data = p.get();
    if ((err = snd_pcm_extplug_create(&p->ext, name, root, slave, stream, mode)) < 0)
        return err;
    // From here the PCM owns the plugin: snd_pcm_close calls eqdrc_close.
    Plugin *owned = p.release();
    static const unsigned kFormat[] = {SND_PCM_FORMAT_S16_LE};
    snd_pcm_extplug_set_param_list(&owned->ext, SND_PCM_EXTPLUG_HW_FORMAT, 1, kFormat);
    snd_pcm_extplug_set_slave_param_list(&owned->ext, SND_PCM_EXTPLUG_HW_FORMAT, 1, kFormat);
    *pcmp = owned->ext.pcm;
    return 0;
}

}  // namespace

extern "C" {
SND_PCM_PLUGIN_DEFINE_FUNC(eqdrc)
{
    try {
        return open_plugin(pcmp, name, root, conf, stream, mode);
    } catch (const std::exception &e) {
        report_error(e.what());
        return -ENOMEM;
    }
}
SND_PCM_PLUGIN_SYMBOL(eqdrc)
}
