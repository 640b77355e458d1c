// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Every message that the library logs, and what it means: the one table behind the cause of a
// failed command, 'zelkm explain', the doctor's reading of logs, and docs/diagnostics.md.

#pragma once

#include <string_view>
#include <vector>

namespace zelkm_tool {

enum class Level { kDebug, kWarning, kError };

// The two sources that log.
enum class Source {
    kObject,  // zelkeymaster_operation.cpp: platform log and, from warnings up, error file
    kEngine,  // velt_secure_db.cpp: platform log only
};

// The base name that stands in a line.
const char* sourceName(Source source);

// What the arguments of a message tell.
enum class Detail {
    kNone,
    kResult,       // the last one is a result code
    kSystemError,  // the last two are the system's error text and number
    kText,         // the first one is a text that speaks for itself
};

// The advice of messages that pass on what the keymaster answered.
inline constexpr char kLookUpCode[] = "Look the code up below, or with `zelkm explain -- CODE`.";

struct Message {
    const char* id;  // short and stable, e.g. "store-refused"
    Level level;
    Source source;
    const char* format;  // exactly as in the source
    Detail detail;
    const char* meaning;  // a clause without a full stop, e.g. "the medium is full"
    const char* cause;    // sentences; empty when the meaning says it
    const char* advice;   // sentences
    const char* result;   // the codes that the caller gets with it; empty when it varies or is 0
    // The words that the first %s stands for, with '|' between them; null: any text.
    const char* words = nullptr;
};

// A part of the table, in the order of the page.
struct MessageGroup {
    const char* title;
    std::vector<Message> messages;
};

const std::vector<MessageGroup>& messageGroups();

// The message of this id. Throws std::out_of_range if there is none.
const Message& messageById(std::string_view id);

}  // namespace zelkm_tool
