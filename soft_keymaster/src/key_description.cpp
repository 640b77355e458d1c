// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The structure that is encoded:
//
//     KeyDescription ::= SEQUENCE {
//         attestationVersion        INTEGER,
//         attestationSecurityLevel  ENUMERATED,
//         keymasterVersion          INTEGER,
//         keymasterSecurityLevel    ENUMERATED,
//         attestationChallenge      OCTET STRING,
//         uniqueId                  OCTET STRING,
//         softwareEnforced          AuthorizationList,
//         teeEnforced               AuthorizationList }
//
// An AuthorizationList is a SEQUENCE whose members are explicitly tagged with the numbers of the
// keymaster tags, in ascending order: repeatable tags as SET OF INTEGER, true flags as NULL.

#include "key_description.h"

#include <algorithm>
#include <map>
#include <vector>

namespace soft_keymaster {

using android::hardware::keymaster::V4_0::SecurityLevel;

namespace {

constexpr uint64_t kAttestationVersion = 3;
constexpr uint64_t kKeymasterVersion = 4;

// Identifier octets.
constexpr uint8_t kInteger = 0x02;
constexpr uint8_t kOctetString = 0x04;
constexpr uint8_t kNull = 0x05;
constexpr uint8_t kEnumerated = 0x0A;
constexpr uint8_t kSequence = 0x30;
constexpr uint8_t kSet = 0x31;
constexpr uint8_t kContextConstructed = 0xA0;

Bytes element(const Bytes& identifier, const Bytes& content) {
    Bytes out = identifier;
    if (content.size() < 0x80) {
        out.push_back(static_cast<uint8_t>(content.size()));
    } else {
        size_t length_size = 1;
        while (content.size() >> (8 * length_size) != 0) {
            ++length_size;
        }
        out.push_back(static_cast<uint8_t>(0x80 | length_size));
        appendBigEndian(out, content.size(), length_size);
    }
    append(out, content);
    return out;
}

Bytes element(uint8_t identifier, const Bytes& content) {
    return element(Bytes{identifier}, content);
}

Bytes integer(uint64_t value, uint8_t identifier = kInteger) {
    size_t size = 1;
    // The top bit is the sign, so it must be 0.
    while (size < 9 && value >> (8 * size - 1) != 0) {
        ++size;
    }
    Bytes content;
    if (size == 9) {
        content.push_back(0);
    }
    appendBigEndian(content, value, std::min<size_t>(size, 8));
    return element(identifier, content);
}

Bytes enumerated(SecurityLevel level) {
    return integer(static_cast<uint64_t>(level), kEnumerated);
}

Bytes octetString(const hidl_vec<uint8_t>& value) {
    return element(kOctetString, value);
}

// [number] EXPLICIT; numbers from 31 on follow the first octet, seven bits an octet.
Bytes tagged(uint32_t number, const Bytes& content) {
    if (number < 0x1F) {
        return element(static_cast<uint8_t>(kContextConstructed | number), content);
    }
    Bytes identifier{kContextConstructed | 0x1F};
    if (number >= 0x80) {
        identifier.push_back(static_cast<uint8_t>(0x80 | number >> 7));
    }
    identifier.push_back(static_cast<uint8_t>(number & 0x7F));
    return element(identifier, content);
}

// Whether AuthorizationList has a member for `tag`.
bool isListed(Tag tag) {
    switch (tag) {
        case Tag::PURPOSE:
        case Tag::ALGORITHM:
        case Tag::KEY_SIZE:
        case Tag::DIGEST:
        case Tag::PADDING:
        case Tag::EC_CURVE:
        case Tag::RSA_PUBLIC_EXPONENT:
        case Tag::NO_AUTH_REQUIRED:
        case Tag::CREATION_DATETIME:
        case Tag::ORIGIN:
        case Tag::OS_VERSION:
        case Tag::OS_PATCHLEVEL:
        case Tag::ATTESTATION_APPLICATION_ID:
            return true;
        default:
            return false;
    }
}

Bytes valueOf(const KeyParameter& param) {
    switch (typeOf(param.tag)) {
        case TagType::BYTES:
            return octetString(param.blob);
        case TagType::BOOL:
            return element(kNull, {});
        case TagType::ULONG:
            return integer(param.f.longInteger);
        case TagType::DATE:
            return integer(param.f.dateTime);
        default:
            return integer(param.f.integer);
    }
}

Bytes authorizationList(const std::vector<KeyParameter>& params) {
    std::map<Tag, std::vector<Bytes>> values;
    for (const KeyParameter& param : params) {
        const bool unset = typeOf(param.tag) == TagType::BOOL && !param.f.boolValue;
        if (isListed(param.tag) && !unset) {
            values[param.tag].push_back(valueOf(param));
        }
    }
    std::map<uint32_t, Bytes> members;
    for (auto& [tag, encodings] : values) {
        const uint32_t number = static_cast<uint32_t>(tag) & 0x0FFFFFFFu;
        Bytes member = encodings.front();
        if (typeOf(tag) == TagType::ENUM_REP) {
            // DER sorts the members of a set. Equal members are kept once.
            std::sort(encodings.begin(), encodings.end());
            encodings.erase(std::unique(encodings.begin(), encodings.end()), encodings.end());
            Bytes all;
            for (const Bytes& encoding : encodings) {
                append(all, encoding);
            }
            member = element(kSet, all);
        }
        members[number] = tagged(number, member);
    }
    Bytes content;
    for (const auto& [number, member] : members) {
        append(content, member);
    }
    return element(kSequence, content);
}

}  // namespace

Bytes encodeKeyDescription(const Params& characteristics, const hidl_vec<uint8_t>& challenge,
                           const hidl_vec<uint8_t>& application_id) {
    std::vector<KeyParameter> software_enforced = characteristics;
    software_enforced.push_back(
        blobParam(Tag::ATTESTATION_APPLICATION_ID, application_id.data(), application_id.size()));
    Bytes content;
    append(content, integer(kAttestationVersion));
    append(content, enumerated(SecurityLevel::SOFTWARE));
    append(content, integer(kKeymasterVersion));
    append(content, enumerated(SecurityLevel::SOFTWARE));
    append(content, octetString(challenge));
    append(content, octetString({}));
    append(content, authorizationList(software_enforced));
    append(content, authorizationList({}));
    return element(kSequence, content);
}

}  // namespace soft_keymaster
