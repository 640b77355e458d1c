// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// A service in front of the library, without the transport: what zeld.cpp offers to its clients on
// a device, and what service.cpp tries on a host. docs/service.md explains it.
//
//  - One object for the life of the process, behind one mutex. The library has no locks, and all
//    objects of a process share their state.
//  - It starts only on a store that it can read completely. A start that fails loses nothing.
//  - After each change it looks at what was written.
//  - After a failure nobody knows what the library's memory holds. So the process ends, and the
//  next
//    one reads the files. init starts it again.
//
// Run one such process only: two in one directory overwrite each other's files.

#pragma once

#include <keymasterV4_0/Keymaster.h>
#include <zelkeymaster_operation.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace zeld {

// Results are 0, one of these, or a negative code of zelkeymaster_result.h. After a negative code
// the process ends, and the change was made or not.
enum Refusal : int {
    kBadValue = 1,  // an empty value, or a character that the store cannot hold safely
    kExists = 2,    // the caller has an object with this alias
    kNotFound = 3,  // the caller has none
    kFull = 4,      // the store would become too large for the keymaster
};

class StoreService {
  public:
    using Keymaster = android::hardware::keymaster::V4_0::support::Keymaster;

    // Borrows the keymaster. `end` is called when the process has to end, and should not return; if
    // it does, every later call returns -1000. `why` is for the log.
    StoreService(Keymaster& keymaster, std::function<void(const char* why)> end);

    // Reads the store in the working directory. With another result than 0 the process has to end,
    // too, and the store and its key are as they were. Call it once, before all others.
    int start();

    // These may be called on any thread. `caller` is the uid that the transport reports, never a
    // claim of the caller. A caller changes its own objects only.
    int insert(uint32_t caller, const std::string& alias, const std::string& accessors);
    // Replaces the accessors in one replacement of the file.
    int update(uint32_t caller, const std::string& alias, const std::string& accessors);
    int remove(uint32_t caller, const std::string& alias);
    // Appends "creator::alias" of each object that the caller may use; the creator is a uid.
    int usable(uint32_t caller, std::vector<std::string>* names);

  private:
    int find(uint32_t caller, const std::string& alias);
    int write(uint32_t caller, const std::string& alias, const std::string& accessors);
    int checkWritten(int status);
    int failed(int status, const char* why);

    Keymaster& keymaster_;
    const std::function<void(const char* why)> end_;
    std::mutex mutex_;
    std::unique_ptr<ZelKeymasterOperation> object_;  // null before the start and after a failure
    size_t store_size_ = 0;                          // bytes of the file
};

}  // namespace zeld
