// The library's bits do not depend on the caller's floating-point environment. Audio
// hosts set flush-to-zero and denormals-as-zero on their threads, or leave another
// rounding mode set; every call must give what it gives under the default environment
// and hand the caller's environment back untouched. (test.sh runs the conformance
// vectors under a flushing host too: they reach denormal tails this session does not.)
#include <cstdlib>
#include <vector>

#include "support/host_environment.h"
#include "support/test_support.h"

namespace {

#if defined(EQDRC_HAS_FP_CONTROL)
using eqdrc::FpControl;

constexpr int kFrame = 768;
constexpr int kChannels = 2;
constexpr int kQuietFrames = 40, kSilentFrames = 200, kLoudFrames = 60;

// Quiet music, silence, music: two tones, made in the default environment.
std::vector<std::vector<int16_t>> programme()
{
    std::vector<std::vector<int16_t>> frames;
    for (int f = 0; f < kQuietFrames + kSilentFrames + kLoudFrames; f++) {
        const float level = f < kQuietFrames ? 900.0f : f < kQuietFrames + kSilentFrames ? 0.0f : 20000.0f;
        const std::vector<float> low = eqdrc_test::sine(kFrame, 110.0f, 48000, level, f * kFrame);
        const std::vector<float> high = eqdrc_test::sine(kFrame, 3300.0f, 48000, level / 2, f * kFrame);
        frames.emplace_back();
        for (int i = 0; i < kFrame; i++)
            frames.back().insert(frames.back().end(), kChannels, static_cast<int16_t>(low[i] + high[i]));
    }
    return frames;
}

// Everything a host sees of a session: what is printed, and every number it gets back.
struct Session {
    std::string printed;
    std::vector<float> values;
};

Session run_as(FpControl hostBits, const std::vector<std::vector<int16_t>> &in)
{
    const FpControl saved = eqdrc::read_fp_control();
    eqdrc::write_fp_control(saved | hostBits);
    // Each call must hand back the environment it found, status flags included.
    auto call = [](auto body) {
        const FpControl before = eqdrc::read_fp_control();
        body();
        EXPECT_EQ(eqdrc::read_fp_control(), before);
    };
    Session s;
    std::vector<float> rec = eqdrc_test::reference_record();
    AudioPostState *st = nullptr;
    setenv("TQAUDIO_EQDRC_DUMP_CONF", "true", 1);
    s.printed = eqdrc_test::capture_stderr([&] { call([&] { st = AudioPost_Init(rec.data(), kFrame); }); });
    unsetenv("TQAUDIO_EQDRC_DUMP_CONF");
    std::vector<int16_t> out(kFrame * kChannels);
    for (size_t f = 0; f < in.size(); f++) {
        if (f == kQuietFrames + kSilentFrames) {  // a retune and a nudge as music returns
            rec[100 + 3] += 1.5f;
            s.printed += eqdrc_test::capture_stderr([&] {
                call([&] { AudioPost_SetPara(st, rec.data(), kFrame); });
                call([&] { AudioPost_Maximizer_AdjustPara(st, 0, -3.1f, -0.7f, 123.4f); });
            });
        }
        call([&] { AudioPost_Process(st, in[f].data(), out.data(), 0, kFrame); });
        s.values.insert(s.values.end(), out.begin(), out.end());
    }
    call([&] { eqdrc_test::destroy_quietly(st); });
    float coeffs[5];
    for (int type = 0; type < EQDRC_FILTER_TYPE_COUNT; type++) {
        call([&] { filter_calculateCoeffs(coeffs, type, 44100.0f, 1234.5f, 0.707f, -4.3f); });
        s.values.insert(s.values.end(), coeffs, coeffs + 5);
    }
    float *channel = s.values.data();
    call([&] {
        Ebur128State *meter = ebur128_init(16, 48000, 1, 400, 100);
        ebur128_addframes(meter, &channel, 48000);
        s.values.push_back(ebur128_gatedloudness(meter));
        ebur128_destroy(meter);
    });
    eqdrc::write_fp_control(saved);
    return s;
}

TEST(FloatingPointEnvironment, HostsSettingsChangeNoBitAndSurviveEveryCall)
{
    const auto in = programme();
    const Session expected = run_as(0, in);
    for (const eqdrc_test::HostEnvironment &host : eqdrc_test::kHostEnvironments) {
        SCOPED_TRACE(host.name);
        const Session got = run_as(host.bits, in);
        EXPECT_EQ(got.printed, expected.printed);
        EXPECT_TRUE(eqdrc_test::same_bits(got.values, expected.values));
    }
}
#endif

}  // namespace
