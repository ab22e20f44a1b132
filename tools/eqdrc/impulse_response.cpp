// KissFFT (BSD licence, plain C with no plans or run-time code choice) rather than FFTW
// (GPL, which would bind the tool, and whose planner may pick different code paths per
// machine): one transform per run needs no more speed, and the same bits come out everywhere.
#include "impulse_response.h"

#include <algorithm>
#include <cmath>
#include <kiss_fftr.h>
#include <memory>
#include <type_traits>
#include <sndfile.h>
#include <vector>

#include "layout.h"

namespace eqdrc_tool {
namespace {

constexpr double kMagnitudeFloor = 1e-9;  // -180 dB: a zero of the spectrum, not a level

struct SndCloser {
    void operator()(SNDFILE *f) const { sf_close(f); }
};
struct FftFree {
    void operator()(kiss_fftr_cfg cfg) const { kiss_fftr_free(cfg); }
};

}  // namespace

bool is_sound_file(const std::string &path)
{
    SF_INFO info{};
    std::unique_ptr<SNDFILE, SndCloser> f(sf_open(path.c_str(), SFM_READ, &info));
    return f != nullptr;
}

eqdrc_fit::Curve impulse_response_curve(const std::string &path)
{
    SF_INFO info{};
    std::unique_ptr<SNDFILE, SndCloser> f(sf_open(path.c_str(), SFM_READ, &info));
    if (!f || info.channels < 1 || info.frames < 1)
        throw Error(path + ": not a readable impulse response (" + sf_strerror(f.get()) + ")");
    std::vector<float> frames(static_cast<size_t>(info.frames) * static_cast<size_t>(info.channels));
    const sf_count_t got = sf_readf_float(f.get(), frames.data(), info.frames);

    // Zero-padded to an even length KissFFT's real transform takes at its fastest.
    size_t n = 2;
    while (n < static_cast<size_t>(got))
        n *= 2;
    std::vector<float> ir(n, 0.0f);
    float peak = 0.0f;
    for (sf_count_t i = 0; i < got; ++i) {
        ir[static_cast<size_t>(i)] = frames[static_cast<size_t>(i) * static_cast<size_t>(info.channels)];
        peak = std::max(peak, std::fabs(ir[static_cast<size_t>(i)]));
    }
    if (!(peak >= kSilentIrPeak))
        throw Error(path + ": the impulse response is silent (peak below -120 dBFS)");

    std::unique_ptr<std::remove_pointer_t<kiss_fftr_cfg>, FftFree> cfg(
        kiss_fftr_alloc(static_cast<int>(n), 0, nullptr, nullptr));
    std::vector<kiss_fft_cpx> spectrum(n / 2 + 1);
    kiss_fftr(cfg.get(), ir.data(), spectrum.data());

    eqdrc_fit::Curve curve;
    for (size_t k = 1; k < n / 2; ++k) {
        const double magnitude = std::hypot(double(spectrum[k].r), double(spectrum[k].i));
        curve.hz.push_back(static_cast<double>(k) * info.samplerate / static_cast<double>(n));
        curve.db.push_back(20.0 * std::log10(std::max(magnitude, kMagnitudeFloor)));
    }
    eqdrc_fit::check_curve(curve, path);
    return curve;
}

}  // namespace eqdrc_tool
