// A real-time safety probe for tests: an executable that links realtime_probe.cpp
// defines the allocator, the C++ allocation operators, the mutex calls, file and socket
// I/O and the sleeps itself. Shared objects (the library, a plugin the test loads) bind
// their calls to these definitions, which count a call while the calling thread is
// "armed" and forward it to the C library. Sanitizer builds replace the same functions:
// there nothing is interposed and the tests that rely on it skip.
#ifndef EQDRC_TESTS_REALTIME_PROBE_H
#define EQDRC_TESTS_REALTIME_PROBE_H

#include <array>
#include <functional>
#include <string>

#include <gtest/gtest.h>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define EQDRC_RT_INTERPOSED 0
#else
#define EQDRC_RT_INTERPOSED 1
#endif

namespace eqdrc_test {

enum Kind { kAlloc, kLock, kIo, kSleep, kKinds };
using RealtimeCalls = std::array<int, kKinds>;

// The calls `body` makes on this thread, by kind.
RealtimeCalls calls_during(const std::function<void()> &body);

// "none", or each kind's count.
std::string describe(const RealtimeCalls &c);

// Whether calls are counted: not in sanitizer builds, nor under valgrind, which replaces
// the allocator of the executable too.
bool probe_counts();

}  // namespace eqdrc_test

#define EXPECT_REALTIME_SAFE(what, body) \
    EXPECT_EQ(eqdrc_test::describe(eqdrc_test::calls_during([&] { body; })), "none") << (what)

#endif
