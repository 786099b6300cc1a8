#include "ops/watch.h"

#include "asn/x509/signed_certificate.h"
#include "ops/session.h"

namespace crv {

void watchKeys(Session& session, const WatchedVisitor& visit) {
    const auto show = [&](WatchedKind kind, const SignedCertificate& certificate) {
        visit({kind, certificate.subject().rfc4514(), certificate.tbs.validity.notAfter.seconds()});
    };
    for (const StoredKey& key : session.keys().keys()) {
        const CertPtr certificate = key.role == KeyRole::Further ? nullptr : session.keys().certificateOf(key);
        if (certificate) show(WatchedKind::Certificate, *certificate);
    }
    for (const TrustPoint& point : session.keys().trustedPoints()) show(WatchedKind::TrustPoint, *point.certificate);
}

void watchDatabase(Session& session, const WatchedVisitor& visit) {
    if (session.context().dbManager.isDbCreated() == DbState::Missing) return;
    session.demandDatabase();
    CrlIndex index;
    if (!session.context().dbManager.getCrlIndex(index)) session.failDatabase();
    for (const CrlIndexEntry& entry : index) {
        const auto ends = entry.nextUpdate ? entry.nextUpdate->seconds() : std::nullopt;
        visit({WatchedKind::RevocationList, entry.issuer.rfc4514(), ends});
    }
}

}  // namespace crv
