#include "frame_stream.h"

#include <algorithm>
#include <cstring>

#include <tqaudio_eqdrc.h>

namespace eqdrc_plugin {

std::unique_ptr<FrameStream> FrameStream::create(const Record &rec, int frameLen, RecordHandoff *handoff,
                                                 std::string &error, size_t fifoCapacity)
{
    TuningFormat format = tuning_format(rec);
    if (frameLen < 1 || format.channels < 1 || format.channels > 2) {
        error = "frame length " + std::to_string(frameLen) + " and " + std::to_string(format.channels) +
                " channel(s): the chain takes frames of at least 1 sample, mono or stereo";
        return nullptr;
    }
    std::unique_ptr<FrameStream> s(new FrameStream);
    s->chain_ = AudioPost_Init(rec.data(), frameLen);
    if (!s->chain_) {
        error = "the library refused the tuning";
        return nullptr;
    }
    s->handoff_ = handoff;
    s->frameLen_ = frameLen;
    s->channels_ = format.channels;
    s->frame_.assign(static_cast<size_t>(frameLen) * format.channels, 0);
    s->fifoCapacity_ = std::max(fifoCapacity, 2 * static_cast<size_t>(frameLen));
    s->fifo_.assign(s->fifoCapacity_ * format.channels, 0);
    return s;
}

FrameStream::~FrameStream()
{
    if (chain_)
        AudioPost_Destroy(chain_);
}

void FrameStream::set_swap_callback(SwapCallback cb, void *context)
{
    swapCallback_ = cb;
    swapContext_ = context;
}

size_t FrameStream::space() const
{
    // Input is taken only while a completed frame would still fit in the FIFO.
    size_t free = fifoCapacity_ - fifoFill_;
    size_t frame = static_cast<size_t>(frameLen_);
    return free < frame ? 0 : free - frame + (frame - collected_);
}

void FrameStream::process_frame()
{
    if (handoff_) {
        if (const Record *next = handoff_->take()) {
            AudioPost_SetPara(chain_, next->data(), frameLen_);
            handoverFrame_ = frameIndex_;
            handovers_++;
            if (swapCallback_)
                swapCallback_(swapContext_, frameIndex_);
        }
    }
    AudioPost_Process(chain_, frame_.data(), frame_.data(), channels_, frameLen_);
    frameIndex_++;
    if (meterTap_)
        tap_meters();
}

void FrameStream::enable_meter_tap()
{
    if (!meterTap_) {
        meterTap_ = std::make_unique<MeterSlot>();
        tap_meters();
    }
}

void FrameStream::tap_meters()
{
    MeterReading r;
    AudioPost_GetMeters(chain_, &r.meters);
    r.handoverFrame = handoverFrame_;
    r.handovers = handovers_;
    uint32_t words[kMeterReadingWords];
    meter_reading_to_words(r, words);
    meterTap_->write(words);
}

bool FrameStream::read_meters(MeterReading &out) const
{
    // The audio thread writes for well under a microsecond; a reader that keeps meeting
    // a write is on a starved core and tries again at its next round.
    uint32_t words[kMeterReadingWords];
    if (!meterTap_ || !meterTap_->read(words, 100))
        return false;
    out = meter_reading_from_words(words);
    return true;
}

void FrameStream::push_output(const int16_t *src, size_t n)
{
    size_t tail = (fifoHead_ + fifoFill_) % fifoCapacity_;
    while (n > 0) {
        size_t m = std::min(n, fifoCapacity_ - tail);
        std::memcpy(&fifo_[tail * channels_], src, m * channels_ * sizeof(int16_t));
        src += m * channels_;
        n -= m;
        fifoFill_ += m;
        tail = (tail + m) % fifoCapacity_;
    }
}

size_t FrameStream::write(const int16_t *in, size_t n)
{
    n = std::min(n, space());
    size_t done = 0;
    while (done < n) {
        size_t m = std::min(n - done, static_cast<size_t>(frameLen_) - collected_);
        std::memcpy(&frame_[collected_ * channels_], in + done * channels_, m * channels_ * sizeof(int16_t));
        collected_ += m;
        done += m;
        if (collected_ == static_cast<size_t>(frameLen_)) {
            process_frame();
            push_output(frame_.data(), collected_);
            collected_ = 0;
        }
    }
    return n;
}

size_t FrameStream::read(int16_t *out, size_t n)
{
    n = std::min(n, fifoFill_);
    size_t done = 0;
    while (done < n) {
        size_t m = std::min(n - done, fifoCapacity_ - fifoHead_);
        std::memcpy(out + done * channels_, &fifo_[fifoHead_ * channels_], m * channels_ * sizeof(int16_t));
        done += m;
        fifoHead_ = (fifoHead_ + m) % fifoCapacity_;
        fifoFill_ -= m;
    }
    return n;
}

bool FrameStream::drain()
{
    if (collected_ == 0)
        return true;
    if (fifoCapacity_ - fifoFill_ < static_cast<size_t>(frameLen_))
        return false;
    size_t real = collected_;
    std::fill(frame_.begin() + real * channels_, frame_.end(), int16_t{0});
    process_frame();
    push_output(frame_.data(), real);
    collected_ = 0;
    return true;
}

void FrameStream::reset()
{
    collected_ = 0;
    fifoHead_ = 0;
    fifoFill_ = 0;
}

}  // namespace eqdrc_plugin
