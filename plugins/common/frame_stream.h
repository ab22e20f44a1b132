// The chain behind a host that hands it blocks of any length: input is collected into
// whole frames of the configured length, so the output is the same bits as
// `eqdrc process` / quorvel_enh over the same samples with the same frame length.
//
// write() appends input and processes every completed frame into an output FIFO, read()
// pops processed samples, drain() pads the partial last frame with silence, processes it
// and makes only its real samples readable.
// Between frames, before processing the next one, a record taken from the hand-over is
// applied with AudioPost_SetPara, and the hand-over's frame index is reported.
//
// With the meter tap on, the chain's meters after every frame, with the last hand-over's
// frame and the hand-over count, go into a sequence slot that a reporting thread copies.
//
// Counts are samples per channel; buffers are interleaved 16-bit. After construction
// (and enable_meter_tap) nothing here allocates, locks or does I/O, except that
// AudioPost_SetPara creates a stage the new record enables and the running chain lacks.
#ifndef EQDRC_PLUGIN_FRAME_STREAM_H
#define EQDRC_PLUGIN_FRAME_STREAM_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "meter_file.h"
#include "record_handoff.h"
#include "tuning_source.h"

struct AudioPostState;

namespace eqdrc_plugin {

class FrameStream {
public:
    // Called on the audio thread right after a handed-over record was applied; `frame`
    // is the index (from 0) of the first frame processed with it. Must not block.
    using SwapCallback = void (*)(void *context, long long frame);

    // Builds the chain from `rec` (already fitted and checked). `fifoCapacity` is the
    // room of the output FIFO in samples per channel (at least 2 x frameLen is used).
    // `handoff` may be null (no live tuning). Returns null with `error` set when the
    // library refuses the record.
    static std::unique_ptr<FrameStream> create(const Record &rec, int frameLen, RecordHandoff *handoff,
                                               std::string &error, size_t fifoCapacity = 0);
    ~FrameStream();
    FrameStream(const FrameStream &) = delete;
    FrameStream &operator=(const FrameStream &) = delete;

    int frame_len() const { return frameLen_; }
    int channels() const { return channels_; }
    void set_swap_callback(SwapCallback cb, void *context);

    // write() takes at most space() samples (a bound that keeps every frame
    // it completes within the FIFO) and returns how many it took; read() returns how many
    // it gave (at most readable()).
    size_t space() const;
    size_t write(const int16_t *in, size_t n);
    size_t readable() const { return fifoFill_; }
    size_t read(int16_t *out, size_t n);
    // Pads the collected partial frame with silence and processes it; only its real
    // samples become readable. Needs a frame's room free in the FIFO: returns false,
    // doing nothing, until enough has been read.
    bool drain();

    // Samples of the partial frame collected so far.
    size_t collected() const { return collected_; }

    // Drops collected input and pending output. The chain's filter state is kept and
    // the frame index keeps counting.
    void reset();

    // Frames processed so far (the index the next frame gets).
    long long frame_index() const { return frameIndex_; }

    // Turns the meter tap on, with a first reading of the fresh chain. Call it before the
    // stream runs: it allocates the slot and reads the chain.
    void enable_meter_tap();
    // Any thread: the newest tap reading (sampleRate and publishedMs left 0); false while
    // the tap is off or when the audio thread was writing at every attempt.
    bool read_meters(MeterReading &out) const;

private:
    FrameStream() = default;
    void process_frame();
    void push_output(const int16_t *src, size_t n);
    void tap_meters();

    AudioPostState *chain_ = nullptr;
    RecordHandoff *handoff_ = nullptr;
    SwapCallback swapCallback_ = nullptr;
    void *swapContext_ = nullptr;
    int frameLen_ = 0;
    int channels_ = 0;
    long long frameIndex_ = 0;
    long long handoverFrame_ = -1;     // the first frame run with the last handed-over record
    unsigned long long handovers_ = 0;
    std::unique_ptr<MeterSlot> meterTap_;  // null while the tap is off

    std::vector<int16_t> frame_;  // the frame being collected, then processed in place
    size_t collected_ = 0;
    std::vector<int16_t> fifo_;   // processed output, a ring of fifoCapacity_ samples
    size_t fifoCapacity_ = 0;
    size_t fifoHead_ = 0;         // next sample to read
    size_t fifoFill_ = 0;
};

}  // namespace eqdrc_plugin

#endif
