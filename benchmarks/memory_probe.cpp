// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Prints, as JSON, how far the resident memory of a process grows at most while it loads a store of
// so many rows, changes it, and reads all of it:
//
//   zelkm_memory_probe ROWS
//
// The keymaster takes 4 KiB at a time: on a device its memory would not be this process's.

#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <string>

#include "object_store.h"
#include "support.h"
#include "velt_secure_db.h"

namespace {

using namespace bench;

constexpr size_t kSmallUpdate = 4096;

// A figure of /proc/self/status, in bytes.
size_t statusBytes(const std::string& name) {
    std::ifstream status("/proc/self/status");
    std::string word;
    size_t kilobytes = 0;
    while (status >> word) {
        if (word == name + ":" && status >> kilobytes) {
            return kilobytes * 1024;
        }
    }
    throw std::runtime_error(name);
}

// Measures the highest growth since it was made.
class Peak {
  public:
    Peak() {
        std::ofstream("/proc/self/clear_refs") << "5";  // lowers VmHWM to the present size
        before_ = statusBytes("VmRSS");
    }
    size_t growth() const { return statusBytes("VmHWM") - before_; }

  private:
    size_t before_;
};

// The store is written by a child, whose heap then goes away.
void writeStore(size_t rows) {
    const pid_t child = fork();
    if (child == 0) {
        int status = 1;
        try {
            const ObjectStore store{Sample(rows)};
            status = 0;
        } catch (const std::exception& error) {
            std::fprintf(stderr, "memory probe: %s\n", error.what());
        }
        std::_Exit(status);
    }
    int status = 0;
    check(waitpid(child, &status, 0) == child && status == 0, "write the store");
}

// Size of a block and what the allocator needs beyond it.
struct BlockCost {
    size_t requested = 0;
    size_t overhead = 0;

    void add(size_t len) {
        void* block = std::malloc(len);
        requested += len;
        overhead += malloc_usable_size(block) + sizeof(size_t) - len;
        std::free(block);
    }
};

void probe(size_t rows) {
    const Sample one(1);
    (void)ObjectStore(one, kSmallUpdate);  // code and libraries become resident
    writeStore(rows);
    BareKeymaster keymaster(kSmallUpdate);
    SODOperationParam find = aliasParam(one.rows[0]);
    SODOperationParam row = rowParam(one.extra);
    SODOperationParam everything;
    readAllColumns(everything);
    Texts texts;

    const Peak peak;
    ZelKeymasterOperation object(&keymaster, true);
    check(object.SodSelect(readAllColumns(find), texts) == ZELKM_OK && texts.size() == 2, "load");
    const size_t load = peak.growth();
    check(object.SodInsert(row) == ZELKM_OK, "insert");
    const size_t insert = peak.growth();
    texts.clear();
    check(object.SodSelect(everything, texts) == ZELKM_OK && texts.size() == rows + 2, "read all");
    const size_t read_all = peak.growth();

    BlockCost cost;
    for (const Row& each : Sample(rows).rows) {
        cost.add(sizeof(db_row));
        for (const std::string& value : each) {
            if (!value.empty()) {
                cost.add(value.size());
            }
        }
    }
    std::printf(
        "{\"rows\": %zu, \"store\": %zu, \"load\": %zu, \"insert\": %zu, \"read_all\": %zu,"
        " \"blocks\": %zu, \"allocator\": %zu}\n",
        rows, static_cast<size_t>(std::filesystem::file_size(kStoreFile)), load, insert, read_all,
        cost.requested, cost.overhead);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: zelkm_memory_probe ROWS\n");
        return 2;
    }
    return runApart([&] { probe(std::stoul(argv[1])); });
}
