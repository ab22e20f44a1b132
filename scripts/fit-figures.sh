#!/usr/bin/env bash
# The figures of `eqdrc fit` on real measurements: for every text file in a folder (by
# default ../shared/measurements beside the project, when present), the residual against
# a flat target before and after the fit (RMS and maximum over the range, 1/6 octave) and
# the time of one fit, with the tool's defaults; and that `eqdrc tuning check` accepts
# each tuning.
#   scripts/fit-figures.sh [FOLDER] [BUILD]       (BUILD: default build)
set -euo pipefail
cd "$(dirname "$0")/.."
folder=${1:-../shared/measurements}
tool=${2:-build}/tools/eqdrc/eqdrc
[ -d "$folder" ] || { echo "no measurements in $folder: nothing to do"; exit 0; }
[ -x "$tool" ] || { echo "build the tool first ($tool)" >&2; exit 1; }
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT
printf '%-32s %18s %18s %9s\n' file "RMS before->after" "max before->after" "time"
for f in "$folder"/*.txt; do
    [ "$(basename "$f")" = README.md ] && continue
    n=$(basename "$f" .txt)
    start=$(date +%s.%N)
    "$tool" fit "$f" -o "$out/$n.json" --report "$out/$n.report.json" 2>/dev/null
    end=$(date +%s.%N)
    "$tool" tuning check "$out/$n.json" >/dev/null || { echo "$n: the tuning fails the check" >&2; exit 1; }
    python3 - "$out/$n.report.json" "$n" "$start" "$end" <<'PY'
import json, sys
r = json.load(open(sys.argv[1]))
b, a = r["before"], r["after"]
print("%-32s %7.2f -> %5.2f dB %7.2f -> %5.2f dB %7.3f s" % (sys.argv[2], b["rms_dB"], a["rms_dB"], b["max_dB"],
                                                              a["max_dB"], float(sys.argv[4]) - float(sys.argv[3])))
PY
done
