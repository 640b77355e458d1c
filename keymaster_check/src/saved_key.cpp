// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The second phase: a key that is written down, and tried again later.

#include <cstdlib>
#include <sstream>

#include "checks.h"

namespace keymaster_check {
namespace {

constexpr char kHead[] = "zelkeymaster_check 1 ";
constexpr size_t kNonces = 64;
constexpr ErrorCode kRequiresUpgrade = ErrorCode::KEY_REQUIRES_UPGRADE;

std::string line(const Bytes& bytes) {
    return hex(bytes.data(), bytes.size()) + "\n";
}

Bytes bytesOfLine(const std::string& line) {
    Bytes bytes;
    for (size_t at = 0; at + 2 <= line.size(); at += 2) {
        bytes.push_back(
            static_cast<uint8_t>(std::strtoul(line.substr(at, 2).c_str(), nullptr, 16)));
    }
    return bytes;
}

}  // namespace

std::string saveKey(Keymaster& keymaster, std::string* failure, const Options& options) {
    Caller caller(keymaster, options);
    const Answer made = caller.make({Call::kGenerateKey, {}, databaseKeyParams()});
    const Run run = made.ok() ? encrypt(caller, made.output, kPayload) : Run();
    std::string text = kHead + std::string(keymaster.instanceName().c_str()) + "\n" +
                       line(made.output) + line(run.nonce) + line(run.all());
    bool good = run.done() && !run.nonce.empty();
    for (size_t i = 0; i < kNonces && good; ++i) {
        const Bytes nonce = drawNonce(caller, made.output);
        text += line(nonce);
        good = !nonce.empty();
    }
    if (!good) {
        *failure = caller.missed().empty() ? caller.answered() : caller.missed();
        return "";
    }
    caller.disown(made.output);
    return text;
}

std::string savedBy(const std::string& saved) {
    const size_t head = sizeof(kHead) - 1;
    return saved.compare(0, head, kHead) == 0 ? saved.substr(head, saved.find('\n') - head) : "";
}

SavedKey readSavedKey(const std::string& text) {
    std::istringstream file(text);
    std::string line;
    std::getline(file, line);
    std::vector<Bytes> lines;
    while (std::getline(file, line)) {
        lines.push_back(bytesOfLine(line));
    }
    if (savedBy(text).empty() || lines.size() != kNonces + 3) {
        return {};
    }
    SavedKey saved = {lines[0], lines[1], lines[2], {lines.begin() + 3, lines.end()}};
    saved.nonces.insert(saved.nonce);
    return saved;
}

Finding checkLaterKey(Context& context) {
    Bytes key = context.saved.key;
    if (key.empty()) {
        return notTried("no key was saved");
    }
    Answer listed = context.make({Call::kGetKeyCharacteristics, key});
    const bool upgrade = listed.error == kRequiresUpgrade;
    if (upgrade) {
        const Answer upgraded = context.make({Call::kUpgradeKey, key});
        if (!upgraded.ok() || upgraded.output.empty()) {
            return broken(context, "the upgrade that is asked for fails",
                          "every query is refused, as long as upgradeKey does not work");
        }
        key = upgraded.output;
        listed = context.make({Call::kGetKeyCharacteristics, key});
    }
    if (listed.error == kRequiresUpgrade) {
        return broken(
            context, "the upgraded key requires an upgrade again",
            "each start upgrades the key and replaces its file; if begin refuses it, too, "
            "the store is not read");
    }
    if (!listed.ok()) {
        return broken(context, upgrade ? "the upgraded key is refused" : "the key is refused",
                      "every query is refused with " + describeCode(listed.error) +
                          ", and the store is lost unless the key is accepted again");
    }
    const Run run = decrypt(context, key, context.saved.nonce, context.saved.output);
    if (!run.bringsBack(kPayload)) {
        return broken(context, "it does not open what was encrypted with it",
                      run.last.error == kRequiresUpgrade
                          ? "every query is refused with -62: the library upgrades a key only "
                            "when getKeyCharacteristics asks for it"
                          : "the store is refused, and lost after three starts");
    }
    context.key = key;
    return holds(context.sent(), upgrade ? "the key was upgraded, and opens what it should"
                                         : "the key needs no upgrade, and opens what it should");
}

Finding checkLaterNonces(Context& context) {
    if (context.key.empty()) {
        return notTried("there is no key to draw nonces with: see later.key");
    }
    for (size_t i = 0; i < kNonces; ++i) {
        const Bytes nonce = drawNonce(context, context.key);
        if (nonce.empty()) {
            return notTried("an encryption brought no nonce: " + context.answered());
        }
        if (!context.saved.nonces.insert(nonce).second) {
            return broken(context, "this nonce was used before");
        }
    }
    return holds(std::to_string(kNonces) + " encryptions begun", "no earlier nonce was used again");
}

}  // namespace keymaster_check
