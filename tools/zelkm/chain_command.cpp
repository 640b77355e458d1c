// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The command 'verify-chain'. The library decides whether a chain is valid, and returns one code
// for every refusal. This file then repeats the library's steps, to find the certificate that is at
// fault.

#include <openssl/err.h>
#include <openssl/x509_vfy.h>
#include <zelkeymaster_operation.h>

#include <algorithm>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>

#include "bytes.h"
#include "command_line.h"
#include "failure.h"
#include "files.h"
#include "output.h"
#include "pem.h"
#include "result_text.h"
#include "store_values.h"
#include "x509_handles.h"

namespace zelkm_tool {
namespace {

constexpr size_t kMinCertificates = 3;

struct VerifyChainOptions {
    std::vector<std::string> files;  // leaf first
    bool separate_first = false;     // element 0 is checked against the path's leaf only
    bool json = false;
};

struct Element {
    std::string der;
    std::string source;  // the file, and which of its certificates
};

std::vector<Element> readChain(const std::vector<std::string>& files) {
    std::vector<Element> chain;
    for (const std::string& file : files) {
        const std::vector<std::string> certificates = splitCertificates(readInput(file), file);
        if (certificates.empty()) {
            throw Refused(file + ": no certificate in it");
        }
        for (size_t i = 0; i < certificates.size(); ++i) {
            const bool several = certificates.size() > 1;
            chain.push_back(
                {certificates[i], several ? file + " #" + std::to_string(i + 1) : file});
        }
    }
    return chain;
}

X509Ptr parse(const std::string& der) {
    const auto* at = reinterpret_cast<const unsigned char*>(der.data());
    return X509Ptr(d2i_X509(nullptr, &at, static_cast<long>(der.size())));
}

std::string subjectOf(const X509Ptr& certificate) {
    const BioPtr bio(BIO_new(BIO_s_mem()));
    X509_NAME_print_ex(bio.get(), X509_get_subject_name(certificate.get()), 0, XN_FLAG_RFC2253);
    return bioText(bio);
}

std::string describe(const std::vector<Element>& chain, size_t index) {
    const X509Ptr certificate = parse(chain[index].der);
    return "certificate " + std::to_string(index + 1) + " (" + escape(chain[index].source) +
           (certificate ? ", subject \"" + escape(subjectOf(certificate)) + "\"" : "") + ")";
}

int acceptAnyDate(int ok, X509_STORE_CTX* context) {
    const int error = X509_STORE_CTX_get_error(context);
    return error == X509_V_ERR_CERT_NOT_YET_VALID || error == X509_V_ERR_CERT_HAS_EXPIRED ? 1 : ok;
}

// The reason why the path that begins at `first` does not verify; empty when it verifies.
std::string whyPathRefused(const std::vector<Element>& chain, size_t first) {
    std::vector<X509Ptr> certificates;
    const StackPtr untrusted(sk_X509_new_null());
    for (size_t i = 0; i < chain.size(); ++i) {
        certificates.push_back(parse(chain[i].der));
        if (i > first) {
            X509_up_ref(certificates[i].get());
            sk_X509_push(untrusted.get(), certificates[i].get());
        }
    }
    const StorePtr store(X509_STORE_new());
    const StoreContextPtr context(X509_STORE_CTX_new());
    X509_STORE_add_cert(store.get(), certificates.back().get());
    if (X509_STORE_CTX_init(context.get(), store.get(), certificates[first].get(),
                            untrusted.get()) != 1) {
        return "";
    }
    X509_STORE_CTX_set_verify_cb(context.get(), acceptAnyDate);
    if (X509_verify_cert(context.get()) == 1) {
        return "";
    }
    const X509* at_fault = X509_STORE_CTX_get_current_cert(context.get());
    const auto found = std::find_if(
        certificates.begin(), certificates.end(),
        [&](const X509Ptr& c) { return at_fault != nullptr && X509_cmp(c.get(), at_fault) == 0; });
    const std::string where =
        found == certificates.end()
            ? ""
            : describe(chain, static_cast<size_t>(found - certificates.begin())) + ": ";
    return where + X509_verify_cert_error_string(X509_STORE_CTX_get_error(context.get()));
}

std::string chainProblem(const std::vector<Element>& chain, bool separate_first) {
    if (chain.size() < kMinCertificates) {
        return std::to_string(chain.size()) + " certificates; a chain needs at least " +
               std::to_string(kMinCertificates);
    }
    for (size_t i = 0; i < chain.size(); ++i) {
        if (!parse(chain[i].der)) {
            return describe(chain, i) + ": not a DER certificate";
        }
    }
    const size_t first = separate_first ? 1 : 0;
    const std::string reason = whyPathRefused(chain, first);
    if (!reason.empty() || !separate_first) {
        return reason;
    }
    const PkeyPtr key(X509_get_pubkey(parse(chain[1].der).get()));
    if (!key) {
        return describe(chain, 1) + ": its public key cannot be used";
    }
    return X509_verify(parse(chain[0].der).get(), key.get()) == 1
               ? ""
               : describe(chain, 0) + ": not signed by " + describe(chain, 1);
}

void printChain(const std::vector<Element>& chain, int result, const std::string& reason) {
    nlohmann::ordered_json json = {{"valid", result == ZELKM_OK},
                                   {"result", result},
                                   {"problem", reason},
                                   {"certificates", nlohmann::ordered_json::array()}};
    for (const Element& element : chain) {
        const X509Ptr certificate = parse(element.der);
        json["certificates"].push_back(
            {{"source", escape(element.source)},
             {"subject", certificate ? escape(subjectOf(certificate)) : ""},
             {"sha256", hex(sha256(element.der))}});
    }
    std::cout << jsonText(json.dump(2)) << '\n';
}

void verifyChain(const VerifyChainOptions& options) {
    const std::vector<Element> chain = readChain(options.files);
    std::vector<android::hardware::hidl_vec<uint8_t>> ders;
    for (const Element& element : chain) {
        ders.push_back(toVec(element.der));
    }
    const int result = ZelKeymasterOperation::validateAttestChain(ders, !options.separate_first);
    const std::string reason =
        result == ZELKM_OK ? "" : chainProblem(chain, options.separate_first);
    ERR_clear_error();
    if (options.json) {
        printChain(chain, result, reason);
    }
    if (result != ZELKM_OK) {
        throw Refused((reason.empty() ? "chain refused" : reason) + "; " + resultText(result));
    }
    if (!options.json) {
        std::cout << "the certification path is valid from certificate "
                  << (options.separate_first ? 2 : 1) << " to the last one\n"
                  << "that one is NOT known to be trusted; compare it with your roots: "
                  << describe(chain, chain.size() - 1) << ", SHA-256 "
                  << hex(sha256(chain.back().der)) << '\n';
    }
}

}  // namespace

void defineVerifyChain(CLI::App& app) {
    auto options = std::make_shared<VerifyChainOptions>();
    CLI::App* command = app.add_subcommand("verify-chain", "Check an attestation chain");
    command->add_option("FILE", options->files, "Leaf first, root last; - is standard input")
        ->required()
        ->type_name("");
    command->add_flag("--separate-first", options->separate_first,
                      "The first is signed with the second's key, but not on the path");
    command->add_flag("--json", options->json, "Print JSON; valid does not mean trusted");
    command->footer(
        "Each file is PEM or DER and has one or more certificates; at least three are needed.\n"
        "Success does NOT mean trust: the last certificate is taken as the root, whoever made\n"
        "it, so compare it with the roots that you trust. Validity dates and revocation are\n"
        "deliberately not checked.");
    command->callback([options] { verifyChain(*options); });
}

}  // namespace zelkm_tool
