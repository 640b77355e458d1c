// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// A software keymaster as if it ran in another process: its allocations never fail. The callbacks
// run in the library's process, where allocations may fail.

#pragma once

#include <keymaster_check/names.h>
#include <soft_keymaster/soft_keymaster.h>

#include <string_view>

#include "failing_memory.h"

namespace test {

class RemoteKeymaster : public soft_keymaster::SoftKeymaster {
  public:
    using SoftKeymaster::SoftKeymaster;

    std::string_view lost;  // the name of the call that does not reach the keymaster; may be empty

    android::hardware::Return<void> handle(const keymaster_check::CallRecord& call,
                                           const Reply& reply) override {
        const AllocationsWork there;
        if (callName(call.call) == lost) {
            return soft_keymaster::transportFailure();
        }
        return SoftKeymaster::handle(call, [&reply](const keymaster_check::Answer& answer) {
            const AllocationsFail again;
            reply(answer);
        });
    }
};

}  // namespace test
