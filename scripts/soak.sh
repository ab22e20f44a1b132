#!/usr/bin/env bash
# Soak: builds scripts/soak.cpp against BUILD's library and runs it twice at once, HOURS
# of generated audio each with a retune every RETUNE seconds; fails when either run
# fails a check (finite equaliser frames, no frame pinned at full scale, no silent frame
# for loud input) or the two runs' output hashes differ at any hour.
#   scripts/soak.sh [HOURS (24)] [RETUNE_SECONDS (3)] [BUILD (build)]
set -euo pipefail
cd "$(dirname "$0")/.."
hours=${1:-24}
retune=${2:-3}
build=${3:-build}
[ -f "$build/libtqaudio_effect_eqdrc.so" ] ||
    { cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Release >/dev/null && cmake --build "$build" -j2 >/dev/null; }
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT
g++ -std=c++17 -O2 -ffp-contract=off -Wall -Wextra -Iinclude scripts/soak.cpp -o "$out/soak" \
    -L"$build" -ltqaudio_effect_eqdrc -Wl,-rpath,"$PWD/$build" -lm
t0=$SECONDS
status=0
LD_LIBRARY_PATH="$build" nice "$out/soak" tunings/reference.bin "$hours" "$retune" >"$out/a" 2>/dev/null &
a=$!
LD_LIBRARY_PATH="$build" nice "$out/soak" tunings/reference.bin "$hours" "$retune" >"$out/b" 2>/dev/null &
b=$!
wait $a || status=1
wait $b || status=1
cat "$out/a"
if ! cmp -s "$out/a" "$out/b"; then
    echo "soak: the second run differs:"
    diff "$out/a" "$out/b" || true
    status=1
fi
echo "soak: $hours h of audio twice in $((SECONDS - t0)) s: $([ $status = 0 ] && echo passed || echo FAILED)"
exit $status
