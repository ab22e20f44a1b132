// The C interface of libtqeqdrc_rules.so, through which the Python package applies the
// same refusals, notes, checks and warnings as `eqdrc process`. Requests and reports are
// JSON text; records stay binary, so that every bit of the tuning is kept.
#include <cstddef>
#include <cstring>
#include <nlohmann/json.hpp>

#include "stream_rules.h"

#define RULES_API extern "C" __attribute__((visibility("default")))

namespace {

// Copies `text` with its terminating NUL when it fits; returns the size it needs.
int deliver(const std::string &text, char *out, size_t size)
{
    if (out && text.size() < size)
        std::memcpy(out, text.c_str(), text.size() + 1);
    return static_cast<int>(text.size() + 1);
}

}  // namespace

// request: {"input", "sample_rate", "channels", "bits", "tuning_name", "bypass": [...], "frame"}.
// tuning and record: 544 words each. report: {"log": [...], "refusal", "ceiling_dB": [...]}.
// Returns the size the report needs (larger than `size`: call again), or -1 for a
// malformed request.
RULES_API int tqeqdrc_plan_stream(const char *request, const float *tuning, float *record, char *report,
                                  size_t size)
{
    using namespace eqdrc_tool;
    StreamRequest r;
    try {
        nlohmann::json q = nlohmann::json::parse(request);
        r.input = q.at("input").get<std::string>();
        r.sampleRate = q.at("sample_rate").get<int>();
        r.channels = q.at("channels").get<int>();
        r.bitsPerSample = q.at("bits").get<int>();
        r.tuningName = q.at("tuning_name").get<std::string>();
        r.bypass = q.at("bypass").get<std::vector<std::string>>();
        r.frameLen = q.at("frame").get<int>();
    } catch (const std::exception &) {
        return -1;
    }
    std::memcpy(r.tuning.data(), tuning, kRecordBytes);
    StreamPlan plan = plan_stream(r);
    std::memcpy(record, plan.record.data(), kRecordBytes);
    nlohmann::json doc{{"log", plan.log}, {"refusal", plan.refusal}, {"ceiling_dB", plan.ceilingDb}};
    return deliver(doc.dump(), report, size);
}

RULES_API int tqeqdrc_ceiling_warning(int channel, long long count, float ceilingDb, double highestDbfs, char *out,
                                      size_t size)
{
    return deliver(eqdrc_tool::ceiling_warning(channel, count, ceilingDb, highestDbfs), out, size);
}
