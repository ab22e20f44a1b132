#!/usr/bin/env bash
# Builds the tuning studio: the library, the tuning code and the test program compiled
# to WebAssembly by Debian's emscripten, from the same sources and with the same
# exactness flags as every other build, and the site in BUILD_DIR/studio/site.
#   studio/build.sh [BUILD_DIR]      (default build-wasm; incremental)
set -euo pipefail
cd "$(dirname "$0")/.."
dir=${1:-build-wasm}
# emscripten's JavaScript passes need acorn from Debian's node modules, which a node not
# from Debian does not search by itself.
export NODE_PATH=${NODE_PATH:+$NODE_PATH:}/usr/share/nodejs
if [ ! -f "$dir/CMakeCache.txt" ]; then
    # wasm32: not the x86 default of the toolchain file, which would add x86 flags
    log=$(mktemp)
    if ! emcmake cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=Release -DEMSCRIPTEN_SYSTEM_PROCESSOR=wasm32 \
            -DEQDRC_BUILD_TESTS=OFF -DEQDRC_BUILD_BENCH=OFF -Wno-dev >"$log" 2>&1; then
        cat "$log"
        rm -f "$log"
        exit 1
    fi
    rm -f "$log"
fi
cmake --build "$dir" -j"$(nproc)" --target studio_site
