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
    /// Throws CryptoError (badParameter) for what is not UTF-8.
    explicit PbePassword(std::string_view utf8);

    [[nodiscard]] ByteView utf8() const { return utf8_; }
    [[nodiscard]] ByteView unicode() const { return unicode_; }
    /// An empty password is written by some without the zero pair: this one in that form.
    [[nodiscard]] static PbePassword none() { return {}; }

  private:
    PbePassword() = default;

    SecretBytes utf8_;
    SecretBytes unicode_;
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

/// Parameters of PBES2 (RFC 8018 A.4).
class Pbes2Parameters : public ASNsequenceF {
  public:
    AlgorithmIdentifier keyDerivationFunc;
    AlgorithmIdentifier encryptionScheme;

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

/// Deciphers by whatever scheme the identifier names: the PKCS#12 schemes with triple DES or 40-bit RC2; PBES2 with
/// PBKDF2 over any HMAC and triple DES, RC2 or AES in CBC mode. Throws CryptoError: badData for a wrong password or
/// damage (garbage may come out as well), unsupported for another scheme, badParameter for malformed parameters or more
/// than kMaxPbeIterations.
[[nodiscard]] SecretBytes decryptPbe(const AlgorithmIdentifier& algorithm, const PbePassword& password,
                                     ByteView ciphertext);

}  // namespace crv
