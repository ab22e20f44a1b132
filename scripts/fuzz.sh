#!/usr/bin/env bash
# Builds the libFuzzer targets (clang, ASan+UBSan) in build-fuzz and runs every target
# for SECONDS (default 600) at the same time, starting from the seed corpus in
# tests/fuzz/corpus/TARGET.  Fails when any target reports a finding (crash, sanitizer
# report, leak beyond tests/fuzz/lsan.supp, timeout or out-of-memory); the input that
# caused it is kept as build-fuzz/artifacts/TARGET-*.
#   scripts/fuzz.sh [SECONDS]
# The grown corpus is kept in build-fuzz/corpus/TARGET between runs; per target the
# script prints executions per second, coverage and the corpus size.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-600}
targets=(chain tuning_json tuning_record audio_file measurement api_request)
build=build-fuzz

# clang 16 where installed: the tool's sources need its C++17 support (a structured
# binding named in a lambda).
cc=clang
command -v clang++-16 >/dev/null && cc=clang-16
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Release -DCMAKE_C_COMPILER=$cc -DCMAKE_CXX_COMPILER=${cc/clang/clang++} \
    -DEQDRC_BUILD_FUZZ=ON -DEQDRC_BUILD_TESTS=OFF -DEQDRC_BUILD_BENCH=OFF >/dev/null
cmake --build "$build" -j"$(nproc)" --target "${targets[@]/%/_fuzz}" >/dev/null

mkdir -p "$build/artifacts"
export ASAN_OPTIONS=detect_leaks=1:allocator_may_return_null=0
export LSAN_OPTIONS="suppressions=$PWD/tests/fuzz/lsan.supp:print_suppressions=0"
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
pids=()
for t in "${targets[@]}"; do
    mkdir -p "$build/corpus/$t"
    # stderr of the library (log lines) is closed; libFuzzer and the sanitizers still report.
    timeout $((seconds + 300)) "$build/tests/fuzz/${t}_fuzz" "$build/corpus/$t" "tests/fuzz/corpus/$t" \
        -max_total_time="$seconds" -timeout=20 -rss_limit_mb=2048 -close_fd_mask=3 -print_final_stats=1 \
        -artifact_prefix="$build/artifacts/$t-" >"$build/fuzz-$t.log" 2>&1 &
    pids+=($!)
done

failed=0
for i in "${!targets[@]}"; do
    t=${targets[$i]}
    if wait "${pids[$i]}"; then status=ok; else status=FINDING; failed=1; fi
    execs=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$build/fuzz-$t.log" | tail -n 1)
    units=$(sed -n 's/^stat::number_of_executed_units: *//p' "$build/fuzz-$t.log" | tail -n 1)
    # In-memory corpus and coverage at the end, from libFuzzer's last status line.
    final=$(grep -E '^#[0-9]+' "$build/fuzz-$t.log" | tail -n 1 | grep -oE 'cov: [0-9]+|corp: [0-9]+/[0-9]+[a-zA-Z]+' |
        tr '\n' ' ' || true)
    echo "fuzz $t: $status, ${execs:-?} exec/s, ${units:-?} executions, ${final:-no status line}"
    if [ $status != ok ]; then
        grep -E "ERROR|runtime error|SUMMARY|Test unit written" "$build/fuzz-$t.log" | head -n 20 || true
        echo "(full log: $build/fuzz-$t.log)"
    fi
done
exit $failed
