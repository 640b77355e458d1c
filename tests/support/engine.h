// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Runs queries against the store engine, and makes texts and stores for them.

#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "db_command_parser.h"
#include "kept_reports.h"
#include "log_capture.h"
#include "results.h"
#include "velt_secure_db.h"

namespace test {

// In the texts of tests ' stands for the quote 0x1F, ^ for the separator 0x1E and $ for NUL.
inline std::string raw(std::string text) {
    for (char& c : text) {
        c = c == '\'' ? '\x1F' : c == '^' ? '\x1E' : c == '$' ? '\0' : c;
    }
    return text;
}

inline std::string readable(std::string text) {
    for (char& c : text) {
        c = c == '\x1F' ? '\'' : c == '\x1E' ? '^' : c == '\0' ? '$' : c;
    }
    return text;
}

// A copy of a text in a heap block of exactly its length. The address sanitizer sees every read
// beyond it.
class Exact {
  public:
    explicit Exact(const std::string& text)
        : data_(new uint8_t[text.size()]), len_(static_cast<uint32_t>(text.size())) {
        if (!text.empty()) {
            std::memcpy(data_.get(), text.data(), text.size());
        }
    }

    uint8_t* data() const { return data_.get(); }
    uint32_t len() const { return len_; }
    db_token_t token() const { return {data_.get(), len_}; }

  private:
    std::unique_ptr<uint8_t[]> data_;
    uint32_t len_;
};

inline std::string le32(uint32_t value) {
    std::string text;
    for (int shift = 0; shift < 32; shift += 8) {
        text += static_cast<char>(value >> shift & 0xFF);
    }
    return text;
}

// The bytes of a store file. Tag and nonce are zeros.
inline std::string store(uint32_t rows, const std::string& payload,
                         const std::string& magic = "SOBv1.1     ", uint32_t flags = 0) {
    return magic + le32(flags) + std::string(28, '\0') + le32(rows) +
           le32(static_cast<uint32_t>(payload.size())) + raw(payload);
}

// Whether a value satisfies a condition.
inline bool matches(const std::string& pattern, const std::string& subject, uint32_t use_pattern,
                    decltype(simple_reg_cmp)* compare = simple_reg_cmp) {
    const Exact p(pattern);
    const Exact s(subject);
    return compare(p.data(), p.len(), s.data(), s.len(), use_pattern) != 0;
}

// The messages that end a refused command, as messages() gives them.
inline std::string refusedBy(const std::string& step, int code) {
    const std::string number = std::to_string(code);
    return step + " error(" + number + ")\nexecute_command error " + number + "\n";
}

// The last message about a refused store.
inline std::string notLoaded(int code) {
    return "convert_to_internal error " + std::to_string(code) + "\n";
}

constexpr char kSelectAll[] = "SELECT (ALIAS,CREATOR,ADMIN,ACCESSOR,CREATOR_UID,PRIV_ACC)";

// Each test starts with an empty table, without an encryption callback and with an empty log.
class Engine : public ::testing::Test {
  protected:
    Engine() {
        sdb_register_db_encrypt_fp(nullptr, nullptr);
        EXPECT_EQ(0, query("SELECT ()"));
        clearLog();
    }
    ~Engine() override { sdb_register_db_encrypt_fp(nullptr, nullptr); }

    // Runs a command on the table that `handle_` names. When that is 0, the engine loads `blob_`
    // first. The result is in `result_`.
    Code query(const std::string& command) {
        const Exact text(raw(command));
        const Exact blob(blob_);
        unsigned char untouched = 0;
        unsigned char* out = &untouched;
        unsigned int out_len = 4711;
        const int status =
            sdb_query(reinterpret_cast<const char*>(text.data()), text.len(),
                      blob_.empty() ? nullptr : blob.data(), blob.len(), &out, &out_len, &handle_);
        EXPECT_EQ(blob_, std::string(blob.data(), blob.data() + blob.len()));
        result_.clear();
        if (status != 0) {
            EXPECT_EQ(&untouched, out);
            EXPECT_EQ(4711u, out_len);
            return status;
        }
        if (out != nullptr) {
            result_.assign(out, out + out_len);
        }
        std::free(out);
        return status;
    }

    // Runs an UPDATE through its handler: no command reaches it.
    Code update(const std::string& columns, const std::string& values, const std::string& where) {
        const Exact texts[] = {Exact(columns), Exact(values), Exact(where)};
        const db_token_t tokens[] = {texts[0].token(), texts[1].token(), texts[2].token()};
        db_parsed_tokens_t parsed[2];
        db_parsed_where_set_t conditions;
        zelkm::TokenizerError error;
        EXPECT_EQ(0, zelkm::parse_tokens(&tokens[0], &parsed[0], &error));
        EXPECT_EQ(0, zelkm::parse_tokens(&tokens[1], &parsed[1], &error));
        EXPECT_EQ(0, zelkm::parseWhereSet(&tokens[2], &conditions, &error));
        db_bytes_t out = {};
        const int status = command_handler[SDB_UPDATE](&parsed[0], &parsed[1], &conditions, &out);
        EXPECT_EQ(status == 0, out.data != nullptr);
        result_.assign(out.data, out.data + out.len);
        std::free(out.data);
        return status;
    }

    // Returns the selection in the readable form, without its final NUL.
    std::string select(const std::string& command) {
        EXPECT_EQ(0, query(command)) << command;
        EXPECT_EQ('\0', result_.empty() ? 'x' : result_.back()) << command;
        return readable(result_.substr(0, result_.size() - 1));
    }

    // Loads a store. Returns its rows, or the messages when it is refused.
    std::string load(const std::string& blob) {
        handle_ = 0;
        blob_ = blob;
        const int status = query(kSelectAll);
        EXPECT_EQ(status == 0, handle_ != 0);
        return status == 0 ? readable(result_.substr(0, result_.size() - 1)) : messages(status);
    }

    // Returns the error messages since the last call, without their prefix. Each ends with a line
    // feed. The last one must end with the status that the messages explain.
    static std::string messages(int status = 0) {
        const std::string prefix = "E engine: ";
        std::string all;
        for (const std::string& line : errors()) {
            all += (line.rfind(prefix, 0) == 0 ? line.substr(prefix.size()) : line) + "\n";
        }
        const std::string end = std::to_string(status) + "\n";
        EXPECT_TRUE(status == 0 || (all.size() > end.size() &&
                                    all.compare(all.size() - end.size(), end.size(), end) == 0))
            << all;
        clearLog();
        return all;
    }

    // Holds what the engine says to tests/data/engine.txt (see kept_reports.h).
    static void expectReported(const std::string& name, const std::string& text) {
        static const KeptReports kept(ZELKM_TEST_DATA_DIR "/engine.txt");
        kept.expect(name, text);
    }

    std::string blob_;
    std::string result_;
    uint64_t handle_ = 0;
};

}  // namespace test
