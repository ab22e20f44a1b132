#!/usr/bin/env bash
# The main job on shipped defaults: build the library and its test program, then run
# the full chain (tunings/reference.bin, every stage on) over an 8-second stereo file.
#   ./demo.sh [IN.raw]      (without an argument a music-like file is generated)
# Output: build/demo/out.raw (raw 16-bit stereo, 48 kHz) and build/demo/readback.bin.
set -euo pipefail
cd "$(dirname "$0")"
tools/ensure-deps.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build -j"$(nproc)" --target quorvel_enh >/dev/null
mkdir -p build/demo
in=${1:-build/demo/in.raw}
[ $# -gt 0 ] || [ -f "$in" ] || python3 scripts/make_pcm.py "$in" 8
build/quorvel_enh "$in" build/demo/out.raw tunings/reference.bin tunings/reference.bin build/demo/readback.bin 0
echo "wrote build/demo/out.raw ($(stat -c %s build/demo/out.raw) bytes from $(stat -c %s "$in"))"
