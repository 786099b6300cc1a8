// What CRLs say about a certificate (RFC 5280 6.3.3).
#pragma once

#include <functional>

#include "pki/crl_facts.h"
#include "pki/path_verdict.h"

namespace crv {

/// Who signed a CRL, or why nobody did who may (6.3.3 (f), (g)).
struct CrlSigner {
    PathFault fault{};
    /// Signed by an authority of that name under another trust point: not about the certificate in question.
    bool otherAuthority = false;
    /// The status of who signed is what is being asked for: the CRL covers reasons, but its entries do not count.
    bool inQuestion = false;
    /// The work limit came before an answer.
    bool undecided = false;
    Digest key{};
};
using CrlVerifier = std::function<CrlSigner(const CrlFacts& crl)>;

/// Names of those whose CRLs may tell about the certificate: its issuer and the cRLIssuers of its distribution points.
[[nodiscard]] std::vector<Bytes> crlIssuersOf(const CertificateFacts& certificate);

/// Reads every current CRL for each distribution point, then for the certificate's issuer itself. A revocation in any
/// of them counts; whether a hold still stands is told by the newest of those of one issuer and scope.
[[nodiscard]] CrtStatus statusFrom(const CertificateFacts& certificate, const CrlFactsList& crls, int64_t time,
                                   bool useDeltas, const CrlVerifier& verify);

/// Why the CRL is not the current one at that moment.
[[nodiscard]] PathFault faultOfTime(const CrlFacts& crl, int64_t time);

}  // namespace crv
