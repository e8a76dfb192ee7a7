include $(sort $(wildcard $(BR2_EXTERNAL_MAVKIT_PATH)/package/*/*.mk))
