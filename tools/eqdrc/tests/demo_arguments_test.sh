#!/usr/bin/env bash
# ./demo.sh checks its argument before building anything: help, a missing file, and
# anything unexpected end at once with a message and the documented status.
#   demo_arguments_test.sh SOURCE_DIR
set -uo pipefail
demo="$1/demo.sh"
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
fail=0
expect() {  # STATUS PATTERN ARGS...
    local want=$1 pattern=$2
    shift 2
    (cd "$tmp" && "$demo" "$@") >"$tmp/out" 2>&1
    local got=$?
    if [ "$got" != "$want" ] || ! grep -q -- "$pattern" "$tmp/out"; then
        echo "demo.sh $*: status $got (want $want), output:"; cat "$tmp/out"; fail=1
    fi
}
expect 0 "usage: ./demo.sh" --help
expect 0 "usage: ./demo.sh" -h
expect 2 "usage: ./demo.sh" --frobnicate
expect 2 "usage: ./demo.sh" a.raw b.raw
expect 2 "missing.raw: no such file" missing.raw
ls "$tmp" | grep -v '^out$' && { echo "demo.sh left files behind"; fail=1; }
exit $fail
