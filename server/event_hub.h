// Server-sent events: what happened to the tuning and what the player's meters read,
// handed from the threads that learn it to every connected page. A page that falls
// behind misses the oldest events rather than holding anyone up: meters are a stream
// of current values, and a page reloads the tuning on the next "tuning" event anyway.
#ifndef EQDRC_SERVER_EVENT_HUB_H
#define EQDRC_SERVER_EVENT_HUB_H

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>

namespace eqdrc_server {

class EventHub {
public:
    static constexpr size_t kKept = 64;  // events a slow page can still catch up on

    // One event: `name` its event type, `data` one line of JSON.
    void publish(const std::string &name, const std::string &data);

    // Waits up to `wait` for events after `cursor` (0: only events from now on, for a
    // new page) and returns them as event-stream text, moving the cursor; empty when
    // none came or the hub closed.
    std::string next(unsigned long long &cursor, std::chrono::milliseconds wait);

    // Wakes every waiting page for good (the server stops).
    void close();
    bool closed() const;

private:
    struct Event {
        unsigned long long id;
        std::string text;
    };
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Event> events_;
    unsigned long long lastId_ = 0;
    bool closed_ = false;
};

}  // namespace eqdrc_server

#endif
