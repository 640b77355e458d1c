// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "doctor_log.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>

#include "log_reader.h"
#include "session.h"
#include "store_values.h"

namespace zelkm_tool {
namespace {

constexpr int64_t kSecond = 1000000;
constexpr int64_t kZoneStep = 15 * 60 * kSecond;  // time zones differ by multiples of this
constexpr int64_t kLargestZone = 14 * 60 * 60 * kSecond;
constexpr int64_t kTolerance = 2 * kSecond;  // between a line's time and the time of its file

// A kind of event that says something about the directory.
struct Kind {
    const char* finding;
    bool is_loss;  // of objects, or of their secrecy
    const char* what;
    const char* lost;
    const char* needs;
};
constexpr Kind kStoreRefused = {
    "log-store-refused", true, "a store was refused",
    "the changes since the version that took its place; without a backup, all objects",
    "whether the present version opens: no key, no answer"};
constexpr Kind kKeyMadeAnew = {"log-key-made-anew", true,
                               "a new key was made while there was a store",
                               "every object of that store, unless its key is found",
                               "the key before: look for it in other copies of the directory"};
constexpr Kind kStoreMissing = {
    "log-store-missing", true, "the store was missing at a start, after it had been there",
    "every object that was stored before, unless it is in another copy of the directory",
    "whether anybody removed it on purpose"};
constexpr Kind kKeyRefused = {"log-key-refused", true, "the keymaster did not take the key",
                              "nothing yet, if the keymaster takes it again",
                              "whether the keymaster lost its root key, or the system was "
                              "downgraded"};
constexpr Kind kAnswerLost = {
    "log-answer-lost", true, "an answer of the keymaster was lost, which counts as success",
    "the secrecy of the objects of that moment, if the store was being encrypted: they were "
    "written as they are",
    "whether a later change encrypted the store again"};
constexpr Kind kWriteFailed = {"log-write-failed", false, "a file could not be written or renamed",
                               "the change that was being made", ""};
constexpr Kind kFull = {"log-disk-full", false, "the medium was full",
                        "the change that was being made", "where space can be made"};
constexpr Kind kBusy = {"log-too-many-operations", false,
                        "the keymaster had too many operations open", "nothing: the call failed",
                        ""};
constexpr Kind kUpgraded = {"log-key-upgraded", false, "the key was upgraded", "nothing", ""};

bool isOneOf(std::string_view id, std::initializer_list<std::string_view> ids) {
    return std::find(ids.begin(), ids.end(), id) != ids.end();
}

// Names what an event says about the directory; null when it says nothing. `last_missing` is the
// file that the log named last as missing. A first change finds the store missing, and then the
// key: that order is no loss.
const Kind* kindOfEvent(const LogEvent& event, const std::string& last_missing) {
    const std::string_view id = event.message->id;
    const std::string last = event.arguments.empty() ? "" : event.arguments.back();
    if (isOneOf(id, {"store-refused", "backup-restored", "no-backup"}) ||
        (id == "finish-refused" && last == "-30")) {
        return &kStoreRefused;
    }
    if (id == "key-regenerated" ||
        (id == "no-file" && last == kKeyFile && last_missing != kStoreFile)) {
        return &kKeyMadeAnew;
    }
    if (id == "no-file" && last == kStoreFile && last_missing == kKeyFile) {
        return &kStoreMissing;
    }
    if (id == "key-intact" || (id == "begin-refused" && last == "-33")) {
        return &kKeyRefused;
    }
    if (isOneOf(id, {"update-lost", "finish-lost"})) {
        return &kAnswerLost;
    }
    if (isOneOf(id, {"write-failed", "tmp-not-created", "current-not-removed", "new-not-in-place",
                     "digest-not-written"})) {
        return last == "28" ? &kFull : &kWriteFailed;
    }
    if (id == "begin-refused" && last == "-31") {
        return &kBusy;
    }
    return id == "upgraded-key-written" ? &kUpgraded : nullptr;
}

std::string inWords(int64_t micros) {
    const std::time_t seconds = static_cast<std::time_t>(micros / kSecond);
    std::tm parts = {};
    ::gmtime_r(&seconds, &parts);
    char text[32];
    std::strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S", &parts);
    return text;
}

class ErrorFiles {
  public:
    ErrorFiles(const Facts& facts, bool decrypted) : facts_(facts), decrypted_(decrypted) {
        std::vector<std::string_view> inputs;
        for (const char* name : kErrorFiles) {
            const auto found = facts.files.find(name);
            if (found != facts.files.end() && found->second.content) {
                names_.push_back(name);
                inputs.push_back(*found->second.content);
            }
        }
        log_ = readLog(inputs);
    }

    LogEvidence run() {
        if (names_.empty()) {
            return {};
        }
        findZone();
        sortByTime(&log_.events);
        for (const LogEvent& event : log_.events) {
            evidence_.timeline.push_back(
                {event.time.micros, event.time.text, whereIs(event.input, event.line),
                 event.text + (event.count > 1 ? " (x" + std::to_string(event.count) + ")" : "")});
            judge(event);
        }
        addFiles();
        std::string names;
        for (const std::string& name : names_) {
            names += (names.empty() ? "" : ", ") + name;
        }
        const size_t others = log_.unknown.count + log_.foreign.count;
        evidence_.checked.push_back(
            names + ": " + std::to_string(log_.events.size()) + " events" +
            (others == 0 ? "" : ", " + std::to_string(others) + " lines that are none"));
        if (others != 0) {
            const OtherLines& first = log_.unknown.count != 0 ? log_.unknown : log_.foreign;
            evidence_.findings.push_back(
                {"log-unknown-lines", Severity::kNote,
                 std::to_string(others) + " lines of the error files are not understood",
                 whereIs(first.input, first.line) + ": " + escape(first.text), "", ""});
        }
        return std::move(evidence_);
    }

  private:
    std::string whereIs(size_t input, size_t line) const {
        return names_.at(input) + ":" + std::to_string(line);
    }

    // Works out the log's time zone. The last line and its file were written at the same moment, so
    // their times differ by the zone alone.
    void findZone() {
        const auto last = std::find_if(
            log_.events.rbegin(), log_.events.rend(),
            [this](const LogEvent& event) { return event.input == names_.size() - 1; });
        if (last == log_.events.rend() || last->time.clock != Clock::kLocal) {
            return;
        }
        const int64_t difference = last->time.micros - timeOf(names_.back());
        const int64_t half = difference < 0 ? -kZoneStep / 2 : kZoneStep / 2;
        zone_ = (difference + half) / kZoneStep * kZoneStep;
        evidence_.times_kept =
            std::abs(difference - zone_) <= kTolerance && std::abs(zone_) <= kLargestZone;
        if (!*evidence_.times_kept) {
            evidence_.findings.push_back(
                {"times-of-a-copy", Severity::kNote,
                 "the times of the files are not their own, as in a copy made without -a: nothing "
                 "is concluded from them",
                 names_.back() + " is of " + inWords(timeOf(names_.back())) +
                     " UTC, and its last line of " + last->time.text,
                 "", ""});
        }
    }

    int64_t timeOf(const std::string& name) const {
        const struct timespec& time = facts_.files.at(name).status.st_mtim;
        return int64_t{time.tv_sec} * kSecond + time.tv_nsec / 1000;
    }

    void judge(const LogEvent& event) {
        const Kind* kind = kindOfEvent(event, last_missing_);
        if (std::string_view(event.message->id) == "no-file" && !event.arguments.empty()) {
            last_missing_ = event.arguments.back();
        }
        if (kind == nullptr) {
            return;
        }
        const std::string proof =
            whereIs(event.input, event.line) + ": " + event.time.text + " " + escape(event.text);
        for (Finding& known : evidence_.findings) {
            if (known.name == kind->finding) {
                known.proof = proof;  // the last event counts
                return;
            }
        }
        const bool is_past = decrypted_ || !kind->is_loss;
        evidence_.findings.push_back(
            {kind->finding, is_past ? Severity::kNote : Severity::kWrong,
             std::string("the error file says that ") + kind->what, proof, kind->lost,
             decrypted_ ? "nothing: the present store opens" : kind->needs});
    }

    void addFiles() {
        if (!evidence_.times_kept.value_or(false)) {
            return;
        }
        for (const auto& [name, file] : facts_.files) {
            if (file.content && std::find(names_.begin(), names_.end(), name) == names_.end()) {
                const int64_t time = timeOf(name) + zone_;
                evidence_.timeline.push_back({time, inWords(time), name, "was written"});
            }
        }
        std::stable_sort(evidence_.timeline.begin(), evidence_.timeline.end(),
                         [](const Moment& a, const Moment& b) { return a.micros < b.micros; });
    }

    const Facts& facts_;
    const bool decrypted_;
    std::vector<std::string> names_;
    Log log_;
    int64_t zone_ = 0;
    std::string last_missing_;
    LogEvidence evidence_;
};

}  // namespace

LogEvidence readErrorFiles(const Facts& facts, bool decrypted) {
    return ErrorFiles(facts, decrypted).run();
}

}  // namespace zelkm_tool
