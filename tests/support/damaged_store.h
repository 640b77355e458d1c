// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The command-line tool, as a program, on store directories that its tests damage. Its path is in
// the environment variable ZELKM.

#pragma once

#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <map>

#include "child.h"
#include "temp_dir.h"

namespace test {

using Files = std::map<std::string, std::string>;

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

// The store in the directory "s" holds k1 and k2, and its backup k1. `later_` is the same store
// with a third object.
class DamagedStore : public InTempDir {
  protected:
    DamagedStore() {
        std::filesystem::create_directory("s");
        add("k1", "app");
        add("k2", "app");
        start_ = files();
        add("k3", "application");
        later_ = text(kStore);
        put(start_);
    }

    // Runs the tool on the directory "s", or on the one that a last argument --dir=… names.
    Outcome run(std::vector<std::string> args) {
        if (args.empty() || args.back().rfind("--dir=", 0) != 0) {
            args.emplace_back("--dir=s");
        }
        std::rotate(args.begin(), args.end() - 1, args.end());
        args = toolWith(args);
        if (user_ != 0) {
            const std::string id = std::to_string(user_);
            args.insert(args.begin(), {"setpriv", "--reuid", id, "--regid", id, "--clear-groups"});
        }
        Descriptors files;
        files.open(0, "/dev/null", O_RDONLY);
        files.open(1, "stdout", O_WRONLY | O_CREAT | O_TRUNC);
        files.open(2, "stderr", O_WRONLY | O_CREAT | O_TRUNC);
        const int status = exitStatus(startProgram(args, files));
        return {status, text("stdout"), text("stderr")};
    }

    // Runs the tool, expects success, and returns its output.
    std::string done(const std::vector<std::string>& args) {
        const Outcome outcome = run(args);
        EXPECT_EQ(outcome.status, 0) << args[0] << ": " << outcome.err;
        return outcome.out;
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

    // The names and contents of the regular files in "s", or in one of its folders.
    static Files files(const std::filesystem::path& folder = "s") {
        Files all;
        for (const auto& entry : std::filesystem::directory_iterator(folder)) {
            if (entry.is_regular_file()) {
                all[entry.path().filename()] = text(entry.path());
            }
        }
        return all;
    }

    static void put(const Files& all) {
        std::filesystem::remove_all("s");
        std::filesystem::create_directory("s");
        for (const auto& [name, content] : all) {
            write("s/" + name, content);
            ::chmod(("s/" + name).c_str(), 0600);
        }
    }

    // The copies that all repairs have kept in their folders.
    static Files kept() {
        Files all;
        for (const auto& folder : std::filesystem::directory_iterator("s")) {
            if (folder.is_directory()) {
                all.merge(files(folder));
            }
        }
        return all;
    }

    static void move(const std::string& from, const std::string& to) {
        std::filesystem::rename("s/" + from, "s/" + to);
    }
    static void set(const std::string& name, size_t at, char byte) {
        std::string content = text("s/" + name);
        content[at] = byte;
        write("s/" + name, content);
    }
    static void cut(const std::string& name, size_t len) {
        std::filesystem::resize_file("s/" + name, len);
    }

    // Leaves the files as a replacement does that stops between its renames.
    void interrupt() {
        move("secure_objects.db", "secure_objects.db.bak");
        write("s/secure_objects.db.tmp", later_);
    }

    static constexpr char kStore[] = "s/secure_objects.db";
    static constexpr char kBoth[] = "app::k1\napp::k2\n";
    static constexpr char kAll[] = "app::k1\napp::k2\napplication::k3\n";

    Files start_;
    std::string later_;
    uid_t user_ = 0;  // whom root lets run the tool; 0 for itself
};

}  // namespace test
