// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "object_reader.h"

#include <algorithm>
#include <charconv>
#include <nlohmann/json.hpp>
#include <optional>
#include <utility>

#include "bytes.h"
#include "failure.h"
#include "store_values.h"

namespace zelkm_tool {
namespace {

using Json = nlohmann::ordered_json;
using Values = std::vector<std::string>;

constexpr char kJsonBlanks[] = " \t\r\n";
constexpr size_t kMaxCsvColumns = 100;  // with values; empty ones behind them are not counted

std::string upper(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c; });
    return text;
}

size_t columnNumber(const std::string& name) {
    return static_cast<size_t>(std::find(kColumnNames.begin(), kColumnNames.end(), name) -
                               kColumnNames.begin());
}

// Reads the records of a CSV text one after the other, each with the number of its first line.
class CsvReader {
  public:
    CsvReader(std::string_view text, char separator) : rest_(text), separator_(separator) {}

    struct Record {
        size_t line = 0;
        size_t num_fields = 0;
        Values fields;  // up to the last one that is not empty
        std::string problem;
    };

    std::optional<Record> next() {
        if (rest_.empty()) {
            return std::nullopt;
        }
        Record record;
        record.line = line_;
        bool follows = true;
        while (follows) {
            std::string field;
            follows = takeField(&field, &record.problem);
            if (!field.empty() && record.num_fields < kMaxCsvColumns) {
                record.fields.resize(record.num_fields);
                record.fields.push_back(std::move(field));
            } else if (!field.empty()) {
                record.problem = "more than " + std::to_string(kMaxCsvColumns) + " values";
            }
            ++record.num_fields;
        }
        return record;
    }

  private:
    char take() {
        const char c = rest_.front();
        rest_.remove_prefix(1);
        line_ += c == '\n' ? 1 : 0;
        return c;
    }

    // Takes one field. True when another field of the same record follows.
    bool takeField(std::string* field, std::string* problem) {
        const bool is_quoted = rest_.substr(0, 1) == "\"";
        if (is_quoted) {
            take();
            takeQuoted(field, problem);
        }
        const size_t quoted_len = field->size();
        bool follows = false;
        bool ends = false;
        while (!rest_.empty() && !follows && !ends) {
            const char c = take();
            follows = c == separator_;
            ends = c == '\n';
            if (c == '"') {
                *problem = "a quote within a value must be doubled, and the value in quotes";
            }
            if (!follows && !ends) {
                *field += c;
            }
        }
        if (ends && field->size() > quoted_len && field->back() == '\r') {
            field->pop_back();
        }
        if (is_quoted && field->size() > quoted_len) {
            *problem = "a value continues after its closing quote";
        }
        return follows;
    }

    void takeQuoted(std::string* field, std::string* problem) {
        while (!rest_.empty()) {
            const char c = take();
            if (c == '"' && rest_.substr(0, 1) != "\"") {
                return;
            }
            *field += c == '"' ? take() : c;
        }
        *problem = "the closing quote is missing";
    }

    std::string_view rest_;
    const char separator_;
    size_t line_ = 1;
};

// The first separator behind a name of a column: the names have none in them.
char separatorOf(std::string_view text) {
    const size_t at = text.substr(0, text.find('\n')).find_first_of(",;\t");
    return at == text.npos ? ',' : text[at];
}

std::vector<std::string> readHeader(CsvReader* reader) {
    const auto header = reader->next();
    if (!header || header->fields.empty()) {
        throw Refused("line 1: the column names are missing");
    }
    std::string names;
    for (const std::string& field : header->fields) {
        names += (names.empty() ? "" : ",") + upper(field);
    }
    try {
        return parseColumns(names);
    } catch (const WrongUsage& wrong) {
        throw Refused(std::string("line 1: ") + wrong.what());
    }
}

void readCsv(std::string_view text, const ObjectVisitor& visit) {
    CsvReader reader(text, separatorOf(text));
    const std::vector<std::string> columns = readHeader(&reader);
    while (auto record = reader.next()) {
        if (record->fields.empty() && record->problem.empty()) {
            continue;
        }
        if (record->problem.empty() &&
            (record->num_fields < columns.size() || record->fields.size() > columns.size())) {
            record->problem = std::to_string(record->num_fields) + " values for " +
                              std::to_string(columns.size()) + " columns";
        }
        Values values(kColumnNames.size());
        for (size_t i = 0; record->problem.empty() && i < record->fields.size(); ++i) {
            values[columnNumber(columns[i])] = std::move(record->fields[i]);
        }
        visit("line " + std::to_string(record->line), std::move(values), record->problem);
    }
}

// The bytes of a JSON value of an object; nothing when the value is not allowed there.
std::optional<std::string> bytesOf(const Json& value) {
    if (value.is_null()) {
        return "";
    }
    if (value.is_string()) {
        return value.get<std::string>();
    }
    if (value.is_number_integer()) {
        return value.dump();
    }
    if (!value.is_object() || value.size() != 1 || !value.contains("hex") ||
        !value["hex"].is_string()) {
        return std::nullopt;
    }
    const auto& digits = value["hex"].get_ref<const std::string&>();
    std::string bytes;
    for (size_t i = 0; i < digits.size(); i += 2) {
        unsigned byte = 0;
        const char* const end = digits.data() + std::min(i + 2, digits.size());
        const auto parsed = std::from_chars(digits.data() + i, end, byte, 16);
        if (parsed.ptr != digits.data() + i + 2 || parsed.ptr > end) {
            return std::nullopt;
        }
        bytes += static_cast<char>(byte);
    }
    return bytes;
}

// Takes the objects out of a JSON text while it is parsed, so that one object at a time is in
// memory.
class JsonReader {
  public:
    // The objects are this deep in the text, 1 in an array.
    JsonReader(int depth, ObjectVisitor visit) : depth_(depth), visit_(std::move(visit)) {}

    void read(std::string_view text, const std::string& place) {
        place_ = place;
        try {
            [[maybe_unused]] const Json nothing =
                Json::parse(text, [this](int depth, Json::parse_event_t event, Json& parsed) {
                    return keep(depth - depth_, event, parsed);
                });
        } catch (const Json::exception& error) {
            const std::string what = error.what();  // it says "[json.exception...] what is wrong"
            throw Refused((place.empty() ? "" : place + ": ") +
                          escape(what.substr(std::min(what.find("] ") + 2, what.size()))));
        }
    }

  private:
    // Whether to keep what the parser has come to, `depth` deep in an object, until that object is
    // complete.
    bool keep(int depth, Json::parse_event_t event, Json& parsed) {
        using Event = Json::parse_event_t;
        if (depth > 2) {
            throw Refused(place() + ": the values are nested too deep");
        }
        if (event == Event::key) {
            return isKnown(depth, parsed.get_ref<const std::string&>());
        }
        if (depth != 0) {
            return depth < 0 || event != Event::array_start;
        }
        if (event == Event::object_start) {
            problem_.clear();
            return true;
        }
        take(parsed);
        return false;
    }

    bool isKnown(int depth, const std::string& name) {
        const bool known = depth == 1 ? isColumn(upper(name)) : name == "hex";
        if (!known && problem_.empty()) {
            problem_ = depth == 1 ? "unknown column '" + escape(name) + "'" : kNoValue;
        }
        return known;
    }

    void take(const Json& item) {
        Values values(kColumnNames.size());
        if (!item.is_object()) {
            problem_ = "not an object of columns and values";
        }
        for (auto it = item.begin(); problem_.empty() && it != item.end(); ++it) {
            auto bytes = bytesOf(it.value());
            if (!bytes) {
                problem_ = it.key() + ": " + kNoValue;
            } else {
                values[columnNumber(upper(it.key()))] = *std::move(bytes);
            }
        }
        visit_(place(), std::move(values), problem_);
        ++taken_;
    }

    std::string place() const {
        return place_.empty() ? "object " + std::to_string(taken_ + 1) : place_;
    }

    static constexpr char kNoValue[] =
        "a value is a string, a whole number, null, or {\"hex\": \"...\"} with two digits per byte";

    const int depth_;
    const ObjectVisitor visit_;
    std::string place_;  // empty in an array
    size_t taken_ = 0;
    std::string problem_;
};

// The length of the JSON object at the start of the text. All of the text when it does not end.
size_t objectLength(std::string_view text) {
    size_t depth = 0;
    bool quoted = false;
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (quoted) {
            i += c == '\\' ? 1 : 0;
            quoted = c != '"';
        } else if (c == '"') {
            quoted = true;
        } else if (c == '{') {
            ++depth;
        } else if (c == '}' && --depth == 0) {
            return i + 1;
        }
    }
    return text.size();
}

// Reads objects that stand one after the other, usually one in each line.
void readJsonObjects(std::string_view text, const ObjectVisitor& visit) {
    JsonReader reader(0, visit);
    size_t line = 1;
    const auto take = [&](size_t len) {
        line += static_cast<size_t>(
            std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(len), '\n'));
        text.remove_prefix(len);
    };
    for (;;) {
        take(std::min(text.find_first_not_of(kJsonBlanks), text.size()));
        if (text.empty()) {
            return;
        }
        const size_t len = text.front() == '{' ? objectLength(text) : text.size();
        reader.read(text.substr(0, len), "line " + std::to_string(line));
        take(len);
    }
}

}  // namespace

void readObjects(std::string_view text, const ObjectVisitor& visit) {
    if (text.substr(0, kByteOrderMark.size()) == kByteOrderMark) {
        text.remove_prefix(kByteOrderMark.size());
    }
    if (text.substr(0, 2) == "\xFF\xFE" || text.substr(0, 2) == "\xFE\xFF" ||
        text.substr(0, 2).find('\0') != text.npos) {
        throw Refused("the text is UTF-16: save it as UTF-8");
    }
    size_t visited = 0;
    const ObjectVisitor counting = [&](const std::string& place, Values&& values,
                                       const std::string& problem) {
        if (++visited > kMaxObjects) {
            throw Refused(place + ": more than " + std::to_string(kMaxObjects) +
                          " objects cannot be imported at once");
        }
        visit(place, std::move(values), problem);
    };
    const size_t start = std::min(text.find_first_not_of(kJsonBlanks), text.size());
    const std::string_view first = text.substr(start, 1);
    if (first == "[") {
        JsonReader(1, counting).read(text, "");
    } else if (first == "{") {
        readJsonObjects(text, counting);
    } else {
        readCsv(text, counting);
    }
}

}  // namespace zelkm_tool
