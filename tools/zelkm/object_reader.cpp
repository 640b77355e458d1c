// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "object_reader.h"

#include <algorithm>
#include <charconv>
#include <nlohmann/json.hpp>
#include <optional>

#include "failure.h"
#include "store_values.h"

namespace zelkm_tool {
namespace {

using Json = nlohmann::json;

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";  // written by spreadsheets

// Reads the records of a CSV text one after the other, each with the number of its first line.
class CsvReader {
  public:
    explicit CsvReader(std::string_view text) : rest_(text) {}

    struct Record {
        size_t line = 0;
        std::vector<std::string> fields;
        std::string problem;
    };

    std::optional<Record> next() {
        if (rest_.empty()) {
            return std::nullopt;
        }
        Record record;
        record.line = line_;
        do {
            record.fields.emplace_back();
        } while (takeField(&record.fields.back(), &record.problem));
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
            follows = c == ',';
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
            *problem = "a value goes on after its closing quote";
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
    size_t line_ = 1;
};

size_t columnNumber(const std::string& name) {
    return static_cast<size_t>(std::find(kColumnNames.begin(), kColumnNames.end(), name) -
                               kColumnNames.begin());
}

std::vector<ReadObject> readCsv(std::string_view text) {
    CsvReader reader(text);
    const auto header = reader.next();
    std::string names;
    for (const std::string& field : header ? header->fields : std::vector<std::string>()) {
        names += (names.empty() ? "" : ",") + field;
    }
    std::vector<std::string> columns;
    try {
        columns = names.empty() ? columns : parseColumns(names);
    } catch (const WrongUsage& wrong) {
        throw Refused(std::string("line 1: ") + wrong.what());
    }
    if (columns.empty()) {
        throw Refused("line 1: the names of the columns are missing");
    }
    std::vector<ReadObject> objects;
    while (const auto record = reader.next()) {
        ReadObject object = {"line " + std::to_string(record->line),
                             std::vector<std::string>(kColumnNames.size()), record->problem};
        if (object.problem.empty() && record->fields.size() != columns.size()) {
            object.problem = std::to_string(record->fields.size()) + " values for " +
                             std::to_string(columns.size()) + " columns";
        }
        for (size_t i = 0; object.problem.empty() && i < columns.size(); ++i) {
            object.values[columnNumber(columns[i])] = record->fields[i];
        }
        objects.push_back(std::move(object));
    }
    return objects;
}

// The bytes of a JSON value of an object; nothing when the value is not allowed there.
std::optional<std::string> bytesOf(const Json& value) {
    if (value.is_null()) {
        return "";
    }
    if (value.is_string()) {
        return value.get<std::string>();
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

std::string takeObject(const Json& item, std::vector<std::string>* values) {
    if (!item.is_object()) {
        return "not an object of columns and values";
    }
    for (const auto& [name, value] : item.items()) {
        if (!isColumn(name)) {
            return "unknown column '" + escape(name) + "'";
        }
        const auto bytes = bytesOf(value);
        if (!bytes) {
            return name + ": a value is a string, or {\"hex\": \"...\"} with two digits a byte";
        }
        (*values)[columnNumber(name)] = *bytes;
    }
    return "";
}

std::vector<ReadObject> readJson(std::string_view text) {
    Json items;
    try {
        items = Json::parse(text);
    } catch (const Json::exception& error) {
        const std::string what = error.what();  // it says "[json.exception...] what is wrong"
        throw Refused(what.substr(std::min(what.find("] ") + 2, what.size())));
    }
    std::vector<ReadObject> objects;
    for (const Json& item : items) {
        ReadObject object = {"object " + std::to_string(objects.size() + 1),
                             std::vector<std::string>(kColumnNames.size()), ""};
        object.problem = takeObject(item, &object.values);
        objects.push_back(std::move(object));
    }
    return objects;
}

}  // namespace

std::vector<ReadObject> readObjects(std::string_view text) {
    if (text.substr(0, kByteOrderMark.size()) == kByteOrderMark) {
        text.remove_prefix(kByteOrderMark.size());
    }
    const size_t start = text.find_first_not_of(" \t\r\n");
    return start != text.npos && text[start] == '[' ? readJson(text) : readCsv(text);
}

}  // namespace zelkm_tool
