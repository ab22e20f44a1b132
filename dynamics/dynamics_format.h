// What the maximizer's limiter and AGC share: the record's format and its frame clock.
#ifndef EQDRC_DYNAMICS_DYNAMICS_FORMAT_H
#define EQDRC_DYNAMICS_DYNAMICS_FORMAT_H

#include <cstdint>

#include "core/time_constant.h"

namespace eqdrc {

// Per-channel values live in two-entry arrays.
constexpr int kDynamicsMaxChannels = 2;

struct DynamicsFormat {
    int32_t bitDepth;
    int32_t sampleRate;
    int32_t channels;
    int32_t frameLen;  // creation frame length: the time constants' frame
    int32_t channelLink;
    float log10FullScale;
    float fullScale;

    // The once-per-frame one-pole factor for a time in ms.
    float frame_coefficient(float ms) const
    {
        return one_pole_coefficient(frame_decay_float_product(frameLen, sampleRate, ms));
    }
};

}  // namespace eqdrc

#endif
