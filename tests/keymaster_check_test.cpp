// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The keymaster's check finds each deviation and calls nothing else broken. For every requirement
// there is a keymaster that breaks this one and, as far as possible, no other.

#include <keymaster_check/client.h>
#include <keymaster_check/keymaster_check.h>
#include <keymaster_check/report.h>
#include <soft_keymaster/fault_keymaster.h>
#include <soft_keymaster/soft_keymaster.h>

#include <signal.h>

#include <algorithm>
#include <climits>
#include <set>
#include <stdexcept>
#include <utility>

#include "../keymaster_check/src/format.h"
#include "temp_dir.h"
#include "zelkeymaster_vendor_tags.h"

namespace {

using namespace android::hardware::keymaster::V4_0;
using namespace keymaster_check;
using namespace soft_keymaster;
using namespace std::chrono_literals;
using soft_keymaster::Call;
using soft_keymaster::Keymaster;
using test::Bytes;
using Blob = hidl_vec<uint8_t>;
using Params = hidl_vec<KeyParameter>;
using Ids = std::set<std::string>;

template <typename List>
KeyParameter* find(List& params, Tag tag) {
    const auto found = std::find_if(params.begin(), params.end(),
                                    [tag](const KeyParameter& param) { return param.tag == tag; });
    return found == params.end() ? nullptr : &*found;
}

template <typename List>
void flip(List& bytes, size_t at) {
    bytes[at] = static_cast<uint8_t>(bytes[at] ^ 1);
}

Bytes newKey(Keymaster& keymaster) {
    return keymaster_check::call(
               [&](auto cb) { return keymaster.generateKey(databaseKeyParams(), cb); })
        .output;
}

// Replies to finish when the next operation begins.
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

Make each(Call call, const Fault& fault) {
    return with([=](FaultKeymaster& km) { km.planEach(call, fault); });
}

Make each(Call call, std::function<void(Answer&)> change) {
    return each(call, Fault::alter(change));
}

Make nth(Call call, size_t number, const Fault& fault) {
    return with([=](FaultKeymaster& km) { km.plan(call, number, fault); });
}

// Changes each answer that has so many certificates. A request counts as one.
Make eachChain(size_t size, std::function<void(std::vector<Bytes>&)> change) {
    return each(Call::kAttestKey, [=](Answer& answer) {
        if (answer.chain.size() == size) {
            change(answer.chain);
        }
    });
}

void flipEnd(std::vector<Bytes>& chain) {
    flip(chain[0], chain[0].size() - 1);
}

// Returns INVALID_ARGUMENT where `error` is due.
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

// The check's clock, which a keymaster can move.
std::chrono::steady_clock::time_point g_now;

// Refuses large updates, so many times.
Make smallUpdates(int times) {
    return with([times](FaultKeymaster& km) {
        const auto left = std::make_shared<int>(times);
        km.planEach(Call::kUpdate, Fault::alter([&km, left](Answer& answer) {
                        if (km.calls().back().input.size() > 5000 && (*left)-- > 0) {
                            answer.error = ErrorCode::INVALID_INPUT_LENGTH;
                        }
                    }));
    });
}

// Changes the tag that an encryption returns.
Make eachTag(size_t size) {
    return each(Call::kFinish, [size](Answer& answer) {
        if (answer.output.size() == 16) {
            answer.output.resize(size);
        }
    });
}

// Requests a certificate for a key of its own.
void requestForeign(FaultKeymaster& km) {
    const Params kind = {param(Tag::ALGORITHM, Algorithm::EC),
                         param(Tag::EC_CURVE, EcCurve::P_256)};
    const Params csr = {param(TAG_GENERATE_CSR, true)};
    const Bytes key =
        keymaster_check::call([&](auto cb) { return km.generateKey(kind, cb); }).output;
    const auto request =
        keymaster_check::call([&](auto cb) { return km.attestKey(key, csr, cb); }).chain;
    km.planEach(Call::kAttestKey, Fault::alter([request](Answer& answer) {
                    if (answer.chain.size() == 1) {
                        answer.chain = request;
                    }
                }));
}

// Puts the same value in the place of this parameter of the password conversion.
Make ignoring(Tag tag) {
    return with([tag](FaultKeymaster& km) {
        const auto first = std::make_shared<Bytes>();
        km.alterCalls([tag, first](CallRecord& call) {
            if (KeyParameter* entry = find(call.params, tag)) {
                *first = first->empty() ? Bytes(entry->blob) : *first;
                entry->blob = *first;
            }
        });
    });
}

// Returns this for each conversion, and keeps it open. There is room for 16.
Make keepConversions(ErrorCode returned) {
    return with([returned](FaultKeymaster& km) {
        const auto open = std::make_shared<int>(0);
        km.planEach(
            Call::kBegin, Fault::alter([&km, returned, open](Answer& answer) {
                const KeyPurpose purpose = km.calls().back().purpose;
                if (purpose == PWHW_PURPOSE_TO_KEY || purpose == PWHW_PURPOSE_TO_ENCRYPTED_KEY) {
                    ++*open;
                    answer.error = returned == ErrorCode::OK ? answer.error : returned;
                }
                answer.error = *open > 16 ? ErrorCode::TOO_MANY_OPERATIONS : answer.error;
            }));
    });
}

// Takes a blob with any bytes behind it for the one before them.
void ignoreBytesBehindBlobs(FaultKeymaster& km) {
    const size_t size = newKey(km).size();
    km.alterCalls([size](CallRecord& call) {
        if (call.key_blob.size() > size) {
            call.key_blob.resize(size);
        }
    });
}

// Takes any damaged blob for that of another key.
void takeAnyBlob(FaultKeymaster& km) {
    const Bytes other = newKey(km);
    const auto good = std::make_shared<std::set<Bytes>>();
    for (const Call call : {Call::kGenerateKey, Call::kImportKey}) {
        km.planEach(call, Fault::alter([good](Answer& answer) { good->insert(answer.output); }));
    }
    km.alterCalls([other, good](CallRecord& call) {
        if (call.key_blob.size() != 0 && good->count(call.key_blob) == 0) {
            call.key_blob = other;
        }
    });
}

struct Row {
    std::string deviation;
    Make make;
    Ids broken;             // the requirement, and those that break with it
    std::string says = {};  // among what was seen, what follows, and the notes
};

constexpr size_t kTransportLimit = 5000;
constexpr size_t kKeyOfLibrary = 4;  // the check makes three keys before the library makes its own

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
         {"key.characteristics", "library.end-to-end"},
         "the stored key is refused at the next start"},
        {"INVALID_ARGUMENT for a damaged key",
         argumentFor(ErrorCode::INVALID_KEY_BLOB, Call::kGetKeyCharacteristics),
         {"key.damaged-blob"}},
        {"INVALID_ARGUMENT from its use",
         argumentFor(ErrorCode::INVALID_KEY_BLOB, Call::kBegin),
         {"key.damaged-blob"}},
        {"bytes behind a blob ignored", with(ignoreBytesBehindBlobs), {}},
        {"any blob taken",
         with(takeAnyBlob),
         {"key.damaged-blob"},
         "a damaged key file is used as if it were whole"},
        {"garbage for an upgraded key",
         each(Call::kUpgradeKey, Fault::outputSize(100)),
         {"key.upgrade"}},
        {"a user to be authenticated",
         each(Call::kBegin, Fault::error(ErrorCode::KEY_USER_NOT_AUTHENTICATED)),
         {"gcm.nonce-length", "gcm.correct", "library.end-to-end"},
         "insertions are refused with -26 KEY_USER_NOT_AUTHENTICATED; the store stays as it was"},
        {"nothing consumed",
         each(Call::kUpdate, [](Answer& answer) { answer.consumed = 0; }),
         {"gcm.correct", "library.end-to-end"},
         "insertions are refused with -1000 UNKNOWN_ERROR; the store stays"},
        {"no answer to finish",
         each(Call::kFinish, Fault::noCallback()),
         {"gcm.correct", "call.answered-once", "library.end-to-end"},
         "insertions return 0 and leave the store on the disk as plaintext"},
        {"nonce-16", named("nonce-16"), {"gcm.nonce-length", "library.end-to-end"}},
        {"no nonce",
         each(Call::kBegin, Fault::nonceSize(0)),
         {"gcm.nonce-length", "library.end-to-end"},
         "insertions are refused with -51 MISSING_NONCE"},
        {"fixed-nonce", named("fixed-nonce"), {"gcm.nonce-fresh"}},
        {"output-in-finish", named("output-in-finish"), kHeldBack},
        {"output-in-blocks", named("output-in-blocks"), kHeldBack},
        {"tag-12", named("tag-12"), {"gcm.tag-in-finish", "library.end-to-end"}},
        {"12 bytes of a tag",
         eachTag(12),
         {"gcm.tag-in-finish", "gcm.correct", "library.end-to-end"},
         "encrypting 100 bytes, finish returns 12"},
        {"16 bytes behind a tag",
         eachTag(32),
         {"gcm.tag-in-finish", "gcm.correct"},
         "the library keeps the first 16"},
        {"16 bytes behind the output",
         each(Call::kUpdate,
              [](Answer& answer) { answer.output.resize(answer.output.size() + 16); }),
         {"gcm.output-in-update", "gcm.correct"},
         "encrypting 100 bytes, update returns 116"},
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
        {"ignored-aad", named("ignored-aad"), {"gcm.aad-checked", "gcm.correct"}},
        {"no import",
         each(Call::kImportKey, Fault::error(ErrorCode::UNIMPLEMENTED)),
         {},
         "importKey refuses"},
        {"another key imported",
         with([](FaultKeymaster& km) {
             km.planEach(Call::kImportKey,
                         Fault::alter([&km](Answer& answer) { answer.output = newKey(km); }));
         }),
         {"gcm.correct"}},
        {"a byte of output altered",
         each(Call::kUpdate,
              [](Answer& answer) {
                  if (answer.output.size() > 0) {
                      flip(answer.output, 0);
                  }
              }),
         {"gcm.correct", "library.end-to-end"}},
        {"a transport of 5000 bytes",
         smallTransport(kTransportLimit),
         {"gcm.sizes"},
         "exceeds the limit: insertions return 0 and leave the store on the disk as plaintext"},
        {"updates of 5000 bytes",
         smallUpdates(INT_MAX),
         {"gcm.sizes"},
         "exceeds the limit: insertions are refused with -21"},
        {"one update that fails",
         smallUpdates(1),
         {},
         "8192 bytes failed once: update returned -21"},
        {"open-after-errors", named("open-after-errors"), {"ops.unfinished"}},
        {"open-after-refusals",
         named("open-after-refusals"),
         {"ops.refused"},
         "after 16 begins that were refused"},
        {"a chain from its root down",
         eachChain(3, [](std::vector<Bytes>& chain) { std::swap(chain[0], chain[2]); }),
         {"attest.chain"}},
        {"ignored-csr-tag", named("ignored-csr-tag"), {"csr.request"}},
        {"a request altered", eachChain(1, flipEnd), {"csr.proof"}},
        {"a request for another key", with(requestForeign), {"csr.proof"}},
        {"two certificates",
         eachChain(3, [](std::vector<Bytes>& chain) { chain.resize(2); }),
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
        {"an ignored password tag", ignoring(PWHW_TAG_TAG), {"password.tag-checked"}},
        {"an ignored input", ignoring(PWHW_TAG_IN_3), {"password.inputs-bound"}},
        {"a rot value of 15 bytes",
         each(Call::kBegin,
              [](Answer& answer) {
                  if (auto* rot = find(answer.params, PWHW_TAG_ROT)) {
                      rot->blob.resize(15);
                  }
              }),
         {"password.outputs"}},
        {"conversions that stay open", keepConversions(ErrorCode::OK), {"password.unfinished"}},
        {"conversions that are not offered and stay open",
         keepConversions(ErrorCode::UNSUPPORTED_PURPOSE),
         {"ops.refused"},
         "after 33 conversions (101) without inputs, which were refused"},
        {"callback-twice", named("callback-twice"), {"call.answered-once"}},
        {"callback-on-thread", named("callback-on-thread"), {"call.answered-once"}},
        {"no answer",
         each(Call::kGetKeyCharacteristics, Fault::noCallback()),
         {"key.characteristics", "key.damaged-blob", "call.answered-once", "library.end-to-end"}},
        {"late answers",
         [](Keymaster& inner) { return std::make_unique<LateAnswer>(inner); },
         {"gcm.correct", "call.answered-once"}},
        {"no key for the library",
         nth(Call::kGenerateKey, kKeyOfLibrary, Fault::error(ErrorCode::UNSUPPORTED_ALGORITHM)),
         {"library.end-to-end"}},
    };
}

class KeymasterCheck : public test::InTempDir {
  protected:
    KeymasterCheck() {
        std::filesystem::create_directory("tmp");
        ::setenv("TMPDIR", std::filesystem::absolute("tmp").c_str(), 1);
        options_.largest_store = 8192;
        options_.clock = [] { return g_now; };
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

    // What is said about a requirement; about all without an id.
    static std::string said(const std::vector<Finding>& findings, const std::string& id = "") {
        std::string text;
        for (const Finding& finding : findings) {
            if (id.empty() || finding.id == id) {
                text += finding.answered + finding.consequence + finding.note;
            }
        }
        return text;
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
        EXPECT_NE(std::string::npos, said(findings).find(row.says)) << said(findings);
        proved.insert(broken.begin(), broken.end());
        for (const Finding& finding : findings) {
            EXPECT_EQ(finding.verdict == Verdict::kHolds, finding.consequence.empty());
            EXPECT_FALSE(finding.answered.empty()) << finding.id;
            EXPECT_TRUE(finding.verdict != Verdict::kBroken || !finding.sent.empty()) << finding.id;
            // "begin(…)" is sent, and "begin: 0" is answered.
            for (const std::string call : {"begin", "generateKey", "getKeyCharacteristics"}) {
                EXPECT_EQ(std::string::npos, finding.sent.find(call + ": ")) << finding.sent;
                EXPECT_EQ(std::string::npos, finding.answered.find(call + "(")) << finding.answered;
            }
        }
    }
    for (const Requirement& requirement : requirements()) {
        EXPECT_EQ(1u, proved.count(requirement.id)) << requirement.id << " is never broken";
    }
}

TEST_F(KeymasterCheck, SaysTheLargestStoreToTheByte) {
    // The update of a decryption carries the tag and the associated data's parameter, too.
    const size_t largest = kTransportLimit - 16 - 12 - sizeof(KeyParameter);
    const std::string limit =
        "the largest payload that gets through is " + std::to_string(largest) + " bytes";
    for (const size_t wanted : {size_t{8192}, largest}) {
        options_.largest_store = wanted;
        const auto findings = check(smallTransport(kTransportLimit));
        EXPECT_EQ(wanted == largest ? Ids() : Ids{"gcm.sizes"},
                  idsWith(findings, Verdict::kBroken));
        EXPECT_NE(std::string::npos, said(findings, "gcm.sizes").find(limit));
    }
}

TEST_F(KeymasterCheck, SaysWhichCallWasSlow) {
    const auto findings =
        check(nth(Call::kGenerateKey, 1, Fault::alter([](Answer&) { g_now += 1200ms; })));
    EXPECT_EQ(Ids(), idsWith(findings, Verdict::kNotTried));
    EXPECT_EQ("slow: generateKey took 1.2 s", findings[0].note);
}

TEST_F(KeymasterCheck, TellsRefusedServicesFromBrokenOnes) {
    const Ids attestation = {"csr.request", "csr.proof", "attest.chain"};
    std::vector<Finding> findings =
        check(each(Call::kAttestKey, Fault::error(ErrorCode::UNIMPLEMENTED)));
    EXPECT_EQ(Ids(), idsWith(findings, Verdict::kBroken));
    EXPECT_EQ(attestation, idsWith(findings, Verdict::kNotOffered));
    EXPECT_EQ(0, exitStatus(findings));

    options_.attestation = options_.password = false;
    std::vector<std::string> begun;
    options_.progress = [&](const std::string& id, size_t done, size_t all) {
        EXPECT_EQ(begun.size(), done);
        EXPECT_EQ(requirements().size(), all);
        begun.push_back(id);
    };
    FaultKeymaster recorder(inner_);
    findings = check(recorder);
    EXPECT_EQ(8u, idsWith(findings, Verdict::kLeftOut).size());
    EXPECT_EQ(0u, recorder.calls(Call::kAttestKey).size());
    EXPECT_EQ(requirements().size(), begun.size());
    EXPECT_EQ(0, exitStatus(findings));
}

TEST_F(KeymasterCheck, KeepsItsTimeAndCleansUpWhateverACallTakes) {
    const std::pair<std::chrono::milliseconds, Ids> rows[] = {
        {0ms, {}},
        {200ms, {"gcm.nonce-fresh", "ops.unfinished"}},
        {500ms, {"gcm.nonce-fresh", "ops.unfinished", "password.unfinished", "ops.refused"}},
        {1500ms, {}}};
    for (const auto& [time, not_tried] : rows) {
        SCOPED_TRACE(time.count());
        SoftKeymaster inner({"root"});
        FaultKeymaster km(inner);
        std::multiset<Bytes> made;
        std::set<uint64_t> begun;
        for (int call = 0; call <= static_cast<int>(Call::kAbort); ++call) {
            km.planEach(static_cast<Call>(call),
                        Fault::alter([&, call, took = time](Answer& answer) {
                            g_now += took;
                            const auto kind = static_cast<Call>(call);
                            if (kind == Call::kGenerateKey || kind == Call::kUpgradeKey) {
                                made.insert(answer.output);
                            } else if (kind == Call::kBegin && answer.error == ErrorCode::OK) {
                                begun.insert(answer.handle);
                            }
                        }));
        }
        auto started = g_now;
        options_.progress = [&](const std::string& id, size_t, size_t) {
            EXPECT_LE(g_now - started, 40s) << "before " << id;
            started = g_now;
        };
        const auto findings = check(km);
        EXPECT_EQ(Ids(), idsWith(findings, Verdict::kBroken));
        EXPECT_EQ(time == 0ms ? 0 : 3, exitStatus(findings));
        if (time < 1s) {
            EXPECT_EQ(not_tried, idsWith(findings, Verdict::kNotTried));
        }
        for (const CallRecord& call : km.calls()) {
            if (call.call == Call::kDeleteKey) {
                made.erase(call.key_blob);
            } else if (call.call == Call::kFinish || call.call == Call::kAbort) {
                begun.erase(call.handle);
            }
        }
        made.erase(Bytes());
        EXPECT_EQ(std::multiset<Bytes>(), made);
        EXPECT_EQ(std::set<uint64_t>(), begun);
    }
}

TEST_F(KeymasterCheck, DeletesTheKeysOfEndlessUpgrades) {
    std::set<Bytes> made;
    FaultKeymaster km(inner_);
    km.planEach(Call::kGetKeyCharacteristics, Fault::error(ErrorCode::KEY_REQUIRES_UPGRADE));
    km.planEach(Call::kUpgradeKey, Fault::alter([&made](Answer& answer) {
                    answer.output = Bytes{static_cast<uint8_t>(made.size()), 1};
                    made.insert(answer.output);
                }));
    EXPECT_EQ((Ids{"key.characteristics", "key.damaged-blob", "key.upgrade", "library.end-to-end"}),
              idsWith(check(km), Verdict::kBroken));
    EXPECT_LT(1u, made.size());
    for (const CallRecord& call : km.calls(Call::kDeleteKey)) {
        made.erase(call.key_blob);
    }
    EXPECT_EQ(std::set<Bytes>(), made);
}

TEST_F(KeymasterCheck, LeavesNothingWhenASignalComes) {
    const auto raises = [](std::vector<int> signals) {
        return nth(Call::kGenerateKey, kKeyOfLibrary, Fault::alter([signals](Answer&) {
                       for (const int signal : signals) {
                           ::raise(signal);
                       }
                   }));
    };
    const auto checkWithSignals = [&](const Make& make) {
        const StopSignals signals;
        options_.stopped = [] { return StopSignals::caught() != 0; };
        return check(make);
    };
    const auto findings = checkWithSignals(raises({SIGTERM, SIGTERM}));
    EXPECT_EQ((Ids{"library.end-to-end", "ops.unfinished", "password.unfinished", "ops.refused"}),
              idsWith(findings, Verdict::kNotTried));
    EXPECT_EQ(0u, said(findings, "ops.refused").find("stopped"));

    const Make throws =
        nth(Call::kGenerateKey, kKeyOfLibrary,
            Fault::alter([](Answer&) { throw std::runtime_error("of the keymaster"); }));
    const auto fails = [&]() noexcept { checkWithSignals(throws); };
    EXPECT_EXIT(fails(), ::testing::KilledBySignal(SIGABRT), "of the keymaster");
    EXPECT_TRUE(std::filesystem::is_empty("tmp"));
}

// The directory stays the check's own whatever another thread does to the process's.
TEST_F(KeymasterCheck, RemovesNoFilesOfOthers) {
    std::filesystem::create_directory("others");
    test::writeFile("others/edbk", {1});
    const auto before = std::filesystem::absolute("others");
    SoftKeymaster inner({std::filesystem::absolute("root")});
    const auto keymaster =
        nth(Call::kFinish, 90,
            Fault::alter([&](Answer&) { std::filesystem::current_path(before); }))(inner);
    const auto place = std::filesystem::current_path();
    checkKeymaster(*keymaster, options_);
    std::filesystem::current_path(place);
    EXPECT_TRUE(std::filesystem::exists("others/edbk"));
    EXPECT_TRUE(std::filesystem::is_empty("tmp"));
}

TEST_F(KeymasterCheck, TriesASavedKeyAfterAnUpgradeOfTheSystem) {
    const auto failing = [](Call call, ErrorCode error) { return each(call, Fault::error(error)); };
    const Make sound = with([](FaultKeymaster&) {});
    const std::tuple<const char*, Make, Ids, int> rows[] = {
        {"none", sound, {}, 0},
        {"other key", named("upgrade-other-key"), {"later.key"}, 1},
        {"garbage", named("upgrade-garbage"), {"later.key"}, 1},
        {"same", named("upgrade-same"), {"later.key"}, 1},
        {"empty", named("upgrade-empty"), {"later.key"}, 1},
        {"missing", named("upgrade-missing"), {"later.key"}, 1},
        {"not asked", named("upgrade-not-asked"), {"later.key"}, 1},
        {"in memory", named("keys-in-memory"), {"later.key"}, 1},
        {"upgrade at begin",
         failing(Call::kBegin, ErrorCode::KEY_REQUIRES_UPGRADE),
         {"later.key"},
         1},
        {"counted", named("counted-nonce"), {"later.nonces"}, 1},
        {"fixed", named("fixed-nonce"), {"later.nonces"}, 1},
        {"full", failing(Call::kBegin, ErrorCode::TOO_MANY_OPERATIONS), {}, 3},
    };
    uint32_t level = SoftKeymaster::Options().patch_level;
    for (const auto& [what, make, broken, status] : rows) {
        SCOPED_TRACE(what);
        const bool saves = status != 3 && std::string(what) != "upgrade at begin";
        SoftKeymaster before({"root", level});
        std::string failure;
        const auto saver = (saves ? make : sound)(before);
        const std::string saved = saveKey(*saver, &failure, options_);
        EXPECT_EQ("", failure);
        EXPECT_EQ("soft", savedBy(saved));
        SoftKeymaster after({"root", ++level});
        const auto keymaster = make(after);
        const auto findings = verifyKey(*keymaster, saved, options_);
        EXPECT_EQ(broken, idsWith(findings, Verdict::kBroken));
        EXPECT_EQ(status, exitStatus(findings));
        const auto deleted = keymaster->calls(Call::kDeleteKey);
        EXPECT_EQ(status == 3 ? 0 : 1,
                  std::count_if(deleted.begin(), deleted.end(), [&](const CallRecord& call) {
                      return call.key_blob == saver->calls(Call::kBegin)[0].key_blob;
                  }));
    }
    for (const std::string& other :
         {std::string(), std::string("zelkeymaster_check 1 soft\n01\n")}) {
        EXPECT_EQ(2u, idsWith(verifyKey(inner_, other, options_), Verdict::kNotTried).size());
    }
}

TEST(KeymasterCheckReport, LaysOutEachVerdict) {
    const Bytes bytes(17, 0x0a);
    EXPECT_EQ("17 bytes 0a0a0a0a0a0a0a0a0a0a0a0a0a0a0a0a...", describe(bytes.data(), bytes.size()));
    const std::string indent(13, ' ');
    EXPECT_EQ("broken       x.y\n" + indent + "sent:     s\n" + indent + "answered: a; n\n" +
                  indent + "so:       c\n",
              inText({"x.y", Verdict::kBroken, "s", "a", "c", "n"}));
    EXPECT_EQ("holds        x.y" + std::string(20, ' ') + "n\n",
              inText({"x.y", Verdict::kHolds, "s", "a", "", "n"}));
    EXPECT_EQ("not offered  x.y" + std::string(20, ' ') + "a\n",
              inText({"x.y", Verdict::kNotOffered, "s", "a", "c", ""}));
}

TEST(KeymasterCheckReport, EscapesEveryStringOfItsJson) {
    const std::string json =
        inJson("a\"b\\c", {{"x.y", Verdict::kNotOffered, "\n\x01", "\xff\x7f", "", "n"}});
    EXPECT_EQ(
        "{\n  \"keymaster\": \"a\\\"b\\\\c\",\n  \"holds\": 0,\n  \"broken\": 0,\n"
        "  \"not_offered\": 1,\n  \"not_tried\": 0,\n  \"left_out\": 0,\n  \"findings\": [\n"
        "    {\"id\": \"x.y\",\n     \"verdict\": \"not offered\",\n"
        "     \"sent\": \"\\u000a\\u0001\",\n     \"answered\": \"\\u00ff\\u007f\",\n"
        "     \"consequence\": \"\",\n     \"note\": \"n\"}\n  ]\n}\n",
        json);
}

TEST_F(KeymasterCheck, EndsWhateverACallDoes) {
    const std::pair<const char*, Fault> faults[] = {
        {"lost before the callback", Fault::transportBeforeCallback()},
        {"lost after the callback", Fault::transportAfterCallback()},
        {"no callback", Fault::noCallback()},
        {"output of 100000", Fault::outputSize(100000)},
        {"empty answer", Fault::alter([](Answer& answer) {
             answer = Answer();
             answer.error = ErrorCode::OK;
         })}};
    for (const Call call :
         {Call::kGenerateKey, Call::kGetKeyCharacteristics, Call::kBegin, Call::kUpdate,
          Call::kFinish, Call::kAttestKey, Call::kDeleteKey, Call::kAbort}) {
        for (const auto& [name, fault] : faults) {
            const Ids broken = idsWith(check(each(call, fault)), Verdict::kBroken);
            const bool harmless = call == Call::kDeleteKey || call == Call::kAbort;
            EXPECT_TRUE(broken.empty() == harmless || fault.change)
                << callName(call) << ": " << name;
        }
    }
}

}  // namespace
