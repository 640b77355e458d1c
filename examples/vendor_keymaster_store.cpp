// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// A store in the working directory, over the vendor keymaster of this folder.

#include <zelkeymaster_operation.h>

#include <cstdio>

#include "vendor_keymaster.h"

int main() {
    const example::VendorKeymaster::DeviceKey device_key = {0x5a};  // hardware: never in a program
    example::VendorKeymaster keymaster(device_key);
    ZelKeymasterOperation object(&keymaster, /*enableSecureDb=*/true);

    std::string alias = "payment", creator = "wallet";
    SODOperationParam add;
    add.setAlias(alias).setCreator(creator);
    int status = object.SodInsert(add);

    // Deletes what it added, so that the program can run again: the store is read back for that.
    SODOperationParam all;
    std::vector<std::string> found;
    if (status == ZELKM_OK) {
        status = object.SodRetreiveAlias(all, found);
    }
    std::printf("%d, %zu objects\n", status, found.size());
    return status == ZELKM_OK && !found.empty() ? 0 : 1;
}
