#!/usr/bin/env bash
# The studio's browser test: puppeteer-core from the committed lockfile (npm ci; it
# never downloads a browser), test signals, Debian's chromium against the site.
#   studio/tests/run.sh WASM_BUILD_DIR NATIVE_BUILD_DIR   (the native build has eqdrc)
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
site=$(realpath "$1")/studio/site
eqdrc=$(realpath "$2")/tools/eqdrc/eqdrc
[ -f "$site/engine.wasm" ] || { echo "run.sh: no $site/engine.wasm (studio/build.sh)"; exit 2; }
[ -x "$eqdrc" ] || { echo "run.sh: no $eqdrc"; exit 2; }
if [ ! -d "$here/node_modules/puppeteer-core" ] || [ "$here/package-lock.json" -nt "$here/node_modules/.package-lock.json" ]; then
    (cd "$here" && PUPPETEER_SKIP_DOWNLOAD=1 npm ci --ignore-scripts --no-audit --no-fund >/dev/null)
fi
work=$(realpath "$1")/studio/browser-test
rm -rf "$work"
mkdir -p "$work"
/usr/bin/python3 "$here/make_wavs.py" "$work"
node "$here/browser-test.mjs" "$site" "$eqdrc" "$work" "$(realpath "$1")/studio/artifacts"
