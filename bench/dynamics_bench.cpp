// Automatic gain control followed by the maximizer, as the chain runs them, on the
// shipped reference tuning: stereo, 768-sample frames at 48 kHz.
#include <benchmark/benchmark.h>

#include <algorithm>
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

void BM_AgcMaximizer_Process(benchmark::State &state)
{
    std::vector<float> record;
    if (!load_reference(&record)) {
        state.SkipWithError("tunings/reference.bin not readable");
        return;
    }
    MaximizerState *st = Maximizer_Init(record.data() + eqdrc::kSectionMaximizer, 16, kFs, kChannels, kFrame, 0);

    // A second of programme whose level swings over 30 dB twice a second, so that both
    // the AGC's paths and the limiter's attack and release all run.
    std::vector<std::vector<float>> programme(kChannels, std::vector<float>(kFs));
    for (int c = 0; c < kChannels; c++)
        for (int i = 0; i < kFs; i++) {
            const double envelope = std::pow(10.0, (-20.0 + 15.0 * std::sin(2.0 * M_PI * 2.0 * i / kFs)) / 20.0);
            programme[c][i] =
                static_cast<float>(32768.0 * envelope * std::sin(2.0 * M_PI * (220.0 + 110.0 * c) * i / kFs));
        }
    std::vector<std::vector<float>> buf(kChannels, std::vector<float>(kFrame));
    float *ptrs[kChannels] = {buf[0].data(), buf[1].data()};
    int pos = 0;
    for (auto _ : state) {
        for (int c = 0; c < kChannels; c++)
            std::copy(programme[c].begin() + pos, programme[c].begin() + pos + kFrame, buf[c].begin());
        pos = pos + 2 * kFrame > kFs ? 0 : pos + kFrame;
        Agc_Process(st, ptrs, ptrs, kFrame);
        Maximizer_Process(st, ptrs, ptrs, kFrame);
        benchmark::DoNotOptimize(buf[1][kFrame - 1]);
    }
    Maximizer_Destroy(st);
    state.counters["ns_per_sample"] =
        benchmark::Counter(kFrame * 1e-9, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
    state.counters["x_realtime"] =
        benchmark::Counter(static_cast<double>(kFrame) / kFs, benchmark::Counter::kIsIterationInvariantRate);
}

}  // namespace

BENCHMARK(BM_AgcMaximizer_Process)->Name("Agc_Process+Maximizer_Process");
