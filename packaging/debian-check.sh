#!/usr/bin/env bash
# Builds the Debian packages from the committed tree (git archive HEAD: nothing uncommitted
# and no build folder enters them), checks them with lintian, installs them into this
# machine, runs debian/tests/installed against what they installed, purges them and checks
# that nothing they installed is left.
#   packaging/debian-check.sh [WORK_DIR]   (default: a temporary folder, removed when done)
# Needs root or sudo: it installs the build's needs and the packages.
set -euo pipefail
cd "$(dirname "$0")/.."
SUDO=""
[ "$(id -u)" -eq 0 ] || SUDO=sudo
keep=1
work=${1:-}
if [ -z "$work" ]; then
    work=$(mktemp -d)
    keep=0
fi
work=$(realpath "$work")
src="$work/src"
rm -rf "$src" "$work"/*.deb "$work"/*.changes "$work"/*.buildinfo
mkdir -p "$src"
git archive HEAD | tar -x -C "$src"

t0=$SECONDS
# What debian/control asks for (an outdated package list is refreshed once).
$SUDO apt-get build-dep -y -qq "$src" >/dev/null 2>&1 ||
    { $SUDO apt-get update -qq && DEBIAN_FRONTEND=noninteractive $SUDO apt-get build-dep -y -qq "$src" >/dev/null; }
# Debian's compilers and interpreter, whatever else comes first on PATH.
if ! (cd "$src" && env PATH=/usr/sbin:/usr/bin:/sbin:/bin DEB_BUILD_OPTIONS="nocheck parallel=$(nproc)" \
        dpkg-buildpackage -us -uc -b >"$work/build.log" 2>&1); then
    tail -n 40 "$work/build.log"
    echo "debian: dpkg-buildpackage failed (log: $work/build.log)" >&2
    exit 1
fi
echo "(debian: packages built in $((SECONDS - t0)) s)"
# Errors fail; warnings and notes are shown (README, "Debian packages", lists those kept).
status=0
lintian --fail-on error --display-level '>=info' "$work"/*.changes >"$work/lintian.log" 2>&1 || status=$?
grep -v '^running with root privileges' "$work/lintian.log" || true
[ $status = 0 ] || { echo "debian: lintian found errors" >&2; exit 1; }

debs=()
packages=()
for deb in "$work"/*.deb; do
    case $deb in *-dbgsym_*) continue ;; esac
    debs+=("$deb")
    packages+=("$(dpkg-deb -f "$deb" Package)")
done
purge() {
    DEBIAN_FRONTEND=noninteractive $SUDO apt-get purge -y -qq "${packages[@]}" >/dev/null
}
trap 'purge; [ $keep = 1 ] || rm -rf "$work"' EXIT
DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq "${debs[@]}" \
    gcc libc6-dev pkgconf cmake make alsa-utils gstreamer1.0-tools gstreamer1.0-plugins-good lilv-utils \
    python3-numpy >/dev/null
for p in "${packages[@]}"; do
    dpkg -L "$p" | grep -v '^/\.$' | grep '^/'
done | sort -u >"$work/installed-files"
(cd "$src" && debian/tests/installed)
# The packaged library (on x86-64 the per-CPU one, whose exports are stubs without debug
# information) exports every function of the ABI baseline.
lib=$(dpkg -L libtqaudio-effect-eqdrc2 | grep -m 1 '\.so\.[0-9.]*$')
missing=$(comm -23 <(grep -o "<elf-symbol name='[^']*'" "$src/abi/tqaudio_effect_eqdrc.abi" | cut -d"'" -f2 | sort) \
                   <(nm -D --defined-only "$lib" | awk '{print $3}' | sort))
[ -z "$missing" ] || { echo "debian: $lib does not export:" $missing >&2; exit 1; }

trap '[ $keep = 1 ] || rm -rf "$work"' EXIT
purge
# Every file the packages listed is gone; a folder may stay where another package owns it.
left=0
while read -r path; do
    [ -e "$path" ] || [ -L "$path" ] || continue
    if [ -d "$path" ] && [ ! -L "$path" ] && dpkg -S "$path" >/dev/null 2>&1; then
        continue
    fi
    echo "debian: left behind after purge: $path" >&2
    left=1
done <"$work/installed-files"
if /sbin/ldconfig -p | grep 'libtqaudio_effect_eqdrc' >/dev/null; then
    echo "debian: the linker cache still names the library after purge" >&2
    left=1
fi
[ $left = 0 ]
echo "debian: ${#packages[@]} packages built, installed, used and purged without a trace"
