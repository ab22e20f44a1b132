#include "record_handoff.h"

namespace eqdrc_plugin {

void RecordHandoff::offer(const Record &rec)
{
    slots_[producer_] = rec;
    // release: the record's words are visible before the consumer can pick the slot up.
    uint8_t old = middle_.exchange(static_cast<uint8_t>(producer_ | kFresh), std::memory_order_acq_rel);
    producer_ = old & kIndexMask;
}

const Record *RecordHandoff::take()
{
    if (!(middle_.load(std::memory_order_relaxed) & kFresh))
        return nullptr;
    // acquire: pairs with offer()'s release, so the slot's words are complete.
    uint8_t old = middle_.exchange(consumer_, std::memory_order_acq_rel);
    consumer_ = old & kIndexMask;
    return &slots_[consumer_];
}

}  // namespace eqdrc_plugin
