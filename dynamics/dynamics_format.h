// What the maximizer's limiter and AGC share: the record's format and its frame clock.
#ifndef EQDRC_DYNAMICS_DYNAMICS_FORMAT_H
#define EQDRC_DYNAMICS_DYNAMICS_FORMAT_H

#include <cstdint>
#include <cstdlib>

#include "core/alloc.h"
#include "core/time_constant.h"
#include "dynamics/gain_table.h"

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

// A gain table and a current linear gain per channel: the AGC's set and the limiter's.
struct ChannelGains {
    float **tables;  // `channels` gain tables
    float *gain;     // `channels` linear gains

    void allocate(int channels)
    {
        gain = zeroed<float>(channels);
        tables = zeroed<float *>(channels);
        for (int ch = 0; ch < channels; ch++)
            tables[ch] = zeroed<float>(kGainTableSize);
    }

    void free_all(int channels)
    {
        for (int ch = 0; ch < channels; ch++) {
            std::free(tables[ch]);
            tables[ch] = nullptr;
        }
        std::free(tables);
        tables = nullptr;
        std::free(gain);
    }
};

}  // namespace eqdrc

#endif
