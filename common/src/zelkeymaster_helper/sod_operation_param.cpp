// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "sod_operation_param.h"

#include <algorithm>
#include <utility>

#include "text_pieces.h"

namespace {

constexpr char kQuote = 0x1F;

std::string quoted(const std::string& value) {
    return kQuote + value + kQuote;
}

// Sets the value of `column`, or appends both to their lists. All allocations come first, so that
// the lists stay in step even without memory.
void put(std::vector<std::string>& columns, std::vector<std::string>& values, std::string column,
         std::string value) {
    const auto found = std::find(columns.begin(), columns.end(), column);
    if (found != columns.end()) {
        const size_t place = static_cast<size_t>(found - columns.begin());
        if (place >= values.size()) {  // only if a caller changed the lists
            values.resize(place + 1);
        }
        values[place] = std::move(value);
        return;
    }
    columns.reserve(columns.size() + 1);
    values.reserve(values.size() + 1);
    columns.push_back(std::move(column));
    values.push_back(std::move(value));
}

}  // namespace

SODOperationParam::SODOperationParam()
    : mAliasName("ALIAS"),
      mCreatorName("CREATOR"),
      mAdminName("ADMIN"),
      mAccessorName("ACCESSOR"),
      mCreatorUidName("CREATOR_UID"),
      mPrivAccName("PRIV_ACC"),
      mPrivAccValue("1") {}

SODOperationParam& SODOperationParam::setColumn(std::string& column, std::string& value) {
    put(mColumnList, mDataList, column, value);
    return *this;
}

SODOperationParam& SODOperationParam::setAlias(std::string& v) {
    std::string value = quoted(v);
    return setColumn(mAliasName, value);
}

SODOperationParam& SODOperationParam::setCreator(std::string& v) {
    std::string value = quoted(v);
    return setColumn(mCreatorName, value);
}

SODOperationParam& SODOperationParam::setAdmin(std::string& v) {
    std::string value = quoted(v);
    return setColumn(mAdminName, value);
}

SODOperationParam& SODOperationParam::setAccessor(std::string& v) {
    std::string value = quoted(v);
    return setColumn(mAccessorName, value);
}

SODOperationParam& SODOperationParam::setCreatorUid(std::string& v) {
    std::string value = quoted(v);
    return setColumn(mCreatorUidName, value);
}

SODOperationParam& SODOperationParam::setPrivilegedAccess(bool on) {
    return on ? setColumn(mPrivAccName, mPrivAccValue) : *this;
}

SODOperationParam& SODOperationParam::addWhere(std::string& column, std::string& value) {
    put(mWhereColumnList, mWhereValueList, column, quoted(value));
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
    mColumnList.clear();
    mDataList.clear();
    mWhereColumnList.clear();
    mWhereValueList.clear();
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
