// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Runs the command-line tool as a program. Its path is in the environment variable ZELKM.

#pragma once

#include <fcntl.h>
#include <grp.h>
#include <unistd.h>

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

// Turns this process into the tool. The first argument is the tool's name.
[[noreturn]] inline void exec(std::vector<std::string>& args) {
    std::vector<char*> argv;
    for (std::string& arg : args) {
        argv.push_back(arg.data());
    }
    argv.push_back(nullptr);
    const char* program = std::getenv("ZELKM");
    ::execv(program != nullptr ? program : "", argv.data());
    ::_exit(127);
}

class ZelkmTool : public InTempDir {
  protected:
    ZelkmTool() { std::filesystem::create_directory("s"); }

    // Runs the tool on the directory "s", or on the one that a last argument --dir=… names.
    Outcome run(std::vector<std::string> args, const std::string& input = "") {
        const bool elsewhere = !args.empty() && args.back().rfind("--dir=", 0) == 0;
        args.insert(args.begin(), {"zelkm", elsewhere ? args.back() : "--dir=s"});
        if (elsewhere) {
            args.pop_back();
        }
        write("stdin", input);
        const int status = runInChild([&]() -> int {
            ::dup2(::open("stdin", O_RDONLY), 0);
            ::dup2(::open("stdout", O_WRONLY | O_CREAT | O_TRUNC, 0600), 1);
            ::dup2(::open("stderr", O_WRONLY | O_CREAT | O_TRUNC, 0600), 2);
            ::alarm(120);  // ends a tool that hangs
            if (user_ != 0 &&
                (::setgroups(0, nullptr) != 0 || ::setgid(user_) != 0 || ::setuid(user_) != 0)) {
                return 126;
            }
            exec(args);
        });
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
