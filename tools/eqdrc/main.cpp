// eqdrc: writes, reads and checks tunings, and runs the chain over audio files.
#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <iostream>
#include <string>

#include "check.h"
#include "fit_command.h"
#include "meters_command.h"
#include "output_file.h"
#include "process.h"
#if EQDRC_HAVE_SERVE
#include "serve.h"
#endif
#include "stream_rules.h"
#include "tqaudio_eqdrc.h"
#include "tuning.h"
#if EQDRC_SIMD_DISPATCH
#endif

using namespace eqdrc_tool;

namespace {

// The exit statuses the README and --help document.
constexpr int kExitOk = 0;
constexpr int kExitFindings = 1;  // check or compile found errors, diff found differences
constexpr int kExitUsage = 2;     // bad arguments, unreadable or refused input, failed write

// Prints the check's lines for `file` to `to`; returns the number of errors.
int report_issues(const std::string &file, const Record &rec, int frameLen, FILE *to)
{
    std::vector<Issue> issues = check_tuning(rec, frameLen);
    for (const Issue &i : issues)
        std::fprintf(to, "%s: %s\n", file.c_str(), format_issue(i).c_str());
    int errors = count_errors(issues);
    std::fprintf(to, "%s: %d error(s), %d warning(s)\n", file.c_str(), errors, static_cast<int>(issues.size()) - errors);
    return errors;
}

void check_frame(int frameLen)
{
    if (frameLen < 1)
        throw Error("--frame: must be at least 1 sample");
}

// A record the library would reject or stop on is not written unless forced; warnings
// are shown and the record is written.
int compile(const std::string &in, const std::string &out, int frameLen, bool force)
{
    check_frame(frameLen);
    Record rec = read_tuning(in);
    std::vector<Issue> issues = check_tuning(rec, frameLen);
    for (const Issue &i : issues)
        std::fprintf(stderr, "eqdrc: %s: %s\n", in.c_str(), format_issue(i).c_str());
    if (int errors = count_errors(issues); errors && !force) {
        std::fprintf(stderr, "eqdrc: %s: %d error(s) above; nothing written (--force writes it anyway)\n", in.c_str(),
                     errors);
        return kExitFindings;
    }
    write_file_atomic(out, record_to_bytes(rec), {in}, force);
    return kExitOk;
}

int decompile(const std::string &in, const std::string &out, bool force)
{
    std::string text = record_to_json_text(read_tuning(in));
    if (out.empty() || out == "-")
        std::fputs(text.c_str(), stdout);
    else
        write_file_atomic(out, text, {in}, force);
    return kExitOk;
}

int check(const std::string &file, int frameLen)
{
    check_frame(frameLen);
    return report_issues(file, read_tuning(file), frameLen, stdout) ? kExitFindings : kExitOk;
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
    return differences ? kExitFindings : kExitOk;
}

const char kExitStatuses[] =
    "Exit status: 0 success; 1 the tuning check or compile found errors, or diff found differences;\n"
    "2 a usage error, an unreadable or refused input, or a failed write (nothing is left behind).";

}  // namespace

int main(int argc, char **argv)
{
    // Past a file size limit a write fails with EFBIG and is reported like a full disk,
    // rather than the signal ending the run without a word.
    std::signal(SIGXFSZ, SIG_IGN);
    remove_pending_files_on_signals();
    CLI::App app{"eqdrc: write, check and compile tunings for the EQ/DRC chain, and process audio files with it"};
    app.require_subcommand(1);
    // The library answers for itself: the one that is loaded, and the code it runs.
    const std::string version = std::string("eqdrc " EQDRC_VERSION " with libtqaudio_effect_eqdrc ") +
                                AudioPost_GetVersion(nullptr, nullptr, nullptr) +
                                " (tuning records of tool version 2.0)\nprocessing code: " +
                                AudioPost_GetProcessingCode() + " (on x86-64, EQDRC_SIMD=scalar|sse2|avx2 chooses)";
    app.set_version_flag("--version", version);
    app.footer(kExitStatuses);

    CLI::App *tuning = app.add_subcommand("tuning", "convert, check and compare tuning files (JSON or 2176-byte records)");
    tuning->require_subcommand(1);
    tuning->footer(kExitStatuses);
    std::string in, out, second;
    int frameLen = 768;
    bool force = false;

    CLI::App *compileCmd = tuning->add_subcommand("compile", "JSON tuning to a binary record (refused when the check finds errors)");
    compileCmd->add_option("IN", in, "JSON tuning (a binary record is copied)")->required();
    compileCmd->add_option("-o,--output", out, "binary record to write")->required();
    compileCmd->add_option("--frame", frameLen, "frame length the host uses, in samples per channel")->capture_default_str();
    compileCmd->add_flag("--force", force, "write even a record with errors, or over the input");
    compileCmd->footer(kExitStatuses);

    CLI::App *decompileCmd = tuning->add_subcommand("decompile", "binary record (or JSON) to JSON on standard output");
    decompileCmd->add_option("IN", in, "tuning file")->required();
    decompileCmd->add_option("-o,--output", out, "write the JSON here instead");
    decompileCmd->add_flag("--force", force, "write over the input");
    decompileCmd->footer(kExitStatuses);

    CLI::App *checkCmd = tuning->add_subcommand("check", "report what the library would reject, stop on, or do unexpectedly");
    checkCmd->add_option("FILE", in, "tuning file")->required();
    checkCmd->add_option("--frame", frameLen, "frame length the host uses, in samples per channel")->capture_default_str();
    checkCmd->footer(kExitStatuses);

    CLI::App *diffCmd = tuning->add_subcommand("diff", "list the fields that differ, by name");
    diffCmd->add_option("A", in, "first tuning")->required();
    diffCmd->add_option("B", second, "second tuning")->required();
    diffCmd->footer(kExitStatuses);

    ProcessOptions po;
    CLI::App *processCmd = app.add_subcommand("process", "run the chain over an audio file and measure the loudness");
    processCmd->add_option("IN", po.input, "input audio (any format libsndfile reads; mono or stereo)")->required();
    processCmd->add_option("OUT", po.output, "16-bit output; its format follows the name (.wav, .flac, ...)")->required();
    processCmd->add_option("--tuning", po.tuning, "tuning file (default: the built-in reference tuning)");
    processCmd->add_option("--frame", po.frameLen, "frame length in samples per channel")->capture_default_str();
    processCmd->add_option("--bypass", po.bypass, "stages to switch off, comma separated: " + stage_names())
        ->delimiter(',');
    processCmd->add_flag("-v,--verbose", po.verbose, "show the library's log");
    processCmd->add_flag("--force", po.force, "write over an input");
    processCmd->footer(kExitStatuses);

    FitCommand fc;
    CLI::App *fitCmd = app.add_subcommand("fit", "fit the EQ to a measured response and write the tuning");
    fitCmd->add_option("MEASUREMENT", fc.measurement,
                       "response as text (REW export, two or three columns, CSV) or an impulse response (WAV)")
        ->required();
    fitCmd->add_option("--target", fc.target, "flat, tilt:DB_PER_OCTAVE (around 1 kHz) or a two-column file")
        ->capture_default_str();
    fitCmd->add_option("--range", fc.range, "LOW-HIGH Hz fitted; below it the EQ never boosts")->capture_default_str();
    fitCmd->add_option("--smooth", fc.smooth, "fractional-octave smoothing, 1/N or 0")->capture_default_str();
    fitCmd->add_option("--bands", fc.bands, "EQ bands to use")->capture_default_str();
    fitCmd->add_option("--max-boost", fc.maxBoostDb, "dB, for a band and for the whole EQ")->capture_default_str();
    fitCmd->add_option("--max-cut", fc.maxCutDb, "dB, for a band")->capture_default_str();
    fitCmd->add_option("--q", fc.q, "LOW-HIGH Q of the peaking bands")->capture_default_str();
    fitCmd->add_option("--base", fc.base, "tuning whose other stages are kept (default: every stage off)");
    fitCmd->add_option("--channel", fc.channel, "0, 1 or both")->capture_default_str();
    fitCmd->add_option("-o,--output", fc.output, "tuning JSON to write")->required();
    fitCmd->add_option("--report", fc.report, "report JSON to write: deviations before and after, bands, curves");
    fitCmd->add_flag("--force", fc.force, "write over an input");
    fitCmd->footer(kExitStatuses);

    MetersCommand mc;
    CLI::App *metersCmd = app.add_subcommand("meters", "show the live meters a plugin publishes (its meters setting)");
    metersCmd->add_option("PATH", mc.path, "meter file")->required();
    metersCmd->add_flag("--once", mc.once, "print one reading as name: value lines and exit (2 when there is none)");
    metersCmd->add_flag("--json", mc.json, "with --once: the reading as one JSON object");
    metersCmd->add_option("--interval", mc.interval, "seconds between refreshes")->capture_default_str();
    metersCmd->footer(kExitStatuses);

#if EQDRC_HAVE_SERVE
    eqdrc_server::ServeOptions so;
    std::string newToken;
    CLI::App *serveCmd = app.add_subcommand("serve", "serve the studio and an API that tunes a playing device live");
    serveCmd->add_option("--tuning", so.tuning, "the tuning file the player watches (the only file written)");
    serveCmd->add_option("--listen", so.listen, "ADDRESS:PORT; other than loopback needs --token-file")
        ->capture_default_str();
    serveCmd->add_option("--token-file", so.tokenFile, "file holding the bearer token every API call must carry");
    serveCmd->add_option("--new-token", newToken, "write a new random token to this new file (mode 0600) and exit");
    serveCmd->add_option("--meters", so.meters, "the player's meter file, streamed to the studio");
    serveCmd->add_option("--site", so.site, "the studio's files (default: share/eqdrc/studio beside the program)");
    serveCmd->add_option("--allow-host", so.allowHosts, "a host name the server may be addressed by (repeatable)");
    serveCmd->add_option("--frame", so.frameLen, "frame length the player uses, for the check")->capture_default_str();
    serveCmd->footer(kExitStatuses);
#endif

    try {
        app.parse(argc, argv);
    } catch (const CLI::Success &e) {  // --help, --version
        return app.exit(e);
    } catch (const CLI::ParseError &e) {
        app.exit(e);  // prints the problem
        return kExitUsage;
    }

    try {
        if (*compileCmd)
            return compile(in, out, frameLen, force);
        if (*decompileCmd)
            return decompile(in, out, force);
        if (*checkCmd)
            return check(in, frameLen);
        if (*diffCmd)
            return diff(in, second);
        if (*fitCmd) {
            run_fit(fc, stderr);
            return kExitOk;
        }
#if EQDRC_HAVE_SERVE
        if (*serveCmd) {
            if (!newToken.empty()) {
                eqdrc_server::write_new_token(newToken);
                return kExitOk;
            }
            if (so.tuning.empty())
                throw Error("serve: --tuning is required");
            return eqdrc_server::run_serve(so, version.substr(0, version.find('\n')), stderr);
        }
#endif
        if (*metersCmd)
            return run_meters(mc, stdout);
        if (*processCmd) {
            ProcessSummary s = process_file(po, stderr);
            print_summary(s, stdout);
            return kExitOk;
        }
    } catch (const std::exception &e) {
        std::fflush(stdout);
        std::fprintf(stderr, "eqdrc: %s\n", e.what());
        return kExitUsage;
    }
    return kExitUsage;
}
