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
#include <set>
#include <vector>

namespace soft_keymaster {

using android::hardware::keymaster::V4_0::SecurityLevel;

namespace {

constexpr uint64_t kAttestationVersion = 3;
constexpr uint64_t kKeymasterVersion = 4;

constexpr bool kPrimitive = false;
constexpr bool kConstructed = true;

Bytes element(int tag, bool constructed, const Bytes& content, int tag_class = V_ASN1_UNIVERSAL) {
    const int len = static_cast<int>(content.size());
    const int size = ASN1_object_size(constructed, len, tag);
    requireSsl(size > 0);
    Bytes out(static_cast<size_t>(size));
    uint8_t* at = out.data();
    ASN1_put_object(&at, constructed, len, tag, tag_class);
    std::copy(content.begin(), content.end(), at);
    return out;
}

Bytes sequence(const Bytes& content) {
    return element(V_ASN1_SEQUENCE, kConstructed, content);
}

Bytes integer(uint64_t value) {
    const SslPtr<ASN1_INTEGER, ASN1_INTEGER_free> number(ASN1_INTEGER_new());
    requireSsl(number != nullptr && ASN1_INTEGER_set_uint64(number.get(), value) == 1);
    return toDer(number.get(), i2d_ASN1_INTEGER);
}

Bytes enumerated(SecurityLevel level) {
    return element(V_ASN1_ENUMERATED, kPrimitive, {static_cast<uint8_t>(level)});
}

Bytes octetString(const hidl_vec<uint8_t>& value) {
    return element(V_ASN1_OCTET_STRING, kPrimitive, value);
}

// The members of an AuthorizationList, in the order of their numbers.
constexpr Tag kListed[] = {Tag::PURPOSE,
                           Tag::ALGORITHM,
                           Tag::KEY_SIZE,
                           Tag::DIGEST,
                           Tag::PADDING,
                           Tag::EC_CURVE,
                           Tag::RSA_PUBLIC_EXPONENT,
                           Tag::NO_AUTH_REQUIRED,
                           Tag::CREATION_DATETIME,
                           Tag::ORIGIN,
                           Tag::OS_VERSION,
                           Tag::OS_PATCHLEVEL,
                           Tag::ATTESTATION_APPLICATION_ID};

Bytes elementOf(const KeyParameter& param) {
    if (hasBytes(param.tag)) {
        return octetString(param.blob);
    }
    return typeOf(param.tag) == TagType::BOOL ? element(V_ASN1_NULL, kPrimitive, {})
                                              : integer(numberOf(param));
}

Bytes authorizationList(const std::vector<KeyParameter>& params) {
    Bytes content;
    for (const Tag tag : kListed) {
        std::vector<Bytes> values;
        for (const KeyParameter& param : params) {
            const bool is_flag = typeOf(tag) == TagType::BOOL;
            if (param.tag == tag && (!is_flag || param.f.boolValue)) {
                values.push_back(elementOf(param));
            }
        }
        if (values.empty()) {
            continue;
        }
        Bytes member = values.front();
        if (typeOf(tag) == TagType::ENUM_REP) {
            // DER sorts the members of a set. Equal members are kept once.
            const std::set<Bytes> sorted(values.begin(), values.end());
            Bytes all;
            for (const Bytes& value : sorted) {
                append(all, value);
            }
            member = element(V_ASN1_SET, kConstructed, all);
        }
        const int number = static_cast<int>(static_cast<uint32_t>(tag) & 0x0FFFFFFFu);
        append(content, element(number, kConstructed, member, V_ASN1_CONTEXT_SPECIFIC));
    }
    return sequence(content);
}

}  // namespace

Bytes encodeKeyDescription(const Params& characteristics, const hidl_vec<uint8_t>& challenge,
                           const hidl_vec<uint8_t>& application_id) {
    std::vector<KeyParameter> software_enforced = characteristics;
    software_enforced.push_back(param(Tag::ATTESTATION_APPLICATION_ID, application_id));
    Bytes content;
    append(content, integer(kAttestationVersion));
    append(content, enumerated(SecurityLevel::SOFTWARE));
    append(content, integer(kKeymasterVersion));
    append(content, enumerated(SecurityLevel::SOFTWARE));
    append(content, octetString(challenge));
    append(content, octetString({}));
    append(content, authorizationList(software_enforced));
    append(content, authorizationList({}));
    return sequence(content);
}

}  // namespace soft_keymaster
