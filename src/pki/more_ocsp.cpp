#include "pki/more_ocsp.h"

#include "asn/x509/signed_certificate.h"

namespace crv {

MoreOcsp::MoreOcsp(CertificateManager& certificates, RevocationManager& revocation, std::vector<Bytes> answers)
    : certificates_(certificates), before_(certificates.statusSource()), answers_(std::move(answers)) {
    client_.init(certificates, revocation);
    for (size_t i = 0; i < answers_.size(); ++i) take(i);
    if (!answers_.empty())
        certificates_.setStatusSource([this](const StatusQuestion& question) { return status(question); });
}

MoreOcsp::~MoreOcsp() {
    if (!answers_.empty()) certificates_.setStatusSource(std::move(before_));
}

void MoreOcsp::take(size_t answer) {
    OcspResponse response;
    OcspBasicResponse basic;
    if (!response.readExactly(answers_[answer]) || !response.isSuccessful() || !response.getBasic(basic)) return;
    for (const OcspSingleResponse& one : basic.tbs.responses) {
        const KcHashAlgo hash = hashAlgoOf(one.certId.hashAlgorithm);
        if (!isHash(hash)) continue;
        bySerial_.emplace(toBytes(one.certId.serialNumber.contents()), About{answer, hash});
        if (const auto time = one.thisUpdate.seconds()) moments_.push_back(*time);
    }
}

/// As of answers that were fetched: a revocation in either counts, else an answer before a CRL.
CrtStatus MoreOcsp::status(const StatusQuestion& question) {
    CrtStatus best = before_ ? before_(question) : CrtStatus();
    if (judging_ || best.state == CrtStatus::State::Revoked) return best;
    const CertPtr& certificate = question.path[question.index]->certificate;
    const CertificateFacts& issuer = *question.path[question.index + 1];
    size_t tried = 0;
    const auto [first, last] = bySerial_.equal_range(toBytes(certificate->serialNumber().contents()));
    for (auto at = first; at != last && tried < kMostTried; ++at, ++tried) {
        if (!question.budget.take(&WorkLimits::signatures)) break;
        OcspQuestion asked =
            client_.question(certificate, keyOf(issuer, {}), issuer.certificate, question.options.time, false);
        asked.id.set(*certificate, *issuer.certificate, at->second.hash);
        OcspAnswer answer;
        judging_ = true;
        const NetVerdict verdict = client_.judge(asked, answers_[at->second.answer], answer);
        judging_ = false;
        if (verdict.code != 0 || answer.status.state == CrtStatus::State::Unknown) continue;
        if (answer.status.state == CrtStatus::State::Revoked) return answer.status;
        if (!best.source.ocsp || best.source.thisUpdate < answer.status.source.thisUpdate) best = answer.status;
    }
    return best;
}

}  // namespace crv
