// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The commands 'wrap' and 'unwrap': convert key material with the password hardware key. 'wrap'
// makes a tag. 'unwrap' converts the material back, if inputs and tag are the same.

#include <zelkeymaster_vendor_tags.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <memory>
#include <optional>
#include <vector>

#include "bytes.h"
#include "command_line.h"
#include "failure.h"
#include "files.h"

#include "session.h"

namespace zelkm_tool {
namespace {

using android::hardware::hidl_vec;

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
