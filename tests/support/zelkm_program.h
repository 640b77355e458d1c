// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Runs the command-line tool as a program. Its path is in the environment variable ZELKM.

#pragma once

#include <algorithm>
#include <cstdlib>

#include "child.h"
#include "temp_dir.h"

namespace test {

struct Outcome {
    int status;  // of exit; -1 when the program did not end by itself
    std::string out;
    std::string err;

    bool says(const std::string& text) const { return err.find(text) != err.npos; }
};

// The program and its arguments.
inline std::vector<std::string> toolWith(std::vector<std::string> args) {
    const char* const program = std::getenv("ZELKM");
    args.insert(args.begin(), program != nullptr ? program : "ZELKM is not set");
    return args;
}

class ZelkmTool : public InTempDir {
  protected:
    ZelkmTool() { std::filesystem::create_directory("s"); }

    // Runs the tool on the directory "s", or on the one that a last argument --dir=… names.
    Outcome run(std::vector<std::string> args, const std::string& input = "") {
        if (args.empty() || args.back().rfind("--dir=", 0) != 0) {
            args.emplace_back("--dir=s");
        }
        std::rotate(args.begin(), args.end() - 1, args.end());
        args = toolWith(args);
        if (user_ != 0) {
            const std::string id = std::to_string(user_);
            args.insert(args.begin(), {"setpriv", "--reuid", id, "--regid", id, "--clear-groups"});
        }
        write("stdin", input);
        Descriptors files;
        files.open(0, "stdin", O_RDONLY);
        files.open(1, "stdout", O_WRONLY | O_CREAT | O_TRUNC);
        files.open(2, "stderr", O_WRONLY | O_CREAT | O_TRUNC);
        const int status = exitStatus(startProgram(args, files));
        return {status, text("stdout"), text("stderr")};
    }

    uid_t user_ = 0;  // whom root lets run the tool; 0 for itself

    // Runs the tool, expects success, and returns its output.
    std::string done(const std::vector<std::string>& args, const std::string& input = "") {
        const Outcome outcome = run(args, input);
        EXPECT_EQ(outcome.status, 0) << args[0] << ": " << outcome.err;
        return outcome.out;
    }

    // Runs the tool, and expects this exit status and these words among its errors.
    void refused(int status, const std::string& words, const std::vector<std::string>& args,
                 const std::string& input = "") {
        const Outcome outcome = run(args, input);
        EXPECT_EQ(outcome.status, status) << input << outcome.err;
        EXPECT_TRUE(outcome.says(words)) << words << ": " << input << outcome.err;
    }

    void add(const std::string& alias, const std::string& creator) {
        done({"add", "--alias", alias, "--creator", creator});
    }

    static void write(const std::filesystem::path& path, const std::string& content) {
        writeFile(path, bytes(content));
    }

    static void flipLastByte(const std::filesystem::path& path) {
        std::string content = text(path);
        content.back() = static_cast<char>(content.back() ^ 1);
        write(path, content);
    }
};

}  // namespace test
