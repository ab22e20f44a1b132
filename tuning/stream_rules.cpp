#include "stream_rules.h"

#include <cstdio>

#include "adapt.h"
#include "check.h"

namespace eqdrc_tool {

namespace {

constexpr int kMinBits = 16;

std::string refusal_of_input(const StreamRequest &r)
{
    if (r.channels < 1 || r.channels > 2)
        return r.input + ": " + std::to_string(r.channels) + " channels; eqdrc processes mono and stereo files";
    if (r.bitsPerSample > 0 && r.bitsPerSample < kMinBits)
        return r.input + ": " + std::to_string(r.bitsPerSample) +
               "-bit samples; eqdrc processes audio of 16 bits or more";
    return "";
}

}  // namespace

StreamPlan plan_stream(const StreamRequest &r)
{
    StreamPlan plan;
    if (r.frameLen < 1) {
        plan.refusal = "--frame: must be at least 1 sample";
        return plan;
    }
    plan.refusal = refusal_of_input(r);
    if (!plan.refusal.empty())
        return plan;
    std::vector<std::string> notes;
    try {
        plan.record = adapt_tuning(r.tuning, r.sampleRate, r.channels, r.bypass, notes);
    } catch (const Error &e) {
        plan.refusal = e.what();
        return plan;
    }
    for (const std::string &n : notes)
        plan.log.push_back(r.tuningName + ": note: " + n);
    std::vector<Issue> issues = check_tuning(plan.record, r.frameLen);
    for (const Issue &i : issues)
        plan.log.push_back(r.tuningName + ": " + format_issue(i));
    if (int errors = count_errors(issues)) {
        plan.refusal = r.tuningName + ": " + std::to_string(errors) + " error(s) above; the library would reject it or stop";
        return plan;
    }
    const Layout &layout = Layout::embedded();
    if (plan.record[layout.word("header.enable.maximizer")] != 0.0f) {
        bool linked = plan.record[layout.word("header.channel_link")] != 0.0f;
        for (int c = 0; c < r.channels; ++c)
            plan.ceilingDb.push_back(
                plan.record[layout.word("maximizer.channels[" + std::to_string(linked ? 0 : c) + "].ceiling")]);
    }
    return plan;
}

std::string ceiling_warning(int channel, long long count, float ceilingDb, double highestDbfs)
{
    if (count <= 0)
        return "";
    char highest[32];
    std::snprintf(highest, sizeof highest, "%.2f", highestDbfs);
    return "warning: channel " + std::to_string(channel) + ": " + std::to_string(count) +
           " output sample(s) above the maximizer's ceiling of " + shortest_text(ceilingDb) +
           " dBFS, the highest at " + highest + " dBFS";
}

std::string stage_names()
{
    const std::string enable = "header.enable.";
    std::string names;
    for (const Field &e : Layout::embedded().fields())
        if (e.path.rfind(enable, 0) == 0)
            names += (names.empty() ? "" : ", ") + e.path.substr(enable.size());
    return names;
}

}  // namespace eqdrc_tool
