#!/usr/bin/env bash
# The reload storm (plugins/common/reload_storm.cpp): the tuning file replaced RATE times
# a second for SECONDS while an audio thread plays in real time; prints the watcher's
# counts and the audio thread's longest call. A measurement for the README, not a test.
#   scripts/reload-storm.sh [SECONDS (10)] [RATE (100)] [BUILD (build)]
set -euo pipefail
cd "$(dirname "$0")/.."
build=${3:-build}
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$build" -j"$(nproc)" --target eqdrc_reload_storm >/dev/null
"$build/plugins/common/eqdrc_reload_storm" "${1:-10}" "${2:-100}"
