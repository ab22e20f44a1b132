#include "event_hub.h"

namespace eqdrc_server {

void EventHub::publish(const std::string &name, const std::string &data)
{
    {
        std::lock_guard<std::mutex> lock(mutex_);
        ++lastId_;
        events_.push_back({lastId_, "id: " + std::to_string(lastId_) + "\nevent: " + name + "\ndata: " + data + "\n\n"});
        if (events_.size() > kKept)
            events_.pop_front();
    }
    changed_.notify_all();
}

std::string EventHub::next(unsigned long long &cursor, std::chrono::milliseconds wait)
{
    std::unique_lock<std::mutex> lock(mutex_);
    if (cursor == 0)
        cursor = lastId_;
    changed_.wait_for(lock, wait, [&] { return closed_ || lastId_ > cursor; });
    std::string text;
    if (closed_)
        return text;
    for (const Event &e : events_)
        if (e.id > cursor)
            text += e.text;
    cursor = lastId_;
    return text;
}

void EventHub::close()
{
    {
        std::lock_guard<std::mutex> lock(mutex_);
        closed_ = true;
    }
    changed_.notify_all();
}

bool EventHub::closed() const
{
    std::lock_guard<std::mutex> lock(mutex_);
    return closed_;
}

}  // namespace eqdrc_server
