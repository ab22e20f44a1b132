// The JSON tuning format: exact round trips, readable values, clear errors, and a layout
// that agrees with what the library reads.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <random>
#include <tqaudio_eqdrc.h>

#include "tool_test_support.h"
#include "tuning.h"

using namespace eqdrc_tool;
using namespace eqdrc_tool_test;

namespace {

const std::string kTunings = EQDRC_SOURCE_DIR "/tunings/";

Record round_trip(const Record &rec)
{
    return record_from_json(OrderedJson::parse(format_json(record_to_json(rec))));
}

// Words that stress the encoding: NaNs with payloads, infinities, both zeros, denormals,
// integers (written as JSON integers or enum labels) and arbitrary bit patterns.
float awkward_word(std::mt19937 &rng)
{
    std::uniform_int_distribution<uint32_t> bits;
    switch (rng() % 10) {
    case 0: return bits_float(0x7f800001u | (bits(rng) & 0x807fffffu));  // NaN, any sign and payload
    case 1: return (rng() & 1) ? INFINITY : -INFINITY;
    case 2: return (rng() & 1) ? 0.0f : -0.0f;
    case 3: return bits_float(bits(rng) & 0x807fffffu);                  // denormal
    case 4: return static_cast<float>(static_cast<int>(rng() % 20) - 4);  // small integer, filter codes
    case 5: return static_cast<float>(rng() % 96000);
    case 6: return std::ldexp(static_cast<float>(rng() % 1000) / 7.0f, static_cast<int>(rng() % 60) - 30);
    case 7: return 16777217.0f + static_cast<float>(rng() % 100) * 2.0f;  // integers past 2^24
    default: return bits_float(bits(rng));
    }
}

void expect_same_bytes(const Record &a, const Record &b, int seed)
{
    for (int w = 0; w < kRecordWords; ++w)
        ASSERT_EQ(float_bits(a[w]), float_bits(b[w])) << "word " << w << " of record " << seed;
}

}  // namespace

TEST(TuningRoundTrip, RandomRecordsComeBackByteIdentical)
{
    std::mt19937 rng(20261122);
    for (int seed = 0; seed < 300; ++seed) {
        Record rec;
        for (float &w : rec)
            w = awkward_word(rng);
        expect_same_bytes(rec, round_trip(rec), seed);
    }
}

TEST(TuningRoundTrip, ShippedRecordsAndExamples)
{
    for (const char *name : {"reference.bin", "bypass.bin"}) {
        std::string bytes = slurp(kTunings + name);
        ASSERT_EQ(bytes.size(), kRecordBytes) << name;
        EXPECT_EQ(record_to_bytes(round_trip(record_from_bytes(bytes))), bytes) << name;
    }
    // The readable bypass example is the shipped bypass record.
    EXPECT_EQ(record_to_bytes(read_tuning(kTunings + "bypass.json")), slurp(kTunings + "bypass.bin"));
    // Each example is in the form decompile writes, apart from its "_about" line.
    for (const char *name : {"bypass.json", "speech.json", "music.json", "loud-small-speaker.json"}) {
        std::string text = slurp(kTunings + name);
        OrderedJson doc = OrderedJson::parse(text);
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
    rec[8] = 3.0f;  // no stage reads word 8
    OrderedJson doc = record_to_json(rec);
    EXPECT_EQ(doc["header"]["sample_rate"].dump(), "48000");
    EXPECT_EQ(doc["eq10"]["channels"][1]["bands"][2]["filterTypes"], "HighShelf");
    EXPECT_EQ(doc["eq10"]["channels"][1]["bands"][3]["filterTypes"].dump(), "9");
    EXPECT_EQ(doc["eq10"]["channels"][0]["bands"][0]["fc"].dump(), "0.1");
    EXPECT_EQ(doc["header"]["pre_gain_dB"][1], "0x80000000");
    EXPECT_EQ(doc["auto_gain"]["attack_time"], "0x7fc00123");
    EXPECT_EQ(doc["header"]["enable"]["eq10"].dump(), "0.5");
    EXPECT_EQ(doc["raw"].dump(), R"({"8":3.0})");
}

TEST(TuningJson, HandWrittenInputIsForgivingWhereItIsSafe)
{
    // Missing fields are 0, labels ignore case, "_" keys are comments, hex and inf are read.
    Record rec = record_from_json(OrderedJson::parse(R"({
        "_note": "hand written",
        "header": {"sample_rate": 44100, "channels": 1},
        "eq10": {"channels": [{"bands": [{"enable": 1, "filterTypes": "bandpass", "fc": 5e3}, {}, {}, {}, {}, {}, {}, {}, {}, {}]}, {}]},
        "maximizer": {"channels": [{"release": "inf"}, {"ceiling": "0xbf800000"}]}
    })"));
    const Layout &layout = Layout::embedded();
    EXPECT_EQ(rec[layout.word("header.sample_rate")], 44100.0f);
    EXPECT_EQ(rec[layout.word("header.bit_depth")], 0.0f);
    EXPECT_EQ(rec[layout.word("eq10.channels[0].bands[0].filterTypes")], 5.0f);
    EXPECT_EQ(rec[layout.word("eq10.channels[0].bands[0].fc")], 5000.0f);
    EXPECT_EQ(rec[layout.word("maximizer.channels[0].release")], INFINITY);
    EXPECT_EQ(rec[layout.word("maximizer.channels[1].ceiling")], -1.0f);
}

TEST(TuningJson, MistakesNameTheField)
{
    auto message = [](const char *text) {
        try {
            record_from_json(OrderedJson::parse(text));
        } catch (const Error &e) {
            return std::string(e.what());
        }
        return std::string("accepted");
    };
    EXPECT_EQ(message(R"({"exciter": {"channels": [{"cutoff": 3000}, {}]}})"),
              "exciter.channels[0]: unknown field 'cutoff'");
    EXPECT_EQ(message(R"({"de_esser": {"channels": [{}]}})"),
              "de_esser.channels: expected an array of 2 entries (one per channel)");
    EXPECT_EQ(message(R"({"eq10": {"channels": [{"bands": [{"filterTypes": "Peaking"}, {}, {}, {}, {}, {}, {}, {}, {}, {}]}, {}]}})"),
              "eq10.channels[0].bands[0].filterTypes: cannot read \"Peaking\" as a value (a filter type name or code, e.g. \"Parametric\")");
    EXPECT_EQ(message(R"({"auto_gain": {"attack_time": true}})"), "auto_gain.attack_time: expected a number, found boolean");
    EXPECT_EQ(message(R"({"raw": {"20": 1}})"), "raw: word 20 is the field header.pre_gain_dB[0]; set it there");
    EXPECT_EQ(message(R"({"compressor": {}})"), "unknown section 'compressor'");
}

TEST(TuningFiles, UnreadableFilesGiveOneLine)
{
    ScratchDir dir;
    auto message = [](const std::string &path) {
        try {
            read_tuning(path);
        } catch (const Error &e) {
            return std::string(e.what());
        }
        return std::string("accepted");
    };
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
    for (size_t i = 0; i < layout.fields().size(); ++i) {
        const Field &f = layout.fields()[i];
        rec[f.word] = static_cast<float>(f.kind == Kind::Enum ? i % 8 : 100 + i);  // distinct, integral
    }
    rec[layout.word("header.sample_rate")] = 48000.0f;
    rec[layout.word("header.bit_depth")] = 16.0f;
    rec[layout.word("header.channel_link")] = 0.0f;
    rec[layout.word("header.channels")] = 2.0f;
    rec[layout.word("header.tool_version")] = 2.0f;
    for (const Field &f : layout.fields())
        if (f.path.rfind("header.enable.", 0) == 0 ||
            (f.path.find(".bands[") != std::string::npos && f.path.substr(f.path.rfind('.')) == ".enable"))
            rec[f.word] = 1.0f;
    for (int c = 0; c < 2; ++c)
        rec[layout.word("multiband_drc.channels[" + std::to_string(c) + "].crossover_band")] = 4.0f;

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

// The filter type names are the ones the library prints for the equaliser.
TEST(TuningLayout, FilterTypeNamesMatchTheEqualisersPrintOut)
{
    const std::vector<std::string> &labels = Layout::embedded().labels("filter_type");
    ASSERT_EQ(labels.size(), 8u);
    for (int type = 0; type < 5; ++type) {
        float section[100] = {};
        section[0] = 1.0f;  // band 0 on
        section[1] = static_cast<float>(type);
        section[2] = 1000.0f;
        section[3] = 1.0f;
        std::string log = capture_stderr([&] {
            EQ10State *eq = EQ10_Init(section, 16, 48000, 1, 64, 0);
            EQ10_PrintPara(eq);
            EQ10_Destroy(eq);
        });
        EXPECT_NE(log.find("filterTypes:" + labels[type] + "\n"), std::string::npos) << log;
    }
}
