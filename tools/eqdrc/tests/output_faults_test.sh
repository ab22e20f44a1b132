#!/usr/bin/env bash
# The tool's outputs when the world fails it: a file size limit, a full disk, a
# read-only folder and SIGKILL in the middle of a write. The previous output stays whole
# under its name (or none appears), the exit status is 2 with one line saying what
# happened, and no temporary file is left by anything but SIGKILL.
#   output_faults_test.sh EQDRC SOURCE_DIR
# The full disk and the read-only folder need a tmpfs mount (root, or a user namespace);
# where none can be made they are skipped with a line saying so.
set -uo pipefail
eqdrc=$1
tunings=$2/tunings
work=$(mktemp -d)
mnt=$work/mnt
mkdir -p "$mnt"
cleanup() { mountpoint -q "$mnt" && umount "$mnt"; rm -rf "$work"; }
trap cleanup EXIT
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }

/usr/bin/python3 - "$work/in.wav" <<'PY'
import math, struct, sys, wave
with wave.open(sys.argv[1], "wb") as w:  # 10 s of stereo, about 1.9 MB
    w.setnchannels(2); w.setsampwidth(2); w.setframerate(48000)
    w.writeframes(b"".join(struct.pack("<hh", int(9000 * math.sin(i * 0.031)), int(7000 * math.sin(i * 0.007)))
                           for i in range(480000)))
PY

# expect DIR NAME WORDS COMMAND...: status 2, the message has WORDS, DIR/NAME (made
# here unless it exists) still "previous", no temporary file
expect() {
    local dir=$1 name=$2 words=$3 err status
    shift 3
    [ -e "$dir/$name" ] || printf 'previous\n' >"$dir/$name"
    err=$("$@" 2>&1 >/dev/null)
    status=$?
    [ $status -eq 2 ] || fail "$*: status $status, not 2"
    [ "$(printf '%s\n' "$err" | grep -c .)" -eq 1 ] || fail "$*: not one line: $err"
    grep -q "$words" <<<"$err" || fail "$*: no '$words' in: $err"
    [ "$(cat "$dir/$name")" = previous ] || fail "$*: $name changed"
    ! ls "$dir" | grep -q '\.eqdrc-' || fail "$*: a temporary file is left"
    echo "ok: $words: $err"
}

# A file size limit (bash counts in KiB): the write fails with EFBIG.
expect "$work" out.wav "File too large" bash -c 'ulimit -f 64; exec "$@"' - "$eqdrc" process "$work/in.wav" "$work/out.wav"
expect "$work" t.bin "File too large" bash -c 'ulimit -f 1; exec "$@"' - "$eqdrc" tuning compile "$tunings/music.json" -o "$work/t.bin"

if mount -t tmpfs -o size=256k tmpfs "$mnt" 2>/dev/null; then
    printf 'previous\n' >"$mnt/t.bin"
    expect "$mnt" out.wav "No space left on device" "$eqdrc" process "$work/in.wav" "$mnt/out.wav"
    cat /dev/zero >"$mnt/filler" 2>/dev/null  # the disk full to the last block
    expect "$mnt" t.bin "No space left on device" "$eqdrc" tuning compile "$tunings/music.json" -o "$mnt/t.bin"
    rm -f "$mnt/filler"
    mount -o remount,ro "$mnt"
    expect "$mnt" out.wav "Read-only file system" "$eqdrc" process "$work/in.wav" "$mnt/out.wav"
    expect "$mnt" t.bin "Read-only file system" "$eqdrc" tuning compile "$tunings/music.json" -o "$mnt/t.bin"
else
    echo "skipped: the full disk and the read-only folder (no tmpfs can be mounted here)"
fi

# SIGKILL cannot be caught: the temporary file stays, but never under the final name.
fifo=$work/pipe.wav
mkfifo "$fifo"
printf 'previous\n' >"$work/killed.wav"
"$eqdrc" process "$fifo" "$work/killed.wav" 2>/dev/null &
pid=$!
exec 3>"$fifo"
head -c 1000000 "$work/in.wav" >&3  # header and about 5 s; then the run waits for more
for _ in $(seq 300); do ls "$work" | grep -q 'killed.wav.eqdrc-' && break; sleep 0.1; done
ls "$work" | grep -q 'killed.wav.eqdrc-' || fail "SIGKILL: the run never started writing"
kill -KILL $pid
wait $pid 2>/dev/null
status=$?
exec 3>&-
[ $status -eq 137 ] || fail "SIGKILL: status $status"
[ "$(cat "$work/killed.wav")" = previous ] || fail "SIGKILL: the final name changed"
echo "ok: SIGKILL mid-write left the previous output"

[ $failures -eq 0 ] && echo "all output fault cases passed"
exit $((failures > 0))
