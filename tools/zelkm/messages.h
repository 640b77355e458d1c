// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Every message that the library logs, with its meaning: the table (messages.cpp), how a logged
// text is found in it (message_match.cpp), and what is said about it (message_text.cpp). It serves
// the causes of failed commands, 'zelkm explain', the doctor's reading of logs, and
// docs/diagnostics.md.

#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "result_codes.h"

namespace zelkm_tool {

enum class Level { kDebug, kWarning, kError };

// The two sources that log.
enum class Source {
    kObject,  // zelkeymaster_operation.cpp: platform log and, from warnings up, error file
    kEngine,  // velt_secure_db.cpp: platform log only
};

// The source's base name, as log lines have it.
const char* sourceName(Source source);

// What kind of information a message's arguments hold.
enum class Detail {
    kNone,
    kResult,       // the last one is a result code
    kSystemError,  // the last two are the system's error text and number
    kText,         // the first one is a text that speaks for itself
};

// The advice of a message that passes on the keymaster's answer.
inline constexpr char kLookUpCode[] = "Look the code up below, or with `zelkm explain -- CODE`.";

// The messages from which this tool concludes something.
enum class MessageId {
    kOther,
    kNoFile,
    kWriteFailed,
    kTmpNotCreated,
    kNewNotInPlace,
    kCurrentNotRemoved,
    kNoBackup,
    kKeyRepair,
    kKeyIntact,
    kKeyRegenerated,
    kUpgradeLost,
    kUpgradedKeyWritten,
    kBeginRefused,
    kUpdateLost,
    kFinishLost,
    kFinishRefused,
    kStoreRefused,
    kBackupRestored,
    kStoreCacheDiffered,
};

struct Message {
    Level level;
    Source source;
    const char* format;  // exactly as in the source
    Detail detail;
    const char* meaning;  // a clause without a full stop, e.g. "the medium is full"
    const char* cause;    // sentences; empty when the meaning says it
    const char* advice;   // sentences
    const char* result;   // the codes that its caller gets; empty when they vary or are 0
    MessageId id = MessageId::kOther;
    // The words that the first %s can stand for, separated by '|'. Null when it can be any text.
    const char* words = nullptr;
};

// A part of the table, in the order of the page.
struct MessageGroup {
    const char* title;
    std::vector<Message> messages;
};

const std::vector<MessageGroup>& messageGroups();

// The arguments with which a format prints a text; nothing if it never prints it. A line feed at
// the format's end does not count. A %c may print a NUL, at which the text ends: that argument is
// the last one, and empty. Takes linear time when the format has at most one %s.
std::optional<std::vector<std::string>> matchFormat(std::string_view format, std::string_view text);

struct FoundMessage {
    const Message* message;
    std::vector<std::string> arguments;  // empty when the format itself was asked for
    bool cut = false;                    // the text ends where a %c should be, as at a NUL
};

// The messages of this level and source that can print the text; without a value, of any. The
// formats with most literal bytes win. Several may be equal.
std::vector<FoundMessage> matchMessages(std::string_view text, std::optional<Level> level,
                                        std::optional<Source> source);

// The meaning of a logged message, with the information in its arguments. `with_code` adds the
// meaning of its result code.
std::string describe(const FoundMessage& found, bool with_code);

// The result code among the arguments; null when there is none, or when it is unknown.
const ResultCode* codeIn(const FoundMessage& found);

// E.g. "-49 SECURE_HW_COMMUNICATION_FAILED: the secure hardware does not respond".
std::string nameAndMeaning(const ResultCode& result);

// 'E', 'W' or 'D'.
char letterOf(Level level);

// The sections on messages and result codes of docs/diagnostics.md, in Markdown.
std::string markdownTables();

}  // namespace zelkm_tool
