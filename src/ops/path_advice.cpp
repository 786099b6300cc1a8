#include "ops/path_advice.h"

#include "asn/x509/signed_certificate.h"
#include "corvane/crverrors.h"

namespace crv {
namespace {

constexpr const char* kImportCert = "crvctl cert import FILE";
constexpr const char* kAddTrust = "crvctl trust add FILE";

PathAdvice onStatus(const CrtStatus& status, const SignedCertificate& certificate) {
    const std::string issuer = status.source.issuer.empty() ? certificate.issuer().rfc4514() : status.source.issuer;
    if (status.code == ECRV_DB) return {"crvctl db repair", {}};
    if (status.code == ECRV_CRTNOTFOUND) return {kImportCert, issuer};
    return {"crvctl crl import FILE", issuer};
}

}  // namespace

PathAdvice adviceOn(const PathVerdict& verdict) {
    if (verdict.good() || verdict.failedAt >= verdict.steps.size()) return {};
    const PathStep& step = verdict.steps[verdict.failedAt];
    const SignedCertificate& certificate = *step.certificate;
    const bool top = verdict.failedAt + 1 == verdict.steps.size();
    if (step.asked)
        return step.status.state == CrtStatus::State::Revoked ? PathAdvice{} : onStatus(step.status, certificate);
    switch (verdict.code) {
        case ECRV_CRTNOTFOUND:
            return certificate.isSelfIssued() ? PathAdvice{kAddTrust, certificate.subject().rfc4514()}
                                              : PathAdvice{kImportCert, certificate.issuer().rfc4514()};
        case ECRV_CRTSIGN:
            return {kImportCert, certificate.issuer().rfc4514()};
        case ECRV_CRTAFTER:
            return {top && verdict.failedAt > 0 ? kAddTrust : kImportCert, certificate.subject().rfc4514()};
        default:
            return step.weakness.empty() ? PathAdvice{} : PathAdvice{"crvctl setting set algorithm-policy TEXT", {}};
    }
}

}  // namespace crv
