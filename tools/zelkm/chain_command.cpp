// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The command 'verify-chain'. The library decides whether a chain is valid, and returns one code
// for every refusal. This file then repeats the library's steps, to find the certificate that is at
// fault.

#include <openssl/err.h>
#include <openssl/pem.h>
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
#include "openssl_handles.h"
#include "output.h"

namespace zelkm_tool {
namespace {

constexpr size_t kMinCertificates = 3;
constexpr char kPemStart[] = "-----BEGIN ";

using zelkm::EvpPkeyPtr;
using zelkm::OpenSslDeleter;
using zelkm::X509Ptr;
using zelkm::X509StoreCtxPtr;
using zelkm::X509StorePtr;
using BioPtr = std::unique_ptr<BIO, OpenSslDeleter<BIO_free>>;

struct OpenSslFree {
    void operator()(unsigned char* data) const { OPENSSL_free(data); }
};

struct VerifyChainOptions {
    std::vector<std::string> files;  // leaf first
    bool separate_first = false;     // element 0 is checked against the path's leaf only
    bool json = false;
};

struct Element {
    std::string der;
    X509Ptr certificate;  // null when that is no certificate
    std::string source;   // the file, and which of its certificates
    std::string subject;
    std::string title;  // what messages call it
};
using Chain = std::vector<Element>;

std::string subjectOf(const X509Ptr& certificate) {
    const BioPtr bio(BIO_new(BIO_s_mem()));
    X509_NAME_print_ex(bio.get(), X509_get_subject_name(certificate.get()), 0, XN_FLAG_RFC2253);
    char* text = nullptr;
    const long len = BIO_get_mem_data(bio.get(), &text);
    return escape({text, static_cast<size_t>(len)});
}

// The CERTIFICATE blocks of a PEM text.
std::vector<std::string> splitPem(const std::string& content, const std::string& name) {
    std::vector<std::string> ders;
    const BioPtr bio(BIO_new_mem_buf(content.data(), static_cast<int>(content.size())));
    unsigned char* data = nullptr;
    long len = 0;
    while (PEM_bytes_read_bio(&data, &len, nullptr, PEM_STRING_X509, bio.get(), nullptr, nullptr) ==
           1) {
        const std::unique_ptr<unsigned char, OpenSslFree> owner(data);
        ders.emplace_back(data, data + len);
    }
    if (ERR_GET_REASON(ERR_peek_last_error()) != PEM_R_NO_START_LINE) {
        const std::string_view read =
            std::string_view(content).substr(0, content.size() - BIO_ctrl_pending(bio.get()));
        size_t number = 0;
        for (size_t at = 0; (at = read.find(kPemStart, at)) != read.npos; ++at) {
            ++number;
        }
        throw Refused(name + ": PEM block " + std::to_string(number) + " is damaged");
    }
    return ders;
}

// DER certificates that stand one after the other. Bytes that are no DER become the last one.
std::vector<std::string> splitDer(const std::string& content) {
    std::vector<std::string> ders;
    const auto* at = reinterpret_cast<const unsigned char*>(content.data());
    const auto* const end = at + content.size();
    while (at != end) {
        const unsigned char* const start = at;
        if (!X509Ptr(d2i_X509(nullptr, &at, end - start))) {
            at = end;
        }
        ders.emplace_back(start, at);
    }
    return ders;
}

Chain readChain(const std::vector<std::string>& files) {
    Chain chain;
    for (const std::string& file : files) {
        const std::string content = readInput(file);
        const bool is_pem = content.find(kPemStart) != content.npos;
        const std::vector<std::string> ders = is_pem ? splitPem(content, file) : splitDer(content);
        if (ders.empty()) {
            throw Refused(file + ": no certificate in it");
        }
        for (size_t i = 0; i < ders.size(); ++i) {
            const auto* at = reinterpret_cast<const unsigned char*>(ders[i].data());
            X509Ptr certificate(d2i_X509(nullptr, &at, static_cast<long>(ders[i].size())));
            const std::string source =
                escape(ders.size() > 1 ? file + " #" + std::to_string(i + 1) : file);
            const std::string subject = certificate ? subjectOf(certificate) : "";
            const std::string title = "certificate " + std::to_string(chain.size() + 1) + " (" +
                                      source +
                                      (certificate ? ", subject \"" + subject + "\")" : ")");
            chain.push_back({ders[i], std::move(certificate), source, subject, title});
        }
    }
    ERR_clear_error();
    return chain;
}

int acceptAnyDate(int ok, X509_STORE_CTX* context) {
    const int error = X509_STORE_CTX_get_error(context);
    return error == X509_V_ERR_CERT_NOT_YET_VALID || error == X509_V_ERR_CERT_HAS_EXPIRED ? 1 : ok;
}

// The reason why the path that begins at `first` does not verify; empty when it verifies.
std::string pathProblem(const Chain& chain, size_t first) {
    const zelkm::X509StackPtr untrusted(sk_X509_new_null());
    for (size_t i = first + 1; i < chain.size(); ++i) {
        X509_up_ref(chain[i].certificate.get());
        sk_X509_push(untrusted.get(), chain[i].certificate.get());
    }
    const X509StorePtr store(X509_STORE_new());
    const X509StoreCtxPtr context(X509_STORE_CTX_new());
    X509_STORE_add_cert(store.get(), chain.back().certificate.get());
    if (X509_STORE_CTX_init(context.get(), store.get(), chain[first].certificate.get(),
                            untrusted.get()) != 1) {
        return "";
    }
    X509_STORE_CTX_set_verify_cb(context.get(), acceptAnyDate);
    if (X509_verify_cert(context.get()) == 1) {
        return "";
    }
    const X509* at_fault = X509_STORE_CTX_get_current_cert(context.get());
    const auto found = std::find_if(chain.begin(), chain.end(), [&](const Element& element) {
        return at_fault != nullptr && X509_cmp(element.certificate.get(), at_fault) == 0;
    });
    return (found == chain.end() ? "" : found->title + ": ") +
           X509_verify_cert_error_string(X509_STORE_CTX_get_error(context.get()));
}

std::string chainProblem(const Chain& chain, bool separate_first) {
    if (chain.size() < kMinCertificates) {
        return std::to_string(chain.size()) + " certificates; a chain needs at least " +
               std::to_string(kMinCertificates);
    }
    for (const Element& element : chain) {
        if (!element.certificate) {
            return element.title + ": not a DER certificate";
        }
    }
    const std::string reason = pathProblem(chain, separate_first ? 1 : 0);
    if (!reason.empty() || !separate_first) {
        return reason;
    }
    const EvpPkeyPtr key(X509_get_pubkey(chain[1].certificate.get()));
    if (!key) {
        return chain[1].title + ": its public key cannot be used";
    }
    return X509_verify(chain[0].certificate.get(), key.get()) == 1
               ? ""
               : chain[0].title + ": not signed by " + chain[1].title;
}

void verifyChain(const SessionOptions&, const VerifyChainOptions& options) {
    const Chain chain = readChain(options.files);
    auto certificates = nlohmann::ordered_json::array();
    std::vector<android::hardware::hidl_vec<uint8_t>> ders;
    for (const Element& element : chain) {
        ders.push_back(toVec(element.der));
        certificates.push_back({{"source", element.source},
                                {"subject", element.subject},
                                {"sha256", hex(sha256(element.der))}});
    }
    const int result = ZelKeymasterOperation::validateAttestChain(ders, !options.separate_first);
    const bool valid = result == ZELKM_OK;
    const std::string reason = valid ? "" : chainProblem(chain, options.separate_first);
    ERR_clear_error();
    if (options.json) {
        const nlohmann::ordered_json json = {{"valid", valid},
                                             {"result", result},
                                             {"problem", reason},
                                             {"certificates", certificates}};
        std::cout << jsonText(json.dump(2)) << '\n';
    }
    if (!valid) {
        throw Refused((reason.empty() ? "chain refused" : reason) + "; " + resultText(result));
    }
    if (!options.json) {
        std::cout << "the certification path is valid from certificate "
                  << (options.separate_first ? 2 : 1) << " to the last one\n"
                  << "that one is NOT known to be trusted; compare it with your roots: "
                  << chain.back().title << ", SHA-256 " << hex(sha256(chain.back().der)) << '\n';
    }
}

}  // namespace

void defineVerifyChain(CLI::App& app, const SessionOptions& session) {
    const auto [command, options] =
        addCommand(app, session, "verify-chain", "Check an attestation chain", verifyChain);
    addOption(command, "FILE", options.files, "", "Leaf first, root last; - is standard input")
        ->required();
    command.add_flag("--separate-first", options.separate_first,
                     "The second signed the first, which is off the path");
    command.add_flag("--json", options.json, "Print JSON; valid does not mean trusted");
    command.footer(R"(Each file is PEM or DER and has one or more certificates; at least three are
needed. Success does NOT mean trust: the last certificate is taken as the root,
whoever made it, so compare it with the roots that you trust. Validity dates and
revocation are deliberately not checked.)");
}

}  // namespace zelkm_tool
