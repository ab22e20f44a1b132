#!/usr/bin/env bash
# Denormal-tail check: instructions per stereo sample of the full chain (reference
# tuning, callgrind) over 8 s of music and over 2 s of music followed by 6 s of digital
# silence, where decaying filter memories and envelopes pass through the denormal range.
# Callgrind counts instructions, which denormals do not change, so the wall-clock time
# (best of 7 runs each) is compared too.  Fails when the tail costs more than 1.5x music.
#   scripts/denormal-tail.sh [BUILD_DIR]      (default: build, a Release build)
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
command -v valgrind >/dev/null || { echo "needs valgrind (apt-get install valgrind)" >&2; exit 1; }
. scripts/test-program.sh
prepare_test_program "$build" denormal-tail -DCMAKE_BUILD_TYPE=Release
samples=$((8 * 48000))
python3 scripts/make_pcm.py "$work/music.raw" 8
python3 scripts/make_pcm.py "$work/head.raw" 2
{ cat "$work/head.raw"; head -c $((6 * 48000 * 4)) /dev/zero; } >"$work/tail.raw"
figure() {
    valgrind --tool=callgrind --callgrind-out-file="$work/$1.out" "$build/quorvel_enh" "$work/$1.raw" \
        "$work/$1.out.raw" tunings/reference.bin tunings/reference.bin "$work/readback.bin" >/dev/null 2>&1
    sed -n 's/^summary: //p' "$work/$1.out"
}
music=$(figure music)
tail=$(figure tail)
awk -v n="$samples" -v m="$music" -v t="$tail" 'BEGIN {
    printf "instructions per stereo sample: music %.0f, music then silence %.0f, ratio %.2f (limit 1.5)\n",
        m / n, t / n, t / m
    exit (t / m > 1.5) }'
python3 - "$build/quorvel_enh" "$work" <<'PY'
import subprocess, sys, time
tool, work = sys.argv[1], sys.argv[2]
def best(name):
    b = None
    for _ in range(7):
        t0 = time.perf_counter()
        subprocess.run([tool, f"{work}/{name}.raw", f"{work}/{name}.out.raw", "tunings/reference.bin",
                        "tunings/reference.bin", f"{work}/readback.bin"], check=True,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        t = time.perf_counter() - t0
        b = t if b is None or t < b else b
    return b
m, t = best("music"), best("tail")
print("wall clock (best of 7): music %.3f s, music then silence %.3f s, ratio %.2f (limit 1.5)" % (m, t, t / m))
sys.exit(1 if t / m > 1.5 else 0)
PY
