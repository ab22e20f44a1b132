// Fuzz target: the shared primitives with arbitrary arguments: the filter designer,
// the gain curves and table lookup, the crossover bank, the loudness meter and the
// level detector.  A selector byte picks one; its arguments follow.
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "meters/level_detector.h"
#include "filters/crossover.h"
#include "filters/gain_table.h"
#include "fuzz_support.h"
#include "tqaudio_eqdrc.h"

namespace {

using namespace eqdrc_fuzz;

constexpr int kMaxFrame = 2048;
constexpr int kMaxChannels = 8;

void fuzz_designer(Reader &r)
{
    const int type = (r.byte() & 0x80) ? r.integer() : r.byte() % 8;
    const float fs = r.real(), fc = r.real(), q = r.real(), gain = r.real();
    if (designer_type_fatal(type))
        return;
    float c[5];
    filter_calculateCoeffs(c, type, fs, fc, q, gain);
    // The section must be runnable whatever the design gave (NaN and infinities included).
    float z[2] = {};
    for (int i = 0; i < 8; i++)
        update_biquad_filter(c, z, r.real());
    BiquadState *b = biquad_init();
    biquad_setCoefficients(b, c);
    biquad_processAudioSample(b, r.real());
    biquad_1st_processAudioSample(b, r.real());
    biquad_reset(b);
    biquad_destroy(b);
}

void fuzz_tables(Reader &r)
{
    const int knee = r.integer();
    float v[7];
    r.bytes(v, sizeof v);
    table_caculate(knee, v[0], v[1], v[2], v[3], v[4], v[5]);
    max_table_caculate(knee, v[0], v[6]);

    // A table as the stages build it, then lookups at arbitrary levels.
    float table[eqdrc::kGainTableSize];
    const eqdrc::GainTableGrid grid = eqdrc::build_gain_table(
        table, v[1] - 4.0f, 0.0f,
        [&](float x) { return eqdrc::expander_compressor_curve(eqdrc::kGainCurveKnee, x, v[1], v[2], v[3], v[4], v[5]); },
        eqdrc::GainFloorTest::kFloat);
    for (int i = 0; i < 4; i++)
        table_search(eqdrc::kGainTableLast, table, r.real(), grid.x0, grid.scale);
    // The caller's own table and grid: `last` entries plus one.
    const int last = r.in_range(0, 300);
    std::vector<float> own(static_cast<size_t>(last) + 1, 1.0f);
    const float x0 = r.real(), scale = r.real();
    for (int i = 0; i < 4; i++)
        table_search(last, own.data(), r.real(), x0, scale);
}

void fuzz_crossover(Reader &r)
{
    const int rate = (r.byte() & 0x80) ? r.integer() : 48000;
    const int channels = r.in_range(-1, kMaxChannels);
    const bool defaults = (r.byte() & 0x0F) == 0;
    CrossoverParam *param = Filters_Crossover_paramInit();
    param->bandMode = (r.byte() & 0x80) ? r.integer() : r.byte() % 4;
    r.bytes(param->freq, sizeof param->freq);
    CrossoverState *st = Filters_Crossover_filterInit(rate, channels, defaults ? nullptr : param);
    const int bands = eqdrc::crossover_bands(defaults ? 0 : param->bandMode);
    const size_t ch = static_cast<size_t>(channels > 0 ? channels : 0);
    std::vector<float> in(ch + 1), out(ch * static_cast<size_t>(bands) + 1);
    const int samples = r.in_range(0, 256);
    for (int i = 0; i < samples && r.remaining() > 0; i++) {
        for (float &x : in)
            x = r.real();
        Filters_Crossover_filterProcess(st, in.data(), out.data());
        if (r.byte() == 0x5A) {  // now and then, new corners (the mode stays)
            r.bytes(param->freq, sizeof param->freq);
            Filters_Crossover_filterSetParam(st, param);
        }
    }
    Filters_Crossover_filterDestroy(st);
    std::free(param);
}

void fuzz_meter(Reader &r)
{
    static const int kBits[] = {16, 24, 32, 16, 24, 32, 12, 0};
    const int bits = kBits[r.byte() & 7];
    const int rate = (r.byte() & 0x80) ? r.integer() : 48000;
    const int channels = r.in_range(-1, kMaxChannels);
    const int windowMs = r.integer(), stepMs = r.integer();
    if (meter_too_large(channels, windowMs, rate))
        return;
    Ebur128State *m = ebur128_init(bits, rate, channels, windowMs, stepMs);
    if (m == nullptr)
        return;
    const size_t ch = static_cast<size_t>(channels > 0 ? channels : 0);
    for (int f = 0; f < 8 && r.remaining() > 0; f++) {
        const int n = r.in_range(0, kMaxFrame);
        std::vector<std::vector<float>> buf(ch, std::vector<float>(static_cast<size_t>(n) + 1));
        std::vector<float *> ptrs(ch + 1);
        const float fill = r.real();
        for (size_t c = 0; c < ch; c++) {
            ptrs[c] = buf[c].data();
            for (int i = 0; i < n; i++)
                buf[c][i] = (i & 1) ? fill : r.real();
        }
        ebur128_addframes(m, ptrs.data(), n);
        ebur128_gatedloudness(m);
    }
    ebur128_destroy(m);
}

void fuzz_level_detector(Reader &r)
{
    const int bits = (r.byte() & 0x80) ? r.integer() : 16;
    const int rate = (r.byte() & 0x80) ? r.integer() : 48000;
    const int channels = r.in_range(-1, kMaxChannels);
    const int frameLen = r.in_range(-1, kMaxFrame);
    LevelDetectorState *st = LevelDetector_Init(bits, rate, channels, frameLen);
    const size_t stride = static_cast<size_t>(channels > 0 ? channels : 1);
    for (int op = 0; op < 8 && r.remaining() > 0; op++) {
        switch (r.byte() % 3) {
        case 0: {
            float bands[eqdrc::kLevelBandWords];
            r.bytes(bands, sizeof bands);
            const bool keepBands = (r.byte() & 3) == 0;
            const float rmstc = r.real(), hold = r.real(), decay = r.real();
            LevelDetector_SetPara(st, keepBands ? nullptr : bands, rmstc, hold, decay);
            break;
        }
        case 1: {
            // n frames of `channels` interleaved samples; only the first channel is read.
            const int n = r.in_range(-1, kMaxFrame);
            std::vector<int16_t> pcm(static_cast<size_t>(n > 0 ? n : 0) * stride + 1);
            for (size_t i = 0; i < pcm.size() && r.remaining() > 0; i++)
                pcm[i] = r.take<int16_t>();
            LevelDetector_Process(st, pcm.data(), n);
            break;
        }
        default: {
            LevelDetectorResult res;
            LevelDetector_GetRes(st, &res);
            break;
        }
        }
    }
    LevelDetector_Destroy(st);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Reader r(data, size);
    switch (r.byte() % 5) {
    case 0: fuzz_designer(r); break;
    case 1: fuzz_tables(r); break;
    case 2: fuzz_crossover(r); break;
    case 3: fuzz_meter(r); break;
    default: fuzz_level_detector(r); break;
    }
    return 0;
}
