// Helpers shared by the unit tests.
#ifndef EQDRC_TESTS_SUPPORT_H
#define EQDRC_TESTS_SUPPORT_H

#include <cstdint>
#include <string>
#include <vector>

#include "tqaudio_eqdrc.h"

namespace eqdrc_test {

// A valid 2.0 record: 48 kHz, 16-bit, unlinked stereo, every stage off, 0 dB pre-gain.
std::vector<float> blank_record(int sampleRate = 48000, int bits = 16, int channels = 2);

// The shipped reference tuning (tunings/reference.bin, every stage on).
std::vector<float> reference_record();

// Planar buffers with the float** view the stages take.
struct Planar {
    Planar(int channels, int frames, float value = 0.0f);
    float **ptrs() { return ptr.data(); }
    std::vector<std::vector<float>> data;
    std::vector<float *> ptr;
};

// A sine of `amplitude` (integer sample scale) at `freq` Hz, starting at sample `start`.
std::vector<float> sine(int frames, float freq, int sampleRate, float amplitude, int start = 0);

// 9000 samples: programme (random 16-bit values) up to `holdStart`, a long hold of
// `held`, programme again over [6000, 6500), a second hold.  Recursions ring down into a
// repeating state during each hold and must leave it exactly.
std::vector<float> bursts_and_holds(uint32_t seed, int holdStart, float held);

// Bitwise float equality in which every NaN equals every other NaN (CPUs disagree on
// NaN sign and payload, so the library promises only "a NaN").
bool same_bits(float a, float b);
bool same_bits(const std::vector<float> &a, const std::vector<float> &b);

// Runs `body` with standard error captured and returns what it wrote.
template <class F>
std::string capture_stderr(F body);

// A chain from `rec`, and its tear-down, with their messages swallowed.
AudioPostState *quiet_chain(const float *rec, int frameLen);
void destroy_quietly(AudioPostState *st);

std::string read_file(const std::string &path);
void write_file(const std::string &path, const void *data, size_t bytes);
std::string temp_path(const std::string &name);

}  // namespace eqdrc_test

#include <gtest/gtest.h>

template <class F>
std::string eqdrc_test::capture_stderr(F body)
{
    testing::internal::CaptureStderr();
    body();
    return testing::internal::GetCapturedStderr();
}

#endif
