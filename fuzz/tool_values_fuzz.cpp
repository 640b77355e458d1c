// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The tool's checks in front of the engine. A value that they accept must come back byte for byte,
// and must be found when it is asked for. It must neither reach nor change any other object. A
// model of the store tells.

#include <algorithm>
#include <vector>

#include "../tools/zelkm/failure.h"
#include "../tools/zelkm/store_file.h"
#include "../tools/zelkm/store_values.h"
#include "fuzz.h"
#include "sod_command_text.h"
#include "sod_operation_param.h"
#include "velt_secure_db.h"

namespace {

using zelkm_tool::Condition;
using zelkm_tool::kColumnNames;
using Row = std::vector<std::string>;

std::string textOf(const fuzz::Block& block) {
    return {block.text(), block.len};
}

bool satisfies(const Row& row, const Condition& condition) {
    fuzz::require(condition.op == "=");
    const auto column =
        static_cast<size_t>(std::find(kColumnNames.begin(), kColumnNames.end(), condition.column) -
                            kColumnNames.begin());
    const std::string& value = row[column];
    if (condition.column != "ADMIN" && condition.column != "ACCESSOR") {
        return condition.value == "*" || condition.value == value;
    }
    const auto bytes = [](const std::string& text) {
        return reinterpret_cast<const uint8_t*>(text.data());
    };
    return enumerated_simple_reg_cmp(
               bytes(value), static_cast<uint32_t>(value.size()), bytes(condition.value),
               static_cast<uint32_t>(condition.value.size()), condition.column == "ACCESSOR") == 1;
}

SODOperationParam paramWith(const std::vector<Condition>& conditions) {
    SODOperationParam param;
    for (Condition condition : conditions) {
        param.addWhere(condition.column, condition.value);
    }
    return param;
}

// The engine's store and what must be in it.
class CheckedStore {
  public:
    CheckedStore() {
        requireEqual({});  // drops the table of the run before
        add({"k1", "app", "1000,1001", "[10000..19999],x*", "1000", ""});
        add({"k1", "other", "1000", "*", "", "1"});
        add({"k2", "app", "", "a*#b", "", ""});
    }

    void add(const Row& row) {
        SODOperationParam param;
        for (size_t i = 0; i < row.size(); ++i) {
            if (row[i].empty()) {
                continue;
            }
            std::string column(kColumnNames[i]);
            std::string value = i == 5 ? row[i] : '\x1f' + row[i] + '\x1f';
            param.setColumn(column, value);
        }
        fuzz::require(change(zelkm::insertCommand(param)) == 0);
        rows_.push_back(row);
    }

    void remove(const std::vector<Condition>& conditions) {
        const std::vector<Row> reached = matching(conditions);
        SODOperationParam param = paramWith(conditions);
        const int status = change(zelkm::deleteCommand(param));
        fuzz::require(status == (reached.empty() ? ZELKM_NOTHING_DELETED : ZELKM_OK));
        rows_.erase(std::remove_if(rows_.begin(), rows_.end(),
                                   [&](const Row& row) { return all(row, conditions); }),
                    rows_.end());
    }

    // The objects that satisfy the conditions, in the engine as in the model.
    void requireEqual(const std::vector<Condition>& conditions) {
        SODOperationParam param = paramWith(conditions);
        for (std::string_view name : kColumnNames) {
            std::string column(name);
            param.addOutputFormat(column);
        }
        std::string text;
        fuzz::require(query(zelkm::selectCommand(param), &text) == 0);
        const auto read = zelkm_tool::readRows(text, 0x1E, kColumnNames.size(), SIZE_MAX);
        fuzz::require(read.whole && read.rows == matching(conditions));
    }

    void reload() { handle_ = 0; }

  private:
    static bool all(const Row& row, const std::vector<Condition>& conditions) {
        return std::all_of(conditions.begin(), conditions.end(),
                           [&](const Condition& c) { return satisfies(row, c); });
    }

    std::vector<Row> matching(const std::vector<Condition>& conditions) const {
        std::vector<Row> found;
        std::copy_if(rows_.begin(), rows_.end(), std::back_inserter(found),
                     [&](const Row& row) { return all(row, conditions); });
        return found;
    }

    int query(const zelkm::CommandText& command, std::string* result) {
        unsigned char* out = nullptr;
        unsigned int len = 0;
        const int status =
            sdb_query(command.view().data(), static_cast<unsigned int>(command.len),
                      reinterpret_cast<const unsigned char*>(stored_.data()),
                      static_cast<unsigned int>(stored_.size()), &out, &len, &handle_);
        if (status == 0) {
            result->assign(reinterpret_cast<const char*>(out), len);
            std::free(out);
        }
        return status;
    }

    int change(const zelkm::CommandText& command) { return query(command, &stored_); }

    std::string stored_;
    uint64_t handle_ = 0;
    std::vector<Row> rows_;
};

// A value that a pattern must let in when the tool says that the pattern can match.
std::string witnessOf(std::string pattern) {
    std::string subject;
    for (size_t i = 0; i < pattern.size(); ++i) {
        if (pattern[i] == '[') {
            const size_t digits = pattern.find_first_not_of("0123456789", i + 1) - (i + 1);
            subject += digits == 0 ? "0" : pattern.substr(i + 1, digits);
            i = pattern.find(']', i);
        } else if (pattern[i] != '*') {
            subject += pattern[i];
        }
    }
    return subject.empty() ? "x" : subject;
}

// The tool and the engine must judge a pattern alike.
void judgePattern(const std::string& pattern, const std::string& subject) {
    const auto bytes = [](const std::string& text) {
        return reinterpret_cast<const uint8_t*>(text.data());
    };
    const auto lets_in = [&](const std::string& who) {
        return simple_reg_cmp(bytes(pattern), static_cast<uint32_t>(pattern.size()), bytes(who),
                              static_cast<uint32_t>(who.size()), 1) == 1;
    };
    const bool useless = zelkm_tool::patternProblem(pattern).has_value();
    fuzz::require(pattern.empty() || subject == "*" || !(useless && lets_in(subject)));
    fuzz::require(pattern.empty() || useless || lets_in(witnessOf(pattern)));
}

// Adds an object if the tool would store it.
void tryToAdd(fuzz::Input* input, CheckedStore* store) {
    Row row(kColumnNames.size());
    const uint8_t given = input->byte();
    bool accepted = true;
    for (size_t i = 0; i < 5; ++i) {
        if (i >= 2 && (given >> i & 1) == 0) {
            continue;
        }
        row[i] = textOf(input->block());
        accepted = accepted && !zelkm_tool::storedValueProblem(kColumnNames[i], row[i]);
        judgePattern(row[i], row[0]);
    }
    if (!accepted) {
        return;
    }
    row[5] = (given & 1) != 0 ? "1" : "";
    store->add(row);
    // What is stored can be asked for.
    store->requireEqual({zelkm_tool::parseCondition("ALIAS=" + row[0])});
    store->requireEqual({zelkm_tool::parseCondition("CREATOR=" + row[1])});
}

void tryConditions(fuzz::Input* input, CheckedStore* store, bool remove) {
    std::vector<std::string> texts(input->byte() % 8);
    for (std::string& text : texts) {
        text = textOf(input->block());
    }
    std::vector<Condition> conditions;
    try {
        std::transform(texts.begin(), texts.end(), std::back_inserter(conditions),
                       zelkm_tool::parseCondition);
        zelkm_tool::checkConditions(conditions, /*careless=*/false, /*star_is_careless=*/remove);
    } catch (const zelkm_tool::WrongUsage&) {
        return;
    }
    store->requireEqual(conditions);
    if (remove && !conditions.empty()) {
        store->remove(conditions);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::Input input(data, size);
    sdb_register_db_encrypt_fp(nullptr, nullptr);
    CheckedStore store;
    while (!input.empty()) {
        const uint8_t choice = input.byte();
        if (choice % 3 == 0) {
            tryToAdd(&input, &store);
        } else {
            tryConditions(&input, &store, choice % 3 == 1);
        }
        store.requireEqual({});
    }
    store.reload();
    store.requireEqual({});
    return 0;
}
