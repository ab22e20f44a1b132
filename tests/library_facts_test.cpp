// What a host asks of the library itself: its version, the processing code that runs,
// and where its messages go.
#include <cstring>
#include <string>

#include "core/simd_path.h"
#include "support/test_support.h"

namespace {

using eqdrc_test::capture_stderr;

// Creating and destroying a chain, and what it printed on standard error.
std::string chain_session()
{
    const std::vector<float> rec = eqdrc_test::blank_record();
    return capture_stderr([&] { AudioPost_Destroy(AudioPost_Init(rec.data(), 256)); });
}

TEST(LibraryFacts, VersionAndProcessingCodeAgreeWithTheBanner)
{
    int major = -1, minor = -1, patch = -1;
    const std::string text = AudioPost_GetVersion(&major, &minor, &patch);
    EXPECT_EQ(text, std::to_string(major) + "." + std::to_string(minor) + "." + std::to_string(patch));
    EXPECT_EQ(AudioPost_GetVersion(nullptr, nullptr, nullptr), text);
    const std::string banner = chain_session();
    EXPECT_NE(banner.find("version: tqaudio_effect_eqdrc-" + text + "\n"), std::string::npos) << banner;
    EXPECT_NE(banner.find(std::string(", ") + AudioPost_GetProcessingCode() + " processing code"), std::string::npos)
        << banner;
#if EQDRC_SIMD_DISPATCH
    EXPECT_STREQ(AudioPost_GetProcessingCode(), eqdrc_simd::path_name(eqdrc_simd::chosen_path()));
#endif
}

TEST(LibraryFacts, LogSinkTakesEveryMessageInsteadOfStandardError)
{
    const std::string onStderr = chain_session();
    struct Received {
        std::string text;
        bool lengthsRight = true;
    } received;
    AudioPost_SetLogSink(
        [](void *user, const char *line, int length) {
            auto *r = static_cast<Received *>(user);
            r->text.append(line, static_cast<size_t>(length));
            r->lengthsRight = r->lengthsRight && std::strlen(line) == static_cast<size_t>(length);
        },
        &received);
    EXPECT_EQ(chain_session(), "");
    AudioPost_SetLogSink(nullptr, nullptr);
    EXPECT_EQ(received.text, onStderr);
    EXPECT_TRUE(received.lengthsRight);
    EXPECT_EQ(chain_session(), onStderr) << "a null sink is standard error again";
}

}  // namespace
