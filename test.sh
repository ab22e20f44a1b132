#!/usr/bin/env bash
# Builds and tests everything: a Release build with its unit tests, an ASan+UBSan build
# with its unit tests, the conformance vectors on the Release build (every family listed
# in .ci/conformance-families) and a C host built against an installed copy.
set -euo pipefail
cd "$(dirname "$0")"
tools/ensure-deps.sh
jobs=$(nproc)

echo "== Release build and unit tests"
cmake -S . -B build -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build -j"$jobs" >/dev/null
(cd build && ctest -j"$jobs" --output-on-failure)

echo "== ASan+UBSan build and unit tests"
cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=Debug -DEQDRC_SANITIZE=ON -DEQDRC_BUILD_BENCH=OFF >/dev/null
cmake --build build-asan -j"$jobs" >/dev/null
(cd build-asan && ctest -j"$jobs" --output-on-failure)

echo "== Conformance vectors"
families=$(grep -v '^#' .ci/conformance-families | tr -s ' \n' ',' | sed 's/^,//; s/,$//')
if [ -n "$families" ]; then
    ../shared/conformance/check -f "$families" build
fi

echo "== Installed copy and a C host (pkg-config and find_package)"
stage="$PWD/build/stage"
rm -rf "$stage" build/host
cmake --install build --prefix "$stage" >/dev/null
pcdir=$(dirname "$(find "$stage" -name tqaudio_effect_eqdrc.pc | head -n 1)")
libdir=$(dirname "$(find "$stage" -name 'libtqaudio_effect_eqdrc.so' | head -n 1)")
cc -std=c99 -Wall -Werror -o build/stage/host-pc examples/host.c \
    $(PKG_CONFIG_PATH="$pcdir" pkg-config --cflags --libs tqaudio_effect_eqdrc) -lm
LD_LIBRARY_PATH="$libdir" build/stage/host-pc tunings/reference.bin 2>/dev/null
cmake -S examples -B build/host -DCMAKE_PREFIX_PATH="$stage" >/dev/null
cmake --build build/host >/dev/null
build/host/host tunings/bypass.bin 2>/dev/null
echo "all tests passed"
