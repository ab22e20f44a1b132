// The JSON tuning format: the examples as decompile writes them, readable values, clear
// errors, and a layout that agrees with what the library reads.
#include <gtest/gtest.h>

#include <cmath>
#include <tqaudio_eqdrc.h>

#include "tuning_test_support.h"
#include "tuning.h"

using namespace eqdrc_tool;
using namespace eqdrc_tool_test;

namespace {

const std::string kTunings = EQDRC_SOURCE_DIR "/tunings/";

// The message of the Error that `read` throws, or "accepted".
template <typename Read>
std::string error_of(Read read)
{
    try {
        read();
    } catch (const Error &e) {
        return e.what();
    }
    return "accepted";
}

}  // namespace

TEST(TuningRoundTrip, ExamplesAreInTheFormDecompileWrites)
{
    for (const char *name : {"bypass.json", "speech.json", "music.json", "loud-small-speaker.json"}) {
        OrderedJson doc = OrderedJson::parse(slurp(kTunings + name));
        doc.erase("_about");
        EXPECT_EQ(format_json(record_to_json(record_from_json(doc))), format_json(doc)) << name;
    }
}

TEST(TuningJson, ValuesAreReadableAndExact)
{
    const Layout &layout = Layout::embedded();
    Record rec{};
    rec[layout.word("header.sample_rate")] = 48000.0f;
    rec[layout.word("eq10.channels[1].bands[2].filterTypes")] = 2.0f;
    rec[layout.word("eq10.channels[1].bands[3].filterTypes")] = 9.0f;  // no label: stays a number
    rec[layout.word("eq10.channels[0].bands[0].fc")] = 0.1f;
    rec[layout.word("header.pre_gain_dB[1]")] = -0.0f;
    rec[layout.word("auto_gain.attack_time")] = bits_float(0x7fc00123u);
    rec[layout.word("header.enable.eq10")] = 0.5f;
    rec[layout.word("maximizer.channels[0].release")] = INFINITY;
    rec[8] = 3.0f;  // no stage reads word 8
    OrderedJson doc = record_to_json(rec);
    EXPECT_EQ(doc["header"]["sample_rate"].dump(), "48000");
    EXPECT_EQ(doc["eq10"]["channels"][1]["bands"][2]["filterTypes"], "HighShelf");
    EXPECT_EQ(doc["eq10"]["channels"][1]["bands"][3]["filterTypes"].dump(), "9");
    EXPECT_EQ(doc["eq10"]["channels"][0]["bands"][0]["fc"].dump(), "0.1");
    EXPECT_EQ(doc["header"]["pre_gain_dB"][1], "0x80000000");
    EXPECT_EQ(doc["auto_gain"]["attack_time"], "0x7fc00123");
    EXPECT_EQ(doc["header"]["enable"]["eq10"].dump(), "0.5");
    EXPECT_EQ(doc["maximizer"]["channels"][0]["release"], "0x7f800000");
    EXPECT_EQ(doc["raw"].dump(), R"({"8":3.0})");
    // Read back from what a hand-written file may hold: labels in any case, "_" keys as
    // comments, exponents, "inf"; what is missing is 0.
    EXPECT_EQ(record_to_bytes(record_from_json(OrderedJson::parse(R"({"_note": "by hand", "raw": {"8": 3},
        "header": {"sample_rate": 4.8e4, "pre_gain_dB": [0, "0x80000000"], "enable": {"eq10": 0.5}},
        "auto_gain": {"attack_time": "0x7fc00123"}, "maximizer": {"channels": [{"release": "inf"}, {}]},
        "eq10": {"channels": [{"bands": [{"fc": 0.1}, {}, {}, {}, {}, {}, {}, {}, {}, {}]},
                 {"bands": [{}, {}, {"filterTypes": "highshelf"}, {"filterTypes": 9}, {}, {}, {}, {}, {}, {}]}]}})"))),
              record_to_bytes(rec));
    // Filter types by the names the equaliser prints.
    const std::vector<std::string> types{"Parametric", "LowShelf", "HighShelf", "GeneralLP", "GeneralHP", "BandPass",
                                         "ButterworthLP", "ButterworthHP"};
    EXPECT_EQ(layout.labels("filter_type"), types);
}

TEST(TuningJson, MistakesNameTheField)
{
    const std::pair<const char *, const char *> cases[] = {
        {R"({"exciter": {"channels": [{"cutoff": 3000}, {}]}})", "exciter.channels[0]: unknown field 'cutoff'"},
        {R"({"de_esser": {"channels": [{}]}})", "de_esser.channels: expected an array of 2 entries (one per channel)"},
        {R"({"eq10": {"channels": [{"bands": [{"filterTypes": "Peaking"}, {}, {}, {}, {}, {}, {}, {}, {}, {}]}, {}]}})",
         "eq10.channels[0].bands[0].filterTypes: cannot read \"Peaking\" as a value (a filter type name or code, e.g. "
         "\"Parametric\")"},
        {R"({"auto_gain": {"attack_time": true}})", "auto_gain.attack_time: expected a number, found boolean"},
        {R"({"raw": {"20": 1}})", "raw: word 20 is the field header.pre_gain_dB[0]; set it there"},
        {R"({"compressor": {}})", "unknown section 'compressor'"},
    };
    for (const auto &[text, message] : cases)
        EXPECT_EQ(error_of([&] { record_from_json(OrderedJson::parse(text)); }), message);
}

TEST(TuningFiles, UnreadableFilesGiveOneLine)
{
    ScratchDir dir;
    auto message = [](const std::string &path) { return error_of([&] { read_tuning(path); }); };
    spit(dir / "short.bin", std::string(2175, '\0'));
    spit(dir / "broken.json", "{\"header\": {\"channels\": 2,}}");
    EXPECT_EQ(message(dir / "short.bin"),
              dir / "short.bin" + ": 2175 bytes; a tuning is a JSON file or a 2176-byte record (544 float32 words)");
    EXPECT_EQ(message(dir / "missing.json"), dir / "missing.json" + ": cannot open: No such file or directory");
    EXPECT_EQ(message(dir.path()), dir.path() + ": is a folder, not a file");
    EXPECT_NE(message(dir / "broken.json").find(dir / "broken.json" + ": not valid JSON: "), std::string::npos);
}

// The layout's offsets are the library's: every field the chain reports back through
// AudioPost_GetPara sits where the layout puts it, and no reported word is outside it.
TEST(TuningLayout, AgreesWithTheLibrarysReadBack)
{
    const Layout &layout = Layout::embedded();
    Record rec{};
    for (size_t i = 0; i < layout.fields().size(); ++i) {  // distinct integral values, every stage and band on
        const Field &f = layout.fields()[i];
        const bool enable = f.path.find(".enable") != f.path.npos;
        rec[f.word] = enable ? 1.0f : static_cast<float>(f.kind == Kind::Enum ? i % 8 : 100 + i);
    }
    for (const auto &[path, value] : std::initializer_list<std::pair<const char *, float>>{
             {"header.sample_rate", 48000}, {"header.bit_depth", 16}, {"header.channel_link", 0},
             {"header.channels", 2}, {"header.tool_version", 2}, {"multiband_drc.channels[0].crossover_band", 4},
             {"multiband_drc.channels[1].crossover_band", 4}})
        rec[layout.word(path)] = value;

    constexpr float kUntouched = -12345.0f;
    Record back;
    back.fill(kUntouched);
    capture_stderr([&] {
        AudioPostState *st = AudioPost_Init(rec.data(), 64);
        ASSERT_NE(st, nullptr);
        AudioPost_GetPara(st, back.data());
        AudioPost_Destroy(st);
    });
    int compared = 0;
    for (int w = 0; w < kRecordWords; ++w) {
        if (back[w] == kUntouched)
            continue;
        const Field *f = layout.field_at(w);
        ASSERT_NE(f, nullptr) << "the library reports word " << w << ", which the layout leaves raw";
        // The de-esser reports its values at shifted words; every other read-back is in place.
        if (f->section == "de_esser")
            continue;
        EXPECT_EQ(back[w], rec[w]) << f->path;
        ++compared;
    }
    // Header 15, auto gain 5, bass enhancer 12, exciter 8, equaliser 100, compressor 82
    // (all but gain_dB and drc_enable), maximizer and AGC 22.
    EXPECT_EQ(compared, 244);
}
