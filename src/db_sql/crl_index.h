// What the database knows of its CRLs without reading them.
#pragma once

#include <optional>

#include "asn/asn_list.h"
#include "asn/asn_tagged.h"
#include "asn/x509/distinguished_name.h"
#include "asn/x509/time.h"

namespace crv {

/// One stored CRL: a row of "crl_idx.asn".
class CrlIndexEntry : public ASNsequenceF {
  public:
    ASNinteger number;  ///< of its file
    DistinguishedName issuer;
    Time thisUpdate;
    std::optional<Explicit<0, Time>> nextUpdate;
    std::optional<Implicit<1, ASNinteger>> crlNumber;
    /// Of a delta CRL: the number of the CRL that it completes.
    std::optional<Implicit<2, ASNinteger>> baseCrlNumber;
    std::optional<Implicit<3, ASNoctstr>> authorityKeyId;
    ASNoctstr sha256;  ///< of the file
    /// Whether it verified when it was stored. Rows of older versions do not say.
    std::optional<Implicit<4, ASNbool>> verified;

    [[nodiscard]] bool isDelta() const { return baseCrlNumber.has_value(); }
    [[nodiscard]] bool isVerified() const { return verified && verified->value(); }
    [[nodiscard]] long fileNumber() const { return number.valueOr(0); }
    /// Seconds since 1970.
    [[nodiscard]] int64_t issued() const { return thisUpdate.seconds().value_or(0); }
    [[nodiscard]] std::optional<int64_t> expires() const;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

using CrlIndex = ASNsequenceList<CrlIndexEntry>;

/// What the store needs to know of a CRL. The scope is that of RFC 5280 5: the issuing distribution point, octet for
/// octet.
struct ParsedCrl {
    CrlIndexEntry entry;  ///< without a file number
    Bytes scope;
};

/// False for octets that are no CRL.
[[nodiscard]] bool parseCrl(ByteView der, ParsedCrl& parsed);

/// Whether `a` takes the place of `b`: by the number, by the time where that says nothing.
[[nodiscard]] bool isNewer(const CrlIndexEntry& a, const CrlIndexEntry& b);

/// No store comes near it: an authority has one row for each scope of its CRLs.
constexpr long kMostCrlFiles = 1'000'000;

/// False for octets that are no index.
[[nodiscard]] bool parseCrlIndex(ByteView der, CrlIndex& index);

/// Orders two CRL numbers (non-negative integers of any size): negative, zero, positive.
[[nodiscard]] int compareNumbers(const ASNinteger& a, const ASNinteger& b);

}  // namespace crv
