// Layout of the 544-word tuning record and the per-channel block rule of its sections.
#ifndef EQDRC_CORE_RECORD_H
#define EQDRC_CORE_RECORD_H

#include <cstddef>

namespace eqdrc {

constexpr int kRecordWords = 544;
constexpr size_t kRecordBytes = kRecordWords * sizeof(float);

// Header words.
constexpr int kWordSampleRate = 0;
constexpr int kWordBitDepth = 1;
constexpr int kWordChannelLink = 2;
constexpr int kWordChannels = 3;
constexpr int kWordToolVersion = 4;
constexpr int kWordParamVersion = 5;  // 5, 6, 7: major, minor, patch
constexpr int kWordEnable = 10;       // 10..17, in chain order
constexpr int kWordPreGain = 20;      // 20 + kPreGainStride * channel
constexpr int kPreGainStride = 5;

constexpr float kToolVersion = 2.0f;
constexpr double kToolVersionTolerance = 0.0001;

// Section starts.
constexpr int kSectionAutoGain = 30;
constexpr int kSectionBassEnhancer = 60;
constexpr int kSectionExciter = 80;
constexpr int kSectionDeEsser = 90;
constexpr int kSectionEq10 = 100;
constexpr int kSectionMultiBandDrc = 200;
constexpr int kSectionMaximizer = 400;

// A per-channel section gives every channel its own block of `stride` words, unless
// the channels are linked: then every channel reads channel 0's block.
inline const float *channel_block(const float *section, int channel, int link, int stride)
{
    return section + (link ? 0 : channel * stride);
}

}  // namespace eqdrc

#endif
