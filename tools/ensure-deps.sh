#!/usr/bin/env bash
# Installs the Debian packages the build, the tests and the demo need, when missing.
#   tools/ensure-deps.sh [--with-cross]     (also the aarch64 cross compiler, qemu-user and llvm-mca)
#   tools/ensure-deps.sh --with-sox         (also sox, for scripts/compare-sox.sh)
#   tools/ensure-deps.sh --with-armhf       (also the 32-bit ARM cross compiler and qemu-user)
#   tools/ensure-deps.sh --with-packaging   (also abidw, dpkg-buildpackage and lintian; the Debian
#                                            build's own needs come from debian/control)
set -euo pipefail
need=()
have() { command -v "$1" >/dev/null 2>&1; }
have cmake || need+=(cmake)
have g++ || need+=(g++)
have make || need+=(make)
have python3 || need+=(python3)
have pkg-config || need+=(pkg-config)
have xzcat || need+=(xz-utils)
[ -f /usr/include/gtest/gtest.h ] || need+=(libgtest-dev)
[ -f /usr/include/benchmark/benchmark.h ] || need+=(libbenchmark-dev)
# eqdrc, the tuning and file-processing tool
[ -f /usr/include/CLI/CLI.hpp ] || need+=(libcli11-dev)
[ -f /usr/include/nlohmann/json.hpp ] || need+=(nlohmann-json3-dev)
[ -f /usr/include/sndfile.h ] || need+=(libsndfile1-dev)
[ -f /usr/include/ebur128.h ] || need+=(libebur128-dev)
# `eqdrc fit`: Eigen's Levenberg-Marquardt module (the fitting library, fit/) and KissFFT
# (an impulse response's spectrum)
[ -f /usr/include/eigen3/unsupported/Eigen/LevenbergMarquardt ] || need+=(libeigen3-dev)
[ -f /usr/include/kissfft/kiss_fftr.h ] || need+=(libkissfft-dev)
# `eqdrc serve`'s HTTP server
[ -f /usr/include/httplib.h ] || need+=(libcpp-httplib-dev)
# the ALSA plugin (plugins/alsa) and its aplay test
[ -f /usr/include/alsa/pcm_ioplug.h ] || need+=(libasound2-dev)
have aplay || need+=(alsa-utils)
# the GStreamer element (plugins/gstreamer); its tests play through appsrc, audiotestsrc,
# audioconvert, audioresample (plugins-base), wavparse and wavenc (plugins-good)
[ -f /usr/include/gstreamer-1.0/gst/audio/gstaudiofilter.h ] || need+=(libgstreamer1.0-dev libgstreamer-plugins-base1.0-dev)
have gst-launch-1.0 || need+=(gstreamer1.0-tools)
compgen -G "/usr/lib/*/gstreamer-1.0/libgstaudioconvert.so" >/dev/null || need+=(gstreamer1.0-plugins-base)
compgen -G "/usr/lib/*/gstreamer-1.0/libgstwavparse.so" >/dev/null || need+=(gstreamer1.0-plugins-good)
# the LV2 plugin (plugins/lv2): the LV2 headers and lv2_validate with sord_validate, lilv
# for its host test, and for its PipeWire test a private PipeWire (with the filter-chain
# module) and WirePlumber in a D-Bus session of their own
[ -f /usr/include/lv2/core/lv2.h ] || need+=(lv2-dev)
have sord_validate || need+=(sordi)
[ -f /usr/include/lilv-0/lilv/lilv.h ] || need+=(liblilv-dev)
compgen -G "/usr/lib/*/pipewire-0.3/libpipewire-module-filter-chain.so" >/dev/null || need+=(pipewire)
have pw-cat || need+=(pipewire-bin)
have wireplumber || need+=(wireplumber)
have dbus-daemon || need+=(dbus-daemon)
# fuzz targets (clang with libFuzzer) and the valgrind check
have clang++ || need+=(clang)
compgen -G "/usr/lib/llvm-*/lib/clang/*/lib/linux/libclang_rt.fuzzer-*.a" >/dev/null || need+=(libclang-rt-dev)
# the eqdrc tool's fuzz targets: clang 16 compiles the tool's sources
have clang++-16 || need+=(clang-16 libclang-rt-16-dev)
have valgrind || need+=(valgrind)
# the exhaustive maths check (scripts/check-mathf.sh) classifies differences with MPFR
[ -f /usr/include/mpfr.h ] || need+=(libmpfr-dev)
# the Python bindings' tests and pictures (python/; test.sh python)
py=/usr/bin/python3; [ -x "$py" ] || py=python3
"$py" -c 'import numpy' 2>/dev/null || need+=(python3-numpy)
"$py" -c 'import pytest' 2>/dev/null || need+=(python3-pytest)
"$py" -c 'import matplotlib' 2>/dev/null || need+=(python3-matplotlib)
# the Python package's audio files and its installation into a venv; the API reference
"$py" -c 'import soundfile' 2>/dev/null || need+=(python3-soundfile)
"$py" -c 'import ensurepip' 2>/dev/null || need+=(python3-venv)
"$py" -c 'import pip' 2>/dev/null || need+=(python3-pip)
"$py" -c 'import setuptools, wheel' 2>/dev/null || need+=(python3-setuptools python3-wheel)
have doxygen || need+=(doxygen)
# the tuning studio (studio/): emscripten, node and npm for its build and browser test,
# Debian's chromium for the browser test (puppeteer-core never downloads one)
have emcc || need+=(emscripten)
have node || need+=(nodejs)
have npm || need+=(npm)
have chromium || need+=(chromium)
if [ "${1:-}" = --with-sox ]; then  # optional: scripts/compare-sox.sh
    have sox || need+=(sox)
fi
if [ "${1:-}" = --with-cross ]; then  # the aarch64 test variant
    [ -f /usr/src/googletest/CMakeLists.txt ] || need+=(googletest)
    have aarch64-linux-gnu-g++ || need+=(g++-aarch64-linux-gnu)
    have qemu-aarch64 || need+=(qemu-user)
    have llvm-mca || need+=(llvm)  # scripts/aarch64-mca.sh
fi
if [ "${1:-}" = --with-armhf ]; then  # the optional 32-bit ARM test variant
    [ -f /usr/src/googletest/CMakeLists.txt ] || need+=(googletest)
    have arm-linux-gnueabihf-g++ || need+=(g++-arm-linux-gnueabihf)
    have qemu-arm || need+=(qemu-user)
fi
if [ "${1:-}" = --with-packaging ]; then  # the abi, recipes and debian test variants
    have abidw || need+=(abigail-tools)
    [ -f /usr/include/lv2/core/lv2.h ] || need+=(lv2-dev)
    have dpkg-buildpackage || need+=(dpkg-dev)
    have lintian || need+=(lintian)
fi
if [ ${#need[@]} -gt 0 ]; then
    echo "installing: ${need[*]}"
    SUDO=""; [ "$(id -u)" -eq 0 ] || SUDO=sudo
    $SUDO apt-get update -qq
    DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq "${need[@]}" >/dev/null
fi
