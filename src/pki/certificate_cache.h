// Certificates that were parsed and signatures that were found right, kept for the next time.
#pragma once

#include <map>
#include <set>

#include "pki/certificate_facts.h"

namespace crv {

/// Bounded; holds nothing that cannot be made again. Used by one thread at a time.
class CertificateCache {
  public:
    static constexpr size_t kMaxEntries = 4096;

    /// The certificate of an encoding; null when it is none.
    [[nodiscard]] CertPtr certificate(ByteView der);
    /// What a certificate says.
    [[nodiscard]] FactsPtr facts(const CertPtr& certificate);
    /// Signatures that were found right, by the digest of what is signed and that of the key.
    [[nodiscard]] bool isKnownSignature(const Digest& object, const Digest& key) const;
    void keepSignature(const Digest& object, const Digest& key);
    void clear();

  private:
    std::map<Digest, CertPtr> certificates_;
    std::map<const SignedCertificate*, FactsPtr> facts_;  // which keep the certificates
    std::set<std::pair<Digest, Digest>> goodSignatures_;
};

}  // namespace crv
