// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The service's process on a device: its keymaster, and its transport. All else is in
// store_service.cpp, which also runs on a host.

#define LOG_TAG "zeld"

#include <android/hardware/keymaster/4.0/IKeymasterDevice.h>
#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <keymasterV4_0/Keymaster.h>
#include <log/log.h>
#include <unistd.h>
#include <vendor/zelkeymaster/BnObjectStore.h>

#include <memory>
#include <string>
#include <vector>

#include "store_service.h"

using android::sp;
using android::String16;
using android::binder::Status;
using android::hardware::Return;
using android::hardware::keymaster::V4_0::IKeymasterDevice;
using android::hardware::keymaster::V4_0::support::Keymaster;
using vendor::zelkeymaster::BnObjectStore;

namespace {

constexpr char kDirectory[] = "/data/vendor/zelkeymaster";
constexpr char kServiceName[] = "vendor.zelkeymaster.IObjectStore";
// "default" is the TEE's, "strongbox" the secure element's. Only the keymaster that has made the
// store's key can read the store, so this never changes on a device.
constexpr char kKeymasterName[] = "default";

// init starts the process again. Nothing is left to clean up, and other threads are still at work.
[[noreturn]] void end(const char* why) {
    ALOGE("ending: %s", why);
    _exit(1);
}

class EndsWithTheKeymaster : public android::hardware::hidl_death_recipient {
    // The handle is dead for good: every call would return -1000.
    void serviceDied(uint64_t /*cookie*/,
                     const android::wp<android::hidl::base::V1_0::IBase>& /*who*/) override {
        end("the keymaster has died");
    }
};

// Runs on binder's threads.
class ObjectStore : public BnObjectStore {
  public:
    explicit ObjectStore(zeld::StoreService& service) : service_(service) {}

    Status insert(const std::string& alias, const std::string& accessors,
                  int32_t* result) override {
        *result = service_.insert(caller(), alias, accessors);
        return Status::ok();
    }
    Status update(const std::string& alias, const std::string& accessors,
                  int32_t* result) override {
        *result = service_.update(caller(), alias, accessors);
        return Status::ok();
    }
    Status remove(const std::string& alias, int32_t* result) override {
        *result = service_.remove(caller(), alias);
        return Status::ok();
    }
    Status usable(std::vector<std::string>* names, int32_t* result) override {
        *result = service_.usable(caller(), names);
        return Status::ok();
    }

  private:
    static uint32_t caller() { return android::IPCThreadState::self()->getCallingUid(); }

    zeld::StoreService& service_;
};

static_assert(int{BnObjectStore::BAD_VALUE} == zeld::kBadValue &&
              int{BnObjectStore::EXISTS} == zeld::kExists &&
              int{BnObjectStore::NOT_FOUND} == zeld::kNotFound &&
              int{BnObjectStore::FULL} == zeld::kFull);

}  // namespace

int main() {
    // The driver for processes of the vendor. Before any other use of binder.
    android::ProcessState::initWithDriver("/dev/vndbinder");
    if (chdir(kDirectory) != 0) {
        end("no working directory");
    }

    // Waits until the keymaster is registered. The wrapper's own linkToDeath() does nothing and
    // returns true, so the link is on this handle.
    const sp<IKeymasterDevice> handle = IKeymasterDevice::getService(kKeymasterName);
    if (handle == nullptr) {
        end("the device declares no keymaster 4.x of this name");
    }
    const sp<EndsWithTheKeymaster> recipient = new EndsWithTheKeymaster;
    const Return<bool> is_linked = handle->linkToDeath(recipient, /*cookie=*/0);
    if (!is_linked.isOk() || !is_linked) {
        end("the keymaster has died");
    }
    const auto keymasters =
        Keymaster::enumerateAvailableDevices();  // owns what the service borrows
    Keymaster* keymaster = nullptr;
    for (const auto& offered : keymasters) {
        if (std::string(offered->instanceName()) == kKeymasterName &&
            offered->halVersion().majorVersion == 4) {
            keymaster = &*offered;
        }
    }
    if (keymaster == nullptr) {
        end("no keymaster 4.x of this name is listed");
    }

    zeld::StoreService service(*keymaster, end);
    if (service.start() != ZELKM_OK) {
        return 1;
    }
    if (android::defaultServiceManager()->addService(String16(kServiceName),
                                                     new ObjectStore(service)) != android::OK) {
        end("the service cannot be registered");
    }
    android::ProcessState::self()->startThreadPool();
    android::IPCThreadState::self()->joinThreadPool();
    return 1;
}
