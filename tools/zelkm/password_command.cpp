// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Conversion of key material under the password hardware key. See password_command.h.

#include "password_command.h"

#include <zelkeymaster_vendor_tags.h>

#include <algorithm>
#include <filesystem>
#include <vector>

#include "bytes.h"
#include "failure.h"
#include "files.h"
#include "result_text.h"

namespace zelkm_tool {
namespace {

using android::hardware::hidl_vec;

void requireOneStream(const std::vector<std::string>& paths, const char* stream) {
    if (std::count(paths.begin(), paths.end(), "-") > 1) {
        throw WrongUsage(std::string("only one file can be - (") + stream + ")");
    }
}

// The session changes directory.
std::string absolute(const std::string& path) {
    return path == "-" ? path : std::filesystem::absolute(path).string();
}

void convert(const SessionOptions& session_options, const PasswordOptions& options,
             PW_ENCRYPT_TYPE type) {
    const bool wraps = type == PW_ENCRYPT_TYPE_TO_KEY;
    std::vector<std::string> read(options.inputs.begin(), options.inputs.end());
    std::vector<std::string> written = {options.out, options.rot.value_or("")};
    read.push_back(options.material);
    (wraps ? written : read).push_back(options.tag);
    requireOneStream(read, "standard input");
    requireOneStream(written, "standard output");

    std::array<hidl_vec<uint8_t>, 4> in;
    std::transform(options.inputs.begin(), options.inputs.end(), in.begin(),
                   [](const std::string& path) { return toVec(readInput(path)); });
    const hidl_vec<uint8_t> material = toVec(readInput(options.material));
    hidl_vec<uint8_t> tag = wraps ? hidl_vec<uint8_t>() : toVec(readInput(options.tag));
    const std::string out = absolute(options.out);
    const std::string tag_out = absolute(options.tag);
    const std::string rot_out = absolute(options.rot.value_or("-"));

    Session session(session_options, Session::Use::kKeymasterOnly);
    hidl_vec<uint8_t> converted;
    hidl_vec<uint8_t> rot;
    check(session.operation().encryptWithPasswordHWKey(in[0], in[1], material, converted, in[2],
                                                       in[3], tag, rot, type),
          wraps ? "wrap" : "unwrap");
    writeOutput(out, toBytes(converted), Access::kOwnerOnly);
    if (wraps) {
        writeOutput(tag_out, toBytes(tag), Access::kOwnerOnly);
    }
    if (options.rot) {
        writeOutput(rot_out, toBytes(rot), Access::kOwnerOnly);
    }
}

}  // namespace

void wrap(const SessionOptions& session, const PasswordOptions& options) {
    convert(session, options, PW_ENCRYPT_TYPE_TO_KEY);
}

void unwrap(const SessionOptions& session, const PasswordOptions& options) {
    convert(session, options, PW_ENCRYPT_TYPE_TO_ENCRYPTED_KEY);
}

}  // namespace zelkm_tool
