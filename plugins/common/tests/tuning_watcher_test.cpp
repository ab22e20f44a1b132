// The tuning watcher: a file written in place and a file renamed over the tuning are
// both picked up, fitted to the stream and offered; one that fails is not.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
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

// Whatever happens to the file or its folder, nothing but a good tuning is offered, each
// event costs at most one log line, and a good file brings the watcher back.
TEST(TuningWatcher, KeepsTheTuningThroughEveryFaultAndRecovers)
{
    eqdrc_tool_test::ScratchDir dir;
    const std::string folder = dir / "tunings", path = folder + "/speaker.bin";
    ASSERT_EQ(::mkdir(folder.c_str(), 0755), 0);
    Record music = shipped_tuning("music.json"), loud = shipped_tuning("loud-small-speaker.json");
    saved(path, music);
    RecordHandoff handoff;
    std::string error;
    auto watcher = TuningWatcher::start(path, 48000, 2, false, 768, handoff, error);
    ASSERT_TRUE(watcher) << error;
    auto refused = [&] { return watcher->refused(); };
    auto offered = [&] { return watcher->offered(); };

    std::string log = eqdrc_test::capture_stderr([&] {
        ::unlink(path.c_str());  // deleted: nothing to say
        ASSERT_EQ(::mkdir((folder + "/d").c_str(), 0755), 0);
        ASSERT_EQ(::rename((folder + "/d").c_str(), path.c_str()), 0);  // a folder under its name
        ASSERT_TRUE(wait_until(refused, 1));
        ::rmdir(path.c_str());
        // Unreadable even for root: a link to itself.
        ASSERT_EQ(::symlink("speaker.bin", (folder + "/loop").c_str()), 0);
        ASSERT_EQ(::rename((folder + "/loop").c_str(), path.c_str()), 0);
        ASSERT_TRUE(wait_until(refused, 2));
        ::unlink(path.c_str());
        // Cut short in place: the first close sees half a record.
        eqdrc_tool_test::spit(path, eqdrc_tool::record_to_bytes(loud).substr(0, 1000));
        ASSERT_TRUE(wait_until(refused, 3));
        saved(path, loud);
        ASSERT_TRUE(wait_until(offered, 1));
        // The folder goes, and comes back with a good tuning.
        ::unlink(path.c_str());
        ASSERT_EQ(::rmdir(folder.c_str()), 0);
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        ASSERT_EQ(::mkdir(folder.c_str(), 0755), 0);
        eqdrc_tool::write_file_atomic(path, eqdrc_tool::record_to_bytes(music));
        ASSERT_TRUE(wait_until(offered, 2));
    });
    EXPECT_EQ(watcher->refused(), 3u);
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 5) << log;  // three refusals, gone, back
    EXPECT_NE(log.find("the folder is gone"), std::string::npos) << log;
    const Record *taken = handoff.take();
    ASSERT_NE(taken, nullptr);
    EXPECT_EQ(*taken, fitted("music.json", 48000, 2));
}

TEST(TuningWatcher, MissingFolderIsReported)
{
    RecordHandoff handoff;
    std::string error;
    EXPECT_FALSE(TuningWatcher::start("/nonexistent-folder/speaker.bin", 48000, 2, false, 768, handoff, error));
    EXPECT_NE(error.find("/nonexistent-folder: cannot watch"), std::string::npos) << error;
}

}  // namespace
