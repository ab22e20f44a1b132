"""tqeqdrc {plot,process,decompile,compile} ...: the eqdrc tool's commands from Python.

Exit status: 0 success; 1 compile found errors in the tuning; 2 a usage error, an
unreadable or refused input, or a failed write (nothing is left behind)."""
import argparse
import os
import signal
import sys

EXIT_OK, EXIT_FINDINGS, EXIT_USAGE = 0, 1, 2
# Signals that end a run: raised as SystemExit, so that a pending output is removed.
ENDING_SIGNALS = ("SIGHUP", "SIGTERM", "SIGQUIT")


class _Parser(argparse.ArgumentParser):
    def error(self, message):
        self.print_usage(sys.stderr)
        self.exit(EXIT_USAGE, "%s: error: %s\n" % (self.prog, message))


def _parser():
    ap = _Parser(prog="tqeqdrc", description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    sub = ap.add_subparsers(dest="cmd", required=True)
    p = sub.add_parser("plot", help="draw a tuning's EQ, crossover, compressor, AGC and limiter curves")
    p.add_argument("tuning", help="JSON or 2176-byte binary tuning")
    p.add_argument("-o", "--output", required=True, help="PNG to write")
    q = sub.add_parser("process", help="run an audio file through the chain, as eqdrc process does")
    q.add_argument("input", help="any format libsndfile reads (16-bit WAV without python3-soundfile)")
    q.add_argument("output", help="16-bit; its format follows the name (.wav, .flac, ...)")
    q.add_argument("--tuning", help="tuning file (default: the built-in reference tuning)")
    q.add_argument("--frame", type=int, default=768, help="samples per channel per frame (default 768)")
    q.add_argument("--bypass", default="", help="stages to switch off, comma separated, e.g. eq10,maximizer")
    q.add_argument("--force", action="store_true", help="write over an input")
    q.add_argument("--report", help="PNG of input/output loudness over time and their level difference")
    d = sub.add_parser("decompile", help="tuning to JSON on standard output")
    d.add_argument("tuning")
    c = sub.add_parser("compile", help="tuning to a 2176-byte record (refused when the check finds errors)")
    c.add_argument("tuning")
    c.add_argument("-o", "--output", required=True)
    c.add_argument("--frame", type=int, default=768, help="frame length the host uses (default 768)")
    c.add_argument("--force", action="store_true", help="write even a record with errors, or over the input")
    return ap


def _stop(signum, _frame):
    sys.exit(128 + signum)


def main(argv=None):
    a = _parser().parse_args(argv)
    import tqeqdrc
    if getattr(tqeqdrc, "MISSING", None):
        print("tqeqdrc: %s" % tqeqdrc.MISSING, file=sys.stderr)
        return EXIT_USAGE
    from . import rules, tuning
    from .process import DEFAULT_TUNING_NAME, process_file
    for name in ENDING_SIGNALS:
        sig = getattr(signal, name)
        if signal.getsignal(sig) == signal.SIG_DFL:
            signal.signal(sig, _stop)
    try:
        if a.cmd == "plot":
            from . import plots
            plots.plot_tuning(tuning.read_tuning(a.tuning), a.output, title=os.path.basename(a.tuning))
        elif a.cmd == "decompile":
            sys.stdout.write(tuning.record_to_json_text(tuning.read_tuning(a.tuning)))
        elif a.cmd == "compile":
            rec = tuning.read_tuning(a.tuning)
            lines, errors = rules.check(rec, a.frame, a.tuning)
            for line in lines:
                print("tqeqdrc: " + line, file=sys.stderr)
            if errors and not a.force:
                print("tqeqdrc: %s: %d error(s) above; nothing written (--force writes it anyway)"
                      % (a.tuning, errors), file=sys.stderr)
                return EXIT_FINDINGS
            tuning.write_record(a.output, rec, [a.tuning], a.force)
        else:
            bypass = [s for s in a.bypass.split(",") if s]
            done = process_file(a.input, a.output, a.tuning, a.frame, bypass, a.force)
            for w in done.warnings:
                print(w)
            if a.report:
                from . import plots
                plots.plot_report(done.pcm_in, done.pcm_out, done.sample_rate, a.report, record=done.record,
                                  title="%s through %s" % (os.path.basename(a.input),
                                                           os.path.basename(a.tuning or DEFAULT_TUNING_NAME)))
    except (OSError, ValueError, RuntimeError) as e:
        sys.stdout.flush()
        print("tqeqdrc: %s" % e, file=sys.stderr)
        return EXIT_USAGE
    return EXIT_OK


if __name__ == "__main__":
    sys.exit(main())
