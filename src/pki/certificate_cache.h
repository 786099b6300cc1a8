// Certificates that were parsed and signatures that were found right, kept for the next time.
#pragma once

#include <array>
#include <map>
#include <set>

#include "asn/x509/cert_ptr.h"

namespace crv {

class PublicKey;
class SignedCertRevList;

/// Bounded; holds nothing that cannot be made again. Used by one thread at a time.
class CertificateCache {
  public:
    static constexpr size_t kMaxEntries = 4096;

    /// The certificate of an encoding; null when it is none.
    [[nodiscard]] CertPtr certificate(ByteView der);
    /// Whether the issuer's key made the signature. Only right ones are remembered. Throws CryptoError for a key or an
    /// algorithm that cannot be used.
    [[nodiscard]] bool isSignedBy(const SignedCertificate& certificate, const SignedCertificate& issuer);
    [[nodiscard]] bool isSignedBy(const SignedCertRevList& crl, const SignedCertificate& issuer);
    void clear();

  private:
    using Digest = std::array<uint8_t, 32>;
    template <class Signed>
    bool check(const Signed& object, const SignedCertificate& issuer);

    std::map<Digest, CertPtr> certificates_;
    std::set<std::pair<Digest, Digest>> goodSignatures_;
};

}  // namespace crv
