// The C interface of libtqeqdrc_rules.so, through which the Python package applies the
// same refusals, notes, checks and warnings as `eqdrc process`, and reads and writes
// tunings with the tool's own JSON reader and writer. Requests and reports are JSON
// text; records stay binary, so that every bit of the tuning is kept.
#include <cstddef>
#include <cstring>
#include <nlohmann/json.hpp>

#include "check.h"
#include "output_file.h"
#include "stream_rules.h"
#include "c_text.h"
#include "tuning.h"

#define RULES_API extern "C" __attribute__((visibility("default")))

using eqdrc_tool::deliver;

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

// The check's lines for a record, as `eqdrc tuning check` prints them, and its error count:
// {"log": [...], "errors": N}. Returns the size the report needs, as above.
RULES_API int tqeqdrc_check(const float *tuning, int frameLen, const char *name, char *report, size_t size)
{
    using namespace eqdrc_tool;
    Record rec;
    std::memcpy(rec.data(), tuning, kRecordBytes);
    std::vector<Issue> issues = check_tuning(rec, frameLen);
    std::vector<std::string> lines;
    for (const Issue &i : issues)
        lines.push_back(std::string(name) + ": " + format_issue(i));
    nlohmann::json doc{{"log", lines}, {"errors", count_errors(issues)}};
    return deliver(doc.dump(), report, size);
}

// Why `output` must not be written (it is one of `inputs_json`, a JSON array of paths),
// or an empty text. Returns the size the message needs.
RULES_API int tqeqdrc_refuse_overwrite(const char *output, const char *inputs_json, int force, char *message,
                                       size_t size)
{
    using namespace eqdrc_tool;
    try {
        refuse_overwriting_inputs(output, nlohmann::json::parse(inputs_json).get<std::vector<std::string>>(), force);
    } catch (const Error &e) {
        return deliver(e.what(), message, size);
    } catch (const std::exception &) {
        return -1;
    }
    return deliver("", message, size);
}

// The JSON text `eqdrc tuning decompile` writes for a record of 544 words. Returns the
// size the text needs, as above.
RULES_API int tqeqdrc_tuning_to_json(const float *tuning, char *text, size_t size)
{
    eqdrc_tool::Record rec;
    std::memcpy(rec.data(), tuning, eqdrc_tool::kRecordBytes);
    return deliver(eqdrc_tool::record_to_json_text(rec), text, size);
}

// Reads `length` bytes of JSON text as the tool reads a tuning file into `tuning` (544
// words; untouched on failure). Returns the size of the message saying why the text is
// not a tuning, worded as the tool words it: 1, an empty message, when it was read.
RULES_API int tqeqdrc_tuning_from_json(const char *json, size_t length, float *tuning, char *message, size_t size)
{
    using namespace eqdrc_tool;
    try {
        Record rec = record_from_json_text(std::string(json, length));
        std::memcpy(tuning, rec.data(), kRecordBytes);
    } catch (const Error &e) {
        return deliver(e.what(), message, size);
    } catch (const std::exception &) {
        return -1;
    }
    return deliver("", message, size);
}

// Any JSON text laid out as the tool lays out tunings. Returns the size the text needs,
// or -1 for a text that is not JSON.
RULES_API int tqeqdrc_format_json(const char *json, char *text, size_t size)
{
    using namespace eqdrc_tool;
    try {
        return deliver(format_json(OrderedJson::parse(json)), text, size);
    } catch (const std::exception &) {
        return -1;
    }
}
