// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The description of one secure object operation. The caller fills it, and passes it to a Sod…
// method of ZelKeymasterOperation.

#pragma once

#include <string>
#include <vector>

#define ZELKM_EXPORT __attribute__((visibility("default")))

// Collects the columns and values to write, the conditions to match and the columns to read back.
//
// Values are wrapped in the byte 0x1F, the command language's quote. Nothing is escaped, and no
// value is checked. Some values break the command or the stored row:
//  - a value that holds 0x1F, 0x1E, a line feed or NUL
//  - a value that is empty or begins with a comma
//  - in a condition, a value that holds " AND "
// Values are copied, and arguments are not modified. Setters return the object itself, so that
// calls can be chained.
//
// Threads: see zelkeymaster_operation.h. Without memory the constructor, the setters and
// getTokensFromString() throw std::bad_alloc. The lists of the object then stay as they were. The
// library throws no other exception.
class ZELKM_EXPORT SODOperationParam {
  public:
    // Sets the six column names and the mark of a privileged object. All lists are empty.
    SODOperationParam();

    // Sets `value` for `column` in the write lists, without adding quote bytes. A column that was
    // set before keeps its place, and takes the new value.
    SODOperationParam& setColumn(std::string& column, std::string& value);

    // Each sets the quoted value for its column in the write lists.
    SODOperationParam& setAlias(std::string& v);
    SODOperationParam& setCreator(std::string& v);
    SODOperationParam& setAdmin(std::string& v);     // comma-separated list of literals
    SODOperationParam& setAccessor(std::string& v);  // comma-separated list of patterns
    SODOperationParam& setCreatorUid(std::string& v);
    // Writes the mark of a privileged object, without quotes. False does nothing: an earlier true
    // stays.
    SODOperationParam& setPrivilegedAccess(bool on);

    // Sets the quoted `value` for `column` in the condition lists. A column has one condition: the
    // second one replaces the first.
    SODOperationParam& addWhere(std::string& column, std::string& value);

    // Each calls addWhere() for its column.
    SODOperationParam& addAliasInWhere(std::string& v);
    SODOperationParam& addCreatorInWhere(std::string& v);
    SODOperationParam& addAdminInWhere(std::string& v);
    SODOperationParam& addAccessorInWhere(std::string& v);
    SODOperationParam& addCreatorUidInWhere(std::string& v);
    // Matches the mark of a privileged object. False does nothing.
    SODOperationParam& addPrivilegedAccessWhere(bool on);

    // Appends `column` to the columns to read back, unless it is there. Result rows have their
    // fields in this order.
    SODOperationParam& addOutputFormat(std::string& column);

    // Each calls addOutputFormat() for its column.
    SODOperationParam& addAliasToOutput();
    SODOperationParam& addCreatorToOutput();
    SODOperationParam& addAdminToOutput();
    SODOperationParam& addAccessorToOutput();
    SODOperationParam& addCreatorUidToOutput();
    SODOperationParam& addPrivilegedAccessToOutput();

    // Empties all lists. The column names stay.
    SODOperationParam& clear();
    // Empties only the columns to read back.
    SODOperationParam& clearOutputFormat();

    // The lists themselves. They are valid as long as the object. A caller that changes them must
    // keep the two lists of a pair equally long: columns and data, condition columns and values.
    // Commands from other lists are refused. A setter that finds its column but no value for it
    // fills the value list with empty values up to that place.
    std::vector<std::string>& getColumnList();
    std::vector<std::string>& getDataList();
    std::vector<std::string>& getWhereColumnList();
    std::vector<std::string>& getWhereValueList();
    std::vector<std::string>& getOutputFormat();

    // The column names and the mark of a privileged object. The setters use whatever these hold.
    std::string mAliasName;
    std::string mCreatorName;
    std::string mAdminName;
    std::string mAccessorName;
    std::string mCreatorUidName;
    std::string mPrivAccName;
    std::string mPrivAccValue;

  private:
    std::vector<std::string> mColumnList;
    std::vector<std::string> mDataList;
    std::vector<std::string> mWhereColumnList;
    std::vector<std::string> mWhereValueList;
    std::vector<std::string> mOutputFormat;
};

// Appends the pieces of `in` between separators to `out`, which is not cleared first. Empty pieces
// count, but a separator at the end of `in` is followed by no piece. An empty `in` is one empty
// piece. `in` is not modified, and must not be an element of `out`. Without memory throws
// std::bad_alloc; `out` may then hold some of the pieces.
ZELKM_EXPORT void getTokensFromString(std::vector<std::string>& out, std::string& in,
                                      char separator);
