// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// WHERE conditions and the pattern language of stored access lists. simple_reg_cmp() and
// enumerated_simple_reg_cmp(), also defined here, are described in velt_secure_db.h.

#pragma once

#include "velt_secure_db.h"

namespace zelkm {

// Resolves the column of each condition: table[i] becomes its index, kNoColumn for an unknown name.
// Entries beyond the conditions are not touched.
void init_condition_table(uint8_t* table, const db_parsed_where_set_t* where);

// Whether the row satisfies all conditions (1 or 0). `table` comes from init_condition_table(). A
// condition on an unknown column counts as satisfied; one with another operator than "=" never
// does.
[[nodiscard]] int check_condition_set(const db_row* row, const db_parsed_where_set_t* where,
                                      const uint8_t* table);

}  // namespace zelkm
