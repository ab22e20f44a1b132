#!/usr/bin/env bash
# Long fuzzing campaign: every libFuzzer target for MINUTES each (default 30), growing
# build-fuzz/corpus/.  By default the targets run in turn, each with one fuzzing process
# per core; CAMPAIGN_AT_ONCE=N runs N targets side by side, the cores shared among them.
# Prints per target the executions, coverage and corpus size, and copies any finding
# into tests/fuzz/corpus/TARGET/finding_* so that it stays a regression seed once fixed.
#   scripts/fuzz-campaign.sh [MINUTES] [TARGET ...]
set -euo pipefail
cd "$(dirname "$0")/.."
minutes=${1:-30}
shift || true
build=build-fuzz
scripts/fuzz.sh 1 >/dev/null  # builds every target the same way CI does
targets=("$@")
[ ${#targets[@]} -gt 0 ] ||
    mapfile -t targets < <(find "$build/tests/fuzz" -maxdepth 1 -name '*_fuzz' -type f -executable -printf '%f\n' |
        sed 's/_fuzz$//' | sort)
export ASAN_OPTIONS=detect_leaks=1:allocator_may_return_null=0
export LSAN_OPTIONS="suppressions=$PWD/tests/fuzz/lsan.supp:print_suppressions=0"
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
at_once=${CAMPAIGN_AT_ONCE:-1}
forks=$(( $(nproc) / at_once ))
[ "$forks" -ge 1 ] || forks=1

run_target() {  # TARGET: fuzzes it, prints its summary line, exits 1 on a finding
    local t=$1 failed=0 log t0 status final findings f
    mkdir -p "$build/corpus/$t" "$build/campaign/$t"
    log="$build/campaign/$t.log"
    t0=$SECONDS
    status=ok
    # -fork keeps fuzzing past a finding, so one campaign reports all of them.
    nice -n 19 "$build/tests/fuzz/${t}_fuzz" "$build/corpus/$t" "tests/fuzz/corpus/$t" -fork="$forks" \
        -ignore_crashes=1 -ignore_ooms=1 -ignore_timeouts=1 -max_total_time=$((minutes * 60)) -timeout=20 \
        -rss_limit_mb=2048 -close_fd_mask=3 -artifact_prefix="$build/campaign/$t/" >"$log" 2>&1 || status=FINDING
    final=$(grep -E '^#[0-9]+' "$log" | tail -n 1 || true)
    findings=("$build/campaign/$t"/*)
    [ -e "${findings[0]}" ] || findings=()
    [ ${#findings[@]} -eq 0 ] || status=FINDING
    echo "campaign $t: $status after $((SECONDS - t0)) s: ${final:-no status line}"
    for f in "${findings[@]}"; do
        cp "$f" "tests/fuzz/corpus/$t/finding_$(basename "$f")"
        echo "  finding kept as tests/fuzz/corpus/$t/finding_$(basename "$f")"
        failed=1
    done
    return $failed
}

failed=0
pids=()
for t in "${targets[@]}"; do
    run_target "$t" &
    pids+=($!)
    if [ ${#pids[@]} -ge "$at_once" ]; then
        wait "${pids[0]}" || failed=1
        pids=("${pids[@]:1}")
    fi
done
for pid in "${pids[@]}"; do
    wait "$pid" || failed=1
done
exit $failed
