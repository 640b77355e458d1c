// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Stores an object in the working directory and finds it by one of its accessors.

#include <openssl/crypto.h>
#include <soft_keymaster/soft_keymaster.h>
#include <zelkeymaster_operation.h>

#include <cstdio>

#ifdef OPENSSL_IS_BORINGSSL
#error "the package's include folders must not hide the system's OpenSSL"
#endif

int main() {
    soft_keymaster::SoftKeymaster::Options options;
    options.root_key_path = "soft_keymaster_root.key";  // where the tool looks for it
    soft_keymaster::SoftKeymaster keymaster(options);
    ZelKeymasterOperation object(&keymaster, true);

    std::string alias = "payment", creator = "wallet", accessors = "1000,[10000..19999]";
    SODOperationParam add;
    add.setAlias(alias).setCreator(creator).setAccessor(accessors);
    int status = object.SodInsert(add);

    std::string caller = "10042";
    SODOperationParam find;
    find.addAccessorInWhere(caller);
    std::vector<std::string> found;
    status = status != 0 ? status : object.SodRetreiveAlias(find, found);

    std::printf("%d %s\n", status, found.empty() ? "nothing" : found[0].c_str());
    return status == 0 && found == std::vector<std::string>{"wallet::payment"} ? 0 : 1;
}
