// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The store engine without encryption ("plain") and with AES-256-GCM ("gcm"), each operation beside
// its floor.

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "db_store_format.h"
#include "malloc_buffer.h"
#include "reference.h"
#include "sample_rows.h"
#include "support.h"
#include "velt_secure_db.h"

namespace bench {
namespace {

constexpr char kSelectAll[] = "SELECT (ALIAS,CREATOR,ADMIN,ACCESSOR,CREATOR_UID,PRIV_ACC)";

std::string quoted(const std::string& value) {
    return '\x1F' + value + '\x1F';
}

// Absent values are left out.
std::string insertText(const Row& row) {
    std::string columns;
    std::string values;
    for (size_t i = 0; i < row.size(); ++i) {
        if (!row[i].empty()) {
            const char* separator = columns.empty() ? "" : ",";
            columns += separator + std::string(column_schema[i].name);
            values += separator + quoted(row[i]);
        }
    }
    return "INSERT (" + columns + ") VALUE (" + values + ")";
}

std::string deleteText(const Row& row) {
    return "DELETE WHERE ALIAS=" + quoted(row[0]);
}

std::string selectAliasText(const Row& row) {
    return std::string(kSelectAll) + " WHERE ALIAS=" + quoted(row[0]);
}

struct Result {
    zelkm::MallocBuffer data;
    unsigned int len = 0;

    std::string text() const { return {reinterpret_cast<const char*>(data.get()), len}; }
};

// The engine, of which a process has one, with a sample loaded.
class Engine {
  public:
    Engine(const Sample& sample, bool encrypted) : image_(sample.image) {
        mergeFreeBlocks();
        sdb_register_db_encrypt_fp(&cipher_, encrypted ? Cipher::callback : nullptr);
        load();
        if (encrypted) {
            choose(sample.extra);
            insert();
            remove();
            image_ = std::exchange(result_, {}).text();
            load();
        }
        check(all() == sample.payload, "sample");
    }
    ~Engine() {
        clear();
        sdb_register_db_encrypt_fp(nullptr, nullptr);
    }
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;

    // Loads the image, and no more: the text is then refused.
    void load() {
        handle_ = 0;
        const int status =
            sdb_query("-", 1, reinterpret_cast<const unsigned char*>(image_.data()),
                      static_cast<unsigned int>(image_.size()), nullptr, nullptr, &handle_);
        check(status == ZELKM_SYNTAX_ERROR && handle_ != 0, "load");
    }

    void clear() {
        handle_ = 0;
        query(kSelectAll);
    }

    Result query(const std::string& text) {
        Result result;
        unsigned char* data = nullptr;
        check(sdb_query(text.data(), static_cast<unsigned int>(text.size()), nullptr, 0, &data,
                        &result.len, &handle_) == ZELKM_OK,
              text.c_str());
        result.data.reset(data);
        return result;
    }

    std::string all() { return query(kSelectAll).text(); }

    // The row that insert() and remove() take.
    void choose(const Row& row) {
        insert_ = insertText(row);
        remove_ = deleteText(row);
    }
    void insert() { change(insert_); }
    void remove() { change(remove_); }

    size_t count() {
        const std::string rows = all();
        check(result_.len == zelkm::kHeaderLen + rows.size(), "image");
        return static_cast<size_t>(std::count(rows.begin(), rows.end(), kRowEnd));
    }

  private:
    void change(const std::string& text) {
        result_ = {};  // so that one image's memory serves all
        result_ = query(text);
    }

    Cipher cipher_;
    std::string image_;
    uint64_t handle_ = 0;
    std::string insert_;
    std::string remove_;
    Result result_;  // of the last change
};

// The floor of whatever makes a new store image.
class ImageFloor {
  public:
    ImageFloor(const Sample& sample, bool encrypted)
        : payload_(sample.payload), encrypted_(encrypted), image_(sample.payload.size()) {}

    void run() {
        std::memcpy(image_.data(), payload_.data(), payload_.size());
        if (encrypted_) {
            cipher_.encrypt(image_.data(), image_.size(), image_.data(), iv_, tag_);
        }
        benchmark::DoNotOptimize(image_.data());
        benchmark::ClobberMemory();
    }

  private:
    const std::string& payload_;
    const bool encrypted_;
    Cipher cipher_;
    std::vector<uint8_t> image_;
    uint8_t iv_[SDB_IV_LEN];
    uint8_t tag_[SDB_TAG_LEN];
};

// ---- Load ---------------------------------------------------------------------------------------

void load(State& state, bool encrypted) {
    keepPages();
    const Sample sample = sampleOf(state);
    Engine engine(sample, encrypted);
    timeEach(
        state,
        [&] {
            engine.clear();
            mergeFreeBlocks();
        },
        [&] { engine.load(); }, [] {});
    check(engine.all() == sample.payload, "loaded rows");
}

void loadFloor(State& state, bool encrypted) {
    keepPages();
    const Sample sample = sampleOf(state);
    Message message(sample);
    message.encrypt();
    RowList rows(sample);
    timeEach(
        state,
        [&] {
            rows.clear();
            mergeFreeBlocks();
        },
        [&] {
            if (!encrypted) {
                rows.load(message.plain.data());
                return;
            }
            const zelkm::MallocBuffer plain = zelkm::allocateBuffer(message.sealed.size());
            message.decrypt(plain.get());
            rows.load(plain.get());
        },
        [] {});
    Texts texts;
    rows.allRows(&texts);
    check(texts == sample.texts(), "loaded rows");
}

void release(State& state, bool encrypted) {
    const Sample sample = sampleOf(state);
    Engine engine(sample, encrypted);
    const auto load = [&] { engine.load(); };
    const auto clear = [&] { engine.clear(); };
    timeEach(state, load, clear, [] {});
    check(engine.all() == std::string(1, '\0'), "rows");
}

void releaseFloor(State& state, bool /*encrypted*/) {
    const Sample sample = sampleOf(state);
    RowList rows(sample);
    const auto load = [&] { rows.load(bytesOf(sample.payload)); };
    const auto clear = [&] { rows.clear(); };
    timeEach(state, load, clear, [] {});
}

// ---- Changes ------------------------------------------------------------------------------------

void change(State& state, bool encrypted, bool removing) {
    const Sample sample = sampleOf(state);
    Engine engine(sample, encrypted);
    timeChanges(state, sample, engine, removing);
}

void imageFloor(State& state, bool encrypted) {
    const Sample sample = sampleOf(state);
    ImageFloor image(sample, encrypted);
    for ([[maybe_unused]] auto _ : state) {
        image.run();
    }
}

void removeFloor(State& state, bool encrypted) {
    const Sample sample = sampleOf(state);
    ImageFloor image(sample, encrypted);
    const RowList rows(sample);
    uint64_t step = 0;
    Texts found;
    for ([[maybe_unused]] auto _ : state) {
        found.clear();
        rows.findAlias(sample.rows[sample.pick(step++)][0], &found);
        image.run();
    }
    check(!found.empty(), "row");
}

// ---- Selects ------------------------------------------------------------------------------------

void selectAlias(State& state, bool encrypted) {
    const Sample sample = sampleOf(state);
    Engine engine(sample, encrypted);
    Texts texts;
    for (uint64_t step = 0; step < kProbes; ++step) {
        const Row& row = sample.rows[sample.pick(step)];
        texts.push_back(selectAliasText(row));
        check(engine.query(texts.back()).text() == encodeRow(row) + kRowEnd + '\0', "selection");
    }
    size_t next = 0;
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(engine.query(texts[next++ % kProbes]).data.get());
    }
}

void selectAccessor(State& state, bool encrypted) {
    const Sample sample = sampleOf(state);
    Engine engine(sample, encrypted);
    const std::string text = std::string(kSelectAll) + " WHERE ACCESSOR=" + quoted(kAccessor);
    Texts found;
    RowList(sample).findAccessor(kAccessorNumber, &found);
    std::string expected;
    for (const std::string& row : found) {
        expected += row + kRowEnd;
    }
    check(engine.query(text).text() == expected + '\0', "selection");
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(engine.query(text).data.get());
    }
}

void selectAll(State& state, bool encrypted) {
    const Sample sample = sampleOf(state);
    Engine engine(sample, encrypted);
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(engine.query(kSelectAll).data.get());
    }
}

// A walk over the rows that writes the same text.
void textFloor(State& state, bool /*encrypted*/) {
    const Sample sample = sampleOf(state);
    const RowList rows(sample);
    const auto write = [&] {
        zelkm::MallocBuffer text = zelkm::allocateBuffer(sample.payload.size());
        rows.write(text.get());
        return text;
    };
    check(std::memcmp(write().get(), sample.payload.data(), sample.payload.size()) == 0, "text");
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(write().get());
    }
}

// ---- Export -------------------------------------------------------------------------------------

// An update of no row: its one condition is refused without a look at the rows' values.
void exportImage(State& state, bool encrypted) {
    const Sample sample = sampleOf(state);
    Engine engine(sample, encrypted);
    db_parsed_tokens_t none = {};
    none.count = 1;
    db_parsed_where_set_t never = {};
    never.count = 1;
    never.where[0].op = SDB_OP_LESS;
    unsigned int len = 0;
    for ([[maybe_unused]] auto _ : state) {
        db_bytes_t image = {};
        check(command_handler[SDB_UPDATE](&none, &none, &never, &image) == ZELKM_OK, "export");
        len = image.len;
        const zelkm::MallocBuffer owner(image.data);
    }
    check(len == sample.image.size(), "image");
}

struct Operation {
    const char* name;
    bool both;  // a figure with encryption as well
    Timing timing;
    void (*run)(State&, bool encrypted);
    Timing floor_timing;
    void (*floor)(State&, bool encrypted);
};

constexpr Operation kOperations[] = {
    {"load", true, Timing::kEach, load, Timing::kEach, loadFloor},
    {"release", false, Timing::kEach, release, Timing::kEach, releaseFloor},
    {"insert", true, Timing::kEach,
     [](State& state, bool encrypted) { change(state, encrypted, false); }, Timing::kLoop,
     imageFloor},
    {"delete", true, Timing::kEach,
     [](State& state, bool encrypted) { change(state, encrypted, true); }, Timing::kLoop,
     removeFloor},
    {"select_alias", false, Timing::kLoop, selectAlias, Timing::kLoop,
     [](State& state, bool /*encrypted*/) { selectAliasFloor(state); }},
    {"select_accessor", false, Timing::kLoop, selectAccessor, Timing::kLoop,
     [](State& state, bool /*encrypted*/) { selectAccessorFloor(state); }},
    {"select_all", false, Timing::kLoop, selectAll, Timing::kLoop, textFloor},
    {"export", true, Timing::kLoop, exportImage, Timing::kLoop, imageFloor},
};

}  // namespace

void addEngineBenchmarks() {
    for (const Operation& operation : kOperations) {
        for (const bool encrypted : {false, true}) {
            if (encrypted && !operation.both) {
                continue;
            }
            const std::string subject =
                std::string("engine_") + operation.name + (encrypted ? ".gcm" : ".plain");
            add(subject, "ours", operation.timing,
                [=](State& state) { operation.run(state, encrypted); });
            add(subject, "floor", operation.floor_timing,
                [=](State& state) { operation.floor(state, encrypted); });
        }
    }
}

}  // namespace bench
