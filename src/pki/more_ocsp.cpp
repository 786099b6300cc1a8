#include "pki/more_ocsp.h"

#include <algorithm>

#include "asn/x509/signed_certificate.h"

namespace crv {

namespace {

/// Octets that stand for who is asked about.
Bytes keyOfId(const OcspCertId& id, KcHashAlgo hash) {
    Bytes key{static_cast<uint8_t>(hash)};
    for (const ByteView part : {id.issuerNameHash.value(), id.issuerKeyHash.value(), id.serialNumber.contents()}) {
        key.insert(key.end(), part.begin(), part.end());
        key.push_back(static_cast<uint8_t>(part.size()));
    }
    return key;
}

}  // namespace

MoreOcsp::MoreOcsp(CertificateManager& certificates, RevocationManager& revocation, std::vector<Bytes> answers)
    : certificates_(certificates),
      revocation_(revocation),
      before_(certificates.statusSource()),
      answers_(std::move(answers)) {
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
    if (answers_[answer].size() > kMostOctets || !response.readExactly(answers_[answer])) return;
    if (!response.isSuccessful() || !response.getBasic(basic)) return;
    const size_t cost = 1 + std::min(basic.certs ? basic.certs->size() : 0, kMostTried);
    for (const OcspSingleResponse& one : basic.tbs.responses) {
        const KcHashAlgo hash = hashAlgoOf(one.certId.hashAlgorithm);
        const auto from = one.thisUpdate.seconds();
        if (!isHash(hash) || !from) continue;
        if (about_.size() == kMostKept) return;
        const auto end = one.nextUpdate ? one.nextUpdate->seconds() : *from + OcspClient::kLongestWithoutEnd;
        about_.emplace(keyOfId(one.certId, hash), About{answer, cost, *from, end.value_or(0)});
        hashes_.insert(hash);
    }
}

std::vector<MoreOcsp::Found> MoreOcsp::answersAbout(const CertificateFacts& of, const CertificateFacts& issuer,
                                                    int64_t time) const {
    std::vector<Found> list;
    OcspQuestion asked = client_.question(of.certificate, keyOf(issuer, {}), issuer.certificate, time, false);
    for (const KcHashAlgo hash : hashes_) {
        asked.id.set(*of.certificate, *issuer.certificate, hash);
        const auto [first, last] = about_.equal_range(keyOfId(asked.id, hash));
        for (auto at = first; at != last; ++at) list.push_back({asked, at->second});
    }
    return list;
}

std::vector<int64_t> MoreOcsp::moments(const CertificateFacts& of, const CertificateFacts& issuer) const {
    std::vector<int64_t> times;
    for (const Found& one : answersAbout(of, issuer, 0)) times.push_back(one.about.from);
    return times;
}

/// The answers about a certificate that fit the moment, the newest first.
std::vector<MoreOcsp::Found> MoreOcsp::answersTo(const StatusQuestion& question) const {
    const int64_t time = question.options.time;
    std::vector<Found> list = answersAbout(*question.path[question.index], *question.path[question.index + 1], time);
    std::erase_if(list, [&](const Found& one) {
        return one.about.from > time + OcspClient::kClockSkew || one.about.end + OcspClient::kClockSkew < time;
    });
    std::ranges::stable_sort(list, std::ranges::greater(), [](const Found& one) { return one.about.from; });
    if (list.size() > kMostTried) list.resize(kMostTried);
    return list;
}

bool MoreOcsp::pay(WorkBudget& budget, size_t pieces) {
    while (pieces > 0 && budget.take(&WorkLimits::signatures)) --pieces;
    return pieces == 0;
}

/// As of answers that were fetched: a revocation in either counts, else an answer before a CRL.
CrtStatus MoreOcsp::status(const StatusQuestion& question) {
    // Who signed an answer is told of by CRLs only, no kept answers either.
    if (judging_) return revocation_.answer(question);
    CrtStatus best = before_ ? before_(question) : CrtStatus();
    if (best.state == CrtStatus::State::Revoked) return best;
    for (const Found& one : answersTo(question)) {
        if (!pay(question.budget, one.about.cost)) break;
        OcspAnswer answer;
        judging_ = true;
        const NetVerdict verdict = client_.judge(one.question, answers_[one.about.answer], answer);
        judging_ = false;
        if (verdict.code != 0 || answer.status.state == CrtStatus::State::Unknown) continue;
        if (answer.status.state == CrtStatus::State::Revoked) return answer.status;
        if (!best.source.ocsp || best.source.thisUpdate < answer.status.source.thisUpdate) best = answer.status;
    }
    return best;
}

}  // namespace crv
