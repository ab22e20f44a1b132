#!/usr/bin/env bash
# valgrind memcheck of the test program (quorvel_enh) over one second of music-like
# PCM: with tunings/reference.bin (every stage on), the same through
# AudioPost_InitByPath, and with a record the library refuses (bit depth 20).  Fails on
# any memory error and on any leak except those tests/valgrind.supp names: the records
# a refused creation leaves allocated on purpose.
#   scripts/valgrind-check.sh [BUILD_DIR]      (default: build)
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
. scripts/test-program.sh
prepare_test_program "$build" valgrind
[ -f "$work/in.raw" ] || python3 scripts/make_pcm.py "$work/in.raw" 1
python3 - "$work/bits20.rec" <<'PY'
import struct, sys
rec = bytearray(open("tunings/reference.bin", "rb").read())
rec[4:8] = struct.pack("<f", 20.0)  # word 1: bit depth
open(sys.argv[1], "wb").write(rec)
PY

memcheck() {  # EXPECTED-STATUS NAME ARGS...
    local expected=$1 name=$2 status=0
    shift 2
    valgrind --tool=memcheck --leak-check=full --show-leak-kinds=definite,indirect,possible \
        --errors-for-leak-kinds=definite,indirect,possible --error-exitcode=99 \
        --suppressions=tests/valgrind.supp --log-file="$work/$name.log" \
        "$build/quorvel_enh" "$@" >/dev/null 2>&1 || status=$?
    if [ "$status" != "$expected" ]; then
        echo "valgrind $name: exit status $status, expected $expected (log: $work/$name.log)"
        grep -E "^==[0-9]+== (Invalid|Conditional|Use of|Mismatched|.*definitely|.*indirectly|.*possibly|ERROR SUMMARY)" \
            "$work/$name.log" | head -n 20
        return 1
    fi
    local kept
    kept=$(sed -n 's/^==[0-9]*== *suppressed: \(.*\)/\1/p' "$work/$name.log" | head -n 1)
    echo "valgrind $name: clean${kept:+ (deliberate leaks suppressed: $kept)}"
}

out="$work/out.raw" dump="$work/dump.rec"
memcheck 0 reference "$work/in.raw" "$out" tunings/reference.bin tunings/bypass.bin "$dump"
memcheck 0 by-path "$work/in.raw" "$out" tunings/reference.bin tunings/bypass.bin "$dump" bypath
memcheck 255 refused "$work/in.raw" "$out" "$work/bits20.rec" "$work/bits20.rec" "$dump"
