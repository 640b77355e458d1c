// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// How a command fails. The errors that the library logs in this process are kept: they tell the
// cause.

#pragma once

#include <exception>
#include <stdexcept>
#include <string>

namespace zelkm_tool {

enum ExitStatus {
    kExitDone = 0,
    kExitRefused = 1,
    kExitWrongUsage = 2,
};

// The store, the keymaster, a file or a check refused. Exit status 1.
struct Refused : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// The command line cannot be carried out, and nothing was touched. Exit status 2.
struct WrongUsage : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Prints a failure as one line, whatever names it has in it.
void printFailure(const std::exception& error);

// Runs a command, and returns its exit status. Prints the text of a failure on standard error.
template <typename Command>
int exitStatusOf(Command command) {
    try {
        return command();
    } catch (const WrongUsage& error) {
        printFailure(error);
        return kExitWrongUsage;
    } catch (const std::exception& error) {
        printFailure(error);
        return kExitRefused;
    }
}

// From now on the library's errors are kept. Nothing of its log is printed, except a message that
// ends the process.
void captureLog();

// From now on the whole log is also printed to standard error. Escape sequences appear only on a
// terminal, and not when NO_COLOR is set in the environment.
void showLog();

// The code and its meaning, e.g. "-914 stale table handle".
std::string resultText(int code);

// "<what>: <code and meaning>: <cause>". The cause comes from what the library logged during the
// call; it is left out when nothing was logged.
std::string failureText(int code, const std::string& what);

// Throws Refused with the failure's text unless the code is 0. A call that logged an error and
// still returned 0 is reported on standard error.
void check(int code, const std::string& what);

}  // namespace zelkm_tool
