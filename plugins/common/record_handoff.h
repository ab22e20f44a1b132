// Hands a tuning record from a control thread to the audio thread without a lock: a
// triple buffer. The producer fills its own slot and swaps it with the middle one; the
// consumer swaps the middle slot with its own only when it holds something new. Neither
// side ever waits for the other.
#ifndef EQDRC_PLUGIN_RECORD_HANDOFF_H
#define EQDRC_PLUGIN_RECORD_HANDOFF_H

#include <atomic>
#include <cstdint>

#include "tuning_source.h"

namespace eqdrc_plugin {

class RecordHandoff {
public:
    RecordHandoff() = default;
    RecordHandoff(const RecordHandoff &) = delete;
    RecordHandoff &operator=(const RecordHandoff &) = delete;

    // Control thread only (one producer). A record offered before the previous one was
    // taken replaces it: the audio thread only ever sees the newest.
    void offer(const Record &rec);

    // Audio thread only (one consumer); wait-free, no allocation. The newest record
    // offered and not yet taken, or null; valid until the next take().
    const Record *take();

private:
    static constexpr uint8_t kIndexMask = 3;
    static constexpr uint8_t kFresh = 4;  // the middle slot holds a record not yet taken

    Record slots_[3]{};
    uint8_t producer_ = 0;                // producer's own slot
    uint8_t consumer_ = 1;                // consumer's own slot
    std::atomic<uint8_t> middle_{2};      // slot index | kFresh
};

}  // namespace eqdrc_plugin

#endif
