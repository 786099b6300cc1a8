// What is known of a certificate's trust and revocation.
#pragma once

#include "pki/certificate_manager.h"
#include "pki/revocation_manager.h"

namespace crv {

enum class CertificateStanding {
    Trusted,    ///< a path leads to a trust point, and the certificate is not revoked
    Revoked,    ///< a current, verified CRL says so
    NoPath,     ///< no good path, whatever CRLs say
    NotCovered  ///< a good path, but no current, verified CRL that covers the certificate
};

struct CertificateState {
    CertificateStanding standing = CertificateStanding::NoPath;
    CrtStatus status;
    PathVerdict path;  ///< without a look at revocation

    /// Whether the certificate itself is a trust point: nobody above it could revoke it.
    [[nodiscard]] bool isTrustPoint() const { return path.good() && path.certs.size() == 1; }
};

/// Reads the CRLs of the database each time; the managers are those of one context.
[[nodiscard]] CertificateState certificateState(RevocationManager& revocation, CertificateManager& certificates,
                                                const CertPtr& certificate, int64_t time);

}  // namespace crv
