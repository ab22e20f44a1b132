// Auto gain (and the loudness meter inside it) on the shipped reference tuning:
// stereo, 768-sample frames at 48 kHz, 400 ms window, 100 ms step.
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

void BM_AutoGain_Process(benchmark::State &state)
{
    std::vector<float> record;
    if (!load_reference(&record)) {
        state.SkipWithError("tunings/reference.bin not readable");
        return;
    }
    float *section = record.data() + eqdrc::kSectionAutoGain;
    section[3] = 400.0f;  // the reference's own window and step, pinned
    section[4] = 100.0f;
    AutoGainState *st = AutoGain_Init(section, 16, kFs, kChannels, kFrame);

    // A second of a two-tone programme at about -20 dBFS, cycled frame by frame.
    std::vector<std::vector<float>> programme(kChannels, std::vector<float>(kFs));
    for (int c = 0; c < kChannels; c++)
        for (int i = 0; i < kFs; i++)
            programme[c][i] = static_cast<float>(2000.0 * std::sin(2.0 * M_PI * 220.0 * i / kFs) +
                                                 1000.0 * std::sin(2.0 * M_PI * (3000.0 + 500.0 * c) * i / kFs));
    std::vector<std::vector<float>> out(kChannels, std::vector<float>(kFrame));
    float *outPtrs[kChannels] = {out[0].data(), out[1].data()};
    int pos = 0;
    for (auto _ : state) {
        float *inPtrs[kChannels] = {programme[0].data() + pos, programme[1].data() + pos};
        pos = pos + 2 * kFrame > kFs ? 0 : pos + kFrame;
        AutoGain_Process(st, inPtrs, outPtrs, kFrame);
        benchmark::DoNotOptimize(out[0][kFrame - 1]);
    }
    AutoGain_Destroy(st);
    state.counters["ns_per_sample"] =
        benchmark::Counter(kFrame * 1e-9, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
    state.counters["x_realtime"] =
        benchmark::Counter(static_cast<double>(kFrame) / kFs, benchmark::Counter::kIsIterationInvariantRate);
}

}  // namespace

BENCHMARK(BM_AutoGain_Process)->Name("AutoGain_Process");
