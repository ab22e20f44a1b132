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

#include "output_file.h"
#include "pcm16.h"
#include "stream_rules.h"
#include "tuning.h"

namespace eqdrc_tool {

namespace {

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
    return f;
}

// Bits per sample of a libsndfile subtype; 0 for floating point and compressed formats.
int bits_per_sample(int format)
{
    switch (format & SF_FORMAT_SUBMASK) {
    case SF_FORMAT_PCM_S8: case SF_FORMAT_PCM_U8: case SF_FORMAT_DPCM_8: return 8;
    case SF_FORMAT_PCM_16: case SF_FORMAT_DPCM_16: case SF_FORMAT_DWVW_16: case SF_FORMAT_ALAC_16: return 16;
    case SF_FORMAT_PCM_24: case SF_FORMAT_DWVW_24: case SF_FORMAT_ALAC_24: return 24;
    case SF_FORMAT_PCM_32: case SF_FORMAT_ALAC_32: return 32;
    default: return 0;
    }
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

// A 16-bit output: libsndfile writes into a PendingFile, which commit() puts in place.
class OutputFile {
public:
    OutputFile(const std::string &path, int sampleRate, int channels, const std::vector<std::string> &inputs,
               bool force)
        : path_(path)
    {
        SF_INFO info{};
        info.samplerate = sampleRate;
        info.channels = channels;
        info.format = output_format(path);
        if (!sf_format_check(&info))
            throw Error(path + ": this format cannot hold " + std::to_string(channels) + " channel(s) at " +
                        std::to_string(sampleRate) + " Hz");
        pending_ = std::make_unique<PendingFile>(path, inputs, force);
        file_.reset(sf_open_fd(pending_->fd(), SFM_WRITE, &info, SF_TRUE));
        if (!file_)
            throw Error(path + ": cannot write: " + sf_strerror(nullptr));
        pending_->release_fd();
    }

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
        pending_->commit();
    }

private:
    std::string path_;
    std::unique_ptr<PendingFile> pending_;  // destroyed after file_, which holds its descriptor
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

// Counts output samples above each channel's ceiling, and the highest of them.
class CeilingWatch {
public:
    explicit CeilingWatch(const std::vector<float> &ceilingDb) : ceilingDb_(ceilingDb)
    {
        for (float db : ceilingDb)
            limit_.push_back(32768.0 * std::pow(10.0, static_cast<double>(db) / 20.0));
        count_.assign(limit_.size(), 0);
        highest_.assign(limit_.size(), 0);
    }
    void add(const int16_t *interleaved, sf_count_t frames)
    {
        const size_t channels = limit_.size();
        for (size_t c = 0; c < channels; ++c)
            for (sf_count_t i = 0; i < frames; ++i) {
                int magnitude = std::abs(static_cast<int>(interleaved[static_cast<size_t>(i) * channels + c]));
                if (magnitude > limit_[c]) {
                    ++count_[c];
                    highest_[c] = std::max(highest_[c], magnitude);
                }
            }
    }
    std::vector<std::string> warnings() const
    {
        std::vector<std::string> lines;
        for (size_t c = 0; c < limit_.size(); ++c)
            if (count_[c])
                lines.push_back(ceiling_warning(static_cast<int>(c), count_[c], ceilingDb_[c],
                                                20.0 * std::log10(highest_[c] / 32768.0)));
        return lines;
    }

private:
    std::vector<float> ceilingDb_;
    std::vector<double> limit_;
    std::vector<long long> count_;
    std::vector<int> highest_;
};

}  // namespace

ProcessSummary process_file(const ProcessOptions &o, FILE *log)
{
    if (o.frameLen < 1)
        throw Error("--frame: must be at least 1 sample");
    SF_INFO info;
    SndfilePtr in = open_input(o.input, info);
    StreamRequest request;
    request.input = o.input;
    request.sampleRate = info.samplerate;
    request.channels = info.channels;
    request.bitsPerSample = bits_per_sample(info.format);
    request.tuningName = o.tuning.empty() ? "built-in default tuning" : o.tuning;
    if (request.channels >= 1 && request.channels <= 2)  // a refused input needs no tuning
        request.tuning = o.tuning.empty() ? default_tuning() : read_tuning(o.tuning);
    request.bypass = o.bypass;
    request.frameLen = o.frameLen;
    StreamPlan plan = plan_stream(request);
    for (const std::string &line : plan.log)
        std::fprintf(log, "eqdrc: %s\n", line.c_str());
    if (!plan.refusal.empty())
        throw Error(plan.refusal);

    ChainPtr chain;
    std::string libraryLog = capture_stderr([&] { chain.reset(AudioPost_Init(plan.record.data(), o.frameLen)); });
    if (o.verbose)
        std::fputs(libraryLog.c_str(), log);
    if (!chain)
        throw Error(request.tuningName + ": the library rejected the tuning");

    std::vector<std::string> inputs{o.input};
    if (!o.tuning.empty())
        inputs.push_back(o.tuning);
    OutputFile out(o.output, info.samplerate, info.channels, inputs, o.force);

    LoudnessMeter inMeter(info.channels, info.samplerate);
    LoudnessMeter outMeter(info.channels, info.samplerate);
    CeilingWatch ceiling(plan.ceilingDb);
    std::vector<double> read(static_cast<size_t>(o.frameLen) * static_cast<size_t>(info.channels));
    std::vector<int16_t> frame(read.size());
    ProcessSummary s;
    s.sampleRate = info.samplerate;
    s.channels = info.channels;
    Progress progress(log, info.frames, info.samplerate);
    using Clock = std::chrono::steady_clock;
    Clock::duration inLibrary{};
    for (;;) {
        sf_count_t got = 0;
        while (got < o.frameLen) {
            sf_count_t n = sf_readf_double(in.get(), read.data() + got * info.channels, o.frameLen - got);
            if (n <= 0)
                break;
            got += n;
        }
        if (sf_error(in.get()) != SF_ERR_NO_ERROR)
            throw Error(o.input + ": read error: " + sf_strerror(in.get()));
        if (got == 0)
            break;
        // The last frame is padded with silence and trimmed again on output.
        const size_t samples = static_cast<size_t>(got * info.channels);
        std::transform(read.begin(), read.begin() + static_cast<long>(samples), frame.begin(), to_pcm16);
        std::fill(frame.begin() + static_cast<long>(samples), frame.end(), int16_t{0});
        inMeter.add(frame.data(), static_cast<size_t>(got));
        Clock::time_point t0 = Clock::now();
        AudioPost_Process(chain.get(), frame.data(), frame.data(), info.channels, o.frameLen);
        inLibrary += Clock::now() - t0;
        outMeter.add(frame.data(), static_cast<size_t>(got));
        ceiling.add(frame.data(), got);
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
    s.warnings = ceiling.warnings();
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
    for (const std::string &w : s.warnings)
        std::fprintf(out, "%s\n", w.c_str());
}

}  // namespace eqdrc_tool
