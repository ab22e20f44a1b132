#include "meters_command.h"

#include <csignal>
#include <ctime>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "layout.h"
#include "meter_file.h"

namespace eqdrc_tool {

namespace {

using eqdrc_plugin::MeterReading;

// The compressor's bands in the meters' order.
const char *const kBandNames[EQDRC_METER_BANDS] = {"low", "high", "middle 1", "middle 2"};

volatile std::sig_atomic_t g_stop = 0;
void on_stop(int) { g_stop = 1; }

// The stages whose bits are set: a bit per enable word, in the record's order.
std::string stage_list(uint32_t bits)
{
    const std::string enable = "header.enable.";
    std::string names;
    int first = -1;
    for (const Field &f : Layout::embedded().fields()) {
        if (f.path.rfind(enable, 0) != 0)
            continue;
        if (first < 0)
            first = f.word;
        if (bits >> (f.word - first) & 1u)
            names += (names.empty() ? "" : ", ") + f.path.substr(enable.size());
    }
    return names.empty() ? "none" : names;
}

int metered_channels(const AudioPostMeters &m)
{
    return std::clamp(static_cast<int>(m.channels), 0, EQDRC_METER_CHANNELS);
}

unsigned long long now_ms()
{
    timespec t{};
    clock_gettime(CLOCK_REALTIME, &t);
    return static_cast<unsigned long long>(t.tv_sec) * 1000u + static_cast<unsigned long long>(t.tv_nsec) / 1000000u;
}

std::string format(const char *fmt, double v)
{
    char text[64];
    std::snprintf(text, sizeof text, fmt, v);
    return text;
}

// dB to two decimals, a cut too small to show without its sign.
std::string db_text(float db)
{
    return format("%.2f", std::round(static_cast<double>(db) * 100.0) / 100.0 + 0.0);
}

std::string hand_over_text(const MeterReading &r)
{
    return r.handoverFrame < 0 ? "none" : "at frame " + std::to_string(r.handoverFrame);
}

void print_lines(const MeterReading &r, FILE *out)
{
    const AudioPostMeters &m = r.meters;
    std::fprintf(out, "frames: %llu\nframe length: %d\nsample rate: %d\nstages run: %s\n",
                 static_cast<unsigned long long>(m.frames), m.frameLength, r.sampleRate,
                 stage_list(m.stagesRun).c_str());
    std::fprintf(out, "hand-overs: %llu\nlast hand-over: %s\npublished ms: %llu\nauto gain dB: %s\n", r.handovers,
                 hand_over_text(r).c_str(), r.publishedMs, db_text(m.autoGainDb).c_str());
    for (int c = 0; c < metered_channels(m); c++) {
        std::string bands;
        for (float g : m.compressorGainDb[c])
            bands += " " + db_text(g);
        std::fprintf(out, "channel %d in peak dB: %s\nchannel %d out peak dB: %s\nchannel %d compressor dB:%s\n", c,
                     db_text(m.inputPeakDb[c]).c_str(), c, db_text(m.outputPeakDb[c]).c_str(), c, bands.c_str());
        std::fprintf(out, "channel %d agc dB: %s\nchannel %d limiter dB: %s\n", c, db_text(m.agcGainDb[c]).c_str(), c,
                     db_text(m.limiterGainDb[c]).c_str());
    }
}

// A level from -60 to 0 dB, filled from the left.
std::string level_bar(float db)
{
    constexpr int kWidth = 30;
    const int n = static_cast<int>(std::lround(std::clamp((db + 60.0f) / 60.0f, 0.0f, 1.0f) * kWidth));
    return "[" + std::string(n, '#') + std::string(kWidth - n, ' ') + "]";
}

// A gain from -24 to +24 dB around a middle mark: cuts to the left, lifts to the right.
std::string gain_bar(float db)
{
    constexpr int kHalf = 15;
    const int n = static_cast<int>(std::lround(std::min(std::fabs(db) / 24.0f, 1.0f) * kHalf));
    std::string left(kHalf, ' '), right(kHalf, ' ');
    (db < 0 ? left : right).replace(db < 0 ? kHalf - n : 0, n, std::string(n, '='));
    return "[" + left + "|" + right + "]";
}

// The display as lines; the reading is null while there is none (`why` says why).
std::vector<std::string> display(const std::string &path, const MeterReading *r, const std::string &why)
{
    std::vector<std::string> lines{"eqdrc meters " + path + "   (Ctrl-C ends)"};
    if (!r) {
        lines.push_back("waiting for " + path + " (" + why + ")");
        return lines;
    }
    const AudioPostMeters &m = r->meters;
    const double age = (static_cast<double>(now_ms()) - static_cast<double>(r->publishedMs)) / 1000.0;
    lines.push_back(std::to_string(r->sampleRate) + " Hz, frames of " + std::to_string(m.frameLength) + ": " +
                    std::to_string(m.frames) + " frames; tuning hand-overs: " + std::to_string(r->handovers) +
                    (r->handoverFrame < 0 ? "" : ", the last " + hand_over_text(*r)) +
                    format("; updated %.1f s ago", age));
    lines.push_back("stages run: " + stage_list(m.stagesRun));
    auto row = [&](int c, const std::string &name, float db, bool level) {
        const std::string value = format("%7.1f dB ", std::round(db * 10.0f) / 10.0f + 0.0f);
        lines.push_back("  " + std::to_string(c) + " " + name + std::string(16 - name.size(), ' ') + value +
                        (level ? level_bar(db) : gain_bar(db)));
    };
    for (int c = 0; c < metered_channels(m); c++) {
        lines.push_back("");
        row(c, "in peak", m.inputPeakDb[c], true);
        row(c, "out peak", m.outputPeakDb[c], true);
        row(c, "auto gain", m.autoGainDb, false);
        for (int b = 0; b < EQDRC_METER_BANDS; b++)
            row(c, std::string("comp. ") + kBandNames[b], m.compressorGainDb[c][b], false);
        row(c, "agc", m.agcGainDb[c], false);
        row(c, "limiter", m.limiterGainDb[c], false);
    }
    return lines;
}

int show_once(const MetersCommand &c, eqdrc_plugin::MeterFileReader &reader, FILE *out)
{
    MeterReading r;
    std::string why;
    if (!reader.read(r, &why)) {
        std::fprintf(stderr, "eqdrc: meters: %s: %s\n", c.path.c_str(), why.c_str());
        return 2;
    }
    if (c.json)
        std::fprintf(out, "%s\n", eqdrc_plugin::meter_reading_json(r).c_str());
    else
        print_lines(r, out);
    return 0;
}

}  // namespace

int run_meters(const MetersCommand &c, FILE *out)
{
    if (!(c.interval > 0.0 && c.interval <= 60.0)) {
        std::fprintf(stderr, "eqdrc: meters: --interval must be above 0 and at most 60 s\n");
        return 2;
    }
    eqdrc_plugin::MeterFileReader reader(c.path);
    if (c.once)
        return show_once(c, reader, out);

    struct sigaction stop {}, oldInt {}, oldTerm {};
    stop.sa_handler = on_stop;  // no SA_RESTART: the wait ends at once
    sigemptyset(&stop.sa_mask);
    g_stop = 0;
    sigaction(SIGINT, &stop, &oldInt);
    sigaction(SIGTERM, &stop, &oldTerm);
    std::fputs("\x1b[?25l\x1b[2J", out);  // hide the cursor, clear the screen
    const timespec pause{static_cast<time_t>(c.interval), static_cast<long>(std::fmod(c.interval, 1.0) * 1e9)};
    while (!g_stop) {
        MeterReading r;
        std::string why;
        const bool got = reader.read(r, &why);
        std::fputs("\x1b[H", out);  // each line over the last refresh's, the rest cleared
        for (const std::string &line : display(c.path, got ? &r : nullptr, why))
            std::fprintf(out, "%s\x1b[K\n", line.c_str());
        std::fputs("\x1b[J", out);
        std::fflush(out);
        nanosleep(&pause, nullptr);
    }
    std::fputs("\x1b[?25h", out);
    std::fflush(out);
    sigaction(SIGINT, &oldInt, nullptr);
    sigaction(SIGTERM, &oldTerm, nullptr);
    return 0;
}

}  // namespace eqdrc_tool
