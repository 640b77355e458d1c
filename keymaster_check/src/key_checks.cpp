// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Checks of the database key: the keymaster makes one, accepts it, refuses a damaged one, and
// upgrades it.

#include "checks.h"

namespace keymaster_check {
namespace {

constexpr ErrorCode kInvalidKeyBlob = ErrorCode::INVALID_KEY_BLOB;

struct Damage {
    std::string what;
    Bytes blob;
};

std::vector<Damage> damagesOf(const Bytes& blob) {
    constexpr size_t kPlaces = 8;  // spread from the first byte to the last
    std::vector<Damage> damages;
    size_t before = blob.size();
    for (size_t i = 0; i < kPlaces; ++i) {
        const size_t at = i * (blob.size() - 1) / (kPlaces - 1);
        if (at != before) {
            damages.push_back({"with byte " + std::to_string(at) + " altered", altered(blob, at)});
        }
        before = at;
    }
    Bytes longer = blob;
    longer.push_back(0);
    damages.push_back({"with a byte more", longer});
    const auto half = static_cast<Bytes::difference_type>(blob.size() / 2);
    damages.push_back({"without its last byte", Bytes(blob.begin(), blob.end() - 1)});
    damages.push_back({"without its second half", Bytes(blob.begin(), blob.begin() + half)});
    return damages;
}

bool lists(const Params& characteristics, const KeyParameter& wanted) {
    return std::any_of(characteristics.begin(), characteristics.end(),
                       [&wanted](const KeyParameter& entry) {
                           return entry.tag == wanted.tag && entry.f.integer == wanted.f.integer;
                       });
}

}  // namespace

Finding checkKeyGenerate(Context& context) {
    const Answer answer = context.make({Call::kGenerateKey, {}, databaseKeyParams()});
    if (!answer.ok()) {
        return broken(context, "there is no key",
                      "every insertion is refused with " + describeCode(answer.error));
    }
    if (answer.output.empty()) {
        return broken(context, "the key's blob is empty",
                      "each insertion makes a key, and keeps none; then what begin returns counts");
    }
    context.key = answer.output;
    return holds(context.sent(), context.answered());
}

Finding checkKeyCharacteristics(Context& context) {
    const Answer answer = context.make({Call::kGetKeyCharacteristics, context.key});
    if (!answer.ok()) {
        return broken(context, "a fresh key is refused",
                      "the stored key is refused at the next start, and nobody reads the store");
    }
    const KeyCharacteristics& listed = answer.characteristics;
    for (const KeyParameter& wanted : databaseKeyParams()) {
        if (!lists(listed.softwareEnforced, wanted) && !lists(listed.hardwareEnforced, wanted)) {
            return broken(context,
                          "missing among " + describe(listed.softwareEnforced) + " and " +
                              describe(listed.hardwareEnforced) + ": " + describe(Params{wanted}),
                          "the key may be weaker than was asked for, and the library does not "
                          "look: it takes the code alone");
        }
    }
    return holds(context.sent(), "0, and all that the key was made with");
}

Finding checkKeyDamagedBlob(Context& context) {
    const Run encryption = encrypt(context, context.key, kPayload);
    if (encryption.failed == Call::kBegin) {
        return notTried("begin refuses a good key, too: see gcm.correct");
    }
    const std::vector<Damage> damages = damagesOf(context.key);
    size_t same = 0;  // damages to bytes that the key does not depend on
    for (const Damage& damage : damages) {
        context.startCase();
        const Answer listed = context.make({Call::kGetKeyCharacteristics, damage.blob});
        const Answer begun = beginAndAbort(context, damage.blob);
        if (listed.error == kInvalidKeyBlob && begun.error == kInvalidKeyBlob) {
            continue;
        }
        if (listed.ok() && begun.ok()) {
            if (!encryption.done()) {
                return notTried("no encryption shows whether the blob " + damage.what +
                                " holds the same key: see gcm.correct");
            }
            if (decrypt(context, damage.blob, encryption).bringsBack(kPayload)) {
                ++same;
                continue;
            }
            return broken(context, "the blob " + damage.what + " is taken for another key",
                          "a damaged key file is used as if it were whole; the store is refused "
                          "(-30), and lost after three starts");
        }
        return broken(context, "the blob " + damage.what + " is not refused with -33",
                      "a damaged key file is not replaced: only -33 from both calls starts that");
    }
    return holds(
        "getKeyCharacteristics and begin with " + std::to_string(damages.size()) + " damaged blobs",
        same == 0 ? "-33 to each" : "-33, or the same key (" + std::to_string(same) + " times)");
}

Finding checkKeyUpgrade(Context& context) {
    const Run encryption = encrypt(context, context.key, kPayload);
    if (!encryption.done()) {
        return notTried(encryption.failure() + ": see gcm.correct");
    }
    context.startCase();
    const Answer upgraded = context.make({Call::kUpgradeKey, context.key});
    if (!upgraded.ok()) {
        return refusedOrBroken(context, upgraded, "the upgrade of a key fails");
    }
    if (upgraded.output.empty()) {
        return holds(context.sent(), "0 without a blob: the key needs no upgrade");
    }
    if (!context.make({Call::kGetKeyCharacteristics, upgraded.output}).ok()) {
        return broken(context, "the upgraded key is refused");
    }
    if (!decrypt(context, upgraded.output, encryption).bringsBack(kPayload)) {
        return broken(context, "the upgraded key does not open what the old key encrypted");
    }
    context.key = upgraded.output;  // the key before need not work any more
    return holds(context.sent(), "a blob that opens what the old one encrypted");
}

}  // namespace keymaster_check
