// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The store engine's entry point, its command handlers, and everything that it logs.
// docs/architecture.md says where the rest is.

#include "velt_secure_db.h"

#include <openssl/crypto.h>
#include <openssl/rand.h>

#include <cstdlib>
#include <cstring>

#include "db_command_parser.h"
#include "db_matching.h"
#include "db_object_table.h"
#include "db_rows.h"
#include "db_store_format.h"
#include "growing_array.h"
#include "malloc_buffer.h"
#include "platform_log.h"

#define LOG_ERROR(...) ZELKM_PLATFORM_LOG(ANDROID_LOG_ERROR, ZELKM_ERROR_PREFIX, __VA_ARGS__)
#define LOG_DEBUG(...) ZELKM_PLATFORM_LOG(ANDROID_LOG_DEBUG, ZELKM_DEBUG_PREFIX, __VA_ARGS__)

namespace zelkm {
namespace {

constexpr size_t kDumpedLen = 1023;  // bytes of a command that are logged
constexpr int kMaxHandleDraws = 10;

struct EncryptionCallback {
    void* ctx;
    sdb_encrypt_fp fp;
};

ObjectTable g_table;
GrowingArray<const db_row*> g_found;  // by a select; kept, so that the next one has room
EncryptionCallback g_encryption;
bool g_names_cached;

void dump_token(const char* label, const uint8_t* data, uint32_t len, uint32_t line) {
    LOG_DEBUG("%s(%d) : L%d", label, static_cast<int>(len), static_cast<int>(line));
    char text[kDumpedLen + 1];
    const size_t dumped = len < kDumpedLen ? len : kDumpedLen;
    if (dumped != 0) {
        std::memcpy(text, data, dumped);
    }
    text[dumped] = '\0';
    char* piece = text;
    while (char* end = std::strchr(piece, '\n')) {
        *end = '\0';
        LOG_DEBUG("%s", piece);
        piece = end + 1;
    }
    LOG_DEBUG("%s", piece);
    OPENSSL_cleanse(text, dumped);
}

// ---- Between the table and its texts ------------------------------------------------------------

// Drops the table after a failed export: the next query then loads what is really stored.
int dropTable(int status) {
    g_table.clear();
    LOG_ERROR("export sdb fail, clear db to sync again");
    return status;
}

// Exports the whole table after a change, as a store blob. Encrypts the blob in place when there is
// a callback. A blob that cannot be finished is wiped.
int exportStore(db_bytes_t* out) {
    const size_t payload_len = g_table.textLen(kAllColumns) + 1;
    const size_t len = kHeaderLen + payload_len;
    SecretBuffer blob;
    if (len <= UINT32_MAX) {  // as long as the store's lengths can say
        blob = allocateSecretBuffer(len);
    }
    if (blob == nullptr) {
        LOG_ERROR("allocation failure for out");
        return dropTable(ZELKM_MEMORY_ALLOCATION_FAILED);
    }
    uint8_t* const header = blob.get();
    uint8_t* const payload = header + kHeaderLen;
    const bool encrypted = g_encryption.fp != nullptr;
    writeHeader(header, encrypted ? kPayloadEncrypted : 0, g_table.count(),
                static_cast<uint32_t>(payload_len));
    *g_table.writeText(payload) = '\0';
    if (encrypted) {
        unsigned char aad[SDB_AAD_LEN];
        std::memcpy(aad, kMagic, sizeof(aad));
        const int status = g_encryption.fp(g_encryption.ctx, 1, payload, payload,
                                           static_cast<uint32_t>(payload_len), header + kIvOffset,
                                           header + kTagOffset, aad, sizeof(aad));
        if (status != ZELKM_OK) {
            return dropTable(status);
        }
    }
    *out = {blob.release(), static_cast<uint32_t>(len)};
    return ZELKM_OK;
}

// Exports the given columns of the rows that satisfy all conditions, as text without a header.
void exportSelection(const ConditionSet& conditions, const ColumnList& columns, db_bytes_t* out) {
    const bool all = conditions.count == 0 && !conditions.never;
    bool complete = true;
    size_t len = 1;
    if (all) {
        len += g_table.textLen(columns);
    } else {
        g_table.forEachMatching(conditions, [&](const db_row& row) {
            complete = complete && g_found.reserve(1);
            if (complete) {
                g_found.push(&row);
                len += encodedLen(row, columns);
            }
        });
    }
    MallocBuffer text;
    if (complete && len <= UINT32_MAX) {
        text = allocateBuffer(len);
    }
    if (text != nullptr) {
        uint8_t* to = text.get();
        if (all) {
            to = g_table.writeRows(columns, to);
        }
        for (const db_row* row : g_found) {
            to = encodeRow(*row, columns, to);
        }
        *to = '\0';
        *out = {text.release(), static_cast<uint32_t>(len)};
    } else {
        LOG_ERROR("allocation failure for out");
    }
    g_found.resize(0);
}

int decodeRow(PayloadReader* payload, db_row* row) {
    for (size_t i = 0; i < SDB_NUM_COLUMNS; ++i) {
        if (!holdsBytes(i)) {
            LOG_ERROR("not supported type");
            return ZELKM_UNSUPPORTED_COLUMN_TYPE;
        }
        if (!payload->takeValue(&row->col[i])) {
            LOG_ERROR("create colume value failure");
            return ZELKM_MEMORY_ALLOCATION_FAILED;
        }
    }
    uint8_t found = 0;
    if (!payload->takeRowEnd(&found)) {
        LOG_ERROR("abnormal end of lne %d", found);
        return ZELKM_MALFORMED_STORE;
    }
    return ZELKM_OK;
}

// Reads rows into an empty table. After a failure the table may hold some of them.
int decodeRows(PayloadReader* payload, uint32_t row_count, ObjectTable* rows) {
    while (rows->count() < row_count) {
        db_row* row = newRow();
        if (row == nullptr) {
            LOG_ERROR("allocation failure");
            return ZELKM_MEMORY_ALLOCATION_FAILED;
        }
        const int status = decodeRow(payload, row);
        if (status != ZELKM_OK) {
            free_row(row);
            return status;
        }
        rows->append(row);
    }
    return ZELKM_OK;
}

// Replaces the table's rows by those of a payload. `len` is the length that the header says.
int loadRows(const uint8_t* header, const uint8_t* payload, size_t len) {
    PayloadReader reader(payload, len, separatorOf(header));
    ObjectTable rows;
    const int status = decodeRows(&reader, readLe32(header + kRowCountOffset), &rows);
    if (status == ZELKM_OK) {
        g_table.replace(&rows);
    } else {
        rows.clear();
    }
    return status;
}

int loadEncryptedRows(const uint8_t* blob, uint32_t payload_len) {
    // The buffer is zeroed, because a callback may succeed without filling it.
    const SecretBuffer plain = allocateZeroedSecretBuffer(payload_len);
    if (plain == nullptr) {
        LOG_ERROR("allocation failure");
        return ZELKM_MEMORY_ALLOCATION_FAILED;
    }
    // The callback's type takes writable pointers. When decrypting, the callback only reads these.
    uint8_t* const source = const_cast<uint8_t*>(blob);
    const int status =
        g_encryption.fp(g_encryption.ctx, 0, plain.get(), source + kHeaderLen, payload_len,
                        source + kIvOffset, source + kTagOffset, source, SDB_AAD_LEN);
    return status == ZELKM_OK ? loadRows(blob, plain.get(), payload_len) : status;
}

// Loads the table from a store blob. The table stays as it was after a failure, and also when the
// blob has no payload.
int convert_to_internal(const uint8_t* blob, uint32_t len) {
    // A blob of 48 to 51 bytes ends inside the length field. It is refused like a shorter one.
    if (len < kHeaderLen) {
        LOG_ERROR("db size error");
        return ZELKM_MALFORMED_STORE;
    }
    const uint32_t payload_len = readLe32(blob + kPayloadLenOffset);
    if (payload_len == 0) {
        return ZELKM_OK;
    }
    const uint32_t available = len - static_cast<uint32_t>(kHeaderLen);
    if (available != 0 && payload_len > available) {
        LOG_ERROR("invalid db file len = %d, expected = %d", static_cast<int>(payload_len),
                  static_cast<int>(available));
        return ZELKM_PAYLOAD_TOO_LONG;
    }
    const bool encrypted = (readLe32(blob + kFlagsOffset) & kPayloadEncrypted) != 0;
    if (!encrypted || g_encryption.fp == nullptr) {
        return loadRows(blob, blob + kHeaderLen, available != 0 ? payload_len : 0);
    }
    if (available == 0) {
        LOG_ERROR("db size error");
        return ZELKM_MALFORMED_STORE;
    }
    return loadEncryptedRows(blob, payload_len);
}

// ---- Commands -----------------------------------------------------------------------------------

bool listsMatch(const db_parsed_tokens_t& columns, const db_parsed_tokens_t& values) {
    return columns.count != 0 && columns.count == values.count;
}

// Fills a new row from the lists of an INSERT.
int fillRow(const db_parsed_tokens_t& columns, const db_parsed_tokens_t& values, db_row* row) {
    for (uint32_t i = 0; i < columns.count; ++i) {
        const db_token_t& name = columns.tokens[i];
        const uint8_t column = findColumn(name);
        if (column == kNoColumn) {
            LOG_ERROR("invalid column name");
            dump_token("invalid column name", name.token, name.len, __LINE__);
            return ZELKM_UNKNOWN_COLUMN;
        }
        if (!holdsBytes(column)) {
            LOG_ERROR("not supported type");
            return ZELKM_UNSUPPORTED_COLUMN_TYPE;
        }
        if (!setValue(row, column, values.tokens[i].token, values.tokens[i].len)) {
            LOG_ERROR("create colume value failure");
            return ZELKM_MEMORY_ALLOCATION_FAILED;
        }
    }
    return ZELKM_OK;
}

int insert_handler(db_parsed_tokens_t* columns, db_parsed_tokens_t* values,
                   db_parsed_where_set_t* /*where*/, db_bytes_t* out) {
    if (!listsMatch(*columns, *values)) {
        return ZELKM_SYNTAX_ERROR;
    }
    db_row* row = newRow();
    if (row == nullptr) {
        LOG_ERROR("create colume value failure");
        return ZELKM_MEMORY_ALLOCATION_FAILED;
    }
    const int status = fillRow(*columns, *values, row);
    if (status != ZELKM_OK) {
        free_row(row);
        return status;
    }
    g_table.append(row);
    return exportStore(out);
}

// Always succeeds. Without memory for the text the result is empty.
int select_handler(db_parsed_tokens_t* columns, db_parsed_tokens_t* /*values*/,
                   db_parsed_where_set_t* where, db_bytes_t* out) {
    ColumnList output = {};
    for (uint32_t i = 0; i < columns->count; ++i) {
        const uint8_t column = findColumn(columns->tokens[i]);
        if (column != kNoColumn) {
            output.columns[output.count++] = column;
        }
    }
    exportSelection(ConditionSet(*where), output, out);
    return ZELKM_OK;
}

int delete_handler(db_parsed_tokens_t* /*columns*/, db_parsed_tokens_t* /*values*/,
                   db_parsed_where_set_t* where, db_bytes_t* out) {
    return g_table.remove(ConditionSet(*where)) != 0 ? exportStore(out) : ZELKM_NOTHING_DELETED;
}

// The column that an UPDATE names: the last one whose name is a prefix of the token.
uint8_t findColumnByPrefix(const db_token_t& token) {
    uint8_t found = kNoColumn;
    for (uint8_t i = 0; i < SDB_NUM_COLUMNS; ++i) {
        const db_column_schema_t& column = column_schema[i];
        if (token.len >= column.name_len &&
            (column.name_len == 0 || std::memcmp(token.token, column.name, column.name_len) == 0)) {
            found = i;
        }
    }
    return found;
}

int update_handler(db_parsed_tokens_t* columns, db_parsed_tokens_t* values,
                   db_parsed_where_set_t* where, db_bytes_t* out) {
    if (!listsMatch(*columns, *values)) {
        return ZELKM_SYNTAX_ERROR;
    }
    uint8_t targets[SDB_MAX_TOKENS];
    for (uint32_t i = 0; i < columns->count; ++i) {
        targets[i] = findColumnByPrefix(columns->tokens[i]);
    }
    const auto setValues = [&](db_row* row) {
        for (uint32_t i = 0; i < columns->count; ++i) {
            const db_token_t& value = values->tokens[i];
            if (targets[i] != kNoColumn && holdsBytes(targets[i]) &&
                !g_table.setValue(row, targets[i], value.token, value.len)) {
                return false;
            }
        }
        return true;
    };
    if (!g_table.update(ConditionSet(*where), setValues)) {
        LOG_ERROR("allocation fail during update");
        return ZELKM_MEMORY_ALLOCATION_FAILED;
    }
    return exportStore(out);
}

// ---- One query ----------------------------------------------------------------------------------

uint64_t drawHandle() {
    uint64_t handle = 0;
    for (int i = 0; i < kMaxHandleDraws; ++i) {
        unsigned char bytes[sizeof(handle)] = {};
        const bool drawn = RAND_bytes(bytes, sizeof(bytes)) == 1;
        std::memcpy(&handle, bytes, sizeof(bytes));
        if (drawn && handle != 0) {
            break;
        }
        LOG_ERROR("fail to generate db handle: 0x%08llx", static_cast<unsigned long long>(handle));
    }
    return handle;
}

// Makes sure that the table is the one that the caller means.
int chooseTable(const uint8_t* blob, uint32_t blob_len, uint64_t* handle) {
    if (*handle != 0) {
        return *handle == g_table.handle() ? ZELKM_OK : ZELKM_STALE_TABLE_HANDLE;
    }
    if (blob == nullptr || blob_len == 0) {
        g_table.clear();
    } else {
        const int status = convert_to_internal(blob, blob_len);
        if (status != ZELKM_OK) {
            LOG_ERROR("convert_to_internal error %d", status);
            return status;
        }
    }
    g_table.setHandle(drawHandle());
    *handle = g_table.handle();
    return ZELKM_OK;
}

int reportCommandError(CommandError error) {
    switch (error) {
        case CommandError::kNone:
            return ZELKM_OK;
        case CommandError::kUnknownCommand:
            LOG_ERROR("command parsing error");
            break;
        case CommandError::kColumnList:
            LOG_ERROR("column parsing error");
            break;
        case CommandError::kValueList:
            LOG_ERROR("value parsing error");
            break;
        case CommandError::kUpdateWithoutWhere:
            LOG_ERROR("UPDATE needs WHERE statement");
            break;
    }
    LOG_ERROR("parse_command error %d", ZELKM_SYNTAX_ERROR);
    return ZELKM_SYNTAX_ERROR;
}

void reportTokenizerError(const TokenizerError& error) {
    if (error.state != 0) {
        LOG_ERROR("err: state:(%d)  t->token=%p, *p(%p)=%c, len=%d\n", error.state,
                  static_cast<const void*>(error.text), static_cast<const void*>(error.at),
                  error.byte, static_cast<int>(error.len));
    }
}

int tokenizeList(const db_token_t& text, db_parsed_tokens_t* out) {
    TokenizerError error;
    const int status = parse_tokens(&text, out, &error);
    if (status != ZELKM_OK) {
        reportTokenizerError(error);
        LOG_ERROR("parse_tokens error(%d)", status);
    }
    return status;
}

int splitConditions(const db_token_t& text, db_parsed_where_set_t* out) {
    TokenizerError error;
    const int status = parseWhereSet(&text, out, &error);
    if (status != ZELKM_OK) {
        reportTokenizerError(error);
        LOG_ERROR("parse_where_set_token error(%d)", status);
    }
    return status;
}

int execute(const ParsedCommand& command, db_bytes_t* out) {
    db_parsed_tokens_t columns;
    db_parsed_tokens_t values;
    db_parsed_where_set_t where;
    int status = tokenizeList(command.columns, &columns);
    if (status == ZELKM_OK) {
        status = tokenizeList(command.values, &values);
    }
    if (status == ZELKM_OK) {
        status = splitConditions(command.where, &where);
    }
    if (status == ZELKM_OK) {
        status = command_handler[command.id](&columns, &values, &where, out);
        if (status != ZELKM_OK) {
            LOG_ERROR("%s error(%d)", commandWord(command.id), status);
        }
    }
    if (status != ZELKM_OK) {
        LOG_ERROR("execute_command error %d", status);
    }
    return status;
}

}  // namespace
}  // namespace zelkm

const db_command_handler_t command_handler[SDB_NUM_COMMANDS] = {
    zelkm::insert_handler, zelkm::select_handler, zelkm::delete_handler, zelkm::update_handler};

db_column_schema_t column_schema[SDB_NUM_COLUMNS] = {
    {"ALIAS", 0, SDB_TYPE_BYTES},
    {"CREATOR", 0, SDB_TYPE_BYTES},
    {"ADMIN", 0, SDB_TYPE_BYTES | SDB_ATTR_ENUMERATED},
    {"ACCESSOR", 0, SDB_TYPE_BYTES | SDB_ATTR_PATTERN | SDB_ATTR_ENUMERATED},
    {"CREATOR_UID", 0, SDB_TYPE_BYTES},
    {"PRIV_ACC", 0, SDB_TYPE_BYTES},
};

void sdb_register_db_encrypt_fp(void* ctx, sdb_encrypt_fp fp) {
    zelkm::g_encryption = {ctx, fp};
}

int sdb_query(const char* command, unsigned int len, const unsigned char* blob,
              unsigned int blob_len, unsigned char** out, unsigned int* out_len, uint64_t* handle) {
    using namespace zelkm;
    if (command == nullptr || len == 0 || handle == nullptr) {
        LOG_ERROR("command or len is null");
        return ZELKM_INVALID_ARGUMENT;
    }
    const uint8_t* text = reinterpret_cast<const uint8_t*>(command);
    dump_token("command", text, len, __LINE__);

    int status = chooseTable(blob, blob_len, handle);
    if (status != ZELKM_OK) {
        return status;
    }
    if (!g_names_cached) {
        cacheColumnNameLengths();
        g_names_cached = true;
    }

    ParsedCommand parsed;
    status = reportCommandError(parse_command(text, len, &parsed));
    if (status != ZELKM_OK) {
        return status;
    }
    db_bytes_t result = {};
    status = execute(parsed, &result);
    if (status != ZELKM_OK) {
        return status;
    }
    if (out != nullptr && out_len != nullptr) {
        *out = result.data;
        *out_len = result.len;
    } else {
        const SecretBuffer unwanted(result.data, {result.len});
    }
    return ZELKM_OK;
}

void strip_char(db_token_t* t, char c) {
    const uint8_t byte = static_cast<uint8_t>(c);
    uint32_t start = 0;
    uint32_t end = t->len;
    while (start < end && t->token[start] == byte) {
        ++start;
    }
    while (end > start && t->token[end - 1] == byte) {
        --end;
    }
    if (start < end) {
        t->token += start;
    }
    t->len = end - start;
}
