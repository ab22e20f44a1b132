// C entry points of the loudness meter.
#include "enhance/loudness_meter.h"

extern "C" {

Ebur128State *ebur128_init(int bits, int sampleRate, int channels, int windowMs, int stepMs)
{
    return Ebur128State::create(bits, sampleRate, channels, windowMs, stepMs);
}

int ebur128_addframes(Ebur128State *state, float **channels, int frameLen)
{
    if (state != nullptr)
        state->add_frames(channels, frameLen);
    return 0;
}

float ebur128_gatedloudness(Ebur128State *state)
{
    return state != nullptr ? state->gated_loudness() : eqdrc::kNoLoudness;
}

void ebur128_destroy(Ebur128State *state)
{
    if (state != nullptr)
        state->destroy();
}

}  // extern "C"
