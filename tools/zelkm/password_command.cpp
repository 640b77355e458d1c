// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "password_command.h"

#include <zelkeymaster_vendor_tags.h>

#include <algorithm>
#include <filesystem>
#include <vector>

#include "bytes.h"
#include "failure.h"
#include "files.h"
#include "fresh_file.h"
#include "result_text.h"

namespace zelkm_tool {
namespace {

using android::hardware::hidl_vec;

void requireOneStream(const std::vector<std::string>& paths, const char* stream) {
    if (std::count(paths.begin(), paths.end(), "-") > 1) {
        throw WrongUsage(std::string("only one file can be - (") + stream + ")");
    }
}

// Refuses an output path that is also an input, or another output.
void requireDistinct(const std::vector<std::string>& read, std::vector<std::string> written) {
    const auto resolved = [](const std::string& path) {
        return std::filesystem::weakly_canonical(std::filesystem::absolute(path)).string();
    };
    for (size_t i = 0; i < written.size(); ++i) {
        const auto same = [&](const std::string& other) {
            return written[i] != "-" && other != "-" && resolved(other) == resolved(written[i]);
        };
        if (std::any_of(read.begin(), read.end(), same) ||
            std::any_of(written.begin(), written.begin() + static_cast<std::ptrdiff_t>(i), same)) {
            throw WrongUsage(written[i] +
                             " would be written, but is also named for something else");
        }
    }
}

void convert(const SessionOptions& session_options, const PasswordOptions& options,
             PW_ENCRYPT_TYPE type) {
    const bool wraps = type == PW_ENCRYPT_TYPE_TO_KEY;
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

    std::array<hidl_vec<uint8_t>, 4> in;
    std::transform(options.inputs.begin(), options.inputs.end(), in.begin(),
                   [](const std::string& path) { return toVec(readInput(path)); });
    const hidl_vec<uint8_t> material = toVec(readInput(options.material));
    hidl_vec<uint8_t> tag = wraps ? hidl_vec<uint8_t>() : toVec(readInput(options.tag));
    // The outputs are opened first, so that an output that cannot be written ends the command
    // before its work.
    FreshFiles outputs;
    for (const std::string& path : written) {
        outputs.add(path, Access::kOwnerOnly);
    }

    hidl_vec<uint8_t> converted;
    hidl_vec<uint8_t> rot;
    {
        Session session(session_options, Session::Use::kKeymasterOnly);
        check(session.operation().encryptWithPasswordHWKey(in[0], in[1], material, converted, in[2],
                                                           in[3], tag, rot, type),
              wraps ? "wrap" : "unwrap");
    }
    std::vector<std::string> contents = {toBytes(converted)};
    if (wraps) {
        contents.push_back(toBytes(tag));
    }
    if (options.rot) {
        contents.push_back(toBytes(rot));
    }
    outputs.commit(contents);
}

}  // namespace

void wrap(const SessionOptions& session, const PasswordOptions& options) {
    convert(session, options, PW_ENCRYPT_TYPE_TO_KEY);
}

void unwrap(const SessionOptions& session, const PasswordOptions& options) {
    convert(session, options, PW_ENCRYPT_TYPE_TO_ENCRYPTED_KEY);
}

}  // namespace zelkm_tool
