// What a session is in the middle of: signing, verifying, decrypting. Keys stand in operations without being owned by
// them, so that a log-out leaves none behind.
#pragma once

#include <memory>
#include <optional>

#include "crypto/signer.h"
#include "pkcs11_module/mechanisms.h"
#include "pkcs11_module/token_objects.h"

namespace crv::p11 {

class SignatureOperation {
  public:
    /// `object` a private key for CKF_SIGN, a public one for CKF_VERIFY. CKR_MECHANISM_INVALID,
    /// CKR_MECHANISM_PARAM_INVALID, CKR_KEY_TYPE_INCONSISTENT, CKR_KEY_FUNCTION_NOT_PERMITTED.
    SignatureOperation(const CK_MECHANISM& mechanism, const TokenObject& object, CK_FLAGS use);

    /// Octets of the signatures.
    [[nodiscard]] size_t length() const;
    [[nodiscard]] bool inParts() const { return inParts_; }
    /// Adds a part of what is signed. CKR_DATA_LEN_RANGE.
    void update(ByteView part, bool partOfMany);
    /// CKR_USER_NOT_LOGGED_IN when the key went with a log-out; CKR_DATA_LEN_RANGE, CKR_MECHANISM_PARAM_INVALID,
    /// CKR_KEY_SIZE_RANGE for what does not fit the key.
    [[nodiscard]] Bytes sign();
    /// CKR_SIGNATURE_LEN_RANGE, CKR_SIGNATURE_INVALID.
    void verify(ByteView signature);

  private:
    [[nodiscard]] size_t mostInput() const;
    [[nodiscard]] Bytes input();
    [[nodiscard]] bool usesPss() const { return row_.scheme == KeyScheme::RsaPss; }

    MechanismRow row_;
    PssChoice pss_{KcHashAlgo::None, {}};
    PublicKey publicKey_;
    std::weak_ptr<const Signer> key_;
    std::optional<KcHash> hash_;
    Bytes collected_;
    bool inParts_ = false;
};

class DecryptOperation {
  public:
    /// Refuses as above.
    DecryptOperation(const CK_MECHANISM& mechanism, const TokenObject& object);

    /// Octets of ciphertexts; plaintexts are shorter.
    [[nodiscard]] size_t length() const { return length_; }
    /// CKR_ENCRYPTED_DATA_LEN_RANGE, CKR_ENCRYPTED_DATA_INVALID, CKR_USER_NOT_LOGGED_IN.
    [[nodiscard]] SecretBytes decrypt(ByteView ciphertext) const;

  private:
    RsaPadding padding_;
    OaepParams oaep_;
    size_t length_;
    std::weak_ptr<const Signer> key_;
};

}  // namespace crv::p11
