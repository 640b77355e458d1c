// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Making keys.

#include "key_generation.h"

#include <openssl/ec.h>
#include <openssl/obj_mac.h>
#include <openssl/rand.h>
#include <openssl/rsa.h>

#include <algorithm>
#include <initializer_list>
#include <vector>

#include "aes_gcm.h"

namespace soft_keymaster {

using android::hardware::keymaster::V4_0::Algorithm;
using android::hardware::keymaster::V4_0::BlockMode;
using android::hardware::keymaster::V4_0::EcCurve;
using android::hardware::keymaster::V4_0::KeyOrigin;
using android::hardware::keymaster::V4_0::PaddingMode;

namespace {

constexpr uint32_t kAesBits = 8 * AesGcm::kKeySize;
constexpr uint32_t kMinMacBits = 96;
constexpr uint32_t kMaxMacBits = 8 * AesGcm::kTagSize;
constexpr uint32_t kEcBits = 256;
constexpr uint32_t kRsaBits = 2048;
constexpr uint64_t kRsaExponent = 65537;

// Every entry with this tag has one of the values `allowed`.
template <typename Enum>
void requireOnly(const Params& params, Tag tag, std::initializer_list<Enum> allowed,
                 ErrorCode error) {
    for (const KeyParameter& param : params) {
        const auto value = static_cast<Enum>(param.f.integer);
        require(
            param.tag != tag || std::find(allowed.begin(), allowed.end(), value) != allowed.end(),
            error);
    }
}

Bytes generateAes(const Params& params) {
    require(findInteger(params, Tag::KEY_SIZE) == kAesBits, ErrorCode::UNSUPPORTED_KEY_SIZE);
    requireOnly(params, Tag::PURPOSE, {KeyPurpose::ENCRYPT, KeyPurpose::DECRYPT},
                ErrorCode::UNSUPPORTED_PURPOSE);
    requireOnly(params, Tag::BLOCK_MODE, {BlockMode::GCM}, ErrorCode::UNSUPPORTED_BLOCK_MODE);
    requireOnly(params, Tag::PADDING, {PaddingMode::NONE}, ErrorCode::UNSUPPORTED_PADDING_MODE);
    const auto min_mac = findInteger(params, Tag::MIN_MAC_LENGTH);
    require(min_mac.has_value(), ErrorCode::MISSING_MIN_MAC_LENGTH);
    require(*min_mac >= kMinMacBits && *min_mac <= kMaxMacBits && *min_mac % 8 == 0,
            ErrorCode::UNSUPPORTED_MAC_LENGTH);
    Bytes key(AesGcm::kKeySize);
    requireSsl(RAND_bytes(key.data(), static_cast<int>(key.size())) == 1);
    return key;
}

PkeyPtr makeKeyPair(int type, int (*configure)(EVP_PKEY_CTX*)) {
    const PkeyContextPtr context(EVP_PKEY_CTX_new_id(type, nullptr));
    EVP_PKEY* made = nullptr;
    requireSsl(context != nullptr && EVP_PKEY_keygen_init(context.get()) == 1 &&
               configure(context.get()) == 1 && EVP_PKEY_keygen(context.get(), &made) == 1);
    return PkeyPtr(made);
}

Bytes generateEc(const Params& params, std::vector<KeyParameter>& characteristics) {
    const auto size = findInteger(params, Tag::KEY_SIZE);
    const auto curve = findInteger(params, Tag::EC_CURVE);
    const auto p256 = static_cast<uint32_t>(EcCurve::P_256);
    require(curve.value_or(p256) == p256, ErrorCode::UNSUPPORTED_EC_CURVE);
    require(size.has_value() || curve.has_value(), ErrorCode::UNSUPPORTED_KEY_SIZE);
    require(size.value_or(kEcBits) == kEcBits, ErrorCode::UNSUPPORTED_KEY_SIZE);
    if (!size) {
        characteristics.push_back(integerParam(Tag::KEY_SIZE, kEcBits));
    }
    if (!curve) {
        characteristics.push_back(integerParam(Tag::EC_CURVE, p256));
    }
    return toDer(makeEcKeyPair().get(), i2d_PrivateKey);
}

Bytes generateRsa(const Params& params) {
    require(findInteger(params, Tag::KEY_SIZE) == kRsaBits, ErrorCode::UNSUPPORTED_KEY_SIZE);
    const KeyParameter* exponent = findParam(params, Tag::RSA_PUBLIC_EXPONENT);
    require(exponent != nullptr && exponent->f.longInteger == kRsaExponent,
            ErrorCode::INVALID_ARGUMENT);
    const PkeyPtr pair = makeKeyPair(EVP_PKEY_RSA, [](EVP_PKEY_CTX* context) {
        return EVP_PKEY_CTX_set_rsa_keygen_bits(context, kRsaBits);  // the exponent is the default
    });
    return toDer(pair.get(), i2d_PrivateKey);
}

}  // namespace

Key generateKey(const Params& params, uint32_t patch_level) {
    for (const KeyParameter& param : params) {
        switch (param.tag) {
            case Tag::ORIGIN:
            case Tag::OS_VERSION:
            case Tag::OS_PATCHLEVEL:
                throw KeymasterError{ErrorCode::INVALID_TAG};  // the keymaster's own to say
            case Tag::APPLICATION_ID:
            case Tag::APPLICATION_DATA:
                throw KeymasterError{ErrorCode::UNSUPPORTED_TAG};  // no key is bound to a client
            default:
                break;
        }
    }
    std::vector<KeyParameter> characteristics = params;
    Key key;
    const auto algorithm = findInteger(params, Tag::ALGORITHM);
    require(algorithm.has_value(), ErrorCode::UNSUPPORTED_ALGORITHM);
    switch (static_cast<Algorithm>(*algorithm)) {
        case Algorithm::AES:
            key.material = generateAes(params);
            break;
        case Algorithm::EC:
            key.material = generateEc(params, characteristics);
            break;
        case Algorithm::RSA:
            key.material = generateRsa(params);
            break;
        default:
            throw KeymasterError{ErrorCode::UNSUPPORTED_ALGORITHM};
    }
    characteristics.push_back(
        integerParam(Tag::ORIGIN, static_cast<uint32_t>(KeyOrigin::GENERATED)));
    characteristics.push_back(integerParam(Tag::OS_PATCHLEVEL, patch_level));
    key.characteristics = characteristics;
    return key;
}

PkeyPtr makeEcKeyPair() {
    return makeKeyPair(EVP_PKEY_EC, [](EVP_PKEY_CTX* context) {
        return EVP_PKEY_CTX_set_ec_paramgen_curve_nid(context, NID_X9_62_prime256v1);
    });
}

PkeyPtr privateKey(const Key& key) {
    require(!hasEnum(key.characteristics, Tag::ALGORITHM, Algorithm::AES),
            ErrorCode::UNSUPPORTED_ALGORITHM);
    const uint8_t* der = key.material.data();
    PkeyPtr pair(d2i_AutoPrivateKey(nullptr, &der, static_cast<long>(key.material.size())));
    requireSsl(pair != nullptr);
    return pair;
}

}  // namespace soft_keymaster
