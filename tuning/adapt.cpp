#include "adapt.h"

#include "default_tuning.h"  // generated: kDefaultTuning
#include "stream_rules.h"
#include "tuning.h"

namespace eqdrc_tool {

Record default_tuning()
{
    return record_from_bytes(std::string(reinterpret_cast<const char *>(kDefaultTuning), sizeof kDefaultTuning));
}

Record adapt_tuning(Record rec, int sampleRate, int channels, const std::vector<std::string> &bypass,
                    std::vector<std::string> &notes)
{
    const Layout &layout = Layout::embedded();
    float &rate = rec[layout.word("header.sample_rate")];
    if (rate != static_cast<float>(sampleRate)) {
        notes.push_back("the tuning is for " + shortest_text(rate) + " Hz; its filters are designed for the file's " +
                        std::to_string(sampleRate) + " Hz");
        rate = static_cast<float>(sampleRate);
    }
    float &count = rec[layout.word("header.channels")];
    if (count != static_cast<float>(channels)) {
        notes.push_back("the tuning is for " + shortest_text(count) + " channel(s); the file has " +
                        std::to_string(channels) + (channels == 1 ? " (channel 0's settings apply)" : ""));
        count = static_cast<float>(channels);
    }
    const std::string enable = "header.enable.";
    for (const std::string &stage : bypass) {
        const Field *f = layout.find(enable + stage);
        if (!f)
            throw Error("--bypass: no stage '" + stage + "'; the stages are " + stage_names());
        rec[f->word] = 0.0f;
    }
    return rec;
}

}  // namespace eqdrc_tool
