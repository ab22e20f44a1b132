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
(cd build-asan && ASAN_OPTIONS=detect_leaks=0 ctest -j"$jobs" --output-on-failure)

echo "== Conformance vectors"
families=$(grep -v '^#' .ci/conformance-families | tr -s ' \n' ',' | sed 's/^,//; s/,$//')
if [ -n "$families" ]; then
    ../shared/conformance/check -f "$families" build
fi

echo "== Installed copy and a C host"
rm -rf build/stage
cmake --install build --prefix "$PWD/build/stage" >/dev/null
PKG_CONFIG_PATH="$PWD/build/stage/lib/pkgconfig:$PWD/build/stage/lib/$(gcc -print-multiarch 2>/dev/null)/pkgconfig" \
    bash -c 'cc -std=c99 -Wall -Werror -o build/stage/host examples/host.c $(pkg-config --cflags --libs tqaudio_effect_eqdrc)'
LD_LIBRARY_PATH="$PWD/build/stage/lib:$PWD/build/stage/lib/$(gcc -print-multiarch 2>/dev/null)" \
    build/stage/host tunings/bypass.bin 2>/dev/null
echo "all tests passed"
