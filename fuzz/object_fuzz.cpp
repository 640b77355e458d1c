// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The whole object over a keymaster whose faults are part of the input. The input also chooses
// changes, reads, restarts, other services, and files to damage or remove. Once the keymaster is
// well again, the next process must read what a change wrote, or refuse to load it.

#include <soft_keymaster/fault_keymaster.h>
#include <soft_keymaster/soft_keymaster.h>

#include <algorithm>
#include <optional>
#include <vector>

#include "../tests/support/operation_peer.h"
#include "folder.h"
#include "zelkeymaster_operation.h"

namespace fs = std::filesystem;

namespace {

using Rows = std::vector<std::string>;
using android::hardware::hidl_vec;
using soft_keymaster::Call;
using soft_keymaster::Fault;

const std::vector<std::string> kFiles = test::replacedNames();

hidl_vec<uint8_t> bytes(const fuzz::Block& block) {
    return std::vector<uint8_t>(block.data.get(), block.data.get() + block.len);
}

// What the input makes of a call; nothing when the call succeeds.
std::optional<Fault> nextFault(fuzz::Input& input, Call call) {
    // With another blob than its own the keymaster would lose the key for good.
    const bool blob = call == Call::kGenerateKey || call == Call::kUpgradeKey;
    switch (input.byte() & 7) {
        case 1:
            return Fault::error(android::hardware::keymaster::V4_0::ErrorCode(-int(input.byte())));
        case 2:
            return Fault::outputSize(blob ? 0 : input.byte());
        case 3:
            return Fault::transportBeforeCallback();
        case 4:
            return Fault::noCallback();
        case 5:
            return Fault::transportAfterCallback();
        case 6:
            return Fault::nonceSize(input.byte());
        case 7:
            return Fault::alter([number = input.byte()](soft_keymaster::Answer& answer) {
                answer.consumed = number;
                answer.chain.resize(number % 3);
            });
        default:
            return std::nullopt;
    }
}

// Plans the next two calls of each kind.
void planFaults(fuzz::Input& input, soft_keymaster::FaultKeymaster* keymaster) {
    for (const Call call :
         {Call::kGetKeyCharacteristics, Call::kBegin, Call::kUpdate, Call::kFinish,
          Call::kGenerateKey, Call::kUpgradeKey, Call::kAttestKey}) {
        for (const size_t nth : {1u, 2u}) {
            if (const auto fault = nextFault(input, call)) {
                keymaster->plan(call, nth, *fault);
            }
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const fuzz::Folder folder;
    const fuzz::WorkingIn there(folder);
    // New ones for each input: a call that fails leaves its operation open.
    static std::optional<soft_keymaster::SoftKeymaster> soft;
    static std::optional<soft_keymaster::FaultKeymaster> keymaster;
    soft_keymaster::SoftKeymaster::Options options;
    options.root_key_path = "root_key";
    options.max_update_bytes = 64;
    options.max_operations = 1000;
    keymaster.reset();
    soft.emplace(options);
    keymaster.emplace(*soft);
    static ZelKeymasterOperation object(&*keymaster, true);
    for (const std::string& name : kFiles) {
        fs::remove(name);
    }
    test::ObjectPeer(object).restart();

    fuzz::Input input(data, size);
    bool faultless = true;  // nothing but good answers and whole files so far
    Rows expected;
    for (int step = 0; step < 32 && !input.empty(); ++step) {
        const uint8_t choice = input.byte();
        const bool faulty = (choice & 0x80) != 0;
        keymaster->reset();
        if (faulty) {
            planFaults(input, &*keymaster);
            faultless = false;
        }
        const std::string alias = "k" + std::to_string(choice >> 3 & 7);
        Rows rows;
        int status = 0;
        switch (choice & 7) {
            case 0:
                status = test::insertAlias(object, alias);
                expected.push_back(alias);
                break;
            case 1:
                status = test::removeAlias(object, alias);
                expected.erase(std::remove(expected.begin(), expected.end(), alias),
                               expected.end());
                break;
            case 2:
                status = test::readAliases(object, &rows);
                fuzz::require(!faultless || rows == expected);
                break;
            case 3:
                test::ObjectPeer(object).restart();
                break;
            case 4: {
                hidl_vec<uint8_t> converted, tag = bytes(input.block());
                const hidl_vec<uint8_t> in = bytes(input.block());
                (void)object.encryptWithPasswordHWKey(in, in, in, converted, in, in, tag,
                                                      PW_ENCRYPT_TYPE(choice >> 3 & 3));
                break;
            }
            case 5: {
                hidl_vec<uint8_t> csr;
                (void)object.generateCSR(bytes(input.block()), {}, csr);
                break;
            }
            case 6:
                fuzz::damage(fs::absolute(kFiles[input.byte() % std::size(kFiles)]), input);
                faultless = false;
                break;
            case 7:
                (void)object.init_db_key(choice >> 3 & 1);
                faultless = faultless && (choice >> 3 & 1) == 0;
                break;
        }
        fuzz::require(!faultless || status == 0);
    }

    // A refused store is left to its backup, or to nothing, by the next processes.
    keymaster->reset();
    Rows before;
    int status = -1;
    for (int process = 0; process < 4 && status != 0; ++process) {
        before.clear();
        test::ObjectPeer(object).restart();
        status = test::readAliases(object, &before);
        fuzz::require(!faultless || (status == 0 && before == expected));
    }
    if (status == 0) {
        // A damaged key without a store is refused once. The next process makes a new one.
        const bool had_store = fs::exists(kFiles[0]);
        status = test::insertAlias(object, "last");
        if (status == ZELKM_INVALID_KEY_BLOB && !had_store && !faultless) {
            test::ObjectPeer(object).restart();
            status = test::insertAlias(object, "last");
        }
        fuzz::require(status == 0);
        test::ObjectPeer(object).restart();
        Rows after;
        fuzz::require(test::readAliases(object, &after) == 0);
        before.push_back("last");
        fuzz::require(before == after);
    }
    return 0;
}
