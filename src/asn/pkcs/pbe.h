// Password-based encryption: its AlgorithmIdentifiers (RFC 7292 appendix C, RFC 8018 appendix A) and the way from them
// to the ciphers.
#pragma once

#include <string_view>

#include "asn/x509/algorithm_identifier.h"
#include "crypto/pbe.h"
#include "misc/secret.h"

namespace crv {

/// A password in the two forms that the schemes take: the octets of its UTF-8 text (PBES2) and UTF-16 big-endian with a
/// zero pair behind it (PKCS#12).
class PbePassword {
  public:
    /// Throws CryptoError (badParameter) for what is not UTF-8. `progress`, when given, can stop every derivation from
    /// this password.
    explicit PbePassword(std::string_view utf8, PbeProgress progress = {});

    [[nodiscard]] ByteView utf8() const { return utf8_; }
    [[nodiscard]] ByteView unicode() const { return unicode_; }
    [[nodiscard]] const PbeProgress& progress() const { return progress_; }
    /// An empty password is written by some without the zero pair: this one in that form.
    [[nodiscard]] PbePassword none() const {
        PbePassword password;
        password.progress_ = progress_;
        return password;
    }
    /// The same for another thread: `asked` can stop its derivations instead.
    [[nodiscard]] PbePassword asking(PbeProgress asked) const {
        PbePassword password = *this;
        password.progress_ = std::move(asked);
        return password;
    }
    /// A key from the UTF-8 form. The last one is remembered, since the items of a file often share theirs. Valid until
    /// the next call. Throws CryptoError.
    [[nodiscard]] ByteView derived(const KeyDerivation& how, size_t length) const;

  private:
    struct Derived {
        KeyDerivation how;
        SecretBytes key;
    };

    PbePassword() = default;

    SecretBytes utf8_;
    SecretBytes unicode_;
    PbeProgress progress_;
    mutable std::optional<Derived> last_;
};

/// Parameters of the PKCS#12 schemes and of PBES1: SEQUENCE {salt, iterations}.
class PbeParameters : public ASNsequenceF {
  public:
    ASNoctstr salt;
    ASNinteger iterations;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

/// Parameters of PBKDF2 (RFC 8018 A.2). The salt is a CHOICE whose other alternative was never defined.
class Pbkdf2Parameters : public ASNsequenceF {
  public:
    ASNoctstr salt;
    ASNinteger iterationCount;
    std::optional<ASNinteger> keyLength;
    std::optional<AlgorithmIdentifier> prf;  ///< HMAC with SHA-1 when absent

  protected:
    [[nodiscard]] MemberTable members() const override;
};

/// Parameters of scrypt (RFC 7914 7.1).
class ScryptParameters : public ASNsequenceF {
  public:
    ASNoctstr salt;
    ASNinteger costParameter, blockSize, parallelization;
    std::optional<ASNinteger> keyLength;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

/// Parameters of PBES2, where the scheme is a cipher, and of PBMAC1, where it is an HMAC (RFC 8018 A.4, A.5).
class Pbes2Parameters : public ASNsequenceF {
  public:
    AlgorithmIdentifier keyDerivationFunc;
    AlgorithmIdentifier scheme;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

/// Parameters of RC2 in CBC mode (RFC 8018 B.2.3).
class Rc2CbcParameters : public ASNsequenceF {
  public:
    ASNinteger rc2ParameterVersion;
    ASNoctstr iv;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

/// The cipher of that effective key length; nothing for lengths that nobody uses.
[[nodiscard]] std::optional<CipherAlgo> rc2Cipher(const Rc2CbcParameters& parameters);

/// How to encipher: one of the PKCS#12 schemes with everything it needs. Refers to password and salt.
struct PbeSettings {
    PbeAlgo algo;
    ByteView unicodePassword;  ///< as PbePassword::unicode
    ByteView salt;
    long iterations;

    [[nodiscard]] AlgorithmIdentifier algorithm() const;
    /// Enciphers the encoding of an object. Throws CryptoError.
    [[nodiscard]] Bytes encrypt(const ASNobject& plain) const;
};

/// How to encipher strongly: PBES2 with PBKDF2 over HMAC-SHA-256 and AES-256 in CBC mode (RFC 8018). The key is derived
/// once for all items; each gets a vector of its own. Refers to the password.
class Pbes2Settings {
  public:
    static constexpr size_t kVectorLength = 16;

    Pbes2Settings(const PbePassword& password, ByteView salt, long iterations);

    /// For the next item: 16 octets that nobody can foretell and that no other item has.
    void setVector(ByteView iv) { iv_ = toBytes(iv); }
    [[nodiscard]] AlgorithmIdentifier algorithm() const;
    /// Enciphers the encoding of an object. Throws CryptoError.
    [[nodiscard]] Bytes encrypt(const ASNobject& plain) const;

  private:
    const PbePassword& password_;
    Pbkdf2Params derivation_;
    Bytes iv_;
};

/// Deciphers by whatever scheme the identifier names: those of PKCS#12; PBES2 with PBKDF2 over any HMAC or with scrypt,
/// and triple DES, RC2, AES or Camellia in CBC mode. Throws CryptoError: badData for a wrong password or damage
/// (garbage may come out as well), unsupported for another scheme or more than kMaxPbeIterations, badParameter for
/// malformed parameters, cancelled.
[[nodiscard]] SecretBytes decryptPbe(const AlgorithmIdentifier& algorithm, const PbePassword& password,
                                     ByteView ciphertext);

/// Whether every item under this scheme has a key of its own, as those of PKCS#12 have; with PBES2 they share one.
[[nodiscard]] bool hasOwnKey(const AlgorithmIdentifier& algorithm);

/// The authentication code of a message by PBMAC1 (RFC 9579). Throws CryptoError as decryptPbe.
[[nodiscard]] SecretBytes computePbmac1(const AlgorithmIdentifier& algorithm, const PbePassword& password,
                                        ByteView message);

}  // namespace crv
