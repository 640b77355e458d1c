// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The keymaster's check finds each deviation and calls nothing else broken. For every requirement
// there is a keymaster that breaks this one and, as far as possible, no other.

#include <keymaster_check/client.h>
#include <keymaster_check/keymaster_check.h>
#include <keymaster_check/report.h>
#include <soft_keymaster/fault_keymaster.h>
#include <soft_keymaster/soft_keymaster.h>

#include <fcntl.h>
#include <openssl/crypto.h>
#include <openssl/x509.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <map>
#include <regex>
#include <set>
#include <stdexcept>
#include <thread>
#include <utility>

#include "../common/src/zelkeymaster_helper/openssl_handles.h"
#include "kept_reports.h"
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

template <typename List>
void flip(List& bytes, size_t at) {
    bytes[at] = static_cast<uint8_t>(bytes[at] ^ 1);
}

Bytes newKey(Keymaster& keymaster) {
    return call(keymaster, {Call::kGenerateKey, {}, databaseKeyParams()}).output;
}

// May reply to finish when the next operation begins, and then never says who it is.
class TestKeymaster : public FaultKeymaster {
  public:
    using FaultKeymaster::FaultKeymaster;
    bool late = false;

    Return<void> finish(uint64_t handle, const Params& params, const Blob& input,
                        const Blob& signature, const HardwareAuthToken& token,
                        const VerificationToken& verification, finish_cb cb) override {
        if (!late) {
            return FaultKeymaster::finish(handle, params, input, signature, token, verification,
                                          cb);
        }
        late_ = cb;
        return android::hardware::Void();
    }
    Return<void> handle(const CallRecord& call, const Reply& reply) override {
        if (late_ && call.call == Call::kBegin) {
            std::exchange(late_, nullptr)(ErrorCode::OK, {}, {1});
        }
        return FaultKeymaster::handle(call, reply);
    }
    Return<void> getHardwareInfo(getHardwareInfo_cb cb) override {
        return late ? android::hardware::Void() : FaultKeymaster::getHardwareInfo(cb);
    }

  private:
    finish_cb late_;
};

// What makes a keymaster break a requirement.
using Change = std::function<void(TestKeymaster&)>;

Change each(Call call, const Fault& fault) {
    return [=](FaultKeymaster& km) { km.planEach(call, fault); };
}

// `change` takes the answer, and may take the call.
template <typename Alter>
Change each(Call call, Alter alter) {
    return each(call, Fault::alter(alter));
}

// `alter` takes each call.
template <typename Alter>
Change eachCall(Alter alter) {
    return [=](FaultKeymaster& km) { km.alterCalls(alter); };
}

// Changes this parameter of each answer to begin.
template <typename Alter>
Change eachParam(Tag tag, Alter alter) {
    return each(Call::kBegin, [=](Answer& answer) {
        if (auto* entry = findParam(answer.params, tag)) {
            alter(*entry);
        }
    });
}

Change nth(Call call, size_t number, const Fault& fault) {
    return [=](FaultKeymaster& km) { km.plan(call, number, fault); };
}

using Chain = std::vector<Blob>;

// Changes each answer that has so many certificates. A request counts as one.
Change eachChain(size_t size, std::function<void(Chain&)> change) {
    return each(Call::kAttestKey, [=](Answer& answer) {
        if (answer.chain.size() == size) {
            change(answer.chain);
        }
    });
}

void flipEnd(Chain& chain) {
    flip(chain[0], chain[0].size() - 1);
}

// Returns INVALID_ARGUMENT where `error` is due.
Change argumentFor(ErrorCode error, Call call) {
    return each(call, [=](Answer& answer) {
        if (answer.error == error) {
            answer.error = ErrorCode::INVALID_ARGUMENT;
        }
    });
}

void smallTransport(FaultKeymaster& km) {
    Deviation deviation;
    deviation.transport_limit = 5000;
    km.deviate(deviation);
}

// The check's clock, which a keymaster can move.
std::chrono::steady_clock::time_point g_now;

// Refuses large updates, so many times.
Change smallUpdates(int times) {
    const auto left = std::make_shared<int>(times);
    return each(Call::kUpdate, [left](Answer& answer, const CallRecord& call) {
        if (call.input.size() > 5000 && (*left)-- > 0) {
            answer.error = ErrorCode::INVALID_INPUT_LENGTH;
        }
    });
}

// Changes the tag that an encryption returns.
Change eachTag(size_t size) {
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
    const Bytes key = call(km, {Call::kGenerateKey, {}, kind}).output;
    const auto request = call(km, {Call::kAttestKey, key, csr}).chain;
    km.planEach(Call::kAttestKey, Fault::alter([request](Answer& answer) {
                    if (answer.chain.size() == 1) {
                        answer.chain = request;
                    }
                }));
}

// Exports the key of a certificate: 0 is the attested key's own, 1 its issuer's.
Change exporting(size_t certificate) {
    return [certificate](FaultKeymaster& km) {
        const auto answerWithKey = [&km, certificate](Answer& answer, const CallRecord& exported) {
            const Params asked = {param(Tag::ATTESTATION_CHALLENGE, Bytes{1}),
                                  param(Tag::ATTESTATION_APPLICATION_ID, Bytes{1})};
            const Bytes blob = exported.key_blob;
            const Bytes der = call(km, {Call::kAttestKey, blob, asked}).chain.at(certificate);
            const uint8_t* at = der.data();
            const zelkm::X509Ptr x509(d2i_X509(nullptr, &at, long(der.size())));
            uint8_t* key = nullptr;
            const int size = i2d_X509_PUBKEY(X509_get_X509_PUBKEY(x509.get()), &key);
            answer.take(ErrorCode::OK, Blob(Bytes(key, key + size)));
            OPENSSL_free(key);
        };
        km.planEach(Call::kExportKey, Fault::alter(answerWithKey));
    };
}

// Puts the same value in the place of this parameter of the password conversion.
Change ignoring(Tag tag) {
    return [tag](FaultKeymaster& km) {
        km.alterCalls([tag, first = Bytes()](CallRecord& call) mutable {
            if (KeyParameter* entry = findParam(call.params, tag)) {
                first = first.empty() ? Bytes(entry->blob) : first;
                entry->blob = first;
            }
        });
    };
}

// Returns this for each conversion, and keeps it open. There is room for 16.
Change keepConversions(ErrorCode returned) {
    return [returned](FaultKeymaster& km) {
        const auto open = std::make_shared<int>(0);
        const auto keep = [returned, open](Answer& answer, const CallRecord& call) {
            if (call.purpose == PWHW_PURPOSE_TO_KEY ||
                call.purpose == PWHW_PURPOSE_TO_ENCRYPTED_KEY) {
                ++*open;
                answer.error = returned == ErrorCode::OK ? answer.error : returned;
            }
            answer.error = *open > 16 ? ErrorCode::TOO_MANY_OPERATIONS : answer.error;
        };
        km.planEach(Call::kBegin, Fault::alter(keep));
    };
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
    std::string keymaster;
    Change change;
};

constexpr size_t kKeyOfLibrary = 4;  // the check makes three keys before the library makes its own

// Keymasters that break one requirement, or that only make the check say something else; besides
// those of namedFaults().
std::vector<Row> rows() {
    const auto grow = [](Answer& answer) { answer.output.resize(answer.output.size() + 16); };
    const auto garbage = [](Answer& answer) { answer.take(ErrorCode::OK, Blob{1, 2}); };
    const auto resized = [](size_t size) {
        return [size](KeyParameter& entry) { entry.blob.resize(size); };
    };
    const auto smaller = [](Answer& answer) {
        if (auto* size = findParam(answer.characteristics.softwareEnforced, Tag::KEY_SIZE)) {
            size->f.integer = 128;
        }
    };
    const auto same = [](Answer& answer, const CallRecord& call) { answer.output = call.key_blob; };
    const auto refuseDecryption = [](Answer& answer, const CallRecord& call) {
        if (call.purpose == KeyPurpose::DECRYPT) {
            answer = Answer();
            answer.take(ErrorCode::INCOMPATIBLE_PURPOSE);
        }
    };
    const auto refuseReversal = [](Answer& answer, const CallRecord& call) {
        if (call.purpose == PWHW_PURPOSE_TO_ENCRYPTED_KEY) {
            answer.error = ErrorCode::VERIFICATION_FAILED;
        }
    };
    const auto refuseEcKeys = [](Answer& answer, const CallRecord& call) {
        if (findParam(call.params, Tag::EC_CURVE) != nullptr) {
            answer = Answer();
            answer.take(ErrorCode::UNSUPPORTED_ALGORITHM);
        }
    };
    const auto takeLittle = [](CallRecord& call) {
        call.input.resize(std::min<size_t>(call.input.size(), 500));
    };
    const auto failTenth = [=](FaultKeymaster& km) {
        km.alterCalls(takeLittle);
        km.planEach(Call::kUpdate, Fault::alter([](Answer& answer, const CallRecord& call) {
                        if (call.input.size() == 8192 - 9 * 500) {
                            answer.error = ErrorCode::INVALID_INPUT_LENGTH;
                        }
                    }));
    };
    const auto addNonce = [](Answer& answer) {
        if (const auto* nonce = findParam(answer.params, Tag::NONCE)) {
            answer.params.push_back(KeyParameter(*nonce));
        }
    };
    const auto finishWith16 = [](Answer& answer) {
        answer.output.resize(answer.error == ErrorCode::OK ? 16 : 0);
    };
    const auto alterOutput = [](Answer& answer) {
        if (!answer.output.empty()) {
            flip(answer.output, 0);
        }
    };
    // The ciphertext of one byte may be that byte by chance; the altered tag never fits.
    const auto encryptNothing = [](FaultKeymaster& km) {
        km.planEach(Call::kUpdate, Fault::alter([](Answer& answer, const CallRecord& call) {
                        answer.output = call.input;
                    }));
        km.planEach(Call::kFinish, Fault::alter([](Answer& answer) {
                        if (answer.output.size() == 16) {
                            flip(answer.output, 0);
                        }
                    }));
    };
    const auto keepTag = [](FaultKeymaster& km) {
        const auto first = std::make_shared<Bytes>();
        km.planEach(Call::kBegin, Fault::alter([first](Answer& answer) {
                        if (auto* tag = findParam(answer.params, PWHW_TAG_TAG)) {
                            *first = tag->blob;
                            tag->blob.resize(0);
                        }
                    }));
        km.alterCalls([first](CallRecord& call) {
            if (auto* tag = findParam(call.params, PWHW_TAG_TAG)) {
                tag->blob = *first;
            }
        });
    };
    const auto importAnother = [](FaultKeymaster& km) {
        km.planEach(Call::kImportKey,
                    Fault::alter([&km](Answer& answer) { answer.output = newKey(km); }));
    };
    return {
        {"no key", nth(Call::kGenerateKey, 1, Fault::error(ErrorCode::UNSUPPORTED_ALGORITHM))},
        {"an empty key", nth(Call::kGenerateKey, 1, Fault::outputSize(0))},
        {"a smaller key", each(Call::kGetKeyCharacteristics, smaller)},
        {"every key refused",
         each(Call::kGetKeyCharacteristics, Fault::error(ErrorCode::INVALID_KEY_BLOB))},
        {"INVALID_ARGUMENT for a damaged key",
         argumentFor(ErrorCode::INVALID_KEY_BLOB, Call::kGetKeyCharacteristics)},
        {"INVALID_ARGUMENT from its use", argumentFor(ErrorCode::INVALID_KEY_BLOB, Call::kBegin)},
        {"bytes behind a blob ignored", ignoreBytesBehindBlobs},
        {"any blob taken", takeAnyBlob},
        {"garbage for an upgraded key", each(Call::kUpgradeKey, Fault::outputSize(100))},
        {"an upgrade to the same blob", each(Call::kUpgradeKey, same)},
        {"a user to be authenticated",
         each(Call::kBegin, Fault::error(ErrorCode::KEY_USER_NOT_AUTHENTICATED))},
        {"decryptions refused", each(Call::kBegin, refuseDecryption)},
        {"nothing consumed", each(Call::kUpdate, [](Answer& answer) { answer.consumed = 0; })},
        {"too much consumed", each(Call::kUpdate, [](Answer& answer) { ++answer.consumed; })},
        {"at most 500 bytes consumed", eachCall(takeLittle)},
        {"no nonce", each(Call::kBegin, Fault::nonceSize(0))},
        {"two nonces", each(Call::kBegin, addNonce)},
        {"12 bytes of a tag", eachTag(12)},
        {"16 bytes behind a tag", eachTag(32)},
        {"16 bytes behind the output", each(Call::kUpdate, grow)},
        {"16 bytes from every finish", each(Call::kFinish, finishWith16)},
        {"INVALID_ARGUMENT for a wrong tag",
         argumentFor(ErrorCode::VERIFICATION_FAILED, Call::kFinish)},
        {"no import", each(Call::kImportKey, Fault::error(ErrorCode::UNIMPLEMENTED))},
        {"another key imported", importAnother},
        {"a byte of output altered", each(Call::kUpdate, alterOutput)},
        {"nothing encrypted", encryptNothing},
        {"a transport of 5000 bytes", smallTransport},
        {"updates of 5000 bytes", smallUpdates(INT_MAX)},
        {"one update that fails", smallUpdates(1)},
        {"a tenth update that fails", failTenth},
        {"no key to attest", each(Call::kGenerateKey, refuseEcKeys)},
        {"no attestation", each(Call::kAttestKey, Fault::error(ErrorCode::UNIMPLEMENTED))},
        {"a chain from its root down",
         eachChain(3, [](Chain& chain) { std::swap(chain[0], chain[2]); })},
        {"a request altered", eachChain(1, flipEnd)},
        {"a request with a byte more",
         eachChain(1, [](Chain& chain) { chain[0].resize(chain[0].size() + 1); })},
        {"a request for another key", requestForeign},
        {"the attested key exported", exporting(0)},
        {"another key exported", exporting(1)},
        {"garbage exported", each(Call::kExportKey, garbage)},
        {"two certificates", eachChain(3, [](Chain& chain) { chain.resize(2); })},
        {"a certificate altered", eachChain(3, flipEnd)},
        {"no conversion back", each(Call::kBegin, refuseReversal)},
        {"other material back",
         eachParam(PWHW_TAG_ENCRYPTED_KEY, [](auto& entry) { flip(entry.blob, 0); })},
        {"no material", eachParam(PWHW_TAG_KEY, resized(0))},
        {"no material back", eachParam(PWHW_TAG_ENCRYPTED_KEY, resized(0))},
        {"a password tag of 15 bytes", eachParam(PWHW_TAG_TAG, resized(15))},
        {"a rot value of 15 bytes", eachParam(PWHW_TAG_ROT, resized(15))},
        {"no password tag needed", keepTag},
        {"an ignored password tag", ignoring(PWHW_TAG_TAG)},
        {"an ignored input", ignoring(PWHW_TAG_IN_3)},
        {"conversions that stay open", keepConversions(ErrorCode::OK)},
        {"conversions that are not offered and stay open",
         keepConversions(ErrorCode::UNSUPPORTED_PURPOSE)},
        {"late answers", [](TestKeymaster& km) { km.late = true; }},
        {"no key for the library",
         nth(Call::kGenerateKey, kKeyOfLibrary, Fault::error(ErrorCode::UNSUPPORTED_ALGORITHM))},
    };
}

const test::KeptReports kReports(ZELKM_TEST_DATA_DIR "/keymaster_reports.txt");

// What is random in a report: bytes, but not those of every sample, times, and the sizes of
// certificates and requests.
std::string masked(const std::string& text) {
    static const std::pair<std::regex, const char*> kMasks[] = {
        {std::regex("( bytes?) (?!534f4276|3c5e81b4)([0-9a-f]{2})+(?![a-z])"), "$1 #"},
        {std::regex("(CREATION_DATETIME) [0-9]+"), "$1 #"},
        {std::regex("(a blob|the request) of [0-9]+"), "$1 of #"}};
    std::string result = text;
    for (const auto& [pattern, replacement] : kMasks) {
        result = std::regex_replace(result, pattern, replacement);
    }
    return result;
}

std::vector<Requirement> allRequirements() {
    std::vector<Requirement> all = requirements();
    const std::vector<Requirement> later = laterRequirements();
    all.insert(all.end(), later.begin(), later.end());
    return all;
}

std::vector<std::string> shown(const std::vector<Finding>& findings) {
    // What follows if a requirement that was not tried is broken. It is not shown each time.
    std::set<std::string> not_known;
    for (const Requirement& known : allRequirements()) {
        not_known.insert(known.id + std::string(": not known; if it is broken: ") +
                         known.consequence);
    }
    std::vector<std::string> all;
    for (const Finding& finding : findings) {
        std::string text = finding.id + ": " + verdictName(finding.verdict) + "\n";
        const std::pair<const char*, std::string> fields[] = {
            {"  sent: ", finding.sent},
            {"  answered: ", finding.answered},
            {"  so: ", not_known.count(finding.id + ": " + finding.consequence) != 0
                           ? "not known"
                           : finding.consequence},
            {"  note: ", finding.note}};
        for (const auto& [name, value] : fields) {
            text += value.empty() ? "" : name + masked(value) + "\n";
        }
        all.push_back(text);
    }
    return all;
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
    void SetUp() override {
        if (sound_report_.empty()) {
            const auto findings = report(sound_);
            expectReport("sound", findings);
            const auto all = shown(findings);
            sound_report_.insert(all.begin(), all.end());
        }
    }

    // Checks a keymaster, and that the check leaves nothing behind.
    std::vector<Finding> check(Keymaster& keymaster) {
        const auto before = std::filesystem::current_path();
        const auto findings = checkKeymaster(keymaster, options_);
        EXPECT_EQ(before, std::filesystem::current_path());
        EXPECT_TRUE(std::filesystem::is_empty("tmp"));
        return findings;
    }

    // Checks a fresh keymaster, since the library leaves operations open when calls fail.
    std::vector<Finding> check(const Change& change) {
        SoftKeymaster inner({"root"});
        TestKeymaster keymaster(inner);
        change(keymaster);
        return check(keymaster);
    }

    // Saves a key, and verifies it after an upgrade of the system.
    std::vector<Finding> verify(const Change& change_before, const Change& change) {
        SoftKeymaster before({"root"});
        TestKeymaster saving(before);
        change_before(saving);
        std::string failure;
        const std::string saved = saveKey(saving, &failure, options_);
        EXPECT_EQ(saved.empty() ? "" : "soft", savedBy(saved));
        EXPECT_EQ(saved.empty(), !failure.empty());
        SoftKeymaster after({"root", SoftKeymaster::Options().patch_level + 1});
        TestKeymaster keymaster(after);
        change(keymaster);
        std::vector<Finding> findings = verifyKey(keymaster, saved, options_);
        if (!saved.empty()) {
            // The saved key is deleted, unless one can try again.
            const auto listed = keymaster.calls(Call::kGetKeyCharacteristics);
            const auto deleted = keymaster.calls(Call::kDeleteKey);
            EXPECT_EQ(exitStatus(findings) == 3 ? 0 : 1,
                      std::count_if(deleted.begin(), deleted.end(), [&](const CallRecord& call) {
                          return call.key_blob == listed[0].key_blob;
                      }));
        } else {
            findings.push_back({"saving", Verdict::kBroken, "", failure, "", ""});
        }
        return findings;
    }

    // What `zelkm check` reports.
    std::vector<Finding> report(const Change& change) {
        std::vector<Finding> findings = check(change);
        const std::vector<Finding> later = verify(change, change);
        findings.insert(findings.end(), later.begin(), later.end());
        EXPECT_EQ(broken(findings).empty(), exitStatus(findings) != 1);
        return findings;
    }

    // What is reported must be what is kept: of a sound keymaster all, of others what differs.
    static void expectReport(const std::string& keymaster, const std::vector<Finding>& findings) {
        std::string report;
        for (const std::string& finding : shown(findings)) {
            if (sound_report_.count(finding) == 0) {
                report += finding;
            }
        }
        kReports.expect(keymaster, report);
    }

    static std::set<std::string> broken(const std::vector<Finding>& findings) {
        std::set<std::string> ids;
        for (const Finding& finding : findings) {
            if (finding.verdict == Verdict::kBroken) {
                ids.insert(finding.id);
            }
        }
        return ids;
    }

    const Change sound_ = [](FaultKeymaster&) {};
    Options options_;
    SoftKeymaster inner_{{"root"}};

  private:
    static inline std::set<std::string> sound_report_;
};

TEST_F(KeymasterCheck, ReportsEachDeviationAndNoOther) {
    std::vector<Row> all = rows();
    for (const NamedFault& fault : namedFaults()) {
        if (fault.name != std::string("slow-call")) {  // by a clock that these tests do not have
            all.push_back({fault.name, fault.apply});
        }
    }
    std::set<std::string> proved;
    for (const Row& row : all) {
        SCOPED_TRACE(row.keymaster);
        const auto findings = report(row.change);
        expectReport(row.keymaster, findings);
        proved.merge(broken(findings));
    }
    // These two have a key whose saving failed.
    for (const ErrorCode error :
         {ErrorCode::KEY_REQUIRES_UPGRADE, ErrorCode::TOO_MANY_OPERATIONS}) {
        const Change refusing = each(Call::kBegin, Fault::error(error));
        expectReport("begin: " + describeCode(error), check(refusing));
        expectReport("begin, later: " + describeCode(error), verify(sound_, refusing));
    }
    for (const Requirement& requirement : allRequirements()) {
        EXPECT_EQ(1u, proved.count(requirement.id)) << requirement.id << " is never broken";
    }
}

TEST_F(KeymasterCheck, EndsWhateverACallDoes) {
    const std::pair<const char*, Fault> faults[] = {
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
            expectReport(std::string(callName(call)) + ": " + name, check(each(call, fault)));
        }
    }
}

// As when the process has no descriptor left for it, or for the directory before.
TEST_F(KeymasterCheck, SaysWhenItHasNoDirectory) {
    rlimit before = {};
    ASSERT_EQ(0, ::getrlimit(RLIMIT_NOFILE, &before));
    const int free = ::dup(0);
    ::close(free);
    for (const int more : {0, 1}) {
        options_.progress = [&](const std::string& id, size_t, size_t) {
            const bool limits = id == "library.end-to-end";
            const rlimit limit = {limits ? rlim_t(free + more) : before.rlim_cur, before.rlim_max};
            EXPECT_EQ(0, ::setrlimit(RLIMIT_NOFILE, &limit));
        };
        expectReport("sound, without a directory " + std::to_string(more), check(sound_));
    }
}

TEST_F(KeymasterCheck, LeavesOutWhatTheOptionsSay) {
    options_.attestation = options_.password = false;
    options_.largest_store = 0;
    std::vector<std::string> begun;
    options_.progress = [&](const std::string& id, size_t done, size_t all) {
        EXPECT_EQ(begun.size(), done);
        EXPECT_EQ(requirements().size(), all);
        begun.push_back(id);
    };
    std::vector<std::string> found;
    options_.found = [&](const Finding& finding) { found.push_back(finding.id); };
    FaultKeymaster recorder(inner_);
    expectReport("sound, without services and sizes", check(recorder));
    EXPECT_EQ(0u, recorder.calls(Call::kAttestKey).size());
    EXPECT_EQ(begun, found);
    EXPECT_EQ(requirements().size(), begun.size());
}

TEST_F(KeymasterCheck, KeepsItsTimeAndCleansUpWhateverACallTakes) {
    for (const auto time : {0ms, 200ms, 500ms, 1000ms, 1500ms}) {
        SoftKeymaster inner({"root"});
        FaultKeymaster km(inner);
        std::multiset<Bytes> made;
        std::set<uint64_t> begun;
        km.planEachCall(Fault::alter([&](Answer& answer, const CallRecord& call) {
            g_now += time;
            if (call.call == Call::kGenerateKey || call.call == Call::kUpgradeKey) {
                made.insert(answer.output);
            } else if (call.call == Call::kBegin && answer.error == ErrorCode::OK) {
                begun.insert(answer.handle);
            }
        }));
        auto started = g_now;
        options_.progress = [&](const std::string& id, size_t, size_t) {
            EXPECT_LE(g_now - started, 40s) << "before " << id;
            started = g_now;
        };
        const auto findings = check(km);
        expectReport("calls that take " + std::to_string(time.count()) + " ms", findings);
        EXPECT_EQ(time == 0ms ? 0 : 3, exitStatus(findings));
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
    expectReport("endless upgrades", check(km));
    EXPECT_LT(1u, made.size());
    for (const CallRecord& call : km.calls(Call::kDeleteKey)) {
        made.erase(call.key_blob);
    }
    EXPECT_EQ(std::set<Bytes>(), made);
}

TEST_F(KeymasterCheck, LeavesNothingWhenASignalComes) {
    const auto raisesTwo = [](std::chrono::milliseconds pause) {
        return nth(Call::kGenerateKey, kKeyOfLibrary, Fault::alter([pause](Answer&) {
                       ::raise(SIGTERM);
                       std::this_thread::sleep_for(pause);
                       ::raise(SIGTERM);
                   }));
    };
    const auto checkWithSignals = [&](const Change& change) {
        const StopSignals signals;
        options_.stopped = [] { return StopSignals::caught() != 0; };
        return check(change);
    };
    expectReport("sound, with a signal", checkWithSignals(raisesTwo(0ms)));

    EXPECT_EXIT(checkWithSignals(raisesTwo(2100ms)), ::testing::KilledBySignal(SIGTERM), "");
    EXPECT_TRUE(std::filesystem::is_empty("tmp"));

    {
        const StopSignals again;
        EXPECT_EQ(0, StopSignals::caught());
    }
    EXPECT_EQ(SIG_DFL, ::signal(SIGTERM, SIG_DFL));

    const Change throws =
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
    FaultKeymaster keymaster(inner);
    keymaster.plan(Call::kFinish, 90,
                   Fault::alter([&](Answer&) { std::filesystem::current_path(before); }));
    const auto place = std::filesystem::current_path();
    checkKeymaster(keymaster, options_);
    std::filesystem::current_path(place);
    const int reused = ::open("others", O_RDONLY | O_DIRECTORY);  // the descriptor of the check's
    removeDirectory();
    ::close(reused);
    EXPECT_TRUE(std::filesystem::exists("others/edbk"));
    EXPECT_TRUE(std::filesystem::is_empty("tmp"));
}

TEST_F(KeymasterCheck, RefusesWhatSaveKeyHasNotMade) {
    std::string failure;
    const std::string saved = saveKey(inner_, &failure, options_);
    EXPECT_EQ("soft", savedBy(saved));
    const size_t last_line = saved.rfind('\n', saved.size() - 2) + 1;
    const std::pair<const char*, std::string> others[] = {
        {"no text", ""},
        {"another head", "z" + saved},
        {"a line more", saved + "\n"},
        {"a line less", saved.substr(0, last_line)}};
    for (const auto& [what, other] : others) {
        expectReport(std::string("sound, later: ") + what, verifyKey(inner_, other, options_));
    }
    expectReport("sound, later: the text", verifyKey(inner_, saved, options_));
    options_.stopped = [] { return true; };
    EXPECT_EQ("", saveKey(inner_, &failure, options_));
    EXPECT_EQ("stopped", failure);
}

TEST_F(KeymasterCheck, SendsAsManyCallsAsItMust) {
    FaultKeymaster recorder(inner_);
    check(recorder);
    verifyKey(recorder, saveKey(recorder, nullptr, options_), options_);
    std::string counts;
    for (int call = 0; call <= static_cast<int>(Call::kAbort); ++call) {
        const auto kind = static_cast<Call>(call);
        counts += callName(kind) + (" " + std::to_string(recorder.calls(kind).size()) + "\n");
    }
    kReports.expect("calls to a sound keymaster", counts);
    EXPECT_EQ("SoftKeymaster, libzelkeymaster, security level 0", describe(recorder));
    TestKeymaster silent(inner_);
    silent.late = true;
    EXPECT_EQ("a keymaster that does not identify itself", describe(silent));
}

TEST(KeymasterCheckReport, NamesCodesTagsAndCalls) {
    std::string names;
    for (int code = -1001; code <= 1; ++code) {
        names += codeName(code) == nullptr ? "" : describeCode(code) + "\n";
    }
    for (uint32_t id = 0; id < 0x1000; ++id) {
        for (uint32_t type = 1; type <= 10; ++type) {
            const auto tag = static_cast<Tag>(type << 28 | id);
            if (describeTag(tag).rfind("0x", 0) != 0) {
                names +=
                    std::to_string(type) + ":" + std::to_string(id) + " " + describeTag(tag) + "\n";
            }
        }
    }
    names += describeTag(Tag(0x9000ABCD)) + "\n";
    kReports.expect("names", names);
}

TEST(KeymasterCheckReport, HasTheRequirementsOfItsPage) {
    std::string rows = "| --- | --- | --- |\n";
    for (const Requirement& requirement : allRequirements()) {
        rows += std::string("| `") + requirement.id + "` | " + requirement.consequence + " |\n";
    }
    // What must hold stands on the page alone.
    static const std::regex what_must_hold(R"((\| `[a-z.-]+` )\| [^|\n]+ (?=\|))");
    const std::string page = std::regex_replace(
        test::text(std::filesystem::path(ZELKM_DOCS_DIR "/keymaster.md")), what_must_hold, "$1");
    EXPECT_NE(std::string::npos, page.find(rows + "\n")) << rows;
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

}  // namespace
