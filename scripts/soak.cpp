// Soak run: HOURS of generated music-like stereo through one chain, 768-sample frames
// at 48 kHz, a whole new record every RETUNE seconds (eight tunings in turn: the
// reference with gains, limiter and loudness target moved).  Per frame it checks that
// the equaliser's float frames are finite, that no frame is pinned at full scale
// (where a NaN sample ends up) and that loud input never gives an all-zero frame.
// Prints a running FNV-1a hash of the output every audio hour and at the end, so that
// two runs can be compared bit for bit.  Exit status 1 on any failed check.
//   soak RECORD HOURS [RETUNE_SECONDS]
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "tqaudio_eqdrc.h"

namespace {

constexpr int kFrame = 768;
constexpr int kChannels = 2;
constexpr int kRate = 48000;
constexpr int kLoudPeak = 3277;  // -20 dBFS

// Music-like programme: a bass line and a chord that change every half second, noise
// bursts as drums, and a level that wanders over minutes from near silence to loud.
class Programme {
public:
    void frame(int16_t *dst)
    {
        for (int i = 0; i < kFrame; ++i, ++n_) {
            const double t = static_cast<double>(n_) / kRate;
            const long beat = n_ / (kRate / 2);
            const double root = 55.0 * std::pow(2.0, static_cast<double>((beat * 5) % 12) / 12.0);
            if (n_ % (kRate / 4) == 0)
                drum_ = 1.0;
            drum_ *= 0.9993;
            seed_ = seed_ * 1664525u + 1013904223u;
            const double noise = (static_cast<double>(seed_ >> 8) / 8388608.0 - 1.0) * drum_;
            const double level = 0.02 + 0.98 * (0.5 + 0.5 * std::sin(2 * M_PI * t / 173.0));
            const double chord = std::sin(2 * M_PI * root * 4 * t) + 0.6 * std::sin(2 * M_PI * root * 5 * t) +
                                 0.4 * std::sin(2 * M_PI * root * 6 * t);
            const double bass = std::sin(2 * M_PI * root * t);
            const double l = level * (9000 * bass + 4000 * chord + 6000 * noise);
            const double r = level * (9000 * bass + 3500 * chord - 5000 * noise);
            dst[2 * i] = static_cast<int16_t>(std::fmax(-32768.0, std::fmin(32767.0, l)));
            dst[2 * i + 1] = static_cast<int16_t>(std::fmax(-32768.0, std::fmin(32767.0, r)));
        }
    }

private:
    long n_ = 0;
    uint32_t seed_ = 1;
    double drum_ = 0.0;
};

std::vector<float> retuned(const std::vector<float> &base, long n)
{
    std::vector<float> rec = base;
    rec[30] -= static_cast<float>(n % 4);        // auto gain target
    rec[20] = -0.5f * static_cast<float>(n % 8);  // pre-gain, left
    rec[400] -= 0.1f * static_cast<float>(n % 3);  // limiter threshold
    return rec;
}

}  // namespace

int main(int argc, char **argv)
{
    if (argc < 3) {
        std::fprintf(stderr, "usage: soak RECORD HOURS [RETUNE_SECONDS]\n");
        return 2;
    }
    std::vector<float> base(EQDRC_RECORD_WORDS);
    std::FILE *f = std::fopen(argv[1], "rb");
    if (f == nullptr || std::fread(base.data(), sizeof(float), base.size(), f) != base.size()) {
        std::fprintf(stderr, "soak: %s: not a tuning record\n", argv[1]);
        return 2;
    }
    std::fclose(f);
    const double hours = std::atof(argv[2]);
    const double retuneSeconds = argc > 3 ? std::atof(argv[3]) : 3.0;
    const long frames = static_cast<long>(hours * 3600.0 * kRate / kFrame);
    const long framesPerHour = 3600L * kRate / kFrame;
    const long retuneFrames = std::max(1L, static_cast<long>(retuneSeconds * kRate / kFrame));

    AudioPostState *st = AudioPost_Init(base.data(), kFrame);
    if (st == nullptr)
        return 2;
    Programme programme;
    std::vector<int16_t> in(kFrame * kChannels), out(in.size());
    std::vector<std::vector<float>> eqIn(kChannels, std::vector<float>(kFrame)), eqOut = eqIn;
    float *eqInPtrs[kChannels] = {eqIn[0].data(), eqIn[1].data()};
    float *eqOutPtrs[kChannels] = {eqOut[0].data(), eqOut[1].data()};
    uint64_t hash = 1469598103934665603ull;
    long nonFinite = 0, pinned = 0, silentLoud = 0, loud = 0, retunes = 0;
    for (long fr = 0; fr < frames; ++fr) {
        if (fr > 0 && fr % retuneFrames == 0) {
            const std::vector<float> rec = retuned(base, ++retunes);
            AudioPost_SetPara(st, rec.data(), kFrame);
        }
        programme.frame(in.data());
        AudioPost_Process(st, in.data(), out.data(), 0, kFrame);
        AudioPost_EQ10_GetData(st, eqInPtrs, eqOutPtrs);
        int inPeak = 0, outPeak = 0, fullScale = 0;
        for (size_t i = 0; i < in.size(); ++i) {
            inPeak = std::max(inPeak, std::abs(static_cast<int>(in[i])));
            outPeak = std::max(outPeak, std::abs(static_cast<int>(out[i])));
            fullScale += out[i] == 32767 || out[i] == -32768;
            const uint16_t u = static_cast<uint16_t>(out[i]);
            hash = (hash ^ (u & 0xffu)) * 1099511628211ull;
            hash = (hash ^ (u >> 8)) * 1099511628211ull;
        }
        for (int c = 0; c < kChannels; ++c)
            for (int i = 0; i < kFrame; ++i)
                nonFinite += !std::isfinite(eqIn[c][i]) || !std::isfinite(eqOut[c][i]);
        pinned += fullScale == static_cast<int>(out.size());
        if (inPeak >= kLoudPeak) {
            ++loud;
            silentLoud += outPeak == 0;
        }
        if ((fr + 1) % framesPerHour == 0 || fr + 1 == frames) {
            std::printf("soak: %.2f h, %ld retunes, hash %016llx, non-finite %ld, pinned frames %ld, "
                        "silent loud frames %ld of %ld\n",
                        static_cast<double>(fr + 1) / framesPerHour, retunes, static_cast<unsigned long long>(hash),
                        nonFinite, pinned, silentLoud, loud);
            std::fflush(stdout);
        }
    }
    AudioPost_Destroy(st);
    return nonFinite || pinned || silentLoud ? 1 : 0;
}
