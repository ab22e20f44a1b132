// The equaliser's processing: each channel's sections over the frame one after the
// other, or both channels' in lanes where they run the same number.
#include "eq/equaliser.h"

#include <cstring>

#include "core/alloc.h"
#include "dsp/buffer_aliasing.h"
#include "filters/paired_cascade.h"

namespace {

using eqdrc::count_of;
using eqdrc::kEqBands;

// One section over a whole buffer in place, its memories held in registers for the
// buffer.  (b1*x - a1*y) + z2 is the order the tunings were verified with.
void run_section(eqdrc::EqSection &s, float *buf, int n)
{
    const float *c = s.coeffs;
    const float b0 = c[0], b1 = c[1], b2 = c[2], a1 = c[3], a2 = c[4];
    float z1 = s.memory[0], z2 = s.memory[1];
    for (int i = 0; i < n; i++) {
        const float x = buf[i];
        const float y = z1 + b0 * x;
        z1 = b1 * x - a1 * y + z2;
        z2 = b2 * x - a2 * y;
        buf[i] = y;
    }
    s.memory[0] = z1;
    s.memory[1] = z2;
}

}  // namespace

void EQ10State::process(const float *const *in, float *const *out, int n)
{
    // The scratch and copy buffers hold the creation length; a longer frame is cut to
    // it and the rest of `out` is left untouched.
    if (n > frameLen)
        n = frameLen;
    const size_t bytes = count_of(n) * sizeof(float);
    const int paired = paired_sections(in, out, n);
    if (paired > 0) {
        for (int c = 0; c < channels; c++)
            std::memcpy(inputCopy[c], in[c], bytes);
        run_pair(paired, n);
        for (int c = 0; c < channels; c++)
            std::memcpy(out[c], outputCopy[c], bytes);
        return;
    }
    const int last = band_count();
    int cursor = 0;  // sections run across channels, so it carries over
    for (int c = 0; c < channels; c++) {
        if (n >= 1) {
            std::memcpy(scratch, in[c], bytes);
            std::memcpy(inputCopy[c], in[c], bytes);
        }
        const float active = activeBands[c];
        if (active > 0.0f) {
            for (int32_t k = 0; static_cast<float>(k) < active; k++) {
                // Enables above 1 can count past the last section: stop there.
                if (cursor >= last)
                    break;
                run_section(sections[cursor], scratch, n);
                cursor++;
            }
        }
        if (n >= 1) {
            std::memcpy(out[c], scratch, bytes);
            std::memcpy(outputCopy[c], scratch, bytes);
        }
    }
}

// Sections per channel when two channels can run in lock-step, else 0: both run the same
// number of sections and the walk in process stays inside them, so channel 0 takes
// sections 0..K-1 and channel 1 sections K..2K-1.  Channel 1's input must not be
// channel 0's output, which the walk would have written first.
int EQ10State::paired_sections(const float *const *in, const float *const *out, int n) const
{
    if (channels != 2 || n < 1 || activeBands[0] != activeBands[1])
        return 0;
    const float active = activeBands[0];
    if (!(active >= 1.0f && active <= static_cast<float>(kEqBands)))
        return 0;
    if (!eqdrc::pair_runs_as_sequence(in, out, n))
        return 0;
    return static_cast<int>(active);
}

// Both channels at once, from the input copies to the output copies.
void EQ10State::run_pair(int perChannel, int n)
{
    eqdrc::CascadeSections s;
    s.count = perChannel;
    for (int c = 0; c < 2; c++) {
        for (int k = 0; k < perChannel; k++) {
            eqdrc::EqSection &section = sections[c * perChannel + k];
            s.coeffs[c][k] = section.coeffs;
            s.state[c][k] = section.memory;
        }
    }
    eqdrc::run_paired_cascade(s, inputCopy, outputCopy, n);
}
