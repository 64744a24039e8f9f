include $(sort $(wildcard $(BR2_EXTERNAL_TREESCOPE_PATH)/package/*/*.mk))
