// Audio samples to the chain's 16 bits, one conversion for every reader of non-16-bit
// audio (the eqdrc tool's files, the LV2 plugin's float ports), so that they agree on
// every sample.
#ifndef EQDRC_TOOL_PCM16_H
#define EQDRC_TOOL_PCM16_H

#include <cmath>
#include <cstdint>

namespace eqdrc_tool {

// `v` is scaled so that full scale is 1.0 (libsndfile's doubles; float audio, exact in
// a double). It is taken to the nearest 16-bit step, a tie to the even step (in the
// default rounding mode), and clipped to the 16-bit range; NaN becomes 0.
// 16-bit input passes unchanged; 24-bit, 32-bit and float input lose their low bits.
inline int16_t to_pcm16(double v)
{
    constexpr double kFullScale = 32768.0;
    double s = v * kFullScale;
    if (std::isnan(s))
        return 0;
    if (s <= -kFullScale)
        return INT16_MIN;
    if (s >= kFullScale - 1.0)
        return INT16_MAX;
    return static_cast<int16_t>(std::nearbyint(s));
}

}  // namespace eqdrc_tool

#endif
