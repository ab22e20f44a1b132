#!/usr/bin/env bash
# Speed of each build of the processing code (scalar lanes, SSE2, AVX2; forced with
# EQDRC_SIMD) on this machine, as a Markdown table: every stage's process call and the
# whole chain in ns per stereo sample and as a real-time factor (Google Benchmark, 48 kHz,
# 768-sample frames), and the chain against sox's nearest chain over AUDIO_SECONDS
# (default 60) of music (scripts/compare-sox.sh).  Each benchmark runs REPS times (default
# 5) and the fastest run counts, as compare-sox takes the best of its runs: on a shared
# machine the slower runs measure the neighbours.
#   scripts/simd-table.sh [BUILD_DIR]      (default: build, a Release build)
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$build" -j"$(nproc)" >/dev/null
paths=(scalar sse2 avx2)
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT
for path in "${paths[@]}"; do
    for b in chain enhance enhance_meter eq10 multiband_drc dynamics; do
        EQDRC_SIMD=$path "$build/bench/${b}_bench" --benchmark_format=csv --benchmark_min_time=0.3 \
            --benchmark_repetitions="${REPS:-5}" 2>/dev/null |
            grep -v '^#' >"$out/$path-$b.csv"
    done
    EQDRC_SIMD=$path AUDIO_SECONDS=${AUDIO_SECONDS:-60} RUNS=${RUNS:-3} scripts/compare-sox.sh "$build" |
        sed -n 's/^ratio: *\([0-9.]*\)x.*/\1/p' >"$out/$path-sox"
done
python3 - "$out" "${paths[@]}" <<'PY'
import csv, glob, os, sys
out, paths = sys.argv[1], sys.argv[2:]
rows, order = {}, []
for p in paths:
    for f in sorted(glob.glob(f"{out}/{p}-*.csv")):
        lines = open(f).read().splitlines()
        if not lines:
            continue
        for r in csv.DictReader(lines):
            ns = r.get("ns_per_sample")
            if not ns:
                continue
            name = r["name"]
            if name.endswith(("_mean", "_median", "_stddev", "_cv")):
                continue
            if name not in order:
                order.append(name)
            best = rows.setdefault(name, {}).get(p)
            rows[name][p] = float(ns) if best is None else min(best, float(ns))
print("| per stereo sample | " + " | ".join(f"{p}: ns, x real time" for p in paths) + " |")
print("|---|" + "---|" * len(paths))
for name in order:
    cells = []
    for p in paths:
        ns = rows[name].get(p)
        cells.append(f"{ns:.1f} ns, {1e9 / 48000 / ns:.0f}x" if ns else "-")
    print(f"| {name} | " + " | ".join(cells) + " |")
sox = [open(f"{out}/{p}-sox").read().strip() or "-" for p in paths]
print("| whole chain against sox (sox's time / ours) | " + " | ".join(f"{s}x" for s in sox) + " |")
PY
echo
echo "machine: $(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2 | sed 's/^ //'), $(nproc) cores; load: $(cut -d' ' -f1-3 /proc/loadavg)"
