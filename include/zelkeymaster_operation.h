// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The operation object: secure objects in an encrypted store, password conversion and attestation,
// on top of a keymaster 4.0 handle.
//
// Conventions
//  - Results are 0 or a negative code of zelkeymaster_result.h; any other keymaster error code is
//    passed through. A function's comment names the codes that it adds itself. A transport failure
//    of a keymaster call counts as -1000 unless a comment says otherwise.
//  - Lengths are in bytes. Buffers marked "malloc" are released with free().
//  - Files have fixed relative names and lie in the process's working directory: the store
//    "secure_objects.db", the database key's blob "edbk", its SHA-256 "edbk_digest", each with a
//    ".bak" of the version before and, while being written, a ".tmp"; and the rolling error file
//    "zelko_err.txt". The library never changes directory.
//  - Threads: none inside, and no locks. All objects of a process share one table, one callback
//    registration and the files, so the callers serialise all calls: on all objects, on all
//    SODOperationParam and to the engine. Only validateAttestChain() may run beside them, but
//    not beside a constructor. Keymaster calls are made on the caller's thread and answered before
//    the call returns.
//  - No exception leaves the object's methods; want of memory is -41. (SODOperationParam and
//    getTokensFromString() throw std::bad_alloc.)

#pragma once

#include <hardware/keymaster_defs.h>
#include <hidl/HidlSupport.h>
#include <keymasterV4_0/Keymaster.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "sod_operation_param.h"
#include "zelkeymaster_result.h"
#include "zelkeymaster_vendor_tags.h"

// The object through which the key-store side uses the library. Lives as long as the process in its
// usual setting: the destructor releases the cached store image, and leaves the key blob's buffer.
class ZELKM_EXPORT ZelKeymasterOperation {
  public:
    // Borrows `km` for the object's lifetime; null means that there is no keymaster. Sets the error
    // file up; every construction after the first makes each of its lines appear once more. With
    // `enableSecureDb`, reads the stored image into the cache: a missing or unreadable file leaves
    // it empty, without an error. The database key is not touched before the first query.
    ZelKeymasterOperation(android::hardware::keymaster::V4_0::support::Keymaster* km,
                          bool enableSecureDb);
    virtual ~ZelKeymasterOperation();

    ZelKeymasterOperation(const ZelKeymasterOperation&) = delete;
    ZelKeymasterOperation& operator=(const ZelKeymasterOperation&) = delete;

    // Makes a raw object usable: forgets handle, image and key (releasing nothing), keeps the
    // switch of the secure database, and sets the error file up as the constructor does.
    void initZelKeymasterOperation();

    // ---- Secure objects -------------------------------------------------------------------------
    // Each builds one command from `p` and runs it. Beside the codes named, each passes on what the
    // engine (see sdb_query()), queryInternal() and update_file() answer. -41: out of memory; lists
    // to append to are as before, and so is the store.

    // Stores one object: the write lists of `p`. Aliases need not be unique. A failed file write
    // leaves the cached image as it was, while the table in memory already holds the row.
    [[nodiscard]] int SodInsert(SODOperationParam& p);

    // Appends one string per matching object to `rows`, in store order: the values of the columns
    // to read back, each followed by 0x1E; and after them one string that holds a single NUL. -911:
    // no column to read back, or condition lists of different lengths.
    [[nodiscard]] int SodSelect(SODOperationParam& p, std::vector<std::string>& rows);

    // Appends "creator::alias" per matching object to `out`. Replaces the columns to read back of
    // `p`, for good, by CREATOR and ALIAS (with -41 perhaps by only the first or none of them).
    [[nodiscard]] int SodRetreiveAlias(SODOperationParam& p, std::vector<std::string>& out);

    // Appends the value of the one column to read back per matching object to `out`; objects whose
    // value is empty are left out, and with several columns nothing is appended.
    [[nodiscard]] int SodRetreiveOther(SODOperationParam& p, std::vector<std::string>& out);

    // Builds an update of the matching objects. The engine's parser refuses every UPDATE text, so
    // the answer is -911 in any case; delete and insert instead.
    [[nodiscard]] int SodUpdate(SODOperationParam& p);

    // Deletes the matching objects; without conditions, all of them. 0 also when none matched.
    [[nodiscard]] int SodDelete(SODOperationParam& p);

    // ---- Queries --------------------------------------------------------------------------------

    // Registers `ctx` and `cb` with the engine and runs `command`, on the table in memory when it
    // is current and else on `storedDb` (borrowed; null for none). `params` is ignored. `out`
    // receives the engine's buffer (malloc, the caller's) and must not be null; it holds {null, 0}
    // on failure. -918: the secure database is switched off. -38: `out` is null.
    [[nodiscard]] int queryInternal(const keymaster_key_param_set_t* params, void* ctx,
                                    int (*cb)(void*, unsigned int, unsigned char*, unsigned char*,
                                              unsigned int, unsigned char*, unsigned char*,
                                              unsigned char*, unsigned int),
                                    const keymaster_blob_t* storedDb,
                                    const keymaster_blob_t* command, keymaster_blob_t* out);

    // Encrypts (mode not 0) or decrypts (mode 0) `len` bytes with AES-256-GCM (NIST SP 800-38D)
    // under the database key, in one keymaster operation; loads or makes the key first. Encrypting
    // reads `plain` and fills `cipher` (may be the same buffer), `iv` (12) and `tag` (16);
    // decrypting reads `cipher`, `iv` and `tag` and fills `plain`.
    //   -38   a null pointer, or `len` or `aadLen` is 0
    //   -51   the keymaster returned no nonce for an encryption
    //   -30   the tag does not match; `plain` may hold unauthenticated bytes. The cached image is
    //         refreshed from the file or, when both are the same, the backup file is put back.
    //   -1000 no keymaster, `begin` not answered, or not all input consumed
    // A transport failure of update or finish is logged and does not change the result. The result
    // is then what the keymaster answered last, usually 0, and the output is not filled.
    [[nodiscard]] int DBEncrypt(unsigned int mode, unsigned char* plain, unsigned char* cipher,
                                unsigned int len, unsigned char* iv, unsigned char* tag,
                                unsigned char* aad, unsigned int aadLen);

    // ---- Database key ---------------------------------------------------------------------------

    // Makes a database key usable. 0: keeps a loaded key, else loads "edbk" (upgrading it when the
    // keymaster asks), else generates one. Not 0: discards the key and generates a fresh one, after
    // which the present store can no longer be decrypted. -1000: a key is needed and there is no
    // keymaster.
    [[nodiscard]] int init_db_key(int regenerate);

    // Generates an AES-256-GCM key, writes "edbk" and "edbk_digest" and caches the blob. An empty
    // blob from the keymaster is 0 without any of that. -32: no keymaster.
    [[nodiscard]] int generate_db_key();

    // Writes `blob` to "edbk" and its SHA-256 (FIPS 180-4) to "edbk_digest".
    [[nodiscard]] int updateDBKeyFile(android::hardware::hidl_vec<uint8_t>& blob);

    // Checks a blob (malloc) in the keymaster and caches it.
    //   0      cached; the object owns `blob`
    //   -62    the keymaster upgraded it: the new blob is cached and written; `blob` stays the
    //          caller's. An upgradeKey that itself answers -62 looks the same, but nothing is
    //          cached or written: init_db_key() then answers 0 without a key
    //   -32    `blob` is null, `len` is 0 or there is no keymaster; `blob` stays the caller's
    //   -1000  transport failure, or an empty upgraded blob; `blob` stays the caller's
    //   an upgradeKey or file error: `blob` stays the caller's
    //   a getKeyCharacteristics error: cached all the same, and the object owns `blob`
    // The object owns `blob` exactly when the cached key blob is this buffer.
    [[nodiscard]] int setLoadedDBKey(uint8_t* blob, uint32_t len);

    // After the keymaster refused the key: replaces a cached blob that differs from "edbk", and
    // generates a new key when the digest file shows that the blob is damaged. 0 whatever was done;
    // the failing load's result when a key file could not be loaded.
    [[nodiscard]] int restoreKeyBlob();

    // ---- Password hardware key ------------------------------------------------------------------

    // Converts key material under a password-bound key of the secure hardware, in one keymaster
    // `begin` with the purposes and tags of zelkeymaster_vendor_tags.h. `in1` to `in4` and
    // `material` must not be empty; their meaning is the hardware's business.
    //   PW_ENCRYPT_TYPE_TO_KEY: `material` is an encrypted key. Fills `converted` with the key and
    //       `tag` with its 16-byte tag.
    //   PW_ENCRYPT_TYPE_TO_ENCRYPTED_KEY: `material` is a key, and `tag` (not empty) its tag. Fills
    //       `converted` with the encrypted key.
    // `rot` receives the hardware's 16-byte value. It receives 16 zero bytes when the hardware
    // gives none, also when the hardware refuses. Outputs are replaced, and may keep a new value
    // after a failure. The object wipes the copies that it sends; the caller wipes inputs and
    // outputs.
    //   -32   no keymaster
    //   -38   an empty input
    //   -2    any other type
    //   -40   the tag (16 bytes) or the converted material is missing from the answer
    //   -41   out of memory
    // A keymaster without these purposes answers with an error code of its own.
    [[nodiscard]] int encryptWithPasswordHWKey(const android::hardware::hidl_vec<uint8_t>& in1,
                                               const android::hardware::hidl_vec<uint8_t>& in2,
                                               const android::hardware::hidl_vec<uint8_t>& material,
                                               android::hardware::hidl_vec<uint8_t>& converted,
                                               const android::hardware::hidl_vec<uint8_t>& in3,
                                               const android::hardware::hidl_vec<uint8_t>& in4,
                                               android::hardware::hidl_vec<uint8_t>& tag,
                                               android::hardware::hidl_vec<uint8_t>& rot,
                                               PW_ENCRYPT_TYPE type);

    // The same without the rot value.
    [[nodiscard]] int encryptWithPasswordHWKey(const android::hardware::hidl_vec<uint8_t>& in1,
                                               const android::hardware::hidl_vec<uint8_t>& in2,
                                               const android::hardware::hidl_vec<uint8_t>& material,
                                               android::hardware::hidl_vec<uint8_t>& converted,
                                               const android::hardware::hidl_vec<uint8_t>& in3,
                                               const android::hardware::hidl_vec<uint8_t>& in4,
                                               android::hardware::hidl_vec<uint8_t>& tag,
                                               PW_ENCRYPT_TYPE type);

    // ---- Attestation ----------------------------------------------------------------------------

    // Asks the keymaster for a certificate signing request (usually PKCS #10, RFC 2986; passed on
    // unread) for the key in `keyBlob`, through its attestation call. TAG_GENERATE_CSR is added to
    // a copy of `params` unless it is there, with whatever value. `csr` is replaced only when the
    // keymaster answers OK with exactly one blob: with OK and another number the result is 0 and
    // `csr` as before. -32: no keymaster. -41: out of memory.
    [[nodiscard]] int generateCSR(
        const android::hardware::hidl_vec<uint8_t>& keyBlob,
        const android::hardware::hidl_vec<android::hardware::keymaster::V4_0::KeyParameter>& params,
        android::hardware::hidl_vec<uint8_t>& csr);

    // Checks that a path (RFC 5280) leads from the first of some DER certificates, the leaf, to the
    // last of them. It is looked for among all that lie between: their order does not matter, and
    // neither do certificates that have nothing to do with the path. With `chainOnly` false element
    // 0 is not on the path: it must carry a signature made with the key of element 1, the path's
    // leaf, and nothing else about it is checked.
    //
    // 0 is NOT trust. The last certificate is taken as the anchor whoever made it, so any
    // self-consistent chain passes, an attacker's own included: compare the last element with the
    // roots that you trust. Certificates before or after their validity pass on purpose, and
    // revocation is not looked at. Bytes after a certificate within an element are ignored.
    //
    // -30 for every failure, fewer than three elements included; the log tells the cause. Uses no
    // keymaster. Leaves nothing of its own in the thread's error queue of libcrypto. A failure that
    // is logged with the queue prints and removes what was there before as well.
    [[nodiscard]] static int validateAttestChain(
        const android::hardware::hidl_vec<android::hardware::hidl_vec<uint8_t>>& chain,
        bool chainOnly);

    // ---- Files ----------------------------------------------------------------------------------

    // Reads a whole file into a new buffer (malloc, the caller's), after freeing *data. 0 also for
    // a missing, empty or unreadable file: *data is then null and *len 0. -32: a null argument.
    // -41: out of memory; *data is null, *len unchanged.
    [[nodiscard]] static int load_data(const char* path, uint8_t** data, uint32_t* len);

    // Replaces a file so that a crash at any point leaves a whole version, old or new, under the
    // file's name, its ".bak" or its ".tmp". With their suffix names are cut to 254 bytes; from 253
    // bytes on both companions get one name, nothing is promised, and the file can be lost. -32: a
    // null argument or length 0. -1000: a file call failed; the current file may then be missing,
    // and its content in ".bak".
    [[nodiscard]] static int update_file(const char* path, const uint8_t* data, uint32_t len);

    // Stores an image (malloc) and makes it the cached one. On 0 the object owns `data`; otherwise
    // the caller does.
    [[nodiscard]] int update_db_file(const uint8_t* data, uint32_t len);

    // Puts "secure_objects.db.bak" in place of the store file. The cache stays. -1000: there is no
    // backup, or a file call failed; the current file may be gone all the same.
    [[nodiscard]] static int restoreBackupDB();

  private:
    friend struct ZelKeymasterOperationPeer;  // tests look inside

    uint8_t* mDbData;  // cached image of the store file, malloc; null when none
    uint32_t mDbLen;
    uint8_t* mDbKeyBlob;  // cached key blob; see mDbKeyBlobLen
    size_t mDbKeyBlobLen;
    bool mSecureDbEnabled;
    android::hardware::keymaster::V4_0::support::Keymaster* mKeymaster;  // borrowed
};

// The store's encryption callback, for queryInternal(): forwards to DBEncrypt() of the
// ZelKeymasterOperation at `ctx`. -1000: `ctx` is null.
[[nodiscard]] ZELKM_EXPORT int DBEncryptCB(void* ctx, unsigned int mode, unsigned char* plain,
                                           unsigned char* cipher, unsigned int len,
                                           unsigned char* iv, unsigned char* tag,
                                           unsigned char* aad, unsigned int aadLen);
