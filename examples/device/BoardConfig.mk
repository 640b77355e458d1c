# Copyright 2026 The libzelkeymaster authors
# SPDX-License-Identifier: Apache-2.0

# For the board's BoardConfig.mk: include PATH/examples/device/BoardConfig.mk
# The build reads the policy from all of these folders.

BOARD_VENDOR_SEPOLICY_DIRS += $(patsubst %/,%,$(dir $(lastword $(MAKEFILE_LIST))))/sepolicy
