# Copyright 2026 The libzelkeymaster authors
# SPDX-License-Identifier: Apache-2.0

# For the product's makefile: $(call inherit-product, PATH/examples/device/device.mk)

PRODUCT_PACKAGES += zeld

# At debug level the library's log holds every command with its values.
PRODUCT_PROPERTY_OVERRIDES += persist.log.tag.keymaster_tee=W
