// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The keymaster's check finds each deviation and calls nothing else broken. For every requirement
// there is a keymaster that breaks this one and, as far as possible, no other.

#include <keymaster_check/keymaster_check.h>
#include <keymaster_check/report.h>
#include <openssl/evp.h>
#include <soft_keymaster/fault_keymaster.h>
#include <soft_keymaster/soft_keymaster.h>

#include <algorithm>
#include <set>
#include <utility>

#include "temp_dir.h"
#include "zelkeymaster_vendor_tags.h"

namespace {

using namespace android::hardware::keymaster::V4_0;
using namespace keymaster_check;
using namespace soft_keymaster;
using test::Bytes;
using Blob = hidl_vec<uint8_t>;
using Params = hidl_vec<KeyParameter>;
using Ids = std::set<std::string>;

KeyParameter* find(Params& params, Tag tag) {
    for (KeyParameter& param : params) {
        if (param.tag == tag) {
            return &param;
        }
    }
    return nullptr;
}

void flip(Blob& blob, size_t at) {
    blob[at] = static_cast<uint8_t>(blob[at] ^ 1);
}

// Ignores the password conversion's tag, its third input, or has no room for many conversions.
class PasswordDeviant : public FaultKeymaster {
  public:
    enum Kind { kTag, kInput, kRoom };
    PasswordDeviant(Keymaster& inner, Kind kind) : FaultKeymaster(inner), kind_(kind) {}

    Return<void> begin(KeyPurpose purpose, const Blob& key, const Params& params,
                       const HardwareAuthToken& token, begin_cb cb) override {
        const bool to_key = purpose == PWHW_PURPOSE_TO_KEY;
        Params sent = params;
        if (KeyParameter* input = find(sent, PWHW_TAG_IN_3); kind_ == kInput && input != nullptr) {
            input->blob = {1};
        }
        if (KeyParameter* tag = find(sent, PWHW_TAG_TAG); kind_ == kTag && tag != nullptr) {
            tag->blob = tag_;
        }
        if (kind_ == kRoom && open_.size() == 16) {
            cb(ErrorCode::TOO_MANY_OPERATIONS, {}, 0);
            return android::hardware::Void();
        }
        return FaultKeymaster::begin(purpose, key, sent, token,
                                     [&](ErrorCode error, const Params& answered, uint64_t handle) {
                                         Params out = answered;
                                         if (to_key && error == ErrorCode::OK) {
                                             tag_ = find(out, PWHW_TAG_TAG)->blob;
                                             handle = kind_ == kRoom ? ++last_ : handle;
                                             open_.insert(handle);
                                         }
                                         cb(error, answered, handle);
                                     });
    }
    Return<ErrorCode> abort(uint64_t handle) override {
        if (open_.erase(handle) != 0) {
            return ErrorCode::OK;
        }
        return FaultKeymaster::abort(handle);
    }

  private:
    const Kind kind_;
    Blob tag_;
    uint64_t last_ = 0;
    std::set<uint64_t> open_;
};

// Imports another key than it is given.
class WrongImport : public FaultKeymaster {
  public:
    using FaultKeymaster::FaultKeymaster;
    Return<void> importKey(const Params& params, KeyFormat, const Blob&, importKey_cb cb) override {
        return generateKey(params, cb);
    }
};

// Imports keys, and encrypts with them.
class RightImport : public FaultKeymaster {
  public:
    using FaultKeymaster::FaultKeymaster;
    Return<void> importKey(const Params&, KeyFormat, const Blob& key, importKey_cb cb) override {
        key_ = key;
        cb(ErrorCode::OK, kBlob, {});
        return android::hardware::Void();
    }
    Return<void> begin(KeyPurpose purpose, const Blob& key, const Params& params,
                       const HardwareAuthToken& token, begin_cb cb) override {
        if (key != kBlob) {
            return FaultKeymaster::begin(purpose, key, params, token, cb);
        }
        KeyParameter nonce = {};
        nonce.tag = Tag::NONCE;
        nonce.blob.resize(12);
        std::fill(nonce.blob.begin(), nonce.blob.end(), uint8_t{7});
        EVP_EncryptInit_ex(cipher_, EVP_aes_256_gcm(), nullptr, key_.data(), nonce.blob.data());
        cb(ErrorCode::OK, {nonce}, kHandle);
        return android::hardware::Void();
    }
    Return<void> update(uint64_t handle, const Params& params, const Blob& input,
                        const HardwareAuthToken& token, const VerificationToken& verification,
                        update_cb cb) override {
        if (handle != kHandle) {
            return FaultKeymaster::update(handle, params, input, token, verification, cb);
        }
        int len = 0;
        EVP_EncryptUpdate(cipher_, nullptr, &len, params[0].blob.data(),
                          static_cast<int>(params[0].blob.size()));
        Bytes output(input.size());
        EVP_EncryptUpdate(cipher_, output.data(), &len, input.data(),
                          static_cast<int>(input.size()));
        cb(ErrorCode::OK, static_cast<uint32_t>(input.size()), {}, output);
        return android::hardware::Void();
    }
    Return<void> finish(uint64_t handle, const Params& params, const Blob& input, const Blob& sign,
                        const HardwareAuthToken& token, const VerificationToken& verification,
                        finish_cb cb) override {
        if (handle != kHandle) {
            return FaultKeymaster::finish(handle, params, input, sign, token, verification, cb);
        }
        int len = 0;
        Bytes tag(16);
        EVP_EncryptFinal_ex(cipher_, nullptr, &len);
        EVP_CIPHER_CTX_ctrl(cipher_, EVP_CTRL_GCM_GET_TAG, 16, tag.data());
        cb(ErrorCode::OK, {}, tag);
        return android::hardware::Void();
    }
    ~RightImport() override { EVP_CIPHER_CTX_free(cipher_); }

  private:
    const Blob kBlob = {1};
    static constexpr uint64_t kHandle = 1;
    Blob key_;
    EVP_CIPHER_CTX* const cipher_ = EVP_CIPHER_CTX_new();
};

// Answers finish when the next operation begins.
class LateAnswer : public FaultKeymaster {
  public:
    using FaultKeymaster::FaultKeymaster;
    Return<void> finish(uint64_t, const Params&, const Blob&, const Blob&, const HardwareAuthToken&,
                        const VerificationToken&, finish_cb cb) override {
        late_ = cb;
        return android::hardware::Void();
    }
    Return<void> begin(KeyPurpose purpose, const Blob& key, const Params& params,
                       const HardwareAuthToken& token, begin_cb cb) override {
        if (auto late = std::exchange(late_, nullptr)) {
            late(ErrorCode::OK, {}, {1});
        }
        return FaultKeymaster::begin(purpose, key, params, token, cb);
    }

  private:
    finish_cb late_;
};

using Make = std::function<std::unique_ptr<FaultKeymaster>(Keymaster&)>;

Make with(std::function<void(FaultKeymaster&)> apply) {
    return [apply](Keymaster& inner) {
        auto made = std::make_unique<FaultKeymaster>(inner);
        apply(*made);
        return made;
    };
}

Make named(const std::string& name) {
    const auto& faults = namedFaults();
    const auto found = std::find_if(faults.begin(), faults.end(),
                                    [&](const NamedFault& fault) { return fault.name == name; });
    return with(found->apply);
}

Make each(Call call, std::function<void(Answer&)> change) {
    return with([=](FaultKeymaster& km) { km.planEach(call, Fault::alter(change)); });
}

// Changes each answer that has so many certificates. A request counts as one.
Make eachChain(size_t size, std::function<void(hidl_vec<Blob>&)> change) {
    return each(Call::kAttestKey, [=](Answer& answer) {
        if (answer.chain.size() == size) {
            change(answer.chain);
        }
    });
}

void flipEnd(hidl_vec<Blob>& chain) {
    flip(chain[0], chain[0].size() - 1);
}

Make each(Call call, const Fault& fault) {
    return with([=](FaultKeymaster& km) { km.planEach(call, fault); });
}

Make nth(Call call, size_t number, const Fault& fault) {
    return with([=](FaultKeymaster& km) { km.plan(call, number, fault); });
}

template <typename Deviant, typename... Arguments>
Make deviant(Arguments... arguments) {
    return [=](Keymaster& inner) { return std::make_unique<Deviant>(inner, arguments...); };
}

// Answers INVALID_ARGUMENT where `error` is due.
Make argumentFor(ErrorCode error, Call call) {
    return each(call, [=](Answer& answer) {
        if (answer.error == error) {
            answer.error = ErrorCode::INVALID_ARGUMENT;
        }
    });
}

Make smallTransport(size_t limit) {
    Deviation deviation;
    deviation.transport_limit = limit;
    return with([=](FaultKeymaster& km) { km.deviate(deviation); });
}

// Requests a certificate for a key of its own.
Make foreignRequest() {
    return [](Keymaster& inner) {
        auto made = std::make_unique<FaultKeymaster>(inner);
        KeyParameter algorithm = {};
        algorithm.tag = Tag::ALGORITHM;
        algorithm.f.algorithm = Algorithm::EC;
        KeyParameter curve = {};
        curve.tag = Tag::EC_CURVE;
        curve.f.ecCurve = EcCurve::P_256;
        KeyParameter csr = {};
        csr.tag = TAG_GENERATE_CSR;
        csr.f.boolValue = true;
        hidl_vec<Blob> request;
        EXPECT_TRUE(inner
                        .generateKey({algorithm, curve},
                                     [&](ErrorCode, const Blob& key, const KeyCharacteristics&) {
                                         EXPECT_TRUE(inner
                                                         .attestKey(key, {csr},
                                                                    [&](ErrorCode, const auto& c) {
                                                                        request = c;
                                                                    })
                                                         .isOk());
                                     })
                        .isOk());
        made->planEach(Call::kAttestKey, Fault::alter([request](Answer& answer) {
                           if (answer.chain.size() == 1) {
                               answer.chain = request;
                           }
                       }));
        return made;
    };
}

struct Row {
    std::string deviation;
    Make make;
    Ids broken;  // the requirement, and those that break with it
};

constexpr size_t kTransportLimit = 5000;

std::vector<Row> rows() {
    const Ids kHeldBack = {"gcm.output-in-update", "gcm.tag-in-finish", "library.end-to-end"};
    const Ids kUnchecked = {"gcm.tag-checked", "gcm.aad-checked", "library.end-to-end"};
    return {
        {"none", with([](FaultKeymaster&) {}), {}},
        {"no key",
         nth(Call::kGenerateKey, 1, Fault::error(ErrorCode::UNSUPPORTED_ALGORITHM)),
         {"key.generate"}},
        {"an empty key", nth(Call::kGenerateKey, 1, Fault::outputSize(0)), {"key.generate"}},
        {"a smaller key",
         each(Call::kGetKeyCharacteristics,
              [](Answer& answer) {
                  if (auto* size = find(answer.characteristics.softwareEnforced, Tag::KEY_SIZE)) {
                      size->f.integer = 128;
                  }
              }),
         {"key.characteristics"}},
        {"every key refused",
         each(Call::kGetKeyCharacteristics, Fault::error(ErrorCode::INVALID_KEY_BLOB)),
         {"key.characteristics", "library.end-to-end"}},
        {"INVALID_ARGUMENT for a damaged key",
         argumentFor(ErrorCode::INVALID_KEY_BLOB, Call::kGetKeyCharacteristics),
         {"key.damaged-blob"}},
        {"INVALID_ARGUMENT from its use",
         argumentFor(ErrorCode::INVALID_KEY_BLOB, Call::kBegin),
         {"key.damaged-blob"}},
        {"nonce-16", named("nonce-16"), {"gcm.nonce-length", "library.end-to-end"}},
        {"no nonce",
         each(Call::kBegin, Fault::nonceSize(0)),
         {"gcm.nonce-length", "gcm.correct", "gcm.sizes", "library.end-to-end"}},
        {"fixed-nonce", named("fixed-nonce"), {"gcm.nonce-fresh"}},
        {"output-in-finish", named("output-in-finish"), kHeldBack},
        {"output-in-blocks", named("output-in-blocks"), kHeldBack},
        {"tag-12", named("tag-12"), {"gcm.tag-in-finish", "library.end-to-end"}},
        {"16 bytes from every finish",
         each(Call::kFinish,
              [](Answer& answer) {
                  if (answer.error == ErrorCode::OK) {
                      answer.output.resize(16);
                  }
              }),
         {"gcm.tag-in-finish", "library.end-to-end"}},
        {"unchecked-tag", named("unchecked-tag"), kUnchecked},
        {"INVALID_ARGUMENT for a wrong tag",
         argumentFor(ErrorCode::VERIFICATION_FAILED, Call::kFinish), kUnchecked},
        {"ignored-aad", named("ignored-aad"), {"gcm.aad-checked"}},
        {"an imported key used", deviant<RightImport>(), {}},
        {"another key imported", deviant<WrongImport>(), {"gcm.correct"}},
        {"a byte of output altered",
         each(Call::kUpdate,
              [](Answer& answer) {
                  if (answer.output.size() > 0) {
                      flip(answer.output, 0);
                  }
              }),
         {"gcm.correct", "gcm.sizes", "library.end-to-end"}},
        {"a transport of 5000 bytes", smallTransport(kTransportLimit), {"gcm.sizes"}},
        {"open-after-errors", named("open-after-errors"), {"ops.unfinished"}},
        {"ignored-csr-tag", named("ignored-csr-tag"), {"csr.request"}},
        {"a request altered", eachChain(1, flipEnd), {"csr.proof"}},
        {"a request for another key", foreignRequest(), {"csr.proof"}},
        {"two certificates",
         eachChain(3, [](hidl_vec<Blob>& chain) { chain.resize(2); }),
         {"attest.chain"}},
        {"a certificate altered", eachChain(3, flipEnd), {"attest.chain"}},
        {"other material back",
         each(Call::kBegin,
              [](Answer& answer) {
                  if (auto* material = find(answer.params, PWHW_TAG_ENCRYPTED_KEY)) {
                      flip(material->blob, 0);
                  }
              }),
         {"password.round-trip"}},
        {"an ignored password tag",
         deviant<PasswordDeviant>(PasswordDeviant::kTag),
         {"password.tag-checked"}},
        {"an ignored input",
         deviant<PasswordDeviant>(PasswordDeviant::kInput),
         {"password.inputs-bound"}},
        {"a rot value of 15 bytes",
         each(Call::kBegin,
              [](Answer& answer) {
                  if (auto* rot = find(answer.params, PWHW_TAG_ROT)) {
                      rot->blob.resize(15);
                  }
              }),
         {"password.outputs"}},
        {"conversions that stay open",
         deviant<PasswordDeviant>(PasswordDeviant::kRoom),
         {"password.unfinished"}},
        {"callback-twice", named("callback-twice"), {"call.answered-once"}},
        {"callback-on-thread", named("callback-on-thread"), {"call.answered-once"}},
        {"no answer",
         each(Call::kGetKeyCharacteristics, Fault::noCallback()),
         {"key.characteristics", "key.damaged-blob", "call.answered-once", "library.end-to-end"}},
        {"late answers", deviant<LateAnswer>(), {"gcm.correct", "gcm.sizes", "call.answered-once"}},
        {"no key for the library",
         nth(Call::kGenerateKey, 4, Fault::error(ErrorCode::UNSUPPORTED_ALGORITHM)),
         {"library.end-to-end"}},
    };
}

class KeymasterCheck : public test::InTempDir {
  protected:
    KeymasterCheck() {
        std::filesystem::create_directory("tmp");
        ::setenv("TMPDIR", std::filesystem::absolute("tmp").c_str(), 1);
        options_.largest_store = 8192;
    }
    ~KeymasterCheck() override { ::unsetenv("TMPDIR"); }

    // Checks a keymaster, and that the check leaves nothing behind.
    std::vector<Finding> check(Keymaster& keymaster) {
        const auto before = std::filesystem::current_path();
        const auto findings = checkKeymaster(keymaster, options_);
        EXPECT_EQ(before, std::filesystem::current_path());
        EXPECT_TRUE(std::filesystem::is_empty("tmp"));
        EXPECT_EQ(requirements().size(), findings.size());
        return findings;
    }

    // Checks a fresh keymaster, since the library leaves operations open when calls fail.
    std::vector<Finding> check(const Make& make) {
        SoftKeymaster inner({"root"});
        return check(*make(inner));
    }

    static Ids idsWith(const std::vector<Finding>& findings, Verdict verdict) {
        Ids ids;
        for (const Finding& finding : findings) {
            if (finding.verdict == verdict) {
                ids.insert(finding.id);
            }
        }
        return ids;
    }

    static std::string answered(const std::vector<Finding>& findings, const std::string& id) {
        for (const Finding& finding : findings) {
            if (finding.id == id) {
                return finding.answered;
            }
        }
        return "no finding";
    }

    Options options_;
    SoftKeymaster inner_{{"root"}};
};

TEST_F(KeymasterCheck, FindsEachDeviationAndNoOther) {
    Ids proved;
    for (const Row& row : rows()) {
        SCOPED_TRACE(row.deviation);
        const std::vector<Finding> findings = check(row.make);
        const Ids broken = idsWith(findings, Verdict::kBroken);
        EXPECT_EQ(row.broken, broken);
        proved.insert(broken.begin(), broken.end());
        for (const Finding& finding : findings) {
            EXPECT_EQ(finding.verdict == Verdict::kHolds, finding.consequence.empty());
            EXPECT_FALSE(finding.answered.empty()) << finding.id;
            EXPECT_TRUE(finding.verdict != Verdict::kBroken || !finding.sent.empty()) << finding.id;
        }
    }
    for (const Requirement& requirement : requirements()) {
        EXPECT_EQ(1u, proved.count(requirement.id)) << requirement.id << " is never broken";
    }
}

TEST_F(KeymasterCheck, SaysTheLargestStoreToTheByte) {
    // The update of a decryption carries the tag and the associated data's parameter, too.
    const size_t largest = kTransportLimit - 16 - 12 - sizeof(KeyParameter);
    const std::string said = answered(check(smallTransport(kTransportLimit)), "gcm.sizes");
    EXPECT_NE(said.npos, said.find("8192 bytes do not get through; the largest payload that does "
                                   "is " +
                                   std::to_string(largest) + " bytes"))
        << said;
}

TEST_F(KeymasterCheck, SaysWhichCallWasSlow) {
    const std::vector<Finding> findings = check(named("slow-call"));
    EXPECT_EQ(Ids(), idsWith(findings, Verdict::kBroken));
    EXPECT_NE(std::string::npos,
              answered(findings, "key.generate").find("slow: generateKey took 1.2 s"));
}

TEST_F(KeymasterCheck, TellsRefusedServicesFromBrokenOnes) {
    const Ids attestation = {"csr.request", "csr.proof", "attest.chain"};
    std::vector<Finding> findings =
        check(each(Call::kAttestKey, Fault::error(ErrorCode::UNIMPLEMENTED)));
    EXPECT_EQ(Ids(), idsWith(findings, Verdict::kBroken));
    EXPECT_EQ(attestation, idsWith(findings, Verdict::kNotOffered));
    EXPECT_EQ("-100 UNIMPLEMENTED", answered(findings, "csr.request"));

    options_.attestation = options_.password = false;
    std::vector<std::string> begun;
    options_.progress = [&](const std::string& id, size_t done, size_t all) {
        EXPECT_EQ(begun.size(), done);
        EXPECT_EQ(requirements().size(), all);
        begun.push_back(id);
    };
    FaultKeymaster recorder(inner_);
    findings = check(recorder);
    EXPECT_EQ(8u, idsWith(findings, Verdict::kNotTried).size());
    EXPECT_EQ("switched off", answered(findings, "password.outputs"));
    EXPECT_EQ(0u, recorder.calls(Call::kAttestKey).size());
    EXPECT_EQ(requirements().size(), begun.size());
}

TEST_F(KeymasterCheck, DeletesItsKeysAndEndsItsOperations) {
    std::multiset<Bytes> made;
    std::set<uint64_t> begun;
    FaultKeymaster recorder(inner_);
    recorder.planEach(Call::kGenerateKey,
                      Fault::alter([&](Answer& answer) { made.insert(answer.output); }));
    recorder.planEach(Call::kBegin, Fault::alter([&](Answer& answer) {
                          if (answer.error == ErrorCode::OK) {
                              begun.insert(answer.handle);
                          }
                      }));
    check(recorder);
    EXPECT_EQ(4u, made.size());
    EXPECT_LT(600u, begun.size());
    for (const CallRecord& call : recorder.calls()) {
        if (call.call == Call::kDeleteKey) {
            made.erase(call.key_blob);
        } else if (call.call == Call::kFinish || call.call == Call::kAbort) {
            begun.erase(call.handle);
        }
    }
    EXPECT_EQ(0u, made.size());
    EXPECT_EQ(0u, begun.size());
}

TEST(KeymasterCheckReport, EscapesEveryStringOfItsJson) {
    const std::string json =
        inJson("a\"b\\c", {{"x.y", Verdict::kNotOffered, "\n\x01", "\xff\x7f", ""}});
    EXPECT_EQ(
        "{\n  \"keymaster\": \"a\\\"b\\\\c\",\n  \"holds\": 0,\n  \"broken\": 0,\n"
        "  \"not_offered\": 1,\n  \"not_tried\": 0,\n  \"findings\": [\n"
        "    {\"id\": \"x.y\",\n     \"verdict\": \"not offered\",\n"
        "     \"sent\": \"\\u000a\\u0001\",\n     \"answered\": \"\\u00ff\\u007f\",\n"
        "     \"consequence\": \"\"}\n  ]\n}\n",
        json);
}

TEST_F(KeymasterCheck, EndsWhateverACallDoes) {
    const std::pair<const char*, Fault> faults[] = {
        {"lost before the callback", Fault::transportBeforeCallback()},
        {"lost after the callback", Fault::transportAfterCallback()},
        {"no callback", Fault::noCallback()},
        {"output of 100000", Fault::outputSize(100000)},
        {"empty answer", Fault::alter([](Answer& answer) { answer = Answer(); })}};
    for (const Call call :
         {Call::kGenerateKey, Call::kGetKeyCharacteristics, Call::kBegin, Call::kUpdate,
          Call::kFinish, Call::kAttestKey, Call::kDeleteKey, Call::kAbort}) {
        for (const auto& [name, fault] : faults) {
            const Ids broken = idsWith(check(each(call, fault)), Verdict::kBroken);
            const bool harmless = call == Call::kDeleteKey || call == Call::kAbort;
            EXPECT_TRUE(broken.empty() == harmless || fault.kind == Fault::Kind::kAlter)
                << callName(call) << ": " << name;
        }
    }
}

}  // namespace
