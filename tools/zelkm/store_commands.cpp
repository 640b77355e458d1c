// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The commands on secure objects. See store_commands.h.

#include "store_commands.h"

#include <sod_operation_param.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <memory>

#include "failure.h"
#include "output.h"
#include "result_text.h"
#include "store_values.h"

namespace zelkm_tool {
namespace {

constexpr char kReading[] = "reading the store";

struct Free {
    void operator()(uint8_t* data) const { std::free(data); }
};
using MallocBytes = std::unique_ptr<uint8_t, Free>;

std::vector<Condition> parseConditions(const std::vector<std::string>& texts) {
    std::vector<Condition> conditions;
    std::transform(texts.begin(), texts.end(), std::back_inserter(conditions), parseCondition);
    return conditions;
}

SODOperationParam paramWith(const std::vector<Condition>& conditions) {
    SODOperationParam param;
    for (const Condition& condition : conditions) {
        // The library writes "=" after the column; a '<' or '>' before it makes "<=" or ">=", which
        // match nothing, like "<" and ">".
        std::string column =
            condition.column + (condition.op == "=" ? "" : condition.op.substr(0, 1));
        std::string value = condition.value;
        param.addWhere(column, value);
    }
    return param;
}

// The values of the named columns of every object that satisfies the conditions.
std::vector<std::vector<std::string>> select(Session& session,
                                             const std::vector<Condition>& conditions,
                                             const std::vector<std::string>& columns) {
    if (!session.hasStore()) {
        return {};
    }
    SODOperationParam param = paramWith(conditions);
    for (std::string column : columns) {
        param.addOutputFormat(column);
    }
    std::vector<std::string> lines;
    session.checkStoreResult(session.operation().SodSelect(param, lines), kReading);

    // The library cuts at every line feed; together again, the lines are the text that it cut.
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

void requireStorable(const char* option, std::string_view column, std::string_view value) {
    if (const auto reason = whyNotStored(column, value)) {
        throw WrongUsage(std::string(option) + ": " + *reason);
    }
}

std::string numObjects(size_t count) {
    return std::to_string(count) + (count == 1 ? " object" : " objects");
}

int encryptWithOperation(void* ctx, unsigned int mode, unsigned char* plain, unsigned char* cipher,
                         unsigned int len, unsigned char* iv, unsigned char* tag,
                         unsigned char* aad, unsigned int aad_len) {
    return static_cast<ZelKeymasterOperation*>(ctx)->DBEncrypt(mode, plain, cipher, len, iv, tag,
                                                               aad, aad_len);
}

// Result text with its line structure, and everything else that is not printable as \xNN.
void printResultText(std::string_view text) {
    while (!text.empty()) {
        const size_t end = std::min(text.find('\n'), text.size());
        std::cout << escape(text.substr(0, end)) << '\n';
        text.remove_prefix(std::min(end + 1, text.size()));
    }
}

}  // namespace

void addObject(const SessionOptions& session_options, const AddOptions& options) {
    SODOperationParam param;
    std::string alias = options.alias;
    std::string creator = options.creator;
    requireStorable("--alias", "ALIAS", alias);
    requireStorable("--creator", "CREATOR", creator);
    param.setAlias(alias).setCreator(creator).setPrivilegedAccess(options.privileged);
    if (auto admin = options.admin) {
        requireStorable("--admin", "ADMIN", *admin);
        param.setAdmin(*admin);
    }
    if (auto accessor = options.accessor) {
        requireStorable("--accessor", "ACCESSOR", *accessor);
        param.setAccessor(*accessor);
    }
    if (auto uid = options.creator_uid) {
        requireStorable("--creator-uid", "CREATOR_UID", *uid);
        param.setCreatorUid(*uid);
    }

    Session session(session_options, Session::Use::kStore);
    // All columns: a store that cannot be read back correctly must not be written again, either.
    for (const auto& row : select(session, {}, parseColumns(""))) {
        if (!options.duplicate && row[0] == alias && row[1] == creator) {
            throw Refused("creator " + escape(creator) + " has an object with the alias " +
                          escape(alias) + " already; --duplicate adds another one");
        }
    }
    session.checkStoreResult(session.operation().SodInsert(param), "adding the object");
    std::cout << "added " << escape(creator) << "::" << escape(alias) << '\n';
}

void listObjects(const SessionOptions& session_options, const ListOptions& options) {
    const std::vector<Condition> conditions = parseConditions(options.where);
    checkConditions(conditions, /*careless=*/false, /*star_is_careless=*/false);
    Table table;
    table.columns = parseColumns(options.columns);

    Session session(session_options, Session::Use::kStore);
    table.rows = select(session, conditions, table.columns);
    if (options.json) {
        printJson(std::cout, table);
    } else if (options.csv) {
        printCsv(std::cout, table);
    } else {
        printTable(std::cout, table);
    }
}

void removeObjects(const SessionOptions& session_options, const RemoveOptions& options) {
    const std::vector<Condition> conditions = parseConditions(options.where);
    if (conditions.empty() && !options.all) {
        throw WrongUsage("no condition: every object would be removed; --all does that");
    }
    checkConditions(conditions, /*careless=*/options.all, /*star_is_careless=*/true);

    Session session(session_options, Session::Use::kStore);
    const size_t count = select(session, conditions, parseColumns("")).size();
    if (count != 0) {
        SODOperationParam param = paramWith(conditions);
        session.checkStoreResult(session.operation().SodDelete(param), "removing");
    }
    std::cout << "removed " << numObjects(count) << '\n';
}

void listAliases(const SessionOptions& session_options) {
    Session session(session_options, Session::Use::kStore);
    if (!session.hasStore()) {
        return;
    }
    SODOperationParam param;
    std::vector<std::string> names;
    session.checkStoreResult(session.operation().SodRetreiveAlias(param, names), kReading);
    for (const std::string& name : names) {
        std::cout << escape(name) << '\n';
    }
}

void runQuery(const SessionOptions& session_options, const std::string& text) {
    const std::string command = unescape(text);
    Session session(session_options, Session::Use::kStore);
    ZelKeymasterOperation& operation = session.operation();

    uint8_t* image = nullptr;
    uint32_t image_len = 0;
    check(ZelKeymasterOperation::load_data(kStoreFile, &image, &image_len), kStoreFile);
    const MallocBytes image_owner(image);

    const keymaster_blob_t stored = {image, image_len};
    const keymaster_blob_t command_blob = {reinterpret_cast<const uint8_t*>(command.data()),
                                           command.size()};
    keymaster_blob_t answer = {};
    const int status = operation.queryInternal(nullptr, &operation, encryptWithOperation, &stored,
                                               &command_blob, &answer);
    MallocBytes answer_owner(const_cast<uint8_t*>(answer.data));
    std::cout << "status " << resultText(status) << '\n';
    session.checkStoreResult(status, "query");

    if (command.compare(0, 6, "SELECT") == 0) {
        printResultText({reinterpret_cast<const char*>(answer.data), answer.data_length});
        return;
    }
    check(operation.update_db_file(answer.data, static_cast<uint32_t>(answer.data_length)),
          kStoreFile);
    (void)answer_owner.release();
    std::cout << "new store of " << answer.data_length << " bytes\n";
}

}  // namespace zelkm_tool
