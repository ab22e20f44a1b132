#include "tuning_source.h"

#include "adapt.h"
#include "check.h"
#include "tuning.h"

namespace eqdrc_plugin {

using eqdrc_tool::Layout;

namespace {

// The library truncates these words toward zero; a value no int holds (a hostile
// record) reads as 0, which no stream matches and the check refuses.
int whole_word(float v)
{
    return v > -2147483520.0f && v < 2147483520.0f ? static_cast<int>(v) : 0;
}

}  // namespace

TuningFormat tuning_format(const Record &rec)
{
    const Layout &layout = Layout::embedded();
    TuningFormat f;
    f.sampleRate = whole_word(rec[layout.word("header.sample_rate")]);
    f.channels = whole_word(rec[layout.word("header.channels")]);
    return f;
}

bool read_tuning_file(const std::string &path, Record &out, std::string &error)
{
    try {
        out = eqdrc_tool::read_tuning(path);
        return true;
    } catch (const std::exception &e) {
        error = e.what();
        return false;
    }
}

bool fit_tuning(const Record &raw, const std::string &name, int sampleRate, int channels, bool adapt,
                int frameLen, Record &out, std::string &error)
{
    try {
        TuningFormat f = tuning_format(raw);
        if (!adapt && f.sampleRate != sampleRate) {
            error = name + ": the tuning is for " + std::to_string(f.sampleRate) + " Hz, the stream is " +
                    std::to_string(sampleRate) + " Hz";
            return false;
        }
        if (!adapt && f.channels != channels) {
            error = name + ": the tuning is for " + std::to_string(f.channels) + " channel(s), the stream has " +
                    std::to_string(channels);
            return false;
        }
        std::vector<std::string> notes;
        out = adapt ? eqdrc_tool::adapt_tuning(raw, sampleRate, channels, {}, notes) : raw;
        for (const eqdrc_tool::Issue &issue : eqdrc_tool::check_tuning(out, frameLen)) {
            if (issue.severity == eqdrc_tool::Severity::Error) {
                error = name + ": " + eqdrc_tool::format_issue(issue);
                return false;
            }
        }
        return true;
    } catch (const std::exception &e) {
        error = name + ": " + e.what();
        return false;
    }
}

bool load_tuning(const std::string &path, int sampleRate, int channels, bool adapt, int frameLen, Record &out,
                 std::string &error)
{
    Record raw;
    return read_tuning_file(path, raw, error) && fit_tuning(raw, path, sampleRate, channels, adapt, frameLen, out, error);
}

}  // namespace eqdrc_plugin
