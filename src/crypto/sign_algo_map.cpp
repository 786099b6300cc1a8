#include "crypto/sign_algo_map.h"

#include <openssl/objects.h>

#include <algorithm>

namespace crv {

namespace {

using enum KcHashAlgo;
using Scheme = KeyScheme;

constexpr char kPssOid[] = "1.2.840.113549.1.1.10";

constexpr std::array<SignAlgo, 47> kMap = {{
    {Scheme::Rsa, Sha1, "sha1withRSAEncryption", "1.2.840.113549.1.1.5"},
    {Scheme::Rsa, Sha224, "sha224withRSAEncryption", "1.2.840.113549.1.1.14"},
    {Scheme::Rsa, Sha256, "sha256withRSAEncryption", "1.2.840.113549.1.1.11"},
    {Scheme::Rsa, Sha384, "sha384withRSAEncryption", "1.2.840.113549.1.1.12"},
    {Scheme::Rsa, Sha512, "sha512withRSAEncryption", "1.2.840.113549.1.1.13"},
    {Scheme::Rsa, Sha3224, "sha3_224withRSAEncryption", "2.16.840.1.101.3.4.3.13"},
    {Scheme::Rsa, Sha3256, "sha3_256withRSAEncryption", "2.16.840.1.101.3.4.3.14"},
    {Scheme::Rsa, Sha3384, "sha3_384withRSAEncryption", "2.16.840.1.101.3.4.3.15"},
    {Scheme::Rsa, Sha3512, "sha3_512withRSAEncryption", "2.16.840.1.101.3.4.3.16"},
    {Scheme::Rsa, Md5, "md5withRSAEncryption", "1.2.840.113549.1.1.4"},
    {Scheme::Rsa, Ripemd160, "ripemd160withRSAEncryption", "1.3.36.3.3.1.2"},
    {Scheme::RsaPss, Sha1, "rsaPSS, SHA-1", kPssOid},
    {Scheme::RsaPss, Sha224, "rsaPSS, SHA-224", kPssOid},
    {Scheme::RsaPss, Sha256, "rsaPSS, SHA-256", kPssOid},
    {Scheme::RsaPss, Sha384, "rsaPSS, SHA-384", kPssOid},
    {Scheme::RsaPss, Sha512, "rsaPSS, SHA-512", kPssOid},
    {Scheme::RsaPss, Sha3224, "rsaPSS, SHA-3-224", kPssOid},
    {Scheme::RsaPss, Sha3256, "rsaPSS, SHA-3-256", kPssOid},
    {Scheme::RsaPss, Sha3384, "rsaPSS, SHA-3-384", kPssOid},
    {Scheme::RsaPss, Sha3512, "rsaPSS, SHA-3-512", kPssOid},
    {Scheme::Dsa, Sha1, "dsaWithSha1", "1.2.840.10040.4.3"},
    {Scheme::Dsa, Ripemd160, "dsaWithRipemd160", "1.3.36.8.5.1.2.2"},
    {Scheme::Ecdsa, Sha1, "ecdsaWithSHA1", "1.2.840.10045.4.1"},
    {Scheme::Ecdsa, Sha224, "ecdsaWithSHA224", "1.2.840.10045.4.3.1"},
    {Scheme::Ecdsa, Sha256, "ecdsaWithSHA256", "1.2.840.10045.4.3.2"},
    {Scheme::Ecdsa, Sha384, "ecdsaWithSHA384", "1.2.840.10045.4.3.3"},
    {Scheme::Ecdsa, Sha512, "ecdsaWithSHA512", "1.2.840.10045.4.3.4"},
    {Scheme::Ecdsa, Sha3224, "ecdsaWithSHA3_224", "2.16.840.1.101.3.4.3.9"},
    {Scheme::Ecdsa, Sha3256, "ecdsaWithSHA3_256", "2.16.840.1.101.3.4.3.10"},
    {Scheme::Ecdsa, Sha3384, "ecdsaWithSHA3_384", "2.16.840.1.101.3.4.3.11"},
    {Scheme::Ecdsa, Sha3512, "ecdsaWithSHA3_512", "2.16.840.1.101.3.4.3.12"},
    {Scheme::None, Sha1, "sha1", "1.3.14.3.2.26"},
    {Scheme::None, Sha224, "sha224", "2.16.840.1.101.3.4.2.4"},
    {Scheme::None, Sha256, "sha256", "2.16.840.1.101.3.4.2.1"},
    {Scheme::None, Sha384, "sha384", "2.16.840.1.101.3.4.2.2"},
    {Scheme::None, Sha512, "sha512", "2.16.840.1.101.3.4.2.3"},
    {Scheme::None, Sha3224, "sha3_224", "2.16.840.1.101.3.4.2.7"},
    {Scheme::None, Sha3256, "sha3_256", "2.16.840.1.101.3.4.2.8"},
    {Scheme::None, Sha3384, "sha3_384", "2.16.840.1.101.3.4.2.9"},
    {Scheme::None, Sha3512, "sha3_512", "2.16.840.1.101.3.4.2.10"},
    {Scheme::None, Md5, "md5", "1.2.840.113549.2.5"},
    {Scheme::None, Ripemd128, "ripemd128", "1.3.36.3.2.2"},
    {Scheme::None, Ripemd160, "ripemd160", "1.3.36.3.2.1"},
    {Scheme::Rsa, None, "rsaEncryption", "1.2.840.113549.1.1.1"},
    {Scheme::RsaPss, None, "rsaPSS", kPssOid},
    {Scheme::Dsa, None, "dsa", "1.2.840.10040.4.1"},
    {Scheme::Ecdsa, None, "ecdsa", "1.2.840.10045.2.1"},
}};

template <class Predicate>
const SignAlgo* firstRow(const SignAlgo* from, Predicate wanted) noexcept {
    const SignAlgo* end = kMap.data() + kMap.size();
    const SignAlgo* row = std::find_if(from, end, wanted);
    return row == end ? nullptr : row;
}

// DER length of a PKCS#1 DigestInfo: SEQUENCE {SEQUENCE {hash, NULL}, OCTET STRING}, all lengths short.
size_t digestInfoLength(KcHashAlgo hash) noexcept {
    const int oidLength = a2d_ASN1_OBJECT(nullptr, 0, hashOid(hash), -1);
    return 2 + 2 + 2 + static_cast<size_t>(oidLength) + 2 + 2 + hashLength(hash);
}

}  // namespace

std::span<const SignAlgo> signAlgoMap() noexcept {
    return kMap;
}

const SignAlgo* findSignAlgo(KeyScheme scheme, KcHashAlgo hash) noexcept {
    return firstRow(kMap.data(), [&](const SignAlgo& row) { return row.scheme == scheme && row.hash == hash; });
}

const SignAlgo* findSignAlgo(std::string_view oid) noexcept {
    return firstRow(kMap.data(), [&](const SignAlgo& row) { return oid == row.oid; });
}

const char* signAlgoName(KeyScheme scheme, KcHashAlgo hash) noexcept {
    const SignAlgo* row = findSignAlgo(scheme, hash);
    return row ? row->name : nullptr;
}

const char* hashOid(KcHashAlgo hash) noexcept {
    const SignAlgo* row = hash == KcHashAlgo::None ? nullptr : findSignAlgo(KeyScheme::None, hash);
    return row ? row->oid : "";
}

bool isHashSupported(KeyScheme scheme, KcHashAlgo hash) noexcept {
    return scheme != KeyScheme::None && hash != KcHashAlgo::None && findSignAlgo(scheme, hash) != nullptr;
}

KcHashAlgo nextSignAlgo(KeyScheme scheme, KcHashAlgo hash) noexcept {
    const SignAlgo* row = findSignAlgo(scheme, hash);
    if (row) row = firstRow(row + 1, [&](const SignAlgo& next) { return next.scheme == scheme; });
    return row ? row->hash : KcHashAlgo::None;
}

KcHashAlgo firstSignAlgo(KeyScheme scheme) noexcept {
    const SignAlgo* row = firstRow(kMap.data(), [&](const SignAlgo& first) { return first.scheme == scheme; });
    return row ? row->hash : KcHashAlgo::None;
}

bool isSignAlgoValidForKeyLength(KeyScheme scheme, KcHashAlgo hash, unsigned keyBits) noexcept {
    if (keyBits == 0) return true;
    if (scheme == KeyScheme::Rsa) return digestInfoLength(hash) + 10 < (size_t{keyBits} + 7) / 8;
    if (scheme == KeyScheme::RsaPss) return keyBits / 8 >= 2 * hashLength(hash) + 2;
    return true;
}

}  // namespace crv
