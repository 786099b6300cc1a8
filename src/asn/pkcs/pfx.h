// The PKCS#12 file (RFC 7292): keys, certificates and secrets under one password.
#pragma once

#include <string>
#include <vector>

#include "asn/pkcs/content_info.h"
#include "asn/pkcs/digest_info.h"
#include "asn/pkcs/private_key_info.h"
#include "asn/pkcs/safe_bag.h"

namespace crv {

class RSAPrivateKey;
class DSAPrivateKey;
class ECPrivateKey;
class SignedCertificate;

/// MacData (RFC 7292 4): the authentication code over the contents. An iteration count of 1 is the default and is
/// written all the same.
class MacData : public ASNsequenceF {
  public:
    DigestInfo mac;
    ASNoctstr macSalt;
    ASNinteger iterations{1};

  protected:
    [[nodiscard]] MemberTable members() const override;
};

enum class PfxResult {
    Ok,
    MacMismatch,  ///< wrong password, or the file was altered
    Malformed,    ///< no PKCS#12 contents, or no authentication code
    Unsupported,  ///< protected by an algorithm that is unknown here, or by too many iterations
    Cancelled,    ///< stopped by the password's progress function
    NoMemory,     ///< out of memory, or the file could not be built
};

using AuthenticatedSafe = ASNsequenceList<ContentInfo>;

/// What a file holds, in the file's order.
struct PfxContents {
    struct Key {
        PrivateKeyInfo key;
        Bytes localKeyId;
        std::string friendlyName;
        Bytes attributes;  ///< SafeBag::otherAttributes
    };
    struct Certificate {
        Bytes certificate;  ///< the encoding
        Bytes localKeyId;
        std::string friendlyName;
        Bytes attributes;
    };
    struct Secret {
        ASNobjectId type;
        ASNany value;
        Bytes attributes;
    };
    std::vector<Key> keys;
    std::vector<Certificate> certificates;
    std::vector<Secret> secrets;
    std::vector<SecretBytes> others;  ///< bags of all other kinds: their encodings

    /// The value of the first secret of the type, null when there is none.
    [[nodiscard]] const ASNany* secret(const KnownOid& type) const;
};

/// PFX, protected by a password.
///
/// To write one: `update` with everything that is to go in, then `final`, then `write`. Contents stand in this order:
/// one EncryptedData of all certificates and other bags (when there are any), one content for each key, one content of
/// all secrets (when there are any); within these in the order of the updates.
///
/// To read one: `read`, then `getContents`. The integrity is checked before anything is deciphered.
class Pfx : public ASNsequenceF {
  public:
    static constexpr long kIterations = 2048;  ///< of every encryption written
    static constexpr long kMacIterations = 1;  ///< deliberate: as all files of this format have it
    static constexpr size_t kSaltLength = 8;
    static constexpr long kStrongIterations = 600'000;  ///< of the strong protection, encryption and MAC alike
    static constexpr size_t kStrongSaltLength = 16;

    ASNinteger version{3};
    ContentInfo authSafe;
    std::optional<MacData> macData;

    /// A certificate, paired with the key of the same id (left out when empty). `attributes`: more attributes of the
    /// bag, as SafeBag::otherAttributes gives them.
    void update(const SignedCertificate& certificate, ByteView localKeyId, ByteView attributes = {});
    /// A private key, which will be enciphered in a bag of its own.
    void update(const PrivateKeyInfo& key, ByteView localKeyId, ByteView attributes = {});
    void update(const RSAPrivateKey& key, ByteView localKeyId);
    void update(const DSAPrivateKey& key, ByteView localKeyId);
    void update(const ECPrivateKey& key, ByteView localKeyId);
    /// A secret of a type; it is enciphered with its type.
    void update(const KnownOid& type, const ASNobject& secret);
    /// A bag of any other kind.
    void update(SafeBag bag) { certificates_.add(std::move(bag)); }

    /// Enciphers what was collected and adds the authentication code. `unicode`: the password is in the form of
    /// convertToUTF16BE already, else in UTF-8. `salt`: random octets (20), from whose SHA-1 digest a chain of salts is
    /// drawn: each encryption takes the first 8 octets and replaces the chain's value by its SHA-1 digest; the
    /// authentication code takes the first 8 octets of what is left. Result ok or noMemory.
    [[nodiscard]] PfxResult final(PbeAlgo cipher, bool unicode, ByteView password, const uint8_t* salt,
                                  size_t saltLength);

    /// The strong protection, which other programs read, too: one EncryptedData of everything but the keys, a content
    /// for each key; PBES2 with PBKDF2-HMAC-SHA-256 and AES-256-CBC, an HMAC-SHA-256 keyed by the PKCS#12 derivation,
    /// kStrongIterations each. Secrets stand, each an EncryptedData, in an attribute of the first bag of a key, else
    /// of a certificate, else of a bag that holds nothing: others skip an attribute, but not all skip a bag. `random`:
    /// 20 octets or more that nobody knows, from which salts and vectors are made. Result as final.
    [[nodiscard]] PfxResult finalStrong(std::string_view utf8Password, ByteView random);

    /// Checks the integrity, deciphers and sorts everything. A failure leaves `out` empty.
    [[nodiscard]] PfxResult getContents(const PbePassword& password, PfxContents& out) const;
    /// The integrity check alone.
    [[nodiscard]] PfxResult verifyPassword(const PbePassword& password) const;

    /// HMAC-SHA1 over the contents with the salt and count of `macData`, keyed from a password in UTF-16. Throws
    /// CryptoError.
    [[nodiscard]] SecretBytes computeHMAC_SHA1(ByteView unicodePassword) const;
    /// Whether `macData` holds an HMAC-SHA1 and it is right for this password.
    [[nodiscard]] bool verifyHMAC_SHA1(ByteView unicodePassword) const;

    /// The password in UTF-16 big-endian with a zero pair behind it. Throws CryptoError (badParameter) for what is not
    /// UTF-8.
    [[nodiscard]] static SecretBytes convertToUTF16BE(std::string_view utf8);

  protected:
    [[nodiscard]] MemberTable members() const override;

  private:
    struct PendingKey {
        PrivateKeyInfo key;
        Bytes localKeyId;
        Bytes attributes;
    };

    class SaltChain;
    void seal(PbeAlgo cipher, ByteView unicodePassword, ByteView salt);
    void sealStrongly(const PbePassword& password, ByteView random);
    void finish(const AuthenticatedSafe& safe, KcHashAlgo hash, ByteView salt, long iterations,
                ByteView unicodePassword);
    [[nodiscard]] ASNoctstr contents() const;
    [[nodiscard]] SecretBytes computeMac(KcHashAlgo hash, ByteView unicodePassword,
                                         const PbeProgress& progress = {}) const;
    [[nodiscard]] bool verifyMac(const PbePassword& password) const;
    [[nodiscard]] std::optional<PbePassword> matching(const PbePassword& password) const;

    SafeContents certificates_;
    std::vector<PendingKey> keys_;
    std::vector<SecretBag> secrets_;
};

}  // namespace crv
