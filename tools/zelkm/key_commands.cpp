// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "key_commands.h"

#include <openssl/rand.h>

#include <array>
#include <filesystem>
#include <iostream>
#include <vector>

#include "bytes.h"
#include "failure.h"
#include "files.h"
#include "fresh_file.h"
#include "pem.h"
#include "result_text.h"
#include "store_values.h"

namespace zelkm_tool {
namespace {

using android::hardware::hidl_vec;
using namespace android::hardware::keymaster::V4_0;

constexpr size_t kChallengeLen = 32;
constexpr char kApplicationId[] = "zelkm";
constexpr uint64_t kRsaExponent = 65537;
constexpr char kNewKeyFile[] = "key.keyblob";

template <typename Value>
KeyParameter integerParam(Tag tag, Value value) {
    KeyParameter param = {};
    param.tag = tag;
    param.f.integer = static_cast<uint32_t>(value);
    return param;
}

KeyParameter bytesParam(Tag tag, const std::string& bytes) {
    KeyParameter param = {};
    param.tag = tag;
    param.blob = toVec(bytes);
    return param;
}

std::vector<KeyParameter> newKeyParams(bool rsa) {
    KeyParameter no_auth = {};
    no_auth.tag = Tag::NO_AUTH_REQUIRED;
    no_auth.f.boolValue = true;
    std::vector<KeyParameter> params = {
        integerParam(Tag::ALGORITHM, rsa ? Algorithm::RSA : Algorithm::EC),
        integerParam(Tag::KEY_SIZE, rsa ? 2048 : 256),
        integerParam(Tag::PURPOSE, KeyPurpose::SIGN),
        integerParam(Tag::DIGEST, Digest::SHA_2_256),
        no_auth,
    };
    if (rsa) {
        KeyParameter exponent = {};
        exponent.tag = Tag::RSA_PUBLIC_EXPONENT;
        exponent.f.longInteger = kRsaExponent;
        params.push_back(exponent);
        params.push_back(integerParam(Tag::PADDING, PaddingMode::RSA_PKCS1_1_5_SIGN));
    }
    return params;
}

// Checks a keymaster call: first the transport's status, then the keymaster's answer.
void checkCall(const android::hardware::Return<void>& transport, ErrorCode answer,
               const std::string& what) {
    if (!transport.isOk()) {
        throw Refused(what + ": " + transport.description());
    }
    check(static_cast<int>(answer), what);
}

hidl_vec<uint8_t> generateKey(Session& session, bool rsa) {
    ErrorCode answer = ErrorCode::UNKNOWN_ERROR;
    hidl_vec<uint8_t> blob;
    const auto transport = session.keymaster().generateKey(
        newKeyParams(rsa),
        [&](ErrorCode error, const hidl_vec<uint8_t>& key_blob, const KeyCharacteristics&) {
            answer = error;
            blob = key_blob;
        });
    checkCall(transport, answer, "generateKey");
    return blob;
}

std::optional<std::string> readKey(const KeyOptions& options) {
    return options.file ? std::optional(readInput(*options.file)) : std::nullopt;
}

std::string encoded(const hidl_vec<uint8_t>& der, const char* label, bool keep_der) {
    return keep_der ? toBytes(der) : toPem(label, toBytes(der));
}

}  // namespace

void makeCsr(const SessionOptions& session_options, const CsrOptions& options) {
    if (options.out == "-" && !options.key.file) {
        throw WrongUsage("--out -: there is no place for the new key; give a key with --key");
    }
    const std::string new_key = options.out + ".keyblob";
    const std::optional<std::string> existing = readKey(options.key);
    // The outputs are opened first: the session acts as the store's owner, in another directory.
    FreshFiles outputs;
    outputs.add(options.out, Access::kEverybody);
    if (!existing) {
        outputs.add(new_key, Access::kOwnerOnly, FreshFiles::Existing::kRefuse);
    }
    hidl_vec<uint8_t> key;
    hidl_vec<uint8_t> request;
    {
        Session session(session_options, Session::Use::kKeymasterOnly);
        key = existing ? toVec(*existing) : generateKey(session, options.key.rsa);
        check(session.operation().generateCSR(key, {}, request), "generateCSR");
    }
    if (request.size() == 0) {
        throw Refused("generateCSR: the keymaster did not return a single request");
    }
    std::vector<std::string> contents = {encoded(request, "CERTIFICATE REQUEST", options.der)};
    if (!existing) {
        contents.push_back(toBytes(key));
    }
    outputs.commit(contents);
    if (!existing) {
        note(session_options, "the blob of the new key is in " + new_key);
    }
}

void attestKey(const SessionOptions& session_options, const AttestOptions& options) {
    const std::filesystem::path out_dir = options.out_dir;
    const std::optional<std::string> existing = readKey(options.key);
    std::string challenge(kChallengeLen, '\0');
    if (options.challenge) {
        challenge = *options.challenge;
    } else if (RAND_bytes(reinterpret_cast<unsigned char*>(challenge.data()), kChallengeLen) != 1) {
        throw Refused("no random bytes for a challenge");
    }
    std::filesystem::create_directories(out_dir);
    const Descriptor folder = openFolder(out_dir);
    FreshFiles outputs;
    std::vector<std::string> contents;
    if (!existing) {
        outputs.addIn(folder, kNewKeyFile, out_dir / kNewKeyFile, Access::kOwnerOnly,
                      FreshFiles::Existing::kRefuse);
    }

    hidl_vec<hidl_vec<uint8_t>> chain;
    {
        Session session(session_options, Session::Use::kKeymasterOnly);
        const hidl_vec<uint8_t> key =
            existing ? toVec(*existing) : generateKey(session, options.key.rsa);
        if (!existing) {
            contents.push_back(toBytes(key));
        }
        ErrorCode answer = ErrorCode::UNKNOWN_ERROR;
        const auto transport = session.keymaster().attestKey(
            key,
            {bytesParam(Tag::ATTESTATION_CHALLENGE, challenge),
             bytesParam(Tag::ATTESTATION_APPLICATION_ID, kApplicationId)},
            [&](ErrorCode error, const hidl_vec<hidl_vec<uint8_t>>& certificates) {
                answer = error;
                chain = certificates;
            });
        checkCall(transport, answer, "attestKey");
    }
    std::cout << "challenge " << hex(challenge) << '\n';
    for (size_t i = 0; i < chain.size(); ++i) {
        const std::string name = "cert-" + std::to_string(i + 1) + (options.der ? ".der" : ".pem");
        outputs.addIn(folder, name, out_dir / name, Access::kEverybody);
        contents.push_back(encoded(chain[i], "CERTIFICATE", options.der));
        std::cout << escape((out_dir / name).string()) << '\n';
    }
    outputs.commit(contents);
    if (!existing) {
        note(session_options, "the blob of the new key is in " + (out_dir / kNewKeyFile).string());
    }
}

}  // namespace zelkm_tool
