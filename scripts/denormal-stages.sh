#!/usr/bin/env bash
# What a decaying tail costs each stage, relative to programme: runs
# bench/denormal_bench once per processing path (EQDRC_SIMD=avx2 and sse2 on x86-64, the
# build's own elsewhere) and prints, per stage and for the chain, the tail's time over
# the music's.  Marks a ratio above 1.5 with "!" and then exits 1.  A benchmark, so a
# busy machine moves the figures: run it on a quiet one.
#   scripts/denormal-stages.sh [BUILD_DIR]      (default: build, a Release build)
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
bench=$build/bench/denormal_bench
[ -x "$bench" ] || { echo "no $bench: build the benchmarks first" >&2; exit 1; }
paths=native
[ "$(uname -m)" = x86_64 ] && paths="avx2 sse2"
status=0
for path in $paths; do
    line=$(EQDRC_SIMD=$path "$bench" --benchmark_min_time=0.5 --benchmark_filter='ftz:0' 2>/dev/null |
        awk '/^BM_/ {
            split($1, a, "/"); name = a[1]; sub("BM_", "", name)
            if (a[2] == "tail:0") { music[name] = $2; order[++n] = name } else tail[name] = $2
        }
        END {
            bad = 0
            for (i = 1; i <= n; i++) {
                r = tail[order[i]] / music[order[i]]
                printf "%s %.2f%s  ", order[i], r, (r > 1.5 ? "!" : "")
                if (r > 1.5) bad = 1
            }
            print ""
            exit bad
        }') || status=1
    echo "$path: $line"
done
exit $status
