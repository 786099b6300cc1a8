// What a certificate's path is asked to be good for, and the verdict on it (RFC 5280 6.1.1, 6.1.6).
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "asn/asn_object_id.h"
#include "asn/x509/cert_ptr.h"
#include "asn/x509/revoked_certificate.h"

namespace crv {

/// Where a status comes from.
struct StatusSourceNote {
    std::string issuer;      ///< name of who signed the CRL or OCSP answer, on one line; empty when there was none
    std::string number;      ///< cRLNumber in decimal; empty when it has none
    std::string delta;       ///< number of the delta that was applied; empty when there was none
    int64_t thisUpdate = 0;  ///< of the newer of both, seconds since 1970 UTC
    int64_t age = 0;         ///< seconds from then to the moment asked about
    bool ocsp = false;       ///< an OCSP answer, which has no numbers
};

/// Whether a certificate is revoked, as far as the stored CRLs tell.
struct CrtStatus {
    enum class State {
        Good,
        Revoked,  ///< a hold counts as revoked with reason certificateHold
        Unknown,  ///< no stored CRL covers it, or not for every reason
        Unusable  ///< one is stored, but it cannot be relied on; never taken for unknown
    };
    State state = State::Unknown;
    CrlReason reason = CrlReason::Unspecified;
    int64_t revokedAt = 0;    ///< seconds since 1970 UTC
    int code = 0;             ///< unknown, unusable: the library's code for why (102 no CRL, 101 none is current, ...)
    const char* clause = "";  ///< of RFC 5280, what made a CRL unusable
    std::string text{};       ///< the same in words
    StatusSourceNote source{};
};

enum class RevocationCheck {
    None,
    IfKnown,  ///< a revoked certificate and one whose CRL is unusable fail, an unknown status does not
    Required  ///< an unknown status fails, too
};

/// Work that a question may cost before it is given up; counted, so the answer does not depend on the machine.
struct WorkLimits {
    size_t signatures = 1000;          ///< signatures looked at that were not known to be right
    size_t paths = 400;                ///< complete paths judged
    size_t candidates = 100'000;       ///< issuers looked at
    size_t nameComparisons = 250'000;  ///< names against name constraints, on one path
};

struct PathVerdict;

struct PathOptions {
    int64_t time = 0;       ///< seconds since 1970 UTC
    uint32_t keyUsage = 0;  ///< uses that the certificate must be good for, bit n is KeyUsage::Bit n
    RevocationCheck revocation = RevocationCheck::IfKnown;
    uint32_t anyKeyUsage = 0;                   ///< uses of which one is enough, in the bits of `keyUsage`
    std::vector<ASNobjectId> extendedUsages{};  ///< purposes that extKeyUsage must allow where it stands
    std::vector<ASNobjectId> policies{};        ///< user-initial-policy-set; empty means any policy
    bool explicitPolicy = false;                ///< initial-explicit-policy
    bool inhibitMapping = false;                ///< initial-policy-mapping-inhibit
    bool inhibitAnyPolicy = false;              ///< initial-any-policy-inhibit
    bool useDeltas = true;
    /// Whether constraints in the certificate of the trust point bind the path, too (RFC 5937); by RFC 5280 a trust
    /// point is a name and a key.
    bool constrainedTrustPoint = false;
    size_t depth = 64;  ///< certificates on a path at most
    /// Moment for the algorithm policy, where that is another one than `time`.
    std::optional<int64_t> policyTime{};
    WorkLimits limits{};
    /// Hears of every path that was tried, as far as it came, with what became of it.
    std::function<void(const PathVerdict& tried)> onPath{};
};

/// One certificate of a path.
struct PathStep {
    CertPtr certificate;
    CrtStatus status{};       ///< `code` is 0 and `state` unknown where nobody asked
    bool asked = false;       ///< whether its status was asked for
    std::string algorithm{};  ///< of its signature and the key that made it; empty for the trust point
    std::string weakness{};   ///< what the algorithm policy says against them and until when they pass; empty: nothing
};

/// A path and the verdict on it.
struct PathVerdict {
    int code = 0;                         ///< 0, or the library's code: 64 to 70, 88, 101, 102, 155 and the like
    std::string reason{};                 ///< in words, for the log and the diagnostic text
    std::string clause{};                 ///< of RFC 5280 unless it says another; empty when good or no rule of it
    size_t failedAt = 0;                  ///< index in `certs` of the certificate that failed
    CertList certs{};                     ///< from the certificate to the trust point, as far as it was built
    std::vector<PathStep> steps{};        ///< the same certificates in the same order
    std::vector<ASNobjectId> policies{};  ///< user-constrained-policy-set (6.1.6)
    bool exhausted = false;               ///< the work limit ended the search
    [[nodiscard]] bool good() const { return code == 0; }
    /// The policies as dotted identifiers with spaces between.
    [[nodiscard]] std::string policyText() const {
        std::string text;
        for (const ASNobjectId& one : policies) text += (text.empty() ? "" : " ") + one.text();
        return text;
    }
};

}  // namespace crv
