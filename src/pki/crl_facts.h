// What a CRL says, decoded once, and its entries found without decoding them one by one (RFC 5280 5).
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "asn/x509/signed_cert_rev_list.h"
#include "pki/certificate_facts.h"

namespace crv {

/// Entries by serial number: four octets an entry and a free place beside it, over the octets of the list itself.
class CrlEntryIndex {
  public:
    struct Entry {
        CrlReason reason = CrlReason::Unspecified;
        int64_t revokedAt = 0;
    };

    /// Indexes the entries of a CRL whose octets outlive this. What makes the whole CRL unusable (5.3): an entry
    /// extension that is critical and unknown, malformed, or out of place.
    [[nodiscard]] PathFault build(ByteView entries, bool indirect, const Bytes& crlIssuer);
    /// What the entries say of a certificate: a revocation before a removal from the list; nothing when there is none.
    [[nodiscard]] std::optional<Entry> find(ByteView serial, const Bytes& issuer) const;

  private:
    /// Whose certificates the entries from an offset on revoke (5.3.3).
    struct Owner {
        size_t from;
        std::vector<Bytes> names;
    };
    [[nodiscard]] PathFault look(ByteView extensions, bool indirect, size_t offset);
    [[nodiscard]] bool belongsTo(size_t offset, const Bytes& issuer) const;
    [[nodiscard]] size_t placeOf(ByteView serial) const;

    ByteView entries_;
    std::vector<uint32_t> places_;  // offset + 1 of an entry, 0 for a free place; their number is a power of two
    std::vector<Owner> owners_;
};

/// Made by make; immutable.
class CrlFacts {
  public:
    /// Null when the octets are no CRL.
    [[nodiscard]] static std::shared_ptr<const CrlFacts> make(Bytes der);
    /// Stands for a stored CRL that cannot be read.
    [[nodiscard]] static std::shared_ptr<const CrlFacts> unreadable(const DistinguishedName& issuer);

    Bytes issuer;              ///< normalised encoding
    std::string issuerText{};  ///< on one line; empty for a list that cannot be read
    Digest digest{};
    PathFault fault{};  ///< why the CRL must not be relied on, whatever its signature
    int64_t thisUpdate = 0;
    std::optional<int64_t> nextUpdate{};
    std::optional<ASNinteger> number{}, baseNumber{};
    Bytes authorityKeyId{};
    Bytes scope{};  ///< octets of the issuing distribution point, empty without one
    std::optional<IssuingDistributionPoint> point{};

    [[nodiscard]] bool isDelta() const { return baseNumber.has_value(); }
    [[nodiscard]] bool isIndirect() const { return point && point->indirectCrl.value(); }
    [[nodiscard]] const SignedCertRevList& crl() const { return crl_; }
    [[nodiscard]] const DistinguishedName& issuerName() const { return crl_.issuer(); }
    [[nodiscard]] std::optional<CrlEntryIndex::Entry> find(const CertificateFacts& certificate) const;
    [[nodiscard]] ByteView der() const { return der_; }
    /// Octets held.
    [[nodiscard]] size_t size() const { return der_.size(); }

  private:
    [[nodiscard]] PathFault faultOfList();

    Bytes der_;
    SignedCertRevList crl_;
    CrlEntryIndex entries_;
};

using CrlFactsPtr = std::shared_ptr<const CrlFacts>;
using CrlFactsList = std::vector<CrlFactsPtr>;

}  // namespace crv
