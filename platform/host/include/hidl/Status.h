// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Host stand-in for the platform's transport status, and for the result type of HIDL calls. As on a
// device, a failed result that nobody looked at ends the process.

#pragma once

#include <hidl/HidlSupport.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <string>
#include <utility>

namespace android {

using status_t = int32_t;

enum : status_t { DEAD_OBJECT = -EPIPE };

namespace hardware {

namespace details {
class return_status;
}

// The status of the transport: no error, an exception, or a failed transaction with its status_t.
class Status final {
  public:
    enum Exception : int32_t {
        EX_NONE = 0,
        EX_SECURITY = -1,
        EX_BAD_PARCELABLE = -2,
        EX_ILLEGAL_ARGUMENT = -3,
        EX_NULL_POINTER = -4,
        EX_ILLEGAL_STATE = -5,
        EX_UNSUPPORTED_OPERATION = -7,
        EX_TRANSACTION_FAILED = -129,
    };

    static Status ok() { return Status(EX_NONE, 0, ""); }
    static Status fromExceptionCode(int32_t code) { return fromExceptionCode(code, ""); }
    static Status fromExceptionCode(int32_t code, const char* message) {
        return Status(code, code == EX_TRANSACTION_FAILED ? kFailedTransaction : 0, message);
    }
    static Status fromStatusT(status_t status) {
        return Status(status == 0 ? EX_NONE : EX_TRANSACTION_FAILED, status, "");
    }

    bool isOk() const { return mException == EX_NONE; }
    int32_t exceptionCode() const { return mException; }
    const char* exceptionMessage() const { return mMessage.c_str(); }

    std::string description() const {
        if (isOk()) {
            return "No error";
        }
        std::string text = "Status(" + exceptionName() + "): '";
        if (mException == EX_TRANSACTION_FAILED) {
            text += statusName() + ": ";
        }
        return text + mMessage + "'";
    }

  private:
    friend class details::return_status;

    // The status_t of a failed transaction that has no more exact one.
    static constexpr status_t kFailedTransaction = INT32_MIN + 2;

    Status(int32_t exception, status_t errorCode, const char* message)
        : mException(exception), mErrorCode(errorCode), mMessage(message) {}

    std::string exceptionName() const {
        switch (mException) {
            case EX_SECURITY:
                return "EX_SECURITY";
            case EX_BAD_PARCELABLE:
                return "EX_BAD_PARCELABLE";
            case EX_ILLEGAL_ARGUMENT:
                return "EX_ILLEGAL_ARGUMENT";
            case EX_NULL_POINTER:
                return "EX_NULL_POINTER";
            case EX_ILLEGAL_STATE:
                return "EX_ILLEGAL_STATE";
            case EX_UNSUPPORTED_OPERATION:
                return "EX_UNSUPPORTED_OPERATION";
            case EX_TRANSACTION_FAILED:
                return "EX_TRANSACTION_FAILED";
            default:
                return std::to_string(mException);
        }
    }

    std::string statusName() const {
        switch (mErrorCode) {
            case DEAD_OBJECT:
                return "DEAD_OBJECT";
            case kFailedTransaction:
                return "FAILED_TRANSACTION";
            default:
                return std::to_string(mErrorCode);
        }
    }

    int32_t mException;
    status_t mErrorCode;
    std::string mMessage;
};

namespace details {

// The status part of a call's result. It can only be moved. A moved-from status counts as looked
// at.
class return_status {
  public:
    return_status() : return_status(Status::ok()) {}
    return_status(const Status& status) : mStatus(status) {}
    return_status(const return_status&) = delete;
    return_status(return_status&& other) noexcept
        : mStatus(std::move(other.mStatus)),
          mCheckedStatus(std::exchange(other.mCheckedStatus, true)) {}
    ~return_status() { assertChecked(); }

    return_status& operator=(const return_status&) = delete;
    return_status& operator=(return_status&& other) noexcept {
        if (this != &other) {
            assertChecked();
            mStatus = std::move(other.mStatus);
            mCheckedStatus = std::exchange(other.mCheckedStatus, true);
        }
        return *this;
    }

    // These two mark the status as looked at.
    bool isOk() const {
        mCheckedStatus = true;
        return mStatus.isOk();
    }
    bool isDeadObject() const {
        mCheckedStatus = true;
        return mStatus.mErrorCode == DEAD_OBJECT;
    }
    // This one does not.
    std::string description() const { return mStatus.description(); }

  protected:
    void assertOk() const {
        if (!isOk()) {
            const std::string text =
                "Attempted to retrieve value from failed HIDL call: " + description();
            logAlwaysFatal(text.c_str());
        }
    }

  private:
    void assertChecked() const {
        if (!mCheckedStatus && !mStatus.isOk()) {
            const std::string text = "Failed HIDL return status not checked: " + description();
            logAlwaysFatal(text.c_str());
        }
    }

    Status mStatus;
    mutable bool mCheckedStatus = false;
};

}  // namespace details

template <typename T>
class Return : public details::return_status {
  public:
    Return(T value) : mValue(std::move(value)) {}
    Return(const Status& status) : return_status(status), mValue() {}

    // Fatal when the call failed.
    operator T() const {
        assertOk();
        return mValue;
    }

  private:
    T mValue;
};

template <>
class Return<void> : public details::return_status {
  public:
    Return() = default;
    Return(const Status& status) : return_status(status) {}
};

static inline Return<void> Void() {
    return Return<void>();
}

}  // namespace hardware
}  // namespace android
