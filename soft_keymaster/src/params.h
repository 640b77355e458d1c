// PROTECTS NOTHING: for development and tests only.
// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Lists of key parameters: looking entries up, making them, and their stored form.

#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "common.h"

namespace soft_keymaster {

using android::hardware::keymaster::V4_0::TagType;

using Params = hidl_vec<KeyParameter>;

TagType typeOf(Tag tag);
// Whether the type in the tag is one that has values.
bool hasKnownType(Tag tag);

// The first entry with this tag; null when there is none.
const KeyParameter* findParam(const Params& params, Tag tag);

// The value of the first ENUM, ENUM_REP or UINT entry with this tag.
std::optional<uint32_t> findInteger(const Params& params, Tag tag);

// The same when the list has one such entry, and nothing when it has several.
std::optional<uint32_t> findSingleInteger(const Params& params, Tag tag);

// Whether one of the entries with this tag has this value; for repeatable tags.
bool hasInteger(const Params& params, Tag tag, uint32_t value);
template <typename Enum>
bool hasEnum(const Params& params, Tag tag, Enum value) {
    return hasInteger(params, tag, static_cast<uint32_t>(value));
}

KeyParameter integerParam(Tag tag, uint32_t value);
KeyParameter blobParam(Tag tag, const uint8_t* data, size_t size);

// Appends an unsigned integer of `size` bytes, most significant first.
void appendBigEndian(Bytes& out, uint64_t value, size_t size);

// The stored form of a list: per entry the tag (4 bytes), then the value in 8 bytes, or for BYTES
// and BIGNUM the length in 4 bytes and the bytes. A tag without a known type is UNSUPPORTED_TAG.
Bytes encodeParams(const Params& params);
// The list of an encoded form; INVALID_KEY_BLOB when it is none.
Params decodeParams(const uint8_t* data, size_t size);

}  // namespace soft_keymaster
