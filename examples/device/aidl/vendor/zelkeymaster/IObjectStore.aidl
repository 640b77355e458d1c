// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

package vendor.zelkeymaster;

// What zeld offers to other processes of the vendor. The caller is the uid that binder reports. It
// becomes the creator of what it inserts, and reaches no objects of other creators but through
// usable().
//
// Results are 0, a refusal below, or a negative code of zelkeymaster_result.h. After a negative code
// the service restarts; ask it again which objects there are.
interface IObjectStore {
    const int BAD_VALUE = 1;
    const int EXISTS = 2;
    const int NOT_FOUND = 3;
    const int FULL = 4;

    int insert(@utf8InCpp String alias, @utf8InCpp String accessors);
    int update(@utf8InCpp String alias, @utf8InCpp String accessors);
    int remove(@utf8InCpp String alias);
    // "creator::alias" of each object that the caller may use.
    int usable(out @utf8InCpp List<String> names);
}
