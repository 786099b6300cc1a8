#include "crvasn/structure_kind.h"

#include <memory>

#include "asn/pkcs/certification_request.h"
#include "asn/pkcs/content_info.h"
#include "asn/pkcs/digest_info.h"
#include "asn/pkcs/dsa_private_key.h"
#include "asn/pkcs/ec_private_key.h"
#include "asn/pkcs/km_key_file.h"
#include "asn/pkcs/km_seed_file.h"
#include "asn/pkcs/pfx.h"
#include "asn/pkcs/private_key_info.h"
#include "asn/pkcs/rsa_private_key.h"
#include "asn/pkcs/safe_bag.h"
#include "asn/x509/signed_cert_rev_list.h"
#include "asn/x509/signed_certificate.h"
#include "misc/memory_file.h"

namespace crv {

namespace {

struct KindRow {
    const char* name;
    std::unique_ptr<ASNobject> (*make)();
};

template <class T>
constexpr KindRow kind(const char* name) {
    return {name, []() -> std::unique_ptr<ASNobject> { return std::make_unique<T>(); }};
}

constexpr KindRow kKinds[] = {
    kind<SignedCertificate>("SignedCertificate"),
    kind<SignedCertRevList>("SignedCertRevList"),
    kind<CertificationRequest>("CertificationRequest"),
    kind<Pfx>("Pfx"),
    kind<PrivateKeyInfo>("PrivateKeyInfo"),
    kind<RSAPrivateKey>("RSAPrivateKey"),
    kind<DSAPrivateKey>("DSAPrivateKey"),
    kind<ECPrivateKey>("ECPrivateKey"),
    kind<SignedCertificateWithDesc>("SignedCertificateWithDesc"),
    kind<KMKeyFile>("KMKeyFile"),
    kind<KMSeedFile>("KMSeedFile"),
    kind<EncryptedPrivateKeyInfo>("EncryptedPrivateKeyInfo"),
    kind<SubjectPublicKeyInfo>("SubjectPublicKeyInfo"),
    kind<DigestInfo>("DigestInfo"),
    kind<SafeContents>("SafeContents"),
    kind<DistinguishedName>("DistinguishedName"),
    kind<ContentInfo>("ContentInfo"),
    kind<AlgorithmIdentifier>("AlgorithmIdentifier"),
};

bool isKind(const KindRow& row, ByteView octets) {
    MemoryFile file(octets);
    while (file.peek() >= 0)
        if (row.make()->read(&file, 0, ASN_FLAG_CONST) <= 0) return false;
    return true;
}

}  // namespace

const char* structureKind(ByteView octets) {
    constexpr size_t kEmptySequence = 2;  // an empty list could be any
    if (octets.size() <= kEmptySequence) return nullptr;
    for (const KindRow& row : kKinds)
        if (isKind(row, octets)) return row.name;
    return nullptr;
}

}  // namespace crv
