// DigestInfo: a digest and the hash that made it (RFC 8017 9.2, RFC 7292 4).
#pragma once

#include "asn/x509/algorithm_identifier.h"
#include "crypto/kc_hash.h"

namespace crv {

class DigestInfo : public ASNsequenceF {
  public:
    AlgorithmIdentifier digestAlgorithm;
    ASNoctstr digest;

    DigestInfo() = default;
    /// The hash's identifier with NULL parameters, as RFC 8017 asks for.
    DigestInfo(KcHashAlgo hash, ByteView digestOctets);

    /// The hash, `none` for one that is unknown here.
    [[nodiscard]] KcHashAlgo hash() const { return hashAlgoOf(digestAlgorithm); }

  protected:
    [[nodiscard]] MemberTable members() const override;
};

}  // namespace crv
