#include "pki/certificate_cache.h"

namespace crv {

CertPtr CertificateCache::certificate(ByteView der) {
    const Digest digest = digestOf(der);
    const auto known = certificates_.find(digest);
    if (known != certificates_.end()) return known->second;
    if (certificates_.size() >= kMaxEntries) certificates_.clear();
    CertPtr made = makeCert(der);
    if (made) certificates_.emplace(digest, made);
    return made;
}

FactsPtr CertificateCache::facts(const CertPtr& certificate) {
    const auto known = facts_.find(certificate.get());
    if (known != facts_.end()) return known->second;
    if (facts_.size() >= kMaxEntries) facts_.clear();
    return facts_[certificate.get()] = factsOf(certificate);
}

bool CertificateCache::isKnownSignature(const Digest& object, const Digest& key) const {
    return goodSignatures_.contains({object, key});
}

void CertificateCache::keepSignature(const Digest& object, const Digest& key) {
    if (goodSignatures_.size() >= kMaxEntries) goodSignatures_.clear();
    goodSignatures_.insert({object, key});
}

void CertificateCache::clear() {
    certificates_.clear();
    facts_.clear();
    goodSignatures_.clear();
}

}  // namespace crv
