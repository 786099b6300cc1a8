// EncryptedData of PKCS#7 and CMS: a content enciphered under a key that both sides know, here from a password.
#pragma once

#include "asn/asn_tagged.h"
#include "asn/pkcs/attribute.h"
#include "asn/pkcs/pbe.h"

namespace crv {

/// EncryptedContentInfo (RFC 5652 6.1).
class EncryptedContentInfo : public ASNsequenceF {
  public:
    ASNobjectId contentType;
    AlgorithmIdentifier contentEncryptionAlgorithm;
    std::optional<Implicit<0, ASNoctstr>> encryptedContent;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

/// EncryptedData (RFC 5652 8).
class EncryptedData : public ASNsequenceF {
  public:
    ASNinteger version;
    EncryptedContentInfo encryptedContentInfo;
    std::optional<Implicit<1, Attributes>> unprotectedAttrs;

    /// Becomes version 0 with the encoding of an object as a content of type data. Throws CryptoError.
    void encrypt(const PbeSettings& pbe, const ASNobject& plain) { take(pbe.algorithm(), pbe.encrypt(plain)); }
    void encrypt(const Pbes2Settings& pbe, const ASNobject& plain) { take(pbe.algorithm(), pbe.encrypt(plain)); }
    /// The plaintext. Throws CryptoError: badData for a wrong password or damage, unsupported for an algorithm that is
    /// unknown here, badParameter for parameters that make no sense or an absent content.
    [[nodiscard]] SecretBytes decrypt(const PbePassword& password) const;

  protected:
    [[nodiscard]] MemberTable members() const override;

  private:
    void take(const AlgorithmIdentifier& algorithm, ByteView ciphertext);
};

}  // namespace crv
