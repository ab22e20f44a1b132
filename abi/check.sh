#!/usr/bin/env bash
# The library's public interface against the baseline kept beside this script: fails when
# anything in it was removed or changed (a function, a parameter, a struct's layout, the
# SONAME); additions pass.
#   abi/check.sh [BUILD_DIR]            (default: build-abi)
#   abi/check.sh --update [BUILD_DIR]   writes the baseline anew, for an intended change
set -euo pipefail
cd "$(dirname "$0")/.."
update=0
if [ "${1:-}" = --update ]; then
    update=1
    shift
fi
build=${1:-build-abi}
baseline=abi/tqaudio_effect_eqdrc.abi

# With debug information, which holds the interface's types. One copy of the processing
# code: the x86-64 per-CPU library enters its copies through assembly stubs, which carry
# none. The source folder is mapped away so that the baseline does not name it.
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DEQDRC_SIMD_DISPATCH=OFF \
    -DEQDRC_BUILD_TESTS=OFF -DEQDRC_BUILD_BENCH=OFF -DEQDRC_BUILD_TOOLS=OFF -DEQDRC_BUILD_PLUGINS=OFF \
    -DCMAKE_CXX_FLAGS="-ffile-prefix-map=$PWD/=" >/dev/null
cmake --build "$build" -j"$(nproc)" --target tqaudio_effect_eqdrc >/dev/null
# Only what the library exports and the types the public header defines: the handles stay
# opaque, so a stage's inner layout is free to change.
abidw --exported-interfaces-only --headers-dir include --drop-private-types --no-show-locs \
    --no-comp-dir-path --no-corpus-path --type-id-style hash \
    --out-file "$build/tqaudio_effect_eqdrc.abi" "$build/libtqaudio_effect_eqdrc.so"

if [ $update = 1 ]; then
    cp "$build/tqaudio_effect_eqdrc.abi" "$baseline"
    echo "abi: $baseline written; commit it with the change that needs it"
    exit 0
fi
status=0
abidiff --no-added-syms "$baseline" "$build/tqaudio_effect_eqdrc.abi" || status=$?
if [ $status != 0 ]; then
    echo "abi: the public interface differs from $baseline (abidiff status $status): an incompatible change" \
         "needs a new SONAME (the major version); an intended one, abi/check.sh --update" >&2
    exit 1
fi
echo "abi: the public interface keeps everything in $baseline"
