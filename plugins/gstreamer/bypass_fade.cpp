#include "bypass_fade.h"

#include <algorithm>
#include <cmath>

namespace eqdrc_gst {

BypassFade::BypassFade(int channels, size_t capacity, size_t fadeLength, bool bypass)
    : channels_(channels),
      ring_(capacity * static_cast<size_t>(channels)),
      capacity_(capacity),
      step_(1.0f / static_cast<float>(std::max<size_t>(fadeLength, 1))),
      dryShare_(bypass ? 1.0f : 0.0f),
      target_(dryShare_)
{
}

void BypassFade::push_dry(const int16_t *in, size_t n)
{
    const size_t ch = static_cast<size_t>(channels_);
    size_t tail = (head_ + count_) % capacity_;
    for (size_t i = 0; i < n; ++i) {
        std::copy(in + i * ch, in + (i + 1) * ch, ring_.begin() + static_cast<std::ptrdiff_t>(tail * ch));
        tail = tail + 1 == capacity_ ? 0 : tail + 1;
    }
    count_ += n;
}

void BypassFade::mix(int16_t *wet, size_t n)
{
    const size_t ch = static_cast<size_t>(channels_);
    for (size_t i = 0; i < n; ++i) {
        const int16_t *dry = ring_.data() + head_ * ch;
        head_ = head_ + 1 == capacity_ ? 0 : head_ + 1;
        if (dryShare_ != target_)
            dryShare_ = dryShare_ < target_ ? std::min(target_, dryShare_ + step_) : std::max(target_, dryShare_ - step_);
        int16_t *out = wet + i * ch;
        if (dryShare_ == 1.0f) {
            std::copy(dry, dry + ch, out);
        } else if (dryShare_ != 0.0f) {
            // A weighted sum of two int16 values cannot leave the int16 range.
            for (size_t c = 0; c < ch; ++c)
                out[c] = static_cast<int16_t>(
                    std::lrint(static_cast<float>(out[c]) * (1.0f - dryShare_) + static_cast<float>(dry[c]) * dryShare_));
        }
    }
    count_ -= n;
}

}  // namespace eqdrc_gst
