// Fuzz target: every stage on its own, through its C interface.
//
// Input: a selector byte (which stage), the creation arguments, the section, then a
// list of operations (process a frame of some kind of signal, retune with a new
// section, read back, print, adjust), each reading its own arguments from the bytes
// that follow.  Missing bytes read as zero.
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <vector>

#include "dynamics/maximizer.h"
#include "enhance/bass_enhancer.h"
#include "dynamics/multiband_drc.h"
#include "fuzz_support.h"
#include "tqaudio_eqdrc.h"

namespace {

using namespace eqdrc_fuzz;

constexpr int kMaxOps = 12;
constexpr int kMaxFrame = 2048;

struct Args {
    int bits, sampleRate, channels, frameLen, link;
};

int pick_bits(Reader &r)
{
    const uint8_t k = r.byte();
    static const int kBits[] = {16, 24, 32, 16, 24, 32, 8, 0};
    return (k & 0x80) ? r.integer() : kBits[k & 7];
}

int pick_rate(Reader &r)
{
    const uint8_t k = r.byte();
    static const int kRates[] = {48000, 44100, 8000, 96000, 16000, 1, 0, -48000};
    return (k & 0x80) ? r.integer() : kRates[k & 7];
}

int pick_frame(Reader &r)
{
    const uint8_t k = r.byte();
    static const int kFrames[] = {768, 1, 2, 64, 480, 1024, 0, 256};
    return (k & 0x80) ? r.in_range(-2, kMaxFrame) : kFrames[k & 7];
}

// Planar buffers for `channels` channels of `n` samples, filled with one kind of signal.
struct Frame {
    std::vector<std::vector<float>> data;
    std::vector<float *> ptrs;

    Frame(int channels, int n, Reader &r)
    {
        const int ch = channels > 0 ? channels : 0;
        const int len = n > 0 ? n : 0;
        data.assign(static_cast<size_t>(ch), std::vector<float>(static_cast<size_t>(len) + 1));
        ptrs.assign(static_cast<size_t>(ch) + 1, nullptr);
        const uint8_t kind = r.byte();
        const float scale = 1.0f + static_cast<float>(r.byte());
        for (int c = 0; c < ch; c++) {
            ptrs[c] = data[c].data();
            for (int i = 0; i < len; i++)
                data[c][i] = sample(kind, i, scale, r);
        }
    }

    static float sample(uint8_t kind, int i, float scale, Reader &r)
    {
        switch (kind % 8) {
        case 0: return r.real();  // raw words: NaN, infinities and denormals included
        case 1: return __builtin_nanf("");
        case 2: return (i & 1) ? -__builtin_inff() : __builtin_inff();
        case 3: return (i & 1) ? -1e-40f : 1e-41f;  // denormals
        case 4: return (i & 1) ? -32768.0f * scale : 32767.0f * scale;
        case 5: return i < 16 ? 30000.0f : 0.0f;  // burst, then a decaying tail
        case 6: return 0.0f;
        default: return static_cast<float>((i * 977) % 65536 - 32768) * scale;
        }
    }
};

std::vector<float> section(Reader &r, size_t words)
{
    std::vector<float> s(words);
    r.bytes(s.data(), words * sizeof(float));
    return s;
}

// The frame length a process call gets: mostly the creation length.
int process_length(Reader &r, int frameLen)
{
    const uint8_t k = r.byte();
    return (k & 0xC0) == 0xC0 ? r.in_range(0, kMaxFrame) : (frameLen > 0 ? frameLen : 0);
}

// ---------------------------------------------------------------------------------
// Every stage runs the same loop: up to kMaxOps operations, each picked by one byte from
// the stage's own table.  The helpers make the entries all stages share.

using Op = std::function<void(int op)>;

void run_ops(Reader &r, std::initializer_list<Op> ops)
{
    const std::vector<Op> table(ops);
    for (int op = 0; op < kMaxOps && r.remaining() > 0; op++)
        table[r.byte() % table.size()](op);
}

// Process a frame of some length and kind in place; `fatal` recognises a length that
// ends the process.
template <class Process>
Op process_op(Reader &r, const Args &a, int channels, Process process, std::function<bool(int)> fatal = nullptr)
{
    return [&r, &a, channels, process, fatal](int op) {
        const int n = process_length(r, a.frameLen);
        if (fatal && fatal(n))
            return;
        Frame f(channels, n, r);
        process(f.ptrs.data(), n, op);
    };
}

// Retune from a fresh section of `words` words.
template <class SetPara>
Op set_op(Reader &r, size_t words, SetPara setPara)
{
    return [&r, words, setPara](int) {
        std::vector<float> s = section(r, words);
        setPara(s.data());
    };
}

// Read back into `words` words.
template <class GetPara>
Op get_op(size_t words, GetPara getPara)
{
    return [words, getPara](int) {
        std::vector<float> out(words);
        getPara(out.data());
    };
}

void fuzz_eq10(Reader &r, const Args &a)
{
    const int ch = a.channels;
    const size_t words = static_cast<size_t>(ch > 2 ? ch : 2) * eqdrc::kEqChannelWords;
    const bool nullSection = (r.byte() & 0x0F) == 0;
    std::vector<float> s = section(r, words);
    if (!nullSection && eq10_section_fatal(s.data(), ch, a.link))
        return;
    EQ10State *st = EQ10_Init(nullSection ? nullptr : s.data(), a.bits, a.sampleRate, ch, a.frameLen, a.link);
    run_ops(r, {process_op(r, a, ch, [st](float **f, int n, int) { EQ10_Process(st, f, f, n); }),
                set_op(r, words,
                       [&](const float *s2) {
                           if (!(ch >= 1 && eq10_section_fatal(s2, ch, a.link)))
                               EQ10_SetPara(st, s2);
                       }),
                get_op(words, [st](float *out) { EQ10_GetPara(st, out); }),
                [&](int) {
                    Frame in(ch, a.frameLen, r), out(ch, a.frameLen, r);
                    EQ10_GetData(st, in.ptrs.data(), out.ptrs.data());
                },
                [st](int) { EQ10_PrintPara(st); }});
    EQ10_Destroy(st);
}

void fuzz_mbdrc(Reader &r, const Args &a)
{
    if (too_many_channels(a.channels))
        return;
    const size_t words = 2 * eqdrc::kDrcBlockWords;
    const bool nullSection = (r.byte() & 0x0F) == 0;
    std::vector<float> s = section(r, words);
    MultiBandDRCState *st =
        MultiBandDRC_Init(nullSection ? nullptr : s.data(), a.bits, a.sampleRate, a.channels, a.link);
    if (st == nullptr)
        return;
    run_ops(r, {process_op(r, a, a.channels, [st](float **f, int n, int) { MultiBandDRC_Process(st, f, f, n); }),
                set_op(r, words, [st](const float *s2) { MultiBandDRC_SetPara(st, s2); }),
                get_op(words, [st](float *out) { MultiBandDRC_GetPara(st, out); }),
                [&](int) {
                    const int ch = r.integer();
                    float f[6];
                    r.bytes(f, sizeof f);
                    MultiBandDRC_Crossover_AdjustPara(st, ch, f[0], f[1], f[2], f[3], f[4], f[5]);
                },
                [&](int) {
                    const int ch = r.integer(), band = r.integer(), enable = r.integer();
                    float v[9];
                    r.bytes(v, sizeof v);
                    MultiBandDRC_DRC_AdjustPara(st, ch, band, enable, v[0], v[1], v[2], v[3], v[4], v[5], v[6],
                                                v[7], v[8]);
                },
                [st](int) { MultiBandDRC_PrintPara(st); }});
    MultiBandDRC_Destroy(st);
}

void fuzz_maximizer(Reader &r, const Args &a)
{
    if (too_many_channels(a.channels))
        return;
    const size_t words = 2 * eqdrc::kMaximizerBlockWords;
    const bool nullSection = (r.byte() & 0x0F) == 0;
    std::vector<float> s = section(r, words);
    MaximizerState *st =
        Maximizer_Init(nullSection ? nullptr : s.data(), a.bits, a.sampleRate, a.channels, a.frameLen, a.link);
    if (st == nullptr)
        return;
    // Either stage, picked by the operation's parity.
    const Op process = process_op(r, a, a.channels, [st](float **f, int n, int op) {
        if ((op & 1) != 0)
            Agc_Process(st, f, f, n);
        else
            Maximizer_Process(st, f, f, n);
    });
    run_ops(r, {process, process, set_op(r, words, [st](const float *s2) { Maximizer_SetPara(st, s2); }),
                get_op(words, [st](float *out) { Maximizer_GetPara(st, out); }),
                [&](int) {
                    const int ch = r.integer();
                    float v[3];
                    r.bytes(v, sizeof v);
                    Maximizer_AdjustPara(st, ch, v[0], v[1], v[2]);
                },
                [&](int) {
                    const int ch = r.integer();
                    float v[8];
                    r.bytes(v, sizeof v);
                    Agc_AdjustPara(st, ch, v[0], v[1], v[2], v[3], v[4], v[5], v[6], v[7]);
                },
                [st](int) { Maximizer_PrintPara(st); }});
    Maximizer_Destroy(st);
}

void fuzz_auto_gain(Reader &r, const Args &a)
{
    const size_t words = eqdrc::kAutoGainWords;
    auto meterTooLarge = [&](const float *s) {
        return meter_too_large(a.channels, eqdrc::to_int32(s[eqdrc::kAutoGainWindow]), a.sampleRate);
    };
    std::vector<float> s = section(r, words);
    if (meterTooLarge(s.data()))
        return;
    AutoGainState *st = AutoGain_Init(s.data(), a.bits, a.sampleRate, a.channels, a.frameLen);
    if (st == nullptr)
        return;
    run_ops(r, {process_op(
                    r, a, a.channels, [st](float **f, int n, int) { AutoGain_Process(st, f, f, n); },
                    [st](int n) { return auto_gain_frame_fatal(st, n); }),
                set_op(r, words,
                       [&](const float *s2) {
                           if (!meterTooLarge(s2))
                               AutoGain_SetPara(st, s2);
                       }),
                get_op(words, [st](float *out) { AutoGain_GetPara(st, out); }),
                [st](int) { AutoGain_PrintPara(st); }});
    AutoGain_Destroy(st);
}

// The bass enhancer, exciter and de-esser share one shape: two-channel stages with a
// per-channel block, retuned from rest.
template <class State, class Init, class Process, class SetPara, class GetPara, class Print, class Destroy>
void fuzz_enhancer(Reader &r, const Args &a, size_t words, Init init, Process process, SetPara setPara,
                   GetPara getPara, Print print, Destroy destroy)
{
    if (too_many_channels(a.channels))
        return;
    std::vector<float> s = section(r, words);
    State *st = init(s.data());
    if (st == nullptr)
        return;
    run_ops(r, {process_op(r, a, a.channels, [&](float **f, int n, int) { process(st, f, f, n); }),
                set_op(r, words, [&](const float *s2) { setPara(st, s2); }),
                get_op(words, [&](float *out) { getPara(st, out); }), [&](int) { print(st); }});
    destroy(st);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Reader r(data, size);
    const uint8_t selector = r.byte();
    Args a;
    a.bits = pick_bits(r);
    a.sampleRate = pick_rate(r);
    a.frameLen = pick_frame(r);
    const uint8_t shape = r.byte();
    a.link = (shape & 0x80) ? r.integer() : (shape & 1);
    a.channels = static_cast<int>((shape >> 1) & 7) - 1;  // -1 .. 6

    switch (selector % 7) {
    case 0: fuzz_eq10(r, a); break;
    case 1: fuzz_mbdrc(r, a); break;
    case 2: fuzz_maximizer(r, a); break;
    case 3: fuzz_auto_gain(r, a); break;
    case 4:
        fuzz_enhancer<BassEnhancerState>(
            r, a, 2 * eqdrc::kBassChannelWords,
            [&](const float *s) { return BassEnhancer_Init(s, a.bits, a.sampleRate, a.channels, a.link); },
            BassEnhancer_Process, BassEnhancer_SetPara, BassEnhancer_GetPara, BassEnhancer_PrintPara,
            BassEnhancer_Destroy);
        break;
    case 5:
        fuzz_enhancer<ExciterState>(
            r, a, 10, [&](const float *s) { return Exciter_Init(s, a.bits, a.sampleRate, a.channels, a.link); },
            Exciter_Process, Exciter_SetPara, Exciter_GetPara, Exciter_PrintPara, Exciter_Destroy);
        break;
    default:
        fuzz_enhancer<DeEsserState>(
            r, a, 10,
            [&](const float *s) { return DeEsser_Init(s, a.bits, a.sampleRate, a.channels, a.frameLen, a.link); },
            DeEsser_Process, DeEsser_SetPara, DeEsser_GetPara, DeEsser_PrintPara, DeEsser_Destroy);
        break;
    }
    return 0;
}
