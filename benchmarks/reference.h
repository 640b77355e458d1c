// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The floors: the least work that an operation cannot do without, written with nothing around it.

#pragma once

#include <openssl/evp.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "sample_rows.h"
#include "support.h"
#include "velt_secure_db.h"

namespace bench {

// AES-256-GCM with contexts that are set up once: a call passes a nonce and the data, no more.
class Cipher {
  public:
    Cipher();

    // In pieces. An encryption puts out the nonce, which is the cipher's own, and the tag; a
    // decryption takes them.
    void begin(bool decrypting, uint8_t* iv);
    void update(const uint8_t* in, size_t len, uint8_t* out);
    // False when the tag does not match.
    [[nodiscard]] bool finish(uint8_t* tag);

    // At once.
    void encrypt(const uint8_t* in, size_t len, uint8_t* out, uint8_t* iv, uint8_t* tag);
    void decrypt(const uint8_t* in, size_t len, uint8_t* out, uint8_t* iv, uint8_t* tag);

    // The engine's encryption callback; `ctx` is a Cipher.
    static int callback(void* ctx, unsigned int mode, unsigned char* plain, unsigned char* cipher,
                        unsigned int len, unsigned char* iv, unsigned char* tag, unsigned char* aad,
                        unsigned int aad_len);

  private:
    struct Free {
        void operator()(EVP_CIPHER_CTX* context) const { EVP_CIPHER_CTX_free(context); }
    };
    using Context = std::unique_ptr<EVP_CIPHER_CTX, Free>;

    Context encrypting_;
    Context decrypting_;
    EVP_CIPHER_CTX* current_ = nullptr;
    uint64_t next_nonce_ = 1;
};

// A sample's payload, room for what encryption makes of it, and for what decryption makes of that.
struct Message {
    explicit Message(const Sample& sample)
        : plain(sample.payload.begin(), sample.payload.end()),
          sealed(plain.size()),
          opened(plain.size()) {}

    void encrypt() { cipher.encrypt(plain.data(), plain.size(), sealed.data(), iv, tag); }
    void decrypt(uint8_t* to) { cipher.decrypt(sealed.data(), sealed.size(), to, iv, tag); }

    Cipher cipher;
    std::vector<uint8_t> plain;
    std::vector<uint8_t> sealed;
    std::vector<uint8_t> opened;
    uint8_t iv[SDB_IV_LEN];
    uint8_t tag[SDB_TAG_LEN];
};

// Rows in memory as the engine must keep them: a linked list, each value with a heap block.
class RowList {
  public:
    // Loads the sample, which also gives the lengths of what is loaded later.
    explicit RowList(const Sample& sample);
    ~RowList() { clear(); }
    RowList(const RowList&) = delete;
    RowList& operator=(const RowList&) = delete;

    // Allocates all rows and copies their values out of `payload`. The list must be empty.
    void load(const uint8_t* payload);
    void clear();

    // Walk all rows and append one text per matching row: all its columns, "creator::alias", or its
    // alias.
    void findAlias(std::string_view alias, Texts* texts) const;
    void findAccessor(uint32_t accessor, Texts* texts) const;
    void allRows(Texts* texts) const;
    void allNames(Texts* texts) const;
    void allAliases(Texts* texts) const;

    // Writes the rows' text as a select of all columns has it.
    void write(uint8_t* to) const;

  private:
    std::vector<uint32_t> lengths_;
    db_row* head_ = nullptr;
};

// Floors of a select, as benchmarks: a walk over a list of the sample's rows.
void selectAliasFloor(State& state);
void selectAccessorFloor(State& state);

// Replaces a file by the system calls that this takes, and no other.
void replaceFileBare(const std::string& path, const void* data, size_t len, bool flush);

// Reads a file into `data`, whose size is the file's.
void readFileBare(const std::string& path, std::vector<uint8_t>* data);

}  // namespace bench
