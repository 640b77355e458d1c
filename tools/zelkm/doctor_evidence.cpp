// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "doctor_report.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "bytes.h"
#include "failure.h"
#include "store_file.h"
#include "store_names.h"

namespace zelkm_tool {
namespace {

constexpr std::string_view kBlanks = " \t\r\n";

std::string withoutBlanks(std::string_view text) {
    std::string result(text);
    result.erase(std::remove_if(result.begin(), result.end(),
                                [](char c) { return kBlanks.find(c) != kBlanks.npos; }),
                 result.end());
    return result;
}

std::optional<std::string> fromBase64(std::string_view bytes) {
    const std::string text = withoutBlanks(bytes);
    std::string result(text.size(), '\0');
    const int len = text.empty() || text.size() % 4 != 0
                        ? -1
                        : EVP_DecodeBlock(reinterpret_cast<unsigned char*>(result.data()),
                                          reinterpret_cast<const unsigned char*>(text.data()),
                                          static_cast<int>(text.size()));
    if (len < 0) {
        return std::nullopt;
    }
    // Each '=' at the end stands for a byte less.
    const size_t padding = text.size() - 1 - text.find_last_not_of('=');
    result.resize(static_cast<size_t>(len) - std::min<size_t>(padding, 2));
    return result;
}

std::optional<std::string> fromHex(std::string_view bytes) {
    const std::string text = withoutBlanks(bytes);
    return text.empty() ? std::nullopt : unhex(text);
}

// Each line feed has a carriage return before it.
std::optional<std::string> withoutCarriageReturns(std::string_view bytes) {
    std::string result;
    for (size_t at = 0; at < bytes.size(); ++at) {
        at += bytes.substr(at, 2) == "\r\n" ? 1 : 0;
        if (bytes[at] == '\n' && (at == 0 || bytes[at - 1] != '\r')) {
            return std::nullopt;
        }
        result += bytes[at];
    }
    return result;
}

// Bytes that somebody took for Latin-1, and wrote as UTF-8.
std::optional<std::string> fromUtf8(std::string_view bytes) {
    std::string result;
    while (!bytes.empty()) {
        const Character character = firstCharacter(bytes);
        if (character.code > 0xFF) {
            return std::nullopt;
        }
        result += static_cast<char>(character.code);
        bytes.remove_prefix(character.len);
    }
    return result;
}

// Whether it is UTF-8 in which U+FFFD stands for bytes that somebody could not read as text.
bool hasReplacements(std::string_view bytes) {
    return isUtf8(bytes) && bytes.find("\uFFFD") != bytes.npos;
}

struct Signature {
    size_t at;
    std::string_view bytes;
    const char* words;
    bool is_archive = false;
};
constexpr char kUtf16[] = "is UTF-16: iconv -f UTF-16 -t UTF-8";
constexpr char kPage[] = "is an HTML page: read what it says, and fetch the file again";
constexpr Signature kSignatures[] = {
    {0, "\x1f\x8b", "is gzip: gzip -dc", true},
    {0, "PK\x03\x04", "is a zip archive: funzip", true},
    {257, "ustar", "is a tar archive: tar -xO", true},
    {0, "\xff\xfe", kUtf16},
    {0, "\xfe\xff", kUtf16},
    {0, "<!", kPage},
    {0, "<html", kPage},
};

constexpr size_t kMaxKeyLen = 16 << 10;

// What a file is, and whether it may hold a store.
Disguise describe(std::string_view bytes) {
    if (isBlank(bytes)) {
        return {bytes.empty() ? "is empty" : "holds only zeros"};
    }
    if (looksLikeStore(bytes)) {
        const StoreHeader header = *parseStoreHeader(bytes);
        return {std::string("is a") + (header.encrypted() ? "n encrypted" : " plaintext") +
                    " store, " + std::to_string(header.row_count) + " rows by its header",
                true};
    }
    const Disguise disguise = disguiseOf(bytes, looksLikeStore);
    return disguise.words.empty() && isText(bytes) ? Disguise{"is text"} : disguise;
}

FileEvidence look(const Directory& directory, const std::string& name, const struct stat& status) {
    FileEvidence file = {status, std::nullopt, "", "", false};
    const std::vector<std::string> used = usedNames();
    const bool is_used = std::find(used.begin(), used.end(), name) != used.end();
    const bool is_root_key = name == kRootKeyFile || name == kAttestationRootFile;
    if ((S_ISREG(status.st_mode) || is_used) && !is_root_key) {
        try {
            file.content = directory.read(name);
        } catch (const Refused& refused) {
            file.problem = refused.what();
        }
    }
    if (file.content) {
        const Disguise shown = describe(*file.content);
        file.about = shown.words;
        file.may_hold_store = shown.may_hold_it;
        if (!is_used && file.content->size() > kMaxKeyLen && !looksLikeStore(*file.content)) {
            file.content.reset();  // nothing of this library
        }
    }
    return file;
}

// Whether the owner can make and rename files. Asked as another user, only the mode tells.
bool isWritable(const Directory& directory) {
    const struct stat status = directory.status();
    if (status.st_uid == ::geteuid()) {
        return ::faccessat(directory.fd(), ".", W_OK | X_OK, AT_EACCESS) == 0;
    }
    return (status.st_mode & S_IWUSR) != 0 && (status.st_mode & S_IXUSR) != 0;
}

void lookBelow(const Directory& directory, const std::string& folder, Evidence* evidence) {
    try {
        const Directory below = directory.folder(folder);
        for (const std::string& name : below.names()) {
            const auto status = below.look(name);
            if (status && S_ISREG(status->st_mode)) {
                evidence->files[folder + "/" + name] = look(below, name, *status);
            }
        }
    } catch (const Refused& refused) {
        evidence->files[folder].problem = refused.what();
    }
}

}  // namespace

Disguise disguiseOf(std::string_view bytes, const IsRight& is_right) {
    if (is_right(bytes)) {
        return {};
    }
    const std::pair<const char*, std::optional<std::string>> encodings[] = {
        {"is base64: base64 -d", fromBase64(bytes)},
        {"is hexadecimal text: xxd -r -p", fromHex(bytes)},
        {"is a text with CR LF for each line feed: dos2unix -f", withoutCarriageReturns(bytes)},
        {"is UTF-8 made from Latin-1: iconv -f UTF-8 -t ISO-8859-1", fromUtf8(bytes)},
    };
    for (const auto& [words, content] : encodings) {
        if (content && is_right(*content)) {
            return {words, true};
        }
    }
    const Disguise container = containerOf(bytes);
    return container.words.empty() && hasReplacements(bytes)
               ? Disguise{"has U+FFFD in place of bytes, which are lost: copy it again, in another "
                          "way"}
               : container;
}

Disguise containerOf(std::string_view bytes) {
    for (const Signature& signature : kSignatures) {
        if (bytes.size() >= signature.at &&
            bytes.substr(signature.at, signature.bytes.size()) == signature.bytes) {
            return {signature.words, signature.is_archive};
        }
    }
    return {};
}

bool isText(std::string_view bytes) {
    return !bytes.empty() && std::all_of(bytes.begin(), bytes.end(), [](char c) {
        return (c >= ' ' && c < 0x7F) || kBlanks.find(c) != kBlanks.npos;
    });
}

StoreFiles Evidence::storeFiles() const {
    StoreFiles result;
    for (const std::string& name : storeNames()) {
        if (const std::string* found = content(name)) {
            result[name] = *found;
        }
    }
    return result;
}

const FileEvidence* Evidence::find(const std::string& name) const {
    const auto found = files.find(name);
    return found != files.end() ? &found->second : nullptr;
}

const std::string* Evidence::content(const std::string& name) const {
    const FileEvidence* file = find(name);
    return file != nullptr && file->content ? &*file->content : nullptr;
}

std::string Evidence::unread() const {
    for (const std::string& name : storeNames()) {
        if (files.count(name) != 0 && content(name) == nullptr) {
            return name;
        }
    }
    return "";
}

Evidence collectEvidence(const Directory& directory) {
    Evidence evidence = {directory.path(), directory.status(), isWritable(directory), {}};
    for (const std::string& name : directory.names()) {
        const auto status = directory.look(name);
        if (!status) {
            continue;
        }
        evidence.files[name] = look(directory, name, *status);
        if (S_ISDIR(status->st_mode) && name.rfind(kCopiesPrefix, 0) != 0) {
            lookBelow(directory, name, &evidence);
        }
    }
    return evidence;
}

bool looksLikeStore(std::string_view bytes) {
    const auto header = parseStoreHeader(bytes);
    return header && header->magic.rfind("SOBv1.", 0) == 0 && header->payload_len != 0 &&
           header->payload_len == bytes.size() - zelkm::kHeaderLen;
}

bool isBlank(std::string_view bytes) {
    return bytes.find_first_not_of('\0') == bytes.npos;
}

std::string keyOfDigest(const StoreFiles& files) {
    const auto digest = files.find(kKeyDigestFile);
    for (const std::string& name : versionsOf(kKeyFile)) {
        const auto key = files.find(name);
        if (digest != files.end() && key != files.end() && !key->second.empty() &&
            digest->second == sha256(key->second)) {
            return name;
        }
    }
    return "";
}

}  // namespace zelkm_tool
