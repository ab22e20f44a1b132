// The reporting thread behind a plugin's `meters` setting: about twenty times a second it
// copies the newest reading from a FrameStream's meter tap, stamps it with the stream's
// rate and the wall-clock time, and publishes it to a meter file. The audio thread only
// fills the tap; the file is written here.
#ifndef EQDRC_PLUGIN_METER_PUBLISHER_H
#define EQDRC_PLUGIN_METER_PUBLISHER_H

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "frame_stream.h"
#include "meter_file.h"

namespace eqdrc_plugin {

class MeterPublisher {
public:
    static constexpr int kPeriodMs = 50;

    // Creates the file at `path`, turns on the tap of `stream` (which must outlive the
    // publisher and not run yet) and starts the thread. Returns null with `error` set
    // when the file cannot be made.
    static std::unique_ptr<MeterPublisher> start(const std::string &path, FrameStream &stream, int sampleRate,
                                                 std::string &error);
    // Publishes a last reading, then stops and joins the thread.
    ~MeterPublisher();
    MeterPublisher(const MeterPublisher &) = delete;
    MeterPublisher &operator=(const MeterPublisher &) = delete;

private:
    MeterPublisher(std::unique_ptr<MeterFileWriter> writer, const FrameStream &stream, int sampleRate);
    void run();
    void publish();

    std::unique_ptr<MeterFileWriter> writer_;
    const FrameStream &stream_;
    const int sampleRate_;
    std::mutex mutex_;
    std::condition_variable wake_;
    bool stopping_ = false;
    std::thread thread_;
};

}  // namespace eqdrc_plugin

#endif
