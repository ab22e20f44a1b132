#!/usr/bin/env bash
# valgrind memcheck of the LV2 plugin's lilv host test (lv2_host_test): every block size,
# retunes through the worker, refused tunings, the file followed, bypass and a new frame
# length (the real-time probe stands aside: valgrind replaces the allocator it counts).
# Fails on any memory error and on any leak except the library's required ones
# (tests/valgrind.supp).
#   plugins/lv2/tests/valgrind_test.sh [BUILD_DIR]      (default: build)
set -euo pipefail
cd "$(dirname "$0")/../../.."
build=${1:-build}
program="$build/plugins/lv2/tests/lv2_host_test"
[ -x "$program" ] || { cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Release >/dev/null &&
    cmake --build "$build" -j"$(nproc)" --target lv2_host_test eqdrc >/dev/null; }
log=$(mktemp)
trap 'rm -f "$log"' EXIT
status=0
valgrind --tool=memcheck --leak-check=full --show-leak-kinds=definite,indirect,possible \
    --errors-for-leak-kinds=definite,indirect,possible --error-exitcode=99 \
    --suppressions=tests/valgrind.supp --log-file="$log" \
    "$program" >/dev/null 2>&1 || status=$?
if [ "$status" != 0 ]; then
    echo "valgrind lv2_host_test: exit status $status"
    grep -E "^==[0-9]+== (Invalid|Conditional|Use of|Mismatched|.*definitely|.*indirectly|.*possibly|ERROR SUMMARY)" \
        "$log" | head -n 20
    exit 1
fi
echo "valgrind lv2_host_test: clean"
