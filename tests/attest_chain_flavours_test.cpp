// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Each flavour of libcrypto takes the odd chains that the page for integrators says. The chains are
// kept in a file, since only OpenSSL can make them all. With OpenSSL they are also made anew, and
// ZELKM_WRITE_CHAINS=FILE writes them.

#include <cstdlib>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include "log_capture.h"
#include "odd_chains.h"
#include "zelkeymaster_operation.h"

namespace {

using android::hardware::hidl_vec;
using test::Chain;
using NamedChains = std::vector<std::pair<std::string, Chain>>;

constexpr char kFile[] = ZELKM_TEST_DATA_DIR "/odd_chains.txt";

bool accepts(const Chain& chain) {
    test::clearLog();
    return ZelKeymasterOperation::validateAttestChain(chain, true) == 0;
}

// A chain is a line with its name, and a line with each certificate in base64. "=3" is the third
// certificate of the file once more.
[[maybe_unused]] void write(const NamedChains& chains, const std::string& path) {
    std::ofstream out(path);
    std::map<std::string, size_t> written;
    for (const auto& [name, chain] : chains) {
        out << name << "\n";
        for (const hidl_vec<uint8_t>& der : chain) {
            std::string text(4 * (der.size() / 3 + 1) + 1, '\0');
            text.resize(size_t(EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                                               der.data(), int(der.size()))));
            const auto [found, is_new] = written.emplace(text, written.size() + 1);
            out << "  " << (is_new ? text : "=" + std::to_string(found->second)) << "\n";
        }
    }
}

NamedChains read(const std::string& path) {
    std::ifstream in(path);
    std::vector<std::pair<std::string, std::vector<hidl_vec<uint8_t>>>> chains;
    std::vector<hidl_vec<uint8_t>> distinct;
    for (std::string line; std::getline(in, line);) {
        if (line[0] != ' ') {
            chains.push_back({line, {}});
            continue;
        }
        if (line[2] != '=') {
            std::vector<uint8_t> der(line.size());
            const int len =
                EVP_DecodeBlock(der.data(), reinterpret_cast<const unsigned char*>(line.data()) + 2,
                                int(line.size()) - 2);
            // Padding counts as bytes.
            const size_t end = line.find_last_not_of('=') + 1;
            der.resize(size_t(len) - (line.size() - end));
            distinct.push_back(der);
            chains.back().second.push_back(distinct.back());
        } else {
            chains.back().second.push_back(distinct.at(std::stoul(line.substr(3)) - 1));
        }
    }
    return NamedChains(chains.begin(), chains.end());
}

struct Verdict {
    bool openssl, boringssl;
    const char* chains;  // "name/*": changed in each of the three places
};

constexpr Verdict kVerdicts[] = {
    {true, true,
     "good p224 p384 p521 ed25519 ecdsa_sha1 ecdsa_null_parameters rsa1024 rsa_md5 rsa_sha1 "
     "rsa_sha224 rsa_sha256 rsa_sha512 rsa_no_parameters rsa_pss issuer_in_another_case shuffled "
     "with_a_stranger v1/leaf v1/root no_basic_constraints/leaf not_a_ca/leaf unknown_extension/* "
     "no_certificate_signing/leaf foreign_authority_key_id/* negative_serial/* "
     "generalized_time_before_2050/* long_form_of_length/*"},
    {false, false,
     "root_not_self_signed v1/intermediate no_basic_constraints/intermediate "
     "not_a_ca/intermediate unknown_critical_extension/leaf "
     "unknown_critical_extension/intermediate no_certificate_signing/intermediate "
     "no_certificate_signing/root extension_twice/* malformed_key_usage/* no_seconds/* "
     "time_with_offset/* key_off_its_curve/intermediate key_off_its_curve/root"},
    {true, false,
     "secp256k1 brainpool ed448 dsa_sha1 dsa_sha256 dsa_sha1_old_oid rsa_sha1_old_oid "
     "rsa_ripemd160 rsa_sha3 v1_with_extensions/* v2_with_extensions/* v4/* indefinite_length/*"},
    {false, true,
     "longer_than_the_root_allows no_basic_constraints/root not_a_ca/root "
     "unknown_critical_extension/root key_off_its_curve/leaf"},
};

std::set<std::string> expanded(const std::string& chains) {
    std::set<std::string> names;
    std::istringstream in(chains);
    for (std::string name; in >> name;) {
        if (name.back() != '*') {
            names.insert(name);
            continue;
        }
        for (const char* place : {"leaf", "intermediate", "root"}) {
            names.insert(name.substr(0, name.size() - 1) + place);
        }
    }
    return names;
}

void expectVerdicts(const NamedChains& chains) {
    std::map<std::string, bool> expected;
    for (const Verdict& verdict : kVerdicts) {
        for (const std::string& name : expanded(verdict.chains)) {
#ifdef OPENSSL_IS_BORINGSSL
            expected[name] = verdict.boringssl;
#else
            expected[name] = verdict.openssl;
#endif
        }
    }
    std::map<std::string, bool> found;
    for (const auto& [name, chain] : chains) {
        found[name] = accepts(chain);
    }
    EXPECT_EQ(expected, found);
}

TEST(ChainFlavours, EachKeptChain) {
    expectVerdicts(read(kFile));
}

#ifndef OPENSSL_IS_BORINGSSL
TEST(ChainFlavours, EachChainMadeAnew) {
    const NamedChains chains = test::oddChains();
    expectVerdicts(chains);
    if (const char* path = std::getenv("ZELKM_WRITE_CHAINS")) {
        write(chains, path);
    }
}
#endif

// Rows "| `name` … | what is odd | flavour |" of the table, and of no other.
TEST(ChainFlavours, PageNamesEachDifference) {
    std::ifstream in(ZELKM_DOCS_DIR "/password-and-attestation.md");
    std::map<std::string, std::string> accepted;  // by flavour
    bool in_section = false;
    for (std::string line; std::getline(in, line);) {
        in_section =
            line.rfind("## ", 0) == 0 ? line == "## Which certificates are taken" : in_section;
        if (!in_section || line.rfind("| `", 0) != 0) {
            continue;
        }
        const size_t what = line.find('|', 1);
        const size_t flavour = line.find('|', what + 1);
        ASSERT_NE(std::string::npos, flavour) << line;
        std::string names = line.substr(1, what - 1);
        std::replace_if(
            names.begin(), names.end(), [](char c) { return c == '`' || c == ','; }, ' ');
        accepted[line.substr(flavour)] += names;
    }
    const auto expect = [&](const char* flavour, const Verdict& verdict) {
        EXPECT_EQ(expanded(verdict.chains), expanded(accepted[flavour]));
    };
    expect("| OpenSSL |", kVerdicts[2]);
    expect("| BoringSSL |", kVerdicts[3]);
    EXPECT_EQ(2u, accepted.size());
}

}  // namespace
