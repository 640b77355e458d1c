// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "sod_operation_param.h"

#include <openssl/crypto.h>

#include <algorithm>
#include <string_view>
#include <utility>

#include "text_pieces.h"
#include "velt_secure_db.h"

namespace {

constexpr char kQuote[] = "\x1F";

// As many as the store has columns. Lists with room for these never move their values, which would
// leave copies of short ones behind.
constexpr size_t kUsualColumns = SDB_NUM_COLUMNS;

void wipe(std::string* text) {
    text->resize(text->capacity());  // bytes of a short text stay behind its end
    OPENSSL_cleanse(text->data(), text->size());
}

// A value on its way into a list or out of it.
struct PassingValue {
    std::string text;

    ~PassingValue() { wipe(&text); }
};

// Sets the value of `column`, or appends both to their lists. All allocations come first, so that
// the lists stay in step even without memory.
void put(std::vector<std::string>& columns, std::vector<std::string>& values,
         const std::string& column, std::string_view value, std::string_view quote) {
    PassingValue passing;
    passing.text.reserve(value.size() + 2 * quote.size());
    passing.text.append(quote).append(value).append(quote);
    const auto found = std::find(columns.begin(), columns.end(), column);
    if (found != columns.end()) {
        const size_t place = static_cast<size_t>(found - columns.begin());
        if (place >= values.size()) {  // only if a caller changed the lists
            values.resize(place + 1);
        }
        values[place].swap(passing.text);
        return;
    }
    std::string name = column;
    columns.reserve(std::max(columns.size() + 1, kUsualColumns));
    values.reserve(std::max(values.size() + 1, kUsualColumns));
    columns.push_back(std::move(name));
    values.emplace_back().swap(passing.text);
}

}  // namespace

SODOperationParam::SODOperationParam()
    : mAliasName(column_schema[SDB_ALIAS].name),
      mCreatorName(column_schema[SDB_CREATOR].name),
      mAdminName(column_schema[SDB_ADMIN].name),
      mAccessorName(column_schema[SDB_ACCESSOR].name),
      mCreatorUidName(column_schema[SDB_CREATOR_UID].name),
      mPrivAccName(column_schema[SDB_PRIV_ACC].name),
      mPrivAccValue("1") {}

SODOperationParam& SODOperationParam::setColumn(std::string& column, std::string& value) {
    put(mColumnList, mDataList, column, value, "");
    return *this;
}

SODOperationParam& SODOperationParam::setAlias(std::string& v) {
    put(mColumnList, mDataList, mAliasName, v, kQuote);
    return *this;
}

SODOperationParam& SODOperationParam::setCreator(std::string& v) {
    put(mColumnList, mDataList, mCreatorName, v, kQuote);
    return *this;
}

SODOperationParam& SODOperationParam::setAdmin(std::string& v) {
    put(mColumnList, mDataList, mAdminName, v, kQuote);
    return *this;
}

SODOperationParam& SODOperationParam::setAccessor(std::string& v) {
    put(mColumnList, mDataList, mAccessorName, v, kQuote);
    return *this;
}

SODOperationParam& SODOperationParam::setCreatorUid(std::string& v) {
    put(mColumnList, mDataList, mCreatorUidName, v, kQuote);
    return *this;
}

SODOperationParam& SODOperationParam::setPrivilegedAccess(bool on) {
    return on ? setColumn(mPrivAccName, mPrivAccValue) : *this;
}

SODOperationParam& SODOperationParam::addWhere(std::string& column, std::string& value) {
    put(mWhereColumnList, mWhereValueList, column, value, kQuote);
    return *this;
}

SODOperationParam& SODOperationParam::addAliasInWhere(std::string& v) {
    return addWhere(mAliasName, v);
}

SODOperationParam& SODOperationParam::addCreatorInWhere(std::string& v) {
    return addWhere(mCreatorName, v);
}

SODOperationParam& SODOperationParam::addAdminInWhere(std::string& v) {
    return addWhere(mAdminName, v);
}

SODOperationParam& SODOperationParam::addAccessorInWhere(std::string& v) {
    return addWhere(mAccessorName, v);
}

SODOperationParam& SODOperationParam::addCreatorUidInWhere(std::string& v) {
    return addWhere(mCreatorUidName, v);
}

SODOperationParam& SODOperationParam::addPrivilegedAccessWhere(bool on) {
    return on ? addWhere(mPrivAccName, mPrivAccValue) : *this;
}

SODOperationParam& SODOperationParam::addOutputFormat(std::string& column) {
    if (std::find(mOutputFormat.begin(), mOutputFormat.end(), column) == mOutputFormat.end()) {
        mOutputFormat.push_back(column);
    }
    return *this;
}

SODOperationParam& SODOperationParam::addAliasToOutput() {
    return addOutputFormat(mAliasName);
}

SODOperationParam& SODOperationParam::addCreatorToOutput() {
    return addOutputFormat(mCreatorName);
}

SODOperationParam& SODOperationParam::addAdminToOutput() {
    return addOutputFormat(mAdminName);
}

SODOperationParam& SODOperationParam::addAccessorToOutput() {
    return addOutputFormat(mAccessorName);
}

SODOperationParam& SODOperationParam::addCreatorUidToOutput() {
    return addOutputFormat(mCreatorUidName);
}

SODOperationParam& SODOperationParam::addPrivilegedAccessToOutput() {
    return addOutputFormat(mPrivAccName);
}

SODOperationParam& SODOperationParam::clear() {
    for (std::vector<std::string>* values : {&mDataList, &mWhereValueList}) {
        for (std::string& value : *values) {
            wipe(&value);
        }
        values->clear();
    }
    mColumnList.clear();
    mWhereColumnList.clear();
    mOutputFormat.clear();
    return *this;
}

SODOperationParam& SODOperationParam::clearOutputFormat() {
    mOutputFormat.clear();
    return *this;
}

std::vector<std::string>& SODOperationParam::getColumnList() {
    return mColumnList;
}

std::vector<std::string>& SODOperationParam::getDataList() {
    return mDataList;
}

std::vector<std::string>& SODOperationParam::getWhereColumnList() {
    return mWhereColumnList;
}

std::vector<std::string>& SODOperationParam::getWhereValueList() {
    return mWhereValueList;
}

std::vector<std::string>& SODOperationParam::getOutputFormat() {
    return mOutputFormat;
}

void getTokensFromString(std::vector<std::string>& out, std::string& in, char separator) {
    zelkm::forEachPiece(in, separator, [&out](std::string_view piece) { out.emplace_back(piece); });
}
