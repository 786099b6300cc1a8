#include "ops/certificate_state.h"

namespace crv {

CertificateState certificateState(RevocationManager& revocation, CertificateManager& certificates,
                                  const CertPtr& certificate, int64_t time) {
    CertificateState state;
    state.path = certificates.buildPath(certificate, {time, 0, RevocationCheck::None});
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
