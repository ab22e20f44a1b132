#!/usr/bin/env bash
# Cycle estimates for the aarch64 build on the boards' cores: each stage's per-sample
# loop, as the cross compiler emitted it into the library, goes through llvm-mca for the
# in-order Cortex-A53 and A55 and the out-of-order A72.  A stage's loop is, among the
# innermost loops of each of its per-sample functions (a backward branch with none inside
# it and no call, 12 instructions or more), the one with the most floating-point
# arithmetic.  Prints per stage its loops' instructions, cycles for one pass through them
# and instructions per cycle on each core (the newest llvm-mca installed; it names it).  With INSNS (the output of scripts/aarch64-insns.sh) it adds each stage's
# cycles per stereo sample (its instructions per sample over its loop's instructions per
# cycle) and the share of one core at 1.2 GHz a 48 kHz stereo stream takes.
#   scripts/aarch64-mca.sh [-v] [BUILD_DIR [INSNS]]   (default: build-perf-arm64, built as
#       scripts/aarch64-insns.sh builds it; -v prints each loop and llvm-mca's timeline)
set -euo pipefail
cd "$(dirname "$0")/.."
verbose=0
[ "${1:-}" = -v ] && { verbose=1; shift; }
build=${1:-build-perf-arm64}
insns=${2:-}
mca=$(command -v llvm-mca-16 || command -v llvm-mca || true)
[ -n "$mca" ] || { echo "needs llvm-mca (apt-get install llvm; tools/ensure-deps.sh --with-cross)" >&2; exit 1; }
lib=$build/libtqaudio_effect_eqdrc.so
[ -f "$lib" ] || { echo "no $lib: run scripts/aarch64-insns.sh first" >&2; exit 1; }
cores=(cortex-a53 cortex-a55 cortex-a72)
# stage: the functions holding its per-sample loops (demangled names, as nm -C prints them)
declare -A loops=(
    [auto_gain]='eqdrc::LoudnessMeter::add_stereo_frames|AutoGainState::process('
    [bass_enhancer]='PairSplit::run|BassEnhancerState::process_pair|eqdrc::run_paired_cascade'
    [exciter]='ExciterState::process_pair'
    [de_esser]='DeEsserState::process_pair|DeEsserState::crossfade_pair'
    [eq10]='run_skewed<float __vector(4), 10>'
    [multiband_drc]='split_block_as|MultiBandDRCState::process_lanes'
    [agc]='eqdrc::Agc::process'
    [maximizer]='eqdrc::Limiter::process'
)
stages=(auto_gain bass_enhancer exciter de_esser eq10 multiband_drc agc maximizer)
work=$build/mca
mkdir -p "$work"
aarch64-linux-gnu-objdump -d -C --no-show-raw-insn "$lib" >"$work/lib.s"

# Writes FUNCTION's per-sample loop to OUT.0 as llvm-mca input; prints 1, or 0 when it
# has none.
extract() {  # FUNCTION OUT
    python3 - "$work/lib.s" "$1" "$2" <<'PY'
import re, sys
dump, name, out = sys.argv[1:]
body, inside = [], False
for line in open(dump):
    m = re.match(r"^[0-9a-f]+ <(.*)>:$", line)
    if m:
        inside = name in m.group(1)
        continue
    m = re.match(r"^\s+([0-9a-f]+):\s+(.*)$", line)
    if inside and m:
        body.append((int(m.group(1), 16), m.group(2).split("//")[0].strip()))
branch = re.compile(r"^(b|b\.\w+|cbn?z|tbn?z)\s+(.*?)([0-9a-f]+) <.*>$")
index = {pc: k for k, (pc, _) in enumerate(body)}
backs = []
for k, (pc, text) in enumerate(body):
    m = branch.match(text)
    if m and int(m.group(3), 16) <= pc and int(m.group(3), 16) in index:
        backs.append((index[int(m.group(3), 16)], k))
inner = [(s, e) for s, e in backs
         if not any(s <= s2 and e2 <= e and (s2, e2) != (s, e) for s2, e2 in backs)
         and not any(t.startswith(("bl ", "blr ", "ret")) for _, t in body[s:e + 1]) and e - s + 1 >= 12]
# The per-sample loop is the one with the most floating-point arithmetic.
arith = lambda r: sum(1 for _, t in body[r[0]:r[1] + 1] if re.match(r"f(add|sub|mul|div|sqrt|cm|max|min)", t))
inner = sorted(inner, key=lambda r: (arith(r), r[1] - r[0]))[-1:]
for n, (s, e) in enumerate(inner):
    with open(f"{out}.{n}", "w") as f:
        f.write(".Lloop:\n")
        for _, text in body[s:e + 1]:
            m = branch.match(text)
            f.write(("%s %s.Lloop" % (m.group(1), m.group(2)) if m else text) + "\n")
print(len(inner))
PY
}

# Per stage: its loops' instructions and, per core, their cycles per iteration, summed.
declare -A size cyc ipc nloops
for stage in "${stages[@]}"; do
    rm -f "$work/$stage".s.* "$work/$stage"-*.txt
    IFS='|' read -ra fns <<<"${loops[$stage]}"
    k=0
    for fn in "${fns[@]}"; do
        n=$(extract "$fn" "$work/try")
        for ((j = 0; j < n; j++)); do
            mv "$work/try.$j" "$work/$stage.s.$k"
            k=$((k + 1))
        done
    done
    nloops[$stage]=$k size[$stage]=0
    for ((j = 0; j < k; j++)); do
        size[$stage]=$(( ${size[$stage]} + $(($(wc -l <"$work/$stage.s.$j") - 1)) ))
        for core in "${cores[@]}"; do
            "$mca" -mtriple=aarch64 -mcpu="$core" -iterations=200 "$work/$stage.s.$j" >"$work/$stage-$core.txt.$j" 2>&1
            c=$(awk '/^Iterations:/ { it = $2 } /^Total Cycles:/ { c = $3 } END { printf "%.1f", c / it }' \
                "$work/$stage-$core.txt.$j")
            cyc[$stage,$core]=$(awk -v a="${cyc[$stage,$core]:-0}" -v b="$c" 'BEGIN { printf "%.1f", a + b }')
        done
        if [ $verbose = 1 ]; then
            echo "== $stage, loop $j"
            cat "$work/$stage.s.$j"
            "$mca" -mtriple=aarch64 -mcpu=cortex-a53 -iterations=2 -timeline "$work/$stage.s.$j" 2>&1 |
                sed -n '/^Timeline view/,$p'
        fi
    done
    for core in "${cores[@]}"; do
        ipc[$stage,$core]=$(awk -v n="${size[$stage]}" -v c="${cyc[$stage,$core]:-0}" 'BEGIN { if (c > 0) printf "%.2f", n / c; else print 0 }')
    done
done
declare -A per
if [ -n "$insns" ]; then
    # Stage rows of the instruction table: name, NEON instructions per stereo sample.
    while IFS='|' read -r _ name neon _; do
        name=$(echo "$name" | xargs)
        per[$name]=$(echo "$neon" | xargs)
    done < <(awk '/^\| instructions per stereo sample/ { on = 1 } on && /^$/ { exit } on' "$insns" |
        grep '^| [a-z0-9_]* |')
fi
head="| stage | loop instructions in loops |"
rule="|---|---|"
for core in "${cores[@]}"; do head+=" $core: cycles, IPC |"; rule+="---|"; done
[ -z "$insns" ] || for core in "${cores[@]}"; do head+=" $core: cycles per stereo sample, share of 1.2 GHz |"; rule+="---|"; done
echo "$head"
echo "$rule"
declare -A total
for stage in "${stages[@]}"; do
    row="| $stage |"
    [ "${size[$stage]}" -gt 0 ] || { echo "$row no loop found |"; continue; }
    row+=" ${size[$stage]} in ${nloops[$stage]} |"
    for core in "${cores[@]}"; do row+=" ${cyc[$stage,$core]}, ${ipc[$stage,$core]} |"; done
    if [ -n "$insns" ]; then
        for core in "${cores[@]}"; do
            c=$(awk -v n="${per[$stage]:-0}" -v i="${ipc[$stage,$core]}" 'BEGIN { printf "%.0f", n / i }')
            total[$core]=$(( ${total[$core]:-0} + c ))
            row+=" $c, $(awk -v c="$c" 'BEGIN { printf "%.1f%%", c * 48000 / 1.2e9 * 100 }') |"
        done
    fi
    echo "$row"
done
if [ -n "$insns" ]; then
    row="| sum of the stages | |"
    for core in "${cores[@]}"; do row+=" |"; done
    for core in "${cores[@]}"; do
        row+=" ${total[$core]}, $(awk -v c="${total[$core]}" 'BEGIN { printf "%.1f%%", c * 48000 / 1.2e9 * 100 }') |"
    done
    echo "$row"
fi
echo
echo "$(basename "$mca"): $("$mca" --version | grep -m1 -o 'LLVM version [0-9.]*')"
