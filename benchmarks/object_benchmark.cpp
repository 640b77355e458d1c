// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The operations of ZelKeymasterOperation over a keymaster in this process, each beside its floor
// and, where there is one, its peer.

#include <cstring>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "db_store_format.h"
#include "object_store.h"
#include "reference.h"
#include "registrations.h"
#include "sample_rows.h"
#include "sqlcipher_store.h"
#include "support.h"

namespace bench {
namespace {

using benchmark::State;

constexpr size_t kSmallUpdate = 4096;
constexpr char kFloorFile[] = "floor.db";
constexpr char kPeerFile[] = "peer.db";

// ---- SodInsert and SodDelete --------------------------------------------------------------------

struct Change {
    bool flush;
    size_t max_update_bytes;
};

void insert(State& state, Change change) {
    const Sample sample = sampleOf(state);
    ObjectStore store(sample, change.max_update_bytes);
    const FlushSwitch flushing(change.flush);
    SODOperationParam row = rowParam(sample.extra);
    SODOperationParam alias = aliasParam(sample.extra);
    timeEach(
        state, [] {}, [&] { check(store.object().SodInsert(row) == ZELKM_OK, "SodInsert"); },
        [&] {
            check(std::filesystem::file_size(kStoreFile) > sample.image.size(), "store file");
            check(store.object().SodDelete(alias) == ZELKM_OK, "SodDelete");
        });
    check(store.all() == expectedTexts(sample), "rows");
}

void changeFloor(State& state, bool flush) {
    const Sample sample = sampleOf(state);
    Cipher cipher;
    std::vector<uint8_t> image(sample.image.size());
    for ([[maybe_unused]] auto _ : state) {
        std::memcpy(image.data(), sample.image.data(), image.size());
        uint8_t* payload = image.data() + zelkm::kHeaderLen;
        cipher.encrypt(payload, image.size() - zelkm::kHeaderLen, payload,
                       image.data() + zelkm::kIvOffset, image.data() + zelkm::kTagOffset);
        replaceFileBare(kFloorFile, image.data(), image.size(), flush);
    }
    check(std::filesystem::file_size(kFloorFile) == image.size(), "file");
}

void insertPeer(State& state) {
    const Sample sample = sampleOf(state);
    SqlcipherStore::create(kPeerFile, sample.rows);
    SqlcipherStore peer(kPeerFile);
    timeEach(
        state, [] {}, [&] { peer.insert(sample.extra); }, [&] { peer.remove(sample.extra[0]); });
    check(peer.count() == sample.rows.size(), "rows");
}

// Rows come back at the end of the store; which one goes is scattered over all of them.
void remove(State& state, Change change) {
    const Sample sample = sampleOf(state);
    ObjectStore store(sample, change.max_update_bytes);
    const FlushSwitch flushing(change.flush);
    uint64_t step = 0;
    SODOperationParam row;
    SODOperationParam alias;
    timeEach(
        state,
        [&] {
            const Row& next = sample.rows[sample.pick(step++)];
            row = rowParam(next);
            alias = aliasParam(next);
        },
        [&] { check(store.object().SodDelete(alias) == ZELKM_OK, "SodDelete"); },
        [&] {
            check(std::filesystem::file_size(kStoreFile) < sample.image.size(), "store file");
            check(store.object().SodInsert(row) == ZELKM_OK, "SodInsert");
        });
    check(store.all().size() == sample.rows.size() + 1, "rows");
}

void removePeer(State& state) {
    const Sample sample = sampleOf(state);
    SqlcipherStore::create(kPeerFile, sample.rows);
    SqlcipherStore peer(kPeerFile);
    uint64_t step = 0;
    timeEach(
        state, [] {}, [&] { peer.remove(sample.rows[sample.pick(step)][0]); },
        [&] { peer.insert(sample.rows[sample.pick(step++)]); });
    check(peer.count() == sample.rows.size(), "rows");
}

// ---- SodSelect and its kin ----------------------------------------------------------------------

void selectAlias(State& state) {
    const Sample sample = sampleOf(state);
    ObjectStore store(sample);
    std::vector<SODOperationParam> params;
    for (uint64_t step = 0; step < kProbes; ++step) {
        params.push_back(aliasParam(sample.rows[sample.pick(step)]));
        readAllColumns(params.back());
    }
    size_t next = 0;
    Texts texts;
    for ([[maybe_unused]] auto _ : state) {
        texts.clear();
        check(store.object().SodSelect(params[next++ % kProbes], texts) == ZELKM_OK, "SodSelect");
    }
    const Row& last = sample.rows[sample.pick((next - 1) % kProbes)];
    check(texts.size() == 2 && texts[0] == encodeRow(last), "row");
}

void selectAliasPeer(State& state) {
    const Sample sample = sampleOf(state);
    SqlcipherStore::create(kPeerFile, sample.rows);
    SqlcipherStore peer(kPeerFile);
    std::vector<std::string> statements;
    for (uint64_t step = 0; step < kProbes; ++step) {
        statements.push_back(SqlcipherStore::selectText(sample.rows[sample.pick(step)][0]));
    }
    size_t next = 0;
    Texts texts;
    for ([[maybe_unused]] auto _ : state) {
        texts.clear();
        peer.select(statements[next++ % kProbes], &texts);
    }
    const Row& last = sample.rows[sample.pick((next - 1) % kProbes)];
    check(texts.size() == 1 && texts[0] == encodeRow(last), "row");
}

void selectAccessor(State& state) {
    const Sample sample = sampleOf(state);
    ObjectStore store(sample);
    std::string accessor = kAccessor;
    SODOperationParam param;
    readAllColumns(param.addAccessorInWhere(accessor));
    Texts texts;
    for ([[maybe_unused]] auto _ : state) {
        texts.clear();
        check(store.object().SodSelect(param, texts) == ZELKM_OK, "SodSelect");
    }
    Texts found;
    RowList rows(sample);
    rows.load(bytesOf(sample.payload));
    rows.findAccessor(kAccessorNumber, &found);
    texts.pop_back();
    check(texts == found, "rows");
}

void selectAll(State& state) {
    const Sample sample = sampleOf(state);
    ObjectStore store(sample);
    SODOperationParam param;
    readAllColumns(param);
    Texts texts;
    for ([[maybe_unused]] auto _ : state) {
        texts.clear();
        check(store.object().SodSelect(param, texts) == ZELKM_OK, "SodSelect");
    }
    check(texts == expectedTexts(sample), "rows");
}

void selectAllPeer(State& state) {
    const Sample sample = sampleOf(state);
    SqlcipherStore::create(kPeerFile, sample.rows);
    SqlcipherStore peer(kPeerFile);
    const std::string statement = SqlcipherStore::selectAllText();
    Texts texts;
    for ([[maybe_unused]] auto _ : state) {
        texts.clear();
        peer.select(statement, &texts);
    }
    Texts expected = expectedTexts(sample);
    expected.pop_back();
    check(texts == expected, "rows");
}

using Retrieve = int (ZelKeymasterOperation::*)(SODOperationParam&, Texts&);
using Walk = void (RowList::*)(Texts*) const;

void retrieve(State& state, Retrieve call, Walk walk) {
    const Sample sample = sampleOf(state);
    ObjectStore store(sample);
    SODOperationParam param;
    param.addAliasToOutput();
    Texts texts;
    for ([[maybe_unused]] auto _ : state) {
        texts.clear();
        check((store.object().*call)(param, texts) == ZELKM_OK, "SodRetreive");
    }
    Texts expected;
    RowList rows(sample);
    rows.load(bytesOf(sample.payload));
    (rows.*walk)(&expected);
    check(texts == expected, "texts");
}

void walkFloor(State& state, Walk walk) {
    const Sample sample = sampleOf(state);
    RowList rows(sample);
    rows.load(bytesOf(sample.payload));
    Texts texts;
    for ([[maybe_unused]] auto _ : state) {
        texts.clear();
        (rows.*walk)(&texts);
    }
    check(texts.size() == sample.rows.size(), "rows");
}

// ---- From the file to all rows ------------------------------------------------------------------

void openAndRead(State& state, size_t max_update_bytes) {
    keepPages();
    const Sample sample = sampleOf(state);
    ObjectStore store(sample, max_update_bytes);
    std::optional<ZelKeymasterOperation> object;
    Texts texts;
    SODOperationParam everything;
    readAllColumns(everything);
    timeEach(
        state,
        [&] {
            object.reset();
            dropTable();
            texts.clear();
            mergeFreeBlocks();
        },
        [&] {
            object.emplace(&store.keymaster(), true);
            check(object->SodSelect(everything, texts) == ZELKM_OK, "SodSelect");
        },
        [] {});
    check(texts == expectedTexts(sample), "rows");
}

void openAndReadFloor(State& state) {
    keepPages();
    const Sample sample = sampleOf(state);
    const size_t len = sample.payload.size();
    Cipher cipher;
    std::vector<uint8_t> stored(len);
    uint8_t iv[SDB_IV_LEN];
    uint8_t tag[SDB_TAG_LEN];
    cipher.encrypt(bytesOf(sample.payload), len, stored.data(), iv, tag);
    replaceFileBare(kFloorFile, stored.data(), len, false);
    RowList rows(sample);
    Texts texts;
    timeEach(
        state,
        [&] {
            rows.clear();
            texts.clear();
            mergeFreeBlocks();
        },
        [&] {
            readFileBare(kFloorFile, &stored);
            check(cipher.decrypt(stored.data(), len, stored.data(), iv, tag), "decryption");
            rows.load(stored.data());
            rows.allRows(&texts);
        },
        [] {});
    check(texts.size() == sample.rows.size(), "rows");
}

void openAndReadPeer(State& state) {
    keepPages();
    const Sample sample = sampleOf(state);
    SqlcipherStore::create(kPeerFile, sample.rows);
    const std::string statement = SqlcipherStore::selectAllText();
    std::optional<SqlcipherStore> peer;
    Texts texts;
    timeEach(
        state,
        [&] {
            peer.reset();
            texts.clear();
            mergeFreeBlocks();
        },
        [&] {
            peer.emplace(kPeerFile);
            peer->select(statement, &texts);
        },
        [] {});
    Texts expected = expectedTexts(sample);
    expected.pop_back();
    check(texts == expected, "rows");
}

// ---- DBEncrypt ----------------------------------------------------------------------------------

// A payload, and what becomes of it.
struct Message {
    explicit Message(const Sample& sample)
        : plain(sample.payload.begin(), sample.payload.end()),
          sealed(plain.size()),
          opened(plain.size()) {}

    std::vector<uint8_t> plain;
    std::vector<uint8_t> sealed;
    std::vector<uint8_t> opened;
    uint8_t iv[SDB_IV_LEN];
    uint8_t tag[SDB_TAG_LEN];
};

// `run` encrypts the message when its argument is false, and else decrypts it.
template <typename Run>
void convertMessage(State& state, const Message& message, bool decrypt, Run run) {
    run(false);
    for ([[maybe_unused]] auto _ : state) {
        run(decrypt);
    }
    run(true);
    check(message.opened == message.plain, "decrypted bytes");
}

void convert(State& state, bool decrypt, size_t max_update_bytes) {
    ObjectStore store(Sample(1), max_update_bytes);
    Message message(sampleOf(state));
    convertMessage(state, message, decrypt, [&](bool decrypting) {
        uint8_t aad[SDB_AAD_LEN] = {};
        std::vector<uint8_t>& plain = decrypting ? message.opened : message.plain;
        check(store.object().DBEncrypt(decrypting ? 0 : 1, plain.data(), message.sealed.data(),
                                       static_cast<unsigned int>(plain.size()), message.iv,
                                       message.tag, aad, sizeof(aad)) == ZELKM_OK,
              "DBEncrypt");
    });
}

void convertFloor(State& state, bool decrypt) {
    Cipher cipher;
    Message message(sampleOf(state));
    convertMessage(state, message, decrypt, [&](bool decrypting) {
        const size_t len = message.plain.size();
        if (decrypting) {
            check(cipher.decrypt(message.sealed.data(), len, message.opened.data(), message.iv,
                                 message.tag),
                  "decryption");
        } else {
            cipher.encrypt(message.plain.data(), len, message.sealed.data(), message.iv,
                           message.tag);
        }
    });
}

void addChange(const char* subject, Change change, void (*run)(State&, Change),
               void (*peer)(State&)) {
    add(subject, "ours", Timing::kEach, [=](State& state) { run(state, change); });
    add(subject, "floor", Timing::kLoop, [=](State& state) { changeFloor(state, change.flush); });
    if (change.flush) {
        add(subject, "sqlcipher", Timing::kEach, peer);
    }
}

void addWalk(const char* subject, std::function<void(State&)> run, Walk walk) {
    add(subject, "ours", Timing::kLoop, std::move(run));
    add(subject, "floor", Timing::kLoop, [=](State& state) { walkFloor(state, walk); });
}

void addRetrieve(const char* subject, Retrieve call, Walk walk) {
    addWalk(subject, [=](State& state) { retrieve(state, call, walk); }, walk);
}

}  // namespace

void registerObjectBenchmarks() {
    addChange("SodInsert.unflushed", {false, 0}, insert, insertPeer);
    addChange("SodInsert.unflushed_4KiB", {false, kSmallUpdate}, insert, insertPeer);
    addChange("SodInsert.flushed", {true, 0}, insert, insertPeer);
    addChange("SodDelete.unflushed", {false, 0}, remove, removePeer);
    addChange("SodDelete.unflushed_4KiB", {false, kSmallUpdate}, remove, removePeer);
    addChange("SodDelete.flushed", {true, 0}, remove, removePeer);

    add("SodSelect_alias", "ours", Timing::kLoop, selectAlias);
    add("SodSelect_alias", "floor", Timing::kLoop, selectAliasFloor);
    add("SodSelect_alias", "sqlcipher", Timing::kLoop, selectAliasPeer);
    add("SodSelect_accessor", "ours", Timing::kLoop, selectAccessor);
    add("SodSelect_accessor", "floor", Timing::kLoop, selectAccessorFloor);
    addWalk("SodSelect_all", selectAll, &RowList::allRows);
    add("SodSelect_all", "sqlcipher", Timing::kLoop, selectAllPeer);
    addRetrieve("SodRetreiveAlias", &ZelKeymasterOperation::SodRetreiveAlias, &RowList::allNames);
    addRetrieve("SodRetreiveOther", &ZelKeymasterOperation::SodRetreiveOther, &RowList::allAliases);

    for (const size_t limit : {size_t{0}, kSmallUpdate}) {
        const std::string subject = limit != 0 ? "open_read_all_4KiB" : "open_read_all";
        add(subject, "ours", Timing::kEach, [=](State& state) { openAndRead(state, limit); });
        add(subject, "floor", Timing::kEach, openAndReadFloor);
        add(subject, "sqlcipher", Timing::kEach, openAndReadPeer);
    }
    for (const bool decrypt : {false, true}) {
        const char* subject = decrypt ? "DBEncrypt.decrypt" : "DBEncrypt.encrypt";
        add(subject, "ours", Timing::kLoop, [=](State& state) { convert(state, decrypt, 0); });
        add(subject, "ours_4KiB", Timing::kLoop,
            [=](State& state) { convert(state, decrypt, kSmallUpdate); });
        add(subject, "floor", Timing::kLoop, [=](State& state) { convertFloor(state, decrypt); });
    }
}

}  // namespace bench
