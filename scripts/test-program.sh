# shellcheck shell=bash
# Sourced by the measuring and checking scripts: configures BUILD with the given cmake
# arguments, builds the test program there and makes the work directory BUILD/NAME,
# left in $work.
#   prepare_test_program BUILD NAME [CMAKE_ARG ...]
prepare_test_program() {
    local build=$1 name=$2
    shift 2
    cmake -S . -B "$build" "$@" >/dev/null
    cmake --build "$build" -j"$(nproc)" --target quorvel_enh >/dev/null
    work="$build/$name"
    mkdir -p "$work"
}
