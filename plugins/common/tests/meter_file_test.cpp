// The meter file: a reader copying while a writer publishes never gets a mix of two
// readings, and a reader follows the file as it appears, is replaced or is not one. (The
// plugins' tests read what the publisher copies from a running stream's tap.)
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <atomic>
#include <thread>

#include "meter_file.h"
#include "plugin_test_support.h"

namespace {

using namespace eqdrc_plugin;
using eqdrc_tool_test::ScratchDir;

// Every field holds `k`, so that a reading mixed from two writes shows.
MeterReading reading_of(uint32_t k)
{
    MeterReading r;
    AudioPostMeters &m = r.meters;
    m.frames = m.stagesRun = k;
    m.channels = m.frameLength = r.sampleRate = static_cast<int>(k);
    const float f = static_cast<float>(k);
    for (int c = 0; c < EQDRC_METER_CHANNELS; c++) {
        m.inputPeakDb[c] = m.outputPeakDb[c] = m.agcGainDb[c] = m.limiterGainDb[c] = f;
        std::fill(std::begin(m.compressorGainDb[c]), std::end(m.compressorGainDb[c]), f);
    }
    m.autoGainDb = f;
    r.handoverFrame = r.handovers = r.publishedMs = k;
    return r;
}

TEST(MeterFile, ConcurrentReadsAreNeverTorn)
{
    ScratchDir dir;
    std::string error;
    auto writer = MeterFileWriter::create(dir / "m", error);
    ASSERT_TRUE(writer) << error;
    std::atomic<bool> done{false};
    std::thread publisher([&] {
        for (uint32_t k = 1; !done.load(std::memory_order_relaxed); k++)
            writer->publish(reading_of(k));
    });
    MeterFileReader reader(dir / "m");
    unsigned long long last = 0;
    int got = 0;
    for (int i = 0; i < 20000; i++) {
        MeterReading r;
        if (!reader.read(r))
            continue;
        got++;
        uint32_t words[kMeterReadingWords], want[kMeterReadingWords];
        meter_reading_to_words(r, words);
        meter_reading_to_words(reading_of(static_cast<uint32_t>(r.meters.frames)), want);
        ASSERT_TRUE(std::equal(words, words + kMeterReadingWords, want)) << "a torn reading at " << r.meters.frames;
        ASSERT_GE(r.meters.frames, last);
        last = r.meters.frames;
    }
    done = true;
    publisher.join();
    EXPECT_GT(got, 0);
    EXPECT_GT(last, 1u) << "the reader saw the writer move on";
}

TEST(MeterFile, ReaderFollowsAFileThatAppearsIsReplacedOrIsNone)
{
    ScratchDir dir;
    const std::string path = dir / "m";
    MeterFileReader reader(path);
    MeterReading r;
    std::string why, error;
    EXPECT_FALSE(reader.read(r, &why));
    EXPECT_EQ(why, "No such file or directory");

    eqdrc_tool_test::spit(path, std::string(132, 'x'));
    EXPECT_FALSE(reader.read(r, &why));
    EXPECT_EQ(why, "not a meter file");

    auto first = MeterFileWriter::create(path, error);
    ASSERT_TRUE(first) << error;
    struct stat st {};
    ASSERT_EQ(stat(path.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0644u);
    EXPECT_EQ(st.st_size, 132);
    EXPECT_FALSE(reader.read(r, &why));
    EXPECT_EQ(why, "no reading published yet");
    first->publish(reading_of(7));
    ASSERT_TRUE(reader.read(r, &why)) << why;
    EXPECT_EQ(r.meters.frames, 7u);

    // A new writer renames its file over the old one, which the first still maps.
    auto second = MeterFileWriter::create(path, error);
    ASSERT_TRUE(second) << error;
    second->publish(reading_of(9));
    first->publish(reading_of(8));
    ASSERT_TRUE(reader.read(r, &why)) << why;
    EXPECT_EQ(r.meters.frames, 9u);
    EXPECT_EQ(dir.entries().size(), 1u) << "no temporary file left";
    EXPECT_FALSE(MeterFileWriter::create(dir / "no/such/folder/m", error));
    EXPECT_NE(error.find("no/such/folder/m: cannot create the meter file"), std::string::npos) << error;
}

}  // namespace
