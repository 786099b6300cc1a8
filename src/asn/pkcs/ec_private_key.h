// ECPrivateKey (RFC 5915 3).
#pragma once

#include "asn/pkcs/explicit_any.h"
#include "asn/pkcs/private_key_info.h"

namespace crv {

class ECPrivateKey : public ASNsequenceF {
  public:
    ASNinteger version{1};
    ASNoctstr privateKey;  ///< the number, big-endian, as long as the order of the curve
    std::optional<ExplicitAny<0>> parameters;
    std::optional<Explicit<1, ASNbitstr>> publicKey;

    /// The domain moves to the algorithm, where PKCS#8 has it. Throws VtestException for a key without a domain.
    [[nodiscard]] PrivateKeyInfo toPrivateKeyInfo() const;
    /// The reverse; the domain is put into the key when it is not there. False when the key is of another algorithm,
    /// without a domain or malformed.
    [[nodiscard]] bool fromPrivateKeyInfo(const PrivateKeyInfo& info);

  protected:
    [[nodiscard]] MemberTable members() const override;
};

}  // namespace crv
