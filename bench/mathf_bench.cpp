// The library's maths functions against the platform's, one call per sample over a
// stereo frame of typical arguments (detector levels for log10f, gains in dB for
// powf(10, y), time constants for expf, filter angles for the trigonometric ones).
#include <benchmark/benchmark.h>

#include <cmath>
#include <vector>

#include "bench_util.h"
#include "core/mathf.h"

namespace {

namespace mf = eqdrc::mathf;
using eqdrc_bench::kChannels;
using eqdrc_bench::kFrame;

constexpr int kSamples = kFrame * kChannels;

// kSamples arguments spread geometrically (or linearly) over [lo, hi].
std::vector<float> arguments(float lo, float hi, bool geometric)
{
    std::vector<float> v(kSamples);
    for (int i = 0; i < kSamples; ++i) {
        const double t = static_cast<double>(i * 7919 % kSamples) / kSamples;  // shuffled
        v[i] = geometric ? static_cast<float>(lo * std::pow(static_cast<double>(hi) / lo, t))
                         : static_cast<float>(lo + (hi - lo) * t);
    }
    return v;
}

template <class F>
void run(benchmark::State &state, const std::vector<float> &x, F f)
{
    std::vector<float> y(x.size());
    for (auto _ : state) {
        for (size_t i = 0; i < x.size(); ++i)
            y[i] = f(x[i]);
        benchmark::DoNotOptimize(y.data());
        benchmark::ClobberMemory();
    }
    state.counters["ns_per_sample"] =
        benchmark::Counter(static_cast<double>(x.size()) * 1e-9,
                           benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

// Both sides through volatile pointers: a real call each, not inlined into the loop (the
// library calls ours across translation units).
float our_pow10(float y) { return mf::powf(mf::kTen, y); }
float (*volatile ourLog10f)(float) = mf::log10f;
float (*volatile ourExpf)(float) = mf::expf;
float (*volatile ourPow10)(float) = our_pow10;
float (*volatile ourSinf)(float) = mf::sinf;
float (*volatile ourTanf)(float) = mf::tanf;
float (*volatile ourSinhf)(float) = mf::sinhf;
float (*volatile platformLog10f)(float) = ::log10f;
float (*volatile platformExpf)(float) = ::expf;
float (*volatile platformPowf)(float, float) = ::powf;
float (*volatile platformSinf)(float) = ::sinf;
float (*volatile platformTanf)(float) = ::tanf;
float (*volatile platformSinhf)(float) = ::sinhf;

const std::vector<float> kLevels = arguments(1.0f, 2.0e9f, true);
const std::vector<float> kDecibels = arguments(-6.0f, 2.0f, false);  // dB / 20
const std::vector<float> kExponents = arguments(-30.0f, 0.0f, false);
const std::vector<float> kAngles = arguments(1e-3f, 3.1f, true);
const std::vector<float> kSinhArguments = arguments(1e-3f, 8.0f, true);

void BM_Log10f_Ours(benchmark::State &s) { run(s, kLevels, [](float x) { return ourLog10f(x); }); }
void BM_Log10f_Platform(benchmark::State &s) { run(s, kLevels, [](float x) { return platformLog10f(x); }); }
void BM_Pow10_Ours(benchmark::State &s) { run(s, kDecibels, [](float x) { return ourPow10(x); }); }
void BM_Pow10_Platform(benchmark::State &s) { run(s, kDecibels, [](float x) { return platformPowf(10.0f, x); }); }
void BM_Expf_Ours(benchmark::State &s) { run(s, kExponents, [](float x) { return ourExpf(x); }); }
void BM_Expf_Platform(benchmark::State &s) { run(s, kExponents, [](float x) { return platformExpf(x); }); }
void BM_Sinf_Ours(benchmark::State &s) { run(s, kAngles, [](float x) { return ourSinf(x); }); }
void BM_Sinf_Platform(benchmark::State &s) { run(s, kAngles, [](float x) { return platformSinf(x); }); }
void BM_Tanf_Ours(benchmark::State &s) { run(s, kAngles, [](float x) { return ourTanf(x); }); }
void BM_Tanf_Platform(benchmark::State &s) { run(s, kAngles, [](float x) { return platformTanf(x); }); }
void BM_Sinhf_Ours(benchmark::State &s) { run(s, kSinhArguments, [](float x) { return ourSinhf(x); }); }
void BM_Sinhf_Platform(benchmark::State &s) { run(s, kSinhArguments, [](float x) { return platformSinhf(x); }); }

BENCHMARK(BM_Log10f_Ours);
BENCHMARK(BM_Log10f_Platform);
BENCHMARK(BM_Pow10_Ours);
BENCHMARK(BM_Pow10_Platform);
BENCHMARK(BM_Expf_Ours);
BENCHMARK(BM_Expf_Platform);
BENCHMARK(BM_Sinf_Ours);
BENCHMARK(BM_Sinf_Platform);
BENCHMARK(BM_Tanf_Ours);
BENCHMARK(BM_Tanf_Platform);
BENCHMARK(BM_Sinhf_Ours);
BENCHMARK(BM_Sinhf_Platform);

}  // namespace
