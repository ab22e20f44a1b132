#include "output_file.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

#include "layout.h"

namespace eqdrc_tool {

namespace {

// The names a signal handler may need to remove: fixed storage, no allocation, so that
// the handler stays async-signal-safe.
constexpr int kSlots = 8;
constexpr size_t kPathMax = 4096;
char g_pending[kSlots][kPathMax];
volatile sig_atomic_t g_used[kSlots];

int claim_slot(const std::string &tmp)
{
    if (tmp.size() >= kPathMax)
        return -1;
    for (int i = 0; i < kSlots; ++i)
        if (!g_used[i]) {
            std::memcpy(g_pending[i], tmp.c_str(), tmp.size() + 1);
            g_used[i] = 1;
            return i;
        }
    return -1;
}

void release_slot(int slot)
{
    if (slot >= 0)
        g_used[slot] = 0;
}

void remove_all_pending()
{
    for (int i = 0; i < kSlots; ++i)
        if (g_used[i])
            ::unlink(g_pending[i]);
}

void remove_pending_and_stop(int sig)
{
    remove_all_pending();
    ::signal(sig, SIG_DFL);
    ::raise(sig);
}

// Every signal whose default action ends the process and that can be caught.
constexpr int kEndingSignals[] = {SIGHUP,  SIGINT,  SIGQUIT, SIGILL,  SIGTRAP, SIGABRT,   SIGBUS,  SIGFPE,
                                  SIGUSR1, SIGSEGV, SIGUSR2, SIGPIPE, SIGALRM, SIGTERM,   SIGXCPU, SIGXFSZ,
                                  SIGVTALRM, SIGPROF, SIGSYS, SIGIO,  SIGPWR,
#ifdef SIGSTKFLT
                                  SIGSTKFLT,
#endif
};

bool same_file(const struct stat &a, const struct stat &b)
{
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

}  // namespace

void refuse_overwriting_inputs(const std::string &output, const std::vector<std::string> &inputs, bool force)
{
    struct stat out;
    if (force || ::stat(output.c_str(), &out) != 0)
        return;
    for (const std::string &in : inputs) {
        struct stat st;
        if (::stat(in.c_str(), &st) == 0 && same_file(st, out))
            throw Error(output + ": is the input " + in + "; write elsewhere, or add --force to replace it");
    }
}

PendingFile::PendingFile(const std::string &output, const std::vector<std::string> &inputs, bool force)
    : path_(output)
{
    refuse_overwriting_inputs(output, inputs, force);
    tmp_ = output + ".eqdrc-XXXXXX";
    // No signal between creating the file and registering it for removal.
    sigset_t all, previous;
    sigfillset(&all);
    ::sigprocmask(SIG_BLOCK, &all, &previous);
    fd_ = mkstemp(tmp_.data());
    int err = errno;
    if (fd_ >= 0)
        slot_ = claim_slot(tmp_);
    ::sigprocmask(SIG_SETMASK, &previous, nullptr);
    if (fd_ < 0)
        throw Error(output + ": cannot create: " + std::strerror(err));
    mode_t mask = ::umask(0);  // mkstemp makes 0600; give the file the usual permissions
    ::umask(mask);
    ::fchmod(fd_, 0666 & ~mask);
}

PendingFile::~PendingFile()
{
    if (fd_ >= 0)
        ::close(fd_);
    if (!tmp_.empty())
        ::unlink(tmp_.c_str());
    release_slot(slot_);
}

void PendingFile::commit()
{
    int err = 0;
    // On disk before it takes the final name: after a crash or power loss the name holds
    // the old file or the new one, never a part.
    if (fd_ >= 0 && ::fsync(fd_) != 0)
        err = errno;
    if (fd_ >= 0 && ::close(fd_) != 0 && !err)
        err = errno;
    fd_ = -1;
    if (!err && std::rename(tmp_.c_str(), path_.c_str()) != 0)
        err = errno;
    if (err)
        throw Error(path_ + ": cannot write: " + std::strerror(err));
    tmp_.clear();
    release_slot(slot_);
    slot_ = -1;
}

void write_file_atomic(const std::string &path, const std::string &bytes, const std::vector<std::string> &inputs,
                       bool force)
{
    PendingFile out(path, inputs, force);
    size_t done = 0;
    while (done < bytes.size()) {
        ssize_t n = ::write(out.fd(), bytes.data() + done, bytes.size() - done);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            throw Error(path + ": write error: " + std::strerror(errno));
        }
        done += static_cast<size_t>(n);
    }
    out.commit();
}

void remove_pending_files_on_signals()
{
    static bool installed = false;
    if (installed)
        return;
    installed = true;
    std::atexit(remove_all_pending);
    struct sigaction sa {};
    sa.sa_handler = remove_pending_and_stop;
    sigemptyset(&sa.sa_mask);
    for (int sig : kEndingSignals) {
        struct sigaction old {};
        // A signal that is ignored (nohup, a background job) or already handled (e.g. by
        // a sanitizer's fault report) is left as it is.
        if (::sigaction(sig, nullptr, &old) == 0 && !(old.sa_flags & SA_SIGINFO) && old.sa_handler == SIG_DFL)
            ::sigaction(sig, &sa, nullptr);
    }
}

}  // namespace eqdrc_tool
