// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "store_access.h"

#include <sod_command_text.h>
#include <velt_secure_db.h>

#include <algorithm>
#include <cstdint>
#include <utility>

#include "directory.h"
#include "failure.h"
#include "store_file.h"

namespace zelkm_tool {
namespace {

constexpr char kQuote = 0x1F;
constexpr uint8_t kSeparator = 0x1E;  // of values in what the engine returns

// What all calls to a keymaster in another process share: 1 MiB less two pages. A change sends the
// whole store in one call.
constexpr uint64_t kTransportLen = (1 << 20) - 2 * 4096;

}  // namespace

std::vector<Condition> parseConditions(const std::vector<std::string>& texts, bool careless,
                                       bool star_is_careless) {
    std::vector<Condition> conditions;
    std::transform(texts.begin(), texts.end(), std::back_inserter(conditions), parseCondition);
    checkConditions(conditions, careless, star_is_careless);
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

SODOperationParam paramOf(const Row& object) {
    SODOperationParam param;
    for (size_t i = 0; i < object.size(); ++i) {
        if (!object[i].empty()) {
            std::string column(kColumnNames[i]);
            std::string value = kQuote + object[i] + kQuote;
            param.setColumn(column, value);
        }
    }
    return param;
}

// The engine's own text: the library would cut it at every line feed, which a value may hold.
std::vector<Row> select(Session& session, const std::vector<Condition>& conditions,
                        const std::vector<std::string>& columns) {
    if (!session.image()) {
        return {};
    }
    const size_t num_objects = session.numObjects();
    SODOperationParam param = paramWith(conditions);
    for (std::string column : columns) {
        param.addOutputFormat(column);
    }
    const zelkm::CommandText command = zelkm::selectCommand(param);
    const EngineOutput output = session.checkRead(session.query(command.view()));
    StoreRows found = readRows(output.text(), kSeparator, columns.size(), SIZE_MAX);
    if (!found.whole) {
        throw Refused(
            "a stored value holds the byte 0x1e, so that values cannot be separated; "
            "see the rows with: zelkm query 'SELECT (ALIAS)'");
    }
    if (conditions.empty() && found.rows.size() != num_objects) {
        throw Refused("reading the store: not all objects were read");
    }
    return std::move(found.rows);
}

std::string nameOf(const Row& object) {
    return object[1] + kBetween + object[0];
}

std::vector<size_t> findNamed(const std::vector<Row>& objects, const std::string& name) {
    std::vector<size_t> found;
    for (const bool escaped : {false, true}) {
        for (size_t i = 0; i < objects.size(); ++i) {
            const std::string each = nameOf(objects[i]);
            if (name == (escaped ? escape(each) : each)) {
                found.push_back(i);
            }
        }
        if (!found.empty()) {
            return found;
        }
    }
    throw Refused("no object " + escape(name) +
                  "; CREATOR::ALIAS is expected, as 'zelkm aliases' shows it");
}

void storeObjects(Session& session, const std::vector<Row>& objects, const std::string& what) {
    ZelKeymasterOperation& operation = session.operation();
    // The engine loads all objects but the last one from a plaintext. With that one it makes the
    // new store. It has then left the table of the library, which reads the new store itself before
    // its next command.
    const std::string others = plainStore({objects.begin(), objects.end() - 1});
    SODOperationParam last = paramOf(objects.back());
    const zelkm::CommandText command = zelkm::insertCommand(last);
    checkStoreLen(session.options(), plainStore(objects).size());
    sdb_register_db_encrypt_fp(&operation, DBEncryptCB);
    EngineOutput store = runEngine(command.view(), others);
    session.checkStoreResult(store.status, what);
    session.replaceStore(what, objects.size(), std::move(store));
}

void checkStoreLen(const SessionOptions& options, uint64_t len) {
    if (len > kMaxFileLen) {
        throw Refused("nothing was stored: the store would have " + std::to_string(len) +
                      " bytes, but none larger than " + std::to_string(kMaxFileLen) + " is read");
    }
    if (len >= kTransportLen / 2) {
        note(options, "the store has " + std::to_string(len) + " bytes; on a device all calls to " +
                          "the keymaster share " + std::to_string(kTransportLen) +
                          ", and a store that is too large is lost");
    }
}

}  // namespace zelkm_tool
