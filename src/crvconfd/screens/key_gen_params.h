// What the key generation screen lets the user choose, and the rules that tie the choices together.
#pragma once

#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "crypto/ec_curves.h"
#include "crypto/kc_hash.h"
#include "crypto/key_scheme.h"
#include "crypto/sign_algo_map.h"

namespace crv {

/// Lengths offered for a file profile, in bits.
inline constexpr unsigned kRsaLengths[] = {2048, 3072, 4096, 7680, 8192, 15360, 16384};
inline constexpr unsigned kDsaLengths[] = {1024};

/// Lengths offered for a token: its minimum (128 for 0), every multiple of 128 above it, its maximum; at most 100. None
/// for a token that reports 0 and 0.
[[nodiscard]] std::vector<unsigned> tokenKeyLengths(unsigned minimum, unsigned maximum);
/// As many of them are shown.
inline constexpr size_t kShownTokenLengths = 40;

/// What a token says of RSA.
struct TokenAbilities {
    bool generatesRsa = false;
    bool signs = false;
    bool decrypts = false;
};

/// Why a token cannot take a key of the use, as the text for the user; null when it can.
[[nodiscard]] const char* tokenRefusal(const TokenAbilities& token, bool forSigning, bool forEncryption);

/// The screen's state. Only the schemes offered can be chosen; a token takes RSA alone.
struct KeyGenParams {
    /// The configuration's default hash for a scheme.
    using DefaultHash = std::function<KcHashAlgo(KeyScheme)>;

    const char* title = nullptr;  ///< null: "Generowanie klucza"
    bool token = false;
    bool offersRsa = true;
    bool offersDsa = false;
    bool offersEcdsa = false;
    bool offersRsaPss = false;
    unsigned tokenMinimum = 0;
    unsigned tokenMaximum = 0;
    DefaultHash defaultHash;

    KeyScheme keyScheme = KeyScheme::Rsa;
    unsigned keyLength = 2048;  ///< bits; unused for ECDSA
    StdECId curve = kDefaultCurve;
    KeyScheme signScheme = KeyScheme::Rsa;
    KcHashAlgo hash = KcHashAlgo::Sha256;

    bool pem = true;
    bool sha1RsaRequest = false;  ///< RSA-PSS: sign the request with SHA-1 and PKCS#1 v1.5
    bool forceAlgorithm = false;  ///< RSA-PSS: write the algorithm into the key
    bool explicitDomain = false;  ///< ECDSA: write the domain parameters out

    /// The schemes offered, in the order RSA, DSA, ECDSA, RSA-PSS.
    [[nodiscard]] std::vector<KeyScheme> schemes() const;
    /// Takes a scheme: its signature scheme and default hash go with it, and a length that it does not have becomes
    /// 1024 - for RSA, too, which generation then refuses.
    void chooseScheme(KeyScheme scheme);

    /// Makes it the screen of a token with these bounds; 2048 bits are chosen where it makes them, else its most.
    void limitTo(unsigned minimum, unsigned maximum);
    /// The lengths offered for the scheme.
    [[nodiscard]] std::vector<unsigned> lengths() const;
    /// Takes a length; a signature algorithm that it has no room for falls back to the default hash.
    void chooseLength(unsigned bits);

    /// The signature algorithms that can be chosen: those of the key's scheme in table order, without MD5, valid for
    /// the length.
    [[nodiscard]] std::vector<SignAlgo> signAlgos() const;
    /// The index of the current one in such a list; failing that of the first with the same hash; else the list's size.
    [[nodiscard]] size_t currentSignAlgo(const std::vector<SignAlgo>& list) const;

    [[nodiscard]] const char* titleText() const { return title ? title : "Generowanie klucza"; }
    [[nodiscard]] const char* schemeName() const { return signAlgoName(keyScheme, KcHashAlgo::None); }
    [[nodiscard]] const char* signAlgoText() const { return signAlgoName(signScheme, hash); }
    [[nodiscard]] const char* curveName() const;
    /// Whether the domain of the curve may be written by its identifier.
    [[nodiscard]] bool curveHasOid() const;
    /// Bits of the key or of the curve's field.
    [[nodiscard]] unsigned keyBits() const;
};

}  // namespace crv
