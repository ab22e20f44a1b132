#!/usr/bin/env bash
# The studio's browser tests: puppeteer-core from the committed lockfile (npm ci; it
# never downloads a browser), test signals, Debian's chromium against the site.
#   studio/tests/run.sh WASM_BUILD_DIR NATIVE_BUILD_DIR   (the native build has eqdrc)
#   studio/tests/run.sh --connected WASM_BUILD_DIR NATIVE_BUILD_DIR
#       the page served by `eqdrc serve` while aplay plays through the ALSA plugin (the
#       native build has eqdrc, the plugin and the library; aplay and python3-numpy)
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
connected=
[ "${1:-}" = --connected ] && { connected=1; shift; }
site=$(realpath "$1")/studio/site
native=$(realpath "$2")
eqdrc=$native/tools/eqdrc/eqdrc
[ -f "$site/engine.wasm" ] || { echo "run.sh: no $site/engine.wasm (studio/build.sh)"; exit 2; }
[ -x "$eqdrc" ] || { echo "run.sh: no $eqdrc"; exit 2; }
if [ -n "$connected" ]; then
    for f in plugins/alsa/libasound_module_pcm_eqdrc.so libtqaudio_effect_eqdrc.so; do
        [ -f "$native/$f" ] || { echo "run.sh: no $native/$f"; exit 2; }
    done
    command -v aplay >/dev/null || { echo "run.sh: aplay missing (alsa-utils; tools/ensure-deps.sh)"; exit 2; }
fi
if [ ! -d "$here/node_modules/puppeteer-core" ] || [ "$here/package-lock.json" -nt "$here/node_modules/.package-lock.json" ]; then
    (cd "$here" && PUPPETEER_SKIP_DOWNLOAD=1 npm ci --ignore-scripts --no-audit --no-fund >/dev/null)
fi
artifacts=$(realpath "$1")/studio/artifacts
if [ -n "$connected" ]; then
    work=$(realpath "$1")/studio/connected-test
    rm -rf "$work"
    mkdir -p "$work"
    exec node "$here/connected-test.mjs" "$site" "$native" "$work" "$artifacts"
fi
work=$(realpath "$1")/studio/browser-test
rm -rf "$work"
mkdir -p "$work"
/usr/bin/python3 "$here/make_wavs.py" "$work"
node "$here/browser-test.mjs" "$site" "$eqdrc" "$work" "$artifacts"
