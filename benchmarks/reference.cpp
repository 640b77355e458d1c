// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "reference.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

namespace bench {
namespace {

constexpr unsigned char kKey[32] = {'b', 'e', 'n', 'c', 'h'};
constexpr unsigned char kAad[] = "SOBv1.1     ";

EVP_CIPHER_CTX* newContext(int encrypting) {
    EVP_CIPHER_CTX* context = EVP_CIPHER_CTX_new();
    check(EVP_CipherInit_ex(context, EVP_aes_256_gcm(), nullptr, kKey, nullptr, encrypting) == 1,
          "AES-256-GCM");
    return context;
}

// Takes a decimal number off the front.
uint32_t takeNumber(const uint8_t** at, const uint8_t* end) {
    uint32_t number = 0;
    for (; *at != end && **at >= '0' && **at <= '9'; ++*at) {
        number = number * 10 + (**at - uint32_t{'0'});
    }
    return number;
}

void append(const db_column_value_t& value, std::string* text) {
    text->append(reinterpret_cast<const char*>(value.data), value.len);
}

void append(const db_row& row, std::string* text) {
    for (const db_column_value_t& value : row.col) {
        append(value, text);
        *text += kFieldEnd;
    }
}

}  // namespace

// ---- Cipher -------------------------------------------------------------------------------------

Cipher::Cipher() : encrypting_(newContext(1)), decrypting_(newContext(0)) {}

void Cipher::begin(bool decrypting, uint8_t* iv) {
    current_ = decrypting ? decrypting_.get() : encrypting_.get();
    if (!decrypting) {
        std::memset(iv, 0, SDB_IV_LEN);
        std::memcpy(iv, &next_nonce_, sizeof(next_nonce_));
        ++next_nonce_;
    }
    check(EVP_CipherInit_ex(current_, nullptr, nullptr, nullptr, iv, -1) == 1, "nonce");
    update(kAad, SDB_AAD_LEN, nullptr);
}

void Cipher::update(const uint8_t* in, size_t len, uint8_t* out) {
    int done = 0;
    check(EVP_CipherUpdate(current_, out, &done, in, static_cast<int>(len)) == 1, "update");
}

bool Cipher::finish(uint8_t* tag) {
    const bool decrypting = current_ == decrypting_.get();
    uint8_t rest[SDB_TAG_LEN];
    int done = 0;
    if (decrypting) {
        check(EVP_CIPHER_CTX_ctrl(current_, EVP_CTRL_GCM_SET_TAG, SDB_TAG_LEN, tag) == 1, "tag");
    }
    return EVP_CipherFinal_ex(current_, rest, &done) == 1 &&
           (decrypting ||
            EVP_CIPHER_CTX_ctrl(current_, EVP_CTRL_GCM_GET_TAG, SDB_TAG_LEN, tag) == 1);
}

void Cipher::encrypt(const uint8_t* in, size_t len, uint8_t* out, uint8_t* iv, uint8_t* tag) {
    begin(false, iv);
    update(in, len, out);
    check(finish(tag), "encryption");
}

void Cipher::decrypt(const uint8_t* in, size_t len, uint8_t* out, uint8_t* iv, uint8_t* tag) {
    begin(true, iv);
    update(in, len, out);
    check(finish(tag), "decryption");
}

int Cipher::callback(void* ctx, unsigned int mode, unsigned char* plain, unsigned char* cipher,
                     unsigned int len, unsigned char* iv, unsigned char* tag,
                     unsigned char* /*aad*/, unsigned int /*aad_len*/) {
    Cipher* self = static_cast<Cipher*>(ctx);
    if (mode == 0) {
        self->decrypt(cipher, len, plain, iv, tag);
    } else {
        self->encrypt(plain, len, cipher, iv, tag);
    }
    return ZELKM_OK;
}

// ---- RowList ------------------------------------------------------------------------------------

RowList::RowList(const Sample& sample) {
    for (const Row& row : sample.rows) {
        for (const std::string& value : row) {
            lengths_.push_back(static_cast<uint32_t>(value.size()));
        }
    }
    load(bytesOf(sample.payload));
}

void RowList::load(const uint8_t* payload) {
    db_row** link = &head_;
    for (size_t i = 0; i < lengths_.size(); ++payload) {
        db_row* row = static_cast<db_row*>(std::calloc(1, sizeof(db_row)));
        *link = row;
        link = &row->next;
        for (db_column_value_t& value : row->col) {
            value.len = lengths_[i++];
            if (value.len != 0) {
                value.data = static_cast<uint8_t*>(std::malloc(value.len));
                std::memcpy(value.data, payload, value.len);
            }
            payload += value.len + 1;
        }
    }
}

void RowList::clear() {
    while (head_ != nullptr) {
        db_row* row = head_;
        head_ = row->next;
        for (db_column_value_t& value : row->col) {
            std::free(value.data);
        }
        std::free(row);
    }
}

void RowList::findAlias(std::string_view alias, Texts* texts) const {
    for (const db_row* row = head_; row != nullptr; row = row->next) {
        const db_column_value_t& value = row->col[0];
        if (value.len == alias.size() && std::memcmp(value.data, alias.data(), value.len) == 0) {
            append(*row, &texts->emplace_back());
        }
    }
}

void RowList::findAccessor(uint32_t accessor, Texts* texts) const {
    for (const db_row* row = head_; row != nullptr; row = row->next) {
        const db_column_value_t& value = row->col[3];  // "[lo..hi]"
        const uint8_t* at = value.data + 1;
        const uint8_t* end = value.data + value.len;
        const uint32_t low = takeNumber(&at, end);
        at += 2;
        if (low <= accessor && accessor <= takeNumber(&at, end)) {
            append(*row, &texts->emplace_back());
        }
    }
}

void RowList::allRows(Texts* texts) const {
    for (const db_row* row = head_; row != nullptr; row = row->next) {
        append(*row, &texts->emplace_back());
    }
}

void RowList::allNames(Texts* texts) const {
    for (const db_row* row = head_; row != nullptr; row = row->next) {
        std::string& text = texts->emplace_back();
        append(row->col[1], &text);
        text += "::";
        append(row->col[0], &text);
    }
}

void RowList::allAliases(Texts* texts) const {
    for (const db_row* row = head_; row != nullptr; row = row->next) {
        append(row->col[0], &texts->emplace_back());
    }
}

void RowList::write(uint8_t* to) const {
    for (const db_row* row = head_; row != nullptr; row = row->next) {
        for (const db_column_value_t& value : row->col) {
            if (value.len != 0) {
                std::memcpy(to, value.data, value.len);
            }
            to += value.len;
            *to++ = kFieldEnd;
        }
        *to++ = kRowEnd;
    }
    *to = '\0';
}

void selectAliasFloor(State& state) {
    const Sample sample = sampleOf(state);
    const RowList rows(sample);
    timeProbes(
        state, sample, [](const Row& row) { return row[0]; },
        [&](const std::string& alias, Texts* found) { rows.findAlias(alias, found); });
}

void selectAccessorFloor(State& state) {
    const Sample sample = sampleOf(state);
    const RowList rows(sample);
    timeSelect(state, [&](Texts* found) { rows.findAccessor(kAccessorNumber, found); });
}

// ---- Files --------------------------------------------------------------------------------------

void replaceFileBare(const std::string& path, const void* data, size_t len, bool flush) {
    const std::string temporary = path + ".tmp";
    const std::string backup = path + ".bak";
    const int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    check(fd >= 0 && ::write(fd, data, len) == static_cast<ssize_t>(len), "write");
    if (flush) {
        check(::fdatasync(fd) == 0, "fdatasync");
    }
    ::close(fd);
    check(::unlink(backup.c_str()) == 0 || errno == ENOENT, "unlink");
    check(::rename(path.c_str(), backup.c_str()) == 0 || errno == ENOENT, "rename");
    check(::unlink(path.c_str()) == 0 || errno == ENOENT, "unlink");
    check(::rename(temporary.c_str(), path.c_str()) == 0, "rename");
    if (flush) {
        const int directory = ::open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        check(directory >= 0 && ::fsync(directory) == 0, "fsync");
        ::close(directory);
    }
}

void readFileBare(const std::string& path, std::vector<uint8_t>* data) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    check(fd >= 0 && ::read(fd, data->data(), data->size()) == static_cast<ssize_t>(data->size()),
          "read");
    ::close(fd);
}

}  // namespace bench
