// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Checks of AES-256-GCM: of the answers that the library relies on, and of what only the keymaster
// can verify.

#include <openssl/evp.h>

#include <algorithm>
#include <memory>
#include <set>

#include "checks.h"
#include "gcm_run.h"
#include "params.h"

namespace keymaster_check {
namespace {

constexpr size_t kNonceSize = 12;
constexpr size_t kTagSize = 16;
constexpr int kVerificationFailed = -30;
constexpr size_t kPayload = 100;  // not a multiple of a block

Outcome noKey() {
    return notTried("there is no key: see key.generate");
}

// The outcome when an operation that the requirement builds on does not work at all.
Outcome noOperation(const Run& run) {
    return notTried(run.failure() + ": see gcm.correct");
}

// An encryption of the sample payload, and its decryption. Checks alter parts of it.
struct Sealed {
    Run encryption;
    Run decryption;
    Bytes output;  // ciphertext and tag
};

Sealed seal(Context& context, size_t size) {
    Sealed sealed;
    const Bytes payload = samplePayload(size);
    sealed.encryption = encrypt(context.caller, context.key, payload, sampleAssociatedData());
    sealed.output = sealed.encryption.all();
    if (sealed.encryption.done()) {
        sealed.decryption = decrypt(context.caller, context.key, sealed.encryption.nonce,
                                    sealed.output, sampleAssociatedData());
    }
    return sealed;
}

const Run* failedRun(const Sealed& sealed) {
    if (!sealed.encryption.done()) {
        return &sealed.encryption;
    }
    return sealed.decryption.done() ? nullptr : &sealed.decryption;
}

bool refusedInFinish(const Run& run) {
    return run.ended == Run::End::kFinish && run.error == kVerificationFailed;
}

struct CipherContextDeleter {
    void operator()(EVP_CIPHER_CTX* context) const { EVP_CIPHER_CTX_free(context); }
};

// Ciphertext and tag made by libcrypto; empty when that fails.
Bytes sealWithLibcrypto(const Bytes& key, const Bytes& nonce, const Bytes& payload,
                        const Bytes& associated_data) {
    const std::unique_ptr<EVP_CIPHER_CTX, CipherContextDeleter> context(EVP_CIPHER_CTX_new());
    Bytes output(payload.size() + kTagSize);
    int len = 0;
    const bool done =
        context != nullptr &&
        EVP_EncryptInit_ex(context.get(), EVP_aes_256_gcm(), nullptr, nullptr, nullptr) == 1 &&
        EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_GCM_SET_IVLEN, static_cast<int>(nonce.size()),
                            nullptr) == 1 &&
        EVP_EncryptInit_ex(context.get(), nullptr, nullptr, key.data(), nonce.data()) == 1 &&
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

// Output beyond the payload is ignored here: gcm.tag-in-finish judges it.
bool bringsBack(const Run& decryption, const Bytes& payload) {
    const Bytes output = decryption.all();
    return decryption.done() && output.size() >= payload.size() &&
           std::equal(payload.begin(), payload.end(), output.begin());
}

bool getsThrough(Context& context, size_t size) {
    context.caller.startCase();
    const Sealed sealed = seal(context, size);
    return bringsBack(sealed.decryption, samplePayload(size));
}

std::string storeSize(size_t bytes) {
    constexpr size_t kTypicalObject = 60;  // an alias, a creator and a short list
    return std::to_string(bytes) + " bytes (" + std::to_string(bytes / kTypicalObject) +
           " objects of 60 bytes)";
}

}  // namespace

Outcome checkNonceLength(Context& context) {
    if (context.key.empty()) {
        return noKey();
    }
    const Answer answer = context.caller.begin(KeyPurpose::ENCRYPT, context.key, gcmParams());
    if (!answer.ok()) {
        return broken(context, "no encryption begins");
    }
    const auto count = std::count_if(answer.params.begin(), answer.params.end(),
                                     [](const auto& param) { return param.tag == Tag::NONCE; });
    if (count != 1) {
        return broken(context, std::to_string(count) + " nonces");
    }
    const size_t size = findParam(answer.params, Tag::NONCE)->blob.size();
    if (size != kNonceSize) {
        return broken(context, "a nonce of " + std::to_string(size) + " bytes");
    }
    return holds(context.caller.sent(), context.caller.answered());
}

Outcome checkNonceFresh(Context& context) {
    if (context.key.empty()) {
        return noKey();
    }
    constexpr size_t kDraws = 300;  // for each key; a counter of 8 bits repeats within them
    const Answer other = context.caller.generateKey(databaseKeyParams());
    const Bytes keys[] = {context.key, other.ok() ? other.bytes : context.key};
    std::set<Bytes> drawn[2];
    size_t draws = 0;
    for (; draws < 2 * kDraws && !context.caller.outOfTime(); ++draws) {
        const size_t which = draws % 2;
        context.caller.startCase();
        const Answer answer = context.caller.begin(KeyPurpose::ENCRYPT, keys[which], gcmParams());
        const KeyParameter* nonce = findParam(answer.params, Tag::NONCE);
        if (!answer.ok() || nonce == nullptr) {
            return notTried("an encryption brought no nonce: " + context.caller.answered() +
                            ": see gcm.nonce-length");
        }
        // Equal blobs hold one key, so their nonces count together.
        std::set<Bytes>& seen = drawn[keys[0] == keys[1] ? 0 : which];
        if (!seen.insert(nonce->blob).second) {
            return broken(context, "this nonce came before, in " + std::to_string(draws) +
                                       " draws with two keys");
        }
        context.caller.abort(answer.handle);
    }
    return holds(std::to_string(draws) + " encryptions begun, with two keys in turn",
                 "no nonce came twice");
}

Outcome checkOutputInUpdate(Context& context) {
    if (context.key.empty()) {
        return noKey();
    }
    constexpr size_t kSizes[] = {100, 17, 16, 15, 1};
    for (const size_t size : kSizes) {
        context.caller.startCase();
        const Sealed sealed = seal(context, size);
        if (const Run* failed = failedRun(sealed)) {
            return noOperation(*failed);
        }
        for (const Run* run : {&sealed.encryption, &sealed.decryption}) {
            if (run->from_updates.size() != size) {
                return broken(context,
                              std::string(run == &sealed.encryption ? "encrypting" : "decrypting") +
                                  " " + std::to_string(size) + " bytes, update puts out " +
                                  std::to_string(run->from_updates.size()));
            }
        }
    }
    return holds("100, 17, 16, 15 and 1 bytes, encrypted and decrypted",
                 "as many bytes from update");
}

Outcome checkTagInFinish(Context& context) {
    if (context.key.empty()) {
        return noKey();
    }
    constexpr size_t kSizes[] = {100, 32, 17, 16, 15, 1};
    for (const size_t size : kSizes) {
        context.caller.startCase();
        const Sealed sealed = seal(context, size);
        if (const Run* failed = failedRun(sealed)) {
            return noOperation(*failed);
        }
        const size_t tag = sealed.encryption.from_finish.size();
        if (tag != kTagSize) {
            return broken(context, "encrypting " + std::to_string(size) +
                                       " bytes, finish puts out " + std::to_string(tag));
        }
        if (sealed.decryption.from_finish.size() == kTagSize) {
            return broken(context, "decrypting " + std::to_string(size) +
                                       " bytes, finish puts out 16, as an encryption does");
        }
    }
    return holds("100, 32, 17, 16, 15 and 1 bytes, encrypted and decrypted",
                 "16 bytes from finish when encrypting, another number when decrypting");
}

Outcome checkTagChecked(Context& context) {
    if (context.key.empty()) {
        return noKey();
    }
    const Sealed sealed = seal(context, kPayload);
    if (const Run* failed = failedRun(sealed)) {
        return noOperation(*failed);
    }
    const Bytes& nonce = sealed.encryption.nonce;
    const Bytes& output = sealed.output;
    if (output.size() <= kPayload || nonce.empty()) {
        return notTried("there is no tag, or no nonce, to alter: see gcm.correct");
    }
    const struct {
        const char* what;
        Bytes nonce;
        Bytes input;
    } kAltered[] = {
        {"the tag's first byte", nonce, altered(output, kPayload)},
        {"the tag's last byte", nonce, altered(output, output.size() - 1)},
        {"the ciphertext's first byte", nonce, altered(output, 0)},
        {"the ciphertext's last byte", nonce, altered(output, kPayload - 1)},
        {"the nonce's first byte", altered(nonce, 0), output},
    };
    for (const auto& change : kAltered) {
        context.caller.startCase();
        if (!refusedInFinish(decrypt(context.caller, context.key, change.nonce, change.input,
                                     sampleAssociatedData()))) {
            return broken(context, std::string(change.what) + " altered is not refused with -30");
        }
    }
    return holds("decryptions with tag, ciphertext and nonce altered", "-30 from finish to each");
}

Outcome checkAadChecked(Context& context) {
    if (context.key.empty()) {
        return noKey();
    }
    const Sealed sealed = seal(context, kPayload);
    if (const Run* failed = failedRun(sealed)) {
        return noOperation(*failed);
    }
    const Bytes other = altered(sampleAssociatedData(), 6);
    for (const Bytes& associated_data : {other, Bytes()}) {
        context.caller.startCase();
        if (!refusedInFinish(decrypt(context.caller, context.key, sealed.encryption.nonce,
                                     sealed.output, associated_data))) {
            return broken(context, (associated_data.empty() ? "no" : "other") +
                                       std::string(" associated data is not refused with -30"));
        }
    }
    return holds("decryptions with other associated data, and without", "-30 from finish to each");
}

Outcome checkCorrect(Context& context) {
    if (context.key.empty()) {
        return noKey();
    }
    const Bytes associated_data = sampleAssociatedData();
    std::string compared = "importKey refuses, so the key cannot be known";
    const Bytes known_key = randomBytes(32);
    const Answer imported = context.caller.importKey(databaseKeyParams(), known_key);
    if (imported.ok()) {
        const Bytes payload = samplePayload(kPayload);
        const Run run = encrypt(context.caller, imported.bytes, payload, associated_data);
        if (!run.done() ||
            !agree(run.all(), sealWithLibcrypto(known_key, run.nonce, payload, associated_data),
                   kPayload)) {
            return broken(context, "not what AES-256-GCM makes of an imported key");
        }
        compared = "with an imported key, what libcrypto makes";
    }

    const struct {
        size_t size, encrypt_cut, decrypt_cut;
    } kRounds[] = {{1, 1, 1}, {kPayload, 33, 7}, {kPayload, SIZE_MAX, 50}, {2000, 999, SIZE_MAX}};
    std::vector<Run> runs;
    for (const auto& round : kRounds) {
        context.caller.startCase();
        const Bytes payload = samplePayload(round.size);
        runs.push_back(
            encrypt(context.caller, context.key, payload, associated_data, round.encrypt_cut));
        if (!runs.back().done()) {
            return broken(context, "an encryption fails");
        }
        const Bytes output = runs.back().all();
        if (round.size > 1 && std::search(output.begin(), output.end(), payload.begin(),
                                          payload.begin() + 16) != output.end()) {
            return broken(context, "the payload is not encrypted");
        }
    }
    for (size_t i = runs.size(); i-- > 0;) {
        context.caller.startCase();
        const Run run = decrypt(context.caller, context.key, runs[i].nonce, runs[i].all(),
                                associated_data, kRounds[i].decrypt_cut);
        if (!bringsBack(run, samplePayload(kRounds[i].size))) {
            return broken(context, "what was encrypted does not decrypt");
        }
    }
    return holds(
        "importKey; four encryptions, then their decryptions from the last to the first, "
        "cut otherwise",
        compared + "; the payloads came back");
}

Outcome checkSizes(Context& context) {
    if (context.key.empty()) {
        return noKey();
    }
    if (context.options.largest_store == 0) {
        return notTried("switched off");
    }
    std::vector<size_t> sizes = {1, 15, 16, 17, 4095, 4096};
    for (size_t size = 65536; size < context.options.largest_store; size *= 2) {
        sizes.push_back(size);
    }
    sizes.push_back(context.options.largest_store);
    size_t good = 0;
    for (const size_t size : sizes) {
        if (size > context.options.largest_store) {
            continue;
        }
        if (getsThrough(context, size)) {
            good = size;
            continue;
        }
        const std::string sent = context.caller.sent();
        const std::string answered = context.caller.answered();
        // Searches for the limit between the two sizes.
        size_t bad = size;
        while (bad - good > 1 && !context.caller.outOfTime()) {
            const size_t middle = good + (bad - good) / 2;
            (getsThrough(context, middle) ? good : bad) = middle;
        }
        if (context.caller.outOfTime()) {
            return notTried("too slow: in the time there was, " + storeSize(good) + " got through");
        }
        return {Verdict::kBroken, sent,
                answered + ": " + std::to_string(size) +
                    " bytes do not get through; the largest payload that does is " +
                    storeSize(good)};
    }
    return holds("payloads from 1 byte to " + std::to_string(good) + ", encrypted and decrypted",
                 "all got through; the largest is " + storeSize(good));
}

}  // namespace keymaster_check
