// Private keys in PKCS#8, plain and under a password (RFC 5958).
#pragma once

#include "asn/asn_tagged.h"
#include "asn/pkcs/attribute.h"
#include "asn/pkcs/pbe.h"
#include "asn/x509/ext_key.h"

namespace crv {

class PrivateKey;

/// Bits of a keyUsage as ASNbitstr::namedBits gives them.
enum KeyUsageBit : uint32_t {
    kDigitalSignature = 1u << KeyUsage::kDigitalSignature,
    kNonRepudiation = 1u << KeyUsage::kNonRepudiation,
    kKeyEncipherment = 1u << KeyUsage::kKeyEncipherment,
    kDataEncipherment = 1u << KeyUsage::kDataEncipherment,
};

/// PrivateKeyInfo, also OneAsymmetricKey: version 0, or 1 with a public key. Owns its octets in wiped memory.
class PrivateKeyInfo : public ASNsequenceF {
  public:
    ASNinteger version;
    AlgorithmIdentifier privateKeyAlgorithm;
    ASNoctstr privateKey;  ///< the key's own structure, encoded
    std::optional<Implicit<0, Attributes>> attributes;
    std::optional<Implicit<1, ASNbitstr>> publicKey;

    PrivateKeyInfo() = default;
    explicit PrivateKeyInfo(const PrivateKey& key);
    /// The usable key. Throws CryptoError as PrivateKey::fromPkcs8.
    [[nodiscard]] PrivateKey key() const;

    /// What the key may do: the bits of its keyUsage attribute (2.5.29.15), nothing when it has none.
    [[nodiscard]] std::optional<uint32_t> keyUsage() const;
    void setKeyUsage(uint32_t bits);
    /// The encoding of all attributes but keyUsage; empty when there are none.
    [[nodiscard]] Bytes otherAttributes() const;
    void addAttributes(ByteView encoding);

  protected:
    [[nodiscard]] MemberTable members() const override;
};

/// EncryptedPrivateKeyInfo.
class EncryptedPrivateKeyInfo : public ASNsequenceF {
  public:
    AlgorithmIdentifier encryptionAlgorithm;
    ASNoctstr encryptedData;

    /// Throws CryptoError.
    void encrypt(const PbeSettings& pbe, const PrivateKeyInfo& key) { take(pbe.algorithm(), pbe.encrypt(key)); }
    void encrypt(const Pbes2Settings& pbe, const PrivateKeyInfo& key) { take(pbe.algorithm(), pbe.encrypt(key)); }
    /// Throws CryptoError: as decryptPbe, and badData when the plaintext is no PrivateKeyInfo.
    [[nodiscard]] PrivateKeyInfo decrypt(const PbePassword& password) const;

  protected:
    [[nodiscard]] MemberTable members() const override;

  private:
    void take(const AlgorithmIdentifier& algorithm, ByteView ciphertext);
};

}  // namespace crv
