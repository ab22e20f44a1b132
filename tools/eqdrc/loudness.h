// Integrated loudness, loudness range and true peak of 16-bit interleaved audio, by
// libebur128 (an independent meter).
#ifndef EQDRC_TOOL_LOUDNESS_H
#define EQDRC_TOOL_LOUDNESS_H

#include <cstddef>
#include <cstdint>

namespace eqdrc_tool {

struct Loudness {
    double integratedLufs = 0.0;  // -inf for silence
    double rangeLu = 0.0;
    double truePeakDbtp = 0.0;    // -inf for silence
};

class LoudnessMeter {
public:
    LoudnessMeter(int channels, int sampleRate);  // throws Error
    ~LoudnessMeter();
    LoudnessMeter(const LoudnessMeter &) = delete;
    LoudnessMeter &operator=(const LoudnessMeter &) = delete;

    void add(const int16_t *interleaved, size_t frames);
    Loudness result() const;

private:
    struct State;
    State *state_;
    int channels_;
};

}  // namespace eqdrc_tool

#endif
