#include "pkcs11/p11_mechanisms.h"

#include <algorithm>
#include <iterator>
#include <vector>

namespace crv {
namespace {

using enum P11Input;

constexpr P11SignRow kSignRows[] = {
    {KeyScheme::Rsa, KcHashAlgo::None, CKM_RSA_PKCS, DigestInfo},
    {KeyScheme::Rsa, KcHashAlgo::Sha1, CKM_SHA1_RSA_PKCS, Message},
    {KeyScheme::Rsa, KcHashAlgo::Sha224, CKM_SHA224_RSA_PKCS, Message},
    {KeyScheme::Rsa, KcHashAlgo::Sha256, CKM_SHA256_RSA_PKCS, Message},
    {KeyScheme::Rsa, KcHashAlgo::Sha384, CKM_SHA384_RSA_PKCS, Message},
    {KeyScheme::Rsa, KcHashAlgo::Sha512, CKM_SHA512_RSA_PKCS, Message},
    {KeyScheme::RsaPss, KcHashAlgo::None, CKM_RSA_PKCS_PSS, Digest},
    {KeyScheme::RsaPss, KcHashAlgo::Sha1, CKM_SHA1_RSA_PKCS_PSS, Message},
    {KeyScheme::RsaPss, KcHashAlgo::Sha224, CKM_SHA224_RSA_PKCS_PSS, Message},
    {KeyScheme::RsaPss, KcHashAlgo::Sha256, CKM_SHA256_RSA_PKCS_PSS, Message},
    {KeyScheme::RsaPss, KcHashAlgo::Sha384, CKM_SHA384_RSA_PKCS_PSS, Message},
    {KeyScheme::RsaPss, KcHashAlgo::Sha512, CKM_SHA512_RSA_PKCS_PSS, Message},
    {KeyScheme::RsaPss, KcHashAlgo::None, CKM_RSA_X_509, EncodedPss},
    {KeyScheme::Ecdsa, KcHashAlgo::None, CKM_ECDSA, Digest},
};

constexpr P11DecryptRow kDecryptRows[] = {
    {RsaPadding::Pkcs1, CKM_RSA_PKCS, false},
    {RsaPadding::Pkcs1, CKM_RSA_X_509, true},
    {RsaPadding::Oaep, CKM_RSA_PKCS_OAEP, false},
    {RsaPadding::Oaep, CKM_RSA_X_509, true},
};

constexpr struct {
    KcHashAlgo algo;
    P11HashNames names;
} kHashes[] = {
    {KcHashAlgo::Sha1, {CKM_SHA_1, CKG_MGF1_SHA1}},      {KcHashAlgo::Sha224, {CKM_SHA224, CKG_MGF1_SHA224}},
    {KcHashAlgo::Sha256, {CKM_SHA256, CKG_MGF1_SHA256}}, {KcHashAlgo::Sha384, {CKM_SHA384, CKG_MGF1_SHA384}},
    {KcHashAlgo::Sha512, {CKM_SHA512, CKG_MGF1_SHA512}},
};

}  // namespace

std::vector<P11SignRow> signMechanisms(KeyScheme scheme, KcHashAlgo hash) {
    const bool named = p11HashNames(hash).hash != CK_UNAVAILABLE_INFORMATION;
    std::vector<P11SignRow> rows;
    std::ranges::copy_if(kSignRows, std::back_inserter(rows), [&](const P11SignRow& row) {
        // The parameters of CKM_RSA_PKCS_PSS name the hash.
        const bool unnamed = row.mechanism == CKM_RSA_PKCS_PSS && !named;
        return row.scheme == scheme && (row.hash == hash || (row.hash == KcHashAlgo::None && !unnamed));
    });
    return rows;
}

std::vector<P11DecryptRow> decryptMechanisms(RsaPadding padding) {
    std::vector<P11DecryptRow> rows;
    std::ranges::copy_if(kDecryptRows, std::back_inserter(rows),
                         [&](const P11DecryptRow& row) { return row.padding == padding; });
    return rows;
}

P11HashNames p11HashNames(KcHashAlgo hash) {
    for (const auto& row : kHashes)
        if (row.algo == hash) return row.names;
    return {CK_UNAVAILABLE_INFORMATION, CK_UNAVAILABLE_INFORMATION};
}

}  // namespace crv
