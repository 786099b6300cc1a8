// Certification paths and what is checked along them (RFC 5280 6.1).
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "asn/x509/cert_ptr.h"
#include "asn/x509/revoked_certificate.h"

namespace crv {

class CertificateCache;
class SignedCertificate;

/// Whether a certificate is revoked, as far as the stored CRLs tell.
struct CrtStatus {
    enum class State {
        Good,
        Revoked,  ///< a hold counts as revoked with reason certificateHold
        Unknown   ///< no current, verified CRL covers it
    };
    State state = State::Unknown;
    CrlReason reason = CrlReason::Unspecified;
    int64_t revokedAt = 0;  ///< seconds since 1970 UTC
    int code = 0;           ///< unknown: the library's code for why (102 no CRL, 101 none that is current, ...)
};

/// Tells the status of a certificate issued by `issuer` at a time.
using StatusSource =
    std::function<CrtStatus(const SignedCertificate& certificate, const SignedCertificate& issuer, int64_t time)>;

enum class RevocationCheck {
    None,
    IfKnown,  ///< a revoked certificate fails, an unknown status does not
    Required  ///< an unknown status fails, too
};

struct PathOptions {
    int64_t time = 0;       ///< seconds since 1970 UTC
    uint32_t keyUsage = 0;  ///< uses that the certificate must be good for, bit n is KeyUsage::Bit n
    RevocationCheck revocation = RevocationCheck::IfKnown;
};

/// A path and the verdict on it.
struct CertPath {
    int code = 0;        ///< 0, or the library's code: 64 to 70, 101, 102, 155
    std::string reason;  ///< in words, for the log and the diagnostic text
    CertList certs;      ///< from the certificate to the trust point, as far as it was built
    [[nodiscard]] bool good() const { return code == 0; }
};

/// Builds paths from a certificate to a trust point and checks them: names, signatures, validity of every certificate
/// (the trust point's too), basicConstraints with the path length, keyUsage, name constraints, critical extensions,
/// revocation.
class PathBuilder {
  public:
    static constexpr size_t kMaxLength = 16;

    /// Certificates that may have issued the given one: those with its issuer's name.
    using IssuerSource = std::function<CertList(const SignedCertificate& certificate)>;

    PathBuilder(CertificateCache& cache, CertList trustPoints, IssuerSource issuers, StatusSource status);

    /// The first good path, else the verdict on the likeliest one.
    [[nodiscard]] CertPath build(const CertPtr& certificate, const PathOptions& options);

  private:
    struct Search;
    void extend(Search& search);
    void judge(Search& search);
    [[nodiscard]] bool isTrustPoint(const SignedCertificate& certificate) const;
    [[nodiscard]] CertList candidates(const Search& search) const;
    [[nodiscard]] CertPath verdict(const CertList& certs, const PathOptions& options);
    [[nodiscard]] int checkSignature(const SignedCertificate& certificate, const SignedCertificate& issuer);
    [[nodiscard]] int checkStatus(const SignedCertificate& certificate, const SignedCertificate& issuer,
                                  const PathOptions& options);

    CertificateCache* cache_;
    CertList trustPoints_;
    IssuerSource issuers_;
    StatusSource status_;
};

}  // namespace crv
