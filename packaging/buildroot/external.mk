include $(sort $(wildcard $(BR2_EXTERNAL_TQAUDIO_EFFECT_EQDRC_PATH)/package/*/*.mk))
