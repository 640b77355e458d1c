// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "failure.h"

#include <android/log.h>
#include <unistd.h>
#include <zelkeymaster_result.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <iterator>
#include <string_view>
#include <utility>
#include <vector>

#include "bytes.h"
#include "log_reader.h"

namespace zelkm_tool {
namespace {

constexpr size_t kMaxErrors = 64;

// These messages of a repair explain more than the refusal that came before them.
constexpr std::string_view kTelling[] = {
    kStoreRefused, "cached db is broken, update with the stored db", kKeyRegenerated, kKeyIntact};

std::vector<std::string> g_errors;  // since the last takeCause()
bool g_shown;

bool isColorWanted() {
    const char* no_color = std::getenv("NO_COLOR");
    return no_color == nullptr || *no_color == '\0';
}

// A message as a terminal may show it. Its values may hold any bytes, so what follows the library's
// prefix is escaped there.
std::string printable(const std::string& message) {
    const size_t end = message.find(") ");
    const size_t start = parseLogLine(withoutEscapes(message)) ? end + 2 : 0;
    const std::string prefix = message.substr(0, start);
    const std::string text = message.substr(start, message.find_last_not_of('\n') + 1 - start);
    const bool terminal = ::isatty(STDERR_FILENO) == 1;
    return (terminal && isColorWanted() ? prefix : withoutEscapes(prefix)) +
           (terminal ? escape(text) : withoutEscapes(text));
}

// Keeps an error, and returns whether the message is to be shown.
bool take(int priority, const char* message) {
    if (priority >= ANDROID_LOG_ERROR && g_errors.size() < kMaxErrors) {
        g_errors.emplace_back(message);
    }
    return g_shown || priority >= ANDROID_LOG_FATAL;
}

// liblog's type of a logger decides which of these two is compiled. Debian 12's liblog passes the
// message beside its data, Debian 13's within.
template <typename Data>
void logger(const Data* data, const char* message) {
    if (take(data->priority, message)) {
        __android_log_stderr_logger(data, printable(message).c_str());
    }
}

template <typename Message>
void logger(const Message* message) {
    if (take(message->priority, message->message)) {
        const std::string text = printable(message->message);
        Message shown = *message;
        shown.message = text.c_str();
        __android_log_stderr_logger(&shown);
    }
}

// The cause that the errors since the last call tell, e.g. "the new version of a file could not be
// written: the disk is full (No space left on device)". Empty when there were no errors. The first
// error counts, because later ones follow from it; but the messages of a repair say more, and come
// before it.
std::string takeCause() {
    std::string cause;
    for (const std::string& error : std::exchange(g_errors, {})) {
        const std::vector<FoundMessage> found = findMessages(error);
        const bool is_telling =
            !found.empty() && std::find(std::begin(kTelling), std::end(kTelling),
                                        found[0].message->format) != std::end(kTelling);
        if (cause.empty() || is_telling) {
            cause = found.empty() ? escape(withoutEscapes(error))
                                  : describe(found[0], /*with_code=*/false);
        }
        if (is_telling) {
            break;
        }
    }
    return cause;
}

}  // namespace

void printFailure(const std::exception& error) {
    std::string text = error.what();
    for (size_t at; (at = text.find('\n')) != text.npos;) {
        text.replace(at, 1, "\\x0a");
    }
    std::cerr << "zelkm: " << text << '\n';
}

void captureLog() {
    __android_log_set_minimum_priority(ANDROID_LOG_ERROR);
    __android_log_set_logger(logger);
}

void showLog() {
    __android_log_set_minimum_priority(ANDROID_LOG_DEBUG);
    g_shown = true;
}

std::string resultText(int code) {
    const ResultCode* found = findResultCode(std::to_string(code));
    return std::to_string(code) + " " + (found != nullptr ? found->meaning : "unknown code");
}

std::string failureText(int code, const std::string& what) {
    const std::string cause = takeCause();
    return what + ": " + resultText(code) + (cause.empty() ? "" : ": " + cause);
}

void check(int code, const std::string& what) {
    if (code != ZELKM_OK) {
        throw Refused(failureText(code, what));
    }
    const std::string cause = takeCause();
    if (!cause.empty()) {
        std::cerr << "zelkm: warning: " << what << ": " << cause << '\n';
    }
}

}  // namespace zelkm_tool
