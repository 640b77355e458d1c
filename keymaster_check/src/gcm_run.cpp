// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Encrypts and decrypts with the calls that the library makes.

#include <openssl/rand.h>

#include <algorithm>

#include "checks.h"
#include "db_store_format.h"

namespace keymaster_check {
namespace {

Run runOperation(Caller& caller, KeyPurpose purpose, const Bytes& key, const Params& params,
                 const Bytes& input, const Bytes& associated_data, size_t cut) {
    Run run;
    run.purpose = purpose;
    run.last = caller.make({Call::kBegin, key, params, purpose});
    if (!run.last.ok()) {
        return run;
    }
    const uint64_t handle = run.last.handle;
    run.nonce = bytesOf(run.last.params, Tag::NONCE);
    run.failed = Call::kUpdate;
    Params first;
    if (!associated_data.empty()) {
        first = {param(Tag::ASSOCIATED_DATA, associated_data)};
    }
    size_t consumed = 0;
    do {
        run.offered = std::min(cut, input.size() - consumed);
        const uint8_t* const offered = input.data() + consumed;
        run.last = caller.make(
            {Call::kUpdate, {}, first, {}, handle, Bytes(offered, offered + run.offered)});
        if (!run.last.ok() || run.last.consumed == 0 || run.last.consumed > run.offered) {
            return run;
        }
        first = Params();
        consumed += run.last.consumed;
        run.from_updates.insert(run.from_updates.end(), run.last.output.begin(),
                                run.last.output.end());
    } while (consumed < input.size());
    run.last = caller.make({Call::kFinish, {}, {}, {}, handle});
    run.from_finish = run.last.output;
    run.failed = run.last.ok() ? std::nullopt : std::optional<Call>(Call::kFinish);
    return run;
}

}  // namespace

Bytes Run::all() const {
    Bytes result = from_updates;
    result.insert(result.end(), from_finish.begin(), from_finish.end());
    return result;
}

bool Run::bringsBack(size_t size) const {
    const Bytes payload = samplePayload(size);
    const Bytes output = all();
    return done() && output.size() >= payload.size() &&
           std::equal(payload.begin(), payload.end(), output.begin());
}

std::string Run::failure() const {
    const std::string call = failed ? callName(*failed) : "finish";
    if (!last.arrived) {
        return call + ": " + last.failure;
    }
    return last.error != ErrorCode::OK ? call + " returned " + describeCode(last.error)
                                       : call + " consumed " + std::to_string(last.consumed) +
                                             " of " + std::to_string(offered) + " bytes";
}

std::string Run::consequence() const {
    // These answers are lost to the library, which continues with the one before.
    const bool lost =
        (failed == Call::kUpdate && !last.transport) || (failed == Call::kFinish && !last.arrived);
    const std::string code = describeCode(
        last.arrived && last.error != ErrorCode::OK ? last.error : ErrorCode::UNKNOWN_ERROR);
    if (purpose == KeyPurpose::DECRYPT) {
        return "insertions return 0, but the next start cannot read the store" +
               (lost ? "" : ": " + code);
    }
    return lost ? "insertions return 0 and leave the store on the disk as plaintext, marked as "
                  "encrypted; the next start refuses it"
                : "insertions are refused with " + code + "; the store stays as it was";
}

Run encrypt(Caller& caller, const Bytes& key, size_t size, size_t cut) {
    return runOperation(caller, KeyPurpose::ENCRYPT, key, gcmParams(), samplePayload(size),
                        sampleAssociatedData(), cut);
}

Run decrypt(Caller& caller, const Bytes& key, const Bytes& nonce, const Bytes& input,
            const Bytes& associated_data, size_t cut) {
    std::vector<KeyParameter> params = gcmParams();
    params.push_back(param(Tag::NONCE, nonce));
    return runOperation(caller, KeyPurpose::DECRYPT, key, params, input, associated_data, cut);
}

Answer beginAndAbort(Caller& caller, const Bytes& key) {
    const Answer begun = caller.make({Call::kBegin, key, gcmParams(), KeyPurpose::ENCRYPT});
    if (begun.ok()) {
        caller.abort(begun.handle);
    }
    return begun;
}

Bytes drawNonce(Caller& caller, const Bytes& key) {
    caller.startCase();
    return bytesOf(beginAndAbort(caller, key).params, Tag::NONCE);
}

Bytes samplePayload(size_t size) {
    Bytes payload(size);
    uint32_t state = 1;
    for (uint8_t& byte : payload) {
        state = state * 1664525 + 1013904223;  // a linear congruential generator
        byte = static_cast<uint8_t>(state >> 24);
    }
    return payload;
}

Bytes randomBytes(size_t size) {
    Bytes bytes(size);
    // On a failure the bytes are zeros. That will do: they only tell answers apart.
    static_cast<void>(RAND_bytes(bytes.data(), static_cast<int>(size)));
    return bytes;
}

Bytes sampleAssociatedData() {
    return Bytes(zelkm::kMagic, zelkm::kMagic + SDB_AAD_LEN);
}

Bytes altered(Bytes bytes, size_t at) {
    if (at < bytes.size()) {
        bytes[at] = static_cast<uint8_t>(bytes[at] ^ 1);
    }
    return bytes;
}

}  // namespace keymaster_check
