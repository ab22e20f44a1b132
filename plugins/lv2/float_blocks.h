// The chain behind a host that hands over float blocks of any length and wants as many
// samples back at once: each input sample is taken to 16 bits as `eqdrc process` takes
// float audio, whole frames run through a FrameStream, and the output is the chain's
// 16-bit output / 32768, exactly one frame later (the latency the plugin reports).
// The first frame of a stream is silence.
//
// Beside it runs the unprocessed input, delayed by the same frame, so that bypass keeps
// the timing; switching fades linearly over one frame, and outside a fade the output is
// exactly the chain's or exactly the input. Without a stream (no tuning) the chain's
// side is silence.
//
// Counts are samples per channel; channel buffers are separate, as LV2 ports are, and
// an output may be the same buffer as its input. After construction nothing here
// allocates, locks or does I/O.
#ifndef EQDRC_LV2_FLOAT_BLOCKS_H
#define EQDRC_LV2_FLOAT_BLOCKS_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace eqdrc_plugin {
class FrameStream;
}

namespace eqdrc_lv2 {

class FloatBlocks {
public:
    // Room for frames of up to `maxFrameLen` samples per channel.
    FloatBlocks(int channels, int maxFrameLen);

    // Plays `stream` (may be null) with a latency of `frameLen` (its frame length) from
    // the next sample on: its first frame's worth of output is silence. The delayed
    // input is kept when the latency stays the same, else it starts from silence too.
    void restart(eqdrc_plugin::FrameStream *stream, int frameLen);
    int latency() const { return delay_; }

    // Where the bypass switch should go; a change starts a fade at the next sample.
    void set_bypass(bool bypass) { target_ = bypass ? 1.0f : 0.0f; }

    void process(const float *const *in, float *const *out, size_t n);

private:
    static constexpr size_t kChunk = 256;  // samples per channel converted at a time

    void process_chunk(const float *const *in, float *const *out, size_t at, size_t n);

    int channels_;
    eqdrc_plugin::FrameStream *stream_ = nullptr;
    size_t delay_ = 1;
    size_t silence_ = 0;          // chain output still owed as silence
    std::vector<float> dry_;      // per channel a ring of delay_ input samples
    size_t maxDelay_;
    size_t dryAt_ = 0;
    std::vector<int16_t> pcmIn_, pcmOut_;  // one chunk, interleaved
    float dryShare_ = 0.0f, target_ = 0.0f;
};

}  // namespace eqdrc_lv2

#endif
