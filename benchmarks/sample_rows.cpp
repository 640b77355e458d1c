// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "sample_rows.h"

#include <random>
#include <string_view>

#include "db_store_format.h"

namespace bench {
namespace {

constexpr uint64_t kSeed = 20260101;
constexpr size_t kAliasLen = 16;

// The generator's sequence is the same everywhere; the standard's distributions are not.
class Random {
  public:
    size_t below(size_t bound) { return generator_() % bound; }

    std::string text(size_t len, std::string_view alphabet) {
        std::string text;
        for (size_t i = 0; i < len; ++i) {
            text += alphabet[below(alphabet.size())];
        }
        return text;
    }

  private:
    std::mt19937_64 generator_{kSeed};
};

std::vector<Row> makeRows(size_t count) {
    constexpr std::string_view kDigits = "0123456789";
    constexpr std::string_view kLetters = "abcdefghijklmnopqrstuvwxyz";
    Random random;
    std::vector<Row> rows;
    for (size_t i = 0; i < count; ++i) {
        const size_t low = 10000 + random.below(80000);
        rows.push_back({
            random.text(kAliasLen, kLetters),
            "app" + random.text(5, kDigits),
            "1000," + random.text(5, kDigits),
            "[" + std::to_string(low) + ".." + std::to_string(low + 999) + "]",
            random.text(5, kDigits),
            random.below(8) == 0 ? "1" : "",
        });
    }
    return rows;
}

}  // namespace

std::string encodeRow(const Row& row) {
    std::string text;
    for (const std::string& value : row) {
        text += value;
        text += kFieldEnd;
    }
    return text;
}

Sample::Sample(size_t count) : rows(makeRows(count + 1)), extra(rows.back()) {
    rows.pop_back();
    for (const Row& row : rows) {
        payload += encodeRow(row) + kRowEnd;
    }
    payload += '\0';
    uint8_t header[zelkm::kHeaderLen];
    zelkm::writeHeader(header, 0, static_cast<uint32_t>(count),
                       static_cast<uint32_t>(payload.size()));
    image.assign(reinterpret_cast<const char*>(header), sizeof(header));
    image += payload;
}

size_t Sample::pick(uint64_t step) const {
    constexpr uint64_t kScatter = 0x9E3779B97F4A7C15;  // 2^64 divided by the golden ratio
    return (step * kScatter >> 32) % rows.size();
}

Texts Sample::texts() const {
    Texts texts;
    for (const Row& row : rows) {
        texts.push_back(encodeRow(row));
    }
    return texts;
}

}  // namespace bench
