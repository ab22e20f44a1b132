// The library's bits do not depend on the caller's floating-point environment. Audio
// hosts set flush-to-zero and denormals-as-zero on their threads, or leave another
// rounding mode set; every call must give what it gives under the default environment
// and hand the caller's environment back untouched.
#include <cstdlib>
#include <vector>

#include "core/fp_environment.h"
#include "support/host_environment.h"
#include "support/test_support.h"

namespace {

using eqdrc_test::same_bits;

#if defined(EQDRC_HAS_FP_CONTROL)
using eqdrc::FpControl;

constexpr int kFrame = 768;
constexpr int kChannels = 2;
// Quiet music, silence, music (test.sh runs the conformance vectors under a flushing
// host too, which reach the denormal tails this signal does not).
constexpr int kQuietFrames = 40, kSilentFrames = 200, kLoudFrames = 60;

// Sets a host's environment for its lifetime; `call` checks that a call hands back the
// environment it found, status flags included.
class Host {
public:
    explicit Host(FpControl bits) : saved_(eqdrc::read_fp_control()) { eqdrc::write_fp_control(saved_ | bits); }
    ~Host() { eqdrc::write_fp_control(saved_); }

    template <class F>
    void call(F body)
    {
        const FpControl before = eqdrc::read_fp_control();
        body();
        EXPECT_EQ(eqdrc::read_fp_control(), before);
    }

private:
    FpControl saved_;
};

// Two tones at `level` (integer sample scale), frame `index` of a continuous signal.
std::vector<int16_t> music_frame(int index, float level)
{
    const std::vector<float> low = eqdrc_test::sine(kFrame, 110.0f, 48000, level, index * kFrame);
    const std::vector<float> high = eqdrc_test::sine(kFrame, 3300.0f, 48000, level / 2, index * kFrame);
    std::vector<int16_t> pcm;
    for (int i = 0; i < kFrame; i++)
        pcm.insert(pcm.end(), kChannels, static_cast<int16_t>(low[i] + high[i]));
    return pcm;
}

// Everything a host sees of a session: what is printed, the PCM out, the designer's
// coefficients and a meter's reading.
struct Session {
    std::string printed;
    std::vector<int16_t> pcm;
    std::vector<float> values;
};

// The host's input, made in the default environment.
std::vector<std::vector<int16_t>> programme()
{
    std::vector<std::vector<int16_t>> frames;
    for (int f = 0; f < kQuietFrames + kSilentFrames + kLoudFrames; f++) {
        const bool silent = f >= kQuietFrames && f < kQuietFrames + kSilentFrames;
        frames.push_back(music_frame(f, silent ? 0.0f : f < kQuietFrames ? 900.0f : 20000.0f));
    }
    return frames;
}

Session run_as(FpControl bits, const std::vector<std::vector<int16_t>> &programme)
{
    Session s;
    Host host(bits);
    setenv("TQAUDIO_EQDRC_DUMP_CONF", "true", 1);
    std::vector<float> rec = eqdrc_test::reference_record();
    AudioPostState *st = nullptr;
    s.printed = eqdrc_test::capture_stderr([&] { host.call([&] { st = AudioPost_Init(rec.data(), kFrame); }); });
    unsetenv("TQAUDIO_EQDRC_DUMP_CONF");
    std::vector<int16_t> out(kFrame * kChannels);
    for (int f = 0; f < kQuietFrames + kSilentFrames + kLoudFrames; f++) {
        if (f == kQuietFrames + kSilentFrames) {  // a retune and a nudge as music returns
            rec[100 + 3] += 1.5f;
            s.printed += eqdrc_test::capture_stderr([&] {
                host.call([&] { AudioPost_SetPara(st, rec.data(), kFrame); });
                host.call([&] { AudioPost_Maximizer_AdjustPara(st, 0, -3.1f, -0.7f, 123.4f); });
            });
        }
        host.call([&] { AudioPost_Process(st, programme[f].data(), out.data(), 0, kFrame); });
        s.pcm.insert(s.pcm.end(), out.begin(), out.end());
    }
    host.call([&] { eqdrc_test::destroy_quietly(st); });

    float coeffs[5];
    for (int type = 0; type <= ButterworthHP; type++) {
        host.call([&] { filter_calculateCoeffs(coeffs, type, 44100.0f, 1234.5f, 0.707f, -4.3f); });
        s.values.insert(s.values.end(), coeffs, coeffs + 5);
    }
    std::vector<float> samples(s.pcm.begin(), s.pcm.begin() + 48000);
    float *channel = samples.data();
    host.call([&] {
        Ebur128State *meter = ebur128_init(16, 48000, 1, 400, 100);
        ebur128_addframes(meter, &channel, 48000);
        s.values.push_back(ebur128_gatedloudness(meter));
        ebur128_destroy(meter);
    });
    return s;
}

TEST(FloatingPointEnvironment, HostsSettingsChangeNoBitAndSurviveEveryCall)
{
    const auto in = programme();
    const Session expected = run_as(0, in);
    for (const eqdrc_test::HostEnvironment &hostEnv : eqdrc_test::kHostEnvironments) {
        SCOPED_TRACE(hostEnv.name);
        const Session got = run_as(hostEnv.bits, in);
        EXPECT_EQ(got.printed, expected.printed);
        EXPECT_TRUE(got.pcm == expected.pcm);
        EXPECT_TRUE(same_bits(got.values, expected.values));
    }
}
#endif

}  // namespace
