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

#include "certificates.h"
#include "keymaster_calls.h"
#include "remote_keymaster.h"
#include "store_fixture.h"

namespace {

using namespace test;

// Is set before libcrypto's first allocation.
const bool g_libcrypto_memory = useFailingLibcryptoMemory();

class MemoryFault : public StoreFixture<RemoteKeymaster> {
  protected:
    ~MemoryFault() override {
        std::printf("states after a failed allocation: %d, of which lost the key file: %d\n",
                    states_, replaced_keys_);
    }

    // Runs `action` again and again, with one allocation more going through each time. It returns
    // `result` or has no memory.
    void forEachAllocation(const char* name, const std::function<int()>& action,
                           const std::function<void(int)>& verify, int result = ZELKM_OK) {
        SCOPED_TRACE(name);
        for (const bool for_good : {false, true}) {
            states_ += failEachAllocation(
                for_good, [this] { startAfresh(); }, action,
                [&](int status, bool failed) {
                    km_.lost = "";
                    if (keyWasReplaced()) {
                        ++replaced_keys_;
                        return;
                    }
                    EXPECT_TRUE(status == result ||
                                (failed && status == ZELKM_MEMORY_ALLOCATION_FAILED))
                        << named(status);
                    verify(status);
                });
        }
    }

    // A key file for which there is no memory counts as missing. A new key takes its place, as
    // ever, and the store cannot be opened any more.
    bool keyWasReplaced() {
        return readFile("edbk.bak") == files_["edbk"] && !logged("W object: Upgrade the db key");
    }

    // Expects that this object works, and a new one as well.
    void expectUsable(const std::string& expected) {
        EXPECT_EQ(0, insertAlias(*object_, "z"));
        EXPECT_EQ(expected + "z ", readAliases(*object_));
        reopen();
        EXPECT_EQ(expected + "z ", readAliases(*object_));
    }

    // Expects the store with these rows after success, and else the one from before. The file
    // follows the result; after a failure the table is loaded from it again.
    std::function<void(int)> storeHolds(const std::string& after) {
        return [this, after](int status) {
            if (status != 0) {
                EXPECT_EQ(files_[kStore], *readFile(kStore));
                reopen();
            }
            expectUsable(status == 0 ? after : "a b ");
        };
    }

    int states_ = 0;
    int replaced_keys_ = 0;
};

TEST_F(MemoryFault, ListsOfADescriptionStayInStep) {
    SODOperationParam p;
    forEachAllocation(
        "description",
        [&p] {
            p = SODOperationParam();
            try {
                for (char c = 'a'; c < 'i'; ++c) {
                    std::string column(40, c), value(100, c);
                    p.setColumn(column, value).addWhere(column, value);
                }
            } catch (const std::bad_alloc&) {
                return int(ZELKM_MEMORY_ALLOCATION_FAILED);
            }
            return 0;
        },
        [&p](int) {
            EXPECT_EQ(p.getColumnList().size(), p.getDataList().size());
            EXPECT_EQ(p.getWhereColumnList().size(), p.getWhereValueList().size());
        });
}

TEST_F(MemoryFault, LostCallsAreDescribedAsFarAsThereIsMemory) {
    SODOperationParam added;
    std::string alias = "c";
    added.setAlias(alias);
    const std::pair<const char*, int> cases[] = {{"getKeyCharacteristics", ZELKM_UNKNOWN_ERROR},
                                                 {"begin", ZELKM_UNKNOWN_ERROR},
                                                 {"update", ZELKM_MALFORMED_STORE},
                                                 {"finish", ZELKM_MALFORMED_STORE}};
    for (const auto& [lost, result] : cases) {
        bool undescribed = false;
        forEachAllocation(
            lost,
            [&, call = lost] {
                km_.lost = call;
                return object_->SodInsert(added);
            },
            [&](int status) {
                EXPECT_NE(0, status);
                undescribed |= logged("E object: HIDL call failed with (out of memory)");
                storeHolds("")(status);
            },
            result);
        EXPECT_TRUE(undescribed);
    }
    const AllocationsWork now;
    km_.lost = "generateKey";
    EXPECT_EQ(ZELKM_UNKNOWN_ERROR, object_->generate_db_key());
}

TEST_F(MemoryFault, ListsAreAppendedToWholeOrNotAtAll) {
    // Longer than what strings hold without memory.
    const std::string before(100, 'b');
    ASSERT_EQ(0, insertAlias(*object_, std::string(100, 'c')));
    files_[kStore] = *readFile(kStore);
    using Select = int (ZelKeymasterOperation::*)(SODOperationParam&, Lines&);
    const struct {
        const char* name;
        Select select;
        size_t rows, none;  // appended, and with an empty result
    } cases[] = {{"SodSelect", &ZelKeymasterOperation::SodSelect, 4, 1},
                 {"SodRetreiveAlias", &ZelKeymasterOperation::SodRetreiveAlias, 3, 0},
                 {"SodRetreiveOther", &ZelKeymasterOperation::SodRetreiveOther, 3, 0}};
    for (const auto& c : cases) {
        SODOperationParam p;
        Lines rows;
        forEachAllocation(
            c.name,
            [&] {
                {
                    const AllocationsWork preparing;
                    p.clearOutputFormat().addAliasToOutput();
                    rows = {before};
                    EXPECT_EQ(0, object_->SodSelect(p, rows));  // loads key and table
                    rows.resize(1);
                    rows.shrink_to_fit();
                }
                return ((*object_).*c.select)(p, rows);
            },
            [&](int status) {
                const bool empty = logged("E engine: allocation failure for out");
                const size_t appended = status != 0 ? 0 : empty ? c.none : c.rows;
                EXPECT_EQ(1 + appended, rows.size());
                EXPECT_EQ(before, rows[0]);
            });
        EXPECT_EQ(1 + c.rows, rows.size());
    }
}

TEST_F(MemoryFault, EachOperation) {
    std::string alias = "c", old_alias = "a";
    SODOperationParam added, removed, selected;
    added.setAlias(alias);
    removed.addAliasInWhere(old_alias);
    selected.addAliasToOutput();
    Lines rows;

    Bytes text(100, 't');
    Bytes cipher(text.size());
    uint8_t iv[12], tag[16], aad[] = {1, 2, 3};
    const auto convert = [&](unsigned mode) {
        return object_->DBEncrypt(mode, text.data(), cipher.data(), unsigned(text.size()), iv, tag,
                                  aad, sizeof(aad));
    };
    const hidl_vec<uint8_t> in = {1, 2, 3};
    const hidl_vec<uint8_t> key = generate(km_, kEcKey).output;
    hidl_vec<uint8_t> converted, password_tag, rot, csr;

    const struct {
        const char* name;
        std::function<int()> action;
        std::function<void(int)> verify = {};  // by default the store works as before
    } operations[] = {
        {"insert", [&] { return object_->SodInsert(added); }, storeHolds("a b c ")},
        {"delete", [&] { return object_->SodDelete(removed); }, storeHolds("b ")},
        {"select", [&] { return object_->SodSelect(selected, rows); }, storeHolds("a b ")},
        {"load_data",
         [] {
             uint8_t* data = nullptr;
             uint32_t len = 7;
             const int status = ZelKeymasterOperation::load_data(kStore, &data, &len);
             EXPECT_TRUE(status == 0 ? data != nullptr : data == nullptr && len == 7);
             free(data);
             return status;
         }},
        {"key generation",
         [this] {
             for (const char* name : {"edbk", "edbk.bak"}) {
                 std::filesystem::remove(name);
             }
             return object_->init_db_key(1);
         },
         [this](int status) {
             ObjectPeer peer(*object_);
             EXPECT_EQ(status == 0, peer.keyBlobLen() != 0);
             EXPECT_EQ(status == 0, peer.keyBlob() == readFile("edbk"));
             EXPECT_EQ(0, object_->init_db_key(0));
             std::filesystem::remove(kStore);  // encrypted with the key before
             reopen();
             expectUsable("");
         }},
        {"key upgrade",
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
         }},
        {"encryption", [&] { return convert(1); }},
        {"decryption",
         [&] {
             {
                 const AllocationsWork preparing;
                 EXPECT_EQ(0, convert(1));
             }
             return convert(0);
         }},
        {"password conversion",
         [&] {
             return object_->encryptWithPasswordHWKey(in, in, in, converted, in, in, password_tag,
                                                      rot, PW_ENCRYPT_TYPE_TO_KEY);
         }},
        {"signing request",
         [&] {
             csr = {};
             return object_->generateCSR(key, {}, csr);
         },
         [&](int status) {
             EXPECT_EQ(status == 0, csr.size() != 0);
             expectUsable("a b ");
         }},
        // Last: after it, each line of the error file is written once for each of its objects.
        {"start-up",
         [this] {
             // Without memory for the image the object starts with an empty store.
             const ZelKeymasterOperation another(&km_, true);
             return 0;
         }},
    };
    for (const auto& o : operations) {
        forEachAllocation(
            o.name, o.action, o.verify ? o.verify : [this](int) { expectUsable("a b "); });
    }
}

TEST_F(MemoryFault, ChainValidation) {
    std::vector<Certificate> path = certificates(2);
    for (Certificate& certificate : path) {
        certificate.key = certificate.signer = 20;  // RSA: the fewest allocations
    }
    path.insert(path.begin(), path[0]);
    const Chain chain = encoded(path);
    ERR_clear_error();           // of what the tests before left
    std::set<std::string> said;  // the first line of each failure
    states_ += untilNothingFails("allocation", [&](long nth) {
        clearLog();
        failAllocation(nth, false);
        const int status = ZelKeymasterOperation::validateAttestChain(chain, false);
        const bool failed = stopFailing();
        const Lines lines = errors();
        EXPECT_EQ(lines.empty() ? 0 : ZELKM_VERIFICATION_FAILED, status);
        EXPECT_EQ(0u, ERR_peek_error());
        if (!lines.empty()) {
            const bool in_path = lines.back() == "E object: verify_cert_chain fail";
            said.insert(lines[0].substr(0, lines[0].find(" fail ")) +
                        (in_path ? ", in the path" : ""));
        }
        return failed;
    });
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
