// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Runs the benchmarks on the current directory's file system:
//
//   zelkm_benchmarks [--aged-heap] [options of Google Benchmark]
//
// Each figure is best taken in a process of its own, as run.py does: only then is the heap known.

#include <openssl/crypto.h>
#include <sqlcipher/sqlite3.h>

#include <cstdio>
#include <cstring>
#include <exception>

#include "object_store.h"
#include "registrations.h"
#include "support.h"

namespace {

// Takes the option off the command line.
bool takeOption(const char* option, int* argc, char** argv) {
    if (*argc < 2 || std::strcmp(argv[1], option) != 0) {
        return false;
    }
    for (int i = 1; i < *argc; ++i) {
        argv[i] = argv[i + 1];
    }
    --*argc;
    return true;
}

int run(int argc, char** argv) {
    bench::silenceLog();
    const bench::WorkDirectory directory;
    if (takeOption("--aged-heap", &argc, argv)) {
        bench::ageHeap();
    }
    // Root key, database key and error file are there before anything is measured.
    {
        bench::ObjectStore first(bench::Sample(1));
    }

    bench::registerEngineBenchmarks();
    bench::registerObjectBenchmarks();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 2;
    }
    benchmark::AddCustomContext("compiler", __VERSION__);
    benchmark::AddCustomContext("openssl", OpenSSL_version(OPENSSL_VERSION_STRING));
    benchmark::AddCustomContext("sqlite", sqlite3_libversion());
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "benchmarks: %s\n", error.what());
        return 1;
    }
}
