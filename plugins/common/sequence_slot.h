// A value of `Words` 32-bit words that one writer replaces and any number of readers copy,
// neither side waiting for the other (a sequence lock). The writer makes the counter odd,
// stores the words and makes it even again; a reader copies the words between two loads
// of the counter and retries when it was odd or changed.
//
// Every shared word is an atomic of its own, stored and loaded relaxed, with the ordering
// from the counter and two fences, so that no access is a data race (ThreadSanitizer
// agrees). The layout is plain 32-bit words, lock-free on every target and readable from
// a read-only mapping (a 64-bit atomic load is a compare-and-swap on some 32-bit
// targets), so the same slot serves in process memory and inside a shared file.
#ifndef EQDRC_PLUGIN_SEQUENCE_SLOT_H
#define EQDRC_PLUGIN_SEQUENCE_SLOT_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace eqdrc_plugin {

template <size_t Words>
class SequenceSlot {
public:
    static constexpr size_t kWords = Words;

    // One writer at a time; wait-free, no allocation.
    void write(const uint32_t (&words)[Words])
    {
        const uint32_t s = sequence_.load(std::memory_order_relaxed);
        sequence_.store(s + 1, std::memory_order_relaxed);
        std::atomic_thread_fence(std::memory_order_release);  // the odd count before any word
        for (size_t i = 0; i < Words; i++)
            words_[i].store(words[i], std::memory_order_relaxed);
        // 0 means "never written": the count skips it when it wraps.
        sequence_.store(s + 2 == 0 ? 2 : s + 2, std::memory_order_release);
    }

    // Whether anything was ever written.
    bool written() const { return sequence_.load(std::memory_order_acquire) != 0; }

    // Copies a consistent value into `out`, trying at most `attempts` times; false when
    // nothing was ever written or every attempt met a write under way.
    bool read(uint32_t (&out)[Words], int attempts) const
    {
        for (int a = 0; a < attempts; a++) {
            const uint32_t before = sequence_.load(std::memory_order_acquire);
            if (before == 0)
                return false;
            if (before & 1u)
                continue;
            for (size_t i = 0; i < Words; i++)
                out[i] = words_[i].load(std::memory_order_relaxed);
            std::atomic_thread_fence(std::memory_order_acquire);  // the words before the second count
            if (sequence_.load(std::memory_order_relaxed) == before)
                return true;
        }
        return false;
    }

private:
    std::atomic<uint32_t> sequence_{0};
    std::atomic<uint32_t> words_[Words]{};
};

// The slot is laid over a file's bytes: it must be nothing but its words.
static_assert(std::atomic<uint32_t>::is_always_lock_free, "32-bit atomics must be lock-free");
static_assert(sizeof(std::atomic<uint32_t>) == sizeof(uint32_t), "an atomic word must be a plain word");
static_assert(sizeof(SequenceSlot<3>) == 4 * sizeof(uint32_t) && std::is_standard_layout_v<SequenceSlot<3>>,
              "a slot is its counter followed by its words");

}  // namespace eqdrc_plugin

#endif
