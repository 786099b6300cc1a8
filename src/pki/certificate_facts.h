// What a certificate says to path validation, decoded once.
#pragma once

#include <array>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "asn/x509/cert_ptr.h"
#include "asn/x509/ext_distribution.h"
#include "asn/x509/ext_names.h"
#include "asn/x509/signed_certificate.h"

namespace crv {

class PublicKey;

/// SHA-256.
using Digest = std::array<uint8_t, 32>;
[[nodiscard]] Digest digestOf(ByteView octets);

/// A rule that does not hold; `code` 0: all is well.
struct PathFault {
    int code = 0;
    const char* clause = "";
    std::string text{};
    explicit operator bool() const { return code != 0; }
};

struct PolicyMap {
    ASNobjectId issuerDomain, subjectDomain;
};

/// Made by factsOf; lives as long as somebody holds it. What is malformed or stands twice is noted in `fault`, since
/// nothing that such an extension says may be relied on.
struct CertificateFacts {
    CertPtr certificate;
    Digest digest{};
    Bytes subject, issuer;  ///< normalised encodings
    bool selfIssued = false;
    int64_t notBefore = 0, notAfter = 0;
    PathFault fault{};
    std::vector<ASNobjectId> unknownCritical{};

    bool hasBasicConstraints = false;
    bool isAuthority = false;  ///< basicConstraints says cA
    std::optional<size_t> pathLength{};
    std::optional<uint32_t> keyUsage{};  ///< bit n is KeyUsage::Bit n
    std::optional<std::vector<ASNobjectId>> extendedUsages{};
    std::optional<std::vector<ASNobjectId>> policies{};
    std::vector<PolicyMap> mappings{};
    std::optional<size_t> requireExplicit{}, inhibitMapping{}, inhibitAny{};
    std::optional<NameConstraints> constraints{};
    std::optional<GeneralNames> alternativeNames{};
    std::optional<CrlDistributionPoints> distributionPoints{};
    Bytes subjectKeyId, authorityKeyId;  ///< empty when the extensions are not there

    /// The key; null when it cannot be read or lacks DSA parameters.
    [[nodiscard]] const std::shared_ptr<const PublicKey>& key() const;
    /// SHA-256 of the SubjectPublicKeyInfo.
    [[nodiscard]] const Digest& keyDigest() const;
    [[nodiscard]] bool allows(KeyUsage::Bit use) const { return !keyUsage || (*keyUsage >> use & 1U) != 0; }

  private:
    mutable std::shared_ptr<const PublicKey> key_;
    mutable Digest keyDigest_{};
    mutable bool keyTried_ = false, keyHashed_ = false;
};

using FactsPtr = std::shared_ptr<const CertificateFacts>;
using FactsList = std::vector<FactsPtr>;

[[nodiscard]] FactsPtr factsOf(const CertPtr& certificate);
/// Normalised encoding of a name: equal names have equal octets.
[[nodiscard]] Bytes nameKey(const DistinguishedName& name);
/// Whether a BOOLEAN is as DER has it; absent ones are.
[[nodiscard]] bool isDerBool(const ASNbool& value);
/// The first extension that stands twice or whose critical flag is no DER; nothing when there is none.
[[nodiscard]] PathFault faultOfExtensions(const Extensions& extensions, int code);

}  // namespace crv
