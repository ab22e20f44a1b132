#include "meter_publisher.h"

#include <time.h>

#include <chrono>

namespace eqdrc_plugin {

std::unique_ptr<MeterPublisher> MeterPublisher::start(const std::string &path, FrameStream &stream, int sampleRate,
                                                      std::string &error)
{
    std::unique_ptr<MeterFileWriter> writer = MeterFileWriter::create(path, error);
    if (!writer)
        return nullptr;
    stream.enable_meter_tap();
    return std::unique_ptr<MeterPublisher>(new MeterPublisher(std::move(writer), stream, sampleRate));
}

MeterPublisher::MeterPublisher(std::unique_ptr<MeterFileWriter> writer, const FrameStream &stream, int sampleRate)
    : writer_(std::move(writer)), stream_(stream), sampleRate_(sampleRate)
{
    publish();  // readers see the fresh stream at once
    thread_ = std::thread([this] { run(); });
}

MeterPublisher::~MeterPublisher()
{
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_one();
    thread_.join();
    publish();  // the frames processed since the last round
}

void MeterPublisher::run()
{
    std::unique_lock<std::mutex> lock(mutex_);
    while (!wake_.wait_for(lock, std::chrono::milliseconds(kPeriodMs), [this] { return stopping_; }))
        publish();
}

void MeterPublisher::publish()
{
    MeterReading r;
    if (!stream_.read_meters(r))
        return;
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    r.sampleRate = sampleRate_;
    r.publishedMs = static_cast<unsigned long long>(now.tv_sec) * 1000u +
                    static_cast<unsigned long long>(now.tv_nsec) / 1000000u;
    writer_->publish(r);
}

}  // namespace eqdrc_plugin
