// The hand-over between a control thread and the audio thread: the consumer only ever
// sees whole records, never an older one after a newer one, and always the newest.
#include <gtest/gtest.h>

#include <thread>

#include "record_handoff.h"

namespace {

using eqdrc_plugin::Record;
using eqdrc_plugin::RecordHandoff;

Record stamped(float stamp)
{
    Record rec;
    rec.fill(stamp);
    return rec;
}

TEST(RecordHandoff, ConsumerSeesOnlyTheNewestRecordOnce)
{
    RecordHandoff h;
    auto taken = [&] { const Record *r = h.take(); return r ? r->back() : 0.0f; };  // its last word, 0 for none
    EXPECT_EQ(taken(), 0.0f);
    h.offer(stamped(1.0f));
    h.offer(stamped(2.0f));
    EXPECT_EQ(taken(), 2.0f);
    EXPECT_EQ(taken(), 0.0f);
    h.offer(stamped(3.0f));
    EXPECT_EQ(taken(), 3.0f);
}

TEST(RecordHandoff, ConcurrentOffersArriveWholeAndInOrder)
{
    RecordHandoff h;
    constexpr int kOffers = 20000;
    std::thread producer([&] {
        for (int i = 1; i <= kOffers; i++)
            h.offer(stamped(static_cast<float>(i)));
    });
    float last = 0.0f;
    int torn = 0, backwards = 0;
    while (last < kOffers) {
        if (const Record *r = h.take()) {
            float v = (*r)[0];
            for (float w : *r)
                torn += w != v;
            backwards += v <= last;
            last = v;
        }
    }
    producer.join();
    EXPECT_EQ(torn, 0);
    EXPECT_EQ(backwards, 0);
}

}  // namespace
