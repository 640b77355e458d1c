// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// A service in front of the library: any number of callers, and one thread that works for them.
//
// The conventions in zelkeymaster_operation.h say which calls must be serialised. An object or a
// lock for each caller is not enough, because all objects of a process share their state. A mutex
// around every call would do. But when only one thread holds the object, nobody else can reach it,
// or construct another. A caller can also stop waiting for a keymaster that does not answer
// (std::future::wait_for); the call itself goes on.
//
// Run one such service only: two processes in one directory overwrite each other's files.

#include <keymasterV4_0/Keymaster.h>
#include <zelkeymaster_operation.h>

#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <deque>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using android::hardware::keymaster::V4_0::support::Keymaster;

class StoreService {
  public:
    // Borrows the keymaster. Construct one service, after the process has changed to the store's
    // directory.
    explicit StoreService(Keymaster& keymaster)
        : worker_([this, &keymaster] { work(keymaster); }) {}

    // Answers the queued calls, and then ends. All callers must be done before.
    ~StoreService() {
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            is_ending_ = true;
        }
        changed_.notify_one();
        worker_.join();
    }

    StoreService(const StoreService&) = delete;
    StoreService& operator=(const StoreService&) = delete;

    // These may be called on any thread. Each waits for its answer: 0, or a code of
    // zelkeymaster_result.h. Check the values before: the library escapes nothing
    // (docs/reliability.md).

    int add(std::string alias, std::string creator, std::string accessors) {
        return answerOf([&](ZelKeymasterOperation& object) {
            SODOperationParam param;
            param.setAlias(alias).setCreator(creator).setAccessor(accessors);
            return object.SodInsert(param);
        });
    }

    // Appends "creator::alias" of each object that `caller` may use.
    int usableBy(std::string caller, std::vector<std::string>& found) {
        return answerOf([&](ZelKeymasterOperation& object) {
            SODOperationParam param;
            param.addAccessorInWhere(caller);
            return object.SodRetreiveAlias(param, found);
        });
    }

  private:
    using Request = std::packaged_task<int(ZelKeymasterOperation&)>;

    // Each caller waits for its answer, so the queue never holds more calls than there are callers.
    template <typename Call>
    int answerOf(Call call) {
        Request request(std::move(call));
        std::future<int> answer = request.get_future();
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            queue_.push_back(std::move(request));
        }
        changed_.notify_one();
        return answer.get();
    }

    void work(Keymaster& keymaster) {
        // There is one object for the life of the process. A second one would read the store's file
        // again, and every line of the error file would appear twice.
        ZelKeymasterOperation object(&keymaster, /*enableSecureDb=*/true);
        std::unique_lock<std::mutex> lock(mutex_);
        for (;;) {
            changed_.wait(lock, [this] { return is_ending_ || !queue_.empty(); });
            if (queue_.empty()) {
                return;
            }
            Request request = std::move(queue_.front());
            queue_.pop_front();
            lock.unlock();  // callers may queue calls meanwhile
            request(object);
            lock.lock();
        }
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Request> queue_;  // used under the mutex, as is_ending_ is
    bool is_ending_ = false;
    std::thread worker_;  // the last member, because it uses the others
};

// Simulates some callers at once. A real service would have its binder threads here.
int main() {
    // The most secure keymaster of the device. On a host, the software keymaster is the only one.
    const Keymaster::KeymasterSet keymasters = Keymaster::enumerateAvailableDevices();
    if (keymasters.empty()) {
        std::fprintf(stderr, "no keymaster\n");
        return 1;
    }
    StoreService service(*keymasters.front());

    constexpr int kCallers = 4;
    constexpr int kKeysEach = 5;
    std::atomic<int> failures{0};
    std::vector<std::thread> callers;
    for (int caller = 0; caller < kCallers; ++caller) {
        callers.emplace_back([&service, &failures, caller] {
            const std::string uid = std::to_string(10000 + caller);
            for (int key = 0; key < kKeysEach; ++key) {
                if (service.add("key" + std::to_string(key), uid, uid) != ZELKM_OK) {
                    ++failures;
                }
            }
            std::vector<std::string> found;
            if (service.usableBy(uid, found) != ZELKM_OK || found.size() != kKeysEach) {
                ++failures;
            }
        });
    }
    for (std::thread& caller : callers) {
        caller.join();
    }
    std::printf("%d callers, %d keys each, %d failures\n", kCallers, kKeysEach, failures.load());
    return failures == 0 ? 0 : 1;
}
