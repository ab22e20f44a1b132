// The device the processed samples go to: opened from the eqdrc device's `slave`
// configuration and set up for the stream the application asked for.
#ifndef EQDRC_ALSA_SLAVE_H
#define EQDRC_ALSA_SLAVE_H

#include <alsa/asoundlib.h>

namespace eqdrc_alsa {

// Opens `slave { pcm NAME }` or `slave.pcm { type ... }` (a definition in place); names
// are looked up in `root`, the configuration the eqdrc device came from.
int open_slave(snd_pcm_t *&pcm, snd_config_t *root, snd_config_t *slave, snd_pcm_stream_t stream, int mode);

// Interleaved S16_LE at `rate` and `channels`, with a period and buffer near the
// application's; the slave starts when its buffer is full or at drain, as aplay's do.
int set_up_slave(snd_pcm_t *pcm, unsigned rate, unsigned channels, snd_pcm_uframes_t period,
                 snd_pcm_uframes_t buffer);

}  // namespace eqdrc_alsa

#endif
