// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "doctor_report.h"

#include <algorithm>
#include <ctime>
#include <nlohmann/json.hpp>
#include <ostream>

#include "store_names.h"
#include "store_values.h"

namespace zelkm_tool {
namespace {

using Json = nlohmann::ordered_json;  // of escaped texts: it holds UTF-8 only

constexpr size_t kShownMoments = 40;

std::string modeOf(const struct stat& status) {
    char text[16];
    std::snprintf(text, sizeof(text), "%04o", static_cast<unsigned>(status.st_mode & 07777));
    return text;
}

std::string timeOf(const struct stat& status) {
    std::tm parts = {};
    ::gmtime_r(&status.st_mtime, &parts);
    char text[32];
    std::strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%SZ", &parts);
    return text;
}

// What a file is, escaped: the words may quote it. Empty when there is nothing to say.
std::string about(const Report& report, const std::string& name) {
    const auto store = report.diagnosis.readings.find(name);
    if (store != report.diagnosis.readings.end()) {
        return escape(store->second.words);
    }
    const FileEvidence& file = report.evidence.files.at(name);
    const std::string key = keyOfDigest(report.evidence.storeFiles());
    return !file.problem.empty()                    ? "could not be read"
           : name == kKeyDigestFile && !key.empty() ? "is the digest of " + key
                                                    : escape(file.about);
}

const char* verdictName(Verdict verdict) {
    return verdict == Verdict::kHealthy ? "healthy"
           : verdict == Verdict::kWrong ? "something is wrong"
                                        : "not decided";
}

std::string changeText(const Change& change) {
    return (change.content ? "replace " : "remove ") + change.file + ": " + escape(change.why);
}

void printFinding(std::ostream& out, const Finding& finding) {
    const FindingKind& kind = finding.kind();
    out << describe(kind.severity) << ": " << kind.name << ": "
        << (finding.file.empty() ? "" : escape(finding.file) + ": ") << escape(finding.proof)
        << "\n  meaning: " << kind.meaning << "\n  to do: " << kind.advice << '\n';
}

void printTimeline(std::ostream& out, const std::vector<Moment>& timeline) {
    const size_t skipped = timeline.size() - std::min(timeline.size(), kShownMoments);
    if (!timeline.empty()) {
        out << "events in the error files:\n";
    }
    if (skipped != 0) {
        out << "  (" << skipped << " earlier events: see --json)\n";
    }
    for (size_t i = skipped; i < timeline.size(); ++i) {
        const Moment& moment = timeline[i];
        out << "  " << escape(moment.time) << "  " << moment.where << "  " << escape(moment.what)
            << '\n';
    }
}

Json changesJson(const std::vector<Change>& changes) {
    Json array = Json::array();
    for (const Change& change : changes) {
        array.push_back({{"file", change.file},
                         {"action", change.content ? "replace" : "remove"},
                         {"why", escape(change.why)}});
    }
    return array;
}

}  // namespace

Report examine(const Evidence& evidence, KeyTrials* trials) {
    const LogEvidence log = readErrorFiles(evidence);
    Report report = {evidence, diagnose(evidence, trials), log.timeline, {}, {}};
    std::vector<Finding>& findings = report.diagnosis.findings;
    findings.insert(findings.end(), log.findings.begin(), log.findings.end());
    std::stable_sort(findings.begin(), findings.end(), [](const Finding& a, const Finding& b) {
        return a.kind().severity < b.kind().severity;
    });
    return report;
}

std::string describe(const struct stat& status) {
    return (S_ISREG(status.st_mode) ? std::to_string(status.st_size) + " bytes" : kindOf(status)) +
           ", " + modeOf(status) + ", " + std::to_string(status.st_uid) + ":" +
           std::to_string(status.st_gid) + ", " + timeOf(status);
}

Json describeJson(const std::string& name, const struct stat& status) {
    return {{"name", escape(name)},      {"kind", kindOf(status)}, {"size", status.st_size},
            {"mode", modeOf(status)},    {"uid", status.st_uid},   {"gid", status.st_gid},
            {"modified", timeOf(status)}};
}

void printText(std::ostream& out, const Report& report, bool verdict_only) {
    if (verdict_only) {
        out << "verdict: " << verdictName(report.verdict()) << '\n';
        return;
    }
    for (const auto& [name, file] : report.evidence.files) {
        const std::string words = about(report, name);
        out << escape(name) << (words.empty() ? "" : " ") << words << " (" << describe(file.status)
            << ")\n";
    }
    printTimeline(out, report.timeline);
    for (const Finding& finding : report.diagnosis.findings) {
        printFinding(out, finding);
    }
    if (report.diagnosis.decrypted) {
        out << kStoreFile << " was decrypted with its key, and matches its header\n";
    }
    for (const Change& change : report.diagnosis.changes) {
        out << "--repair would " << changeText(change) << '\n';
    }
    for (const Change& change : report.repaired) {
        out << "done: " << changeText(change) << '\n';
    }
    if (!report.copies.empty()) {
        out << "copies of the changed files are in " << report.copies << '\n';
    }
    out << "verdict: " << verdictName(report.verdict()) << '\n';
}

void printJson(std::ostream& out, const Report& report) {
    Json json = {{"directory", escape(report.evidence.path)},
                 {"verdict", verdictName(report.verdict())},
                 {"status", static_cast<int>(report.verdict())},
                 {"decrypted", report.diagnosis.decrypted},
                 {"key_of_digest", keyOfDigest(report.evidence.storeFiles())}};
    json["files"] = Json::array();
    for (const auto& [name, file] : report.evidence.files) {
        json["files"].push_back(describeJson(name, file.status));
        json["files"].back()["about"] = about(report, name);
    }
    json["timeline"] = Json::array();
    for (const Moment& moment : report.timeline) {
        json["timeline"].push_back({{"time", escape(moment.time)},
                                    {"where", moment.where},
                                    {"what", escape(moment.what)}});
    }
    json["findings"] = Json::array();
    for (const Finding& finding : report.diagnosis.findings) {
        const FindingKind& kind = finding.kind();
        json["findings"].push_back({{"name", kind.name},
                                    {"severity", describe(kind.severity)},
                                    {"file", escape(finding.file)},
                                    {"proof", escape(finding.proof)},
                                    {"meaning", kind.meaning},
                                    {"to_do", kind.advice}});
    }
    json["repair"] = changesJson(report.diagnosis.changes);
    json["repaired"] = changesJson(report.repaired);
    json["copies"] = report.copies;
    out << json.dump(2) << '\n';
}

}  // namespace zelkm_tool
