// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "store_access.h"

#include <algorithm>

#include "failure.h"

namespace zelkm_tool {
namespace {

constexpr char kQuote = 0x1F;

}  // namespace

std::vector<Condition> parseConditions(const std::vector<std::string>& texts) {
    std::vector<Condition> conditions;
    std::transform(texts.begin(), texts.end(), std::back_inserter(conditions), parseCondition);
    return conditions;
}

SODOperationParam paramWith(const std::vector<Condition>& conditions) {
    SODOperationParam param;
    for (const Condition& condition : conditions) {
        // The library writes "=" after the column name. With a '<' or '>' at the end of the name,
        // that makes "<=" or ">=". These match no object, as "<" and ">" would.
        std::string column =
            condition.column + (condition.op == "=" ? "" : condition.op.substr(0, 1));
        std::string value = condition.value;
        param.addWhere(column, value);
    }
    return param;
}

std::vector<Row> select(Session& session, const std::vector<Condition>& conditions,
                        const std::vector<std::string>& columns) {
    if (!session.hasStore()) {
        return {};
    }
    SODOperationParam param = paramWith(conditions);
    for (std::string column : columns) {
        param.addOutputFormat(column);
    }
    std::vector<std::string> lines;
    session.checkStoreResult(session.operation().SodSelect(param, lines), "reading the store");

    // The library cuts its text at every line feed. Joined again, the lines are the whole text.
    std::string text;
    for (const std::string& line : lines) {
        text += (&line == &lines.front() ? "" : "\n") + line;
    }
    auto rows = splitSelection(text, columns.size());
    if (!rows) {
        throw Refused(
            "a stored value holds the byte 0x1e, so that values cannot be told apart; "
            "see the rows with: zelkm query 'SELECT (ALIAS)'");
    }
    return *std::move(rows);
}

int insert(Session& session, const Row& object) {
    SODOperationParam param;
    for (size_t i = 0; i < kColumnNames.size(); ++i) {
        if (object[i].empty()) {
            continue;
        }
        std::string column(kColumnNames[i]);
        std::string value = kQuote + object[i] + kQuote;
        param.setColumn(column, value);
    }
    return session.operation().SodInsert(param);
}

std::string numObjects(size_t count) {
    return std::to_string(count) + (count == 1 ? " object" : " objects");
}

}  // namespace zelkm_tool
