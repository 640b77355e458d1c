// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The operation object: secure objects in an encrypted store, password conversion and attestation,
// on top of a keymaster 4.0 handle.
//
// Conventions
//  - Results are 0 or a negative code of zelkeymaster_result.h. A function's comment names the
//    codes that the function adds itself; it also passes on the keymaster's codes. A transport
//    failure of a keymaster call is -1000 unless a comment says otherwise.
//  - Lengths are in bytes. Buffers marked "malloc" are released with free().
//  - Files have fixed relative names, in the process's working directory: the store
//    "secure_objects.db", the database key's blob "edbk" and its SHA-256 "edbk_digest". Each has a
//    ".bak" of the previous version and, while it is written, a ".tmp". The rolling error file is
//    "zelko_err.txt". The library never changes directory.
//  - Threads: the library starts none, and has no locks. All objects of a process share one table,
//    one callback registration and the files. So the callers serialise all calls: those on all
//    objects, those on all SODOperationParam and those to the engine. Only validateAttestChain()
//    may run at the same time, but not beside a constructor. Keymaster calls are made on the
//    caller's thread, and complete before the call returns.
//  - No exception leaves the object's methods: without memory they return -41. SODOperationParam
//    and getTokensFromString() throw std::bad_alloc.

#pragma once

#include <memory>  // before the handle's header, which on Android 9 does not include it

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

// The library's file holds it, too: strings libzelkeymaster.so | grep '^libzelkeymaster '.
#define ZELKEYMASTER_VERSION "1.0.0"

// The object through which the key-store side uses the library. It is made to live as long as the
// process: the destructor frees the cached store image, but not the key blob.
class ZELKM_EXPORT ZelKeymasterOperation {
  public:
    // Borrows `km` for the object's lifetime: when the keymaster behind it dies, end the process
    // (docs/keymaster.md). Null means that there is no keymaster. Sets the error file up: each
    // construction after the first makes every line appear once more. With `enableSecureDb`, reads
    // the store file into the cache. A missing or unreadable file leaves the cache empty, without
    // an error. The database key is not touched before the first query.
    ZelKeymasterOperation(android::hardware::keymaster::V4_0::support::Keymaster* km,
                          bool enableSecureDb);
    virtual ~ZelKeymasterOperation();

    ZelKeymasterOperation(const ZelKeymasterOperation&) = delete;
    ZelKeymasterOperation& operator=(const ZelKeymasterOperation&) = delete;

    // Makes a raw object usable. Forgets the keymaster handle, the image and the key, and frees
    // nothing. Keeps `enableSecureDb`. Sets the error file up as the constructor does.
    void initZelKeymasterOperation();

    // ---- Secure objects -------------------------------------------------------------------------
    // Each function builds one command from `p` and runs it. It passes on the codes of sdb_query(),
    // queryInternal() and update_file(). With -41 the store and the list to append to are as
    // before. A select without memory for its text returns 0 all the same; SodSelect() then appends
    // one empty string, and the others nothing.

    // Stores one object: the write lists of `p`. Aliases need not be unique. After a failed file
    // write the cached image is as before, but the table in memory already has the new row.
    [[nodiscard]] int SodInsert(SODOperationParam& p);

    // Appends one string for each matching object to `rows`, in store order: the values of the
    // columns to read back, each followed by 0x1E. Then appends one string that holds a single NUL.
    // -911: there is no column to read back, or the condition lists differ in length.
    [[nodiscard]] int SodSelect(SODOperationParam& p, std::vector<std::string>& rows);

    // Appends "creator::alias" of each matching object to `out`. Replaces the columns to read back
    // of `p` by CREATOR and ALIAS, and does not restore them. With -41 perhaps only the first of
    // them is there, or none.
    [[nodiscard]] int SodRetreiveAlias(SODOperationParam& p, std::vector<std::string>& out);

    // Appends a value of each matching object to `out`: that of the one column to read back.
    // Objects whose value is empty are left out. With several columns nothing is appended. -911 as
    // for SodSelect().
    [[nodiscard]] int SodRetreiveOther(SODOperationParam& p, std::vector<std::string>& out);

    // Builds an update of the matching objects. It never succeeds: the engine refuses every UPDATE
    // text with -911, if nothing else fails before. Delete and insert instead.
    [[nodiscard]] int SodUpdate(SODOperationParam& p);

    // Deletes the matching objects. Without conditions it deletes all objects. 0 also when none
    // matched.
    [[nodiscard]] int SodDelete(SODOperationParam& p);

    // ---- Queries --------------------------------------------------------------------------------

    // Registers `ctx` and `cb` with the engine, and runs `command`. The command works on the table
    // in memory when that is current, and otherwise on `storedDb` (borrowed; null for none).
    // `params` is ignored. `out` receives the engine's buffer (malloc, the caller's), and {null, 0}
    // on failure.
    //   -918  the secure database is switched off; `out` is not touched
    //   -38   `out` is null
    [[nodiscard]] int queryInternal(const keymaster_key_param_set_t* params, void* ctx,
                                    int (*cb)(void*, unsigned int, unsigned char*, unsigned char*,
                                              unsigned int, unsigned char*, unsigned char*,
                                              unsigned char*, unsigned int),
                                    const keymaster_blob_t* storedDb,
                                    const keymaster_blob_t* command, keymaster_blob_t* out);

    // Encrypts (mode not 0) or decrypts (mode 0) `len` bytes with AES-256-GCM (NIST SP 800-38D)
    // with the database key, in one keymaster operation. Loads or makes the key first. Encrypting
    // reads `plain` and fills `cipher` (which may be the same buffer), `iv` (12 bytes) and `tag`
    // (16 bytes). Decrypting reads `cipher`, `iv` and `tag`, and fills `plain`.
    //   -38   a null pointer, or `len` or `aadLen` is 0
    //   -51   the keymaster returned no nonce for an encryption
    //   -30   the tag does not match; `plain` may hold unauthenticated bytes. The file's content
    //         replaces the cached image; when both are the same, the backup replaces the file
    //   -41   out of memory
    //   -1000 no keymaster, no reply to `begin`, or not all input consumed
    // A transport failure is logged, and does not change the result. The result is then what the
    // keymaster returned last, usually 0, and the output is not filled.
    [[nodiscard]] int DBEncrypt(unsigned int mode, unsigned char* plain, unsigned char* cipher,
                                unsigned int len, unsigned char* iv, unsigned char* tag,
                                unsigned char* aad, unsigned int aadLen);

    // ---- Database key ---------------------------------------------------------------------------

    // Makes a database key usable. With 0 it keeps a loaded key, or else loads "edbk", or else
    // generates a key; the keymaster upgrades an old "edbk". With another value it discards the key
    // and generates a new one: the present store can then no longer be decrypted. Without a
    // keymaster: -32 when there is an "edbk" to load, and otherwise -1000.
    [[nodiscard]] int init_db_key(int regenerate);

    // Generates an AES-256-GCM key, writes "edbk" and "edbk_digest", and caches the blob. When the
    // keymaster returns an empty blob, the result is 0 and nothing is done. -32: no keymaster. -41:
    // out of memory.
    [[nodiscard]] int generate_db_key();

    // Writes `blob` to "edbk" and its SHA-256 (FIPS 180-4) to "edbk_digest". 0 also when no SHA-256
    // can be made: "edbk_digest" then stays as it was.
    [[nodiscard]] int updateDBKeyFile(android::hardware::hidl_vec<uint8_t>& blob);

    // Checks a blob (malloc) with the keymaster, and caches it.
    //   0      cached; the object owns `blob`
    //   -62    the keymaster upgraded it: the new blob is cached and written, and `blob` stays the
    //          caller's. When upgradeKey itself returns -62, nothing is cached or written, and
    //          init_db_key() returns 0 without a key
    //   -32    `blob` is null, `len` is 0 or there is no keymaster; `blob` stays the caller's
    //   -41    no memory for the upgraded blob; `blob` stays the caller's
    //   -1000  transport failure, or an empty upgraded blob; `blob` stays the caller's
    //   an upgradeKey or file error: `blob` stays the caller's
    //   a getKeyCharacteristics error: the blob is cached all the same, and the object owns it
    // In any case the object owns `blob` exactly when its cached key blob is this buffer.
    [[nodiscard]] int setLoadedDBKey(uint8_t* blob, uint32_t len);

    // Repairs after the keymaster refused the key. Replaces a cached blob that differs from "edbk".
    // Generates a new key when the digest file shows that the blob is damaged. Returns 0 whatever
    // it did. -41: a key file could not be loaded.
    [[nodiscard]] int restoreKeyBlob();

    // ---- Password hardware key ------------------------------------------------------------------

    // Converts key material with a password-bound key of the secure hardware, in one keymaster
    // `begin` with the purposes and tags of zelkeymaster_vendor_tags.h. `in1` to `in4` and
    // `material` must not be empty. The hardware alone knows their meaning.
    //   PW_ENCRYPT_TYPE_TO_KEY: `material` is an encrypted key. Fills `converted` with the key and
    //       `tag` with its 16-byte tag.
    //   PW_ENCRYPT_TYPE_TO_ENCRYPTED_KEY: `material` is a key, and `tag` (not empty) its tag. Fills
    //       `converted` with the encrypted key.
    // `rot` receives the hardware's 16-byte value. When the hardware gives none, or refuses, it
    // receives 16 zero bytes. Outputs are replaced, and may have a new value even after a failure.
    // The object wipes the copies that it sends. The caller wipes inputs and outputs.
    //   -32   no keymaster
    //   -38   an empty input
    //   -2    any other type
    //   -40   the tag (16 bytes) or the converted material is missing from the reply
    //   -41   out of memory
    // A keymaster without these purposes returns an error code of its own.
    [[nodiscard]] int encryptWithPasswordHWKey(const android::hardware::hidl_vec<uint8_t>& in1,
                                               const android::hardware::hidl_vec<uint8_t>& in2,
                                               const android::hardware::hidl_vec<uint8_t>& material,
                                               android::hardware::hidl_vec<uint8_t>& converted,
                                               const android::hardware::hidl_vec<uint8_t>& in3,
                                               const android::hardware::hidl_vec<uint8_t>& in4,
                                               android::hardware::hidl_vec<uint8_t>& tag,
                                               android::hardware::hidl_vec<uint8_t>& rot,
                                               PW_ENCRYPT_TYPE type);

    // The same function without the `rot` output.
    [[nodiscard]] int encryptWithPasswordHWKey(const android::hardware::hidl_vec<uint8_t>& in1,
                                               const android::hardware::hidl_vec<uint8_t>& in2,
                                               const android::hardware::hidl_vec<uint8_t>& material,
                                               android::hardware::hidl_vec<uint8_t>& converted,
                                               const android::hardware::hidl_vec<uint8_t>& in3,
                                               const android::hardware::hidl_vec<uint8_t>& in4,
                                               android::hardware::hidl_vec<uint8_t>& tag,
                                               PW_ENCRYPT_TYPE type);

    // ---- Attestation ----------------------------------------------------------------------------

    // Asks the keymaster for a certificate signing request for the key in `keyBlob`, through its
    // attestation call. The request is usually PKCS #10 (RFC 2986), and is passed on unread. Adds
    // TAG_GENERATE_CSR to a copy of `params`, unless that tag is there with any value. `csr` is
    // replaced only when the keymaster returns OK with exactly one blob. When it returns OK with
    // another number, the result is 0 and `csr` is as before.
    //   -32   no keymaster
    //   -41   out of memory
    [[nodiscard]] int generateCSR(
        const android::hardware::hidl_vec<uint8_t>& keyBlob,
        const android::hardware::hidl_vec<android::hardware::keymaster::V4_0::KeyParameter>& params,
        android::hardware::hidl_vec<uint8_t>& csr);

    // Checks that a path (RFC 5280) leads from the first of some DER certificates, the leaf, to the
    // last of them. The path may use all certificates in between, in any order; those that do not
    // belong to it do no harm. With `chainOnly` false element 0 is not on the path, and element 1
    // is the path's leaf. Element 0 must then carry a signature made with the leaf's key. Nothing
    // else about it is checked.
    //
    // 0 is NOT trust. The last certificate is the anchor, whoever made it. So any self-consistent
    // chain passes, even an attacker's own: compare the last element with the roots that you trust.
    // Certificates before or after their validity pass on purpose, and revocation is not checked.
    // Bytes after a certificate in an element are ignored.
    //
    // -30 for every failure, and for fewer than three elements; the log tells the cause. Uses no
    // keymaster. Leaves nothing of its own in the thread's error queue of libcrypto. When a failure
    // is logged with that queue, earlier entries are printed and removed as well.
    [[nodiscard]] static int validateAttestChain(
        const android::hardware::hidl_vec<android::hardware::hidl_vec<uint8_t>>& chain,
        bool chainOnly);

    // ---- Files ----------------------------------------------------------------------------------

    // Frees *data, and reads a whole file into a new buffer (malloc, the caller's). A missing,
    // empty or unreadable file is 0, with *data null and *len 0. -32: a null argument. -41: out of
    // memory; *data is then null and *len unchanged.
    [[nodiscard]] static int load_data(const char* path, uint8_t** data, uint32_t* len);

    // Replaces a file. After a crash at any point a whole version, old or new, lies under the
    // file's name, its ".bak" or its ".tmp". With their suffix names are cut to 254 bytes. From 253
    // bytes on both companions get one name: nothing is promised, and the file can be lost.
    //   -32    a null argument, or length 0
    //   -1000  a file call failed. The current file may then be missing: its content is in ".bak",
    //          or the new content is in ".tmp"
    [[nodiscard]] static int update_file(const char* path, const uint8_t* data, uint32_t len);

    // Replaces the store file by an image (malloc), and caches the image. On 0 the object owns
    // `data`; otherwise the caller does. Codes as for update_file().
    [[nodiscard]] int update_db_file(const uint8_t* data, uint32_t len);

    // Puts "secure_objects.db.bak" in place of the store file. The cached image stays. -1000: there
    // is no backup, or a file call failed. Even then the current file may be gone.
    [[nodiscard]] static int restoreBackupDB();

  private:
    class Store;                              // the one way to the cached image and its file
    friend struct ZelKeymasterOperationPeer;  // tests look inside

    uint8_t* mDbData;  // cached image of the store file, malloc; null when none
    uint32_t mDbLen;
    uint8_t* mDbKeyBlob;  // cached key blob; see mDbKeyBlobLen
    size_t mDbKeyBlobLen;
    bool mSecureDbEnabled;
    android::hardware::keymaster::V4_0::support::Keymaster* mKeymaster;  // borrowed
};

// The store's encryption callback, for queryInternal(). Calls DBEncrypt() of the
// ZelKeymasterOperation at `ctx`. -1000: `ctx` is null.
[[nodiscard]] ZELKM_EXPORT int DBEncryptCB(void* ctx, unsigned int mode, unsigned char* plain,
                                           unsigned char* cipher, unsigned int len,
                                           unsigned char* iv, unsigned char* tag,
                                           unsigned char* aad, unsigned int aadLen);
