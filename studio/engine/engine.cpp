// The studio's tuning engine: the tool's own tuning code (reading, JSON text, check,
// adapting to a stream) and the fitting library behind a few C entry points for the page.
// Results are JSON text owned by the engine until the next call; the record is edited in
// place by the page through studio_record().
#include <emscripten/emscripten.h>

#include <string>
#include <vector>

#include "adapt.h"
#include "check.h"
#include "fit_tuning.h"
#include "options.h"
#include "tuning.h"
#include "tqaudio_eqdrc.h"
#include "tuning_layout_text.h"  // generated: kTuningLayoutJson

using namespace eqdrc_tool;
using nlohmann::json;

namespace {

Record g_record{};
Record g_adapted{};
std::string g_result;

const char *result(const json &j)
{
    g_result = j.dump();
    return g_result.c_str();
}

// A header word as the library reads it: truncated, 0 for NaN, clamped to `limit`.
int header_int(float word, int limit)
{
    if (!(word > 0.0f))
        return 0;
    return word >= static_cast<float>(limit) ? limit : static_cast<int>(word);
}

constexpr int kSectionDrc = 200, kSectionMaximizer = 400;
constexpr int kDrcBands = 4;      // curve rows 0..3, in the compressor's band order; then the AGC's and the limiter's
constexpr int kCurveFrame = 768;  // only the stages' time constants depend on it
constexpr int kMaxRate = 1 << 20, kMaxBits = 32, kMaxChannels = 2;

json issues_json(const std::vector<Issue> &issues)
{
    json list = json::array();
    for (const Issue &i : issues)
        list.push_back({{"severity", i.severity == Severity::Error ? "error" : "warning"},
                        {"path", i.path},
                        {"message", i.message},
                        {"text", format_issue(i)}});
    return list;
}

}  // namespace

extern "C" {

EMSCRIPTEN_KEEPALIVE const char *studio_layout() { return kTuningLayoutJson; }

// The designer's type codes run from 0 to this minus one (the library's header says so).
EMSCRIPTEN_KEEPALIVE int studio_filter_type_count() { return EQDRC_FILTER_TYPE_COUNT; }

EMSCRIPTEN_KEEPALIVE float *studio_record() { return g_record.data(); }

EMSCRIPTEN_KEEPALIVE int studio_record_words() { return EQDRC_RECORD_WORDS; }

// The static curves the held record's dynamics give `channel` at `count` levels (dBFS),
// read from the stages' own gain tables: six rows of `count` gains in dB in `out` (the
// compressor's bands in its order: low, high, middle_1, middle_2; the AGC; the limiter,
// make-up included) and each row's knee width in `knees` (-1: the row does not exist).
EMSCRIPTEN_KEEPALIVE void studio_dynamics_curves(int channel, const float *levels, int count, float *out, int *knees)
{
    const float *rec = g_record.data();
    const int rate = header_int(rec[0], kMaxRate), bits = header_int(rec[1], kMaxBits);
    const int link = header_int(rec[2], 1), channels = header_int(rec[3], kMaxChannels);
    MultiBandDRCState *drc = MultiBandDRC_Init(rec + kSectionDrc, bits, rate, channels, link);
    for (int b = 0; b < kDrcBands; b++)
        knees[b] = MultiBandDRC_GetCurve(drc, channel, b, levels, out + b * count, count);
    MultiBandDRC_Destroy(drc);
    MaximizerState *mx = Maximizer_Init(rec + kSectionMaximizer, bits, rate, channels, kCurveFrame, link);
    knees[kDrcBands] = Agc_GetCurve(mx, channel, levels, out + kDrcBands * count, count);
    knees[kDrcBands + 1] = Maximizer_GetCurve(mx, channel, levels, out + (kDrcBands + 1) * count, count);
    Maximizer_Destroy(mx);
}

EMSCRIPTEN_KEEPALIVE float *studio_adapted() { return g_adapted.data(); }

// Reads the tuning file at `path` (the engine's in-memory file system) into the record,
// with the tool's messages: {"ok":true} or {"ok":false,"error":"..."}.
EMSCRIPTEN_KEEPALIVE const char *studio_read(const char *path)
{
    try {
        g_record = read_tuning(path);
        return result({{"ok", true}});
    } catch (const Error &e) {
        return result({{"ok", false}, {"error", e.what()}});
    }
}

// The record as `eqdrc tuning decompile` writes it.
EMSCRIPTEN_KEEPALIVE const char *studio_json()
{
    g_result = format_json(record_to_json(g_record));
    return g_result.c_str();
}

// The record image as `eqdrc tuning compile` writes it (kRecordBytes bytes).
EMSCRIPTEN_KEEPALIVE const char *studio_bytes()
{
    g_result = record_to_bytes(g_record);
    return g_result.data();
}

// What `eqdrc tuning check --frame N` reports: a JSON list of issues.
EMSCRIPTEN_KEEPALIVE const char *studio_check(int frameLen)
{
    return result(issues_json(check_tuning(g_record, frameLen)));
}

// The record made to fit a stream, as `eqdrc process` does, into studio_adapted():
// {"notes":[...],"issues":[...],"errors":N}.
EMSCRIPTEN_KEEPALIVE const char *studio_adapt(int sampleRate, int channels, int frameLen)
{
    std::vector<std::string> notes;
    g_adapted = adapt_tuning(g_record, sampleRate, channels, {}, notes);
    std::vector<Issue> issues = check_tuning(g_adapted, frameLen);
    return result({{"notes", notes}, {"issues", issues_json(issues)}, {"errors", count_errors(issues)}});
}

// Fits the EQ of the held record to the measurement in `text` (a two- or three-column
// export), named `name` in messages, as `eqdrc fit --base` does: the same option reader,
// measurement reader and fit. `request` holds the command's options as it types them,
// each optional with its default: {"target": "flat" | "tilt:DB_PER_OCTAVE" | a target
// file's name, "target_text": that file's text, "range": "80-16000", "smooth": "1/6",
// "q": "0.3-6", "channel": "both", "bands": 10, "max_boost": 6, "max_cut": 12}, and
// "base": "neutral" to fit onto the tuning `eqdrc fit` takes without --base instead.
// On success the fitted record replaces the held one (only its eq10 section differs from
// the base): {"ok":true,"summary":LINE,"report":{...}}, the report as `--report` writes
// it; otherwise {"ok":false,"error":LINE} with the tool's message, the record unchanged.
EMSCRIPTEN_KEEPALIVE const char *studio_fit(const char *text, const char *name, const char *request)
{
    OrderedJson out;
    try {
        const json q = json::parse(request);
        const eqdrc_fit::FitRequest asked = eqdrc_fit::FitRequest::from_json(q);
        const eqdrc_fit::FitOptions fitOptions = eqdrc_fit::read_options(asked.options);
        const eqdrc_fit::Target t = asked.read_target();
        const Record base = q.value("base", "held") == "neutral" ? eqdrc_fit::neutral_tuning() : g_record;
        eqdrc_fit::FitResult r = eqdrc_fit::fit_tuning(eqdrc_fit::parse_curve(text, name), name, t, fitOptions, base);
        g_record = r.tuning;
        out = {{"ok", true}, {"summary", r.summary}};
        out["report"] = std::move(r.report);  // in the order the tool writes it
    } catch (const std::exception &e) {  // the tool's one line, or a request the page got wrong
        out = {{"ok", false}, {"error", e.what()}};
    }
    // Messages quote the measurement's lines.
    g_result = out.dump(-1, ' ', false, OrderedJson::error_handler_t::replace);
    return g_result.c_str();
}

}  // extern "C"
