// PROTECTS NOTHING: for development and tests only.
// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Finds and encodes key parameters.

#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "common.h"
#include "keymaster_check/client.h"

namespace soft_keymaster {

using keymaster_check::bytesOf;
using keymaster_check::findParam;
using keymaster_check::hasBytes;
using keymaster_check::numberOf;
using keymaster_check::param;
using keymaster_check::Params;
using keymaster_check::TagType;
using keymaster_check::typeOf;

// Whether the type in the tag is a known one.
bool hasKnownType(Tag tag);

// The value of the first ENUM, ENUM_REP or UINT entry with this tag.
std::optional<uint32_t> findInteger(const Params& params, Tag tag);

// Whether some entry with this tag has this value. For repeatable tags.
template <typename Enum>
bool hasEnum(const Params& params, Tag tag, Enum value) {
    return std::any_of(params.begin(), params.end(), [=](const KeyParameter& entry) {
        return entry.tag == tag && entry.f.integer == static_cast<uint32_t>(value);
    });
}

// Appends an unsigned integer of `size` bytes, most significant byte first.
void appendBigEndian(Bytes& out, uint64_t value, size_t size);

// Encodes a list. Each entry is its tag (4 bytes) and its value in 8 bytes; for BYTES and BIGNUM,
// the length (4 bytes) and the bytes.
Bytes encodeParams(const Params& params);

// Takes integers and bytes off the front of a buffer. Throws INVALID_KEY_BLOB at its end.
class Reader {
  public:
    Reader(const uint8_t* data, size_t size) : data_(data), left_(size) {}

    size_t left() const { return left_; }
    const uint8_t* bytes(size_t size);
    uint64_t integer(size_t size);

  private:
    const uint8_t* data_;
    size_t left_;
};

// Decodes such a list. Throws INVALID_KEY_BLOB when the bytes are no list.
Params decodeParams(const uint8_t* data, size_t size);

}  // namespace soft_keymaster
