################################################################################
#
# tqaudio-effect-eqdrc
#
################################################################################

# Built from the repository this external tree sits in (packaging/buildroot).
TQAUDIO_EFFECT_EQDRC_VERSION = 2.0.0
TQAUDIO_EFFECT_EQDRC_SITE = $(BR2_EXTERNAL_TQAUDIO_EFFECT_EQDRC_PATH)/../..
TQAUDIO_EFFECT_EQDRC_SITE_METHOD = local
# The project's own licence is not chosen yet: see debian/copyright.
TQAUDIO_EFFECT_EQDRC_LICENSE = not chosen (core/mathf.cpp: MIT, fdlibm)
TQAUDIO_EFFECT_EQDRC_INSTALL_STAGING = YES

# The library alone unless a part below is chosen; everything lands in the target's
# library path, so no RUNPATH. (packaging/check-install.py builds these options.)
TQAUDIO_EFFECT_EQDRC_CONF_OPTS = \
	-DEQDRC_BUILD_TESTS=OFF \
	-DEQDRC_BUILD_BENCH=OFF \
	-DEQDRC_BUILD_PYTHON_LIBS=OFF \
	-DEQDRC_CROSS_WITH_DEPS=ON \
	-DCMAKE_SKIP_INSTALL_RPATH=ON

ifeq ($(BR2_PACKAGE_TQAUDIO_EFFECT_EQDRC_TOOL),y)
TQAUDIO_EFFECT_EQDRC_DEPENDENCIES += cli11 nlohmann-json libsndfile libebur128 eigen kissfft cpp-httplib
TQAUDIO_EFFECT_EQDRC_CONF_OPTS += -DEQDRC_BUILD_TOOLS=ON
else
TQAUDIO_EFFECT_EQDRC_CONF_OPTS += -DEQDRC_BUILD_TOOLS=OFF
endif

ifeq ($(BR2_PACKAGE_TQAUDIO_EFFECT_EQDRC_ALSA),y)
TQAUDIO_EFFECT_EQDRC_DEPENDENCIES += alsa-lib nlohmann-json
TQAUDIO_EFFECT_EQDRC_CONF_OPTS += -DEQDRC_BUILD_ALSA=ON
else
TQAUDIO_EFFECT_EQDRC_CONF_OPTS += -DEQDRC_BUILD_ALSA=OFF
endif

ifeq ($(BR2_PACKAGE_TQAUDIO_EFFECT_EQDRC_GSTREAMER),y)
TQAUDIO_EFFECT_EQDRC_DEPENDENCIES += gstreamer1 gst1-plugins-base nlohmann-json
TQAUDIO_EFFECT_EQDRC_CONF_OPTS += -DEQDRC_BUILD_GSTREAMER=ON
else
TQAUDIO_EFFECT_EQDRC_CONF_OPTS += -DEQDRC_BUILD_GSTREAMER=OFF
endif

ifeq ($(BR2_PACKAGE_TQAUDIO_EFFECT_EQDRC_LV2),y)
TQAUDIO_EFFECT_EQDRC_DEPENDENCIES += lv2 nlohmann-json
TQAUDIO_EFFECT_EQDRC_CONF_OPTS += -DEQDRC_BUILD_LV2=ON
else
TQAUDIO_EFFECT_EQDRC_CONF_OPTS += -DEQDRC_BUILD_LV2=OFF
endif

# The install step always installs the test program; the target keeps it on request.
ifneq ($(BR2_PACKAGE_TQAUDIO_EFFECT_EQDRC_TEST_PROGRAM),y)
define TQAUDIO_EFFECT_EQDRC_REMOVE_TEST_PROGRAM
	rm -f $(TARGET_DIR)/usr/bin/quorvel_enh
endef
TQAUDIO_EFFECT_EQDRC_POST_INSTALL_TARGET_HOOKS += TQAUDIO_EFFECT_EQDRC_REMOVE_TEST_PROGRAM
endif

$(eval $(cmake-package))
