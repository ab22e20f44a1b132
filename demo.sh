#!/usr/bin/env bash
# The main job on shipped defaults: build the library and its test program, then run
# the full chain (tunings/reference.bin, every stage on) over an 8-second stereo file.
#   ./demo.sh [IN.raw]      (without an argument a music-like file is generated)
# Output: build/demo/out.raw (raw 16-bit stereo, 48 kHz) and build/demo/readback.bin.
set -euo pipefail
usage() {
    echo "usage: ./demo.sh [IN.raw]"
    echo "  runs the full chain (tunings/reference.bin) over IN.raw, raw 48 kHz 16-bit stereo,"
    echo "  or over a generated 8-second music-like file; writes build/demo/out.raw"
}
case "${1:-}" in
-h | --help) usage; exit 0 ;;
-*) usage >&2; exit 2 ;;
esac
[ $# -le 1 ] || { usage >&2; exit 2; }
in=""
if [ $# -eq 1 ]; then
    [ -f "$1" ] || { echo "demo.sh: $1: no such file" >&2; exit 2; }
    in=$(realpath "$1")  # before leaving the caller's folder
fi
cd "$(dirname "$0")"
tools/ensure-deps.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build -j"$(nproc)" --target quorvel_enh >/dev/null
mkdir -p build/demo
if [ -z "$in" ]; then
    in=build/demo/in.raw
    [ -f "$in" ] || python3 scripts/make_pcm.py "$in" 8
fi
build/quorvel_enh "$in" build/demo/out.raw tunings/reference.bin tunings/reference.bin build/demo/readback.bin 0
# The test program writes whole 768-sample frames only and exits 0 regardless.
[ -s build/demo/out.raw ] || { echo "demo.sh: $in: no output (shorter than one 768-sample stereo frame?)" >&2; exit 1; }
echo "wrote build/demo/out.raw ($(stat -c %s build/demo/out.raw) bytes from $(stat -c %s "$in"))"
