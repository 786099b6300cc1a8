// Recipients and parameters of enveloped messages (RFC 5652 6.2, RFC 5753, RFC 5084, RFC 4055).
#pragma once

#include "asn/asn_choice.h"
#include "asn/pkcs/signed_data.h"
#include "crypto/cipher.h"

namespace crv {

class KeyTransRecipientInfo : public ASNsequenceF {
  public:
    ASNinteger version;
    SignerIdentifier rid;
    AlgorithmIdentifier keyEncryptionAlgorithm;
    ASNoctstr encryptedKey;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

/// An ephemeral key of who encrypted.
class OriginatorPublicKey : public ASNsequenceF {
  public:
    AlgorithmIdentifier algorithm;
    ASNbitstr publicKey;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

class OriginatorIdentifierOrKey
    : public ASNchoiceOf<IssuerAndSerialNumber, Implicit<0, ASNoctstr>, Implicit<1, OriginatorPublicKey>> {};

class RecipientKeyIdentifier : public ASNsequenceF {
  public:
    ASNoctstr subjectKeyIdentifier;
    std::optional<ASNgenTime> date;
    std::optional<ASNany> other;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

class KeyAgreeRecipientIdentifier : public ASNchoiceOf<IssuerAndSerialNumber, Implicit<0, RecipientKeyIdentifier>> {};

class RecipientEncryptedKey : public ASNsequenceF {
  public:
    KeyAgreeRecipientIdentifier rid;
    ASNoctstr encryptedKey;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

class KeyAgreeRecipientInfo : public ASNsequenceF {
  public:
    static constexpr long kVersion = 3;

    ASNinteger version{kVersion};
    Explicit<0, OriginatorIdentifierOrKey> originator;
    std::optional<Explicit<1, ASNoctstr>> ukm;
    AlgorithmIdentifier keyEncryptionAlgorithm;
    ASNsequenceList<RecipientEncryptedKey> recipientEncryptedKeys;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

/// Of the five kinds the three that need a secret other than a private key are carried and not looked into.
class RecipientInfo
    : public ASNchoiceOf<KeyTransRecipientInfo, Implicit<1, KeyAgreeRecipientInfo>, Implicit<2, OpaqueSequence>,
                         Implicit<3, OpaqueSequence>, Implicit<4, OpaqueSequence>> {};

/// ECC-CMS-SharedInfo (RFC 5753 7.2).
class EccCmsSharedInfo : public ASNsequenceF {
  public:
    AlgorithmIdentifier keyInfo;
    std::optional<Explicit<0, ASNoctstr>> entityUInfo;
    Explicit<2, ASNoctstr> suppPubInfo;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

/// GCMParameters (RFC 5084 3.2).
class GcmParameters : public ASNsequenceF {
  public:
    static constexpr long kDefaultTag = 12;

    ASNoctstr nonce;
    ASNinteger tagLength{kDefaultTag};

  protected:
    [[nodiscard]] MemberTable members() const override;
};

/// RSAES-OAEP-params (RFC 4055 4.1). Absent members mean SHA-1, MGF1 with SHA-1 and an empty label.
class RsaOaepParams : public ASNsequenceF {
  public:
    std::optional<Explicit<0, AlgorithmIdentifier>> hashAlgorithm;
    std::optional<Explicit<1, AlgorithmIdentifier>> maskGenAlgorithm;
    std::optional<Explicit<2, AlgorithmIdentifier>> pSourceAlgorithm;

    RsaOaepParams() = default;
    /// Both hashes the same, no label.
    explicit RsaOaepParams(KcHashAlgo hash);
    /// Nothing for hashes, masks and labels that are unknown here.
    [[nodiscard]] std::optional<OaepParams> oaepParams() const;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

/// The cipher that an identifier of a content encryption names; nothing for one that is unknown here.
[[nodiscard]] std::optional<CipherAlgo> contentCipher(const ASNobjectId& oid);

/// What the identifier of a content encryption says.
struct ContentEncryption {
    CipherAlgo cipher;
    Bytes vector;
    size_t tagLength = 0;  ///< of an authenticated cipher
};
/// Nothing for an algorithm that is unknown here or has parameters that are not understood.
[[nodiscard]] std::optional<ContentEncryption> readContentEncryption(const AlgorithmIdentifier& algorithm);
/// The identifier for a cipher of `contentCipher` with its vector (and tags of 16 octets).
[[nodiscard]] AlgorithmIdentifier contentEncryption(const ASNobjectId& oid, ByteView vector);

}  // namespace crv
