// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "doctor_report.h"

#include "bytes.h"
#include "failure.h"
#include "store_file.h"

namespace zelkm_tool {
namespace {

using State = StoreReading::State;

constexpr size_t kZeroRun = 64;  // by chance, no ciphertext has so many zeros in a row

bool hasMagic(std::string_view file) {
    constexpr std::string_view kAnyMagic = "SOBv1.";
    return !file.empty() && kAnyMagic.substr(0, file.size()) == file.substr(0, kAnyMagic.size());
}

// A file with a header. Flags and payload length in the header may be wrong, so it is read in
// several ways.
class Examination {
  public:
    Examination(const std::string& file, const NamedKeys& keys, KeyTrials* trials)
        : file_(file),
          header_(*parseStoreHeader(file)),
          available_(static_cast<uint32_t>(file.size() - zelkm::kHeaderLen)),
          keys_(keys),
          trials_(trials) {}

    StoreReading run() {
        if (auto reading = readPlain()) {
            return *reading;
        }
        for (const uint32_t len : lengths()) {
            if (auto reading = readEncrypted(len)) {
                return *reading;
            }
        }
        const std::string_view payload = storePayload(file_, header_);
        if (payload.find(std::string(kZeroRun, '\0')) != payload.npos) {
            return {State::kDead, "has " + std::to_string(kZeroRun) + " zero bytes in a row",
                    "store-damaged"};
        }
        if (header_.payload_len > available_) {
            return {refused_ ? State::kRefused : State::kNotTried,
                    "has " + std::to_string(available_) + " of the " +
                        counted(header_.payload_len, "byte") + " of payload in its header",
                    "store-cut"};
        }
        if (refused_) {
            return {State::kRefused, "is complete, but " + join(refusals_, ", "), "store-refused"};
        }
        return untried();
    }

  private:
    std::vector<uint32_t> lengths() const {
        std::vector<uint32_t> result = {available_};
        if (header_.payload_len != 0 && header_.payload_len < available_) {
            result.insert(result.begin(), header_.payload_len);
        }
        return result;
    }

    // A plaintext, marked as such or as encrypted, is one only if all of it is rows, as many as the
    // header says: nothing else vouches for it.
    std::optional<StoreReading> readPlain() const {
        const StoreRows rows = parseStoreRows(storePayload(file_, header_), header_);
        if (!rows.whole || rows.count == 0) {
            return std::nullopt;
        }
        const std::string objects = std::to_string(rows.count) + " objects";
        if (rows.count != header_.row_count || header_.payload_len != available_) {
            return StoreReading{State::kRefused,
                                "is plaintext with " + objects + ", and its header says " +
                                    std::to_string(header_.row_count) + " in " +
                                    counted(header_.payload_len, "byte"),
                                "store-malformed"};
        }
        const std::string image =
            withStoreHeader(file_, false, header_.row_count, header_.payload_len);
        if (header_.encrypted()) {
            return StoreReading{State::kReads,
                                "is marked as encrypted, but is plaintext: " + objects,
                                "answer-lost", image};
        }
        return StoreReading{State::kReads, "is plaintext: " + objects, "store-plaintext", file_};
    }

    std::optional<StoreReading> readEncrypted(uint32_t len) {
        if (!trials_->canDecrypt()) {
            return std::nullopt;
        }
        const std::string store = withStoreHeader(file_, true, header_.row_count, len);
        for (const auto& [name, key] : keys_) {
            const KeyTrials::Trial trial = trials_->read(store, key);
            if (trial.keymaster == ZELKM_OK) {
                return describe(store, trial, name, key);
            }
            refused_ = refused_ || trial.keymaster == ZELKM_VERIFICATION_FAILED;
            refusals_.push_back(name +
                                (trial.keymaster == ZELKM_VERIFICATION_FAILED
                                     ? " does not decrypt it ("
                                     : " is not accepted by the keymaster (") +
                                resultText(trial.keymaster) + ")");
        }
        return std::nullopt;
    }

    // Describes what was decrypted. All of it should be rows: then they can be counted.
    StoreReading describe(const std::string& store, const KeyTrials::Trial& trial,
                          const std::string& name, const std::string& key) {
        const StoreRows rows = parseStoreRows(trial.payload, header_);
        const auto len = static_cast<uint32_t>(trial.payload.size());
        const auto count = rows.whole ? rows.count : header_.row_count;
        const std::string image = withStoreHeader(store, true, count, len);
        const std::string opens = "decrypts with " + name;
        if (trials_->read(image, key).engine != ZELKM_OK) {
            return {State::kRefused, opens + ", but the library cannot parse its rows",
                    "store-malformed", "", name};
        }
        if (image == file_) {
            return {State::kReads, opens + ": " + std::to_string(count) + " objects", "", image,
                    name};
        }
        return {State::kReads,
                opens + ": " + std::to_string(count) + " objects in " + counted(len, "byte") +
                    "; its header says " + std::to_string(header_.row_count) + " in " +
                    counted(header_.payload_len, "byte") + ", flags " +
                    std::to_string(header_.flags) + ", and " + counted(available_, "byte") +
                    " are there",
                "store-header", image, name};
    }

    // Judges an encrypted store without a key, by comparing the header's fields with each other.
    StoreReading untried() const {
        std::vector<std::string> wrong;
        if (!looksLikeStore(file_)) {
            wrong.push_back("magic \"" + header_.magic.substr(0, header_.magic.find(' ')) +
                            "\", payload " + std::to_string(header_.payload_len) + " of " +
                            counted(available_, "byte"));
        }
        if (header_.flags != zelkm::kPayloadEncrypted) {
            wrong.push_back("flags " + std::to_string(header_.flags));
        }
        if (isBlank(header_.tag) || isBlank(header_.iv)) {
            wrong.push_back("no tag or no nonce");
        }
        if (header_.payload_len < minPayloadLen(header_.row_count) ||
            (header_.row_count == 0 && header_.payload_len != minPayloadLen(0))) {
            wrong.push_back(std::to_string(header_.row_count) + " rows in " +
                            counted(header_.payload_len, "byte"));
        }
        if (!wrong.empty()) {
            return {State::kNotTried, "has an impossible header: " + join(wrong, ", "),
                    "store-header"};
        }
        return {State::kNotTried,
                "is complete and encrypted, " + std::to_string(header_.row_count) +
                    " objects by its header" +
                    (refusals_.empty() ? "" : "; " + join(refusals_, ", ")),
                "store-not-decrypted"};
    }

    const std::string& file_;
    const StoreHeader header_;
    const uint32_t available_;
    const NamedKeys& keys_;
    KeyTrials* const trials_;
    bool refused_ = false;  // an accepted key does not decrypt it
    std::vector<std::string> refusals_;
};

}  // namespace

StoreReading readStore(const std::string& file, const NamedKeys& keys, KeyTrials* trials) {
    if (isBlank(file)) {
        return {State::kDead, file.empty() ? "is empty" : "holds only zeros", "store-empty"};
    }
    const std::string disguise = disguiseOf(file, looksLikeStore).words;
    const bool is_store = hasMagic(file) || looksLikeStore(file);
    if (!disguise.empty()) {
        return {State::kDisguised, disguise, "disguised"};
    }
    if (hasMagic(file) && file.size() <= zelkm::kHeaderLen) {
        return {State::kDead,
                "has " + counted(file.size(), "byte") + ", and the header alone has " +
                    std::to_string(zelkm::kHeaderLen),
                "store-cut"};
    }
    const auto header = parseStoreHeader(file);
    const bool fits = header && header->payload_len == file.size() - zelkm::kHeaderLen;
    if (!is_store && !fits) {
        return {State::kRefused,
                isText(file) ? "is text" : "has neither the magic nor the lengths of a store",
                "no-store-file"};
    }
    return Examination(file, keys, trials).run();
}

}  // namespace zelkm_tool
