"""Command line: python3 -m tqeqdrc {plot,process,decompile,compile} ..."""
import argparse
import os
import sys

DEFAULT_TUNING = os.path.join(os.path.dirname(os.path.dirname(os.path.dirname(os.path.realpath(__file__)))),
                              "tunings", "reference.bin")


def main(argv=None):
    ap = argparse.ArgumentParser(prog="python3 -m tqeqdrc", description=__doc__)
    sub = ap.add_subparsers(dest="cmd", required=True)
    p = sub.add_parser("plot", help="draw a tuning's EQ, crossover, compressor, AGC and limiter curves")
    p.add_argument("tuning", help="JSON or 2176-byte binary tuning")
    p.add_argument("-o", "--output", required=True, help="PNG to write")
    q = sub.add_parser("process", help="run a 16-bit WAV through the chain")
    q.add_argument("input")
    q.add_argument("output")
    q.add_argument("--tuning", default=DEFAULT_TUNING, help="default: tunings/reference.bin")
    q.add_argument("--frame", type=int, default=768, help="samples per channel per frame (default 768)")
    q.add_argument("--bypass", default="", help="stages to switch off, e.g. eq10,maximizer")
    q.add_argument("--report", help="PNG of input/output loudness over time and gain reduction")
    d = sub.add_parser("decompile", help="tuning to JSON on standard output")
    d.add_argument("tuning")
    c = sub.add_parser("compile", help="tuning to a 2176-byte record")
    c.add_argument("tuning")
    c.add_argument("-o", "--output", required=True)
    a = ap.parse_args(argv)

    from . import chain, plots, tuning, wavio
    try:
        if a.cmd == "plot":
            plots.plot_tuning(tuning.read_tuning(a.tuning), a.output, title=os.path.basename(a.tuning))
        elif a.cmd == "decompile":
            sys.stdout.write(tuning.format_json(tuning.record_to_json(tuning.read_tuning(a.tuning))))
        elif a.cmd == "compile":
            tuning.write_record(a.output, tuning.read_tuning(a.tuning))
        else:
            pcm, rate = wavio.read_wav(a.input)
            bypass = [s for s in a.bypass.split(",") if s]
            rec = tuning.adapt(tuning.read_tuning(a.tuning), rate, pcm.shape[1], bypass)
            with chain.Chain(rec, a.frame) as ch:
                out = ch.process(pcm)
            wavio.write_wav(a.output, out, rate)
            if a.report:
                plots.plot_report(pcm, out, rate, a.report,
                                  title="%s through %s" % (os.path.basename(a.input), os.path.basename(a.tuning)))
    except (OSError, ValueError) as e:
        print("tqeqdrc: %s" % e, file=sys.stderr)
        return 2
    return 0


if __name__ == "__main__":
    sys.exit(main())
