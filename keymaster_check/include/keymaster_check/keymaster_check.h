// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Finds out whether a keymaster 4.0 answers as the library needs it, before a store depends on it.
// The library trusts the answers: a keymaster that departs from them loses stores without a word.
//
// Threads: one check at a time in a process, and meanwhile nothing else that uses the library. The
// check runs the library itself, whose table and error file belong to the process, in a directory
// of its own. Best give the check a process of its own. A process that goes on to use the library
// finds no table in memory, which does no harm; its messages no longer reach the error file.

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
    kNotOffered,  // the keymaster refuses the service; it answered the code in `answered`
    kNotTried,    // switched off, or it needs what is broken, or there was no time left
};

struct Finding {
    std::string id;  // of a Requirement
    Verdict verdict;
    std::string sent;         // the calls, in words and values
    std::string answered;     // what came back, and any call that took more than a second
    std::string consequence;  // what the library will do with such a keymaster; empty when it holds
};

struct Options {
    bool attestation = true, password = true;  // the vendor's services
    size_t largest_store = 1 << 20;            // bytes of payload to go up to
    // Called before each requirement is tried: `done` of `all` are finished.
    std::function<void(const std::string& id, size_t done, size_t all)> progress;
};

// What the library needs of a keymaster. All strings are static.
struct Requirement {
    const char* id;
    const char* what;
    const char* consequence;  // of its being broken, for the library's users
};

// All requirements, in the order in which they are tried.
const std::vector<Requirement>& requirements();

// One finding for each requirement, in their order. Borrows `keymaster` for the call.
//
// Leaves nothing behind but the library's objects, which stay allocated, a few kilobytes. The check
// deletes the keys that it makes with deleteKey. It aborts open operations, but for those that the
// library itself leaves open when calls fail. While the library runs, the working directory is a
// new one under TMPDIR, else under /data/local/tmp or /tmp; the check removes it afterwards.
//
// No requirement is tried for more than about half a minute, as long as each single call returns.
// Throws nothing.
std::vector<Finding> checkKeymaster(
    android::hardware::keymaster::V4_0::support::Keymaster& keymaster, const Options& options = {});

}  // namespace keymaster_check
