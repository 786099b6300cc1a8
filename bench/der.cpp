// Reading and writing of certificates, against libcrypto and GnuTLS, over the same octets in the same run.
#include <benchmark/benchmark.h>
#include <gnutls/x509.h>
#include <openssl/evp.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <memory>

#include "asn/x509/signed_certificate.h"

namespace {

using crv::Bytes;
using crv::ByteView;

constexpr size_t kCertificates = 10000;

struct Free {
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
    void operator()(X509* cert) const { X509_free(cert); }
    void operator()(X509_EXTENSION* extension) const { X509_EXTENSION_free(extension); }
};

void addExtension(X509* cert, int nid, const char* value) {
    X509V3_CTX ctx;
    X509V3_set_ctx(&ctx, cert, cert, nullptr, nullptr, 0);
    const std::unique_ptr<X509_EXTENSION, Free> extension(X509V3_EXT_conf_nid(nullptr, &ctx, nid, value));
    X509_add_ext(cert, extension.get(), -1);
}

/// A certificate such as a commercial authority gives to a person: RSA 2048, names of six attributes, nine extensions.
Bytes makeCertificate() {
    const std::unique_ptr<EVP_PKEY, Free> key(EVP_PKEY_Q_keygen(nullptr, nullptr, "RSA", size_t{2048}));
    const std::unique_ptr<X509, Free> cert(X509_new());
    X509_set_version(cert.get(), 2);
    ASN1_INTEGER_set_uint64(X509_get_serialNumber(cert.get()), 0x4142434445464748);
    X509_gmtime_adj(X509_getm_notBefore(cert.get()), 0);
    X509_gmtime_adj(X509_getm_notAfter(cert.get()), 86400L * 730);
    X509_set_pubkey(cert.get(), key.get());
    X509_NAME* name = X509_get_subject_name(cert.get());
    const std::pair<const char*, const char*> kAttributes[] = {{"C", "PL"},
                                                               {"O", "Przykladowa Firma Sp. z o.o."},
                                                               {"OU", "Dzial Bezpieczenstwa"},
                                                               {"GN", "Jan"},
                                                               {"SN", "Kowalski-Nowak"},
                                                               {"serialNumber", "PNOPL-80010112345"},
                                                               {"CN", "Jan Kowalski-Nowak"}};
    for (const auto& [type, value] : kAttributes)
        X509_NAME_add_entry_by_txt(name, type, MBSTRING_UTF8, reinterpret_cast<const uint8_t*>(value), -1, -1, 0);
    X509_set_issuer_name(cert.get(), name);
    addExtension(cert.get(), NID_basic_constraints, "critical,CA:FALSE");
    addExtension(cert.get(), NID_subject_key_identifier, "hash");
    addExtension(cert.get(), NID_authority_key_identifier, "keyid");
    addExtension(cert.get(), NID_key_usage, "critical,digitalSignature,nonRepudiation");
    addExtension(cert.get(), NID_ext_key_usage, "clientAuth,emailProtection");
    addExtension(cert.get(), NID_subject_alt_name, "email:jan@example.org,URI:http://example.org/jan");
    addExtension(cert.get(), NID_certificate_policies, "1.3.6.1.4.1.32473.1.2.3");
    addExtension(cert.get(), NID_crl_distribution_points, "URI:http://crl.example.org/ca.crl");
    addExtension(cert.get(), NID_info_access,
                 "OCSP;URI:http://ocsp.example.org,caIssuers;URI:http://example.org/ca.cer");
    X509_sign(cert.get(), key.get(), EVP_sha256());
    uint8_t* der = nullptr;
    const int length = i2d_X509(cert.get(), &der);
    Bytes out(der, der + length);
    OPENSSL_free(der);
    return out;
}

/// Certificates that differ in their serial numbers.
const std::vector<Bytes>& certificates() {
    static const std::vector<Bytes> kAll = [] {
        const Bytes model = makeCertificate();
        const Bytes serial = {0x41, 0x42, 0x43, 0x44, 0x45, 0x46, 0x47, 0x48};
        const auto at = std::ranges::search(model, serial).begin() - model.begin();
        std::vector<Bytes> all(kCertificates, model);
        for (size_t i = 0; i < all.size(); ++i)
            for (size_t k = 0; k < 4; ++k) all[i][static_cast<size_t>(at) + 4 + k] = static_cast<uint8_t>(i >> (8 * k));
        return all;
    }();
    return kAll;
}

void finish(benchmark::State& state) {
    const auto rounds = static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(kCertificates);
    state.SetItemsProcessed(rounds);
    state.SetBytesProcessed(rounds * static_cast<int64_t>(certificates()[0].size()));
}

void readOurs(benchmark::State& state) {
    for (auto _ : state) {
        for (const Bytes& der : certificates()) {
            crv::SignedCertificate cert;
            if (!cert.readExactly(der, crv::ASN_FLAG_CONST)) state.SkipWithError("unreadable");
            benchmark::DoNotOptimize(cert);
        }
    }
    finish(state);
}

void readOursCopying(benchmark::State& state) {
    for (auto _ : state) {
        for (const Bytes& der : certificates()) {
            crv::SignedCertificate cert;
            if (!cert.readExactly(der, crv::ASN_FLAG_CONST | crv::ASN_FLAG_COPY)) state.SkipWithError("unreadable");
            benchmark::DoNotOptimize(cert);
        }
    }
    finish(state);
}

void readLibcrypto(benchmark::State& state) {
    for (auto _ : state) {
        for (const Bytes& der : certificates()) {
            const uint8_t* at = der.data();
            const std::unique_ptr<X509, Free> cert(d2i_X509(nullptr, &at, static_cast<long>(der.size())));
            if (!cert) state.SkipWithError("unreadable");
        }
    }
    finish(state);
}

void readGnutls(benchmark::State& state) {
    for (auto _ : state) {
        for (const Bytes& der : certificates()) {
            gnutls_x509_crt_t cert = nullptr;
            gnutls_x509_crt_init(&cert);
            const gnutls_datum_t datum = {const_cast<uint8_t*>(der.data()), static_cast<unsigned>(der.size())};
            if (gnutls_x509_crt_import(cert, &datum, GNUTLS_X509_FMT_DER) < 0) state.SkipWithError("unreadable");
            gnutls_x509_crt_deinit(cert);
        }
    }
    finish(state);
}

/// Encodes one object again and again; `changeable` has no kept encoding to copy from.
void writeOurs(benchmark::State& state, bool changeable) {
    crv::SignedCertificate cert;
    if (!cert.readExactly(certificates()[0], changeable ? 0 : crv::ASN_FLAG_CONST)) state.SkipWithError("unreadable");
    Bytes out;
    for (auto _ : state) {
        for (size_t i = 0; i < kCertificates; ++i) {
            out.clear();
            if (!cert.writeToVector(out)) state.SkipWithError("unwritable");
            benchmark::DoNotOptimize(out.data());
        }
    }
    finish(state);
}

/// `changeable`: the signed part alone, which libcrypto would otherwise copy from the encoding that it keeps.
void writeLibcrypto(benchmark::State& state, bool changeable) {
    const uint8_t* at = certificates()[0].data();
    const std::unique_ptr<X509, Free> cert(d2i_X509(nullptr, &at, static_cast<long>(certificates()[0].size())));
    Bytes out;
    for (auto _ : state) {
        for (size_t i = 0; i < kCertificates; ++i) {
            if (changeable) {
                uint8_t* encoding = nullptr;
                i2d_re_X509_tbs(cert.get(), &encoding);
                OPENSSL_free(encoding);
                continue;
            }
            out.resize(static_cast<size_t>(i2d_X509(cert.get(), nullptr)));
            uint8_t* to = out.data();
            i2d_X509(cert.get(), &to);
            benchmark::DoNotOptimize(out.data());
        }
    }
    finish(state);
}

BENCHMARK(readOurs)->Unit(benchmark::kMillisecond);
BENCHMARK(readOursCopying)->Unit(benchmark::kMillisecond);
BENCHMARK(readLibcrypto)->Unit(benchmark::kMillisecond);
BENCHMARK(readGnutls)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(writeOurs, kept, false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(writeOurs, changeable, true)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(writeLibcrypto, kept, false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(writeLibcrypto, changeable, true)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
