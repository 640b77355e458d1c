// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "error_file.h"

// plog casts its logger before it is one, and adds to a size of -1 when a file has no position (a
// FIFO): for each a device would end the process.
#ifdef __clang__
#pragma clang attribute push(                                                      \
    __attribute__((no_sanitize("cfi-derived-cast", "unsigned-integer-overflow"))), \
    apply_to = function)
#endif
#include <plog/Appenders/RollingFileAppender.h>
#include <plog/Formatters/TxtFormatter.h>
#include <plog/Init.h>
#include <plog/Initializers/RollingFileInitializer.h>
#include <plog/Log.h>
#ifdef __clang__
#pragma clang attribute pop
#endif

#include <iterator>

#include "file_names.h"
#include "run_no_throw.h"

namespace zelkm {
namespace {

constexpr int kInstance = 0;
constexpr size_t kMaxFileSize = 10000;
constexpr int kMaxFiles = std::size(kErrorFiles);

// The origin that each line names. The numbers never change, because readers of the files sort by
// them.
constexpr char kFunction[] = "void log_to_file(char, const char *, const int, const char *, ...)";
constexpr size_t kWarningLine = 102;
constexpr size_t kErrorLine = 106;

// plog allocates memory, and may throw when there is none. The line is then dropped: no call fails
// because of this file.
template <typename Action>
void dropOnException(Action action) {
    static_cast<void>(runNoThrow(action));
}

}  // namespace

void setUpErrorFile() {
    dropOnException([] {
        plog::init<plog::TxtFormatter, kInstance>(plog::warning, kErrorFile, kMaxFileSize,
                                                  kMaxFiles);
    });
}

void writeErrorFile(char level, const char* source, int line, const char* text) {
    if (level != 'E' && level != 'W') {
        return;
    }
    const plog::Severity severity = level == 'E' ? plog::error : plog::warning;
    plog::Logger<kInstance>* logger = plog::get<kInstance>();
    if (logger == nullptr || !logger->checkSeverity(severity)) {
        return;
    }
    dropOnException([&] {
        plog::Record record(severity, kFunction, level == 'E' ? kErrorLine : kWarningLine, "",
                            nullptr, kInstance);
        record << source << "(" << line << ") :" << text;
        *logger += record;
    });
}

}  // namespace zelkm
