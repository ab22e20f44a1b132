// The frame collector: the same bits as the chain run frame by frame, whatever the block
// sizes, and a handed-over tuning applied at a reported frame.
#include <gtest/gtest.h>

#include "frame_stream.h"
#include "plugin_test_support.h"

namespace {

using namespace eqdrc_plugin;
using namespace eqdrc_plugin_test;

constexpr int kFrame = 768;

std::unique_ptr<FrameStream> make_stream(const Record &rec, RecordHandoff *handoff = nullptr, size_t capacity = 0)
{
    std::string error;
    std::unique_ptr<FrameStream> s;
    eqdrc_test::capture_stderr([&] { s = FrameStream::create(rec, kFrame, handoff, error, capacity); });
    EXPECT_TRUE(s) << error;
    return s;
}

// Pushes `in` through the FIFO form in blocks of `block`, reading as it goes, then drains.
std::vector<int16_t> through_fifo(FrameStream &s, const std::vector<int16_t> &in, size_t block)
{
    const int ch = s.channels();
    std::vector<int16_t> out, buf(block * ch);
    auto take = [&] {
        size_t got = s.read(buf.data(), block);
        out.insert(out.end(), buf.begin(), buf.begin() + got * ch);
        return got;
    };
    for (size_t at = 0, total = in.size() / ch; at < total; take())
        at += s.write(&in[at * ch], std::min(block, total - at));
    while (!s.drain())
        take();
    while (take()) {
    }
    return out;
}

TEST(FrameStreamExactness, FifoFormMatchesTheChainForEveryBlockSize)
{
    for (int channels : {2, 1}) {
        Record rec = fitted("music.json", 48000, channels);
        std::vector<int16_t> in = music(10 * kFrame + 123, channels);
        std::vector<int16_t> want = reference(rec, kFrame, in);
        for (size_t block : {1, 17, 767, 769, 4096}) {
            auto s = make_stream(rec, nullptr, block < 2 * kFrame ? 0 : 3 * block);
            EXPECT_EQ(through_fifo(*s, in, block), want) << channels << " channel(s), blocks of " << block;
        }
    }
}

TEST(FrameStreamExactness, ResetDropsThePartialFrameAndKeepsCounting)
{
    auto s = make_stream(fitted("music.json", 48000, 2), nullptr, 8 * kFrame);
    std::vector<int16_t> in = music(3 * kFrame + 10, 2);
    ASSERT_EQ(s->write(in.data(), 3 * kFrame + 10), 3u * kFrame + 10);
    EXPECT_EQ(s->frame_index(), 3);
    EXPECT_EQ(s->collected(), 10u);
    s->reset();
    EXPECT_EQ(s->collected(), 0u);
    EXPECT_EQ(s->readable(), 0u);
    EXPECT_TRUE(s->drain());  // nothing left to pad
    EXPECT_EQ(s->readable(), 0u);
    s->write(in.data(), kFrame);
    EXPECT_EQ(s->frame_index(), 4);
}

TEST(FrameStreamLiveTuning, HandedOverRecordTakesEffectAtTheReportedFrame)
{
    Record first = fitted("music.json", 48000, 2), second = fitted("loud-small-speaker.json", 48000, 2);
    RecordHandoff handoff;
    auto s = make_stream(first, &handoff, 16 * kFrame);  // room for the whole input
    long long swappedAt = -1;
    s->set_swap_callback([](void *ctx, long long frame) { *static_cast<long long *>(ctx) = frame; }, &swappedAt);
    std::vector<int16_t> in = music(12 * kFrame, 2), out(in.size());
    const size_t half = 5 * kFrame + 300, total = in.size() / 2;
    ASSERT_EQ(s->write(in.data(), half), half);
    handoff.offer(second);
    ASSERT_EQ(s->write(&in[half * 2], total - half), total - half);
    ASSERT_EQ(s->read(out.data(), total), total);
    ASSERT_EQ(swappedAt, 5);  // applied before the frame that was being collected when it came
    std::vector<int16_t> chain = reference(first, kFrame, in, &second, swappedAt);
    EXPECT_EQ(out, chain);
    EXPECT_NE(chain, reference(first, kFrame, in)) << "the second tuning must sound different";
}

TEST(FrameStreamRefusals, BadFrameLengthOrChannelCount)
{
    std::string error;
    Record rec = fitted("music.json", 48000, 2);
    EXPECT_FALSE(FrameStream::create(rec, 0, nullptr, error));
    EXPECT_NE(error.find("frame length 0"), std::string::npos) << error;
    EXPECT_FALSE(FrameStream::create(altered(rec, "header.channels", 3.0f), kFrame, nullptr, error));
    EXPECT_NE(error.find("3 channel(s)"), std::string::npos) << error;
}

}  // namespace
