// A WAV (or any libsndfile format) impulse response as a measured response: the magnitude
// of its spectrum, with KissFFT.
#ifndef EQDRC_TOOL_IMPULSE_RESPONSE_H
#define EQDRC_TOOL_IMPULSE_RESPONSE_H

#include <string>

#include "curve.h"

namespace eqdrc_tool {

// Lowest peak an impulse response may have: below it, it is silence.
constexpr double kSilentIrPeak = 1e-6;  // -120 dBFS

// True when libsndfile reads `path` as audio (the caller then reads it as an impulse
// response, otherwise as text).
bool is_sound_file(const std::string &path);

// The first channel's spectrum from 1 bin above 0 Hz to below half the sample rate, in dB
// relative to full scale. Throws Error naming the file for an unreadable or silent response.
eqdrc_fit::Curve impulse_response_curve(const std::string &path);

}  // namespace eqdrc_tool

#endif
