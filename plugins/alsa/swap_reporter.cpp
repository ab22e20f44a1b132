#include "swap_reporter.h"

#include <cstdint>
#include <sys/eventfd.h>
#include <unistd.h>

#include "log.h"

namespace eqdrc_alsa {

SwapReporter::SwapReporter(std::string tuning) : tuning_(std::move(tuning))
{
    fd_ = ::eventfd(0, EFD_CLOEXEC);
    if (fd_ >= 0)
        thread_ = std::thread([this] { run(); });
}

SwapReporter::~SwapReporter()
{
    if (fd_ < 0)
        return;
    stopping_ = true;
    signal();
    thread_.join();
    ::close(fd_);
}

void SwapReporter::on_swap(void *self, long long frame)
{
    auto *r = static_cast<SwapReporter *>(self);
    r->frame_.store(frame, std::memory_order_relaxed);
    r->signal();
}

void SwapReporter::signal()
{
    uint64_t one = 1;
    if (::write(fd_, &one, sizeof one) < 0) {
        // Only a counter overflow fails, and that cannot happen one swap at a time.
    }
}

void SwapReporter::run()
{
    uint64_t count;
    while (::read(fd_, &count, sizeof count) == sizeof count && !stopping_)
        eqdrc_plugin::log_line("%s: new tuning took effect at frame %lld", tuning_.c_str(), frame_.load());
}

}  // namespace eqdrc_alsa
