// AlgorithmIdentifier (RFC 5280 4.1.1.2).
#pragma once

#include <optional>

#include "asn/asn_any.h"
#include "asn/asn_object_id.h"
#include "asn/asn_sequence.h"
#include "crypto/kc_hash.h"

namespace crv {

/// An algorithm and its parameters, which each algorithm defines for itself.
class AlgorithmIdentifier : public ASNsequenceF {
  public:
    ASNobjectId algorithm;
    std::optional<ASNany> parameters;

    AlgorithmIdentifier() = default;
    explicit AlgorithmIdentifier(const KnownOid& oid) : algorithm(oid) {}
    AlgorithmIdentifier(const KnownOid& oid, const ASNobject& value) : algorithm(oid) {
        parameters.emplace().build(value);
    }

    /// Same algorithm, same parameters octet for octet; absent parameters and NULL count as the same.
    friend bool operator==(const AlgorithmIdentifier& a, const AlgorithmIdentifier& b);

  protected:
    [[nodiscard]] MemberTable members() const override;
};

/// The identifier of a bare hash with NULL parameters (RFC 8017 A.2.4). Throws VtestException for what is no hash.
[[nodiscard]] AlgorithmIdentifier hashAlgorithm(KcHashAlgo hash);
/// The hash that an identifier names, `none` for one that is unknown here.
[[nodiscard]] KcHashAlgo hashAlgoOf(const AlgorithmIdentifier& algorithm);

}  // namespace crv
