#include "pkcs11_module/mechanisms.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include "pkcs11/p11_mechanisms.h"

namespace crv::p11 {
namespace {

using enum KcHashAlgo;
using Scheme = KeyScheme;

constexpr CK_FLAGS kSigns = CKF_SIGN | CKF_VERIFY;
constexpr CK_FLAGS kBinaryFields = 1UL << 21;  // CKF_EC_F_2M, which the header lacks
constexpr CK_FLAGS kSignsEc = kSigns | CKF_EC_F_P | kBinaryFields | CKF_EC_NAMEDCURVE | CKF_EC_UNCOMPRESS;

constexpr MechanismRow kMechanisms[] = {
    {CKM_RSA_PKCS, Scheme::Rsa, None, kSigns | CKF_DECRYPT},
    {CKM_SHA1_RSA_PKCS, Scheme::Rsa, Sha1, kSigns},
    {CKM_SHA224_RSA_PKCS, Scheme::Rsa, Sha224, kSigns},
    {CKM_SHA256_RSA_PKCS, Scheme::Rsa, Sha256, kSigns},
    {CKM_SHA384_RSA_PKCS, Scheme::Rsa, Sha384, kSigns},
    {CKM_SHA512_RSA_PKCS, Scheme::Rsa, Sha512, kSigns},
    {CKM_RSA_PKCS_PSS, Scheme::RsaPss, None, kSigns},
    {CKM_SHA1_RSA_PKCS_PSS, Scheme::RsaPss, Sha1, kSigns},
    {CKM_SHA224_RSA_PKCS_PSS, Scheme::RsaPss, Sha224, kSigns},
    {CKM_SHA256_RSA_PKCS_PSS, Scheme::RsaPss, Sha256, kSigns},
    {CKM_SHA384_RSA_PKCS_PSS, Scheme::RsaPss, Sha384, kSigns},
    {CKM_SHA512_RSA_PKCS_PSS, Scheme::RsaPss, Sha512, kSigns},
    {CKM_RSA_PKCS_OAEP, Scheme::Rsa, None, CKF_DECRYPT},
    {CKM_ECDSA, Scheme::Ecdsa, None, kSignsEc},
    {CKM_ECDSA_SHA1, Scheme::Ecdsa, Sha1, kSignsEc},
    {CKM_ECDSA_SHA224, Scheme::Ecdsa, Sha224, kSignsEc},
    {CKM_ECDSA_SHA256, Scheme::Ecdsa, Sha256, kSignsEc},
    {CKM_ECDSA_SHA384, Scheme::Ecdsa, Sha384, kSignsEc},
    {CKM_ECDSA_SHA512, Scheme::Ecdsa, Sha512, kSignsEc},
    {CKM_DSA, Scheme::Dsa, None, kSigns},
    {CKM_DSA_SHA1, Scheme::Dsa, Sha1, kSigns},
    {CKM_SHA_1, Scheme::None, Sha1, CKF_DIGEST},
    {CKM_SHA224, Scheme::None, Sha224, CKF_DIGEST},
    {CKM_SHA256, Scheme::None, Sha256, CKF_DIGEST},
    {CKM_SHA384, Scheme::None, Sha384, CKF_DIGEST},
    {CKM_SHA512, Scheme::None, Sha512, CKF_DIGEST},
};

struct Sizes {
    CK_ULONG least, most;
};
/// Bits of the keys of a scheme, in the order of KeyScheme.
constexpr Sizes kSizes[] = {{PublicKey::kMinRsaBits, PublicKey::kMaxRsaBits},
                            {512, 4096},
                            {160, 571},
                            {PublicKey::kMinRsaBits, PublicKey::kMaxRsaBits}};

/// The hash that a value of the given kind names.
template <class Value>
KcHashAlgo hashNamed(Value value, Value P11HashNames::*kind) {
    const auto found =
        std::ranges::find_if(kHashAlgos, [&](KcHashAlgo hash) { return p11HashNames(hash).*kind == value; });
    const bool known = value != CK_UNAVAILABLE_INFORMATION && found != kHashAlgos.end();
    demand(known, CKR_MECHANISM_PARAM_INVALID);
    return *found;
}

/// The caller's structure, which need not be aligned.
template <class Params>
Params paramsOf(const CK_MECHANISM& mechanism) {
    Params params;
    demand(mechanism.pParameter && mechanism.ulParameterLen == sizeof params, CKR_MECHANISM_PARAM_INVALID);
    std::memcpy(&params, mechanism.pParameter, sizeof params);
    return params;
}

}  // namespace

std::span<const MechanismRow> mechanisms() {
    return kMechanisms;
}

const MechanismRow& findMechanism(CK_MECHANISM_TYPE type, CK_FLAGS use) {
    const auto* row = std::ranges::find(kMechanisms, type, &MechanismRow::type);
    demand(row != std::end(kMechanisms) && (row->flags & use) == use, CKR_MECHANISM_INVALID);
    return *row;
}

CK_MECHANISM_INFO infoOf(const MechanismRow& row) {
    if (row.scheme == KeyScheme::None) return {0, 0, row.flags};
    const Sizes& sizes = kSizes[static_cast<size_t>(row.scheme)];
    return {sizes.least, sizes.most, row.flags};
}

PssChoice pssChoice(const MechanismRow& row, const CK_MECHANISM& mechanism) {
    const auto given = paramsOf<CK_RSA_PKCS_PSS_PARAMS>(mechanism);
    const KcHashAlgo hash = hashNamed(given.hashAlg, &P11HashNames::hash);
    const KcHashAlgo mgf = hashNamed(given.mgf, &P11HashNames::mgf);
    demand((row.hash == None || row.hash == hash) && given.sLen <= PublicKey::kMaxRsaBits / 8,
           CKR_MECHANISM_PARAM_INVALID);
    return {hash, {mgf, static_cast<int>(given.sLen)}};
}

OaepParams oaepParams(const CK_MECHANISM& mechanism) {
    const auto given = paramsOf<CK_RSA_PKCS_OAEP_PARAMS>(mechanism);
    const bool labelled = given.ulSourceDataLen != 0;
    demand(given.source == CKZ_DATA_SPECIFIED || (given.source == 0 && !labelled), CKR_MECHANISM_PARAM_INVALID);
    demand(!labelled || (given.pSourceData && given.ulSourceDataLen <= INT_MAX), CKR_MECHANISM_PARAM_INVALID);
    const auto* label = static_cast<const uint8_t*>(given.pSourceData);
    return {hashNamed(given.hashAlg, &P11HashNames::hash), hashNamed(given.mgf, &P11HashNames::mgf),
            labelled ? Bytes(label, label + given.ulSourceDataLen) : Bytes()};
}

void demandNoParameter(const CK_MECHANISM& mechanism) {
    demand(mechanism.ulParameterLen == 0, CKR_MECHANISM_PARAM_INVALID);
}

}  // namespace crv::p11
