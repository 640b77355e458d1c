// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The commands that use the keymaster without a store. 'csr' and 'attest' make certificate requests
// and attestation chains for its keys; the blob of a new key is written beside the result, and
// never replaces an existing file. 'wrap' and 'unwrap' convert key material with the password
// hardware key: 'wrap' makes a tag, and 'unwrap' converts the material back, if inputs and tag are
// the same.

#include <keymaster_check/names.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <zelkeymaster_vendor_tags.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "bytes.h"
#include "command_line.h"
#include "failure.h"
#include "files.h"
#include "session.h"

namespace zelkm_tool {
namespace {

using android::hardware::hidl_vec;
using namespace android::hardware::keymaster::V4_0;
using keymaster_check::Call;
using keymaster_check::param;

constexpr size_t kChallengeLen = 32;
constexpr std::string_view kApplicationId = "zelkm";
constexpr uint64_t kRsaExponent = 65537;
constexpr char kNewKeyFile[] = "key.keyblob";

struct KeyOptions {
    std::optional<std::string> key;        // a file with a blob; default: a new key
    bool rsa = false;                      // a new key is RSA-2048 instead of EC P-256
    bool der = false;                      // not PEM
    std::string out;                       // a file of csr, a folder of attest
    std::optional<std::string> challenge;  // default: random bytes
};

std::vector<KeyParameter> newKeyParams(bool rsa) {
    std::vector<KeyParameter> params = {
        param(Tag::ALGORITHM, rsa ? Algorithm::RSA : Algorithm::EC),
        param(Tag::KEY_SIZE, rsa ? 2048 : 256),
        param(Tag::PURPOSE, KeyPurpose::SIGN),
        param(Tag::DIGEST, Digest::SHA_2_256),
        param(Tag::NO_AUTH_REQUIRED, true),
    };
    if (rsa) {
        params.push_back(param(Tag::RSA_PUBLIC_EXPONENT, kRsaExponent));
        params.push_back(param(Tag::PADDING, PaddingMode::RSA_PKCS1_1_5_SIGN));
    }
    return params;
}

// Makes a keymaster call, which must succeed.
keymaster_check::Answer checkedCall(Session& session, const keymaster_check::CallRecord& record) {
    const keymaster_check::Answer answer = keymaster_check::call(session.keymaster(), record);
    const std::string name = keymaster_check::callName(record.call);
    if (!answer.transport) {
        throw Refused(name + ": " + answer.failure);
    }
    check(static_cast<int>(answer.error), name);
    return answer;
}

// The blob of the key to use. A new one is also given to the output `new_key`.
hidl_vec<uint8_t> takeKey(Session& session, const KeyOptions& options, const std::string& existing,
                          std::string* new_key) {
    if (new_key == nullptr) {
        return toVec(existing);
    }
    const hidl_vec<uint8_t> blob =
        checkedCall(session, {Call::kGenerateKey, {}, newKeyParams(options.rsa)}).output;
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
        options.key ? nullptr : &outputs.add(new_key_file, Access::kNewKey);
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
        options.key ? nullptr : &outputs.addIn(folder, kNewKeyFile, new_key_file, Access::kNewKey);
    std::vector<hidl_vec<uint8_t>> chain;
    {
        Session session(session_options, Session::Use::kKeymasterOnly);
        const hidl_vec<uint8_t> key = takeKey(session, options, existing, new_key);
        const std::vector<KeyParameter> params = {
            param(Tag::ATTESTATION_CHALLENGE, challenge),
            param(Tag::ATTESTATION_APPLICATION_ID, kApplicationId)};
        chain = checkedCall(session, {Call::kAttestKey, key, params}).chain;
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

// All members name files. "-" is standard input or output.
struct PasswordOptions {
    std::array<std::string, 4> inputs;
    std::string material;
    std::string out;
    std::string tag;                 // written by wrap, read by unwrap
    std::optional<std::string> rot;  // receives the hardware's value
    bool wraps = false;
};

void requireOneStream(const std::vector<std::string>& paths, const char* stream) {
    if (std::count(paths.begin(), paths.end(), "-") > 1) {
        throw WrongUsage(std::string("only one file can be - (") + stream + ")");
    }
}

// Refuses an output path that is also an input, or another output.
void requireDistinct(const std::vector<std::string>& read,
                     const std::vector<std::string>& written) {
    std::vector<std::string> taken;
    const auto takes = [&](const std::string& path) {
        if (path == "-") {
            return true;
        }
        taken.push_back(std::filesystem::weakly_canonical(std::filesystem::absolute(path)));
        return std::count(taken.begin(), taken.end(), taken.back()) == 1;
    };
    std::for_each(read.begin(), read.end(), takes);
    for (const std::string& path : written) {
        if (!takes(path)) {
            throw WrongUsage(path + " would be written, but is also named for something else");
        }
    }
}

void convert(const SessionOptions& session_options, const PasswordOptions& options) {
    const bool wraps = options.wraps;
    std::vector<std::string> read(options.inputs.begin(), options.inputs.end());
    std::vector<std::string> written = {options.out};
    read.push_back(options.material);
    (wraps ? written : read).push_back(options.tag);
    if (options.rot) {
        written.push_back(*options.rot);
    }
    requireOneStream(read, "standard input");
    requireOneStream(written, "standard output");
    requireDistinct(read, written);

    std::vector<hidl_vec<uint8_t>> in;
    for (const std::string& path : read) {
        in.push_back(toVec(readInput(path)));
    }
    hidl_vec<uint8_t> tag = wraps ? hidl_vec<uint8_t>() : in.back();
    // The outputs are opened first, so that an output that cannot be written ends the command
    // before its work.
    FreshFiles outputs;
    std::vector<std::string*> contents;
    for (const std::string& path : written) {
        contents.push_back(&outputs.add(path, Access::kOwnerOnly));
    }

    hidl_vec<uint8_t> converted;
    hidl_vec<uint8_t> rot;
    {
        Session session(session_options, Session::Use::kKeymasterOnly);
        check(session.operation().encryptWithPasswordHWKey(
                  in[0], in[1], in[4], converted, in[2], in[3], tag, rot,
                  wraps ? PW_ENCRYPT_TYPE_TO_KEY : PW_ENCRYPT_TYPE_TO_ENCRYPTED_KEY),
              wraps ? "wrap" : "unwrap");
    }
    *contents[0] = toBytes(converted);
    if (wraps) {
        *contents[1] = toBytes(tag);
    }
    if (options.rot) {
        *contents.back() = toBytes(rot);
    }
    outputs.commit();
}

}  // namespace

void defineCsr(CLI::App& app, const SessionOptions& session) {
    const auto [command, options] =
        addCommand(app, session, "csr", "Make a certificate signing request", makeCsr);
    addOption(command, "--out", options.out, "FILE", "Output file; - is standard output")
        ->required();
    defineKeyOptions(command, options);
    command.footer(R"(The blob of a new key is written to FILE.keyblob, which must not exist yet.

  zelkm --dir store csr --out request.pem
  openssl req -in request.pem -verify -noout)");
}

void defineAttest(CLI::App& app, const SessionOptions& session) {
    const auto [command, options] =
        addCommand(app, session, "attest", "Write the attestation chain of a key", attestKey);
    addOption(command, "--out-dir", options.out, "DIR", "Output directory, created if missing")
        ->required();
    addOption(command, "--challenge", options.challenge, "TEXT",
              "Challenge to attest; default: random");
    defineKeyOptions(command, options);
    command.footer(R"(Writes cert-1 (the key's), cert-2, ... up to the root, and shows the challenge
in hexadecimal. The blob of a new key is written to key.keyblob there, which
must not exist yet.

  zelkm --dir store attest --out-dir chain
  zelkm verify-chain chain/cert-1.pem chain/cert-2.pem chain/cert-3.pem)");
}

void definePassword(CLI::App& app, const SessionOptions& session) {
    for (const bool wraps : {true, false}) {
        const auto [command, options] =
            addCommand(app, session, wraps ? "wrap" : "unwrap",
                       wraps ? "Convert key material with the password hardware key"
                             : "Convert wrapped key material back",
                       convert);
        options.wraps = wraps;
        const auto addFile = [&app = command](const std::string& name, auto& value,
                                              const std::string& what) {
            return addOption(app, name, value, "FILE", what);
        };
        for (size_t i = 0; i < options.inputs.size(); ++i) {
            const std::string number = std::to_string(i + 1);
            addFile("--in" + number, options.inputs[i], "Input " + number)->required();
        }
        addFile("--material", options.material, "Material to convert")->required();
        addFile("--tag", options.tag, wraps ? "Output file for the tag" : "The tag")->required();
        addFile("--out", options.out, "Output file for the converted material")->required();
        addFile("--rot", options.rot, "Output file for the hardware's rot value");
        command.footer(
            R"(One input can be - (standard input), one output - (standard output). No input
may be empty. Outputs are created anew, readable by their owner only, all or
none; links are not followed, and no input is overwritten.

  zelkm wrap   --in1 a --in2 b --in3 c --in4 d --material key --tag t --out w
  zelkm unwrap --in1 a --in2 b --in3 c --in4 d --material w --tag t --out key)");
    }
}

}  // namespace zelkm_tool
