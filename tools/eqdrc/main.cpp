// eqdrc: writes, reads and checks tunings, and runs the chain over audio files.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <iostream>

#include "check.h"
#include "process.h"
#include "tuning.h"

using namespace eqdrc_tool;

namespace {

int compile(const std::string &in, const std::string &out)
{
    Record rec = read_tuning(in);
    write_file_atomic(out, record_to_bytes(rec));
    return 0;
}

int decompile(const std::string &in, const std::string &out)
{
    std::string text = format_json(record_to_json(read_tuning(in)));
    if (out.empty() || out == "-")
        std::fputs(text.c_str(), stdout);
    else
        write_file_atomic(out, text);
    return 0;
}

int check(const std::string &file, int frameLen)
{
    if (frameLen < 1)
        throw Error("--frame: must be at least 1 sample");
    std::vector<Issue> issues = check_tuning(read_tuning(file), frameLen);
    for (const Issue &i : issues)
        std::printf("%s: %s\n", file.c_str(), format_issue(i).c_str());
    int errors = count_errors(issues);
    int warnings = static_cast<int>(issues.size()) - errors;
    std::printf("%s: %d error(s), %d warning(s)\n", file.c_str(), errors, warnings);
    return errors ? 1 : 0;
}

int diff(const std::string &a, const std::string &b)
{
    Record ra = read_tuning(a), rb = read_tuning(b);
    const Layout &layout = Layout::embedded();
    int differences = 0;
    for (int w = 0; w < kRecordWords; ++w) {
        if (float_bits(ra[w]) == float_bits(rb[w]))
            continue;
        const Field *f = layout.field_at(w);
        std::string name = f ? f->path : "raw." + std::to_string(w);
        std::printf("%s: %s -> %s\n", name.c_str(), shortest_text(ra[w]).c_str(), shortest_text(rb[w]).c_str());
        ++differences;
    }
    return differences ? 1 : 0;
}

}  // namespace

int main(int argc, char **argv)
{
    CLI::App app{"eqdrc: write, check and compile tunings for the EQ/DRC chain, and process audio files with it"};
    app.require_subcommand(1);

    CLI::App *tuning = app.add_subcommand("tuning", "convert, check and compare tuning files (JSON or 2176-byte records)");
    tuning->require_subcommand(1);
    std::string in, out, second;
    int frameLen = 768;

    CLI::App *compileCmd = tuning->add_subcommand("compile", "JSON tuning to a binary record");
    compileCmd->add_option("IN", in, "JSON tuning (a binary record is copied)")->required();
    compileCmd->add_option("-o,--output", out, "binary record to write")->required();

    CLI::App *decompileCmd = tuning->add_subcommand("decompile", "binary record (or JSON) to JSON on standard output");
    decompileCmd->add_option("IN", in, "tuning file")->required();
    decompileCmd->add_option("-o,--output", out, "write the JSON here instead");

    CLI::App *checkCmd = tuning->add_subcommand("check", "report what the library would reject, stop on, or do unexpectedly");
    checkCmd->add_option("FILE", in, "tuning file")->required();
    checkCmd->add_option("--frame", frameLen, "frame length the host uses, in samples per channel")->capture_default_str();

    CLI::App *diffCmd = tuning->add_subcommand("diff", "list the fields that differ, by name");
    diffCmd->add_option("A", in, "first tuning")->required();
    diffCmd->add_option("B", second, "second tuning")->required();

    ProcessOptions po;
    CLI::App *processCmd = app.add_subcommand("process", "run the chain over an audio file and measure the loudness");
    processCmd->add_option("IN", po.input, "input audio (any format libsndfile reads; mono or stereo)")->required();
    processCmd->add_option("OUT", po.output, "16-bit output; its format follows the name (.wav, .flac, ...)")->required();
    processCmd->add_option("--tuning", po.tuning, "tuning file (default: the built-in reference tuning)");
    processCmd->add_option("--frame", po.frameLen, "frame length in samples per channel")->capture_default_str();
    processCmd->add_option("--bypass", po.bypass, "stages to switch off, e.g. auto_gain,maximizer")->delimiter(',');
    processCmd->add_flag("-v,--verbose", po.verbose, "show the library's log");

    CLI11_PARSE(app, argc, argv);

    try {
        if (*compileCmd)
            return compile(in, out);
        if (*decompileCmd)
            return decompile(in, out);
        if (*checkCmd)
            return check(in, frameLen);
        if (*diffCmd)
            return diff(in, second);
        if (*processCmd) {
            ProcessSummary s = process_file(po, stderr);
            print_summary(s, stdout);
            return 0;
        }
    } catch (const std::exception &e) {
        std::fflush(stdout);
        std::fprintf(stderr, "eqdrc: %s\n", e.what());
        return 2;
    }
    return 2;
}
