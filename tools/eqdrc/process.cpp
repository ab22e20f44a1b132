#include "process.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <memory>
#include <sndfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <tqaudio_eqdrc.h>

#include "tuning.h"

namespace eqdrc_tool {

namespace {

// The temporary output, removed on Ctrl-C, on any failure, and when the library ends
// the process.
char g_partialOutput[4096];

void remove_partial_output()
{
    if (g_partialOutput[0])
        ::unlink(g_partialOutput);
}

void remove_partial_output_and_stop(int sig)
{
    remove_partial_output();
    ::signal(sig, SIG_DFL);
    ::raise(sig);
}

struct SndfileCloser {
    void operator()(SNDFILE *f) const { sf_close(f); }
};
using SndfilePtr = std::unique_ptr<SNDFILE, SndfileCloser>;

struct ChainCloser {
    void operator()(AudioPostState *st) const { AudioPost_Destroy(st); }
};
using ChainPtr = std::unique_ptr<AudioPostState, ChainCloser>;

SndfilePtr open_input(const std::string &path, SF_INFO &info)
{
    int fd = ::open(path.c_str(), O_RDONLY);
    if (fd < 0)
        throw Error(path + ": cannot open: " + std::strerror(errno));
    struct stat st;
    if (::fstat(fd, &st) == 0 && S_ISDIR(st.st_mode)) {
        ::close(fd);
        throw Error(path + ": is a folder, not an audio file");
    }
    info = SF_INFO{};
    SndfilePtr f(sf_open_fd(fd, SFM_READ, &info, SF_TRUE));
    if (!f)
        throw Error(path + ": not an audio file libsndfile can read (" + sf_strerror(nullptr) + ")");
    if (info.channels < 1 || info.channels > 2)
        throw Error(path + ": " + std::to_string(info.channels) + " channels; eqdrc processes mono and stereo files");
    int subtype = info.format & SF_FORMAT_SUBMASK;
    if (subtype == SF_FORMAT_PCM_S8 || subtype == SF_FORMAT_PCM_U8 || subtype == SF_FORMAT_DPCM_8)
        throw Error(path + ": 8-bit samples; eqdrc processes audio of 16 bits or more");
    // Float files may hold samples beyond full scale: clip them rather than wrap.
    sf_command(f.get(), SFC_SET_CLIPPING, nullptr, SF_TRUE);
    return f;
}

int output_format(const std::string &path)
{
    static const std::pair<const char *, int> kFormats[] = {
        {"wav", SF_FORMAT_WAV}, {"flac", SF_FORMAT_FLAC}, {"aif", SF_FORMAT_AIFF}, {"aiff", SF_FORMAT_AIFF},
        {"au", SF_FORMAT_AU},   {"snd", SF_FORMAT_AU},    {"caf", SF_FORMAT_CAF},  {"w64", SF_FORMAT_W64},
        {"rf64", SF_FORMAT_RF64}};
    size_t dot = path.rfind('.');
    std::string ext = dot == std::string::npos ? "" : path.substr(dot + 1);
    std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return std::tolower(c); });
    for (const auto &f : kFormats)
        if (ext == f.first)
            return f.second | SF_FORMAT_PCM_16;
    throw Error(path + ": cannot tell the output format from the name; end it in .wav, .flac, .aiff, .caf, .w64 or .au");
}

// A 16-bit output written under a temporary name beside its final place, renamed into
// place by commit(); anything else removes it.
class OutputFile {
public:
    OutputFile(const std::string &path, int sampleRate, int channels) : path_(path)
    {
        SF_INFO info{};
        info.samplerate = sampleRate;
        info.channels = channels;
        info.format = output_format(path);
        if (!sf_format_check(&info))
            throw Error(path + ": this format cannot hold " + std::to_string(channels) + " channel(s) at " +
                        std::to_string(sampleRate) + " Hz");
        tmp_ = path + ".eqdrc-XXXXXX";
        int fd = mkstemp(tmp_.data());
        if (fd < 0)
            throw Error(path + ": cannot create: " + std::strerror(errno));
        mode_t mask = ::umask(0);  // mkstemp makes 0600; give the file the usual permissions
        ::umask(mask);
        ::fchmod(fd, 0666 & ~mask);
        std::snprintf(g_partialOutput, sizeof g_partialOutput, "%s", tmp_.c_str());
        file_.reset(sf_open_fd(fd, SFM_WRITE, &info, SF_TRUE));
        if (!file_) {
            std::string why = sf_strerror(nullptr);
            discard();
            throw Error(path + ": cannot write: " + why);
        }
    }
    ~OutputFile() { discard(); }

    void write(const int16_t *samples, sf_count_t frames)
    {
        if (sf_writef_short(file_.get(), samples, frames) != frames)
            throw Error(path_ + ": write error: " + sf_strerror(file_.get()));
    }

    void commit()
    {
        int err = sf_close(file_.release());
        if (err != 0)
            throw Error(path_ + ": write error: " + sf_error_number(err));
        if (std::rename(tmp_.c_str(), path_.c_str()) != 0)
            throw Error(path_ + ": cannot write: " + std::strerror(errno));
        tmp_.clear();
        g_partialOutput[0] = '\0';
    }

private:
    void discard()
    {
        file_.reset();
        if (!tmp_.empty())
            ::unlink(tmp_.c_str());
        tmp_.clear();
        g_partialOutput[0] = '\0';
    }

    std::string path_;
    std::string tmp_;
    SndfilePtr file_;
};

// The library prints its banner on every creation: keep it off the terminal unless asked.
std::string capture_stderr(const std::function<void()> &call)
{
    std::fflush(stderr);
    FILE *tmp = std::tmpfile();
    int saved = ::dup(STDERR_FILENO);
    if (!tmp || saved < 0) {
        call();
        return "";
    }
    ::dup2(::fileno(tmp), STDERR_FILENO);
    call();
    std::fflush(stderr);
    ::dup2(saved, STDERR_FILENO);
    ::close(saved);
    std::string text;
    std::rewind(tmp);
    char buf[512];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, tmp)) > 0)
        text.append(buf, n);
    std::fclose(tmp);
    return text;
}

class Progress {
public:
    Progress(FILE *to, long long total, int sampleRate)
        : to_(to), total_(total), rate_(sampleRate), shown_(total > 0 && isatty(::fileno(to)))
    {
    }
    void update(long long done)
    {
        if (!shown_)
            return;
        int pct = static_cast<int>(std::min<long long>(100, done * 100 / total_));
        if (pct == last_)
            return;
        last_ = pct;
        constexpr int kWidth = 40;
        std::string bar(static_cast<size_t>(pct * kWidth / 100), '#');
        bar.resize(kWidth, ' ');
        std::fprintf(to_, "\r[%s] %3d%%  %.1f of %.1f s", bar.c_str(), pct, static_cast<double>(done) / rate_,
                     static_cast<double>(total_) / rate_);
        std::fflush(to_);
    }
    ~Progress()
    {
        if (shown_ && last_ >= 0)
            std::fprintf(to_, "\r\033[K");
    }

private:
    FILE *to_;
    long long total_;
    int rate_;
    bool shown_;
    int last_ = -1;
};

std::string level_text(double v)
{
    char buf[32];
    if (std::isinf(v))
        std::snprintf(buf, sizeof buf, "%s", v < 0 ? "-inf" : "inf");
    else
        std::snprintf(buf, sizeof buf, "%.1f", v);
    return buf;
}

}  // namespace

ProcessSummary process_file(const ProcessOptions &o, FILE *log)
{
    if (o.frameLen < 1)
        throw Error("--frame: must be at least 1 sample");
    SF_INFO info;
    SndfilePtr in = open_input(o.input, info);
    const std::string tuningName = o.tuning.empty() ? "built-in default tuning" : o.tuning;
    Record base = o.tuning.empty() ? default_tuning() : read_tuning(o.tuning);

    std::vector<std::string> notes;
    Record rec = adapt_tuning(base, info.samplerate, info.channels, o.bypass, notes);
    for (const std::string &n : notes)
        std::fprintf(log, "eqdrc: %s: note: %s\n", tuningName.c_str(), n.c_str());
    std::vector<Issue> issues = check_tuning(rec, o.frameLen);
    for (const Issue &i : issues)
        std::fprintf(log, "eqdrc: %s: %s\n", tuningName.c_str(), format_issue(i).c_str());
    if (int errors = count_errors(issues))
        throw Error(tuningName + ": " + std::to_string(errors) + " error(s) above; the library would reject it or stop");

    ChainPtr chain;
    std::string libraryLog = capture_stderr([&] { chain.reset(AudioPost_Init(rec.data(), o.frameLen)); });
    if (o.verbose)
        std::fputs(libraryLog.c_str(), log);
    if (!chain)
        throw Error(tuningName + ": the library rejected the tuning");

    static const bool atExit = std::atexit(remove_partial_output) == 0;
    (void)atExit;
    struct sigaction sa {};
    sa.sa_handler = remove_partial_output_and_stop;
    struct sigaction oldInt, oldTerm;
    ::sigaction(SIGINT, nullptr, &oldInt);
    ::sigaction(SIGTERM, nullptr, &oldTerm);
    // A signal the caller chose to ignore (a background job, nohup) stays ignored.
    if (oldInt.sa_handler != SIG_IGN)
        ::sigaction(SIGINT, &sa, nullptr);
    if (oldTerm.sa_handler != SIG_IGN)
        ::sigaction(SIGTERM, &sa, nullptr);
    struct RestoreSignals {
        struct sigaction *i, *t;
        ~RestoreSignals() { ::sigaction(SIGINT, i, nullptr); ::sigaction(SIGTERM, t, nullptr); }
    } restore{&oldInt, &oldTerm};
    OutputFile out(o.output, info.samplerate, info.channels);

    LoudnessMeter inMeter(info.channels, info.samplerate);
    LoudnessMeter outMeter(info.channels, info.samplerate);
    std::vector<int16_t> frame(static_cast<size_t>(o.frameLen) * static_cast<size_t>(info.channels));
    ProcessSummary s;
    s.sampleRate = info.samplerate;
    s.channels = info.channels;
    Progress progress(log, info.frames, info.samplerate);
    using Clock = std::chrono::steady_clock;
    Clock::duration inLibrary{};
    for (;;) {
        sf_count_t got = 0;
        while (got < o.frameLen) {
            sf_count_t n = sf_readf_short(in.get(), frame.data() + got * info.channels, o.frameLen - got);
            if (n <= 0)
                break;
            got += n;
        }
        if (sf_error(in.get()) != SF_ERR_NO_ERROR)
            throw Error(o.input + ": read error: " + sf_strerror(in.get()));
        if (got == 0)
            break;
        // The last frame is padded with silence and trimmed again on output.
        std::fill(frame.begin() + got * info.channels, frame.end(), int16_t{0});
        inMeter.add(frame.data(), static_cast<size_t>(got));
        Clock::time_point t0 = Clock::now();
        AudioPost_Process(chain.get(), frame.data(), frame.data(), info.channels, o.frameLen);
        inLibrary += Clock::now() - t0;
        outMeter.add(frame.data(), static_cast<size_t>(got));
        out.write(frame.data(), got);
        s.frames += got;
        progress.update(s.frames);
        if (got < o.frameLen)
            break;
    }
    out.commit();
    s.processSeconds = std::chrono::duration<double>(inLibrary).count();
    s.input = inMeter.result();
    s.output = outMeter.result();
    return s;
}

void print_summary(const ProcessSummary &s, FILE *out)
{
    double seconds = s.sampleRate > 0 ? static_cast<double>(s.frames) / s.sampleRate : 0.0;
    auto row = [&](const char *label, double in, double result, const char *unit) {
        std::fprintf(out, "%-20s %7s %-4s  %7s %s\n", label, level_text(in).c_str(), unit, level_text(result).c_str(), unit);
    };
    std::fprintf(out, "%-20s %7s %-4s  %7s\n", "", "input", "", "output");
    row("integrated loudness", s.input.integratedLufs, s.output.integratedLufs, "LUFS");
    row("loudness range", s.input.rangeLu, s.output.rangeLu, "LU");
    row("true peak", s.input.truePeakDbtp, s.output.truePeakDbtp, "dBTP");
    std::fprintf(out, "%.2f s of %s audio at %d Hz processed in %.3f s: ", seconds, s.channels == 1 ? "mono" : "stereo",
                 s.sampleRate, s.processSeconds);
    if (s.processSeconds > 0.0)
        std::fprintf(out, "%.0fx real time\n", seconds / s.processSeconds);
    else
        std::fprintf(out, "too fast to time\n");
}

}  // namespace eqdrc_tool
