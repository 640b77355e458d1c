// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Checks of AES-256-GCM: of the answers that the library relies on, and of what only the keymaster
// can verify.

#include <openssl/evp.h>

#include <algorithm>
#include <initializer_list>
#include <memory>
#include <optional>
#include <set>

#include "checks.h"
#include "openssl_handles.h"

namespace keymaster_check {
namespace {

// The outcome when an operation that the requirement builds on does not work at all.
Finding noOperation(const Run& run) {
    return notTried((run.purpose == KeyPurpose::ENCRYPT ? "encrypting: " : "decrypting: ") +
                    (run.done() ? "other bytes come back" : run.failure()) + ": see gcm.correct");
}

// Encrypts payloads of these sizes, and then decrypts them. What an encryption alone shows is
// judged before its decryption, which may fail because of it. `judge` returns how a run breaks the
// requirement, if it does.
template <typename Judge>
Finding judgeRuns(Context& context, std::initializer_list<size_t> sizes, Judge judge,
                  const char* answered) {
    std::string sent;
    std::vector<Run> encryptions;
    for (const bool decrypts : {false, true}) {
        auto encryption = encryptions.begin();
        for (const size_t size : sizes) {
            context.startCase();
            const Run run = decrypts ? decrypt(context, context.key, *encryption++)
                                     : encrypt(context, context.key, size);
            if (!run.done()) {
                return noOperation(run);
            }
            if (const std::optional<Finding> fault = judge(size, run)) {
                return *fault;
            }
            if (!decrypts) {
                encryptions.push_back(run);
                sent += (sent.empty() ? "" : ", ") + std::to_string(size);
            }
        }
    }
    return holds(sent + " bytes, encrypted and decrypted", answered);
}

struct Altered {
    const char* what;
    Bytes nonce;
    Bytes input;
    Bytes associated_data;
};

// Encrypts the sample, and decrypts what `alter` makes of it. Each of these decryptions must be
// refused with -30 from finish. `taken` is what follows when one is not refused at all.
template <typename Alter>
Finding refusesEach(Context& context, Alter alter, const char* sent, const char* taken) {
    const Run encryption = encrypt(context, context.key, kPayload);
    if (!encryption.done()) {
        return noOperation(encryption);
    }
    const Run decryption = decrypt(context, context.key, encryption);
    if (!decryption.done()) {
        return noOperation(decryption);
    }
    if (encryption.all().size() <= kPayload || encryption.nonce.empty()) {
        return notTried("there is no tag, or no nonce, to alter: see gcm.correct");
    }
    for (const Altered& each : alter(encryption.nonce, encryption.all())) {
        context.startCase();
        const Run run = decrypt(context, context.key, each.nonce, each.input, each.associated_data);
        if (run.failed != Call::kFinish || run.last.error != ErrorCode::VERIFICATION_FAILED) {
            return broken(context, std::string(each.what) + " is not refused with -30",
                          run.done() ? taken
                                     : "a damaged store is refused with another code, and not "
                                       "repaired: only -30 from finish starts that");
        }
    }
    return holds(sent, "-30 from finish to each");
}

// Ciphertext and tag made by libcrypto with a nonce of 12 bytes; empty when that fails.
Bytes sealWithLibcrypto(const Bytes& key, const Bytes& nonce, const Bytes& payload) {
    const Bytes associated_data = sampleAssociatedData();
    using Owner = std::unique_ptr<EVP_CIPHER_CTX, zelkm::OpenSslDeleter<EVP_CIPHER_CTX_free>>;
    const Owner context(EVP_CIPHER_CTX_new());
    Bytes output(payload.size() + kTagSize);
    int len = 0;
    const bool done =
        context != nullptr &&
        EVP_EncryptInit_ex(context.get(), EVP_aes_256_gcm(), nullptr, key.data(), nonce.data()) ==
            1 &&
        EVP_EncryptUpdate(context.get(), nullptr, &len, associated_data.data(),
                          static_cast<int>(associated_data.size())) == 1 &&
        EVP_EncryptUpdate(context.get(), output.data(), &len, payload.data(),
                          static_cast<int>(payload.size())) == 1 &&
        EVP_EncryptFinal_ex(context.get(), output.data() + payload.size(), &len) == 1 &&
        EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_GCM_GET_TAG, kTagSize,
                            output.data() + payload.size()) == 1;
    return done ? output : Bytes();
}

// Compares the bytes that both have. They must be more than the payload. The length of the tag is
// judged by gcm.tag-in-finish.
bool agree(const Bytes& output, const Bytes& expected, size_t payload) {
    const size_t compared = std::min(output.size(), expected.size());
    return compared > payload &&
           std::equal(output.begin(),
                      output.begin() + static_cast<Bytes::difference_type>(compared),
                      expected.begin());
}

// The run that fails with a payload of this size; nothing when both ways work. A failure that does
// not come again is not due to the size.
std::optional<Run> failureAt(Context& context, size_t size, std::string* once) {
    std::optional<Run> failed;
    for (int attempt = 0; attempt < 2; ++attempt) {
        context.startCase();
        const Run encryption = encrypt(context, context.key, size);
        const Run decryption =
            encryption.done() ? decrypt(context, context.key, encryption) : Run();
        if (decryption.bringsBack(size)) {
            if (failed && once->empty()) {
                *once = std::to_string(size) + " bytes failed once: " + failed->failure() + "; ";
            }
            return std::nullopt;
        }
        failed = encryption.done() ? decryption : encryption;
        context.abortAll();  // a lost call leaves its operation open
    }
    return failed;
}

std::string storeSize(size_t bytes) {
    constexpr size_t kTypicalObject = 60;  // an alias, a creator and a short list
    return std::to_string(bytes) + " bytes (" + std::to_string(bytes / kTypicalObject) +
           " objects of 60 bytes)";
}

// Searches for the limit between a size that gets through and one that does not.
std::string limitBetween(Context& context, size_t good, size_t bad) {
    std::string ignored;
    while (bad - good > 1 && context.hasTime()) {
        const size_t middle = good + (bad - good) / 2;
        (failureAt(context, middle, &ignored) ? bad : good) = middle;
    }
    return bad - good > 1 ? "no time to search for the limit"
                          : "the largest payload that gets through is " + storeSize(good);
}

}  // namespace

Finding checkNonceLength(Context& context) {
    Run run;  // as far as it got
    run.last = context.make({Call::kBegin, context.key, gcmParams(), KeyPurpose::ENCRYPT});
    if (!run.last.ok()) {
        return broken(context, "no encryption begins", run.consequence());
    }
    const auto& params = run.last.params;
    const auto count = std::count_if(params.begin(), params.end(),
                                     [](const auto& entry) { return entry.tag == Tag::NONCE; });
    if (count != 1) {
        return broken(context, std::to_string(count) + " nonces",
                      count == 0 ? "insertions are refused with -51 MISSING_NONCE; the store stays "
                                   "as it was"
                                 : "the library takes the first; if it is not the one that was "
                                   "used, the next start refuses the store (-30)");
    }
    const size_t size = bytesOf(params, Tag::NONCE).size();
    if (size != kNonceSize) {
        return broken(context, "a nonce of " + std::to_string(size) + " bytes");
    }
    return holds(context.sent(), context.answered());
}

Finding checkNonceFresh(Context& context) {
    constexpr size_t kDraws = 300;  // for each key; a counter of 8 bits repeats within them
    const Answer other = context.make({Call::kGenerateKey, {}, databaseKeyParams()});
    const Bytes keys[] = {context.key, other.ok() ? other.output : context.key};
    std::set<Bytes> drawn[2];
    for (size_t draws = 0; draws < 2 * kDraws; ++draws) {
        const size_t which = draws % 2;
        const Bytes nonce = drawNonce(context, keys[which]);
        if (nonce.empty()) {
            return notTried("an encryption brought no nonce: " + context.answered() +
                            ": see gcm.nonce-length");
        }
        // Equal blobs hold one key, so their nonces count together.
        std::set<Bytes>& seen = drawn[keys[0] == keys[1] ? 0 : which];
        if (!seen.insert(nonce).second) {
            return broken(context, "this nonce was used before, in " + std::to_string(draws) +
                                       " draws with two keys");
        }
    }
    return holds(std::to_string(2 * kDraws) + " encryptions begun, with two keys in turn",
                 "no nonce came twice");
}

Finding checkOutputInUpdate(Context& context) {
    const auto judge = [&](size_t size, const Run& run) -> std::optional<Finding> {
        const size_t out = run.from_updates.size();
        if (out == size) {
            return std::nullopt;
        }
        const std::string crypting =
            run.purpose == KeyPurpose::ENCRYPT ? "encrypting " : "decrypting ";
        return broken(
            context,
            crypting + std::to_string(size) + " bytes, update returns " + std::to_string(out),
            out > size ? "the library drops the bytes beyond the payload" : "");
    };
    return judgeRuns(context, {100, 17, 16, 15, 1}, judge, "as many bytes from update");
}

Finding checkTagInFinish(Context& context) {
    const auto judge = [&](size_t size, const Run& run) -> std::optional<Finding> {
        const size_t out = run.from_finish.size();
        const bool encrypts = run.purpose == KeyPurpose::ENCRYPT;
        const std::string text = std::to_string(size) + " bytes, finish returns ";
        if (encrypts == (out == kTagSize)) {
            return std::nullopt;
        }
        if (!encrypts) {
            return broken(
                context, "decrypting " + text + "16, as an encryption does",
                "the library takes the decryption for an encryption, and the objects are not "
                "read");
        }
        return broken(
            context, "encrypting " + text + std::to_string(out),
            out < kTagSize
                ? "insertions return 0, and the next start refuses the store (-30)"
                : "insertions return 0, and the library keeps the first 16 of these bytes; "
                  "unless they are the tag, the next start refuses the store (-30)");
    };
    return judgeRuns(context, {100, 32, 17, 16, 15, 1}, judge,
                     "16 bytes from finish when encrypting, another number when decrypting");
}

Finding checkTagChecked(Context& context) {
    const auto alter = [](const Bytes& nonce, const Bytes& output) {
        const Bytes data = sampleAssociatedData();
        return std::vector<Altered>{
            {"the tag's first byte altered", nonce, altered(output, kPayload), data},
            {"the tag's last byte altered", nonce, altered(output, output.size() - 1), data},
            {"the ciphertext's first byte altered", nonce, altered(output, 0), data},
            {"the ciphertext's last byte altered", nonce, altered(output, kPayload - 1), data},
            {"the nonce's first byte altered", altered(nonce, 0), output, data}};
    };
    return refusesEach(context, alter, "decryptions with tag, ciphertext and nonce altered",
                       "a damaged or forged store is taken for a good one");
}

Finding checkAadChecked(Context& context) {
    const auto alter = [](const Bytes& nonce, const Bytes& output) {
        return std::vector<Altered>{
            {"other associated data", nonce, output, altered(sampleAssociatedData(), 6)},
            {"no associated data", nonce, output, {}}};
    };
    return refusesEach(context, alter, "decryptions with other associated data, and without", "");
}

Finding checkCorrect(Context& context) {
    std::string compared = "importKey refuses, so the key cannot be known";
    const Bytes known_key = randomBytes(32);
    const Answer imported =
        context.make({Call::kImportKey, {}, databaseKeyParams(), {}, 0, known_key});
    if (imported.ok()) {
        const Bytes payload = samplePayload(kPayload);
        const Run run = encrypt(context, imported.output, kPayload);
        // What fails in the same way with the other key is judged below, and by gcm.nonce-length.
        const bool comparable = run.done() && run.nonce.size() == kNonceSize;
        if (comparable &&
            !agree(run.all(), sealWithLibcrypto(known_key, run.nonce, payload), kPayload)) {
            return broken(context, "not what AES-256-GCM makes of an imported key",
                          "nobody knows what protects the store; another version of the keymaster "
                          "may not read it");
        }
        compared = comparable ? "with an imported key, what libcrypto makes"
                              : "with an imported key, nothing to compare";
    }

    const struct {
        size_t size, encrypt_cut, decrypt_cut;
    } kRounds[] = {{1, 1, 7}, {kPayload, 33, 30}, {kPayload, SIZE_MAX, 50}, {2000, 999, SIZE_MAX}};
    std::vector<Run> runs;
    for (const auto& round : kRounds) {
        context.startCase();
        const Bytes payload = samplePayload(round.size);
        runs.push_back(encrypt(context, context.key, round.size, round.encrypt_cut));
        if (!runs.back().done()) {
            return broken(context, "an encryption fails", runs.back().consequence());
        }
        if (runs.back().nonce.empty()) {
            return notTried("an encryption brought no nonce: see gcm.nonce-length");
        }
        const Bytes output = runs.back().all();
        if (round.size > 1 && std::search(output.begin(), output.end(), payload.begin(),
                                          payload.begin() + 16) != output.end()) {
            return broken(context, "the payload is not encrypted",
                          "the objects are stored readable for everybody");
        }
    }
    for (size_t i = runs.size(); i-- > 0;) {
        context.startCase();
        const Run run = decrypt(context, context.key, runs[i], kRounds[i].decrypt_cut);
        if (!run.bringsBack(kRounds[i].size)) {
            return broken(context, "what was encrypted does not decrypt",
                          run.done() ? "objects come back as other bytes than were stored"
                                     : run.consequence());
        }
    }
    return holds(
        "importKey; four encryptions, then their decryptions from the last to the first, "
        "cut otherwise",
        compared + "; the payloads came back");
}

Finding checkSizes(Context& context) {
    constexpr size_t kMuch = 4 << 20;  // no transport takes this
    const size_t largest = context.options.largest_store;
    size_t good = 0;
    size_t bad = 0;
    std::string once;
    std::optional<Run> failed;
    for (const size_t size : {size_t{1}, size_t{16}, size_t{17}, size_t{4096}, size_t{65536},
                              size_t{262144}, largest}) {
        if (size <= largest && !failed) {
            failed = failureAt(context, size, &once);
            (failed ? bad : good) = size;
        }
    }
    if (failed && good == 0) {
        return noOperation(*failed);
    }
    Finding outcome =
        failed
            ? broken(context, std::to_string(bad) + " bytes do not get through",
                     "of the insertion that exceeds the limit: " + failed->consequence())
            : holds("payloads from 1 byte to " + std::to_string(good) + ", encrypted and decrypted",
                    "all got through");
    context.verdictIsKnown();
    if (!failed) {
        const size_t beyond = largest + std::min(largest, kMuch);
        (failureAt(context, beyond, &once) ? bad : good) = beyond;
    }
    const std::string limit =
        bad == 0 ? storeSize(good) + " get through, too" : limitBetween(context, good, bad);
    outcome.note = once + limit;
    return outcome;
}

}  // namespace keymaster_check
