// libasound_module_pcm_eqdrc.so: the chain in front of an ALSA device (an I/O plugin
// that opens its own slave).
//
//   pcm.speaker { type eqdrc slave.pcm "hw:0,0" tuning "/etc/eqdrc/speaker.bin" }
//   options: frame N (768), reload on|off (off), adapt on|off (off), debug on|off (off),
//            meters "/run/eqdrc/speaker.meters" (none)
//
// The application's samples are collected into whole frames; only processed samples
// reach the slave, so its bytes are the chain's output over exactly the samples written
// (no leading silence), and drain pads the last partial frame with silence and passes on
// only its real samples, as `eqdrc process` does. The delay reported is the slave's plus
// the samples held here (at most a frame less one).
//
// Defined states: every prepare (start, recovery from an underrun, after drop or drain)
// drops the partial frame collected and starts collecting afresh; the chain keeps its
// filter state and the frame index keeps counting. Pause and resume leave everything as
// it is. An underrun of the slave while writing to it is recovered there (its buffer
// starts again), the stream here goes on.
//
// Playback only: processing a capture stream would need whole frames read ahead of the
// application, which this plugin does not do.
#include <alsa/asoundlib.h>
#include <alsa/pcm_external.h>
#include <tqaudio_eqdrc.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <string>
#include <vector>

#include "frame_stream.h"
#include "log.h"
#include "meter_publisher.h"
#include "options.h"
#include "slave.h"
#include "swap_reporter.h"
#include "tuning_source.h"
#include "tuning_watcher.h"

namespace {

using namespace eqdrc_plugin;
using namespace eqdrc_alsa;

constexpr snd_pcm_uframes_t kChunk = 512;  // samples per channel moved per step

struct Plugin {
    snd_pcm_ioplug_t io{};
    Options options;
    snd_pcm_t *slave = nullptr;
    // Set up at hw_params for the stream's rate and channel count.
    RecordHandoff handoff;
    std::unique_ptr<FrameStream> stream;
    std::unique_ptr<TuningWatcher> watcher;
    std::unique_ptr<MeterPublisher> meters;  // reads the stream's meter tap
    std::unique_ptr<SwapReporter> reporter;
    std::vector<int16_t> in;       // one chunk of the application's samples, interleaved
    std::vector<int16_t> pending;  // processed samples taken from the stream, not yet written
    size_t pendingAt = 0, pendingEnd = 0;
};

Plugin *plugin_of(snd_pcm_ioplug_t *io) { return static_cast<Plugin *>(io->private_data); }

inline const int16_t *sample_at(const snd_pcm_channel_area_t &a, snd_pcm_uframes_t frame)
{
    return reinterpret_cast<const int16_t *>(static_cast<const char *>(a.addr) + (a.first + frame * a.step) / 8);
}

// Writes processed samples to the slave until none is left or the slave takes no more
// (non-blocking); an underrun there is recovered. Returns 0 or an error code.
int flush(Plugin *p)
{
    const unsigned channels = p->io.channels;
    for (;;) {
        if (p->pendingAt == p->pendingEnd) {
            p->pendingAt = 0;
            p->pendingEnd = p->stream->read(p->pending.data(), kChunk);
            if (p->pendingEnd == 0)
                return 0;
        }
        snd_pcm_sframes_t n = snd_pcm_writei(p->slave, &p->pending[p->pendingAt * channels],
                                             p->pendingEnd - p->pendingAt);
        if (n == -EAGAIN)
            return 0;
        if (n == -EPIPE || n == -ESTRPIPE || n == -EINTR) {
            int err = snd_pcm_recover(p->slave, static_cast<int>(n), 1);
            if (err < 0)
                return err;
            continue;
        }
        if (n < 0)
            return static_cast<int>(n);
        p->pendingAt += static_cast<size_t>(n);
    }
}

// Samples written by the application that the slave has not received yet.
size_t held(const Plugin *p)
{
    return p->stream->collected() + p->stream->readable() + (p->pendingEnd - p->pendingAt);
}

snd_pcm_sframes_t eqdrc_transfer(snd_pcm_ioplug_t *io, const snd_pcm_channel_area_t *areas,
                                 snd_pcm_uframes_t offset, snd_pcm_uframes_t size)
{
    Plugin *p = plugin_of(io);
    const unsigned channels = io->channels;
    snd_pcm_uframes_t taken = 0;
    int err = flush(p);
    while (err == 0 && taken < size) {
        snd_pcm_uframes_t n = std::min<snd_pcm_uframes_t>({kChunk, size - taken, p->stream->space()});
        if (n == 0)  // the slave takes no more for now (non-blocking)
            break;
        for (unsigned c = 0; c < channels; c++)
            for (snd_pcm_uframes_t i = 0; i < n; i++)
                p->in[i * channels + c] = *sample_at(areas[c], offset + taken + i);
        p->stream->write(p->in.data(), n);
        taken += n;
        err = flush(p);
    }
    if (taken == 0 && err < 0)
        return err;
    if (taken == 0 && size > 0)
        return -EAGAIN;
    return static_cast<snd_pcm_sframes_t>(taken);
}

// Everything the application wrote has been taken: what is still on its way is
// reported by the delay.
snd_pcm_sframes_t eqdrc_pointer(snd_pcm_ioplug_t *io) { return static_cast<snd_pcm_sframes_t>(io->appl_ptr); }

int eqdrc_delay(snd_pcm_ioplug_t *io, snd_pcm_sframes_t *delay)
{
    Plugin *p = plugin_of(io);
    snd_pcm_sframes_t slaveDelay = 0;
    if (snd_pcm_delay(p->slave, &slaveDelay) < 0)
        slaveDelay = 0;
    *delay = slaveDelay + static_cast<snd_pcm_sframes_t>(p->stream ? held(p) : 0);
    return 0;
}

int eqdrc_start(snd_pcm_ioplug_t *) { return 0; }  // the slave starts by its own threshold

int eqdrc_stop(snd_pcm_ioplug_t *io)
{
    Plugin *p = plugin_of(io);
    snd_pcm_drop(p->slave);
    return 0;
}

int eqdrc_prepare(snd_pcm_ioplug_t *io)
{
    Plugin *p = plugin_of(io);
    if (p->stream)
        p->stream->reset();
    p->pendingAt = p->pendingEnd = 0;
    snd_pcm_drop(p->slave);
    return snd_pcm_prepare(p->slave);
}

int eqdrc_drain(snd_pcm_ioplug_t *io)
{
    Plugin *p = plugin_of(io);
    if (p->stream) {
        // drain() needs a frame's room in the stream's output: flush first.
        int err = flush(p);
        while (err == 0 && !p->stream->drain())
            err = flush(p);
        if (err == 0)
            err = flush(p);
        if (err < 0)
            return err;
    }
    return snd_pcm_drain(p->slave);
}

int eqdrc_pause(snd_pcm_ioplug_t *io, int enable)
{
    Plugin *p = plugin_of(io);
    snd_pcm_state_t s = snd_pcm_state(p->slave);
    // A slave that has not started yet (it waits for a full buffer) has nothing to pause.
    if (s == SND_PCM_STATE_RUNNING || s == SND_PCM_STATE_PAUSED)
        return snd_pcm_pause(p->slave, enable);
    return 0;
}

int eqdrc_resume(snd_pcm_ioplug_t *io) { return snd_pcm_resume(plugin_of(io)->slave); }

int eqdrc_poll_count(snd_pcm_ioplug_t *io) { return snd_pcm_poll_descriptors_count(plugin_of(io)->slave); }

int eqdrc_poll_descriptors(snd_pcm_ioplug_t *io, struct pollfd *pfd, unsigned int space)
{
    return snd_pcm_poll_descriptors(plugin_of(io)->slave, pfd, space);
}

int eqdrc_poll_revents(snd_pcm_ioplug_t *io, struct pollfd *pfd, unsigned int nfds, unsigned short *revents)
{
    return snd_pcm_poll_descriptors_revents(plugin_of(io)->slave, pfd, nfds, revents);
}

int eqdrc_hw_free(snd_pcm_ioplug_t *io)
{
    Plugin *p = plugin_of(io);
    p->watcher.reset();  // first: it offers to the hand-over the stream reads
    p->meters.reset();   // it reads the stream
    p->stream.reset();
    p->reporter.reset();
    snd_pcm_hw_free(p->slave);
    return 0;
}

int eqdrc_hw_params(snd_pcm_ioplug_t *io, snd_pcm_hw_params_t *params)
{
    Plugin *p = plugin_of(io);
    const Options &o = p->options;
    eqdrc_hw_free(io);
    unsigned rate = 0, channels = 0;
    int dir = 0;
    snd_pcm_uframes_t period = 0, buffer = 0;
    snd_pcm_hw_params_get_rate(params, &rate, &dir);
    snd_pcm_hw_params_get_channels(params, &channels);
    snd_pcm_hw_params_get_period_size(params, &period, &dir);
    snd_pcm_hw_params_get_buffer_size(params, &buffer);

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
    int err = set_up_slave(p->slave, rate, channels, period, buffer);
    if (err < 0)
        return err;
    p->stream = FrameStream::create(rec, o.frameLen, o.reload ? &p->handoff : nullptr, error);
    if (!p->stream) {
        report_error(o.tuning + ": " + error);
        return -EINVAL;
    }
    p->in.assign(kChunk * channels, 0);
    p->pending.assign(kChunk * channels, 0);
    p->pendingAt = p->pendingEnd = 0;
    if (o.debug) {
        p->reporter = std::make_unique<SwapReporter>(o.tuning);
        p->stream->set_swap_callback(&SwapReporter::on_swap, p->reporter.get());
        log_line("%s: %u Hz, %u channel(s), frames of %d; %s", o.tuning.c_str(), rate, channels, o.frameLen,
                 library_identity().c_str());
    }
    if (!o.meters.empty()) {
        p->meters = MeterPublisher::start(o.meters, *p->stream, static_cast<int>(rate), error);
        if (!p->meters)
            log_line("%s; playing without meters", error.c_str());
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

int eqdrc_close(snd_pcm_ioplug_t *io)
{
    Plugin *p = plugin_of(io);
    eqdrc_hw_free(io);
    snd_pcm_close(p->slave);
    delete p;
    return 0;
}

const snd_pcm_ioplug_callback_t kCallbacks = [] {
    snd_pcm_ioplug_callback_t cb{};
    cb.start = eqdrc_start;
    cb.stop = eqdrc_stop;
    cb.pointer = eqdrc_pointer;
    cb.transfer = eqdrc_transfer;
    cb.close = eqdrc_close;
    cb.hw_params = eqdrc_hw_params;
    cb.hw_free = eqdrc_hw_free;
    cb.prepare = eqdrc_prepare;
    cb.drain = eqdrc_drain;
    cb.pause = eqdrc_pause;
    cb.resume = eqdrc_resume;
    cb.poll_descriptors_count = eqdrc_poll_count;
    cb.poll_descriptors = eqdrc_poll_descriptors;
    cb.poll_revents = eqdrc_poll_revents;
    cb.delay = eqdrc_delay;
    return cb;
}();

int open_plugin(snd_pcm_t **pcmp, const char *name, snd_config_t *root, snd_config_t *conf, snd_pcm_stream_t stream,
                int mode)
{
    snd_config_t *slaveConf = nullptr;
    auto p = std::make_unique<Plugin>();
    int err = parse_options(conf, slaveConf, p->options);
    if (err < 0)
        return err;
    if (stream != SND_PCM_STREAM_PLAYBACK) {
        report_error("playback only: the chain does not process capture streams");
        return -EINVAL;
    }
    if ((err = check_tuning_at_open(p->options)) < 0)
        return err;
    if ((err = open_slave(p->slave, root, slaveConf, stream, mode)) < 0)
        return err;

    p->io.version = SND_PCM_IOPLUG_VERSION;
    p->io.name = "eqdrc: EQ/DRC post-processing";
    p->io.flags = SND_PCM_IOPLUG_FLAG_BOUNDARY_WA;
    p->io.poll_fd = -1;
    p->io.mmap_rw = 0;
    p->io.callback = &kCallbacks;
    p->io.private_data = p.get();
    if ((err = snd_pcm_ioplug_create(&p->io, name, stream, mode)) < 0) {
        snd_pcm_close(p->slave);
        return err;
    }
    // From here the PCM owns the plugin: snd_pcm_close calls eqdrc_close.
    Plugin *owned = p.release();
    static const unsigned kAccess[] = {SND_PCM_ACCESS_RW_INTERLEAVED, SND_PCM_ACCESS_MMAP_INTERLEAVED};
    static const unsigned kFormat[] = {SND_PCM_FORMAT_S16_LE};
    // A buffer that holds at least two frames: the collected partial frame never blocks
    // the application waiting for room.
    const unsigned minBufferBytes = static_cast<unsigned>(owned->options.frameLen) * 2 * sizeof(int16_t) * 2;
    if ((err = snd_pcm_ioplug_set_param_list(&owned->io, SND_PCM_IOPLUG_HW_ACCESS, 2, kAccess)) < 0 ||
        (err = snd_pcm_ioplug_set_param_list(&owned->io, SND_PCM_IOPLUG_HW_FORMAT, 1, kFormat)) < 0 ||
        (err = snd_pcm_ioplug_set_param_minmax(&owned->io, SND_PCM_IOPLUG_HW_CHANNELS, 1, 2)) < 0 ||
        (err = snd_pcm_ioplug_set_param_minmax(&owned->io, SND_PCM_IOPLUG_HW_RATE, 8000, 192000)) < 0 ||
        (err = snd_pcm_ioplug_set_param_minmax(&owned->io, SND_PCM_IOPLUG_HW_PERIOD_BYTES, sizeof(int16_t), 1u << 22)) < 0 ||
        (err = snd_pcm_ioplug_set_param_minmax(&owned->io, SND_PCM_IOPLUG_HW_BUFFER_BYTES, minBufferBytes,
                                               1u << 24)) < 0) {
        snd_pcm_ioplug_delete(&owned->io);
        return err;
    }
    *pcmp = owned->io.pcm;
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
