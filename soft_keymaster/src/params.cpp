// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "params.h"

namespace soft_keymaster {

const uint8_t* Reader::bytes(size_t size) {
    require(size <= left_, ErrorCode::INVALID_KEY_BLOB);
    const uint8_t* start = data_;
    data_ += size;
    left_ -= size;
    return start;
}

uint64_t Reader::integer(size_t size) {
    const uint8_t* start = bytes(size);
    uint64_t value = 0;
    for (size_t i = 0; i < size; ++i) {
        value = value << 8 | start[i];
    }
    return value;
}

bool hasKnownType(Tag tag) {
    return typeOf(tag) != TagType::INVALID && typeOf(tag) <= TagType::ULONG_REP;
}

std::optional<uint32_t> findInteger(const Params& params, Tag tag) {
    const KeyParameter* param = findParam(params, tag);
    if (param == nullptr) {
        return std::nullopt;
    }
    return param->f.integer;
}

void appendBigEndian(Bytes& out, uint64_t value, size_t size) {
    for (size_t i = size; i > 0; --i) {
        out.push_back(static_cast<uint8_t>(value >> (8 * (i - 1))));
    }
}

Bytes encodeParams(const Params& params) {
    Bytes out;
    for (const KeyParameter& param : params) {
        appendBigEndian(out, static_cast<uint32_t>(param.tag), 4);
        if (hasBytes(param.tag)) {
            appendBigEndian(out, param.blob.size(), 4);
            out.insert(out.end(), param.blob.begin(), param.blob.end());
        } else {
            appendBigEndian(out, numberOf(param), 8);
        }
    }
    return out;
}

Params decodeParams(const uint8_t* data, size_t size) {
    std::vector<KeyParameter> params;
    for (Reader reader(data, size); reader.left() > 0;) {
        const Tag tag = static_cast<Tag>(reader.integer(4));
        if (hasBytes(tag)) {
            const size_t length = reader.integer(4);
            const uint8_t* start = reader.bytes(length);
            params.push_back(param(tag, Bytes(start, start + length)));
        } else {
            params.push_back(param(tag, reader.integer(8)));
        }
    }
    return params;
}

}  // namespace soft_keymaster
