// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "doctor_report.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <iterator>
#include <nlohmann/json.hpp>
#include <ostream>
#include <stdexcept>

#include "bytes.h"
#include "messages.h"
#include "store_names.h"

namespace zelkm_tool {
namespace {

using Json = nlohmann::ordered_json;  // of escaped texts: it holds UTF-8 only

constexpr const char* kSeverities[] = {"wrong", "not checked", "note"};
constexpr size_t kShownMoments = 40;

std::vector<FindingKind> readKinds() {
    std::vector<FindingKind> kinds;
    for (const PageRow& row :
         tableRows(kDoctorPage, "| name | severity | meaning | what to do |")) {
        const auto* const severity =
            std::find(std::begin(kSeverities), std::end(kSeverities), row.cells[1]);
        if (severity == std::end(kSeverities)) {
            throw std::logic_error("no severity " + row.cells[1]);
        }
        kinds.push_back({withoutBackticks(row.cells[0]),
                         static_cast<Severity>(severity - std::begin(kSeverities)), row.cells[2],
                         row.cells[3]});
    }
    return kinds;
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

Json toJson(const std::vector<Change>& changes) {
    Json array = Json::array();
    for (const Change& change : changes) {
        array.push_back({{"file", change.file},
                         {"action", change.content ? "replace" : "remove"},
                         {"why", escape(change.why)}});
    }
    return array;
}

Json toJson(const Report& report) {
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
                                    {"severity", kSeverities[static_cast<size_t>(kind.severity)]},
                                    {"file", escape(finding.file)},
                                    {"proof", escape(finding.proof)},
                                    {"meaning", kind.meaning},
                                    {"to_do", kind.advice}});
    }
    json["repair"] = toJson(report.diagnosis.changes);
    json["repaired"] = toJson(report.repaired);
    json["copies"] = report.copies;
    return json;
}

}  // namespace

const FindingKind& Finding::kind() const {
    static const std::vector<FindingKind> kinds = readKinds();
    const auto found = std::find_if(kinds.begin(), kinds.end(),
                                    [this](const FindingKind& kind) { return kind.name == name; });
    if (found == kinds.end()) {
        throw std::logic_error("no finding " + name);
    }
    return *found;
}

Verdict Report::verdict() const {
    const auto has = [this](Severity severity) {
        return std::any_of(
            diagnosis.findings.begin(), diagnosis.findings.end(),
            [severity](const Finding& finding) { return finding.kind().severity == severity; });
    };
    return has(Severity::kWrong)        ? Verdict::kWrong
           : has(Severity::kNotChecked) ? Verdict::kNotDecided
                                        : Verdict::kHealthy;
}

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

Json describeJson(const std::string& name, const struct stat& status) {
    char mode[16];
    std::snprintf(mode, sizeof(mode), "%04o", static_cast<unsigned>(status.st_mode & 07777));
    std::tm parts = {};
    ::gmtime_r(&status.st_mtime, &parts);
    char time[32];
    std::strftime(time, sizeof(time), "%Y-%m-%dT%H:%M:%SZ", &parts);
    return {{"name", escape(name)}, {"kind", kindOf(status)}, {"size", status.st_size},
            {"mode", mode},         {"uid", status.st_uid},   {"gid", status.st_gid},
            {"modified", time}};
}

std::string textOf(const Json& json, const char* name) {
    return json.at(name);
}

std::string describe(const Json& file) {
    const std::string kind = textOf(file, "kind");
    return (kind == "a regular file" ? file["size"].dump() + " bytes" : kind) + ", " +
           textOf(file, "mode") + ", " + file["uid"].dump() + ":" + file["gid"].dump() + ", " +
           textOf(file, "modified");
}

void printText(std::ostream& out, const Report& report, bool verdict_only) {
    const std::string verdict = std::string("verdict: ") + verdictName(report.verdict()) + '\n';
    if (verdict_only) {
        out << verdict;
        return;
    }
    const Json json = toJson(report);
    for (const Json& file : json["files"]) {
        const std::string about = textOf(file, "about");
        out << textOf(file, "name") << (about.empty() ? "" : " ") << about << " (" << describe(file)
            << ")\n";
    }
    const Json& timeline = json["timeline"];
    const size_t skipped = timeline.size() - std::min(timeline.size(), kShownMoments);
    out << (timeline.empty() ? "" : "events in the error files:\n");
    if (skipped != 0) {
        out << "  (" << skipped << " earlier events: see --json)\n";
    }
    for (size_t i = skipped; i < timeline.size(); ++i) {
        out << "  " << textOf(timeline[i], "time") << "  " << textOf(timeline[i], "where") << "  "
            << textOf(timeline[i], "what") << '\n';
    }
    for (const Json& finding : json["findings"]) {
        const std::string file = textOf(finding, "file");
        out << textOf(finding, "severity") << ": " << textOf(finding, "name") << ": "
            << (file.empty() ? "" : file + ": ") << textOf(finding, "proof")
            << "\n  meaning: " << textOf(finding, "meaning")
            << "\n  to do: " << textOf(finding, "to_do") << '\n';
    }
    if (report.diagnosis.decrypted) {
        out << kStoreFile << " was decrypted with its key, and matches its header\n";
    }
    for (const auto& [name, words] :
         {std::pair("repair", "--repair would "), std::pair("repaired", "done: ")}) {
        for (const Json& change : json[name]) {
            out << words << textOf(change, "action") << ' ' << textOf(change, "file") << ": "
                << textOf(change, "why") << '\n';
        }
    }
    if (!report.copies.empty()) {
        out << "copies of the changed files are in " << report.copies << '\n';
    }
    out << verdict;
}

void printJson(std::ostream& out, const Report& report) {
    out << toJson(report).dump(2) << '\n';
}

}  // namespace zelkm_tool
