#!/usr/bin/env bash
# The LV2 plugin in a private PipeWire with WirePlumber: a null sink stands for the
# device, the shipped filter-chain configuration (pipewire/eqdrc-speaker.conf) and
# WirePlumber rule (pipewire/51-eqdrc-speaker.lua) put the "EQ/DRC speaker" sink in front
# of it, pw-cat plays a float WAV into that sink and records the null sink's monitor in
# float. The graph runs in quanta of 8192 samples (long ones, so that a busy machine
# does not miss a cycle) and the sink starts a quantum or more
# before the player's first buffer, so the chain sees that silence first: the recording,
# past the latency, must equal `eqdrc process` of the same file behind some whole number
# of quanta of silence, bit for bit in 16 bits.
#   plugins/lv2/tests/pipewire_test.sh LV2_DIR EQDRC SOURCE_DIR [sanitized]
# Exit status 77 (skipped, with the reason) where PipeWire, WirePlumber or a D-Bus
# session cannot run, and for a sanitizer build (the lilv host test covers that one).
set -euo pipefail
lv2dir=$1 eqdrc=$2 src=$3 sanitized=${4:-}
skip() { echo "skipped: $*"; exit 77; }
[ -z "$sanitized" ] || skip "the plugin is built with sanitizers, which PipeWire's processes do not load"
for tool in pipewire wireplumber pw-cat pw-link dbus-daemon; do
    command -v "$tool" >/dev/null || skip "$tool is missing (pipewire-bin, wireplumber, dbus-daemon)"
done
py=python3
[ -x /usr/bin/python3 ] && py=/usr/bin/python3
"$py" -c 'import numpy, soundfile' 2>/dev/null || skip "numpy or soundfile is missing (python3-numpy, python3-soundfile)"

work=$(mktemp -d)
pids=()
cleanup() {
    for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; done
    wait 2>/dev/null || true
    rm -rf "$work"
}
trap cleanup EXIT
export XDG_RUNTIME_DIR=$work/run PIPEWIRE_RUNTIME_DIR=$work/run XDG_CONFIG_HOME=$work/config \
    XDG_STATE_HOME=$work/state XDG_DATA_HOME=$work/data LV2_PATH=$lv2dir EQDRC_LV2_TUNING=$src/tunings/music.json
mkdir -p -m 700 "$XDG_RUNTIME_DIR"
mkdir -p "$XDG_CONFIG_HOME/pipewire/eqdrc-test.conf.d" "$XDG_CONFIG_HOME/wireplumber/main.lua.d"
device=eqdrc_test_null
sed "s/DEVICE/$device/" "$src/plugins/lv2/pipewire/eqdrc-speaker.conf" \
    >"$XDG_CONFIG_HOME/pipewire/eqdrc-test.conf.d/eqdrc-speaker.conf"
sed "s/DEVICE/$device/" "$src/plugins/lv2/pipewire/51-eqdrc-speaker.lua" \
    >"$XDG_CONFIG_HOME/wireplumber/main.lua.d/51-eqdrc-speaker.lua"
cat >"$XDG_CONFIG_HOME/pipewire/eqdrc-test.conf" <<EOF
context.properties = { core.daemon = true core.name = pipewire-0 default.clock.rate = 48000
                       default.clock.quantum = 8192 default.clock.min-quantum = 8192
                       default.clock.max-quantum = 8192 mem.allow-mlock = false }
context.spa-libs = { audio.convert.* = audioconvert/libspa-audioconvert support.* = support/libspa-support }
context.modules = [
    { name = libpipewire-module-protocol-native }
    { name = libpipewire-module-metadata }
    { name = libpipewire-module-spa-node-factory }
    { name = libpipewire-module-client-node }
    { name = libpipewire-module-adapter }
    { name = libpipewire-module-link-factory }
    { name = libpipewire-module-access args = { } }
]
context.objects = [
    { factory = adapter args = { factory.name = support.null-audio-sink node.name = "$device"
        media.class = Audio/Sink audio.position = [ FL FR ] audio.rate = 48000 } }
]
EOF

# waits up to 10 s for COMMAND to succeed
wait_for() {
    for _ in $(seq 100); do "$@" >/dev/null 2>&1 && return 0; sleep 0.1; done
    return 1
}
linked() { pw-link -l | grep -A2 "^$1" | grep -q "$2"; }

# PipeWire, a D-Bus session of WirePlumber's own, and WirePlumber; returns when the
# filter chain stands in front of the device.
start() {
    pipewire -c eqdrc-test.conf >"$work/pipewire.log" 2>&1 &
    pids+=($!)
    wait_for test -S "$XDG_RUNTIME_DIR/pipewire-0" ||
        skip "pipewire does not start here: $(grep -m1 -E '\[E\]' "$work/pipewire.log" || tail -n 1 "$work/pipewire.log")"
    # WirePlumber wants a D-Bus session: one of its own, which ends with the test.
    dbus-daemon --session --nofork --address="unix:path=$work/bus" >"$work/dbus.log" 2>&1 &
    pids+=($!)
    wait_for test -S "$work/bus" || skip "dbus-daemon does not start here: $(tail -n 1 "$work/dbus.log")"
    DBUS_SESSION_BUS_ADDRESS="unix:path=$work/bus" wireplumber >"$work/wireplumber.log" 2>&1 &
    pids+=($!)
    if ! wait_for linked eqdrc_speaker.output:output_FL "$device:playback_FL"; then
        if ! kill -0 "${pids[2]}" 2>/dev/null; then
            if grep -q eqdrc-speaker "$work/wireplumber.log"; then
                echo "wireplumber refused the shipped rule: $(grep eqdrc-speaker "$work/wireplumber.log")"
                exit 1
            fi
            skip "wireplumber does not run here: $(tail -n 2 "$work/wireplumber.log")"
        fi
        echo "the filter chain was not put in front of $device"
        pw-link -l || true
        grep -E '\[E\]|eqdrc' "$work/pipewire.log" | head -n 20
        exit 1
    fi
}
stop() {
    for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; done
    wait 2>/dev/null || true
    pids=()
    rm -f "$work/bus"
}

# 3 s of music-like float audio with values between 16-bit steps, exactly halfway
# between two (a tie goes to the even one), beyond full scale and NaN, then 1 s of
# silence that carries the last frames out.
"$py" - "$work/in.wav" <<'PY'
import sys
import numpy as np, soundfile as sf
t = np.arange(3 * 48000) / 48000.0
rng = np.random.default_rng(7)
burst = rng.standard_normal((t.size, 2)) * np.exp(-(np.arange(t.size) % 12000) / 800.0)[:, None]
x = np.stack([0.35 * np.sin(2 * np.pi * 110 * t), 0.35 * np.sin(2 * np.pi * 165 * t)], 1)
x += 0.2 * np.sin(2 * np.pi * 1320 * t)[:, None] + 0.2 * burst
halfway = np.round(x[::7] * 32768.0) + 0.5
x[::7] = halfway / 32768.0
x[5000:5010] = [[1.5, -2.0]] * 10
x[6000] = np.nan
sf.write(sys.argv[1], np.vstack([x, np.zeros((48000, 2))]).astype(np.float32), 48000, subtype="FLOAT")
PY
# The recorder is passive, so that the graph starts with the player. A machine too busy
# to keep the graph's time makes PipeWire drop a cycle, which the chain hears as silence
# in the music: the whole run, from a fresh PipeWire, is tried up to three times.
attempt() {
    pw-cat --record --target "$device" -P '{ stream.capture.sink = true node.passive = true }' \
        --format f32 --rate 48000 --channels 2 "$work/out.wav" &
    local recorder=$!
    pids+=($recorder)
    wait_for linked "$device:monitor_FL" pw-cat || { echo "the recorder was not linked"; return 1; }
    pw-cat --playback --target eqdrc_speaker "$work/in.wav"
    sleep 0.5
    kill -INT "$recorder"
    wait "$recorder" || true
    "$py" - "$eqdrc" "$EQDRC_LV2_TUNING" "$work" <<'PY'
import subprocess, sys
import numpy as np, soundfile as sf
eqdrc, tuning, work = sys.argv[1:]
music, _ = sf.read(f"{work}/in.wav", dtype="float32")
got, _ = sf.read(f"{work}/out.wav", dtype="float32")
scaled = got.astype(np.float64) * 32768.0
if not np.array_equal(scaled, np.round(scaled)):
    sys.exit("the recording holds values between 16-bit steps: PipeWire changed the samples")
got = scaled.astype(np.int64)
first = lambda a: int(np.flatnonzero(np.any(a != 0, axis=1))[0])
n = music.shape[0] - 768  # the last frame of silence need not have come out
for quanta in range(9):
    lead = 8192 * quanta
    sf.write(f"{work}/lead.wav", np.vstack([np.zeros((lead, 2), np.float32), music]), 48000, subtype="FLOAT")
    subprocess.run([eqdrc, "process", f"{work}/lead.wav", f"{work}/expected.wav", "--tuning", tuning, "--force"],
                   check=True, capture_output=True)
    expected = sf.read(f"{work}/expected.wav", dtype="int16")[0][lead:].astype(np.int64)
    offset = first(got) - first(expected)
    if offset >= 0 and got.shape[0] >= offset + n and np.array_equal(got[offset:offset + n], expected[:n]):
        print(f"bit-exact: {n} samples per channel behind {lead} samples of silence")
        sys.exit(0)
music_part = got[first(got):first(got) + 3 * 48000]
silent = np.all(music_part == 0, axis=1)
print("the recording differs from eqdrc process behind any whole number of quanta of silence"
      + (f" ({int(silent.sum())} silent samples within the music: a dropped cycle)" if silent.sum() > 256 else ""))
sys.exit(1)
PY
}
for try in 1 2 3; do
    start
    attempt && exit 0
    stop
done
exit 1
