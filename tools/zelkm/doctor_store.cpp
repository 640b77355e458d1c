// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// What one version of a store is worth. See doctor_store.h.

#include "doctor_store.h"

#include <optional>

#include "result_text.h"
#include "store_file.h"

namespace zelkm_tool {
namespace {

// One way to take the file: flags and payload length as they may have been meant.
struct Attempt {
    bool encrypted;
    uint32_t payload_len;
};

std::vector<Attempt> attempts(const StoreHeader& header, uint32_t available) {
    std::vector<uint32_t> lengths;
    if (header.payload_len != 0 && header.payload_len <= available) {
        lengths.push_back(header.payload_len);
    }
    if (available != 0 && available != header.payload_len) {
        lengths.push_back(available);
    }
    std::vector<Attempt> all;
    for (const bool encrypted : {header.encrypted(), !header.encrypted()}) {
        for (const uint32_t len : lengths) {
            all.push_back({encrypted, len});
        }
    }
    return all;
}

// A file under examination.
class Examination {
  public:
    Examination(const std::string& file, const NamedKeys& keys, const Decrypt& decrypt)
        : file_(file), header_(*parseStoreHeader(file)), keys_(keys), decrypt_(decrypt) {}

    StoreReading run() {
        const auto available = static_cast<uint32_t>(file_.size() - kHeaderLen);
        for (const Attempt& attempt : attempts(header_, available)) {
            if (auto reading = attempt.encrypted ? readEncrypted(attempt) : readPlain(attempt)) {
                return *reading;
            }
        }
        if (header_.payload_len == 0) {
            return failed(StoreReading::kIncomplete,
                          "says that it holds nothing, not even the NUL of an empty store: the "
                          "library loads no objects from it");
        }
        if (header_.payload_len > available) {
            return failed(StoreReading::kIncomplete,
                          "is cut: " + std::to_string(available) + " of " +
                              std::to_string(header_.payload_len) + " bytes of the payload");
        }
        if (header_.encrypted() && (!decrypt_ || keys_.empty())) {
            return failed(StoreReading::kNotTried,
                          "is complete and encrypted; what it holds was not tried");
        }
        if (!refusals_.empty()) {
            return failed(StoreReading::kRefused, refusals_);
        }
        return describe({false, header_.payload_len}, storePayload(file_, header_), "");
    }

  private:
    static StoreReading failed(StoreReading::State state, const std::string& words) {
        return {state, words, "", false, ""};
    }

    std::optional<StoreReading> readEncrypted(const Attempt& attempt) {
        if (!decrypt_) {
            return std::nullopt;
        }
        const std::string store =
            withStoreHeader(file_, true, header_.row_count, attempt.payload_len);
        for (const auto& [name, key] : keys_) {
            const StoreTrials::Decryption plain = decrypt_(store, key);
            if (plain.status == 0) {
                return describe(attempt, plain.payload, name);
            }
            if (asWritten(attempt)) {
                refusals_ += (refusals_.empty() ? "is complete, but " : ", and ") + name +
                             " does not decrypt it (" + resultText(plain.status) + ")";
            }
        }
        return std::nullopt;
    }

    // Nothing vouches for a plaintext: where the header speaks of another one, all of it must fit.
    std::optional<StoreReading> readPlain(const Attempt& attempt) {
        const std::string_view payload =
            std::string_view(file_).substr(kHeaderLen, attempt.payload_len);
        if (!asWritten(attempt) &&
            (header_.row_count == 0 || countStoreRows(payload, header_) != header_.row_count)) {
            return std::nullopt;
        }
        StoreReading reading = describe(attempt, payload, "");
        return reading.state == StoreReading::kReads ? std::optional(reading) : std::nullopt;
    }

    bool asWritten(const Attempt& attempt) const {
        return attempt.encrypted == header_.encrypted() &&
               attempt.payload_len == header_.payload_len;
    }

    StoreReading describe(const Attempt& attempt, std::string_view payload,
                          const std::string& key) const {
        const std::string opens = key.empty() ? "is plaintext" : "decrypts with " + key;
        uint32_t rows = header_.row_count;
        if (const auto count = countStoreRows(payload, header_)) {
            rows = *count;
        } else if (parseStoreRows(payload, header_).rows.size() != rows) {
            return {StoreReading::kMalformed,
                    opens + ", but " + parseStoreRows(payload, header_).problem +
                        ", so that the library cannot read it",
                    "", false, key};
        }
        StoreReading reading = {
            StoreReading::kReads, "is whole: " + opens + ", objects: " + std::to_string(rows),
            withStoreHeader(file_, attempt.encrypted, rows, attempt.payload_len), false, key};
        reading.corrected = reading.image != file_;
        if (reading.corrected) {
            reading.words = opens + ", but has a wrong header: " + corrections(attempt, rows);
        }
        return reading;
    }

    std::string corrections(const Attempt& attempt, uint32_t rows) const {
        std::string text;
        const auto add = [&text](const std::string& what) {
            text += (text.empty() ? "" : ", ") + what;
        };
        if (attempt.encrypted != header_.encrypted()) {
            add(attempt.encrypted ? "it is marked as plaintext, and is encrypted"
                                  : "it is marked as encrypted, and is plaintext (an answer of the "
                                    "keymaster was lost while it was made)");
        }
        if (attempt.payload_len != header_.payload_len) {
            add("its payload has " + std::to_string(attempt.payload_len) + " bytes, not " +
                std::to_string(header_.payload_len));
        }
        if (rows != header_.row_count) {
            add("it holds " + std::to_string(rows) + " rows, not " +
                std::to_string(header_.row_count));
        }
        return text;
    }

    const std::string& file_;
    const StoreHeader header_;
    const NamedKeys& keys_;
    const Decrypt& decrypt_;
    std::string refusals_;
};

}  // namespace

StoreReading readStore(const std::string& file, const NamedKeys& keys, const Decrypt& decrypt) {
    if (file.empty()) {
        return {StoreReading::kIncomplete,
                "is empty: the library takes it for a store without objects", "", false, ""};
    }
    if (file.size() < kHeaderLen) {
        return {StoreReading::kIncomplete,
                "is cut: " + std::to_string(file.size()) + " bytes, and a header has " +
                    std::to_string(kHeaderLen),
                "", false, ""};
    }
    return Examination(file, keys, decrypt).run();
}

}  // namespace zelkm_tool
