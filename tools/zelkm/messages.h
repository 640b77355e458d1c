// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Every message that the library logs, with its meaning. This one table serves the causes of failed
// commands, 'zelkm explain', the doctor's reading of logs, and docs/diagnostics.md.

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

}  // namespace zelkm_tool
