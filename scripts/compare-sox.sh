#!/usr/bin/env bash
# Runs our chain (quorvel_enh with the reference tuning, every stage on) and sox's
# nearest equivalent chain (gain, bass, ten equalizer bands, a four-band mcompand, a
# compand) over the same music-like stereo file (AUDIO_SECONDS long, default 8; a minute
# or more keeps process start-up out of the figure), in one run, and prints both
# real-time factors and their ratio.  Each side's time is the best of RUNS runs
# (default 5), so a busy machine disturbs the figure as little as possible.
#   scripts/compare-sox.sh [BUILD_DIR]      (default: build, a Release build)
# sox is optional: the script tries tools/ensure-deps.sh --with-sox and otherwise skips.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
runs=${RUNS:-5}
if ! command -v sox >/dev/null; then
    tools/ensure-deps.sh --with-sox >/dev/null 2>&1 || true
    command -v sox >/dev/null || { echo "sox is not installed: comparison skipped"; exit 0; }
fi
. scripts/test-program.sh
prepare_test_program "$build" compare-sox -DCMAKE_BUILD_TYPE=Release
seconds=${AUDIO_SECONDS:-8}
in="$work/in-$seconds.raw"
[ -f "$in" ] || python3 scripts/make_pcm.py "$in" "$seconds"

# The reference tuning in sox's terms: 0 dB pre-gain, +3 dB bass at 100 Hz, the ten
# equaliser bands, four compressor bands split at 200, 1000 and 4000 Hz, and the AGC
# and limiter as one compand.
band='0.001,0.1 6:-64,-64,-50,-50,-20,-20,0,-10'
sox_effects=(gain 0 bass +3 100
    equalizer 80 1q 2 equalizer 125 1q 1 equalizer 250 1q -1 equalizer 500 1q -0.5
    equalizer 1000 1q 0.5 equalizer 2000 1q 1 equalizer 4000 1q 1.5 equalizer 8000 1q 1
    equalizer 12000 1q 0.5 equalizer 10000 1q 1
    mcompand "$band" 200 "$band" 1000 "$band" 4000 "$band"
    compand 0.05,0.5 6:-60,-60,-40,-24,-20,-20,-3,-3 -1)
raw=(-t raw -r 48000 -e signed-integer -b 16 -c 2)

# Best wall-clock seconds of `runs` runs of the given command.
best_of() {
    python3 - "$runs" "$@" <<'EOF'
import subprocess, sys, time
runs = int(sys.argv[1])
best = None
for _ in range(runs):
    t0 = time.perf_counter()
    subprocess.run(sys.argv[2:], check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    t = time.perf_counter() - t0
    best = t if best is None or t < best else best
print("%.6f" % best)
EOF
}

ours=$(best_of "$build/quorvel_enh" "$in" "$work/out.raw" tunings/reference.bin tunings/reference.bin \
    "$work/readback.bin")
theirs=$(best_of sox -q "${raw[@]}" "$in" "${raw[@]}" "$work/sox.raw" "${sox_effects[@]}")
awk -v s="$seconds" -v a="$ours" -v b="$theirs" 'BEGIN {
    printf "audio:                 %d s, 48 kHz 16-bit stereo (best of '"$runs"' runs each)\n", s
    printf "ours (quorvel_enh):    %8.3f s  %7.0fx real time\n", a, s / a
    printf "sox:                   %8.3f s  %7.0fx real time\n", b, s / b
    printf "ratio:                 %.2fx faster than sox\n", b / a }'
