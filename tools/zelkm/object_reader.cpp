// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "object_reader.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>
#include <utility>

#include "bytes.h"
#include "failure.h"
#include "store_values.h"

namespace zelkm_tool {
namespace {

using Values = std::vector<std::string>;

constexpr char kJsonBlanks[] = " \t\r\n";
constexpr size_t kMaxCsvColumns = 100;  // with values; empty ones behind them are not counted

std::string upper(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c; });
    return text;
}

struct Record {
    size_t line;  // its first one
    size_t num_fields = 1;
    Values fields = {};  // up to the last one that is not empty
    std::string problem = "";
};

// Takes the first record off a CSV text, and counts the lines.
Record takeRecord(std::string_view* text, char separator, size_t* line) {
    Record record = {*line};
    std::string field;
    bool quoted = false;  // within the quotes of a value
    bool closed = false;  // behind them
    const auto endField = [&] {
        if (record.num_fields > kMaxCsvColumns && !field.empty()) {
            record.problem = "more than " + std::to_string(kMaxCsvColumns) + " values";
        } else if (!field.empty()) {
            record.fields.resize(record.num_fields - 1);
            record.fields.push_back(std::exchange(field, ""));
        }
        closed = false;
    };
    size_t len = 0;
    for (bool ends = false; len < text->size() && !ends; ++len) {
        const char c = (*text)[len];
        const std::string_view next = text->substr(len + 1, 1);
        *line += c == '\n' ? 1 : 0;
        if (quoted && (c != '"' || next == "\"")) {
            field += c;
            len += c == '"' ? 1 : 0;
        } else if (quoted) {
            quoted = false;
            closed = true;
        } else if (c == '"' && field.empty() && !closed) {
            quoted = true;
        } else if (c == separator) {
            endField();
            ++record.num_fields;
        } else if (c == '\n') {
            ends = true;
        } else if (c != '\r' || next != "\n") {
            field += c;
            if (closed) {
                record.problem = "a value continues after its closing quote";
            } else if (c == '"') {
                record.problem = "a quote within a value must be doubled, and the value in quotes";
            }
        }
    }
    endField();
    if (quoted) {
        record.problem = "the closing quote is missing";
    }
    text->remove_prefix(len);
    return record;
}

// The columns that the first line of a CSV text names.
std::vector<std::string> columnsOf(const Record& header) {
    if (header.fields.empty()) {
        throw Refused("line 1: the column names are missing");
    }
    try {
        return parseColumns(upper(join(header.fields, ",")));
    } catch (const WrongUsage& wrong) {
        throw Refused(std::string("line 1: ") + wrong.what());
    }
}

void readCsv(std::string_view text, const ObjectVisitor& visit) {
    // The first separator behind a name of a column: the names have none in them.
    const size_t at = text.substr(0, text.find('\n')).find_first_of(",;\t");
    const char separator = at == text.npos ? ',' : text[at];
    size_t line = 1;
    const std::vector<std::string> columns = columnsOf(takeRecord(&text, separator, &line));
    while (!text.empty()) {
        Record record = takeRecord(&text, separator, &line);
        if (record.fields.empty() && record.problem.empty()) {
            continue;
        }
        if (record.problem.empty() &&
            (record.num_fields < columns.size() || record.fields.size() > columns.size())) {
            record.problem = std::to_string(record.num_fields) + " values for " +
                             std::to_string(columns.size()) + " columns";
        }
        Values values(kColumnNames.size());
        for (size_t i = 0; record.problem.empty() && i < record.fields.size(); ++i) {
            values[columnNumber(columns[i])] = std::move(record.fields[i]);
        }
        visit("line " + std::to_string(record.line), std::move(values), record.problem);
    }
}

// Takes the objects out of a JSON text while it is parsed, so that one object at a time is in
// memory.
class JsonObjects : public nlohmann::json_sax<nlohmann::json> {
  public:
    // The objects are this deep in the text, 1 in an array.
    JsonObjects(int depth, const ObjectVisitor& visit) : depth_(-depth), visit_(visit) {}

    // Where the next object is. Without it, objects have numbers.
    void setPlace(const std::string& place) { place_ = place; }

    bool null() override { return takeScalar(""); }
    bool boolean(bool) override { return takeScalar(std::nullopt); }
    bool number_integer(int64_t number) override { return takeScalar(std::to_string(number)); }
    bool number_unsigned(uint64_t number) override { return takeScalar(std::to_string(number)); }
    bool number_float(double, const std::string&) override { return takeScalar(std::nullopt); }
    bool binary(nlohmann::json::binary_t&) override { return takeScalar(std::nullopt); }
    bool string(std::string& text) override {
        return depth_ == 2 ? setValue(unhex(text)) : takeScalar(text);
    }

    bool start_array(std::size_t) override { return depth_ < 0 ? ++depth_ <= 0 : start(false); }
    bool end_array() override { return end(); }
    bool start_object(std::size_t) override { return start(true); }
    bool end_object() override {
        return (depth_ != 2 || is_set_ || setValue(std::nullopt)) && end();
    }

    bool key(std::string& name) override {
        if (depth_ == 2) {
            return name == "hex" || setValue(std::nullopt);
        }
        name_ = name;
        column_ = columnNumber(upper(name));
        if (column_ == kColumnNames.size() && problem_.empty()) {
            problem_ = "unknown column '" + escape(name) + "'";
        }
        return true;
    }

    bool parse_error(std::size_t, const std::string&,
                     const nlohmann::detail::exception& error) override {
        const std::string what = error.what();  // it says "[json.exception...] what is wrong"
        throw Refused((place_.empty() ? "" : place_ + ": ") +
                      escape(what.substr(std::min(what.find("] ") + 2, what.size()))));
    }

  private:
    bool start(bool is_object) {
        if (depth_ == 0) {
            problem_ = is_object ? "" : "not an object of columns and values";
            values_.assign(kColumnNames.size(), "");
        } else if (depth_ == 1 && !is_object) {
            setValue(std::nullopt);
        } else if (depth_ == 2) {
            throw Refused(place() + ": the values are nested too deep");
        }
        is_set_ = false;
        ++depth_;
        return true;
    }

    bool end() {
        if (--depth_ == 0) {
            visit_(place(), std::move(values_), problem_);
            ++taken_;
        }
        return true;
    }

    // Nothing stands for what no value may be.
    bool takeScalar(const std::optional<std::string>& bytes) {
        return depth_ == 0 ? start(false) && end() : setValue(depth_ == 1 ? bytes : std::nullopt);
    }

    bool setValue(const std::optional<std::string>& bytes) {
        is_set_ = true;
        if (bytes && problem_.empty()) {
            values_[column_] = *bytes;
        } else if (problem_.empty()) {
            problem_ =
                name_ +
                ": a value is a string, a whole number, null, or {\"hex\": \"...\"} with two "
                "digits per byte";
        }
        return true;
    }

    std::string place() const {
        return place_.empty() ? "object " + std::to_string(taken_ + 1) : place_;
    }

    int depth_;  // 0 outside of an object, 1 in it, 2 in a value of it
    const ObjectVisitor& visit_;
    std::string place_;
    size_t taken_ = 0;
    std::string name_;  // of the column, as it is written
    size_t column_ = 0;
    bool is_set_ = false;
    Values values_;
    std::string problem_;
};

// Reads objects that stand one after the other, usually one in each line.
void readJsonObjects(std::string_view text, const ObjectVisitor& visit) {
    JsonObjects objects(0, visit);
    std::istringstream stream{std::string(text)};
    const char* before = text.data();
    for (ptrdiff_t line = 1; (stream >> std::ws).peek() != EOF;) {
        const char* const at = text.data() + stream.tellg();
        line += std::count(before, at, '\n');
        before = at;
        objects.setPlace("line " + std::to_string(line));
        nlohmann::json::sax_parse(stream, &objects, nlohmann::json::input_format_t::json,
                                  /*strict=*/false);
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
        JsonObjects objects(1, counting);
        nlohmann::json::sax_parse(text, &objects);
    } else if (first == "{") {
        readJsonObjects(text, counting);
    } else {
        readCsv(text, counting);
    }
}

}  // namespace zelkm_tool
