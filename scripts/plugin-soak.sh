#!/usr/bin/env bash
# Soak of the ALSA plugin: MINUTES of audio (default 120) played by aplay through the
# plugin into a file slave with `reload on`, fed at SPEED times real time (default 20),
# the tuning rewritten every 2 s of audio (two tunings in turn) and a refused one every
# 20 s. Checks the slave's bytes against the chain run
# with the same hand-overs at the same frames, and reports aplay's resident memory and
# open file descriptors at the start and at the end. A measurement for the README and
# the notes, not a CI step.
#   scripts/plugin-soak.sh [MINUTES] [SPEED] [BUILD (build)]
set -euo pipefail
cd "$(dirname "$0")/.."
minutes=${1:-120} speed=${2:-20} build=${3:-build}
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$build" -j"$(nproc)" --target asound_module_pcm_eqdrc eqdrc tqaudio_effect_eqdrc >/dev/null
eqdrc=$build/tools/eqdrc/eqdrc
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
py=/usr/bin/python3

"$py" scripts/player_check.py make "$work/in.raw" $((minutes * 60))
"$eqdrc" tuning compile tunings/music.json -o "$work/a.bin"
"$eqdrc" tuning compile tunings/loud-small-speaker.json -o "$work/b.bin"
"$py" -c 'import struct, sys; b = bytearray(open(sys.argv[1], "rb").read())
b[4:8] = struct.pack("<f", 20.0); open(sys.argv[2], "wb").write(b)' "$work/a.bin" "$work/bad.bin"  # a 20-bit depth
cp "$work/a.bin" "$work/live.bin"
cat >"$work/asoundrc" <<CONF
pcm_type.eqdrc { lib "$PWD/$build/plugins/alsa/libasound_module_pcm_eqdrc.so" }
pcm.soak { type eqdrc tuning "$work/live.bin" reload on debug on slave.pcm { type file slave.pcm null file "$work/slave.raw" format raw } }
CONF

t0=$SECONDS
"$py" scripts/player_check.py feed "$work/in.raw" "$speed" | ALSA_CONFIG_PATH="/usr/share/alsa/alsa.conf:$work/asoundrc" \
    aplay -q -D soak -t raw -f S16_LE -c 2 -r 48000 --period-size=1024 --buffer-size=8192 - 2>"$work/log" &
pid=$!
sample() { echo "$(awk '/VmRSS/ {print $2}' /proc/$pid/status 2>/dev/null) $(ls /proc/$pid/fd 2>/dev/null | wc -l)"; }
sleep 1
rss=() fds=() writes=0 refused=0
while kill -0 $pid 2>/dev/null; do
    sleep "$(awk "BEGIN { print 2 / $speed }")"
    now=$(sample)
    if [ -n "${now% *}" ]; then rss+=("${now% *}"); fds+=("${now#* }"); fi
    writes=$((writes + 1))
    if [ $((writes % 10)) -eq 0 ]; then
        cp "$work/bad.bin" "$work/next.bin"; refused=$((refused + 1))
    elif [ $(((writes - refused) % 2)) -eq 1 ]; then
        cp "$work/b.bin" "$work/next.bin"
    else
        cp "$work/a.bin" "$work/next.bin"
    fi
    mv "$work/next.bin" "$work/live.bin"
done
wait $pid || true
echo "plugin soak: $minutes min of audio in $((SECONDS - t0)) s, $writes rewrites ($refused refused)"
n=${#rss[@]}
echo "aplay resident memory (kB) at 0, 25, 50, 75 and 100% of the run:" \
    "${rss[0]} ${rss[n / 4]} ${rss[n / 2]} ${rss[3 * n / 4]} ${rss[n - 1]}; open descriptors ${fds[0]} and ${fds[n - 1]}"
echo "log: $(grep -c 'took effect' "$work/log") hand-overs, $(grep -c 'keeping the tuning' "$work/log") refusals"
TQEQDRC_LIB=$PWD/$build PYTHONPATH=python "$py" scripts/player_check.py check "$work/in.raw" "$work/slave.raw" \
    "$work/log" "$work/a.bin" "$work/b.bin"
