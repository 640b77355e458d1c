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
#include "sample_rows.h"
#include "sqlcipher_store.h"
#include "support.h"

namespace bench {
namespace {

constexpr size_t kSmallUpdate = 4096;
constexpr char kFloorFile[] = "floor.db";
constexpr char kPeerFile[] = "peer.db";

// ---- SodInsert and SodDelete --------------------------------------------------------------------

void makeChanges(State& state, bool flush, bool removing) {
    const Sample sample = sampleOf(state);
    ObjectStore store(sample);
    setFlush(flush);
    timeChanges(state, sample, store, removing);
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

void changePeer(State& state, bool removing) {
    const Sample sample = sampleOf(state);
    SqlcipherStore peer = SqlcipherStore::create(kPeerFile, sample.rows);
    timeChanges(state, sample, peer, removing);
}

// ---- SodSelect and its kin ----------------------------------------------------------------------

void selectAlias(State& state) {
    const Sample sample = sampleOf(state);
    ObjectStore store(sample);
    const auto prepare = [](const Row& row) {
        SODOperationParam param = aliasParam(row);
        return readAllColumns(param);
    };
    timeProbes(state, sample, prepare,
               [&](SODOperationParam& param, Texts* texts) { store.select(param, texts); });
}

void selectAliasPeer(State& state) {
    const Sample sample = sampleOf(state);
    SqlcipherStore peer = SqlcipherStore::create(kPeerFile, sample.rows);
    timeProbes(
        state, sample, [](const Row& row) { return SqlcipherStore::selectText(row[0]); },
        [&](const std::string& statement, Texts* texts) { peer.select(statement.c_str(), texts); });
}

void selectAliasPrepared(State& state) {
    const Sample sample = sampleOf(state);
    SqlcipherStore peer = SqlcipherStore::create(kPeerFile, sample.rows);
    timeProbes(
        state, sample, [](const Row& row) { return row[0]; },
        [&](const std::string& alias, Texts* texts) { peer.find(alias, texts); });
}

void selectAccessor(State& state) {
    const Sample sample = sampleOf(state);
    ObjectStore store(sample);
    std::string accessor = kAccessor;
    SODOperationParam param;
    readAllColumns(param.addAccessorInWhere(accessor));
    const Texts texts = timeSelect(state, [&](Texts* found) { store.select(param, found); });
    Texts expected;
    RowList(sample).findAccessor(kAccessorNumber, &expected);
    check(withoutEnd(texts) == expected, "rows");
}

void selectAll(State& state) {
    const Sample sample = sampleOf(state);
    ObjectStore store(sample);
    SODOperationParam param;
    readAllColumns(param);
    const Texts texts = timeSelect(state, [&](Texts* found) { store.select(param, found); });
    check(withoutEnd(texts) == sample.texts(), "rows");
}

void selectAllPeer(State& state) {
    const Sample sample = sampleOf(state);
    SqlcipherStore peer = SqlcipherStore::create(kPeerFile, sample.rows);
    check(
        timeSelect(state, [&](Texts* texts) { peer.select(SqlcipherStore::kSelectAll, texts); }) ==
            sample.texts(),
        "rows");
}

using Retrieve = int (ZelKeymasterOperation::*)(SODOperationParam&, Texts&);
using Walk = void (RowList::*)(Texts*) const;

void retrieve(State& state, Retrieve call, Walk walk) {
    const Sample sample = sampleOf(state);
    ObjectStore store(sample);
    SODOperationParam param;
    param.addAliasToOutput();
    const Texts texts = timeSelect(state, [&](Texts* found) {
        check((store.object().*call)(param, *found) == ZELKM_OK, "SodRetreive");
    });
    Texts expected;
    (RowList(sample).*walk)(&expected);
    check(texts == expected, "texts");
}

void walkFloor(State& state, Walk walk) {
    const Sample sample = sampleOf(state);
    const RowList rows(sample);
    const Texts texts = timeSelect(state, [&](Texts* found) { (rows.*walk)(found); });
    check(texts.size() == sample.rows.size(), "rows");
}

// ---- From the file to all rows ------------------------------------------------------------------

void openAndRead(State& state) {
    keepPages();
    const Sample sample = sampleOf(state);
    ObjectStore store(sample);
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
    check(withoutEnd(std::move(texts)) == sample.texts(), "rows");
}

void openAndReadFloor(State& state) {
    keepPages();
    const Sample sample = sampleOf(state);
    Message message(sample);
    message.encrypt();
    replaceFileBare(kFloorFile, message.sealed.data(), message.sealed.size(), false);
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
            readFileBare(kFloorFile, &message.sealed);
            message.decrypt(message.sealed.data());
            rows.load(message.sealed.data());
            rows.allRows(&texts);
        },
        [] {});
    check(texts == sample.texts(), "rows");
}

void openAndReadPeer(State& state) {
    keepPages();
    const Sample sample = sampleOf(state);
    SqlcipherStore::create(kPeerFile, sample.rows);
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
            peer->select(SqlcipherStore::kSelectAll, &texts);
        },
        [] {});
    check(texts == sample.texts(), "rows");
}

// ---- DBEncrypt ----------------------------------------------------------------------------------

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
    Message message(sampleOf(state));
    convertMessage(state, message, decrypt, [&](bool decrypting) {
        if (decrypting) {
            message.decrypt(message.opened.data());
        } else {
            message.encrypt();
        }
    });
}

void addWalk(const char* subject, std::function<void(State&)> run, Walk walk) {
    add(subject, "ours", Timing::kLoop, std::move(run));
    add(subject, "floor", Timing::kLoop, [=](State& state) { walkFloor(state, walk); });
}

void addRetrieve(const char* subject, Retrieve call, Walk walk) {
    const auto run = [=](State& state) { retrieve(state, call, walk); };
    addWalk(subject, run, walk);
}

}  // namespace

void addObjectBenchmarks() {
    for (const bool removing : {false, true}) {
        for (const bool flush : {false, true}) {
            const std::string subject = std::string(removing ? "SodDelete." : "SodInsert.") +
                                        (flush ? "flushed" : "unflushed");
            add(subject, "ours", Timing::kEach,
                [=](State& state) { makeChanges(state, flush, removing); });
            add(subject, "floor", Timing::kLoop, [=](State& state) { changeFloor(state, flush); });
            if (flush) {
                add(subject, "sqlcipher", Timing::kEach,
                    [=](State& state) { changePeer(state, removing); });
            }
        }
    }

    add("SodSelect_alias", "ours", Timing::kLoop, selectAlias);
    add("SodSelect_alias", "floor", Timing::kLoop, selectAliasFloor);
    add("SodSelect_alias", "sqlcipher", Timing::kLoop, selectAliasPeer);
    add("SodSelect_alias", "prepared", Timing::kLoop, selectAliasPrepared);
    add("SodSelect_accessor", "ours", Timing::kLoop, selectAccessor);
    add("SodSelect_accessor", "floor", Timing::kLoop, selectAccessorFloor);
    addWalk("SodSelect_all", selectAll, &RowList::allRows);
    add("SodSelect_all", "sqlcipher", Timing::kLoop, selectAllPeer);
    addRetrieve("SodRetreiveAlias", &ZelKeymasterOperation::SodRetreiveAlias, &RowList::allNames);
    addRetrieve("SodRetreiveOther", &ZelKeymasterOperation::SodRetreiveOther, &RowList::allAliases);

    add("open_read_all", "ours", Timing::kEach, openAndRead);
    add("open_read_all", "floor", Timing::kEach, openAndReadFloor);
    add("open_read_all", "sqlcipher", Timing::kEach, openAndReadPeer);
    for (const bool decrypt : {false, true}) {
        const char* subject = decrypt ? "DBEncrypt.decrypt" : "DBEncrypt.encrypt";
        add(subject, "ours", Timing::kLoop, [=](State& state) { convert(state, decrypt, 0); });
        add(subject, "ours_4KiB", Timing::kLoop,
            [=](State& state) { convert(state, decrypt, kSmallUpdate); });
        add(subject, "floor", Timing::kLoop, [=](State& state) { convertFloor(state, decrypt); });
    }
}

}  // namespace bench
