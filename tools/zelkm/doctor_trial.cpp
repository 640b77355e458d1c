// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Trials of the library on a copy. See doctor_trial.h.

#include "doctor_trial.h"

#include <android/log.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "failure.h"
#include "files.h"
#include "store_file.h"

namespace zelkm_tool {
namespace {

class TemporaryDirectory {
  public:
    TemporaryDirectory()
        : path_((std::filesystem::temp_directory_path() / "zelkm-doctor-XXXXXX").string()) {
        if (::mkdtemp(path_.data()) == nullptr) {
            throw Refused(path_ + ": " + std::strerror(errno));
        }
    }
    ~TemporaryDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    const std::string& path() const { return path_; }

  private:
    std::string path_;
};

// In the child: works, sends the answer, and ends without a trace of its parent's streams.
[[noreturn]] void runTrial(const std::string& dir, const std::function<std::string()>& work,
                           int to) {
    bool sent = false;
    try {
        __android_log_set_minimum_priority(ANDROID_LOG_FATAL);  // a trial may well fail
        if (::chdir(dir.c_str()) == 0) {
            const std::string answer = work();
            size_t done = 0;
            ssize_t put = 0;
            while (done < answer.size() &&
                   (put = ::write(to, answer.data() + done, answer.size() - done)) > 0) {
                done += static_cast<size_t>(put);
            }
            sent = done == answer.size();
        }
    } catch (...) {
        sent = false;
    }
    ::_exit(sent ? 0 : 1);
}

std::string readToEnd(int from) {
    std::string answer;
    char buffer[4096];
    ssize_t got = 0;
    while ((got = ::read(from, buffer, sizeof(buffer))) > 0) {
        answer.append(buffer, static_cast<size_t>(got));
    }
    return answer;
}

}  // namespace

StoreTrials::StoreTrials(const SessionOptions& options)
    : options_(options), root_key_(readFileIfThere(options.dir + "/" + kRootKeyFile)) {}

std::string StoreTrials::inCopy(const StoreFiles& files,
                                const std::function<std::string()>& work) const {
    const TemporaryDirectory copy;
    for (const auto& [name, content] : files) {
        writeOutput(copy.path() + "/" + name, content, Access::kOwnerOnly);
    }
    if (root_key_) {
        writeOutput(copy.path() + "/" + kRootKeyFile, *root_key_, Access::kOwnerOnly);
    }
    int ends[2] = {};
    if (::pipe(ends) != 0) {
        throw Refused(std::string("trying the store: ") + std::strerror(errno));
    }
    const pid_t child = ::fork();
    if (child == 0) {
        ::close(ends[0]);
        runTrial(copy.path(), work, ends[1]);
    }
    ::close(ends[1]);
    std::string answer = readToEnd(ends[0]);
    ::close(ends[0]);
    int status = 0;
    if (child < 0 || ::waitpid(child, &status, 0) != child || !WIFEXITED(status) ||
        WEXITSTATUS(status) != 0) {
        throw Refused("trying the store on a copy did not work");
    }
    return answer;
}

StoreTrials::Decryption StoreTrials::decrypt(const std::string& store,
                                             const std::string& key) const {
    const std::string answer = inCopy({{kKeyFile, key}}, [&] {
        soft_keymaster::SoftKeymaster keymaster(keymasterOptions(options_));
        ZelKeymasterOperation operation(&keymaster, false);
        StoreHeader header = *parseStoreHeader(store);
        const std::string_view payload = storePayload(store, header);
        std::string plain(payload.size(), '\0');
        const auto bytes = [](auto& text) {
            return reinterpret_cast<unsigned char*>(const_cast<char*>(text.data()));
        };
        const int result = operation.DBEncrypt(
            0, bytes(plain), bytes(payload), static_cast<unsigned>(plain.size()), bytes(header.iv),
            bytes(header.tag), bytes(header.magic), static_cast<unsigned>(header.magic.size()));
        return std::to_string(result) + '\n' + (result == ZELKM_OK ? plain : "");
    });
    return {std::stoi(answer), answer.substr(answer.find('\n') + 1)};
}

int StoreTrials::open(const StoreFiles& files) const {
    return std::stoi(inCopy(files, [&] {
        soft_keymaster::SoftKeymaster keymaster(keymasterOptions(options_));
        ZelKeymasterOperation operation(&keymaster, true);
        SODOperationParam param;
        std::vector<std::string> rows;
        return std::to_string(operation.SodSelect(param.addAliasToOutput(), rows));
    }));
}

}  // namespace zelkm_tool
