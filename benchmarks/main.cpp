// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Runs the benchmarks on the current directory's file system:
//
//   zelkm_benchmarks [--aged-heap] [options of Google Benchmark]
//
// Each figure is best taken in a process of its own, as run.py does: only then is the heap known.

#include <openssl/crypto.h>
#include <sqlcipher/sqlite3.h>

#include <string_view>

#include "object_store.h"
#include "support.h"

namespace {

void run(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);  // takes its options off
    if (argc == 2 && argv[1] == std::string_view("--aged-heap")) {
        bench::ageHeap();
    } else {
        bench::check(!benchmark::ReportUnrecognizedArguments(argc, argv), "arguments");
    }
    // Root key, database key and error file are there before anything is measured.
    const bench::Sample one(1);
    (void)bench::ObjectStore(one);

    bench::addEngineBenchmarks();
    bench::addObjectBenchmarks();
    benchmark::AddCustomContext("compiler", __VERSION__);
    benchmark::AddCustomContext("openssl", OpenSSL_version(OPENSSL_VERSION_STRING));
    benchmark::AddCustomContext("sqlite", sqlite3_libversion());
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
}

}  // namespace

int main(int argc, char** argv) {
    return bench::runApart([&] { run(argc, argv); });
}
