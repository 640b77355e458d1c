// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "keymaster_check/report.h"

#include <algorithm>
#include <cstdio>

namespace keymaster_check {
namespace {

using android::hardware::hidl_string;
using android::hardware::keymaster::V4_0::SecurityLevel;

constexpr Verdict kVerdicts[] = {Verdict::kHolds, Verdict::kBroken, Verdict::kNotOffered,
                                 Verdict::kNotTried, Verdict::kLeftOut};

size_t countOf(const std::vector<Finding>& findings, Verdict verdict) {
    return static_cast<size_t>(
        std::count_if(findings.begin(), findings.end(),
                      [verdict](const Finding& finding) { return finding.verdict == verdict; }));
}

std::string padded(std::string text, size_t width) {
    text.resize(std::max(text.size(), width), ' ');
    return text;
}

std::string quoted(const std::string& text) {
    std::string result = "\"";
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            result += '\\';
            result += c;
        } else if (byte < 0x20 || byte >= 0x7F) {
            char escape[8];
            std::snprintf(escape, sizeof(escape), "\\u%04x", static_cast<unsigned>(byte));
            result += escape;
        } else {
            result += c;
        }
    }
    return result + '"';
}

std::string member(const char* name, const std::string& value) {
    return quoted(name) + ": " + value;
}

}  // namespace

const char* verdictName(Verdict verdict) {
    static constexpr const char* kNames[] = {"holds", "broken", "not offered", "not tried",
                                             "left out"};
    return kNames[static_cast<size_t>(verdict)];
}

int exitStatus(const std::vector<Finding>& findings) {
    return countOf(findings, Verdict::kBroken) != 0     ? 1
           : countOf(findings, Verdict::kNotTried) != 0 ? 3
                                                        : 0;
}

std::string describe(Handle& keymaster) {
    // The callback shares the text, because it may come late.
    const auto said = std::make_shared<std::string>();
    const android::hardware::Return<void> status = keymaster.getHardwareInfo(
        [said](SecurityLevel level, const hidl_string& name, const hidl_string& author) {
            *said = std::string(name.c_str()) + ", " + author.c_str() + ", security level " +
                    std::to_string(static_cast<uint32_t>(level));
        });
    if (!status.isOk() || said->empty()) {
        return "a keymaster that does not identify itself";
    }
    return *said;
}

std::string inText(const Finding& finding) {
    constexpr size_t kVerdictWidth = 13;
    constexpr size_t kIdWidth = 23;
    const std::string indent(kVerdictWidth, ' ');
    const std::string verdict = padded(verdictName(finding.verdict), kVerdictWidth);
    std::string said = finding.verdict == Verdict::kHolds ? "" : finding.answered;
    if (!finding.note.empty()) {
        said += (said.empty() ? "" : "; ") + finding.note;
    }
    if (finding.verdict == Verdict::kBroken) {
        return verdict + finding.id + "\n" + indent + "sent:     " + finding.sent + "\n" + indent +
               "answered: " + said + "\n" + indent + "so:       " + finding.consequence + "\n";
    }
    return verdict + (said.empty() ? finding.id : padded(finding.id, kIdWidth) + said) + "\n";
}

std::string summary(const std::vector<Finding>& findings) {
    std::string text = std::to_string(findings.size()) + " requirements:";
    for (const Verdict verdict : kVerdicts) {
        text += std::string(verdict == kVerdicts[0] ? " " : ", ") + verdictName(verdict) + " " +
                std::to_string(countOf(findings, verdict));
    }
    return text + "\n";
}

std::string inJson(const std::string& keymaster, const std::vector<Finding>& findings) {
    std::string text = "{\n  " + member("keymaster", quoted(keymaster));
    for (const Verdict verdict : kVerdicts) {
        std::string name = verdictName(verdict);
        std::replace(name.begin(), name.end(), ' ', '_');
        text += ",\n  " + member(name.c_str(), std::to_string(countOf(findings, verdict)));
    }
    text += ",\n  \"findings\": [";
    for (const Finding& finding : findings) {
        text += std::string(&finding == &findings.front() ? "" : ",") + "\n    {" +
                member("id", quoted(finding.id)) + ",\n     " +
                member("verdict", quoted(verdictName(finding.verdict))) + ",\n     " +
                member("sent", quoted(finding.sent)) + ",\n     " +
                member("answered", quoted(finding.answered)) + ",\n     " +
                member("consequence", quoted(finding.consequence)) + ",\n     " +
                member("note", quoted(finding.note)) + "}";
    }
    return text + "\n  ]\n}\n";
}

}  // namespace keymaster_check
