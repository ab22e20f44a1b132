#!/usr/bin/env bash
# The conformance vectors against the WebAssembly build of the library: the
# harness compiled with emscripten against BUILD_DIR's libtqaudio_effect_eqdrc.a (and
# the command-line processor linked in), every case run under node in a fresh instance,
# compared with the reference report as the native check does.
#   studio/conformance/check.sh [-f FAMILIES] [BUILD_DIR]   (default build-wasm; families
#   default to .ci/conformance-families)
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/../.." && pwd)
vectors=${EQDRC_CONFORMANCE:-$root/tests/conformance}
fams=
while getopts "f:" o; do
    case $o in
        f) fams=$OPTARG ;;
        *) sed -n '2,7p' "$0"; exit 2 ;;
    esac
done
shift $((OPTIND - 1))
build=$(realpath "${1:-$root/build-wasm}")
[ -n "$fams" ] || fams=$(grep -v '^#' "$root/.ci/conformance-families" | tr -s ' \n' ',' | sed 's/^,//; s/,$//')
lib=$build/libtqaudio_effect_eqdrc.a
[ -f "$lib" ] || { echo "check.sh: no $lib (studio/build.sh builds it)"; exit 2; }
export NODE_PATH=${NODE_PATH:+$NODE_PATH:}/usr/share/nodejs
work=$build/.conformance
mkdir -p "$work"
# The harness's own exactness flags, as the native check compiles it. Its library calls
# are weak references, which do not pull members out of an archive: the whole archive
# is linked, as the native harness gets the whole shared library.
if [ ! -f "$work/harness.o" ] || [ "$here/harness.c" -nt "$work/harness.o" ] || [ "$vectors/difftest.c" -nt "$work/harness.o" ]; then
    emcc -std=gnu11 -O2 -ffp-contract=off -fno-fast-math -w -DEQDRC_WEAK_LINK -I"$vectors" \
        -c "$here/harness.c" -o "$work/harness.o"
fi
if [ ! -f "$work/tool.o" ] || [ "$here/tool.cpp" -nt "$work/tool.o" ] || [ "$root/tools/quorvel_enh.cpp" -nt "$work/tool.o" ]; then
    em++ -std=c++17 -O2 -ffp-contract=off -fno-fast-math -I"$root/include" -I"$root/tools" \
        -c "$here/tool.cpp" -o "$work/tool.o"
fi
if [ ! -f "$work/harness.js" ] || [ "$lib" -nt "$work/harness.js" ] || [ "$work/harness.o" -nt "$work/harness.js" ] ||
   [ "$work/tool.o" -nt "$work/harness.js" ] || [ "$0" -nt "$work/harness.js" ]; then
    emcc -O2 -o "$work/harness.js" "$work/harness.o" "$work/tool.o" -Wl,--whole-archive "$lib" -Wl,--no-whole-archive -lm \
        -sMODULARIZE=1 -sEXPORT_NAME=createHarness -sENVIRONMENT=node -sALLOW_MEMORY_GROWTH=1 \
        -sINVOKE_RUN=0 -sEXIT_RUNTIME=0 \
        -sEXPORTED_FUNCTIONS=_conf_list,_conf_run,_conf_finish,_conf_stderr,_quorvel_main,_fflush \
        -sEXPORTED_RUNTIME_METHODS=ccall,UTF8ToString
fi
exec node "$here/run.mjs" "$work/harness.js" "$vectors/expected/report.txt" "$fams"
