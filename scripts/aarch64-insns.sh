#!/usr/bin/env bash
# Instructions per stereo sample on aarch64, a figure free of machine noise: the aarch64
# cross build (NEON lanes, and with EQDRC_SCALAR_LANES the scalar lanes) runs the test
# program under qemu-aarch64 with an instruction-counting plugin, over 2 s and 10 s of the
# same music; the difference over the 8 s between them leaves out start-up.  Rows: the
# whole chain, each stage alone (the reference tuning with only that stage enabled, less
# the run with every stage off, which is left with the 16-bit conversions and file I/O),
# and that all-off run itself.  Prints a Markdown table.
# The plugin is built from ../shared/tools/qemu_insn.c (or $QEMU_INSN) into the build.
#   --sse2      adds the same figures for the x86-64 SSE2 path under callgrind (slow)
#   --tails     adds per stage the decaying tail's and near-silence's instructions per
#               sample over the music's (each second 50 ms of music, then silence or a
#               1-LSB dither), the instruction-count form of scripts/denormal-stages.sh
#   scripts/aarch64-insns.sh [--sse2] [--tails] [BUILD_PREFIX]   (default: build-perf;
#               builds PREFIX-arm64, PREFIX-arm64-scalar and, with --sse2, PREFIX)
set -euo pipefail
cd "$(dirname "$0")/.."
sse2=0 tails=0
while [ $# -gt 0 ]; do
    case $1 in
    --sse2) sse2=1 ;;
    --tails) tails=1 ;;
    -*) echo "usage: $0 [--sse2] [--tails] [BUILD_PREFIX]" >&2; exit 2 ;;
    *) break ;;
    esac
    shift
done
prefix=${1:-build-perf}
for tool in qemu-aarch64 aarch64-linux-gnu-g++; do
    command -v $tool >/dev/null ||
        { echo "needs the aarch64 cross compiler and qemu-user (tools/ensure-deps.sh --with-cross)" >&2; exit 1; }
done
[ $sse2 = 0 ] || command -v valgrind >/dev/null || { echo "--sse2 needs valgrind" >&2; exit 1; }
jobs=${JOBS:-2}
lean=(-DCMAKE_BUILD_TYPE=Release -DEQDRC_BUILD_BENCH=OFF -DEQDRC_BUILD_TOOLS=OFF -DEQDRC_BUILD_PLUGINS=OFF)
cross=(-DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/aarch64-linux-gnu.cmake)
build() {  # DIR CMAKE_ARG...
    local dir=$1
    shift
    cmake -S . -B "$dir" --no-warn-unused-cli "${lean[@]}" "$@" >/dev/null
    cmake --build "$dir" -j"$jobs" --target quorvel_enh >/dev/null
}
neon=$prefix-arm64 scalar=$prefix-arm64-scalar
build "$neon" "${cross[@]}"
build "$scalar" "${cross[@]}" -DEQDRC_SCALAR_LANES=ON
[ $sse2 = 0 ] || build "$prefix"
plugin=$neon/qemu_insn.so
source=${QEMU_INSN:-../shared/tools/qemu_insn.c}  # the instruction-counting plugin's source
[ -f "$source" ] || { echo "no $source (set QEMU_INSN to the plugin's source)" >&2; exit 1; }
[ "$plugin" -nt "$source" ] || cc -shared -fPIC -O2 -o "$plugin" "$source"
work=$neon/insns
mkdir -p "$work"
short=2 long=10
[ -f "$work/music.raw" ] || python3 scripts/make_pcm.py "$work/music.raw" "$long"
# Tails: the same music, of which each second keeps its first 50 ms, then zeros or
# a dither of -1, 0, +1 LSB.
python3 - "$work" <<'PY'
import os, random, struct, sys
work = sys.argv[1]
music = open(f"{work}/music.raw", "rb").read()
second, burst = 48000 * 4, 2400 * 4
for name, quiet in (("tail", lambda n: bytes(n)),
                    ("dither", lambda n, r=random.Random(2): struct.pack(f"<{n // 2}h", *(r.choice((-1, 0, 1)) for _ in range(n // 2))))):
    path = f"{work}/{name}.raw"
    if os.path.exists(path):
        continue
    out = bytearray()
    for s in range(0, len(music), second):
        out += music[s:s + burst] + quiet(second - burst)
    open(path, "wb").write(out)
PY
for signal in music tail dither; do
    head -c $((short * 48000 * 4)) "$work/$signal.raw" >"$work/$signal-short.raw"
done
# Records: the reference with one stage enabled (words 10-17), and every stage off.
stages=(auto_gain bass_enhancer exciter de_esser eq10 multiband_drc agc maximizer)
python3 - "$work" "${stages[@]}" <<'PY'
import struct, sys
work, stages = sys.argv[1], sys.argv[2:]
ref = open("tunings/reference.bin", "rb").read()
def write(name, enabled):
    rec = bytearray(ref)
    for k in range(8):
        rec[4 * (10 + k):4 * (11 + k)] = struct.pack("<f", 1.0 if k in enabled else 0.0)
    open(f"{work}/{name}.bin", "wb").write(rec)
write("chain", range(8))
write("off", [])
for k, s in enumerate(stages):
    write(s, [k])
PY

count() {  # PATH RECORD INPUT -> instructions of one run
    local path=$1 rec=$2 in=$3
    case $path in
    neon | scalar)
        local dir=$neon
        [ "$path" = scalar ] && dir=$scalar
        qemu-aarch64 -L /usr/aarch64-linux-gnu -plugin "$plugin" -d plugin "$dir/quorvel_enh" \
            "$in" "$work/out-$path.raw" "$rec" "$rec" "$work/readback-$path.rec" 2>&1 >/dev/null |
            sed -n 's/^insns: //p' ;;
    sse2)
        EQDRC_SIMD=sse2 valgrind --tool=callgrind --callgrind-out-file="$work/callgrind.out" \
            "$prefix/quorvel_enh" "$in" "$work/out-$path.raw" "$rec" "$rec" "$work/readback-$path.rec" \
            >/dev/null 2>"$work/valgrind.log"
        sed -n 's/^summary: //p' "$work/callgrind.out" ;;
    esac
}
per_sample() {  # PATH RECORD SIGNAL -> instructions per stereo sample over the long run's extra
    local a b
    a=$(count "$1" "$work/$2.bin" "$work/$3-short.raw")
    b=$(count "$1" "$work/$2.bin" "$work/$3.raw")
    awk -v a="$a" -v b="$b" -v n=$(((long - short) * 48000)) 'BEGIN { printf "%.1f", (b - a) / n }'
}
paths=(neon scalar)
[ $sse2 = 0 ] || paths+=(sse2)
declare -A fig
for path in "${paths[@]}"; do
    for rec in chain off "${stages[@]}"; do
        fig[$path,$rec,music]=$(per_sample "$path" "$rec" music)
        if [ $tails = 1 ] && [ "$path" != sse2 ]; then
            fig[$path,$rec,tail]=$(per_sample "$path" "$rec" tail)
            fig[$path,$rec,dither]=$(per_sample "$path" "$rec" dither)
        fi
    done
done
net() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.0f", a - b }'; }
head="| instructions per stereo sample | aarch64 NEON | aarch64 scalar lanes |"
rule="|---|---|---|"
[ $sse2 = 0 ] || { head+=" x86-64 SSE2 | NEON / SSE2 |"; rule+="---|---|"; }
echo "$head"
echo "$rule"
for rec in chain "${stages[@]}" off; do
    row="| $rec |"
    [ "$rec" = chain ] && row="| whole chain (AudioPost_Process and file I/O) |"
    [ "$rec" = off ] && row="| every stage off (16-bit conversions, file I/O) |"
    for path in "${paths[@]}"; do
        v=${fig[$path,$rec,music]}
        case $rec in chain | off) ;; *) v=$(net "$v" "${fig[$path,off,music]}") ;; esac
        row+=" $(printf '%.0f' "$v") |"
        [ "$path" = sse2 ] || continue
        n=${fig[neon,$rec,music]}
        case $rec in chain | off) ;; *) n=$(net "$n" "${fig[neon,off,music]}") ;; esac
        row+=" $(awk -v n="$n" -v s="$v" 'BEGIN { if (s > 0) printf "%.2f", n / s; else print "-" }') |"
    done
    echo "$row"
done
if [ $tails = 1 ]; then
    echo
    echo "| tail / music, dither / music (instructions per sample, stage alone) | aarch64 NEON | aarch64 scalar lanes |"
    echo "|---|---|---|"
    for rec in "${stages[@]}" chain; do
        row="| $rec |"
        for path in neon scalar; do
            row+=" $(awk -v m="${fig[$path,$rec,music]}" -v t="${fig[$path,$rec,tail]}" -v d="${fig[$path,$rec,dither]}" \
                -v o="${fig[$path,off,music]}" -v ot="${fig[$path,off,tail]}" -v od="${fig[$path,off,dither]}" \
                -v whole="$([ "$rec" = chain ] && echo 1 || echo 0)" 'BEGIN {
                    if (!whole) { m -= o; t -= ot; d -= od }
                    printf "%.2f, %.2f", t / m, d / m }') |"
        done
        echo "$row"
    done
fi
