// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "key_generation.h"

#include <openssl/ec.h>
#include <openssl/obj_mac.h>
#include <openssl/rsa.h>

#include <algorithm>
#include <chrono>
#include <iterator>
#include <vector>

#include "aes_gcm.h"

namespace soft_keymaster {

using android::hardware::keymaster::V4_0::Algorithm;
using android::hardware::keymaster::V4_0::BlockMode;
using android::hardware::keymaster::V4_0::EcCurve;
using android::hardware::keymaster::V4_0::KeyOrigin;

namespace {

constexpr uint32_t kMinMacBits = 96;
constexpr uint32_t kRsaBits = 2048;
constexpr uint64_t kRsaExponent = 65537;
constexpr uint32_t kOsVersion = 100000;  // of the device that is simulated: 10.00.00

struct Curve {
    EcCurve name;
    uint32_t bits;
    int nid;
};

constexpr Curve kCurves[] = {{EcCurve::P_224, 224, NID_secp224r1},
                             {EcCurve::P_256, 256, NID_X9_62_prime256v1},
                             {EcCurve::P_384, 384, NID_secp384r1},
                             {EcCurve::P_521, 521, NID_secp521r1}};

Bytes makeAes(const Params& params, const hidl_vec<uint8_t>* imported) {
    const uint32_t bits = findInteger(params, Tag::KEY_SIZE).value_or(0);
    require(bits == 128 || bits == 192 || bits == 256, ErrorCode::UNSUPPORTED_KEY_SIZE);
    const auto min_mac = findInteger(params, Tag::MIN_MAC_LENGTH);
    if (!hasEnum(params, Tag::BLOCK_MODE, BlockMode::GCM)) {
        require(!min_mac.has_value(), ErrorCode::INVALID_TAG);  // only GCM has a MAC
        throw KeymasterError{ErrorCode::UNSUPPORTED_BLOCK_MODE};
    }
    require(min_mac.has_value(), ErrorCode::MISSING_MIN_MAC_LENGTH);
    require(*min_mac >= kMinMacBits && *min_mac <= AesGcm::kMaxMacBits && *min_mac % 8 == 0,
            ErrorCode::UNSUPPORTED_MIN_MAC_LENGTH);
    if (imported != nullptr) {
        require(imported->size() == bits / 8, ErrorCode::IMPORT_PARAMETER_MISMATCH);
        return *imported;
    }
    return randomBytes(bits / 8);
}

PkeyPtr generated(EVP_PKEY_CTX* context) {
    EVP_PKEY* made = nullptr;
    requireSsl(EVP_PKEY_keygen(context, &made) == 1);
    return PkeyPtr(made);
}

PkeyPtr makeEcKeyPair(int curve_nid) {
    const PkeyContextPtr context(EVP_PKEY_CTX_new_id(EVP_PKEY_EC, nullptr));
    requireSsl(context != nullptr && EVP_PKEY_keygen_init(context.get()) == 1 &&
               EVP_PKEY_CTX_set_ec_paramgen_curve_nid(context.get(), curve_nid) == 1);
    return generated(context.get());
}

Bytes generateEc(const Params& params, std::vector<KeyParameter>& characteristics) {
    const auto size = findInteger(params, Tag::KEY_SIZE);
    const auto curve = findInteger(params, Tag::EC_CURVE);
    require(size.has_value() || curve.has_value(), ErrorCode::UNSUPPORTED_KEY_SIZE);
    const auto* const chosen =
        std::find_if(std::begin(kCurves), std::end(kCurves), [&](const Curve& known) {
            return curve ? known.name == static_cast<EcCurve>(*curve) : known.bits == *size;
        });
    require(chosen != std::end(kCurves),
            curve ? ErrorCode::UNSUPPORTED_EC_CURVE : ErrorCode::UNSUPPORTED_KEY_SIZE);
    require(size.value_or(chosen->bits) == chosen->bits, ErrorCode::UNSUPPORTED_KEY_SIZE);
    if (!size) {
        characteristics.push_back(param(Tag::KEY_SIZE, chosen->bits));
    }
    if (!curve) {
        characteristics.push_back(param(Tag::EC_CURVE, chosen->name));
    }
    return toDer(makeEcKeyPair(chosen->nid).get(), i2d_PrivateKey);
}

Bytes generateRsa(const Params& params) {
    require(findInteger(params, Tag::KEY_SIZE) == kRsaBits, ErrorCode::UNSUPPORTED_KEY_SIZE);
    const KeyParameter* exponent = findParam(params, Tag::RSA_PUBLIC_EXPONENT);
    require(exponent != nullptr && exponent->f.longInteger == kRsaExponent,
            ErrorCode::INVALID_ARGUMENT);
    const PkeyContextPtr context(EVP_PKEY_CTX_new_id(EVP_PKEY_RSA, nullptr));
    requireSsl(context != nullptr && EVP_PKEY_keygen_init(context.get()) == 1 &&
               EVP_PKEY_CTX_set_rsa_keygen_bits(context.get(), kRsaBits) == 1);
    return toDer(generated(context.get()).get(), i2d_PrivateKey);  // with the default exponent
}

KeyParameter creationTime() {
    return param(Tag::CREATION_DATETIME, std::chrono::duration_cast<std::chrono::milliseconds>(
                                             std::chrono::system_clock::now().time_since_epoch())
                                             .count());
}

}  // namespace

Key makeKey(const Params& params, uint32_t patch_level, const hidl_vec<uint8_t>* imported) {
    std::vector<KeyParameter> characteristics;
    for (const KeyParameter& given : params) {
        switch (given.tag) {
            case Tag::ORIGIN:
            case Tag::ROOT_OF_TRUST:
                throw KeymasterError{ErrorCode::INVALID_TAG};
            case Tag::OS_VERSION:
            case Tag::OS_PATCHLEVEL:
            case Tag::APPLICATION_ID:
            case Tag::APPLICATION_DATA:
                break;
            default:
                if (hasKnownType(given.tag)) {
                    characteristics.push_back(given);
                }
        }
    }
    Key key;
    const auto algorithm = findInteger(params, Tag::ALGORITHM);
    require(algorithm.has_value(), ErrorCode::UNSUPPORTED_ALGORITHM);
    require(imported == nullptr || *algorithm == static_cast<uint32_t>(Algorithm::AES),
            ErrorCode::UNIMPLEMENTED);
    switch (static_cast<Algorithm>(*algorithm)) {
        case Algorithm::AES:
            key.material = makeAes(params, imported);
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
        param(Tag::ORIGIN, imported != nullptr ? KeyOrigin::IMPORTED : KeyOrigin::GENERATED));
    if (findParam(params, Tag::CREATION_DATETIME) == nullptr) {
        characteristics.push_back(creationTime());
    }
    characteristics.push_back(param(Tag::OS_VERSION, kOsVersion));
    characteristics.push_back(param(Tag::OS_PATCHLEVEL, patch_level));
    key.characteristics = characteristics;
    return key;
}

PkeyPtr makeEcKeyPair() {
    return makeEcKeyPair(NID_X9_62_prime256v1);
}

PkeyPtr privateKey(const Key& key) {
    require(!hasEnum(key.characteristics, Tag::ALGORITHM, Algorithm::AES),
            ErrorCode::INCOMPATIBLE_ALGORITHM);
    const uint8_t* der = key.material.data();
    PkeyPtr pair(d2i_AutoPrivateKey(nullptr, &der, static_cast<long>(key.material.size())));
    requireSsl(pair != nullptr);
    return pair;
}

}  // namespace soft_keymaster
