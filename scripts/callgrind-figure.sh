#!/usr/bin/env bash
# Instructions per stereo sample of the full chain, a figure free of machine noise:
# callgrind runs the test program over a fixed 8-second music-like stereo file with the
# reference tuning (every stage on).  Prints the whole run and the part spent inside
# AudioPost_Process, each divided by the number of stereo samples.
#   scripts/callgrind-figure.sh [BUILD_DIR]      (default: build, a Release build)
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
command -v valgrind >/dev/null || { echo "needs valgrind (apt-get install valgrind)" >&2; exit 1; }
. scripts/test-program.sh
prepare_test_program "$build" callgrind -DCMAKE_BUILD_TYPE=Release
seconds=8
[ -f "$work/in.raw" ] || python3 scripts/make_pcm.py "$work/in.raw" "$seconds"
samples=$((seconds * 48000))
valgrind --tool=callgrind --callgrind-out-file="$work/callgrind.out" \
    "$build/quorvel_enh" "$work/in.raw" "$work/out.raw" tunings/reference.bin \
    tunings/reference.bin "$work/readback.bin" >/dev/null 2>"$work/valgrind.log"
total=$(sed -n 's/^summary: //p' "$work/callgrind.out")
process=$(callgrind_annotate --inclusive=yes "$work/callgrind.out" 2>/dev/null |
    awk '/AudioPost_Process/ { gsub(",", "", $1); print $1; exit }')
awk -v n="$samples" -v t="$total" -v p="$process" 'BEGIN {
    printf "stereo samples:                     %d\n", n
    printf "instructions, whole run:            %d (%.0f per stereo sample)\n", t, t / n
    printf "instructions, AudioPost_Process:    %d (%.0f per stereo sample)\n", p, p / n }'
