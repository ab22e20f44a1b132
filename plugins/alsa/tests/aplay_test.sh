#!/usr/bin/env bash
# aplay plays a WAV through the plugin into a file slave; the slave's bytes must begin
# with `eqdrc process`'s output of the same file, byte for byte (aplay rounds the end up
# to whole periods with silence, which follows).
#   aplay_test.sh PLUGIN.so EQDRC-TOOL SOURCE-DIR [sanitized]
set -euo pipefail
plugin=$1 eqdrc=$2 src=$3 sanitized=${4:-}
command -v aplay >/dev/null || { echo "aplay missing (alsa-utils; tools/ensure-deps.sh)"; exit 1; }
py=python3; [ -x /usr/bin/python3 ] && py=/usr/bin/python3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# The plugin is built with the sanitizers; aplay is not, so their runtimes go first.
if [ -n "$sanitized" ]; then
    export LD_PRELOAD="$(gcc -print-file-name=libasan.so) $(gcc -print-file-name=libubsan.so)"
    export ASAN_OPTIONS=detect_leaks=0:verify_asan_link_order=0
fi

# Two seconds of music-like stereo, and the same as mono.
"$py" "$src/scripts/make_pcm.py" "$work/music.raw" 2
"$py" - "$work" <<'PY'
import array, sys, wave
work = sys.argv[1]
raw = array.array('h', open(work + '/music.raw', 'rb').read())
mono = array.array('h', ((raw[i] + raw[i + 1]) // 2 for i in range(0, len(raw), 2)))
for name, channels, data in (('stereo', 2, raw), ('mono', 1, mono)):
    with wave.open(f'{work}/{name}.wav', 'wb') as w:
        w.setnchannels(channels); w.setsampwidth(2); w.setframerate(48000); w.writeframes(data.tobytes())
PY

failures=0 passes=0
for layout in stereo mono; do
    # The stereo tuning plays the mono file adapted, as `eqdrc process` adapts it.
    options="tuning \"$src/tunings/music.json\""
    [ $layout = mono ] && options="$options adapt on"
    "$eqdrc" process --tuning "$src/tunings/music.json" "$work/$layout.wav" "$work/$layout-eqdrc.wav" >/dev/null
    for period in 1 17 767 769 4096; do
        cat >"$work/asoundrc" <<CONF
pcm_type.eqdrc { lib "$plugin" }
pcm.test { type eqdrc $options slave.pcm { type file slave.pcm null file "$work/slave.raw" format raw } }
CONF
        rm -f "$work/slave.raw"
        buffer=$((period * 4 > 8192 ? period * 4 : 8192))
        ALSA_CONFIG_PATH="/usr/share/alsa/alsa.conf:$work/asoundrc" \
            aplay -q -D test --period-size=$period --buffer-size=$buffer "$work/$layout.wav" 2>"$work/aplay.log" ||
            { cat "$work/aplay.log"; }
        if "$py" - "$work/slave.raw" "$work/$layout-eqdrc.wav" <<'PY'
import sys, wave
slave = open(sys.argv[1], 'rb').read()
with wave.open(sys.argv[2]) as w:
    want = w.readframes(w.getnframes())
n = min(len(slave), len(want))
ok = len(slave) >= len(want) and slave[:n] == want[:n]
if not ok:
    first = next((i for i in range(n) if slave[i] != want[i]), None)
    print(f'slave {len(slave)} bytes, eqdrc {len(want)} bytes, first difference at byte {first}')
sys.exit(0 if ok else 1)
PY
        then passes=$((passes + 1)); else
            echo "FAILED: $layout, periods of $period"; failures=$((failures + 1)); fi
    done
done
echo "aplay through the plugin: $passes passed, $failures failed"
[ $failures -eq 0 ]
