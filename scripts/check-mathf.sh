#!/usr/bin/env bash
# Builds scripts/check_mathf.cpp with core/mathf.cpp and compares our maths functions
# with this machine's C library over every float argument (x86-64 glibc is the
# reference).  Arguments go to the program: function names, --stride N, --hash.
# With Debian's libmpfr-dev installed, differences are classified against MPFR.
#
#   scripts/check-mathf.sh                      # everything, all 2^32 arguments each
#   scripts/check-mathf.sh expf pow10
#   CXX=aarch64-linux-gnu-g++ RUNNER="qemu-aarch64 -L /usr/aarch64-linux-gnu" \
#       scripts/check-mathf.sh --hash --stride 4099   # hashes of our results on aarch64
#
# The whole run is bounded by TIMEOUT seconds (default 3600).
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
out="$(mktemp -d)"
trap 'rm -rf "$out"' EXIT
cxx=${CXX:-g++}

mpfr=()
if [ -z "${CXX:-}" ] && [ -f /usr/include/mpfr.h ]; then
    mpfr=(-DEQDRC_HAVE_MPFR -lmpfr -lgmp)
fi
"$cxx" -std=c++17 -O2 -ffp-contract=off -fno-fast-math -Wall -Wextra -pthread -I"$root" \
    "$root/scripts/check_mathf.cpp" "$root/core/mathf.cpp" -o "$out/check_mathf" "${mpfr[@]}" -lm
# shellcheck disable=SC2086
timeout "${TIMEOUT:-3600}" ${RUNNER:-} "$out/check_mathf" "$@"
