#include "tuning_watcher.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

#include "log.h"

namespace eqdrc_plugin {

namespace {

// How often a folder that went away is looked for again.
constexpr int kRewatchMs = 250;

}  // namespace

struct TuningWatcher::State {
    std::string path, folder, name;
    int sampleRate = 0, channels = 0, frameLen = 0;
    bool adapt = false;
    RecordHandoff *handoff = nullptr;
    int inotifyFd = -1;
    int stopFd = -1;
    int watch = -1;  // the folder's watch; -1 while the folder is gone
    std::atomic<unsigned long> offered{0};
    std::atomic<unsigned long> refused{0};

    ~State()
    {
        if (inotifyFd >= 0)
            ::close(inotifyFd);
        if (stopFd >= 0)
            ::close(stopFd);
    }
};

// The folder's own removal or renaming ends its watch; the watcher then looks for the
// folder by its name again.
int TuningWatcher::add_watch(const State &s)
{
    return ::inotify_add_watch(s.inotifyFd, s.folder.c_str(), IN_CLOSE_WRITE | IN_MOVED_TO | IN_DELETE_SELF |
                                                                  IN_MOVE_SELF | IN_ONLYDIR);
}

std::unique_ptr<TuningWatcher> TuningWatcher::start(const std::string &path, int sampleRate, int channels,
                                                    bool adapt, int frameLen, RecordHandoff &handoff,
                                                    std::string &error)
{
    auto s = std::make_unique<State>();
    s->path = path;
    size_t slash = path.rfind('/');
    s->folder = slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
    s->name = slash == std::string::npos ? path : path.substr(slash + 1);
    s->sampleRate = sampleRate;
    s->channels = channels;
    s->adapt = adapt;
    s->frameLen = frameLen;
    s->handoff = &handoff;
    s->inotifyFd = ::inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
    s->stopFd = ::eventfd(0, EFD_CLOEXEC);
    if (s->inotifyFd < 0 || s->stopFd < 0 || (s->watch = add_watch(*s)) < 0) {
        error = s->folder + ": cannot watch for new tunings: " + std::strerror(errno);
        return nullptr;
    }
    std::unique_ptr<TuningWatcher> w(new TuningWatcher(std::move(s)));
    w->thread_ = std::thread(&TuningWatcher::run, w.get());
    return w;
}

TuningWatcher::TuningWatcher(std::unique_ptr<State> state) : state_(std::move(state)) {}

TuningWatcher::~TuningWatcher()
{
    uint64_t one = 1;
    if (::write(state_->stopFd, &one, sizeof one) != sizeof one)
        log_line("%s: cannot stop the tuning watcher: %s", state_->path.c_str(), std::strerror(errno));
    if (thread_.joinable())
        thread_.join();
}

unsigned long TuningWatcher::offered() const { return state_->offered.load(); }
unsigned long TuningWatcher::refused() const { return state_->refused.load(); }

void TuningWatcher::run()
{
    State &s = *state_;
    alignas(inotify_event) char events[4096];
    for (;;) {
        pollfd fds[2] = {{s.inotifyFd, POLLIN, 0}, {s.stopFd, POLLIN, 0}};
        if (::poll(fds, 2, s.watch < 0 ? kRewatchMs : -1) < 0) {
            if (errno == EINTR)
                continue;
            log_line("%s: tuning watcher stopped: %s", s.path.c_str(), std::strerror(errno));
            return;
        }
        if (fds[1].revents)
            return;
        bool changed = false;
        if (s.watch < 0) {
            if ((s.watch = add_watch(s)) < 0)
                continue;
            // The folder is back: a tuning already in it is read, else the next one written.
            log_line("%s: the folder is back; watching for tunings again", s.folder.c_str());
            changed = ::access(s.path.c_str(), F_OK) == 0;
        }
        ssize_t len;
        while ((len = ::read(s.inotifyFd, events, sizeof events)) > 0) {
            for (char *p = events; p < events + len;) {
                const auto *e = reinterpret_cast<const inotify_event *>(p);
                if (e->len > 0 && s.name == e->name)
                    changed = true;
                if ((e->mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED)) && e->wd == s.watch) {
                    if (!(e->mask & IN_IGNORED))
                        ::inotify_rm_watch(s.inotifyFd, s.watch);
                    s.watch = -1;
                    changed = false;
                    log_line("%s: the folder is gone; keeping the tuning that plays", s.folder.c_str());
                }
                p += sizeof(inotify_event) + e->len;
            }
        }
        if (!changed)
            continue;
        Record rec;
        std::string error;
        if (!load_tuning(s.path, s.sampleRate, s.channels, s.adapt, s.frameLen, rec, error)) {
            log_line("%s; keeping the tuning that plays", error.c_str());
            s.refused++;
            continue;
        }
        s.handoff->offer(rec);
        s.offered++;
    }
}

}  // namespace eqdrc_plugin
