// Parameters of the public key and signature algorithms (RFC 3279, RFC 4055, RFC 5480).
#pragma once

#include <optional>

#include "asn/asn_choice.h"
#include "asn/asn_tagged.h"
#include "asn/x509/algorithm_identifier.h"

namespace crv {

/// RSASSA-PSS-params (RFC 4055 3.1). Absent members mean SHA-1, MGF1 with SHA-1, 20 octets of salt.
class RsaPssParams : public ASNsequenceF {
  public:
    static constexpr long kDefaultSalt = 20;

    std::optional<Explicit<0, AlgorithmIdentifier>> hashAlgorithm;
    std::optional<Explicit<1, AlgorithmIdentifier>> maskGenAlgorithm;
    Explicit<2, ASNinteger> saltLength;
    Explicit<3, ASNinteger> trailerField;

    RsaPssParams();
    /// Hash, MGF1 with `mgfHash` and a salt of `salt` octets.
    RsaPssParams(KcHashAlgo hash, KcHashAlgo mgfHash, long salt);

    /// Hash and mask hash, `none` for what is unknown here.
    [[nodiscard]] KcHashAlgo hash() const;
    [[nodiscard]] KcHashAlgo mgfHash() const;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

/// Dss-Parms (RFC 3279 2.3.2).
class DsaParams : public ASNsequenceF {
  public:
    ASNinteger p, q, g;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

/// FieldID: a prime or characteristic-two field (RFC 3279 2.3.5).
class EcFieldParams : public ASNsequenceF {
  public:
    ASNobjectId fieldType;
    ASNany parameters;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

/// Curve: its coefficients as octets of field elements.
class EcCurveParams : public ASNsequenceF {
  public:
    ASNoctstr a, b;
    std::optional<ASNbitstr> seed;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

/// ECParameters: a curve written out (RFC 3279 2.3.5).
class EcDomainParams : public ASNsequenceF {
  public:
    ASNinteger version{1};
    EcFieldParams fieldId;
    EcCurveParams curve;
    ASNoctstr base;
    ASNinteger order;
    std::optional<ASNinteger> cofactor;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

/// EcpkParameters: a domain written out, a named curve, or the issuer's (NULL).
class EcParams : public ASNchoiceOf<EcDomainParams, ASNobjectId, ASNnull> {
  public:
    /// Name of the curve; null for a domain written out or left to the issuer.
    [[nodiscard]] const ASNobjectId* namedCurve() const { return chosenAs<ASNobjectId>(); }
};

}  // namespace crv
