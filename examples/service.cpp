// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The service of device/ on a host, over the software keymaster: several callers at once, and what
// goes wrong on devices. Each life of the process is a child of this one, because a service that
// fails ends, and a new process reads the files.

#include <soft_keymaster/fault_keymaster.h>
#include <soft_keymaster/soft_keymaster.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <thread>
#include <utility>

#include "device/store_service.h"

using soft_keymaster::Call;
using soft_keymaster::Fault;

namespace {

constexpr uint32_t kCaller = 10000;

// What one life of the service has.
struct Device {
    soft_keymaster::SoftKeymaster real{{"soft_keymaster_root.key"}};
    soft_keymaster::FaultKeymaster keymaster{real};
    std::string ended;  // why the process would have ended
    zeld::StoreService service{keymaster, [this](const char* why) { ended = why; }};

    bool starts() { return service.start() == ZELKM_OK; }
    std::vector<std::string> usable() {
        std::vector<std::string> names;
        return service.usable(kCaller, &names) == ZELKM_OK ? names
                                                           : std::vector<std::string>{"failed"};
    }
};

using Names = std::vector<std::string>;

std::string content(const char* file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

int g_failures = 0;

template <typename Life>
void live(const char* what, Life life) {
    std::fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
        Device device;
        _exit(life(device) ? 0 : 1);
    }
    int status = 0;
    const bool is_good = child > 0 && waitpid(child, &status, 0) == child && status == 0;
    g_failures += is_good ? 0 : 1;
    std::printf("%-6s  %s\n", is_good ? "good" : "FAILED", what);
}

// An update is one encryption, and one replacement of the file.
bool updatesAtOnce(Device& device) {
    const size_t before = device.keymaster.calls(Call::kBegin).size();
    return device.service.update(kCaller, "door", "1000") == ZELKM_OK &&
           device.keymaster.calls(Call::kBegin).size() == before + 1;
}

// A start that fails leaves all files as they are.
bool refuses(Device& device) {
    const auto files = [] {
        return Names{content("secure_objects.db"), content("secure_objects.db.bak"),
                     content("edbk")};
    };
    const Names before = files();
    return !device.starts() && !device.ended.empty() && files() == before;
}

}  // namespace

int main() {
    if (!content("edbk").empty()) {
        std::printf("run it in a new directory: there is a store in this one\n");
        return 1;
    }
    live("four callers at once", [](Device& device) {
        std::vector<std::thread> callers;
        std::vector<int> failures(4);
        if (!device.starts()) {
            return false;
        }
        for (uint32_t i = 0; i < failures.size(); ++i) {
            callers.emplace_back([&device, &failures, i] {
                const std::string uid = std::to_string(kCaller + i);
                for (const char* alias : {"door", "payment", "safe"}) {
                    failures[i] += device.service.insert(kCaller + i, alias, uid) != ZELKM_OK;
                }
            });
        }
        for (std::thread& caller : callers) {
            caller.join();
        }
        return failures == std::vector<int>(4) &&
               device.usable() == Names{"10000::door", "10000::payment", "10000::safe"};
    });
    live("a caller changes its own objects only", [](Device& device) {
        zeld::StoreService& service = device.service;
        return device.starts() && service.remove(kCaller, "safe") == ZELKM_OK &&
               service.remove(kCaller, "safe") == zeld::kNotFound &&
               service.insert(kCaller, "door", "1000") == zeld::kExists &&
               service.insert(kCaller, "*", "1000") == zeld::kBadValue &&
               service.update(kCaller + 9, "door", "1000") == zeld::kNotFound &&
               updatesAtOnce(device) && device.usable() == Names{"10000::payment"};
    });
    live("the keymaster dies", [](Device& device) {
        const bool starts = device.starts();
        device.keymaster.planEachCall(Fault::transportBeforeCallback());
        return starts && device.service.insert(kCaller, "lost", "10000") != ZELKM_OK &&
               !device.ended.empty() && device.usable() == Names{"failed"};
    });
    const std::pair<Call, Fault> losses[] = {{Call::kUpdate, Fault::transportBeforeCallback()},
                                             {Call::kFinish, Fault::transportBeforeCallback()},
                                             {Call::kFinish, Fault::noCallback()}};
    for (const auto& loss : losses) {
        live("an answer is lost, and plaintext is written", [&loss](Device& device) {
            const bool starts = device.starts();
            device.keymaster.plan(loss.first, 1, loss.second);
            return starts && device.service.update(kCaller, "payment", "1000") != ZELKM_OK &&
                   !device.ended.empty() &&
                   content("secure_objects.db").find("payment") == std::string::npos;
        });
    }
    live("none of these lost anything", [](Device& device) {
        return device.starts() && device.usable() == Names{"10000::payment"};
    });
    rename("secure_objects.db", "secure_objects.db.bak");
    rename("edbk", "edbk.bak");
    live("the power was cut between two renames", [](Device& device) {
        return device.starts() && device.usable() == Names{"10000::payment"} &&
               device.service.insert(kCaller, "safe", "10000") == ZELKM_OK;
    });
    live("the keymaster fails at the start", [](Device& device) {
        device.keymaster.plan(Call::kFinish, 1,
                              Fault::error(soft_keymaster::ErrorCode::VERIFICATION_FAILED));
        return refuses(device);
    });
    std::ofstream("edbk_digest") << std::string(32, 'x');
    live("the keymaster refuses the key once, and its digest is of another", [](Device& device) {
        device.keymaster.plan(Call::kGetKeyCharacteristics, 1,
                              Fault::error(soft_keymaster::ErrorCode::INVALID_KEY_BLOB));
        return refuses(device);
    });
    rename("secure_objects.db", "kept");
    mkdir("secure_objects.db", 0700);
    live("the store cannot be read",
         [](Device& device) { return !device.starts() && !device.ended.empty(); });
    rmdir("secure_objects.db");
    rename("kept", "secure_objects.db");
    rename("edbk", "kept");
    live("the key is missing", [](Device& device) { return refuses(device); });
    rename("kept", "edbk");
    const std::string whole = content("secure_objects.db");
    std::ofstream("secure_objects.db", std::ios::binary)
        << whole.substr(0, whole.size() - 1) << 'x';
    for (int i = 0; i < 2; ++i) {
        live("the store is damaged", [](Device& device) { return refuses(device); });
    }
    std::printf("%d failures\n", g_failures);
    return g_failures == 0 ? 0 : 1;
}
