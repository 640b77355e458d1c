// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "messages.h"

namespace zelkm_tool {
namespace {

constexpr Level D = Level::kDebug;
constexpr Level W = Level::kWarning;
constexpr Level E = Level::kError;
constexpr Source kObject = Source::kObject;
constexpr Source kEngine = Source::kEngine;
constexpr Detail kNone = Detail::kNone;
constexpr Detail kResult = Detail::kResult;
constexpr Detail kSystemError = Detail::kSystemError;
constexpr Detail kText = Detail::kText;

constexpr char kNothing[] = "Nothing.";
constexpr char kCheckService[] = "Check that the keymaster service runs, and try again.";
constexpr char kCheckPermissions[] = "Check the directory's owner, mode and file system.";
constexpr char kRestart[] = "Free memory and restart the process.";
constexpr char kGiveHandle[] = "Construct the object with a keymaster handle.";
constexpr char kKeymasterAtFault[] = "Report it to the keymaster's vendor.";
constexpr char kDamaged[] =
    "The library restores nothing. Stop the process and see \"A damaged store\" in "
    "docs/diagnostics.md.";
constexpr char kSeeBefore[] = "See the message before it.";
constexpr char kCorrectCommand[] = "Correct the command.";

std::vector<MessageGroup> makeGroups() {
    return {
        {"Files",
         {
             {W, kObject, "no file %s", kText, "a file cannot be opened",
              "Usually it does not exist yet.",
              "Nothing on a first start; later run `zelkm doctor`.", "", MessageId::kNoFile},
             {E, kObject, "file read fail: %s(%d)", kSystemError,
              "a file could not be read completely, and counts as missing",
              "Number 0: it was truncated meanwhile.", "Check the medium.", ""},
             {E, kObject, "file open: %s(%d)", kSystemError,
              "the .tmp file of a new version cannot be created", "The file itself is untouched.",
              "Check the directory's permissions and space.", "-1000", MessageId::kTmpNotCreated},
             {E, kObject, "file write fail: %s(%d)", kSystemError,
              "the new version of a file could not be written",
              "Number 0 means that fewer bytes were written, without an error. The file itself is "
              "untouched.",
              "Check the space.", "-1000", MessageId::kWriteFailed},
             {W, kObject, "fail to remove backup file: %s(%d)", kSystemError, "the old .bak stays",
              "The replacement continues.", kCheckPermissions, ""},
             {W, kObject, "fail to rename to the backup file: %s(%d)", kSystemError,
              "there is no backup of the previous version", "The replacement continues.",
              kCheckPermissions, ""},
             {E, kObject, "fail unlink: %s(%d)", kSystemError,
              "the current file could be neither moved nor removed", "The new version is in .tmp.",
              kCheckPermissions, "-1000", MessageId::kCurrentNotRemoved},
             {E, kObject, "fail rename: %s(%d)", kSystemError,
              "the new version could not get the file's name",
              "The old version is in .bak, the new one in .tmp.",
              "Run `zelkm doctor` before any change.", "-1000", MessageId::kNewNotInPlace},
             {D, kObject, "no secure object file", kNone, "a restore found no current file", "",
              kNothing, ""},
             {E, kObject, "fail unlink during restore: %s(%d)", kSystemError,
              "the refused store could not be removed, and the backup was not put in place", "",
              kCheckPermissions, ""},
             {E, kObject, "fail rename during restore:%s(%d)", kSystemError,
              "the backup could not be put in place", "Usually there is none.",
              "The store file is gone: copy the directory, and run `zelkm doctor` on the copy.", "",
              MessageId::kNoBackup},
         }},
        {"Database key",
         {
             {E, kObject, "init_db_key fail", kNone, "there is no usable database key",
              "The line before says why.", kSeeBefore, ""},
             {W, kObject, "This case should not exist, keygeneration with keymaster dev", kNone,
              "a key is needed, and the object has no keymaster", "", kGiveHandle, "-1000"},
             {E, kObject, "error in generateKey hidl call : %d", kResult,
              "a call that makes the database key did not get through", "", kCheckService, "-1000"},
             {E, kObject, "invalid param", kNone, "`setLoadedDBKey` was given no key",
              "The caller passed null, or length 0.", "Pass the key's blob.", "-32"},
             {E, kObject, "error during getKeyCharacteristics hidl call : %d", kResult,
              "a call that checks the stored key did not get through", "", kCheckService, "-1000"},
             {E, kObject, "getKeyCharacteristics but set anyway, err : %d", kNone,
              "the keymaster refuses the stored key",
              "The number is always 0; the next message has the code.", "See the next message.",
              ""},
             {W, kObject, "Upgrade the db key", kNone,
              "the key is older than the system's patch level", "It is being upgraded.", kNothing,
              ""},
             {E, kObject, "error during upgradeKey hidl call : %d", kResult,
              "a call that upgrades the key did not get through", "", kCheckService, "-1000",
              MessageId::kUpgradeLost},
             {W, kObject, "Upgrade the db key file", kNone, "the upgraded key is being written", "",
              kNothing, "", MessageId::kUpgradedKeyWritten},
             {E, kObject, "check_and_upgrade_db_key error(%d)", kResult,
              "the stored key could not be used",
              "The current query fails with the keymaster's code; the next one tries again.",
              kLookUpCode, "its code"},
             {W, kObject, "try restoreKeyBlob(%d)", kResult, "the repair of the key begins",
              "The lines after it say what it found.", "See the next messages.", "",
              MessageId::kKeyRepair},
             {E, kObject, "No keyfile, it will be restored after rebooting", kNone,
              "`edbk` could not be loaded: out of memory", "", kRestart, ""},
             {D, kObject, "cached key blob is verified same as the stored blob", kNone,
              "the key in memory and its file agree", "", kNothing, ""},
             {E, kObject, "cached key blob is broken, update with the stored blob", kNone,
              "the key in memory differed from its file", "The file's is used from now on.",
              "Repeat the query.", ""},
             {E, kObject, "No key digest file, regard it does not support", kNone,
              "`edbk_digest` is missing or not 32 bytes long",
              "The key cannot be judged, so nothing is changed.", kNothing, ""},
             {E, kObject, "cached key hash generation fail", kNone, "the key could not be hashed",
              "SHA-256 failed, usually because memory ran out.", kRestart, ""},
             {E, kObject, "key blob is verified, regard the device is corrupted or the old version",
              kNone, "the key is intact, but the keymaster refuses it",
              "A call was lost, the keymaster lost its root key, or the system was downgraded. "
              "Nothing is deleted.",
              "After `try restoreKeyBlob(-1000)` a call was lost: restart the process. After "
              "another "
              "number go back to the system version that made or upgraded the key.",
              "", MessageId::kKeyIntact},
             {E, kObject, "key blob is corrupted. regard the key file is broken and regenerate key",
              kNone, "the key does not match its digest, so a new one takes its place",
              "The key file was damaged, or its digest is that of another key.",
              "The current store cannot be decrypted with the new key. Stop the process; "
              "`edbk.bak` "
              "holds the old key: run `zelkm doctor`.",
              "", MessageId::kKeyRegenerated},
             {E, kObject, "key blob generation failure. no way to restore", kNone,
              "no new key could be made", "", kCheckService, ""},
             {E, kObject, "key file hash generation fail", kNone,
              "the key was written without a fresh digest",
              "SHA-256 failed, usually because memory ran out.",
              "Run `zelkm doctor`: an older digest beside a new key is dangerous.", ""},
             {E, kObject, "key file hash writing fail %d", kResult,
              "the key was written, and its digest was not",
              "An older digest stays beside a new key.",
              "Run `zelkm doctor`, or remove `edbk_digest`, which is safe.", "-1000"},
         }},
        {"Encryption",
         {
             {E, kObject,
              "This case should not be happen. keymaster dev shoud not be used directrly", kNone,
              "the object has no keymaster", "", kGiveHandle, "-1000"},
             {E, kObject, "HIDL call failed with %s", kText, "a keymaster call did not get through",
              "The service died, or more than about 1 MiB was to be sent.", kCheckService, ""},
             {E, kObject, "error in begin hidl call : %d", kResult,
              "the call that begins an operation did not get through", "", kCheckService, "-1000"},
             {E, kObject, "no iv tag in begin out param", kNone,
              "the keymaster returned no nonce for an encryption", "", kKeymasterAtFault, "-51"},
             {E, kObject, "error in begin process : %d", kResult,
              "the keymaster refused to begin an operation",
              "After -33 the repair of the key follows.", kLookUpCode, "its code",
              MessageId::kBeginRefused},
             {E, kObject, "error in update hidl call : %d", kResult,
              "a call in the middle of an operation did not get through, and counts as "
              "successful",
              "The data is written unencrypted; the next load refuses it.",
              "Make the change again before a restart, or run `zelkm doctor --repair`; the "
              "previous version is in `.bak`. The plaintext was on the disk.",
              "", MessageId::kUpdateLost},
             {E, kObject, "error in update process : %d", kResult,
              "the keymaster refused to continue an operation", "", kLookUpCode, "its code"},
             {E, kObject, "Not all data has been consumed. Consumed %zu of %zu bytes\n", kNone,
              "the keymaster took less or more than it was given", "", kKeymasterAtFault, "-1000"},
             {E, kObject, "error in finish hidl call : %d", kResult,
              "the call that ends an operation did not get through, and counts as successful",
              "As for `error in update hidl call`.", "As for `error in update hidl call`.", "",
              MessageId::kFinishLost},
             {E, kObject, "error in finish process : %d", kResult,
              "the keymaster refused to end an operation",
              "-30: this key did not encrypt the store. It is damaged, or was encrypted with "
              "another key; the repair of the store follows.",
              kLookUpCode, "its code", MessageId::kFinishRefused},
             {E, kObject, "fail to load secure db file. it might recover after rebooting", kNone,
              "the repair could not load the store file: out of memory", "", kRestart, ""},
             {E, kObject, "cached db is same as the stored db, regard the stored db is broken",
              kNone, "the store file is damaged, or was encrypted with another key",
              "Memory and file hold the same bytes, so it is the file that was refused.",
              "See the next message.", "", MessageId::kStoreRefused},
             {E, kObject, "restore the stored db. need to restart keystore", kNone,
              "the backup is being put in place of the refused store",
              "It is the version from before the last change.",
              "Restart the process before the next change: it still holds the refused image, "
              "and its next successful write would replace the restored file.",
              "", MessageId::kBackupRestored},
             {E, kObject, "cached db is broken, update with the stored db", kNone,
              "the store in memory differed from its file", "The file's is used from now on.",
              "Repeat the query.", "", MessageId::kStoreCacheDiffered},
         }},
        {"Password conversion, attestation and start-up",
         {
             {E, kObject, "encryptWithPasswordHWKey: invalid keymaster dev pointer", kNone,
              "the object has no keymaster", "", kGiveHandle, "-32"},
             {E, kObject, "not supported mode : %d", kNone,
              "the type of a password conversion is neither 0 nor 1", "",
              "Pass a type of `PW_ENCRYPT_TYPE`.", "-2"},
             {W, kObject, "invalid rot just set 0", kNone,
              "the reply had no hardware value of 16 bytes; zeros took its place", "",
              "Nothing, if the hardware has no such value.", ""},
             {E, kObject, "invalid tag", kNone, "the reply had no tag of 16 bytes", "",
              kKeymasterAtFault, "-40"},
             {E, kObject, "no key", kNone, "the reply had no `KEY`, the converted material", "",
              kKeymasterAtFault, "-40"},
             {E, kObject, "no encrypted key", kNone,
              "the reply had no `ENCRYPTED_KEY`, the converted material", "", kKeymasterAtFault,
              "-40"},
             {E, kObject, "AttestKey: invalid IZelkeymasterDevice pointer", kNone,
              "the object has no keymaster for a signing request", "", kGiveHandle, "-32"},
             {D, kObject, "GenerateCSR start", kNone, "a signing request begins", "", kNothing, ""},
             {E, kObject, "GenerateCSR: IZelkeymasterDevice void error", kNone,
              "the call for a signing request did not get through", "", kCheckService, "-1000"},
             {E, kObject, "Invalid attestion chain length", kNone,
              "there are fewer than three certificates", "", "Pass the whole chain.", "-30"},
             {E, kObject, "d2i_X509 error", kNone, "an element is not a DER certificate", "",
              "Check the elements.", "-30"},
             {E, kObject, "X509_verify_cert fail %d, %d", kNone,
              "the certification path is not valid",
              "The numbers are the result and libcrypto's error (`X509_V_ERR_…`).",
              "`zelkm verify-chain` explains the second one.", "-30"},
             {E, kObject, "verify_cert_chain fail", kNone,
              "the certification path was not accepted", "The line before says why.", kSeeBefore,
              "-30"},
             {E, kObject, "X509_get_pubkey error", kNone, "the leaf's public key cannot be used",
              "", "Check the leaf.", "-30"},
             {E, kObject, "X509_verify error during GAK", kNone,
              "element 0 is not signed with the key of element 1", "",
              "Check the order of the elements.", "-30"},
             {E, kObject, "print_openssl_error_cb", kNone, "libcrypto reported an error",
              "The next message is its text.", "See the next message.", ""},
             {E, kObject, "%s(%d, %p)", kText, "libcrypto's text, its length, and a null pointer",
              "", "Read the text.", ""},
             {E, kObject, "sk_X509_new_null error", kNone,
              "libcrypto had no memory for the list of certificates", "", kRestart, "-30"},
             {E, kObject, "Failed to push certificate", kNone,
              "libcrypto had no memory for another certificate", "", kRestart, "-30"},
             {E, kObject, "X509_STORE_new error", kNone,
              "libcrypto had no memory for the trust store", "", kRestart, "-30"},
             {E, kObject, "X509_STORE_CTX_init error", kNone,
              "libcrypto had no memory for the verification", "", kRestart, "-30"},
             {E, kObject, "ctx is NULL", kNone, "libcrypto called back without a certificate",
              "Cannot happen.", "Report it.", "-30"},
             {D, kObject, "instantiated with IZelKeymasterDevice", kNone,
              "an object was constructed", "", kNothing, ""},
         }},
        {"The engine: commands",
         {
             {E, kEngine, "command or len is null", kNone, "there is no command or no handle",
              "The caller passed null, or length 0.", "Pass both.", "-38"},
             {D, kEngine, "%s(%d) : L%d", kNone, "a command, or an unknown column name, follows",
              "The numbers are the text's length in bytes and a source line.", kNothing, "",
              MessageId::kOther, "command|invalid column name"},
             {D, kEngine, "%s", kText, "a line of that text",
              "At most its first 1023 bytes are logged.", kNothing, ""},
             {E, kEngine, "command parsing error", kNone,
              "the command is none of INSERT, SELECT, DELETE, UPDATE", "", kCorrectCommand, "-911"},
             {E, kEngine, "column parsing error", kNone, "the column list has no parentheses", "",
              kCorrectCommand, "-911"},
             {E, kEngine, "value parsing error", kNone,
              "the value list has no opening parenthesis, or the command does not end with a "
              "closing one",
              "", kCorrectCommand, "-911"},
             {E, kEngine, "UPDATE needs WHERE statement", kNone, "an UPDATE was refused",
              "None is ever accepted.", "Delete and insert instead.", "-911"},
             {E, kEngine, "err: state:(%d)  t->token=%p, *p(%p)=%c, len=%d\n", kNone,
              "a list of columns, values or conditions breaks the rules",
              "The values are the tokenizer's state (1 between items, 2 after an opening quote, 3 "
              "in "
              "quotes, 4 after a closing quote, 5 in an unquoted item), the addresses of the list "
              "and of the wrong byte, that byte, and the length of the item so far.",
              "Correct the command, or the value that went into it: it holds the byte 0x1f or "
              "begins with a comma.",
              "-911"},
             {E, kEngine, "parse_command error %d", kResult, "the command was not understood",
              "The line before says why.", kSeeBefore, "-911"},
             {E, kEngine, "parse_tokens error(%d)", kResult,
              "a list of columns or values was not understood",
              "Without a line before it there are more than six items.", kSeeBefore, "its code"},
             {E, kEngine, "parse_where_set_token error(%d)", kResult,
              "the conditions were not understood",
              "Without a line before it, a condition has no operator.", kSeeBefore, "its code"},
             {E, kEngine, "%s error(%d)", kResult, "the command failed",
              "Without a line before it, the code says why: lists of different lengths are -911, "
              "and a DELETE that no object matches is -917.",
              kSeeBefore, "its code", MessageId::kOther, "INSERT|SELECT|DELETE|UPDATE"},
             {E, kEngine, "execute_command error %d", kResult,
              "a command that was understood failed", "The lines before say why.", kSeeBefore,
              "its code"},
             {E, kEngine, "invalid column name", kNone, "an INSERT names an unknown column",
              "The name follows at debug level.", kCorrectCommand, "-910"},
             {E, kEngine, "not supported type", kNone, "a column of the schema holds no bytes",
              "Cannot happen with the built-in schema.", "Report it.", "-100"},
         }},
        {"The engine: loading and exporting",
         {
             {E, kEngine, "create colume value failure", kNone, "there was no memory for a value",
              "", kRestart, "-41"},
             {E, kEngine, "allocation fail during update", kNone,
              "there was no memory for a changed value", "", kRestart, "-41"},
             {E, kEngine, "allocation failure", kNone, "there was no memory to load the store", "",
              kRestart, "-41"},
             {E, kEngine, "allocation failure for out", kNone, "there was no memory for a result",
              "A select then returns 0 with an empty result.", kRestart, "-41"},
             {E, kEngine, "export sdb fail, clear db to sync again", kNone,
              "the new version of the store could not be made",
              "Nothing was changed; the next query loads the store again. The lines before say "
              "why.",
              kSeeBefore, "its code"},
             {E, kEngine, "convert_to_internal error %d", kResult, "the store could not be loaded",
              "The line before says why.", kSeeBefore, "its code"},
             {E, kEngine, "db size error", kNone, "the store ends inside its header",
              "The file was cut or overwritten.", kDamaged, "-913"},
             {E, kEngine, "invalid db file len = %d, expected = %d", kNone,
              "the header's payload length is larger than the payload",
              "The file was cut, or its header changed. The numbers are the length in the header "
              "and the length that is there.",
              kDamaged, "-915"},
             {E, kEngine, "abnormal end of lne %d", kNone, "a row does not end after six values",
              "The number is the byte found there. The flag or the row count in the header was "
              "changed, or a stored value holds a separator.",
              kDamaged, "-913"},
             {E, kEngine, "fail to generate db handle: 0x%08llx", kNone,
              "the random generator failed or drew 0", "It is asked ten times.", kNothing, ""},
         }},
    };
}

}  // namespace

const char* sourceName(Source source) {
    return source == kObject ? "zelkeymaster_operation.cpp" : "velt_secure_db.cpp";
}

const std::vector<MessageGroup>& messageGroups() {
    static const auto& groups = *new std::vector<MessageGroup>(makeGroups());
    return groups;
}

}  // namespace zelkm_tool
