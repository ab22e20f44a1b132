// The tuning watcher: a file written in place and a file renamed over the tuning are
// both picked up, fitted to the stream and offered; one that fails is not.
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "plugin_test_support.h"
#include "tool_test_support.h"
#include "tuning_watcher.h"

namespace {

using namespace eqdrc_plugin;
using namespace eqdrc_plugin_test;

// Waits (at most 10 s) until `counter` reaches `count`.
template <class F>
bool wait_until(F counter, unsigned long count)
{
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (counter() < count && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    return counter() >= count;
}

TEST(TuningWatcher, OffersEachGoodVersionWrittenInPlaceOrRenamedOverIt)
{
    eqdrc_tool_test::ScratchDir dir;
    Record music = shipped_tuning("music.json"), loud = shipped_tuning("loud-small-speaker.json");
    std::string path = saved(dir / "speaker.bin", music);
    RecordHandoff handoff;
    std::string error;
    // Adapted to mono on the way, as the stream needs.
    auto watcher = TuningWatcher::start(path, 48000, 1, true, 768, handoff, error);
    ASSERT_TRUE(watcher) << error;

    eqdrc_tool_test::spit(dir / "other.bin", "not watched");
    saved(path, loud);  // in place
    ASSERT_TRUE(wait_until([&] { return watcher->offered(); }, 1));
    const Record *taken = handoff.take();
    ASSERT_NE(taken, nullptr);
    EXPECT_EQ(*taken, fitted("loud-small-speaker.json", 48000, 1));

    Record bad = altered(music, "header.bit_depth", 20.0f);
    std::string log = eqdrc_test::capture_stderr([&] {
        eqdrc_tool::write_file_atomic(path, eqdrc_tool::record_to_bytes(bad));  // renamed over it
        EXPECT_TRUE(wait_until([&] { return watcher->refused(); }, 1));
        eqdrc_tool::write_file_atomic(path, eqdrc_tool::record_to_bytes(music));
        EXPECT_TRUE(wait_until([&] { return watcher->offered(); }, 2));
    });
    EXPECT_EQ(watcher->offered(), 2u) << "the other file and the bad version are not offered";
    EXPECT_NE(log.find("eqdrc: " + path + ": error: header.bit_depth = 20"), std::string::npos) << log;
    taken = handoff.take();
    ASSERT_NE(taken, nullptr);
    EXPECT_EQ(*taken, fitted("music.json", 48000, 1));
}

TEST(TuningWatcher, MissingFolderIsReported)
{
    RecordHandoff handoff;
    std::string error;
    EXPECT_FALSE(TuningWatcher::start("/nonexistent-folder/speaker.bin", 48000, 2, false, 768, handoff, error));
    EXPECT_NE(error.find("/nonexistent-folder: cannot watch"), std::string::npos) << error;
}

}  // namespace
