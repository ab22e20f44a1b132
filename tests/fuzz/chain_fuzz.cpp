// Fuzz target: the whole chain from a hostile record.
//
// Input: record A (2176 bytes), eight control bytes, record B (2176 bytes), 96 bytes of
// adjust arguments, then PCM.  Missing bytes read as zero.  A record is created from A
// (now and then through a record file), runs a few frames, is retuned with B, read
// back, poked through the pass-throughs, runs a few more frames and is destroyed.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

#include "fuzz_support.h"
#include "tqaudio_eqdrc.h"

namespace {

using namespace eqdrc_fuzz;

constexpr int kFrameLens[8] = {768, 1, 2, 16, 100, 256, 480, 1024};
constexpr int kMaxChannels = 256;  // per-frame work and buffers of one input

// A record file holding `words` of the record followed by `extra` zero bytes: exactly
// the image, one byte short, or longer than it.
AudioPostState *init_by_path(const float *rec, int frameLen, uint8_t how)
{
    static char path[64];
    if (path[0] == '\0')
        std::snprintf(path, sizeof path, "/tmp/eqdrc_chain_fuzz_%d.rec", static_cast<int>(getpid()));
    FILE *f = std::fopen(path, "wb");
    if (f == nullptr)
        return nullptr;
    const size_t bytes = eqdrc::kRecordBytes;
    switch (how % 3) {
    case 0: std::fwrite(rec, 1, bytes, f); break;
    case 1: std::fwrite(rec, 1, bytes - 1, f); break;
    default: {
        std::fwrite(rec, 1, bytes, f);
        static const uint8_t tail[824] = {};
        std::fwrite(tail, 1, sizeof tail, f);
    }
    }
    std::fclose(f);
    AudioPostState *st = AudioPost_InitByPath(path, frameLen);
    // Removed at once: a campaign forks thousands of processes, each with its own file.
    std::remove(path);
    return st;
}

// One frame of interleaved PCM for the chain's live channel count.
void fill_pcm(std::vector<int16_t> &pcm, uint8_t kind, const uint8_t *raw, size_t rawSize, size_t &rawPos)
{
    for (size_t i = 0; i < pcm.size(); i++) {
        int16_t v = 0;
        switch (kind % 6) {
        case 0:  // the fuzzer's bytes, cycled
            if (rawSize >= 2) {
                std::memcpy(&v, raw + rawPos, 2);
                rawPos = rawPos + 2 + 1 < rawSize ? rawPos + 2 : 0;
            }
            break;
        case 1: v = 0; break;
        case 2: v = (i & 1) ? INT16_MIN : INT16_MAX; break;  // full-scale square
        case 3: v = static_cast<int16_t>((i * 977) & 0xFFFF); break;
        case 4: v = i < 8 ? INT16_MAX : 0; break;  // a burst, then silence
        default: v = INT16_MIN; break;
        }
        pcm[i] = v;
    }
}

struct Run {
    AudioPostState *st;
    int frameLen;
    uint8_t pcmKind;
    bool inPlace;
    const uint8_t *raw;
    size_t rawSize;
    size_t rawPos = 0;

    // Frames through the chain; stops where a frame would end the process.
    void frames(int count)
    {
        const int ch = st->channels > st->allocatedChannels ? st->channels : st->allocatedChannels;
        if (ch > kMaxChannels || chain_frame_fatal(st, frameLen))
            return;
        const size_t samples = static_cast<size_t>(frameLen) * static_cast<size_t>(ch > 0 ? ch : 0);
        std::vector<int16_t> in(samples + 1), out(samples + 1);
        for (int f = 0; f < count; f++) {
            if (chain_process_fatal(st))
                return;
            fill_pcm(in, pcmKind, raw, rawSize, rawPos);
            AudioPost_Process(st, in.data(), inPlace ? in.data() : out.data(), ch, frameLen);
        }
    }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Reader r(data, size);
    float a[eqdrc::kRecordWords], b[eqdrc::kRecordWords];
    r.bytes(a, sizeof a);
    uint8_t control[8];
    r.bytes(control, sizeof control);
    r.bytes(b, sizeof b);
    uint8_t adjust[96];
    r.bytes(adjust, sizeof adjust);
    const size_t rawPos = size - r.remaining();

    const int frameLen = kFrameLens[control[0] & 7];
    const RecordHeader ha(a);
    if (ha.channels > kMaxChannels || chain_init_fatal(a) || chain_meter_too_large(nullptr, a, ha.channels))
        return 0;

    AudioPostState *st = (control[1] & 0x1F) == 0x1F ? init_by_path(a, frameLen, control[1] >> 5)
                                                     : AudioPost_Init(a, frameLen);
    if (st == nullptr)
        return 0;

    Run run{st, frameLen, control[3], (control[3] & 8) != 0, data + rawPos, size - rawPos};
    run.frames(1 + (control[2] & 3));

    // Live update with B (or with A again, to retune every stage in place).
    const float *live = (control[2] & 0x10) ? a : b;
    const RecordHeader hb(live);
    const int liveCh = hb.channels < st->allocatedChannels ? hb.channels : st->allocatedChannels;
    if (!chain_set_para_fatal(st, live) && !chain_meter_too_large(st, live, liveCh))
        AudioPost_SetPara(st, live, frameLen);

    float readBack[eqdrc::kRecordWords] = {};
    AudioPost_GetPara(st, readBack);

    Reader args(adjust, sizeof adjust);
    const uint8_t ops = control[4];
    if ((ops & 0x01) && !chain_eq10_set_para_fatal(st, b + eqdrc::kSectionEq10) &&
        !(st->eq10 == nullptr ? eq10_blocks_past_record(st->indexed_channels(), st->channelLink)
                              : eq10_blocks_past_record(st->eq10->channels, st->eq10->link)))
        AudioPost_EQ10_SetPara(st, b + eqdrc::kSectionEq10);
    if ((ops & 0x02) && !chain_eq10_get_para_fatal(st)) {
        std::vector<float> section(static_cast<size_t>(st->eq10->channels > 2 ? st->eq10->channels : 2) *
                                   eqdrc::kEqChannelWords);
        AudioPost_EQ10_GetPara(st, section.data());
    }
    if ((ops & 0x04) && st->eq10 != nullptr && st->eq10->channels > 0) {
        const int n = st->eq10->frameLen > 0 ? st->eq10->frameLen : 0;
        std::vector<std::vector<float>> in(st->eq10->channels, std::vector<float>(n)), out = in;
        std::vector<float *> pin, pout;
        for (size_t c = 0; c < in.size(); c++)
            pin.push_back(in[c].data()), pout.push_back(out[c].data());
        AudioPost_EQ10_GetData(st, pin.data(), pout.data());
    }
    if ((ops & 0x08) && !chain_mbdrc_adjust_fatal(st)) {
        const int ch = args.integer();
        float f[6];
        args.bytes(f, sizeof f);
        AudioPost_MultiBandDRC_Crossover_AdjustPara(st, ch, f[0], f[1], f[2], f[3], f[4], f[5]);
    }
    if ((ops & 0x10) && !chain_mbdrc_adjust_fatal(st)) {
        const int ch = args.integer(), band = args.integer(), enable = args.integer();
        float v[10];
        args.bytes(v, sizeof v);
        AudioPost_MultiBandDRC_DRC_AdjustPara(st, ch, band, enable, v[0], v[1], v[2], v[3], v[4], v[5], v[6], v[7],
                                              v[8]);
    }
    if ((ops & 0x20) && !chain_maximizer_adjust_fatal(st)) {
        const int ch = args.integer();
        float v[3];
        args.bytes(v, sizeof v);
        AudioPost_Maximizer_AdjustPara(st, ch, v[0], v[1], v[2]);
    }
    if ((ops & 0x40) && !chain_maximizer_adjust_fatal(st)) {
        const int ch = args.integer();
        float v[8];
        args.bytes(v, sizeof v);
        AudioPost_Agc_AdjustPara(st, ch, v[0], v[1], v[2], v[3], v[4], v[5], v[6], v[7]);
    }

    run.frames(1 + ((control[2] >> 2) & 3));
    AudioPost_Destroy(st);
    return 0;
}
