// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Store directories that the tests of `zelkm doctor` damage.

#pragma once

#include <sys/stat.h>

#include <map>

#include "zelkm_program.h"

namespace test {

using Files = std::map<std::string, std::string>;

// The store in the directory "s" holds k1 and k2, and its backup k1. `later_` is the same store
// with a third object.
class DamagedStore : public ZelkmTool {
  protected:
    DamagedStore() {
        add("k1", "app");
        add("k2", "app");
        start_ = files();
        add("k3", "application");
        later_ = text(kStore);
        put(start_);
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
};

}  // namespace test
