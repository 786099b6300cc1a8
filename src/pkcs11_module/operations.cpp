#include "pkcs11_module/operations.h"

#include <algorithm>

#include "crypto/crypto_error.h"
#include "crypto/plain_signature.h"
#include "crypto/private_key.h"

namespace crv::p11 {
namespace {

/// Longest digest that is signed as it is; curves and groups have shorter orders.
constexpr size_t kMostDigest = 128;
/// What the padding of RSASSA-PKCS1-v1_5 takes at least (RFC 8017 9.2).
constexpr size_t kLeastPadding = 11;

size_t octetsOf(const PublicKey& key) {
    return (size_t{key.bits()} + 7) / 8;
}

void demandFit(const MechanismRow& row, const TokenObject& object) {
    const KeyScheme key = object.publicKey->scheme();
    // An RSA key signs both ways unless its algorithm ties it to PSS.
    demand(key == row.scheme || (key == KeyScheme::Rsa && row.scheme == KeyScheme::RsaPss), CKR_KEY_TYPE_INCONSISTENT);
}

std::shared_ptr<const PrivateKey> held(const std::weak_ptr<const Signer>& key) {
    auto owned = std::dynamic_pointer_cast<const PrivateKey>(key.lock());
    demand(owned != nullptr, CKR_USER_NOT_LOGGED_IN);
    return owned;
}

}  // namespace

SignatureOperation::SignatureOperation(const CK_MECHANISM& mechanism, const TokenObject& object, CK_FLAGS use)
    : row_(findMechanism(mechanism.mechanism, use)), publicKey_(*object.publicKey), key_(object.privateKey) {
    demandFit(row_, object);
    demand(use == CKF_VERIFY || object.signs, CKR_KEY_FUNCTION_NOT_PERMITTED);
    if (usesPss()) {
        pss_ = pssChoice(row_, mechanism);
    } else {
        demandNoParameter(mechanism);
    }
    if (row_.hash != KcHashAlgo::None) hash_.emplace(row_.hash);
}

size_t SignatureOperation::length() const {
    return isRsa(row_.scheme) ? octetsOf(publicKey_) : 2 * publicKey_.orderSize();
}

size_t SignatureOperation::mostInput() const {
    if (usesPss()) return hashLength(pss_.hash);
    return row_.scheme == KeyScheme::Rsa ? octetsOf(publicKey_) - kLeastPadding : kMostDigest;
}

void SignatureOperation::update(ByteView part, bool partOfMany) {
    inParts_ = inParts_ || partOfMany;
    if (hash_) return hash_->update(part);
    demand(part.size() <= mostInput() - collected_.size(), CKR_DATA_LEN_RANGE);
    collected_.insert(collected_.end(), part.begin(), part.end());
}

Bytes SignatureOperation::input() {
    if (hash_) return hash_->final();
    const bool exact = !usesPss() || collected_.size() == mostInput();
    demand(exact && (isRsa(row_.scheme) || !collected_.empty()), CKR_DATA_LEN_RANGE);
    return std::move(collected_);
}

Bytes SignatureOperation::sign() try {
    const auto key = held(key_);
    const Bytes octets = input();
    // The generators of the key store belong to whoever may write its next seed.
    RandomBridge random(systemRandom);
    if (usesPss()) return key->sign(KeyScheme::RsaPss, pss_.hash, octets, random, pss_.params);
    if (row_.scheme == KeyScheme::Rsa && hash_) return key->sign(KeyScheme::Rsa, row_.hash, octets, random);
    Bytes signature = key->signPrepared(octets, random);
    return isRsa(row_.scheme) ? signature : toPlainSignature(signature, publicKey_.orderSize());
} catch (const CryptoError& error) {
    if (error.failure() != CryptoFailure::BadParameter) throw;
    throw Refusal{usesPss() ? CKR_MECHANISM_PARAM_INVALID : hash_ ? CKR_KEY_SIZE_RANGE : CKR_DATA_LEN_RANGE};
}

void SignatureOperation::verify(ByteView signature) {
    demand(signature.size() == length(), CKR_SIGNATURE_LEN_RANGE);
    const Bytes octets = input();
    bool right = false;
    try {
        if (usesPss()) {
            right = publicKey_.verify(KeyScheme::RsaPss, pss_.hash, octets, signature, pss_.params);
        } else if (row_.scheme == KeyScheme::Rsa && hash_) {
            right = publicKey_.verify(KeyScheme::Rsa, row_.hash, octets, signature);
        } else {
            right =
                publicKey_.verifyPrepared(octets, isRsa(row_.scheme) ? toBytes(signature) : toDerSignature(signature));
        }
    } catch (const CryptoError& error) {
        if (error.failure() != CryptoFailure::BadParameter) throw;
        throw Refusal{usesPss() ? CKR_MECHANISM_PARAM_INVALID : CKR_SIGNATURE_INVALID};
    }
    demand(right, CKR_SIGNATURE_INVALID);
}

DecryptOperation::DecryptOperation(const CK_MECHANISM& mechanism, const TokenObject& object)
    : padding_(mechanism.mechanism == CKM_RSA_PKCS ? RsaPadding::Pkcs1 : RsaPadding::Oaep),
      length_(octetsOf(*object.publicKey)),
      key_(object.privateKey) {
    demandFit(findMechanism(mechanism.mechanism, CKF_DECRYPT), object);
    demand(object.decrypts, CKR_KEY_FUNCTION_NOT_PERMITTED);
    if (padding_ == RsaPadding::Oaep) {
        oaep_ = oaepParams(mechanism);
    } else {
        demandNoParameter(mechanism);
    }
}

SecretBytes DecryptOperation::decrypt(ByteView ciphertext) const try {
    demand(ciphertext.size() == length_, CKR_ENCRYPTED_DATA_LEN_RANGE);
    return held(key_)->decrypt(padding_, ciphertext, oaep_);
} catch (const CryptoError& error) {
    if (error.failure() != CryptoFailure::BadData) throw;
    throw Refusal{CKR_ENCRYPTED_DATA_INVALID};
}

}  // namespace crv::p11
