// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Each flavour of libcrypto takes the odd chains that the page for integrators says. The chains are
// kept in a file, since only OpenSSL could make them all.

#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "zelkeymaster_operation.h"

namespace {

using android::hardware::hidl_vec;

struct KeptChain {
    std::string accepted_by;  // "OpenSSL", "BoringSSL", "both" or "neither"
    std::vector<hidl_vec<uint8_t>> certificates;
};

// A chain is a line with its name and who accepts it, and a line with each certificate in base64.
// "=3" is the third certificate of the file once more.
std::map<std::string, KeptChain> keptChains() {
    std::ifstream in(ZELKM_TEST_DATA_DIR "/odd_chains.txt");
    std::map<std::string, KeptChain> chains;
    std::vector<hidl_vec<uint8_t>> distinct;
    KeptChain* chain = nullptr;
    for (std::string line; std::getline(in, line);) {
        if (line[0] != ' ') {
            const size_t space = line.find(' ');
            chain = &chains[line.substr(0, space)];
            chain->accepted_by = line.substr(space + 1);
        } else if (line[2] == '=') {
            chain->certificates.push_back(distinct.at(std::stoul(line.substr(3)) - 1));
        } else {
            std::vector<uint8_t> der(line.size());
            const int len =
                EVP_DecodeBlock(der.data(), reinterpret_cast<const unsigned char*>(line.data()) + 2,
                                int(line.size()) - 2);
            // Padding counts as bytes.
            der.resize(size_t(len) - (line.size() - 1 - line.find_last_not_of('=')));
            chain->certificates.push_back(distinct.emplace_back(der));
        }
    }
    return chains;
}

TEST(ChainFlavours, EachKeptChain) {
#ifdef OPENSSL_IS_BORINGSSL
    const std::string flavour = "BoringSSL";
#else
    const std::string flavour = "OpenSSL";
#endif
    const std::map<std::string, KeptChain> chains = keptChains();
    EXPECT_LT(80u, chains.size());
    for (const auto& [name, chain] : chains) {
        EXPECT_EQ(chain.accepted_by == "both" || chain.accepted_by == flavour,
                  ZelKeymasterOperation::validateAttestChain(chain.certificates, true) == 0)
            << name;
    }
}

// In rows "| `name`, `name/*` | what is odd | flavour |"; "name/*" is a change of each certificate.
TEST(ChainFlavours, PageNamesEachDifference) {
    std::ifstream in(ZELKM_DOCS_DIR "/password-and-attestation.md");
    std::vector<std::string> rows;
    for (std::string line; std::getline(in, line);) {
        rows.push_back(line);
    }
    for (const auto& [name, chain] : keptChains()) {
        const bool differs = chain.accepted_by != "both" && chain.accepted_by != "neither";
        const std::string end = " | " + chain.accepted_by + " |";
        const std::string all = "`" + name.substr(0, name.find('/')) + "/*`";
        const std::string one = "`" + name + "`";
        EXPECT_EQ(differs,
                  std::any_of(rows.begin(), rows.end(),
                              [&](const std::string& row) {
                                  const size_t names_end = row.find(" | ");
                                  return row.rfind("| `", 0) == 0 &&
                                         (!differs || row.rfind(end) + end.size() == row.size()) &&
                                         (row.find(one) < names_end || row.find(all) < names_end);
                              }))
            << name;
    }
}

}  // namespace
