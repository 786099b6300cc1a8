// Certificates and CRLs made by libcrypto, for tests and benchmarks: another hand than the code under test.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "misc/bytes.h"

struct evp_pkey_st;

namespace crv::test {

using TestKey = std::shared_ptr<evp_pkey_st>;
/// A fresh P-256 key.
TestKey makeKey();

/// String types of name values (libcrypto's MBSTRING/V_ASN1 numbers).
enum StringType { kUtf8String = 12, kPrintableString = 19, kT61String = 20, kIa5String = 22, kBmpString = 30 };

struct NameField {
    const char* type;   ///< "CN", "O", ... or "emailAddress"
    std::string value;  ///< UTF-8
    int stringType = kUtf8String;
};
using NameFields = std::vector<NameField>;

constexpr int64_t kDay = 86400;

struct CertPlan {
    NameFields subject;
    std::string serial = "1";   ///< hexadecimal
    int64_t notBefore = -kDay;  ///< seconds from now
    int64_t notAfter = 365 * kDay;
    /// Extensions as libcrypto's configuration writes them: {"keyUsage", "critical,keyCertSign"}.
    std::vector<std::pair<std::string, std::string>> extensions{};
    bool version1 = false;
};

struct MadeCert {
    Bytes der;
    NameFields subject;
    TestKey key;
};

/// Issued by `issuer`, or self-signed when it is null; the key is made when none is given.
MadeCert makeCert(const CertPlan& plan, const MadeCert* issuer = nullptr, TestKey key = nullptr);

/// Extensions of an authority: basicConstraints (with a path length unless negative), keyUsage, key identifiers.
std::vector<std::pair<std::string, std::string>> caExtensions(int pathLength = -1);

struct CrlEntry {
    std::string serial;  ///< hexadecimal
    int reason = -1;     ///< RFC 5280 5.3.1; negative for none
    int64_t when = -3600;
};

struct CrlPlan {
    std::vector<CrlEntry> entries{};
    long number = 1;
    long base = -1;  ///< number of the complete CRL of a delta; negative: no delta
    int64_t thisUpdate = -60;
    int64_t nextUpdate = 30 * kDay;
    std::vector<std::pair<std::string, std::string>> extensions{{"authorityKeyIdentifier", "keyid"}};
};

Bytes makeCrl(const CrlPlan& plan, const MadeCert& issuer);

/// A PKCS#7 bundle of the certificates, DER.
Bytes makeBundle(const std::vector<Bytes>& certificates);

}  // namespace crv::test
