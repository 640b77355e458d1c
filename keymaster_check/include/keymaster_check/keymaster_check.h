// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Finds out whether a keymaster 4.0 behaves as the library needs it, before a store depends on it.
// docs/keymaster.md has the requirements.
//
// Threads: one check at a time in a process. Meanwhile no other thread may use the library, or
// change the working directory: the check runs the library in a directory of its own, and the
// library's table, its error file and the working directory belong to the process. It is best to
// give the check a process of its own. In a process that goes on to use the library, the table in
// memory is gone, which does no harm, but messages no longer reach the error file.

#pragma once

#include <memory>  // which the next header needs, and on Android 9 does not include

#include <keymasterV4_0/Keymaster.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace keymaster_check {

enum class Verdict {
    kHolds,
    kBroken,
    kNotOffered,  // the keymaster refuses the service, with the code in `answered`
    kNotTried,    // it needs what is broken, or there was no time or no free operation left
    kLeftOut,     // the options leave it out
};

struct Finding {
    std::string id = {};  // of a Requirement
    Verdict verdict = Verdict::kNotTried;
    std::string sent = {};         // the calls, in words and values
    std::string answered = {};     // what came back, and why it is not right
    std::string consequence = {};  // what follows for the library's users; empty when it holds
    std::string note = {};         // limits that were found, and calls that took more than a second
};

struct Options {
    bool attestation = true, password = true;  // the vendor's services
    // The largest payload to try, in bytes; 0 tries none. The default passes the transport.
    size_t largest_store = 1000000;
    // For each requirement. When it is over, no more calls are sent, and the requirement is not
    // tried. A call that is under way is waited for.
    std::chrono::seconds time{30};
    // Called before each requirement is tried. `done` of `all` requirements are finished.
    std::function<void(const std::string& id, size_t done, size_t all)> progress;
    // Called with each finding as soon as it is known.
    std::function<void(const Finding&)> found;
    // Asked before each call. When true, no more calls are sent but those that clean up.
    std::function<bool()> stopped;
    std::function<std::chrono::steady_clock::time_point()> clock = std::chrono::steady_clock::now;
};

// Something that the library needs of a keymaster: docs/keymaster.md has the words. All strings are
// static.
struct Requirement {
    const char* id;
    const char* consequence;  // what the library's users get when it is broken
};

// All requirements, in the order in which they are tried. The last ones may fill the keymaster with
// operations.
std::vector<Requirement> requirements();
// Those of verifyKey().
std::vector<Requirement> laterRequirements();

using Handle = android::hardware::keymaster::V4_0::support::Keymaster;

// One finding for each requirement, in their order. Borrows `keymaster` for the call.
//
// The check deletes the keys that it makes, with deleteKey. It aborts the operations that it opens.
// It can do neither when a call never returns.
// Those that the library itself leaves open when calls fail stay open. The library's objects stay
// allocated, a few kilobytes. While the library runs, the working directory is a new one under
// TMPDIR, else under /data/local/tmp or /tmp. The check removes it afterwards. Throws nothing.
std::vector<Finding> checkKeymaster(Handle& keymaster, const Options& options = {});

// The second phase tells what a start of the system or an upgrade does to a key. saveKey() makes a
// key, encrypts with it and draws nonces. Returns the text to give to verifyKey(); empty when
// `failure` says what did not work. The key is left for verifyKey() to delete.
std::string saveKey(Handle& keymaster, std::string* failure, const Options& options = {});

// The instance name of the keymaster that made `saved`; empty when saveKey() has not made it.
std::string savedBy(const std::string& saved);

// Upgrades the saved key when the keymaster asks for it, decrypts with it, compares nonces, and
// deletes it, unless something is not tried, so that one can try again. One finding for each of
// laterRequirements().
std::vector<Finding> verifyKey(Handle& keymaster, const std::string& saved,
                               const Options& options = {});

// Removes the directory of a check that cannot end. For a signal handler that ends the process.
void removeDirectory();

}  // namespace keymaster_check
