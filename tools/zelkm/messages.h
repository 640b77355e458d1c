// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Pages of docs/ that are compiled into the tool. Their tables are the only home of what the tool
// says about findings, about every message that the library logs, and about every keymaster 4.0
// error code and the library's own.

#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace zelkm_tool {

extern const std::string_view kDiagnosticsPage;
extern const std::string_view kDoctorPage;

struct PageRow {
    std::string section;  // the heading above its table
    std::vector<std::string> cells;
};

// The rows of all tables with these column names, e.g. "| code | name |". Throws std::logic_error
// for a row with another number of cells.
std::vector<PageRow> tableRows(std::string_view page, std::string_view columns);

// A cell without the backticks around it.
std::string withoutBackticks(const std::string& cell);

struct ResultCode {
    int code;
    std::string name;
    std::string meaning;  // a few words
    std::string cause;    // in this library
    std::string advice;

    // E.g. "-49 SECURE_HW_COMMUNICATION_FAILED: the secure hardware does not respond".
    std::string nameAndMeaning() const {
        return std::to_string(code) + ' ' + name + ": " + meaning;
    }
};

// The code with this number or name. Null when it is unknown.
const ResultCode* findResultCode(const std::string& text);

// The two sources that log.
inline constexpr char kObjectSource[] = "zelkeymaster_operation.cpp";
inline constexpr char kEngineSource[] = "velt_secure_db.cpp";  // platform log only

// The advice of a message that passes on the keymaster's answer.
inline constexpr char kLookUpCode[] = "Look the code up below, or with `zelkm explain -- CODE`.";

// The formats of messages that two files conclude something from.
inline constexpr char kWriteFailed[] = "file write fail: %s(%d)";
inline constexpr char kKeyIntact[] =
    "key blob is verified, regard the device is corrupted or the old version";
inline constexpr char kKeyRegenerated[] =
    "key blob is corrupted. regard the key file is broken and regenerate key";
inline constexpr char kStoreRefused[] =
    "cached db is same as the stored db, regard the stored db is broken";

struct Message {
    char level;           // 'E', 'W' or 'D'
    std::string source;   // one of the above
    std::string format;   // as in the source, without a line feed at its end
    std::string meaning;  // a clause without a full stop, e.g. "the medium is full"
    std::string cause;    // sentences; empty when the meaning says it
    std::string advice;   // sentences
    std::string result;   // the codes that its caller gets; empty when they vary or are 0
};

const std::vector<Message>& messages();

struct FoundMessage {
    const Message* message = nullptr;    // never null once it is found
    std::vector<std::string> arguments;  // empty when the format itself was asked for
    bool cut = false;                    // the text ends where a %c should be, as at a NUL
};

// The messages of this level and source that can print the text; without a value, of any. The
// formats with most literal bytes win. Several may be equal. Takes linear time.
std::vector<FoundMessage> matchMessages(std::string_view text, char level = '\0',
                                        std::string_view source = {});

// The meaning of a logged message, with the information in its arguments. `with_code` adds the
// meaning of its result code.
std::string describe(const FoundMessage& found, bool with_code);

// The result code among the arguments; null when there is none, or when it is unknown.
const ResultCode* codeIn(const FoundMessage& found);

}  // namespace zelkm_tool
