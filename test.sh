#!/usr/bin/env bash
# Builds and tests everything.  The first four variants and scalar must agree bit for bit:
#   release  -O2 build: unit tests, conformance vectors, and a C host built against an
#            installed copy (through pkg-config and through find_package);
#   debug    -O0 build: unit tests and conformance vectors;
#   asan     ASan+UBSan build: unit tests (leak checking on) and conformance vectors;
#   aarch64  cross build (cmake/toolchains/aarch64-linux-gnu.cmake): unit tests and
#            conformance vectors under qemu-user;
#   armhf    32-bit ARM hard-float cross build (scalar lanes): unit tests and conformance
#            vectors under qemu-user (not in the default list; about 5 minutes);
#   scalar   -O2 build with the four-lane code as scalar lanes (EQDRC_SCALAR_LANES): unit
#            tests and conformance vectors, the same bits as the vector form;
#   fuzz     every libFuzzer target for 45 s (ASan+UBSan), failing on any finding;
#   valgrind memcheck of quorvel_enh and of the LV2 plugin's lilv host test, only the
#            deliberate leaks suppressed (needs release);
#   python   the Python package's tests (python/tests) against build/;
#   studio   WebAssembly build (studio/build.sh): conformance vectors under node, and the
#            tuning studio in headless chromium against eqdrc (studio/tests/run.sh), also
#            connected to `eqdrc serve` while aplay plays through the ALSA plugin;
#   alsa     the ALSA plugin's alsa-lib host test under valgrind memcheck (needs release;
#            the plugin's tests also run in every variant's ctest);
#   tsan     ThreadSanitizer build: chains on four threads against one, and the plugins'
#            record hand-over with a control thread retuning a running chain, and
#            `eqdrc serve` under its HTTP tests;
#   abi      the library's public interface against the baseline abi/tqaudio_effect_eqdrc.abi
#            (abidiff): nothing removed or changed;
#   recipes  the Buildroot and Yocto recipes' options (packaging/) built and installed into
#            a staging folder: the files packaging/install-*.txt list;
#   debian   the Debian packages built from HEAD, checked by lintian, installed, used as
#            debian/tests/installed uses them, and purged without a trace (about 6 minutes);
#   standalone  a fresh clone of the committed tree, alone in an empty folder, passes the
#            release variant: nothing the tests read lives outside the repository;
#   mathf    our maths functions against this machine's libm on all 2^32 arguments
#            (x86-64 glibc 2.36 only, about 5 minutes; not in the default list).
# The conformance vectors are the project's copy in tests/conformance
# (scripts/refresh-conformance.sh refreshes it); the families checked are those listed
# in .ci/conformance-families.
#   ./test.sh [VARIANT ...]      (default: release debug asan aarch64 scalar fuzz valgrind python studio alsa tsan
#                                 abi recipes debian standalone)
set -euo pipefail
cd "$(dirname "$0")"
tools/ensure-deps.sh --with-cross
jobs=$(nproc)
families=$(grep -v '^#' .ci/conformance-families | tr -s ' \n' ',' | sed 's/^,//; s/,$//')
# Emulated targets skip the test program's family: under qemu-user it takes more than
# 10 s of processor time on some cases, and its wrapper script runs in the host's shell.
families_emulated=$(echo "$families" | sed 's/\(^\|,\)tool\(,\|$\)/\1/; s/,$//')

build_and_test() {  # DIR CMAKE-ARGS...
    local dir=$1
    shift
    local t0=$SECONDS
    cmake -S . -B "$dir" "$@" >/dev/null
    cmake --build "$dir" -j"$jobs" >/dev/null
    (cd "$dir" && ctest -j"$jobs" --output-on-failure)
    echo "($dir: built and unit-tested in $((SECONDS - t0)) s)"
}

conformance() {  # DIR (the caller sets CC / CHECK_RUNNER / preloads as the build needs)
    local t0=$SECONDS
    [ -z "$families" ] || tests/conformance/check -f "$families" "$1"
    echo "($1: conformance in $((SECONDS - t0)) s)"
    # Again with flush-to-zero and denormals-as-zero set on the harness's thread, as audio
    # hosts set them: the library computes in its own environment whatever the caller's.
    local host
    host=$(find "$1" -name 'libeqdrc_host_flush_to_zero.so' | head -n 1)
    [ -n "$host" ] && [ -n "$families" ] || return 0
    echo "-- under a flush-to-zero host"
    if [ -n "${CHECK_RUNNER:-}" ]; then
        CHECK_RUNNER="$CHECK_RUNNER -E LD_PRELOAD=$PWD/$host" tests/conformance/check -f "$families_emulated" "$1"
    else
        LD_PRELOAD="${LD_PRELOAD:+$LD_PRELOAD }$PWD/$host" tests/conformance/check -f "$families" "$1"
    fi
}

variant_release() {
    echo "== release (-O2)"
    build_and_test build -DCMAKE_BUILD_TYPE=Release
    # The library holds the processing code for scalar lanes, SSE2 and AVX2: each passes.
    local path
    for path in scalar sse2 avx2; do
        echo "-- processing code: $path"
        EQDRC_SIMD=$path conformance build
    done
    echo "== installed copy and a C host (pkg-config and find_package)"
    # Outside the build tree, so the conformance harness never picks up the installed tool.
    local stage="$PWD/build-stage"
    rm -rf "$stage" build-host
    cmake --install build --prefix "$stage" >/dev/null
    local pcdir libdir
    pcdir=$(dirname "$(find "$stage" -name tqaudio_effect_eqdrc.pc | head -n 1)")
    libdir=$(dirname "$(find "$stage" -name 'libtqaudio_effect_eqdrc.so' | head -n 1)")
    cc -std=c99 -Wall -Werror -o "$stage/host-pc" examples/host.c \
        $(PKG_CONFIG_PATH="$pcdir" pkg-config --cflags --libs tqaudio_effect_eqdrc) -lm
    LD_LIBRARY_PATH="$libdir" "$stage/host-pc" tunings/reference.bin 2>/dev/null
    # The installed tool finds the installed library by itself.
    env -u LD_LIBRARY_PATH "$stage/bin/eqdrc" --version
    # A mono record: the host sizes its buffer from the record, memcheck finds no stray access.
    python3 -c 'import struct, sys; b = bytearray(open("tunings/reference.bin", "rb").read())
b[12:16] = struct.pack("<f", 1.0); open(sys.argv[1], "wb").write(b)' "$stage/mono.bin"
    LD_LIBRARY_PATH="$libdir" valgrind -q --error-exitcode=9 --leak-check=no "$stage/host-pc" "$stage/mono.bin" \
        2>/dev/null | grep -q '(1 channel(s) at 48000 Hz)'
    cmake -S examples -B build-host -DCMAKE_PREFIX_PATH="$stage" >/dev/null
    cmake --build build-host >/dev/null
    build-host/host tunings/bypass.bin 2>/dev/null
    echo "== API reference (doxygen, warnings are errors)"
    doxygen
    scripts/check-layers.sh  # library folders include only their own and those below
}

variant_debug() {
    echo "== debug (-O0)"
    build_and_test build-debug -DCMAKE_BUILD_TYPE=Debug -DEQDRC_BUILD_BENCH=OFF
    conformance build-debug
}

variant_asan() {
    echo "== asan (ASan+UBSan)"
    build_and_test build-asan -DCMAKE_BUILD_TYPE=Debug -DEQDRC_SANITIZE=ON -DEQDRC_BUILD_BENCH=OFF
    # The harness itself is not instrumented: load the sanitizer runtimes first.  Any
    # sanitizer report aborts its case, which then differs.
    ASAN_OPTIONS=detect_leaks=0:verify_asan_link_order=0 \
        LD_PRELOAD="$(gcc -print-file-name=libasan.so) $(gcc -print-file-name=libubsan.so)" \
        conformance build-asan
}

variant_aarch64() {
    echo "== aarch64 (cross build under qemu-user)"
    build_and_test build-arm64 -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/aarch64-linux-gnu.cmake \
        -DCMAKE_BUILD_TYPE=Release -DEQDRC_BUILD_BENCH=OFF
    CC=aarch64-linux-gnu-gcc CHECK_RUNNER="qemu-aarch64 -L /usr/aarch64-linux-gnu" conformance build-arm64
}

variant_armhf() {
    echo "== armhf (32-bit ARM hard-float cross build under qemu-user)"
    tools/ensure-deps.sh --with-armhf
    build_and_test build-armhf -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/arm-linux-gnueabihf.cmake \
        -DCMAKE_BUILD_TYPE=Release -DEQDRC_BUILD_BENCH=OFF
    local families=$families_emulated
    CC=arm-linux-gnueabihf-gcc CHECK_RUNNER="qemu-arm -L /usr/arm-linux-gnueabihf" conformance build-armhf
}

variant_scalar() {
    echo "== scalar (lanes as plain arrays, -O2)"
    build_and_test build-scalar -DCMAKE_BUILD_TYPE=Release -DEQDRC_SCALAR_LANES=ON -DEQDRC_BUILD_BENCH=OFF \
        -DEQDRC_BUILD_TOOLS=OFF -DEQDRC_BUILD_PLUGINS=OFF
    conformance build-scalar
}

variant_fuzz() {
    echo "== fuzz (libFuzzer with ASan+UBSan, 45 s per target)"
    scripts/fuzz.sh 45
}

variant_valgrind() {
    echo "== valgrind (memcheck of quorvel_enh and the LV2 plugin's host test; only the deliberate leaks suppressed)"
    scripts/valgrind-check.sh build
    plugins/lv2/tests/valgrind_test.sh build
}

variant_alsa() {
    echo "== alsa (the ALSA plugin driven through alsa-lib, under valgrind memcheck)"
    plugins/alsa/tests/valgrind_test.sh build
}

variant_tsan() {
    echo "== tsan (ThreadSanitizer: chains on threads, the record hand-over, eqdrc serve)"
    local tsan="-fsanitize=thread -fno-omit-frame-pointer"
    cmake -S . -B build-tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DEQDRC_BUILD_BENCH=OFF \
        -DCMAKE_C_FLAGS="$tsan" -DCMAKE_CXX_FLAGS="$tsan" -DCMAKE_EXE_LINKER_FLAGS=-fsanitize=thread \
        -DCMAKE_SHARED_LINKER_FLAGS=-fsanitize=thread >/dev/null
    cmake --build build-tsan -j"$jobs" --target threads_test eqdrc_plugin_common_test eqdrc >/dev/null
    (cd build-tsan && TSAN_OPTIONS=halt_on_error=1 ctest -j"$jobs" --output-on-failure -R '^(Threads|RecordHandoff|MeterFile)\.')
    # eqdrc serve's threads: the HTTP workers, the event streams, the meter relay
    (cd build-tsan && TSAN_OPTIONS="halt_on_error=1 suppressions=$PWD/../server/tests/tsan.supp" \
        ctest --output-on-failure -R '^serve_http$')
}

variant_abi() {
    echo "== abi (the public interface against abi/tqaudio_effect_eqdrc.abi)"
    tools/ensure-deps.sh --with-packaging
    abi/check.sh build-abi
}

variant_recipes() {
    echo "== recipes (the Buildroot and Yocto recipes' builds against packaging/install-*.txt)"
    tools/ensure-deps.sh --with-packaging
    packaging/check-install.py build-packaging
}

variant_debian() {
    echo "== debian (packages from HEAD: built, lintian, installed, used, purged)"
    tools/ensure-deps.sh --with-packaging
    packaging/debian-check.sh
}

variant_standalone() {
    echo "== standalone (a clone of HEAD in an empty folder: ./test.sh release)"
    local dir status=0
    dir=$(mktemp -d)
    git clone -q "$PWD" "$dir/eqdrc"
    (cd "$dir/eqdrc" && ./test.sh release) || status=$?
    rm -rf "$dir"
    return $status
}

variant_mathf() {
    echo "== mathf (our maths functions against this machine's libm, all 2^32 arguments)"
    TIMEOUT=1800 scripts/check-mathf.sh
}

variant_studio() {
    echo "== studio (WebAssembly build: conformance under node, the tuning studio in chromium)"
    local t0=$SECONDS
    studio/build.sh build-wasm >/dev/null
    echo "(build-wasm: built in $((SECONDS - t0)) s)"
    t0=$SECONDS
    studio/conformance/check.sh -f "$families" build-wasm
    echo "(build-wasm: conformance under node in $((SECONDS - t0)) s)"
    t0=$SECONDS
    # eqdrc, which the page's output is compared with (the release variant's build, or its own)
    cmake -S . -B build >/dev/null
    cmake --build build -j"$jobs" --target eqdrc asound_module_pcm_eqdrc tqaudio_effect_eqdrc >/dev/null
    studio/tests/run.sh build-wasm build
    echo "(studio browser test in $((SECONDS - t0)) s; screenshots in build-wasm/studio/artifacts)"
    # connected to `eqdrc serve` while aplay plays through the ALSA plugin
    t0=$SECONDS
    studio/tests/run.sh --connected build-wasm build
    echo "(studio connected test in $((SECONDS - t0)) s)"
}

variant_python() {
    echo "== python (the tqeqdrc package against the library and the eqdrc tool in build/)"
    [ -x build/tools/eqdrc/eqdrc ] && [ -f build/libtqaudio_effect_eqdrc.so ] ||
        { cmake -S . -B build -DCMAKE_BUILD_TYPE=Release >/dev/null && cmake --build build -j"$jobs" >/dev/null; }
    # Debian's interpreter, where python3-numpy/-pytest/-matplotlib live, even when another
    # python3 comes first on PATH.
    local py=python3
    [ -x /usr/bin/python3 ] && py=/usr/bin/python3
    PYTHONDONTWRITEBYTECODE=1 TQEQDRC_LIB="$PWD/build" timeout 600 "$py" -m pytest -q -p no:cacheprovider python/tests
}

variants=("$@")
[ ${#variants[@]} -gt 0 ] || variants=(release debug asan aarch64 scalar fuzz valgrind python studio alsa tsan abi recipes
                                       debian standalone)
for v in "${variants[@]}"; do
    t0=$SECONDS
    "variant_$v"
    echo "== $v passed in $((SECONDS - t0)) s"
done
echo "all tests passed"
