// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The 1st, 2nd, 3rd … allocation of each operation fails, once or for good, until the operation
// succeeds. After each failure the result is an allowed one and no exception has been thrown.
// Caches and files are as they were or as the operation makes them. The next operation works. The
// address sanitizer reports leaks.

#include <openssl/err.h>

#include <cstdio>
#include <functional>
#include <set>

#include "remote_keymaster.h"
#include "store_fixture.h"
#include "zelkeymaster_operation.h"

namespace {

using android::hardware::hidl_vec;
using namespace android::hardware::keymaster::V4_0;
using test::Bytes;

class MemoryFault : public test::StoreFixture<test::RemoteKeymaster> {
  protected:
    ~MemoryFault() override {
        std::printf("states after a failed allocation: %d, of which lost the key file: %d\n",
                    states_, replaced_keys_);
    }

    // Runs `action` again and again, with one allocation more going through each time.
    void forEachAllocation(const std::string& name, const std::set<int>& allowed,
                           const std::function<int()>& action,
                           const std::function<void(int)>& verify) {
        for (const bool for_good : {false, true}) {
            bool failed = true;
            for (long nth = 1; failed; ++nth) {
                SCOPED_TRACE(name + ", allocation " + std::to_string(nth) +
                             (for_good ? " and later ones" : ""));
                startAfresh();
                test::failAllocation(nth, for_good);
                const int status = action();
                failed = test::stopFailing();
                ++states_;
                if (keyWasReplaced()) {
                    ++replaced_keys_;
                    continue;
                }
                EXPECT_EQ(1u, allowed.count(status)) << test::named(status);
                if (!failed) {
                    EXPECT_EQ(0, status);
                    ASSERT_GT(nth, 1) << "nothing was allocated";
                }
                verify(status);
            }
        }
    }

    // A key file for which there is no memory counts as missing. A new key takes its place, as
    // ever, and the store cannot be opened any more.
    bool keyWasReplaced() {
        return test::readFile("edbk.bak") == files_["edbk"] &&
               !test::logged("W object: Upgrade the db key");
    }

    // Expects that this object works, and a new one as well.
    void expectUsable(const std::string& expected) {
        EXPECT_EQ(0, test::insertAlias(*object_, "z"));
        EXPECT_EQ(expected + "z ", test::readAliases(*object_));
        reopen();
        EXPECT_EQ(expected + "z ", test::readAliases(*object_));
    }

    static KeyParameter parameter(Tag tag, uint32_t value) {
        KeyParameter param = {};
        param.tag = tag;
        param.f.integer = value;
        return param;
    }

    hidl_vec<uint8_t> attestationKey() {
        const test::AllocationsWork preparing;
        hidl_vec<uint8_t> key;
        const auto keep = [&key](ErrorCode error, const hidl_vec<uint8_t>& blob,
                                 const KeyCharacteristics&) {
            EXPECT_EQ(ErrorCode::OK, error);
            key = blob;
        };
        EXPECT_TRUE(km_.generateKey({parameter(Tag::ALGORITHM, uint32_t(Algorithm::EC)),
                                     parameter(Tag::KEY_SIZE, 256),
                                     parameter(Tag::DIGEST, uint32_t(Digest::SHA_2_256)),
                                     parameter(Tag::PURPOSE, uint32_t(KeyPurpose::SIGN))},
                                    keep)
                        .isOk());
        return key;
    }

    hidl_vec<hidl_vec<uint8_t>> attestationChain() {
        const test::AllocationsWork preparing;
        KeyParameter challenge = parameter(Tag::ATTESTATION_CHALLENGE, 0);
        KeyParameter application = parameter(Tag::ATTESTATION_APPLICATION_ID, 0);
        challenge.blob = application.blob = {1, 2, 3};
        hidl_vec<hidl_vec<uint8_t>> chain;
        EXPECT_TRUE(km_.attestKey(attestationKey(), {challenge, application},
                                  [&chain](ErrorCode error, const hidl_vec<hidl_vec<uint8_t>>& c) {
                                      EXPECT_EQ(ErrorCode::OK, error);
                                      chain = c;
                                  })
                        .isOk());
        return chain;
    }

    int states_ = 0;
    int replaced_keys_ = 0;
};

// Is set before libcrypto's first allocation.
const bool g_libcrypto_memory = test::useFailingLibcryptoMemory();

TEST_F(MemoryFault, SecureObjectOperations) {
    SODOperationParam added;
    SODOperationParam removed;
    SODOperationParam selected;
    std::string alias = "c";
    std::string old_alias = "a";
    added.setAlias(alias);
    removed.addAliasInWhere(old_alias);
    selected.addAliasToOutput();
    std::vector<std::string> rows;

    const auto unchanged_or = [this](const std::string& after) {
        return [this, after](int status) {
            // The file follows the result; after a failure the table is loaded from it again.
            if (status != 0) {
                EXPECT_EQ(files_[kStore], *test::readFile(kStore));
                reopen();
            }
            expectUsable(status == 0 ? after : "a b ");
        };
    };
    forEachAllocation(
        "insert", {0, ZELKM_MEMORY_ALLOCATION_FAILED}, [&] { return object_->SodInsert(added); },
        unchanged_or("a b c "));
    forEachAllocation(
        "delete", {0, ZELKM_MEMORY_ALLOCATION_FAILED}, [&] { return object_->SodDelete(removed); },
        unchanged_or("b "));
    forEachAllocation(
        "select", {0, ZELKM_MEMORY_ALLOCATION_FAILED},
        [&] { return object_->SodSelect(selected, rows); }, unchanged_or("a b "));
}

TEST_F(MemoryFault, StartUpAndFiles) {
    forEachAllocation(
        "start-up", {0},
        [this] {
            // Without memory for the image the object starts with an empty store.
            const ZelKeymasterOperation another(&km_, true);
            return 0;
        },
        [this](int) { expectUsable("a b "); });
    forEachAllocation(
        "load_data", {0, ZELKM_MEMORY_ALLOCATION_FAILED},
        [] {
            uint8_t* data = nullptr;
            uint32_t len = 7;
            const int status = ZelKeymasterOperation::load_data(kStore, &data, &len);
            EXPECT_TRUE(status == 0 ? data != nullptr : data == nullptr && len == 7);
            free(data);
            return status;
        },
        [this](int) { expectUsable("a b "); });
}

TEST_F(MemoryFault, DatabaseKey) {
    forEachAllocation(
        "generation", {0, ZELKM_MEMORY_ALLOCATION_FAILED},
        [this] {
            for (const char* name : {"edbk", "edbk.bak"}) {
                std::filesystem::remove(name);
            }
            return object_->init_db_key(1);
        },
        [this](int status) {
            test::ObjectPeer peer(*object_);
            EXPECT_EQ(status == 0, peer.keyBlobLen() != 0);
            EXPECT_EQ(status == 0, peer.keyBlob() == test::readFile("edbk"));
            EXPECT_EQ(0, object_->init_db_key(0));
            std::filesystem::remove(kStore);  // encrypted with the key before
            reopen();
            expectUsable("");
        });
    forEachAllocation(
        "upgrade", {0, ZELKM_MEMORY_ALLOCATION_FAILED},
        [this] {
            km_.setPatchLevel(options().patch_level + 1);
            return object_->init_db_key(0);
        },
        [this](int status) {
            // An object whose upgrade failed keeps the old blob; the next one upgrades it.
            if (status != 0) {
                reopen();
            }
            expectUsable("a b ");
        });
}

TEST_F(MemoryFault, EncryptionAndDecryption) {
    Bytes text(100, 't');
    Bytes cipher(text.size());
    uint8_t iv[12];
    uint8_t tag[16];
    uint8_t aad[] = {1, 2, 3};
    const auto convert = [&](unsigned mode) {
        return object_->DBEncrypt(mode, text.data(), cipher.data(), unsigned(text.size()), iv, tag,
                                  aad, sizeof(aad));
    };
    const auto verify = [this](int) { expectUsable("a b "); };
    forEachAllocation(
        "encryption", {0, ZELKM_MEMORY_ALLOCATION_FAILED}, [&] { return convert(1); }, verify);
    forEachAllocation(
        "decryption", {0, ZELKM_MEMORY_ALLOCATION_FAILED},
        [&] {
            {
                const test::AllocationsWork preparing;
                EXPECT_EQ(0, convert(1));
            }
            return convert(0);
        },
        verify);
}

TEST_F(MemoryFault, PasswordConversionAndAttestation) {
    const hidl_vec<uint8_t> in = {1, 2, 3};
    hidl_vec<uint8_t> converted;
    hidl_vec<uint8_t> tag;
    hidl_vec<uint8_t> rot;
    const auto verify = [this](int) { expectUsable("a b "); };
    forEachAllocation(
        "password conversion", {0, ZELKM_MEMORY_ALLOCATION_FAILED},
        [&] {
            return object_->encryptWithPasswordHWKey(in, in, in, converted, in, in, tag, rot,
                                                     PW_ENCRYPT_TYPE_TO_KEY);
        },
        verify);
    hidl_vec<uint8_t> csr;
    forEachAllocation(
        "signing request", {0, ZELKM_MEMORY_ALLOCATION_FAILED},
        [&] {
            csr = {};
            return object_->generateCSR(attestationKey(), {}, csr);
        },
        [&](int status) {
            EXPECT_EQ(status == 0, csr.size() != 0);
            verify(status);
        });
}

TEST_F(MemoryFault, ChainValidation) {
    hidl_vec<hidl_vec<uint8_t>> chain = attestationChain();
    chain = std::vector<hidl_vec<uint8_t>>{chain[0], chain[0], chain[1], chain[2]};
    ASSERT_EQ(0, ZelKeymasterOperation::validateAttestChain(chain, true));
    ERR_clear_error();           // of what the tests before left
    std::set<std::string> said;  // the first line of each failure
    bool failed = true;
    for (long nth = 1; failed; ++nth) {
        SCOPED_TRACE("allocation " + std::to_string(nth));
        test::clearLog();
        test::failAllocation(nth, false);
        // The separate first certificate is not signed by the second one, which is the same.
        const int status = ZelKeymasterOperation::validateAttestChain(chain, false);
        failed = test::stopFailing();
        const std::vector<std::string> lines = test::errors();
        EXPECT_EQ(ZELKM_VERIFICATION_FAILED, status);
        ASSERT_FALSE(lines.empty());
        const bool path = lines.back() == "E object: verify_cert_chain fail";
        said.insert(lines[0].substr(0, lines[0].find(" fail ")) + (path ? ", in the path" : ""));
        EXPECT_EQ(0u, ERR_peek_error());
        ++states_;
    }
    if (g_libcrypto_memory) {
        EXPECT_EQ(
            (std::set<std::string>{"E object: Failed to push certificate",
                                   "E object: X509_STORE_CTX_init error, in the path",
                                   "E object: X509_STORE_new error, in the path",
                                   "E object: X509_verify error during GAK",
                                   "E object: X509_verify_cert, in the path",
                                   "E object: d2i_X509 error", "E object: sk_X509_new_null error"}),
            said);
    }
}

}  // namespace
