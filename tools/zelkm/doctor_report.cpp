// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "doctor_report.h"

#include <algorithm>
#include <ctime>
#include <iterator>
#include <nlohmann/json.hpp>
#include <ostream>

#include "session.h"
#include "store_values.h"

namespace zelkm_tool {
namespace {

using Json = nlohmann::ordered_json;

constexpr size_t kShownMoments = 40;

const char* inWords(Severity severity) {
    switch (severity) {
        case Severity::kWrong:
            return "wrong";
        case Severity::kUnchecked:
            return "not checked";
        default:
            return "note";
    }
}

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

std::string wordsFor(const Report& report, const std::string& name) {
    const auto store = report.diagnosis.readings.find(name);
    if (store != report.diagnosis.readings.end()) {
        return store->second.words;
    }
    if (!report.facts.files.at(name).problem.empty()) {
        return "could not be read";
    }
    const std::string key = keyOfDigest(report.facts.storeFiles());
    if (name == kKeyDigestFile && !key.empty()) {
        return "is the digest of " + key;
    }
    return "";
}

std::string inWords(const Change& change) {
    return change.file + (change.content ? " from " : " goes: ") + change.why;
}

void printFinding(std::ostream& out, const Finding& finding) {
    const auto line = [&out](const char* title, const std::string& text) {
        if (!text.empty()) {
            out << "  " << title << ": " << text << '\n';
        }
    };
    out << inWords(finding.severity) << ": " << finding.name << ": " << escape(finding.what)
        << '\n';
    line("proof", escape(finding.proof));
    line("lost", finding.lost);
    line(finding.changes.empty() ? "to know first" : "advice", finding.needs);
    for (const Change& change : finding.changes) {
        line("advice", inWords(change));
    }
}

void printTimeline(std::ostream& out, const std::vector<Moment>& timeline) {
    const size_t skipped = timeline.size() - std::min(timeline.size(), kShownMoments);
    if (!timeline.empty()) {
        out << "what happened, in the log's local time:\n";
    }
    if (skipped != 0) {
        out << "  (" << skipped << " earlier ones: see --json)\n";
    }
    for (size_t i = skipped; i < timeline.size(); ++i) {
        const Moment& moment = timeline[i];
        out << "  " << escape(moment.time) << "  " << moment.where << "  " << escape(moment.what)
            << '\n';
    }
}

// JSON holds UTF-8 only, and a name or a content may be any bytes: those that are no UTF-8 are
// escaped.
std::string utf8(const std::string& text) {
    return escape(text);
}

Json changesJson(const std::vector<Change>& changes) {
    Json array = Json::array();
    for (const Change& change : changes) {
        array.push_back({{"file", change.file},
                         {"action", change.content ? "replace" : "remove"},
                         {"from", change.source},
                         {"why", change.why}});
    }
    return array;
}

}  // namespace

const char* verdictInWords(Verdict verdict) {
    switch (verdict) {
        case Verdict::kHealthy:
            return "healthy";
        case Verdict::kWrong:
            return "something is wrong";
        default:
            return "not decided";
    }
}

Report examine(const Facts& facts, const Decrypt& decrypt, const KeyStatus& key_status) {
    const StoreFiles files = facts.storeFiles();
    Report report = {facts, {}, {}, {}, {}, {}, {}, {}};
    if (const std::string unread = facts.unread(); unread.empty()) {
        report.diagnosis = diagnose(files, decrypt, key_status);
    } else {
        report.diagnosis.findings = {{"not-compared", Severity::kUnchecked,
                                      "the store, the key and the digest were not compared",
                                      unread + " was not read", "",
                                      "what " + unread +
                                          " holds: first put right what keeps it "
                                          "from being read"}};
    }
    report.log = readErrorFiles(facts, report.diagnosis.decrypted);
    for (const Findings& some : {report.diagnosis.findings, report.log.findings,
                                 lookAround(facts, report.log.times_kept)}) {
        report.findings.insert(report.findings.end(), some.begin(), some.end());
    }
    std::stable_sort(report.findings.begin(), report.findings.end(),
                     [](const Finding& a, const Finding& b) { return a.severity < b.severity; });
    report.changes = changesOf(report.findings);
    report.commands = shellCommands(files, report.changes);
    return report;
}

std::string describe(const struct stat& status) {
    return (S_ISREG(status.st_mode) ? std::to_string(status.st_size) + " bytes" : kindOf(status)) +
           ", " + modeOf(status) + ", " + std::to_string(status.st_uid) + ":" +
           std::to_string(status.st_gid) + ", " + timeOf(status);
}

Json describeJson(const std::string& name, const struct stat& status) {
    return {{"name", utf8(name)},        {"kind", kindOf(status)}, {"size", status.st_size},
            {"mode", modeOf(status)},    {"uid", status.st_uid},   {"gid", status.st_gid},
            {"modified", timeOf(status)}};
}

void printText(std::ostream& out, const Report& report) {
    for (const auto& [name, file] : report.facts.files) {
        const std::string words = wordsFor(report, name);
        out << escape(name) << (words.empty() ? "" : " ") << words << " (" << describe(file.status)
            << ")\n";
    }
    printTimeline(out, report.log.timeline);
    for (const Finding& finding : report.findings) {
        printFinding(out, finding);
    }
    for (const auto* list : {&report.diagnosis.checked, &report.log.checked}) {
        for (const std::string& what : *list) {
            out << "checked: " << what << '\n';
        }
    }
    if (report.diagnosis.decrypted) {
        out << "checked: " << kStoreFile << " was decrypted with its key, and fits its header\n";
    }
    if (!report.commands.empty()) {
        out << "to do with --repair, or by hand in the directory, after the service was stopped:\n";
        for (const std::string& command : report.commands) {
            out << "  " << command << '\n';
        }
    }
    for (const Change& change : report.repaired) {
        out << "repaired: " << inWords(change) << '\n';
    }
    if (!report.copies.empty()) {
        out << "copies of what was touched are in " << report.copies << '\n';
    }
    out << "verdict: " << verdictInWords(report.verdict()) << '\n';
}

void printJson(std::ostream& out, const Report& report) {
    Json json = {{"directory", utf8(report.facts.path)},
                 {"verdict", verdictInWords(report.verdict())},
                 {"status", static_cast<int>(report.verdict())},
                 {"decrypted", report.diagnosis.decrypted},
                 {"key_of_digest", keyOfDigest(report.facts.storeFiles())}};
    json["times_kept"] = report.log.times_kept ? Json(*report.log.times_kept) : Json();
    json["files"] = Json::array();
    for (const auto& [name, file] : report.facts.files) {
        json["files"].push_back(describeJson(name, file.status));
        json["files"].back()["about"] = wordsFor(report, name);
    }
    json["timeline"] = Json::array();
    for (const Moment& moment : report.log.timeline) {
        json["timeline"].push_back(
            {{"time", utf8(moment.time)}, {"where", moment.where}, {"what", utf8(moment.what)}});
    }
    json["findings"] = Json::array();
    for (const Finding& finding : report.findings) {
        json["findings"].push_back({{"name", finding.name},
                                    {"severity", inWords(finding.severity)},
                                    {"what", utf8(finding.what)},
                                    {"proof", utf8(finding.proof)},
                                    {"lost", finding.lost},
                                    {"needs", finding.needs},
                                    {"changes", changesJson(finding.changes)}});
    }
    std::vector<std::string> checked = report.diagnosis.checked;
    checked.insert(checked.end(), report.log.checked.begin(), report.log.checked.end());
    json["checked"] = checked;
    json["commands"] = report.commands;
    json["repaired"] = changesJson(report.repaired);
    json["copies"] = report.copies;
    out << json.dump(2) << '\n';
}

}  // namespace zelkm_tool
