#!/usr/bin/env bash
# Where the aarch64 build's instructions go: the test program runs under qemu-aarch64 with
# a plugin counting each translated block's executions (scripts/qemu_blocks.c) over the
# 2 s and 10 s music of scripts/aarch64-insns.sh; per function of the library, the
# difference over the 8 s between them, per stereo sample, split into the kinds of
# instruction the blocks hold (floating-point arithmetic and compares, loads and stores,
# lane moves, bitwise selects, integer work, branches).  With -b it also lists the
# hottest blocks (offset in the library, instructions, per stereo sample) to read in
# `aarch64-linux-gnu-objdump -d` of the library.
#   scripts/aarch64-profile.sh [-b] [RECORD [BUILD_DIR]]   (RECORD: chain, the default, or
#       a stage name of scripts/aarch64-insns.sh; BUILD_DIR: build-perf-arm64, which
#       scripts/aarch64-insns.sh builds and fills with its inputs)
set -euo pipefail
cd "$(dirname "$0")/.."
blocks=0
[ "${1:-}" = -b ] && { blocks=1; shift; }
record=${1:-chain}
build=${2:-build-perf-arm64}
work=$build/insns
[ -f "$work/$record.bin" ] && [ -f "$work/music.raw" ] ||
    { echo "no $work/$record.bin or music: run scripts/aarch64-insns.sh first" >&2; exit 1; }
plugin=$build/qemu_blocks.so
[ "$plugin" -nt scripts/qemu_blocks.c ] || cc -shared -fPIC -O2 -o "$plugin" scripts/qemu_blocks.c
lib=$build/libtqaudio_effect_eqdrc.so
for run in short long; do
    input=$work/music.raw
    [ $run = short ] && input=$work/music-short.raw
    qemu-aarch64 -L /usr/aarch64-linux-gnu -plugin "$plugin,out=$work/blocks-$run.txt,map=libtqaudio_effect_eqdrc" \
        "$build/quorvel_enh" "$input" "$work/profile-out.raw" "$work/$record.bin" "$work/$record.bin" \
        "$work/profile-readback.rec" >/dev/null 2>&1
done
aarch64-linux-gnu-nm -C --defined-only "$lib" >"$work/symbols.txt"
aarch64-linux-gnu-objdump -d --no-show-raw-insn "$lib" >"$work/lib.s"
python3 - "$work" "$blocks" <<'PY'
import bisect, collections, re, sys
work, list_blocks = sys.argv[1], sys.argv[2] == "1"
stereo_samples = 8 * 48000  # the long run's extra 8 s
functions = sorted((int(a, 16), name) for a, kind, name in
                   (l.rstrip("\n").split(" ", 2) for l in open(f"{work}/symbols.txt") if l.count(" ") >= 2)
                   if kind in "tTwW")
starts = [a for a, _ in functions]
ops = {}
for line in open(f"{work}/lib.s"):
    m = re.match(r"\s*([0-9a-f]+):\s+(\S+)", line)
    if m:
        ops[int(m.group(1), 16)] = m.group(2)
text = sorted(ops)
where = {a: k for k, a in enumerate(text)}

def kind(op):
    if re.match(r"f(add|sub|mul|div|sqrt|neg|abs|cm|ac|max|min|csel)", op):
        return "float"
    if op.startswith(("ld", "st")):
        return "memory"
    if op in ("ext", "zip1", "zip2", "uzp1", "uzp2", "trn1", "trn2", "dup", "ins", "mov", "fmov", "umov", "movi",
              "mvni", "tbl", "xtn", "xtn2", "sxtl", "sxtl2", "umaxv", "uminv", "addv"):
        return "moves"
    if op in ("bsl", "bit", "bif", "and", "orr", "orn", "bic", "eor", "not", "mvn"):
        return "selects"
    if re.match(r"(b|b\..*|cbn?z|tbn?z|bl|blr|ret|cmp|cmn|tst|ccmp)$", op):
        return "branches"
    return "integer"

def load(path):
    base, counts = None, collections.Counter()
    lines = open(path).read().splitlines()
    for l in lines:
        if l.startswith("# ") and base is None:
            base = int(l[2:].split("-")[0], 16)
    for l in lines:
        if not l.startswith("#"):
            a, n, c = l.split()
            counts[(int(a, 16) - base, int(n))] += int(n) * int(c)
    return counts

short, long = load(f"{work}/blocks-short.txt"), load(f"{work}/blocks-long.txt")
per_function = collections.defaultdict(collections.Counter)
hot = []
for (offset, n), executed in long.items():
    extra = (executed - short.get((offset, n), 0)) / stereo_samples
    if extra <= 0:
        continue
    k = bisect.bisect_right(starts, offset) - 1
    name = functions[k][1] if k >= 0 and offset in where else "(outside the library)"
    hot.append((extra, offset, n, name))
    if offset not in where:
        per_function[name]["other"] += extra
        continue
    for i in range(where[offset], min(where[offset] + n, len(text))):
        per_function[name][kind(ops[text[i]])] += extra / n
kinds = ["float", "memory", "moves", "selects", "integer", "branches"]
print("| function | instructions per stereo sample | " + " | ".join(kinds) + " |")
print("|---|---|" + "---|" * len(kinds))
total = collections.Counter()
for name, c in sorted(per_function.items(), key=lambda x: -sum(x[1].values())):
    total.update(c)
    if sum(c.values()) >= 0.5:
        print(f"| {name[:90]} | {sum(c.values()):.1f} | " + " | ".join(f"{c[k]:.1f}" for k in kinds) + " |")
print(f"| all | {sum(total.values()):.1f} | " + " | ".join(f"{total[k]:.1f}" for k in kinds) + " |")
if list_blocks:
    print("\nhottest blocks: offset, instructions, per stereo sample, function")
    for extra, offset, n, name in sorted(hot, reverse=True)[:30]:
        print(f"{offset:x} {n} {extra:.2f} {name[:80]}")
PY
