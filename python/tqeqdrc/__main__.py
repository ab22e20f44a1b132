"""tqeqdrc {plot,process,decompile,compile,fit} ...: the eqdrc tool's commands from Python.

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
    f = sub.add_parser("fit", help="fit the EQ to a measured response and write the tuning, as eqdrc fit does")
    f.add_argument("measurement", help="response as text (REW export, two or three columns, CSV); an impulse "
                   "response (WAV) is read by eqdrc fit only")
    f.add_argument("-o", "--output", required=True, help="tuning JSON to write")
    f.add_argument("--report", help="report JSON to write: deviations before and after, bands, curves")
    f.add_argument("--plot", help="PNG of the measurement, the target, the predicted result and each band")
    f.add_argument("--target", default="flat", help="flat, tilt:DB_PER_OCTAVE (around 1 kHz) or a two-column file")
    f.add_argument("--range", default="80-16000", help="LOW-HIGH Hz fitted; below it the EQ never boosts")
    f.add_argument("--smooth", default="1/6", help="fractional-octave smoothing, 1/N or 0")
    f.add_argument("--bands", type=int, default=10, help="EQ bands to use")
    f.add_argument("--max-boost", type=float, default=6.0, help="dB, for a band and for the whole EQ")
    f.add_argument("--max-cut", type=float, default=12.0, help="dB, for a band")
    f.add_argument("--q", default="0.3-6", help="LOW-HIGH Q of the peaking bands")
    f.add_argument("--base", help="tuning whose other stages are kept (default: every stage off)")
    f.add_argument("--channel", default="both", help="0, 1 or both")
    f.add_argument("--force", action="store_true", help="write over an input")
    return ap


def _fit(a):
    """`eqdrc fit`: both files or neither, then the summary line (and the picture)."""
    from .files import write_atomic
    from .fitting import fit, is_builtin_target
    from .tuning import _write_bytes
    if a.plot:
        from . import plots  # before anything is written: matplotlib may be missing
    done = fit(a.measurement, a.target, a.range, a.smooth, a.bands, a.max_boost, a.max_cut, a.q, a.base, a.channel)
    inputs = [p for p in (a.measurement, a.base) if p] + ([] if is_builtin_target(a.target) else [a.target])

    def tuning_then_report(tmp):
        with open(tmp, "wb") as f:
            f.write(done.tuning_json.encode())
        if a.report:
            _write_bytes(a.report, done.report_json.encode(), inputs, a.force)
    write_atomic(a.output, tuning_then_report, inputs, a.force)
    print("tqeqdrc: fit: " + done.summary, file=sys.stderr)
    if a.plot:
        plots.plot_fit(done.report, a.plot)


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
        elif a.cmd == "fit":
            _fit(a)
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
