// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The commands 'csr' and 'attest': certificate requests and attestation chains for keys of the
// keymaster. The blob of a new key is written beside the result. It never replaces an existing
// file.

#include <openssl/pem.h>
#include <openssl/rand.h>

#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <vector>

#include "bytes.h"
#include "command_line.h"
#include "failure.h"
#include "files.h"
#include "result_text.h"
#include "session.h"
#include "store_values.h"

namespace zelkm_tool {
namespace {

using android::hardware::hidl_vec;
using namespace android::hardware::keymaster::V4_0;

constexpr size_t kChallengeLen = 32;
constexpr char kApplicationId[] = "zelkm";
constexpr uint64_t kRsaExponent = 65537;
constexpr char kNewKeyFile[] = "key.keyblob";

struct KeyOptions {
    std::optional<std::string> key;        // a file with a blob; default: a new key
    bool rsa = false;                      // a new key is RSA-2048 instead of EC P-256
    bool der = false;                      // not PEM
    std::string out;                       // a file of csr, a folder of attest
    std::optional<std::string> challenge;  // default: random bytes
};

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

// The blob of the key to use. A new one is also given to the output `new_key`.
hidl_vec<uint8_t> takeKey(Session& session, const KeyOptions& options, const std::string& existing,
                          std::string* new_key) {
    if (new_key == nullptr) {
        return toVec(existing);
    }
    ErrorCode answer = ErrorCode::UNKNOWN_ERROR;
    hidl_vec<uint8_t> blob;
    const auto transport = session.keymaster().generateKey(
        newKeyParams(options.rsa),
        [&](ErrorCode error, const hidl_vec<uint8_t>& key_blob, const KeyCharacteristics&) {
            answer = error;
            blob = key_blob;
        });
    checkCall(transport, answer, "generateKey");
    *new_key = toBytes(blob);
    return blob;
}

// The DER bytes, or PEM armour (RFC 7468) around them with this label.
std::string encoded(const hidl_vec<uint8_t>& der, const char* label, const KeyOptions& options) {
    if (options.der) {
        return toBytes(der);
    }
    const std::unique_ptr<BIO, decltype(&BIO_free)> bio(BIO_new(BIO_s_mem()), BIO_free);
    if (PEM_write_bio(bio.get(), label, "", der.data(), static_cast<long>(der.size())) <= 0) {
        throw Refused("PEM encoding failed");
    }
    char* text = nullptr;
    const long len = BIO_get_mem_data(bio.get(), &text);
    return {text, static_cast<size_t>(len)};
}

void finish(const SessionOptions& session_options, FreshFiles* outputs, const std::string* new_key,
            const std::string& new_key_file) {
    outputs->commit();
    if (new_key != nullptr) {
        note(session_options, "the blob of the new key is in " + new_key_file);
    }
}

void makeCsr(const SessionOptions& session_options, const KeyOptions& options) {
    if (options.out == "-" && !options.key) {
        throw WrongUsage("--out -: there is no place for the new key; give a key with --key");
    }
    const std::string new_key_file = options.out + ".keyblob";
    const std::string existing = options.key ? readInput(*options.key) : "";
    // The outputs are opened first: the session acts as the store's owner, in another directory.
    FreshFiles outputs;
    std::string& output = outputs.add(options.out, Access::kEverybody);
    std::string* const new_key =
        options.key ? nullptr
                    : &outputs.add(new_key_file, Access::kOwnerOnly, FreshFiles::Existing::kRefuse);
    hidl_vec<uint8_t> request;
    {
        Session session(session_options, Session::Use::kKeymasterOnly);
        const hidl_vec<uint8_t> key = takeKey(session, options, existing, new_key);
        check(session.operation().generateCSR(key, {}, request), "generateCSR");
    }
    if (request.size() == 0) {
        throw Refused("generateCSR: the keymaster did not return a single request");
    }
    output = encoded(request, "CERTIFICATE REQUEST", options);
    finish(session_options, &outputs, new_key, new_key_file);
}

void attestKey(const SessionOptions& session_options, const KeyOptions& options) {
    const std::filesystem::path out_dir = options.out;
    const std::string existing = options.key ? readInput(*options.key) : "";
    std::string challenge = options.challenge.value_or(std::string(kChallengeLen, '\0'));
    if (!options.challenge &&
        RAND_bytes(reinterpret_cast<unsigned char*>(challenge.data()), kChallengeLen) != 1) {
        throw Refused("no random bytes for a challenge");
    }
    std::filesystem::create_directories(out_dir);
    const Descriptor folder = openFolder(out_dir);
    FreshFiles outputs;
    const std::string new_key_file = out_dir / kNewKeyFile;
    std::string* const new_key =
        options.key ? nullptr
                    : &outputs.addIn(folder, kNewKeyFile, new_key_file, Access::kOwnerOnly,
                                     FreshFiles::Existing::kRefuse);
    hidl_vec<hidl_vec<uint8_t>> chain;
    {
        Session session(session_options, Session::Use::kKeymasterOnly);
        const hidl_vec<uint8_t> key = takeKey(session, options, existing, new_key);
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
        outputs.addIn(folder, name, out_dir / name, Access::kEverybody) =
            encoded(chain[i], "CERTIFICATE", options);
        std::cout << escape((out_dir / name).string()) << '\n';
    }
    finish(session_options, &outputs, new_key, new_key_file);
}

void defineKeyOptions(CLI::App& command, KeyOptions& options) {
    command.add_flag("--der", options.der, "Write DER instead of PEM");
    CLI::Option* key =
        addOption(command, "--key", options.key, "FILE", "Key blob to use; default: a new key");
    command.add_flag("--rsa", options.rsa, "Make an RSA-2048 key; default: EC P-256")
        ->excludes(key);
}

}  // namespace

void defineCsr(CLI::App& app, const SessionOptions& session) {
    auto options = std::make_shared<KeyOptions>();
    CLI::App& command = *app.add_subcommand("csr", "Make a certificate signing request");
    addOption(command, "--out", options->out, "FILE", "Output file; - is standard output")
        ->required();
    defineKeyOptions(command, *options);
    command.footer(
        "The blob of a new key is written to FILE.keyblob, which must not exist yet.\n"
        "\n"
        "  zelkm --dir store csr --out request.pem\n"
        "  openssl req -in request.pem -verify -noout");
    command.callback([&session, options] { makeCsr(session, *options); });
}

void defineAttest(CLI::App& app, const SessionOptions& session) {
    auto options = std::make_shared<KeyOptions>();
    CLI::App& command = *app.add_subcommand("attest", "Write the attestation chain of a key");
    addOption(command, "--out-dir", options->out, "DIR", "Output directory, created if missing")
        ->required();
    addOption(command, "--challenge", options->challenge, "TEXT",
              "Challenge to attest; default: random");
    defineKeyOptions(command, *options);
    command.footer(
        "Writes cert-1 (the key's), cert-2, ... up to the root, and shows the challenge in\n"
        "hexadecimal. The blob of a new key is written to key.keyblob there, which\n"
        "must not exist yet.\n"
        "\n"
        "  zelkm --dir store attest --out-dir chain\n"
        "  zelkm verify-chain chain/cert-1.pem chain/cert-2.pem chain/cert-3.pem");
    command.callback([&session, options] { attestKey(session, *options); });
}

}  // namespace zelkm_tool
