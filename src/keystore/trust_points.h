// The trust points of a profile: the user's, the key store's, the configuration's qualified ones, those of the
// additional store.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "asn/x509/cert_ptr.h"
#include "keystore/key_manager_result.h"
#include "misc/secret.h"

namespace crv {

class CRVCfgFile;

/// Where a trust point comes from. Only those of User can be deleted.
enum class TrustPointFlag : int { KeyStore = 0, User = 1, Qualified = 2, Additional = 3 };

struct TrustPoint {
    CertPtr certificate;
    TrustPointFlag flag;
};

/// Whether a certificate may become a trust point: kKmNoCaCertificate, kKmBadSignature, kKmTrustPointRefused.
[[nodiscard]] KeyManagerResult checkTrustPoint(const SignedCertificate& certificate);

/// Collects the sources. The record and the certificates kept with the keys are handed in: they belong to what is
/// saved.
class TrustPoints {
  public:
    /// Each once, in this order: those of the record, those kept with the keys, the record's qualified ones, the
    /// additional ones.
    [[nodiscard]] std::vector<TrustPoint> list(const CRVCfgFile& record, const CertList& kept) const;
    [[nodiscard]] bool holds(const CRVCfgFile& record, const CertList& kept,
                             const SignedCertificate& certificate) const;

    /// Takes the certificates of authorities out of an additional store (a PFX without keys). `progress` as in
    /// readSecurityFile. kKmWrongRootsPassword, kKmRootsFormat, kKmProtectionNotSupported, kKmStopped, kKmNoMemory.
    [[nodiscard]] KeyManagerResult readAdditional(ByteView store, const SecretText& password,
                                                  const std::function<bool()>& progress = {});
    void clearAdditional() noexcept { additional_.clear(); }

  private:
    CertList additional_;
};

/// Adds to `kept` what the record trusts and is not qualified.
void copyUserTrust(const CRVCfgFile& record, CertList& kept);

}  // namespace crv
