// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The secure object store engine: one table of six text columns in the memory of the process.
// Command texts drive it. It is loaded from a store blob, and exported to one. Usable from C and
// C++.
//
// Conventions
//  - Lengths are in bytes. Byte strings carry their length and need no terminating NUL.
//  - Results are 0 or a negative code of zelkeymaster_result.h. A non-zero status of the encryption
//    callback is passed on unchanged. On failure outputs keep what the caller put there.
//  - Buffers that the engine hands out come from malloc; the receiver releases them with free().
//  - Threads: callers serialise all calls; see zelkeymaster_operation.h. The callback must not call
//    back into the engine.
//  - The engine never touches files and holds no key.
//  - A null pointer is an error only where a function says so. All other pointers must be valid.

#pragma once

#include <stdint.h>

#include "zelkeymaster_result.h"

#define SDB_EXPORT __attribute__((visibility("default")))

// C has no attribute that a cast to void silences.
#ifdef __cplusplus
#define SDB_NODISCARD [[nodiscard]]
#else
#define SDB_NODISCARD
#endif

#ifdef __cplusplus
extern "C" {
#endif

// The columns, in the order of rows, stores and column_schema.
enum {
    SDB_ALIAS = 0,
    SDB_CREATOR,
    SDB_ADMIN,
    SDB_ACCESSOR,
    SDB_CREATOR_UID,
    SDB_PRIV_ACC,
    SDB_NUM_COLUMNS
};

enum {
    SDB_MAX_TOKENS = SDB_NUM_COLUMNS,  // items of one list in a command
    SDB_MAX_CONDITIONS = 6,            // conditions of one WHERE clause; further ones are ignored
    SDB_NUM_COMMANDS = 4,
    SDB_IV_LEN = 12,   // GCM nonce in the store header
    SDB_TAG_LEN = 16,  // GCM tag in the store header
    SDB_AAD_LEN = 12   // the magic field, authenticated with the payload
};

// Bits of a column's schema flags.
enum {
    SDB_TYPE_BYTES = 2,      // byte string owned by its row; the only supported type
    SDB_ATTR_PATTERN = 4,    // the stored value is a pattern of simple_reg_cmp()
    SDB_ATTR_ENUMERATED = 8  // the stored value is a comma-separated list
};

// Operators of a condition. 0 stands for a condition whose text was empty. A row can only satisfy
// SDB_OP_EQUAL: conditions with another operator are accepted, and match no row.
enum {
    SDB_OP_EQUAL = 1,
    SDB_OP_LESS = 2,
    SDB_OP_LESS_EQUAL = 3,
    SDB_OP_GREATER = 4,
    SDB_OP_GREATER_EQUAL = 5
};

// Indexes of the commands in command_handler.
enum { SDB_INSERT = 0, SDB_SELECT = 1, SDB_DELETE = 2, SDB_UPDATE = 3 };

// A piece of the caller's command text, which the token does not own. With len 0 the token is
// empty.
typedef struct db_token {
    const uint8_t* token;
    uint32_t len;
} db_token_t;

// One parsed list.
typedef struct db_parsed_tokens {
    db_token_t tokens[SDB_MAX_TOKENS];
    uint32_t count;  // tokens filled
} db_parsed_tokens_t;

// One parsed condition.
typedef struct db_parsed_where {
    db_token_t column;
    db_token_t value;
    uint32_t op;  // SDB_OP_…
} db_parsed_where_t;

// All conditions of one command. A row must satisfy every one.
typedef struct db_parsed_where_set {
    db_parsed_where_t where[SDB_MAX_CONDITIONS];
    uint32_t count;
} db_parsed_where_set_t;

// A buffer from malloc; its receiver owns it. data is null when nothing was produced.
typedef struct db_bytes {
    uint8_t* data;
    uint32_t len;
} db_bytes_t;

// One column of the schema.
typedef struct db_column_schema {
    const char* name;   // NUL-terminated
    uint32_t name_len;  // 0 until the first sdb_query() of the process
    uint32_t flags;     // SDB_TYPE_… and SDB_ATTR_…
} db_column_schema_t;

// One column's value inside a row.
typedef struct db_column_value {
    uint32_t flags;  // bit 0: present
    uint8_t* data;   // len bytes from malloc, owned by the row; no terminator
    uint32_t len;    // may be 0 for a present value
} db_column_value_t;

typedef struct db_row {
    uint32_t flags;  // bit 0: selected; has no meaning between commands
    db_column_value_t col[SDB_NUM_COLUMNS];
    struct db_row* next;  // null at the tail
} db_row;

// The table. A process has exactly one.
typedef struct db_table {
    uint64_t handle;  // 0: nothing loaded
    db_row* head;
    db_row* tail;
    uint32_t count;
    uint32_t reserved;  // 0
} db_table_t;

// Encrypts or decrypts a store payload. Ciphertext and plaintext both have len bytes.
//
//   mode 1, encrypt: plain and cipher are the same buffer, converted in place; the callback fills
//           iv (SDB_IV_LEN bytes) and tag (SDB_TAG_LEN bytes).
//   mode 0, decrypt: reads cipher, iv and tag, writes plain, a separate buffer.
//
// aad is SDB_AAD_LEN bytes, which must be authenticated with the payload. No buffer may be kept
// after the return. Returns 0, or any other value to make the engine's call fail with that value.
// The engine then wipes its copy of the payload. The callback chooses the nonce, which must never
// repeat with one key.
typedef int (*sdb_encrypt_fp)(void* ctx, unsigned int mode, unsigned char* plain,
                              unsigned char* cipher, unsigned int len, unsigned char* iv,
                              unsigned char* tag, unsigned char* aad, unsigned int aad_len);

// Runs one parsed command on the loaded table. `columns` and `values` are the command's lists,
// `where` its conditions. `out` must hold {NULL, 0}, and receives the new store blob, or for a
// select its text. Returns 0 or a negative code; see sdb_query().
typedef int (*db_command_handler_t)(db_parsed_tokens_t* columns, db_parsed_tokens_t* values,
                                    db_parsed_where_set_t* where, db_bytes_t* out);

// The handlers, indexed by SDB_INSERT … SDB_UPDATE. No command text reaches the update handler,
// because the parser refuses every UPDATE: it is for direct callers. They may call handlers after a
// first sdb_query(), and use the table as the last query left it.
SDB_EXPORT extern const db_command_handler_t command_handler[SDB_NUM_COMMANDS];

// The column schema, in the order of the columns in rows and stores. It is for reading only. It is
// not constant, because the first sdb_query() of a process stores the lengths of the names. Before
// that no column is found by its name.
SDB_EXPORT extern db_column_schema_t column_schema[SDB_NUM_COLUMNS];

// Runs one command.
//
//   command, len   the text, e.g. "SELECT (ALIAS) WHERE CREATOR=app"; len > 0.
//   blob, blob_len the stored store blob, or null/0 for an empty store. Read only when *handle is
//                  0; not kept.
//   out, out_len   receive the result on success when both are non-null: for INSERT and DELETE
//                  the new store blob, to be stored by the caller; for SELECT the selected
//                  rows as text (each value followed by 0x1E, each row by a line feed, one NUL at
//                  the end, counted). The caller frees *out. Untouched on failure. A SELECT
//                  without memory for its text succeeds with null and 0.
//   handle         in/out. 0 makes the engine load its table from blob and draw a new handle, even
//                  if the command then fails to parse. Any other value must be the one that the
//                  engine handed out last.
//
// Returns:
//      0   done
//    -38   command or handle is null, or len is 0
//    -41   out of memory
//   -100   a column of the schema is not of type SDB_TYPE_BYTES
//   -910   INSERT names an unknown column
//   -911   syntax error, lists of different lengths, or an UPDATE
//   -913   the blob ends inside its header, or a row does not end after six values
//   -914   *handle is stale: set it to 0 and call again with the stored blob
//   -915   the blob's payload length is larger than the blob
//   -917   DELETE matched no row
//   other  what the encryption callback returned
//
// When the new blob cannot be made (-41 or the callback's result), the table is dropped and every
// handle is stale, so that the next query loads what is really stored.
SDB_NODISCARD SDB_EXPORT int sdb_query(const char* command, unsigned int len,
                                       const unsigned char* blob, unsigned int blob_len,
                                       unsigned char** out, unsigned int* out_len,
                                       uint64_t* handle);

// Registers the encryption callback and its context. Both are borrowed until the next registration
// replaces them. A null fp turns encryption off: blobs are then written and read as plaintext.
SDB_EXPORT void sdb_register_db_encrypt_fp(void* ctx, sdb_encrypt_fp fp);

// Compares a stored value with a queried one. Returns 1 when they match, else 0.
//
// An empty or null subject matches nothing. The subject "*" matches everything. With use_pattern 0
// the bytes must be equal. Otherwise the first value is a pattern, which may hold
//   "[lo..hi]"      a decimal number in this range; either bound may be missing
//   "*" at its end  any rest
//   "*#" and "*_"   anything up to the first such delimiter; there is no backtracking
// There is no escape character. Reads at most plen and slen bytes.
SDB_NODISCARD SDB_EXPORT int simple_reg_cmp(const uint8_t* pattern, uint32_t plen,
                                            const uint8_t* subject, uint32_t slen,
                                            uint32_t use_pattern);

// Compares each item of a comma-separated list with the subject, as simple_reg_cmp() does. Returns
// 1 when an item matches, else 0, also for an empty list. A leading comma makes no item.
SDB_NODISCARD SDB_EXPORT int enumerated_simple_reg_cmp(const uint8_t* list, uint32_t llen,
                                                       const uint8_t* subject, uint32_t slen,
                                                       uint32_t use_pattern);

// Removes leading and trailing bytes equal to c from the token, in place. A token that holds
// nothing else keeps its start, and gets length 0.
SDB_EXPORT void strip_char(db_token_t* t, char c);

#ifdef __cplusplus
}
#endif
