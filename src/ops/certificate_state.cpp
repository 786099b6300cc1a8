#include "ops/certificate_state.h"

namespace crv {

CertificateState certificateState(RevocationManager& revocation, CertificateManager& certificates,
                                  const CertPtr& certificate, int64_t time) {
    CertificateState state;
    PathOptions options;
    options.time = time;
    options.revocation = RevocationCheck::None;
    state.path = certificates.buildPath(certificate, options);
    state.status = revocation.status(certificate, time);
    if (state.status.state == CrtStatus::State::Revoked) {
        state.standing = CertificateStanding::Revoked;
    } else if (!state.path.good()) {
        state.standing = CertificateStanding::NoPath;
    } else if (state.isTrustPoint() || state.status.state == CrtStatus::State::Good) {
        state.standing = CertificateStanding::Trusted;
    } else {
        state.standing = CertificateStanding::NotCovered;
    }
    return state;
}

}  // namespace crv
