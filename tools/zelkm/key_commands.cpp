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
#include "pem.h"
#include "result_text.h"

namespace zelkm_tool {
namespace {

using android::hardware::hidl_vec;
using namespace android::hardware::keymaster::V4_0;

constexpr size_t kChallengeLen = 32;
constexpr char kApplicationId[] = "zelkm";
constexpr uint64_t kRsaExponent = 65537;

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

// The key that the options name. Without one, a new key, whose blob is written to `new_key_path`.
hidl_vec<uint8_t> keyBlob(Session& session, const KeyOptions& options,
                          const std::optional<std::string>& existing_blob,
                          const std::string& new_key_path) {
    if (existing_blob) {
        return toVec(*existing_blob);
    }
    if (std::filesystem::exists(new_key_path)) {
        throw Refused(new_key_path + " holds a key already: use it with --key, or move it away");
    }
    const hidl_vec<uint8_t> blob = generateKey(session, options.rsa);
    writeOutput(new_key_path, toBytes(blob), Access::kOwnerOnly);
    note(session.options(), "the blob of the new key is in " + new_key_path);
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
        throw WrongUsage("--out -: the new key needs a place, too; name a key with --key");
    }
    // The session changes the working directory, so the paths are made absolute first.
    const std::string out =
        options.out == "-" ? options.out : std::filesystem::absolute(options.out).string();
    const std::optional<std::string> existing = readKey(options.key);

    Session session(session_options, Session::Use::kKeymasterOnly);
    const hidl_vec<uint8_t> key = keyBlob(session, options.key, existing, out + ".keyblob");
    hidl_vec<uint8_t> request;
    check(session.operation().generateCSR(key, {}, request), "generateCSR");
    if (request.size() == 0) {
        throw Refused("generateCSR: the keymaster's answer is no single request");
    }
    writeOutput(out, encoded(request, "CERTIFICATE REQUEST", options.der), Access::kEverybody);
}

void attestKey(const SessionOptions& session_options, const AttestOptions& options) {
    const std::filesystem::path out_dir = std::filesystem::absolute(options.out_dir);
    const std::optional<std::string> existing = readKey(options.key);
    std::string challenge(kChallengeLen, '\0');
    if (options.challenge) {
        challenge = *options.challenge;
    } else if (RAND_bytes(reinterpret_cast<unsigned char*>(challenge.data()), kChallengeLen) != 1) {
        throw Refused("no random bytes for a challenge");
    }

    Session session(session_options, Session::Use::kKeymasterOnly);
    std::filesystem::create_directories(out_dir);
    const hidl_vec<uint8_t> key =
        keyBlob(session, options.key, existing, (out_dir / "key.keyblob").string());
    ErrorCode answer = ErrorCode::UNKNOWN_ERROR;
    hidl_vec<hidl_vec<uint8_t>> chain;
    const auto transport = session.keymaster().attestKey(
        key,
        {bytesParam(Tag::ATTESTATION_CHALLENGE, challenge),
         bytesParam(Tag::ATTESTATION_APPLICATION_ID, kApplicationId)},
        [&](ErrorCode error, const hidl_vec<hidl_vec<uint8_t>>& certificates) {
            answer = error;
            chain = certificates;
        });
    checkCall(transport, answer, "attestKey");
    std::cout << "challenge " << hex(challenge) << '\n';
    for (size_t i = 0; i < chain.size(); ++i) {
        const std::string name = "cert-" + std::to_string(i + 1) + (options.der ? ".der" : ".pem");
        writeOutput((out_dir / name).string(), encoded(chain[i], "CERTIFICATE", options.der),
                    Access::kEverybody);
        std::cout << (std::filesystem::path(options.out_dir) / name).string() << '\n';
    }
}

}  // namespace zelkm_tool
