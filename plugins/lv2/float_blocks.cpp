#include "float_blocks.h"

#include <algorithm>

#include "frame_stream.h"
#include "pcm16.h"

namespace eqdrc_lv2 {

FloatBlocks::FloatBlocks(int channels, int maxFrameLen)
    : channels_(channels),
      dry_(static_cast<size_t>(maxFrameLen) * channels),
      maxDelay_(static_cast<size_t>(maxFrameLen)),
      pcmIn_(kChunk * channels),
      pcmOut_(kChunk * channels)
{
}

void FloatBlocks::restart(eqdrc_plugin::FrameStream *stream, int frameLen)
{
    stream_ = stream;
    size_t delay = std::clamp<size_t>(static_cast<size_t>(frameLen), 1, maxDelay_);
    if (delay != delay_) {
        std::fill(dry_.begin(), dry_.end(), 0.0f);
        dryAt_ = 0;
        delay_ = delay;
    }
    silence_ = delay_;
}

void FloatBlocks::process(const float *const *in, float *const *out, size_t n)
{
    // A chunk no longer than a frame keeps the samples held in the stream at one frame
    // (collected plus processed), within its FIFO, and always enough processed ones to read.
    const size_t chunk = std::min(kChunk, delay_);
    for (size_t at = 0; at < n; at += chunk)
        process_chunk(in, out, at, std::min(chunk, n - at));
}

void FloatBlocks::process_chunk(const float *const *in, float *const *out, size_t at, size_t n)
{
    const size_t ch = static_cast<size_t>(channels_);
    std::fill(pcmOut_.begin(), pcmOut_.begin() + n * ch, int16_t{0});
    if (stream_) {
        for (size_t c = 0; c < ch; c++)
            for (size_t i = 0; i < n; i++)
                pcmIn_[i * ch + c] = eqdrc_tool::to_pcm16(static_cast<double>(in[c][at + i]));
        stream_->write(pcmIn_.data(), n);
        size_t quiet = std::min(n, silence_);
        silence_ -= quiet;
        stream_->read(pcmOut_.data() + quiet * ch, n - quiet);
    }
    const float step = 1.0f / static_cast<float>(delay_);
    for (size_t i = 0; i < n; i++) {
        if (dryShare_ != target_)
            dryShare_ = dryShare_ < target_ ? std::min(target_, dryShare_ + step) : std::max(target_, dryShare_ - step);
        for (size_t c = 0; c < ch; c++) {
            float &slot = dry_[c * maxDelay_ + dryAt_];
            const float dry = slot;
            slot = in[c][at + i];
            // Exact: a 16-bit value over a power of two.
            const float wet = static_cast<float>(pcmOut_[i * ch + c]) / 32768.0f;
            out[c][at + i] = dryShare_ == 0.0f ? wet
                             : dryShare_ == 1.0f ? dry
                                                 : wet * (1.0f - dryShare_) + dry * dryShare_;
        }
        dryAt_ = dryAt_ + 1 == delay_ ? 0 : dryAt_ + 1;
    }
}

}  // namespace eqdrc_lv2
