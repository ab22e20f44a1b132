// Tunings fitted to a stream: a mismatch is refused naming both values unless adapting,
// and a record the check rejects is refused on its first error with the file's name.
#include <gtest/gtest.h>

#include "plugin_test_support.h"
#include "tuning_source.h"

namespace {

using namespace eqdrc_plugin;
using eqdrc_plugin_test::shipped_tuning;

TEST(TuningSource, JsonAndBinaryTuningsRead)
{
    Record rec;
    std::string error;
    EXPECT_TRUE(load_tuning(std::string(EQDRC_SOURCE_DIR) + "/tunings/reference.bin", 48000, 2, false, 768, rec,
                            error))
        << error;
    EXPECT_TRUE(load_tuning(std::string(EQDRC_SOURCE_DIR) + "/tunings/music.json", 48000, 2, false, 768, rec, error))
        << error;
    EXPECT_EQ(tuning_format(rec).sampleRate, 48000);
    EXPECT_FALSE(read_tuning_file("/nonexistent/speaker.bin", rec, error));
    EXPECT_NE(error.find("/nonexistent/speaker.bin"), std::string::npos) << error;
}

TEST(TuningSource, MismatchRefusedNamingBothValuesUnlessAdapting)
{
    Record raw = shipped_tuning("music.json"), out;
    std::string error;
    EXPECT_FALSE(fit_tuning(raw, "music.json", 44100, 2, false, 768, out, error));
    EXPECT_NE(error.find("48000 Hz"), std::string::npos) << error;
    EXPECT_NE(error.find("44100 Hz"), std::string::npos) << error;
    EXPECT_FALSE(fit_tuning(raw, "music.json", 48000, 1, false, 768, out, error));
    EXPECT_NE(error.find("2 channel(s), the stream has 1"), std::string::npos) << error;

    ASSERT_TRUE(fit_tuning(raw, "music.json", 44100, 1, true, 768, out, error)) << error;
    EXPECT_EQ(tuning_format(out).sampleRate, 44100);
    EXPECT_EQ(tuning_format(out).channels, 1);
}

TEST(TuningSource, FirstCheckErrorRefusesTheRecord)
{
    Record raw = shipped_tuning("music.json"), out;
    raw[eqdrc_tool::Layout::embedded().word("header.bit_depth")] = 20.0f;
    std::string error;
    EXPECT_FALSE(fit_tuning(raw, "bad.json", 48000, 2, false, 768, out, error));
    EXPECT_EQ(error.rfind("bad.json: error: header.bit_depth = 20", 0), 0u) << error;
}

}  // namespace
