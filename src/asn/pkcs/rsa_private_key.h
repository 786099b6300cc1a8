// RSAPrivateKey (RFC 8017 A.1.2).
#pragma once

#include "asn/asn_list.h"
#include "asn/pkcs/private_key_info.h"

namespace crv {

/// A further prime of a multi-prime key.
class OtherPrimeInfo : public ASNsequenceF {
  public:
    ASNinteger prime, exponent, coefficient;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

class RSAPrivateKey : public ASNsequenceF {
  public:
    ASNinteger version;
    ASNinteger modulus, publicExponent, privateExponent, prime1, prime2, exponent1, exponent2, coefficient;
    std::optional<ASNsequenceList<OtherPrimeInfo>> otherPrimeInfos;

    [[nodiscard]] PrivateKeyInfo toPrivateKeyInfo() const;
    /// False when the key is of another algorithm or malformed.
    [[nodiscard]] bool fromPrivateKeyInfo(const PrivateKeyInfo& info);

  protected:
    [[nodiscard]] MemberTable members() const override;
};

}  // namespace crv
