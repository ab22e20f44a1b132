SUMMARY = "EQ/DRC post-processing chain for 16-bit PCM"
DESCRIPTION = "A fixed chain (auto gain, bass enhancer, exciter, de-esser, ten-band \
equaliser, multi-band compressor, AGC, limiter) run frame by frame over interleaved \
16-bit PCM and set by a tuning record. The library alone needs only libc and libm; \
the eqdrc tool and the plugins come with PACKAGECONFIG."
# The project's own licence is not chosen yet: see debian/copyright.
LICENSE = "CLOSED"

# The repository: set EQDRC_GIT (and SRCREV) to your server's, or build a checkout with
# externalsrc (local.conf: INHERIT += "externalsrc"
# EXTERNALSRC:pn-tqaudio-effect-eqdrc = "/path/to/checkout").
EQDRC_GIT ??= "git.example.invalid/tqaudio_effect_eqdrc.git"
SRC_URI = "git://${EQDRC_GIT};protocol=ssh;branch=main"
SRCREV ??= "${AUTOREV}"
S = "${WORKDIR}/git"

inherit cmake pkgconfig

# The library alone unless PACKAGECONFIG asks for more; everything lands in the target's
# library path, so no RUNPATH. (packaging/check-install.py builds these options.)
EXTRA_OECMAKE = "-DEQDRC_BUILD_TESTS=OFF -DEQDRC_BUILD_BENCH=OFF -DEQDRC_BUILD_PYTHON_LIBS=OFF \
                 -DEQDRC_CROSS_WITH_DEPS=ON -DCMAKE_SKIP_INSTALL_RPATH=ON"

PACKAGECONFIG ??= ""
PACKAGECONFIG[tool] = "-DEQDRC_BUILD_TOOLS=ON,-DEQDRC_BUILD_TOOLS=OFF,cli11 nlohmann-json libsndfile1 libebur128 libeigen kissfft cpp-httplib"
PACKAGECONFIG[alsa] = "-DEQDRC_BUILD_ALSA=ON,-DEQDRC_BUILD_ALSA=OFF,alsa-lib nlohmann-json"
PACKAGECONFIG[gstreamer] = "-DEQDRC_BUILD_GSTREAMER=ON,-DEQDRC_BUILD_GSTREAMER=OFF,gstreamer1.0 gstreamer1.0-plugins-base nlohmann-json"
PACKAGECONFIG[lv2] = "-DEQDRC_BUILD_LV2=ON,-DEQDRC_BUILD_LV2=OFF,lv2 nlohmann-json"

PACKAGES =+ "${PN}-tool ${PN}-alsa ${PN}-gstreamer ${PN}-lv2 ${PN}-test-program"
FILES:${PN}-tool = "${bindir}/eqdrc"
FILES:${PN}-alsa = "${libdir}/alsa-lib/libasound_module_pcm_eqdrc.so"
FILES:${PN}-gstreamer = "${libdir}/gstreamer-1.0/libgsteqdrc.so"
FILES:${PN}-lv2 = "${libdir}/lv2/eqdrc.lv2"
FILES:${PN}-test-program = "${bindir}/quorvel_enh"
