// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The command texts of secure object operations. See sod_command_text.h.

#include "sod_command_text.h"

#include <cstddef>

namespace zelkm {
namespace {

std::string joined(const StringList& items) {
    std::string text;
    for (size_t i = 0; i < items.size(); ++i) {
        text += i != 0 ? "," : "";
        text += items[i];
    }
    return text;
}

std::string joined(const Conditions& conditions) {
    std::string text;
    for (size_t i = 0; i < conditions.columns.size(); ++i) {
        text += i != 0 ? " AND " : "";
        text += conditions.columns[i];
        text += '=';
        text += i < conditions.values.size() ? conditions.values[i] : std::string();
    }
    return text;
}

}  // namespace

std::string insertCommand(const StringList& columns, const StringList& values) {
    return "INSERT (" + joined(columns) + ") VALUE (" + joined(values) + ")";
}

std::string selectCommand(const StringList& columns, const Conditions& conditions) {
    return "SELECT (" + joined(columns) + ") WHERE " + joined(conditions);
}

std::string updateCommand(const StringList& columns, const StringList& values,
                          const Conditions& conditions) {
    return "UPDATE (" + joined(columns) + ") VALUE (" + joined(values) + ") WHERE " +
           joined(conditions);
}

std::string deleteCommand(const Conditions& conditions) {
    return "DELETE WHERE " + joined(conditions);
}

}  // namespace zelkm
