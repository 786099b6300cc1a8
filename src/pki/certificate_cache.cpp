#include "pki/certificate_cache.h"

#include "asn/x509/signed_cert_rev_list.h"
#include "asn/x509/signed_certificate.h"
#include "crypto/kc_hash.h"

namespace crv {

CertPtr CertificateCache::certificate(ByteView der) {
    Digest digest;
    hashInto(KcHashAlgo::Sha256, der, digest);
    const auto known = certificates_.find(digest);
    if (known != certificates_.end()) return known->second;
    if (certificates_.size() >= kMaxEntries) certificates_.clear();
    CertPtr made = makeCert(der);
    if (made) certificates_.emplace(digest, made);
    return made;
}

template <class Signed>
bool CertificateCache::check(const Signed& object, const SignedCertificate& issuer) {
    std::pair<Digest, Digest> pair;
    if (!object.computeDigest(KcHashAlgo::Sha256, pair.first.data(), pair.first.size()) ||
        !issuer.computeDigest(KcHashAlgo::Sha256, pair.second.data(), pair.second.size())) {
        return false;
    }
    if (goodSignatures_.contains(pair)) return true;
    if (!object.isSignedBy(issuer.keyInfo().publicKey())) return false;
    if (goodSignatures_.size() >= kMaxEntries) goodSignatures_.clear();
    goodSignatures_.insert(pair);
    return true;
}

bool CertificateCache::isSignedBy(const SignedCertificate& certificate, const SignedCertificate& issuer) {
    return check(certificate, issuer);
}

bool CertificateCache::isSignedBy(const SignedCertRevList& crl, const SignedCertificate& issuer) {
    return check(crl, issuer);
}

void CertificateCache::clear() {
    certificates_.clear();
    goodSignatures_.clear();
}

}  // namespace crv
