#include "crypto/sign_algo_map.h"

#include <openssl/objects.h>

#include <algorithm>

namespace crv {

namespace {

using enum KcHashAlgo;
using Scheme = KeyScheme;

constexpr char kPssOid[] = "1.2.840.113549.1.1.10";

constexpr std::array<SignAlgo, 47> kMap = {{
    {Scheme::rsa, sha1, "sha1withRSAEncryption", "1.2.840.113549.1.1.5"},
    {Scheme::rsa, sha224, "sha224withRSAEncryption", "1.2.840.113549.1.1.14"},
    {Scheme::rsa, sha256, "sha256withRSAEncryption", "1.2.840.113549.1.1.11"},
    {Scheme::rsa, sha384, "sha384withRSAEncryption", "1.2.840.113549.1.1.12"},
    {Scheme::rsa, sha512, "sha512withRSAEncryption", "1.2.840.113549.1.1.13"},
    {Scheme::rsa, sha3_224, "sha3_224withRSAEncryption", "2.16.840.1.101.3.4.3.13"},
    {Scheme::rsa, sha3_256, "sha3_256withRSAEncryption", "2.16.840.1.101.3.4.3.14"},
    {Scheme::rsa, sha3_384, "sha3_384withRSAEncryption", "2.16.840.1.101.3.4.3.15"},
    {Scheme::rsa, sha3_512, "sha3_512withRSAEncryption", "2.16.840.1.101.3.4.3.16"},
    {Scheme::rsa, md5, "md5withRSAEncryption", "1.2.840.113549.1.1.4"},
    {Scheme::rsa, ripemd160, "ripemd160withRSAEncryption", "1.3.36.3.3.1.2"},
    {Scheme::rsaPss, sha1, "rsaPSS, SHA-1", kPssOid},
    {Scheme::rsaPss, sha224, "rsaPSS, SHA-224", kPssOid},
    {Scheme::rsaPss, sha256, "rsaPSS, SHA-256", kPssOid},
    {Scheme::rsaPss, sha384, "rsaPSS, SHA-384", kPssOid},
    {Scheme::rsaPss, sha512, "rsaPSS, SHA-512", kPssOid},
    {Scheme::rsaPss, sha3_224, "rsaPSS, SHA-3-224", kPssOid},
    {Scheme::rsaPss, sha3_256, "rsaPSS, SHA-3-256", kPssOid},
    {Scheme::rsaPss, sha3_384, "rsaPSS, SHA-3-384", kPssOid},
    {Scheme::rsaPss, sha3_512, "rsaPSS, SHA-3-512", kPssOid},
    {Scheme::dsa, sha1, "dsaWithSha1", "1.2.840.10040.4.3"},
    {Scheme::dsa, ripemd160, "dsaWithRipemd160", "1.3.36.8.5.1.2.2"},
    {Scheme::ecdsa, sha1, "ecdsaWithSHA1", "1.2.840.10045.4.1"},
    {Scheme::ecdsa, sha224, "ecdsaWithSHA224", "1.2.840.10045.4.3.1"},
    {Scheme::ecdsa, sha256, "ecdsaWithSHA256", "1.2.840.10045.4.3.2"},
    {Scheme::ecdsa, sha384, "ecdsaWithSHA384", "1.2.840.10045.4.3.3"},
    {Scheme::ecdsa, sha512, "ecdsaWithSHA512", "1.2.840.10045.4.3.4"},
    {Scheme::ecdsa, sha3_224, "ecdsaWithSHA3_224", "2.16.840.1.101.3.4.3.9"},
    {Scheme::ecdsa, sha3_256, "ecdsaWithSHA3_256", "2.16.840.1.101.3.4.3.10"},
    {Scheme::ecdsa, sha3_384, "ecdsaWithSHA3_384", "2.16.840.1.101.3.4.3.11"},
    {Scheme::ecdsa, sha3_512, "ecdsaWithSHA3_512", "2.16.840.1.101.3.4.3.12"},
    {Scheme::none, sha1, "sha1", "1.3.14.3.2.26"},
    {Scheme::none, sha224, "sha224", "2.16.840.1.101.3.4.2.4"},
    {Scheme::none, sha256, "sha256", "2.16.840.1.101.3.4.2.1"},
    {Scheme::none, sha384, "sha384", "2.16.840.1.101.3.4.2.2"},
    {Scheme::none, sha512, "sha512", "2.16.840.1.101.3.4.2.3"},
    {Scheme::none, sha3_224, "sha3_224", "2.16.840.1.101.3.4.2.7"},
    {Scheme::none, sha3_256, "sha3_256", "2.16.840.1.101.3.4.2.8"},
    {Scheme::none, sha3_384, "sha3_384", "2.16.840.1.101.3.4.2.9"},
    {Scheme::none, sha3_512, "sha3_512", "2.16.840.1.101.3.4.2.10"},
    {Scheme::none, md5, "md5", "1.2.840.113549.2.5"},
    {Scheme::none, ripemd128, "ripemd128", "1.3.36.3.2.2"},
    {Scheme::none, ripemd160, "ripemd160", "1.3.36.3.2.1"},
    {Scheme::rsa, none, "rsaEncryption", "1.2.840.113549.1.1.1"},
    {Scheme::rsaPss, none, "rsaPSS", kPssOid},
    {Scheme::dsa, none, "dsa", "1.2.840.10040.4.1"},
    {Scheme::ecdsa, none, "ecdsa", "1.2.840.10045.2.1"},
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
    return row != nullptr ? row->name : nullptr;
}

const char* hashOid(KcHashAlgo hash) noexcept {
    const SignAlgo* row = hash == KcHashAlgo::none ? nullptr : findSignAlgo(KeyScheme::none, hash);
    return row != nullptr ? row->oid : "";
}

bool isHashSupported(KeyScheme scheme, KcHashAlgo hash) noexcept {
    return scheme != KeyScheme::none && hash != KcHashAlgo::none && findSignAlgo(scheme, hash) != nullptr;
}

KcHashAlgo nextSignAlgo(KeyScheme scheme, KcHashAlgo hash) noexcept {
    const SignAlgo* row = findSignAlgo(scheme, hash);
    if (row != nullptr) row = firstRow(row + 1, [&](const SignAlgo& next) { return next.scheme == scheme; });
    return row != nullptr ? row->hash : KcHashAlgo::none;
}

KcHashAlgo firstSignAlgo(KeyScheme scheme) noexcept {
    const SignAlgo* row = firstRow(kMap.data(), [&](const SignAlgo& first) { return first.scheme == scheme; });
    return row != nullptr ? row->hash : KcHashAlgo::none;
}

bool isSignAlgoValidForKeyLength(KeyScheme scheme, KcHashAlgo hash, unsigned keyBits) noexcept {
    if (keyBits == 0) return true;
    if (scheme == KeyScheme::rsa) return digestInfoLength(hash) + 10 < (size_t{keyBits} + 7) / 8;
    if (scheme == KeyScheme::rsaPss) return keyBits / 8 >= 2 * hashLength(hash) + 2;
    return true;
}

}  // namespace crv
