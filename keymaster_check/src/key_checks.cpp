// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Checks of the database key: the keymaster makes one, accepts it, and refuses a damaged one.

#include "checks.h"
#include "gcm_run.h"

namespace keymaster_check {
namespace {

constexpr int kInvalidKeyBlob = -33;

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
    if (blob.size() > 1) {
        const auto half = static_cast<Bytes::difference_type>(blob.size() / 2);
        damages.push_back({"without its last byte", Bytes(blob.begin(), blob.end() - 1)});
        damages.push_back({"without its second half", Bytes(blob.begin(), blob.begin() + half)});
    }
    return damages;
}

bool lists(const Params& characteristics, const KeyParameter& param) {
    for (const KeyParameter& entry : characteristics) {
        if (entry.tag == param.tag && entry.f.integer == param.f.integer) {
            return true;
        }
    }
    return false;
}

}  // namespace

Outcome checkKeyGenerate(Context& context) {
    const Answer answer = context.caller.generateKey(databaseKeyParams());
    if (!answer.ok()) {
        return broken(context, "there is no key");
    }
    if (answer.bytes.empty()) {
        return broken(context, "the key's blob is empty");
    }
    context.key = answer.bytes;
    return holds(context.caller.sent(), context.caller.answered());
}

Outcome checkKeyCharacteristics(Context& context) {
    if (context.key.empty()) {
        return notTried("there is no key: see key.generate");
    }
    const Answer answer = context.caller.getKeyCharacteristics(context.key);
    if (!answer.ok()) {
        return broken(context, "a fresh key is refused");
    }
    const KeyCharacteristics& listed = answer.characteristics;
    for (const KeyParameter& param : databaseKeyParams()) {
        if (!lists(listed.softwareEnforced, param) && !lists(listed.hardwareEnforced, param)) {
            return broken(context, "missing among " + inWords(listed.softwareEnforced) + " and " +
                                       inWords(listed.hardwareEnforced) + ": " +
                                       inWords(Params{param}));
        }
    }
    return holds(context.caller.sent(), "0, and all that the key was made with");
}

Outcome checkKeyDamagedBlob(Context& context) {
    if (context.key.empty()) {
        return notTried("there is no key: see key.generate");
    }
    const std::vector<Damage> damages = damagesOf(context.key);
    for (const Damage& damage : damages) {
        context.caller.startCase();
        if (context.caller.getKeyCharacteristics(damage.blob).error != kInvalidKeyBlob ||
            context.caller.begin(KeyPurpose::ENCRYPT, damage.blob, gcmParams()).error !=
                kInvalidKeyBlob) {
            return broken(context, "the blob " + damage.what + " is not refused with -33");
        }
    }
    return holds(
        "getKeyCharacteristics and begin with " + std::to_string(damages.size()) + " damaged blobs",
        "-33 to each");
}

}  // namespace keymaster_check
