// Certificates for measuring databases: as many as CRV_BENCH_CERTS says, else 10,000.
#pragma once

#include <openssl/evp.h>
#include <openssl/rsa.h>

#include <algorithm>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "support/cert_maker.h"

namespace crv::bench {

inline size_t setSize() {
    const char* text = std::getenv("CRV_BENCH_CERTS");
    return text ? static_cast<size_t>(std::atol(text)) : 10000;
}

inline void replaceAll(Bytes& octets, std::string_view from, std::string_view to) {
    for (auto at = octets.begin();; at += static_cast<std::ptrdiff_t>(from.size())) {
        at = std::search(at, octets.end(), from.begin(), from.end());
        if (at == octets.end()) return;
        std::copy(to.begin(), to.end(), at);
    }
}

/// Certificates that differ in serial number, common name, e-mail address and key identifier; copies of one whose
/// signature nobody looks at.
inline const std::vector<Bytes>& certs() {
    static const std::vector<Bytes> made = [] {
        using namespace test;
        const TestKey key(EVP_RSA_gen(2048), EVP_PKEY_free);
        const MadeCert root = test::makeCert(
            {.subject = {{"C", "PL", kPrintableString}, {"O", "Urząd"}, {"CN", "CA"}}, .extensions = caExtensions()},
            nullptr, key);
        const Bytes base =
            test::makeCert({.subject = {{"C", "PL", kPrintableString},
                                        {"O", "Firma Handlowa"},
                                        {"OU", "Dział 00000000"},
                                        {"CN", "Użytkownik 00000000"},
                                        {"SN", "Nazwisko 00000000"},
                                        {"serialNumber", "PESEL 00000000"}},
                            .serial = "5555555555555555",
                            .extensions = {{"keyUsage", "critical,digitalSignature,nonRepudiation"},
                                           {"subjectKeyIdentifier", "AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA"},
                                           {"authorityKeyIdentifier", "keyid"},
                                           {"subjectAltName", "email:user00000000@firma.example.pl"},
                                           {"crlDistributionPoints", "URI:http://crl.firma.example.pl/urzad.crl"},
                                           {"extendedKeyUsage", "clientAuth,emailProtection"}}},
                           &root, key)
                .der;
        std::mt19937_64 random(17);
        std::vector<Bytes> list(setSize(), base);
        for (size_t i = 0; i < list.size(); ++i) {
            replaceAll(list[i], "00000000", std::to_string(100000000 + i).substr(1));
            std::string serial(8, '\0'), keyId(20, '\0');
            for (char& c : keyId) c = static_cast<char>(1 + random() % 255);
            for (char& c : serial) c = static_cast<char>(1 + random() % 127);
            replaceAll(list[i], std::string(8, '\x55'), serial);
            replaceAll(list[i], std::string(20, '\xAA'), keyId);
        }
        return list;
    }();
    return made;
}

}  // namespace crv::bench
