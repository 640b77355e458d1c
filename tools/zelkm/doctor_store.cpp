// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "doctor_store.h"

#include <optional>

#include "result_text.h"
#include "store_file.h"

namespace zelkm_tool {
namespace {

// One way to read the file. Flags and payload length in the header may be wrong, so several ways
// are tried.
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

bool isZero(const std::string& bytes) {
    return bytes.find_first_not_of('\0') == bytes.npos;
}

std::string joined(const std::vector<std::string>& parts) {
    std::string text;
    for (const std::string& part : parts) {
        text += (text.empty() ? "" : ", ") + part;
    }
    return text;
}

// One file, read in every way that makes sense.
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
        if (header_.payload_len == 0 && (available == 0 || refused_)) {
            return failed(StoreReading::kIncomplete, "store-header",
                          "says that it holds nothing, not even the NUL of an empty store: the "
                          "library loads no objects from it");
        }
        if (header_.payload_len > available) {
            return failed(StoreReading::kIncomplete, "store-cut",
                          "is cut: " + std::to_string(available) + " of " +
                              std::to_string(header_.payload_len) + " bytes of the payload");
        }
        if (!refusals_.empty()) {
            return failed(StoreReading::kRefused, "store-refused",
                          "is complete, but " + joined(refusals_));
        }
        // A plaintext has neither tag nor nonce.
        if (header_.encrypted() || (!decrypt_ && !isZero(header_.tag) && !isZero(header_.iv))) {
            return untried(available);
        }
        return describe({false, header_.payload_len}, storePayload(file_, header_), "");
    }

  private:
    StoreReading failed(StoreReading::State state, const std::string& finding,
                        const std::string& words) const {
        return {state, words, finding, "", header_.row_count, "", refused_};
    }

    // Judges an encrypted store without a key, by comparing the header's fields with each other.
    StoreReading untried(uint32_t available) const {
        std::vector<std::string> wrong;
        if (header_.magic != kMagic && header_.magic != kMagicV10) {
            wrong.push_back("its magic is none that the library writes");
        }
        if (header_.flags != kEncryptedFlag) {
            wrong.push_back("its flags are " + std::to_string(header_.flags) + ", not 1");
        }
        if (isZero(header_.tag) || isZero(header_.iv)) {
            wrong.push_back("it has no tag or no nonce, which every encrypted store has");
        }
        if (header_.payload_len < available) {
            wrong.push_back(std::to_string(available - header_.payload_len) +
                            " bytes follow its payload");
        }
        const std::string rows = std::to_string(header_.row_count) + " rows";
        if (header_.payload_len < minPayloadLen(header_.row_count)) {
            wrong.push_back(rows + " need " + std::to_string(minPayloadLen(header_.row_count)) +
                            " bytes, and its payload has " + std::to_string(header_.payload_len));
        } else if (header_.row_count == 0 && header_.payload_len != minPayloadLen(0)) {
            wrong.push_back("it says " + rows + ", and its payload has " +
                            std::to_string(header_.payload_len) + " bytes, not 1");
        }
        return failed(
            StoreReading::kNotTried, wrong.empty() ? "" : "store-header",
            "is complete and encrypted" +
                (wrong.empty() ? ", " + rows + " by its header" : ", but " + joined(wrong)) +
                (unusable_.empty() ? "; what it holds was not tried"
                                   : "; what it holds is not known: " + joined(unusable_)));
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
            refused_ = refused_ || plain.status == ZELKM_VERIFICATION_FAILED;
            if (asWritten(attempt) && plain.status == ZELKM_VERIFICATION_FAILED) {
                refusals_.push_back(name + " does not decrypt it (" + resultText(plain.status) +
                                    ")");
            } else if (asWritten(attempt)) {
                unusable_.push_back("the keymaster does not take " + name + " (" +
                                    resultText(plain.status) + ")");
            }
        }
        return std::nullopt;
    }

    // Reads a plaintext. Nothing proves that a plaintext is right. So when it contradicts the
    // header, all of it must be rows, as many as the header says.
    std::optional<StoreReading> readPlain(const Attempt& attempt) {
        const std::string_view payload =
            std::string_view(file_).substr(kHeaderLen, attempt.payload_len);
        if (!asWritten(attempt) &&
            (header_.row_count == 0 || countStoreRows(payload, header_) != header_.row_count)) {
            return std::nullopt;
        }
        StoreReading reading = describe(attempt, payload, "");
        return reading.reads() ? std::optional(reading) : std::nullopt;
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
                    "store-malformed",
                    "",
                    rows,
                    key};
        }
        const bool lost_answer = header_.encrypted() && !attempt.encrypted;
        StoreReading reading = {
            StoreReading::kReads,
            "is whole: " + opens + ", objects: " + std::to_string(rows),
            "",
            withStoreHeader(file_, attempt.encrypted, rows, attempt.payload_len),
            rows,
            key};
        if (reading.image != file_) {
            reading.finding = lost_answer ? "answer-lost" : "store-header";
            reading.words = opens + ", but has a wrong header: " + corrections(attempt, rows);
        }
        return reading;
    }

    std::string corrections(const Attempt& attempt, uint32_t rows) const {
        std::vector<std::string> wrong;
        if (attempt.encrypted != header_.encrypted()) {
            wrong.push_back(attempt.encrypted
                                ? "it is marked as plaintext, and is encrypted"
                                : "it is marked as encrypted, and is plaintext (an answer of the "
                                  "keymaster was lost while it was made)");
        } else if (header_.flags > kEncryptedFlag) {
            wrong.push_back("its flags are " + std::to_string(header_.flags) +
                            ", of which only 1 has a meaning");
        }
        if (attempt.payload_len != header_.payload_len) {
            wrong.push_back("its payload has " + std::to_string(attempt.payload_len) +
                            " bytes, not " + std::to_string(header_.payload_len));
        }
        if (rows != header_.row_count) {
            wrong.push_back("it holds " + std::to_string(rows) + " rows, not " +
                            std::to_string(header_.row_count));
        }
        if (kHeaderLen + attempt.payload_len < file_.size()) {
            wrong.push_back(std::to_string(file_.size() - kHeaderLen - attempt.payload_len) +
                            " bytes follow its payload");
        }
        return joined(wrong);
    }

    const std::string& file_;
    const StoreHeader header_;
    const NamedKeys& keys_;
    const Decrypt& decrypt_;
    bool refused_ = false;               // some attempt was answered -30
    std::vector<std::string> refusals_;  // of the unchanged store, under accepted keys
    std::vector<std::string> unusable_;  // keys that the keymaster does not accept
};

}  // namespace

StoreReading readStore(const std::string& file, const NamedKeys& keys, const Decrypt& decrypt) {
    const auto hopeless = [](const char* finding, const std::string& words) -> StoreReading {
        return {StoreReading::kIncomplete, words, finding, "", 0, "", true};
    };
    if (file.empty()) {
        return hopeless("store-empty",
                        "is empty: the library takes it for a store without objects");
    }
    if (file.size() < kHeaderLen) {
        return hopeless("store-cut", "is cut: " + std::to_string(file.size()) +
                                         " bytes, and a header has " + std::to_string(kHeaderLen));
    }
    return Examination(file, keys, decrypt).run();
}

std::string whyNotOneChange(const std::string& before, const std::string& now) {
    const auto old_header = parseStoreHeader(before);
    const auto header = parseStoreHeader(now);
    if (!old_header || !header || before == now) {
        return "";
    }
    const auto words = [](const StoreHeader& h) {
        return std::to_string(h.row_count) + " rows in " + std::to_string(h.payload_len) + " bytes";
    };
    const std::string both = words(*header) + ", after " + words(*old_header);
    const int64_t rows = int64_t{header->row_count} - old_header->row_count;
    const int64_t bytes = int64_t{header->payload_len} - old_header->payload_len;
    const int64_t least = static_cast<int64_t>(minPayloadLen(1) - minPayloadLen(0));
    // One change adds one row, or removes some.
    if (rows > 0 ? bytes < rows * least : rows < 0 ? bytes > rows * least : true) {
        return both;
    }
    return "";
}

}  // namespace zelkm_tool
