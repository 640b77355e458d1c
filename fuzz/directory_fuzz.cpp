// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// A directory with any files, from what the doctor reads to its report. The text must not disturb a
// terminal, and the JSON must be valid.

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "../tools/zelkm/doctor_report.h"
#include "../tools/zelkm/failure.h"
#include "../tools/zelkm/store_names.h"
#include "fuzz.h"

namespace {

// The folder of this process; it goes with it.
class Folder {
  public:
    Folder()
        : path_(std::filesystem::temp_directory_path() /
                ("directory_fuzz." + std::to_string(::getpid()))) {
        std::filesystem::create_directory(path_);
    }
    ~Folder() { std::filesystem::remove_all(path_); }

    void clear() {
        std::filesystem::remove_all(path_);
        std::filesystem::create_directory(path_);
    }

    void write(const std::string& name, const fuzz::Block& block) {
        std::filesystem::create_directories((path_ / name).parent_path());
        std::ofstream(path_ / name, std::ios::binary).write(block.text(), block.len);
    }

    const std::filesystem::path& path() const { return path_; }

  private:
    const std::filesystem::path path_;
};

bool isPlain(const std::string& text) {
    return std::none_of(text.begin(), text.end(),
                        [](unsigned char c) { return (c < ' ' && c != '\n') || c == 0x7F; });
}

}  // namespace

// Pieces: a byte that names a file, and the file's content.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static Folder folder;
    folder.clear();
    std::vector<std::string> names = zelkm_tool::usedNames();
    names.insert(names.end(), {"copies/secure_objects.db", "edbk.doctor", "\x1b[31m\xff", "other"});
    fuzz::Input input(data, size);
    while (!input.empty()) {
        const size_t which = input.byte() % names.size();
        folder.write(names[which], input.block());
    }
    const zelkm_tool::Directory directory(folder.path());
    zelkm_tool::KeyTrials trials(directory);
    const zelkm_tool::Evidence evidence = zelkm_tool::collectEvidence(directory);
    const zelkm_tool::Report report = zelkm_tool::examine(evidence, &trials);

    std::ostringstream text;
    zelkm_tool::printText(text, report, /*verdict_only=*/false);
    fuzz::require(isPlain(text.str()));
    std::ostringstream json;
    zelkm_tool::printJson(json, report);
    fuzz::require(isPlain(json.str()) && nlohmann::json::accept(json.str()));
    return 0;
}
