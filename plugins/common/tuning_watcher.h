// Live tuning: a thread that watches a tuning file and hands every good new version to
// the audio thread. It watches the file's folder, so a new file written under a
// temporary name and renamed into place (as editors and `eqdrc tuning compile -o` do)
// is seen as well as a write in place. A version that fails to load or check is
// refused with one log line naming the file and the first error; the previous tuning
// keeps playing. A deleted file changes nothing; a removed or renamed folder is one log
// line, and the watcher takes up the folder again when it comes back.
#ifndef EQDRC_PLUGIN_TUNING_WATCHER_H
#define EQDRC_PLUGIN_TUNING_WATCHER_H

#include <memory>
#include <string>
#include <thread>

#include "record_handoff.h"

namespace eqdrc_plugin {

class TuningWatcher {
public:
    // Loads with load_tuning(path, sampleRate, channels, adapt, frameLen, ...) and
    // offers each good record to `handoff`, which must outlive the watcher. Returns null
    // with `error` set when the folder cannot be watched.
    static std::unique_ptr<TuningWatcher> start(const std::string &path, int sampleRate, int channels, bool adapt,
                                                int frameLen, RecordHandoff &handoff, std::string &error);
    ~TuningWatcher();  // stops and joins the thread
    TuningWatcher(const TuningWatcher &) = delete;
    TuningWatcher &operator=(const TuningWatcher &) = delete;

    // Versions offered and refused so far (for tests and debug logs).
    unsigned long offered() const;
    unsigned long refused() const;

private:
    struct State;
    explicit TuningWatcher(std::unique_ptr<State> state);
    static int add_watch(const State &s);
    void run();

    std::unique_ptr<State> state_;
    std::thread thread_;
};

}  // namespace eqdrc_plugin

#endif
