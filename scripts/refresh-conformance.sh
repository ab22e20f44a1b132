#!/usr/bin/env bash
# Refreshes the project's copy of the conformance vectors (tests/conformance) from a
# source folder, and says whether anything changed.  The copy is test data: harness and
# expected results exactly as published, so a clone alone passes ./test.sh.
#   scripts/refresh-conformance.sh [SOURCE]   (default ../shared/conformance)
# Exit status: 0 unchanged, 3 refreshed (commit the copy), 2 on error.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
src=${1:-$root/../shared/conformance}
dst=$root/tests/conformance
[ -x "$src/check" ] && [ -f "$src/expected/report.txt" ] ||
    { echo "refresh-conformance: $src holds no conformance vectors"; exit 2; }
changes="  (new copy)"
if [ -d "$dst" ]; then
    if changes=$(diff -rq "$src" "$dst"); then
        echo "refresh-conformance: tests/conformance is already the same as $src"
        exit 0
    fi
fi
# Build the new copy beside the old one and swap, so an interrupted refresh leaves a whole copy.
tmp=$(mktemp -d "$root/tests/.conformance.XXXXXX")
trap 'rm -rf "$tmp"' EXIT
cp -R "$src/." "$tmp/"
chmod -R u+w "$tmp"
rm -rf "$dst.old"
[ ! -d "$dst" ] || mv "$dst" "$dst.old"
mv "$tmp" "$dst"
rm -rf "$dst.old"
echo "refresh-conformance: tests/conformance refreshed from $src:"
echo "$changes" | sed "s|$src|SOURCE|g; s|$dst|COPY|g"
exit 3
