// DSA private keys: the domain and the number x in PKCS#8 (RFC 5912), all numbers in one SEQUENCE as other programs
// keep them in files of their own.
#pragma once

#include "asn/pkcs/private_key_info.h"

namespace crv {

class DSAPrivateKey : public ASNsequenceF {
  public:
    ASNinteger version;
    ASNinteger p, q, g, y, x;

    [[nodiscard]] PrivateKeyInfo toPrivateKeyInfo() const;
    /// Takes everything but y, which stands nowhere in PKCS#8 and becomes 0. False when the key is of another algorithm
    /// or malformed.
    [[nodiscard]] bool fromPrivateKeyInfo(const PrivateKeyInfo& info);

  protected:
    [[nodiscard]] MemberTable members() const override;
};

}  // namespace crv
