// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Stores a key's alias in the working directory, and finds out who may use the key. README.md shows
// the lines below.

#include <soft_keymaster/soft_keymaster.h>  // the host's keymaster; a device has its own
#include <zelkeymaster_operation.h>

#include <cstdio>

int main() {
    soft_keymaster::SoftKeymaster::Options options;
    options.root_key_path = "soft_keymaster_root.key";
    soft_keymaster::SoftKeymaster keymaster(options);
    ZelKeymasterOperation object(&keymaster, /*enableSecureDb=*/true);  // borrows the handle

    std::string alias = "payment", creator = "wallet", accessors = "1000,[10000..19999]";
    SODOperationParam add;
    add.setAlias(alias).setCreator(creator).setAccessor(accessors);
    int status = object.SodInsert(add);  // 0, or a code of zelkeymaster_result.h

    std::string caller = "10042";  // who may use what?
    SODOperationParam find;
    find.addAccessorInWhere(caller);
    std::vector<std::string> found;
    if (status == ZELKM_OK) {
        status = object.SodRetreiveAlias(find, found);
    }
    for (const std::string& name : found) {
        std::printf("%s\n", name.c_str());  // wallet::payment
    }
    return status == ZELKM_OK ? 0 : 1;
}
