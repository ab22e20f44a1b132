// Multi-band compressor on the shipped reference tuning: stereo, four bands with their
// dynamics on, 768-sample frames at 48 kHz.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <vector>

#include "chain/record.h"
#include "tqaudio_eqdrc.h"

namespace {

constexpr int kFs = 48000;
constexpr int kFrame = 768;
constexpr int kChannels = 2;

bool load_reference(std::vector<float> *record)
{
    record->assign(eqdrc::kRecordWords, 0.0f);
    std::FILE *f = std::fopen(EQDRC_SOURCE_DIR "/tunings/reference.bin", "rb");
    if (f == nullptr)
        return false;
    const size_t got = std::fread(record->data(), sizeof(float), eqdrc::kRecordWords, f);
    std::fclose(f);
    return got == static_cast<size_t>(eqdrc::kRecordWords);
}

void BM_MultiBandDRC_Process(benchmark::State &state)
{
    std::vector<float> record;
    if (!load_reference(&record)) {
        state.SkipWithError("tunings/reference.bin not readable");
        return;
    }
    const float *section = record.data() + eqdrc::kSectionMultiBandDrc;
    if (static_cast<int>(section[0]) != 4 || static_cast<int>(section[100]) != 4) {
        state.SkipWithError("the reference tuning no longer has four compressor bands");
        return;
    }
    MultiBandDRCState *st = MultiBandDRC_Init(section, 16, kFs, kChannels, 0);

    // A second of programme spread over all four bands at about -12 dBFS, cycled frame
    // by frame so every band's detector keeps working.
    std::vector<std::vector<float>> programme(kChannels, std::vector<float>(kFs));
    for (int c = 0; c < kChannels; c++)
        for (int i = 0; i < kFs; i++) {
            const double t = static_cast<double>(i) / kFs;
            programme[c][i] = static_cast<float>(3000.0 * std::sin(2.0 * M_PI * 90.0 * t) +
                                                 2000.0 * std::sin(2.0 * M_PI * (500.0 + 40.0 * c) * t) +
                                                 1500.0 * std::sin(2.0 * M_PI * 2200.0 * t) +
                                                 1000.0 * std::sin(2.0 * M_PI * 7000.0 * t));
        }
    std::vector<std::vector<float>> out(kChannels, std::vector<float>(kFrame));
    float *outPtrs[kChannels] = {out[0].data(), out[1].data()};
    int pos = 0;
    for (auto _ : state) {
        float *inPtrs[kChannels] = {programme[0].data() + pos, programme[1].data() + pos};
        pos = pos + 2 * kFrame > kFs ? 0 : pos + kFrame;
        MultiBandDRC_Process(st, inPtrs, outPtrs, kFrame);
        benchmark::DoNotOptimize(out[0][kFrame - 1]);
    }
    MultiBandDRC_Destroy(st);
    state.counters["ns_per_sample"] =
        benchmark::Counter(kFrame * 1e-9, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
    state.counters["x_realtime"] =
        benchmark::Counter(static_cast<double>(kFrame) / kFs, benchmark::Counter::kIsIterationInvariantRate);
}

}  // namespace

BENCHMARK(BM_MultiBandDRC_Process)->Name("MultiBandDRC_Process");
