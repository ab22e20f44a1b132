// Under the `debug` option, one log line per tuning hand-over with its frame index.
// The audio thread only stores the index and signals an eventfd (no allocation, no
// lock, no file); a thread of its own writes the line.
#ifndef EQDRC_ALSA_SWAP_REPORTER_H
#define EQDRC_ALSA_SWAP_REPORTER_H

#include <atomic>
#include <string>
#include <thread>

namespace eqdrc_alsa {

class SwapReporter {
public:
    explicit SwapReporter(std::string tuning);
    ~SwapReporter();
    SwapReporter(const SwapReporter &) = delete;
    SwapReporter &operator=(const SwapReporter &) = delete;

    // A FrameStream swap callback; `self` is the reporter.
    static void on_swap(void *self, long long frame);

private:
    void signal();
    void run();

    std::string tuning_;
    int fd_ = -1;
    std::atomic<long long> frame_{-1};
    std::atomic<bool> stopping_{false};
    std::thread thread_;
};

}  // namespace eqdrc_alsa

#endif
