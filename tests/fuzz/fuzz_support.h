// Shared pieces of the fuzz targets: a reader over the fuzzer's bytes, and one
// predicate per misuse that ends the process on purpose, mirroring the library's own
// checks, so that a target can skip an input instead of exiting and the fuzzer spends
// its time on everything else.  A few further predicates bound what one input may
// allocate or compute (the library never checks an allocation).
#ifndef EQDRC_TESTS_FUZZ_SUPPORT_H
#define EQDRC_TESTS_FUZZ_SUPPORT_H

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "chain/audio_post.h"
#include "core/numeric.h"
#include "core/record.h"
#include "dynamics/maximizer.h"
#include "enhance/auto_gain.h"
#include "meters/loudness_meter.h"
#include "eq/equaliser.h"

namespace eqdrc_fuzz {

// Consumes the fuzzer's bytes front to back; past the end every value is zero.
class Reader {
public:
    Reader(const uint8_t *data, size_t size) : data_(data), size_(size) {}

    size_t remaining() const { return size_ - pos_; }

    // Copies up to `bytes` bytes into `dst`, zero-filling what the input lacks.
    void bytes(void *dst, size_t bytes)
    {
        const size_t n = bytes < remaining() ? bytes : remaining();
        if (n > 0)
            std::memcpy(dst, data_ + pos_, n);
        std::memset(static_cast<uint8_t *>(dst) + n, 0, bytes - n);
        pos_ += n;
    }

    int32_t integer()
    {
        int32_t v;
        bytes(&v, sizeof v);
        return v;
    }

private:
    const uint8_t *data_;
    size_t size_;
    size_t pos_ = 0;
};

// ---------------------------------------------------------------------------------
// Documented fatal paths, one predicate each.

// filter_calculateCoeffs: a type code outside 0..7.
inline bool designer_type_fatal(int type) { return type < 0 || type > 7; }

// BassEnhancer, Exciter, DeEsser, MultiBandDRC and Maximizer _Init: more than two channels.
inline bool too_many_channels(int channels) { return channels > 2; }

// EQ10 _Init/_SetPara: an enabled band (nonzero enable word) whose type the designer
// does not know.  Blocks are chosen as the equaliser chooses them.
inline bool eq10_section_fatal(const float *section, int channels, int link)
{
    for (int c = 0; c < channels; c++) {
        const float *block = eqdrc::channel_block(section, c, link, eqdrc::kEqChannelWords);
        for (int b = 0; b < eqdrc::kEqBands; b++) {
            const float *group = block + eqdrc::kEqBandWords * b;
            if (eqdrc::to_int32(group[eqdrc::kEqEnable]) != 0 &&
                designer_type_fatal(eqdrc::to_int32(group[eqdrc::kEqType])))
                return true;
        }
    }
    return false;
}

// AutoGain_Process: a frame longer than the meter's step.
inline bool auto_gain_frame_fatal(const AutoGainState *st, int frameLen) { return st->stepSamples < frameLen; }

// AudioPost_Process and AudioPost_SetPara: a frame length other than the creation one.
inline bool chain_frame_fatal(const AudioPostState *st, int frameLen) { return frameLen != st->frameLen; }

// AudioPost_EQ10_GetPara without an equaliser.
inline bool chain_eq10_get_para_fatal(const AudioPostState *st) { return st->eq10 == nullptr; }

// The compressor adjust pass-throughs without a compressor.
inline bool chain_mbdrc_adjust_fatal(const AudioPostState *st) { return st->multiBandDrc == nullptr; }

// The maximizer and Agc adjust pass-throughs without the maximizer's state.
inline bool chain_maximizer_adjust_fatal(const AudioPostState *st) { return st->maximizer == nullptr; }

// ---------------------------------------------------------------------------------
// The chain's creation and live update, predicted from a record: which stages they
// would create or retune, and whether any of those calls ends the process.

struct RecordHeader {
    int32_t sampleRate, bits, link, channels;
    float toolVersion;
    int32_t enable[kStageCount];

    explicit RecordHeader(const float *rec)
        : sampleRate(eqdrc::to_int32(rec[eqdrc::kWordSampleRate])),
          bits(eqdrc::to_int32(rec[eqdrc::kWordBitDepth])),
          link(eqdrc::to_int32(rec[eqdrc::kWordChannelLink])),
          channels(eqdrc::to_int32(rec[eqdrc::kWordChannels])),
          toolVersion(rec[eqdrc::kWordToolVersion])
    {
        for (int s = 0; s < kStageCount; s++)
            enable[s] = eqdrc::to_int32(rec[eqdrc::kWordEnable + s]);
    }
    bool version_ok() const
    {
        return !(std::fabs(static_cast<double>(toolVersion) - static_cast<double>(eqdrc::kToolVersion)) >
                 eqdrc::kToolVersionTolerance);
    }
    bool bits_ok() const { return bits == 16 || bits == 24 || bits == 32; }
    bool maximizer_wanted() const { return enable[kStageAgc] != 0 || enable[kStageMaximizer] != 0; }
};

// Stage creation inside the chain with `ch` channels from `rec`: the two-channel stages
// and the equaliser's band types.
inline bool chain_create_fatal(const RecordHeader &h, const float *rec, int ch, bool bassExists, bool exciterExists,
                               bool deEsserExists, bool eqExists, bool mbdrcExists, bool maxExists)
{
    const bool twoChannelStage = (h.enable[kStageBassEnhancer] != 0 && !bassExists) ||
                                 (h.enable[kStageExciter] != 0 && !exciterExists) ||
                                 (h.enable[kStageDeEsser] != 0 && !deEsserExists) ||
                                 (h.enable[kStageMultiBandDrc] != 0 && !mbdrcExists) ||
                                 (h.maximizer_wanted() && !maxExists);
    if (twoChannelStage && too_many_channels(ch))
        return true;
    return h.enable[kStageEq10] != 0 && !eqExists && eq10_section_fatal(rec + eqdrc::kSectionEq10, ch, h.link);
}

// AudioPost_Init(rec, ...).
inline bool chain_init_fatal(const float *rec)
{
    const RecordHeader h(rec);
    if (!h.version_ok() || !h.bits_ok())
        return false;  // refused before any stage is built
    const int ch = h.channels > 0 ? h.channels : 0;
    return chain_create_fatal(h, rec, ch, false, false, false, false, false, false);
}

// AudioPost_SetPara(st, rec, frameLen) with the right frame length.
inline bool chain_set_para_fatal(const AudioPostState *st, const float *rec)
{
    const RecordHeader h(rec);
    if (!h.version_ok())
        return false;
    const int ch = h.channels < st->allocatedChannels ? h.channels : st->allocatedChannels;
    // An existing equaliser is retuned with its own channel count and link.
    if (h.enable[kStageEq10] != 0 && st->eq10 != nullptr && st->eq10->channels >= 1 &&
        eq10_section_fatal(rec + eqdrc::kSectionEq10, st->eq10->channels, st->eq10->link))
        return true;
    return chain_create_fatal(h, rec, ch, st->bassEnhancer, st->exciter, st->deEsser, st->eq10, st->multiBandDrc,
                              st->maximizer);
}

// AudioPost_EQ10_SetPara(st, section).
inline bool chain_eq10_set_para_fatal(const AudioPostState *st, const float *section)
{
    if (st->enable[kStageEq10] == 0)
        return false;
    if (st->eq10 != nullptr)
        return st->eq10->channels >= 1 && eq10_section_fatal(section, st->eq10->channels, st->eq10->link);
    return eq10_section_fatal(section, st->indexed_channels(), st->channelLink);
}

// AudioPost_Process(st, ...) with the right frame length: the auto gain's step.
inline bool chain_process_fatal(const AudioPostState *st)
{
    return st->enable[kStageAutoGain] == 1 && st->autoGain != nullptr &&
           auto_gain_frame_fatal(st->autoGain, st->frameLen);
}

// ---------------------------------------------------------------------------------
// Limits of one fuzz input (not library rules): allocations the library would make
// without checking, and work per call.

constexpr int64_t kMaxFloatsPerAllocation = int64_t{1} << 22;  // 16 MiB

// The loudness meter's ring: channels x window samples (see Ebur128State::ring_size).
inline bool meter_too_large(int channels, int32_t windowMs, int32_t sampleRate)
{
    const int64_t window = eqdrc::ms_to_samples(windowMs, sampleRate);
    return channels > 0 && window > 0 && int64_t{channels} * window > kMaxFloatsPerAllocation;
}

// The auto gain inside a chain: created with `ch` channels, or re-created by a live
// update that changes the meter's window or step.
inline bool chain_meter_too_large(const AudioPostState *st, const float *rec, int ch)
{
    const RecordHeader h(rec);
    if (h.enable[kStageAutoGain] == 0 || !h.version_ok())
        return false;
    const float *section = rec + eqdrc::kSectionAutoGain;
    const int32_t windowMs = eqdrc::to_int32(section[eqdrc::kAutoGainWindow]);
    if (st != nullptr && st->autoGain != nullptr)
        return meter_too_large(st->autoGain->channels, windowMs, st->autoGain->sampleRate);
    return meter_too_large(ch, windowMs, h.sampleRate);
}

// ---------------------------------------------------------------------------------
// The equaliser's own set-up and AudioPost_EQ10_SetPara read a block per unlinked
// channel from the caller's section: the fuzzers hand them 544-word records, which
// hold eight.
constexpr int kEqChannelsInRecord = (eqdrc::kRecordWords - eqdrc::kSectionEq10) / eqdrc::kEqChannelWords;
inline bool eq10_blocks_past_record(int channels, int link) { return link == 0 && channels > kEqChannelsInRecord; }

}  // namespace eqdrc_fuzz

#endif
