// The bypass switch: the unprocessed input kept in step with the chain's output, and a
// linear fade between the two when the switch moves, so that switching never clicks.
// Outside a fade the output is exactly one or the other, bit for bit.
#ifndef EQDRC_GST_BYPASS_FADE_H
#define EQDRC_GST_BYPASS_FADE_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace eqdrc_gst {

class BypassFade {
public:
    // `capacity` samples per channel of unprocessed input can wait for their processed
    // twins; `fadeLength` samples per channel make one fade; `bypass` is where the
    // switch starts (without a fade).
    BypassFade(int channels, size_t capacity, size_t fadeLength, bool bypass);

    // Input as it enters the chain (at most the free space: capacity - pending()).
    void push_dry(const int16_t *in, size_t n);
    size_t pending() const { return count_; }
    // Forgets the waiting input (a flush).
    void clear() { head_ = count_ = 0; }

    // Where the switch should go; takes effect from the next sample mixed.
    void set_bypass(bool bypass) { target_ = bypass ? 1.0f : 0.0f; }

    // Replaces `n` processed samples per channel in place by what the switch selects,
    // consuming the same number of waiting input samples.
    void mix(int16_t *wet, size_t n);

private:
    int channels_;
    std::vector<int16_t> ring_;  // capacity x channels, interleaved
    size_t capacity_;
    size_t head_ = 0;   // oldest waiting sample
    size_t count_ = 0;  // waiting samples per channel
    float step_;        // change of the dry share per sample during a fade
    float dryShare_ = 0.0f;
    float target_ = 0.0f;
};

}  // namespace eqdrc_gst

#endif
