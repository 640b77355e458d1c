// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Finds out whether a keymaster 4.0 answers as the library needs it, before a store depends on it.
// docs/keymaster.md has the requirements.
//
// Threads: one check at a time in a process. Nothing else may use the library meanwhile: the check
// runs the library in a directory of its own, and the library's table and error file belong to the
// process. It is best to give the check a process of its own. In a process that goes on to use the
// library, the table in memory is gone, which does no harm, but messages no longer reach the error
// file.

#pragma once

#include <memory>  // which the next header needs, and on Android 9 does not include

#include <keymasterV4_0/Keymaster.h>

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace keymaster_check {

enum class Verdict {
    kHolds,
    kBroken,
    kNotOffered,  // the keymaster refuses the service, with the code in `answered`
    kNotTried,    // switched off, or it needs what is broken, or no time was left
};

struct Finding {
    std::string id;  // of a Requirement
    Verdict verdict;
    std::string sent;         // the calls, in words and values
    std::string answered;     // what came back, and each call that took more than a second
    std::string consequence;  // what the library will do then; empty when it holds
};

struct Options {
    bool attestation = true, password = true;  // the vendor's services
    size_t largest_store = 1 << 20;            // the largest payload to try, in bytes
    // Called before each requirement is tried. `done` of `all` requirements are finished.
    std::function<void(const std::string& id, size_t done, size_t all)> progress;
};

// Something that the library needs of a keymaster. All strings are static.
struct Requirement {
    const char* id;
    const char* what;
    const char* consequence;  // what the library's users get when it is broken
};

// All requirements, in the order in which they are tried.
const std::vector<Requirement>& requirements();

// One finding for each requirement, in their order. Borrows `keymaster` for the call.
//
// The check deletes the keys that it makes, with deleteKey. It aborts the operations that it opens.
// Those that the library itself leaves open when calls fail stay open. The library's objects stay
// allocated, a few kilobytes. While the library runs, the working directory is a new one under
// TMPDIR, else under /data/local/tmp or /tmp. The check removes it afterwards.
//
// No requirement takes more than about half a minute, as long as each single call returns. Throws
// nothing.
std::vector<Finding> checkKeymaster(
    android::hardware::keymaster::V4_0::support::Keymaster& keymaster, const Options& options = {});

}  // namespace keymaster_check
