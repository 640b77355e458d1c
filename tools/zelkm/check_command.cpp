// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "check_command.h"

#include <android/log.h>
#include <keymaster_check/keymaster_check.h>
#include <keymaster_check/report.h>
#include <soft_keymaster/fault_keymaster.h>
#include <soft_keymaster/soft_keymaster.h>
#include <stdlib.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iostream>

#include "failure.h"

namespace zelkm_tool {
namespace {

class ScratchDirectory {
  public:
    ScratchDirectory() {
        path_ = (std::filesystem::temp_directory_path() / "zelkm_check_XXXXXX").string();
        if (::mkdtemp(path_.data()) == nullptr) {
            throw Refused(path_ + ": " + std::strerror(errno));
        }
    }
    ~ScratchDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;

    const std::string& path() const { return path_; }

  private:
    std::string path_;
};

}  // namespace

void checkKeymaster(const CheckOptions& options) {
    // The check also logs the damage that it makes on purpose. --verbose shows it.
    if (__android_log_get_minimum_priority() == ANDROID_LOG_ERROR) {
        __android_log_set_minimum_priority(ANDROID_LOG_FATAL);
    }
    const ScratchDirectory scratch;
    soft_keymaster::SoftKeymaster::Options keymaster_options;
    keymaster_options.root_key_path = scratch.path() + "/root.key";
    soft_keymaster::SoftKeymaster sound(keymaster_options);
    soft_keymaster::FaultKeymaster keymaster(sound);
    for (const soft_keymaster::NamedFault& fault : soft_keymaster::namedFaults()) {
        if (options.fault == fault.name) {
            fault.apply(keymaster);
        }
    }
    keymaster_check::Options check_options;
    check_options.largest_store = options.largest_store;
    const auto findings = keymaster_check::checkKeymaster(keymaster, check_options);
    std::cout << (options.json
                      ? keymaster_check::inJson(keymaster_check::describe(keymaster), findings)
                      : keymaster_check::inText(findings));
    if (!keymaster_check::allHolds(findings)) {
        throw Refused("the keymaster does not answer as the library needs it");
    }
}

}  // namespace zelkm_tool
