// PROTECTS NOTHING: for development and tests only.
// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "soft_keymaster/store_keymaster.h"

#include <type_traits>
#include <vector>

namespace soft_keymaster {

using android::hardware::Status;
using android::hardware::Void;

namespace {

// A vector that lasts as long as `list` does. It is not written to.
template <typename List>
auto borrowed(const List& list) {
    using Element = std::decay_t<decltype(list[0])>;
    hidl_vec<Element> view;
    view.setToExternal(const_cast<Element*>(list.data()), list.size());
    return view;
}

}  // namespace

template <typename Callback, typename Give>
Return<void> StoreKeymaster::ask(const CallRecord& call, const Callback& cb, Give give) {
    if (!cb) {  // as the platform does
        return Status::fromExceptionCode(Status::EX_ILLEGAL_ARGUMENT, "no callback");
    }
    return handle(call, give);
}

Return<ErrorCode> StoreKeymaster::askForCode(const CallRecord& call) {
    ErrorCode code = ErrorCode::UNKNOWN_ERROR;
    const Return<void> status = handle(call, [&code](const Answer& a) { code = a.error; });
    return status.isOk() ? Return<ErrorCode>(code) : Return<ErrorCode>(transportFailure());
}

Return<void> StoreKeymaster::getHardwareInfo(getHardwareInfo_cb cb) {
    const VersionResult& version = halVersion();
    cb(version.securityLevel, version.keymasterName, version.authorName);
    return Void();
}

Return<void> StoreKeymaster::generateKey(const hidl_vec<KeyParameter>& key_params,
                                         generateKey_cb cb) {
    return ask({Call::kGenerateKey, {}, borrowed(key_params)}, cb,
               [&cb](const Answer& a) { cb(a.error, borrowed(a.output), a.characteristics); });
}

Return<void> StoreKeymaster::importKey(const hidl_vec<KeyParameter>& key_params, KeyFormat format,
                                       const hidl_vec<uint8_t>& key_data, importKey_cb cb) {
    return ask({Call::kImportKey, {}, borrowed(key_params), {}, 0, borrowed(key_data), format}, cb,
               [&cb](const Answer& a) { cb(a.error, borrowed(a.output), a.characteristics); });
}

Return<void> StoreKeymaster::getKeyCharacteristics(const hidl_vec<uint8_t>& key_blob,
                                                   const hidl_vec<uint8_t>& client_id,
                                                   const hidl_vec<uint8_t>& app_data,
                                                   getKeyCharacteristics_cb cb) {
    CallRecord call = {Call::kGetKeyCharacteristics, borrowed(key_blob)};
    call.client_id = borrowed(client_id);
    call.client_data = borrowed(app_data);
    return ask(call, cb, [&cb](const Answer& a) { cb(a.error, a.characteristics); });
}

Return<void> StoreKeymaster::exportKey(KeyFormat format, const hidl_vec<uint8_t>& key_blob,
                                       const hidl_vec<uint8_t>& client_id,
                                       const hidl_vec<uint8_t>& app_data, exportKey_cb cb) {
    CallRecord call = {Call::kExportKey, borrowed(key_blob)};
    call.format = format;
    call.client_id = borrowed(client_id);
    call.client_data = borrowed(app_data);
    return ask(call, cb, [&cb](const Answer& a) { cb(a.error, borrowed(a.output)); });
}

Return<void> StoreKeymaster::attestKey(const hidl_vec<uint8_t>& key_blob,
                                       const hidl_vec<KeyParameter>& attest_params,
                                       attestKey_cb cb) {
    return ask({Call::kAttestKey, borrowed(key_blob), borrowed(attest_params)}, cb,
               [&cb](const Answer& a) { cb(a.error, borrowed(a.chain)); });
}

Return<void> StoreKeymaster::upgradeKey(const hidl_vec<uint8_t>& key_blob,
                                        const hidl_vec<KeyParameter>& upgrade_params,
                                        upgradeKey_cb cb) {
    return ask({Call::kUpgradeKey, borrowed(key_blob), borrowed(upgrade_params)}, cb,
               [&cb](const Answer& a) { cb(a.error, borrowed(a.output)); });
}

Return<ErrorCode> StoreKeymaster::deleteKey(const hidl_vec<uint8_t>& key_blob) {
    return askForCode({Call::kDeleteKey, borrowed(key_blob)});
}

Return<void> StoreKeymaster::begin(KeyPurpose purpose, const hidl_vec<uint8_t>& key_blob,
                                   const hidl_vec<KeyParameter>& in_params,
                                   const HardwareAuthToken& auth_token, begin_cb cb) {
    CallRecord call = {Call::kBegin, borrowed(key_blob), borrowed(in_params), purpose};
    call.auth_token = auth_token;
    return ask(call, cb, [&cb](const Answer& a) { cb(a.error, borrowed(a.params), a.handle); });
}

Return<void> StoreKeymaster::update(uint64_t handle, const hidl_vec<KeyParameter>& in_params,
                                    const hidl_vec<uint8_t>& input,
                                    const HardwareAuthToken& auth_token,
                                    const VerificationToken& verification_token, update_cb cb) {
    CallRecord call = {Call::kUpdate, {}, borrowed(in_params), {}, handle, borrowed(input)};
    call.auth_token = auth_token;
    call.verification = verification_token;
    return ask(call, cb, [&cb](const Answer& a) {
        cb(a.error, a.consumed, borrowed(a.params), borrowed(a.output));
    });
}

Return<void> StoreKeymaster::finish(uint64_t handle, const hidl_vec<KeyParameter>& in_params,
                                    const hidl_vec<uint8_t>& input,
                                    const hidl_vec<uint8_t>& signature,
                                    const HardwareAuthToken& auth_token,
                                    const VerificationToken& verification_token, finish_cb cb) {
    CallRecord call = {Call::kFinish, {}, borrowed(in_params), {}, handle, borrowed(input)};
    call.signature = borrowed(signature);
    call.auth_token = auth_token;
    call.verification = verification_token;
    return ask(call, cb,
               [&cb](const Answer& a) { cb(a.error, borrowed(a.params), borrowed(a.output)); });
}

Return<ErrorCode> StoreKeymaster::abort(uint64_t handle) {
    return askForCode({Call::kAbort, {}, {}, {}, handle});
}

}  // namespace soft_keymaster
