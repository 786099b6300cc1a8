#include "messages/signer_path.h"

#include <algorithm>

#include "asn/tlv_view.h"
#include "corvane/crverrors.h"
#include "pki/algorithm_policy.h"

namespace crv {

namespace {

constexpr uint8_t kCertificateTag = 0x30, kOtherRevocationTag = 0xA1;
/// Seconds by which clocks may differ.
constexpr int64_t kClockSkew = 300;

constexpr uint32_t kSigningUses = 1U << KeyUsage::kDigitalSignature | 1U << KeyUsage::kNonRepudiation;

/// The OCSP response of an OtherRevocationInfoFormat (RFC 5940 2.1); empty for another one.
Bytes ocspOf(ByteView other) {
    const auto whole = takeTlv(other, kOtherRevocationTag);
    if (!whole) return {};
    ByteView inside = whole->body;
    const auto type = takeTlv(inside, ASNobjectId::kTag);
    if (!type || !std::ranges::equal(type->body, OID_RI_OCSP_RESPONSE.octets())) return {};
    return toBytes(inside);
}

void failPath(SignerVerdict& verdict, int code, size_t index, const std::string& reason) {
    verdict.path.code = verdict.code = code;
    verdict.path.failedAt = index;
    verdict.path.reason = reason;
}

}  // namespace

SignerJudge::SignerJudge(const VerifyParams& params, CertificateManager& certificates, RevocationManager& revocation,
                         const std::vector<Bytes>& certificatesInside, const std::vector<Bytes>& crlsInside)
    : params_(params), manager_(certificates), revocation_(revocation) {
    for (const Bytes& one : certificatesInside) {
        if (CertPtr certificate = one[0] == kCertificateTag ? manager_.cache().certificate(one) : nullptr)
            inside_.push_back(std::move(certificate));
    }
    extra_ = inside_;
    extra_.insert(extra_.end(), params.certificates.begin(), params.certificates.end());
    for (const Bytes& one : crlsInside) {
        if (Bytes ocsp = ocspOf(one); !ocsp.empty()) {
            ocsp_.push_back(std::move(ocsp));
        } else if (CrlFactsPtr crl = CrlFacts::make(one)) {
            crls_.push_back(std::move(crl));
        }
    }
}

CertList SignerJudge::candidates(const SignerInfo& signer) {
    CertList list;
    for (const CertPtr& one : extra_)
        if (signer.sid.matches(*one)) list.push_back(one);
    if (!list.empty()) return list;
    for (const CertPtr& one : manager_.trustPoints())
        if (signer.sid.matches(*one)) list.push_back(one);
    const auto* id = signer.sid.chosenAs<IssuerAndSerialNumber>();
    CrtItemList items;
    if (id) static_cast<void>(manager_.db().findByIssuerAndSerNum(items, id->issuer, id->serialNumber));
    for (const CrtItem& item : items)
        if (CertPtr one = manager_.cache().certificate(item.der)) list.push_back(std::move(one));
    return list;
}

SignerVerdict SignerJudge::judge(const SignerInfo& signer, const SignedContent& content) {
    SignerVerdict verdict = checkSignature(signer, content, [this](const SignerInfo& of) { return candidates(of); });
    verdict.certificateInside = verdict.certificate && contains(inside_, *verdict.certificate);
    chooseMoment(verdict);
    if (verdict.code == 0) judgeAlgorithm(verdict);
    if (verdict.code == 0) judgePath(verdict);
    return verdict;
}

void SignerJudge::chooseMoment(SignerVerdict& verdict) const {
    verdict.moment = params_.now;
    verdict.momentSource = MomentSource::Now;
    if (params_.moment == VerifyMoment::Given) {
        verdict.moment = params_.time;
        verdict.momentSource = MomentSource::Given;
    } else if (params_.moment == VerifyMoment::Signing && verdict.stampTime) {
        verdict.moment = *verdict.stampTime;
        verdict.momentSource = MomentSource::Stamp;
    } else if (params_.moment == VerifyMoment::Signing && verdict.claimedTime &&
               *verdict.claimedTime <= params_.now + kClockSkew) {
        verdict.moment = std::min(*verdict.claimedTime, params_.now);
        verdict.momentSource = MomentSource::Claim;
    }
}

void SignerJudge::judgeAlgorithm(SignerVerdict& verdict) {
    const AlgorithmPolicy* policy = manager_.algorithms();
    if (!policy) return;  // the path tells
    const AlgorithmPolicy::Answer answer = policy->hash(verdict.hash, verdict.moment);
    if (!answer.refused) return;
    verdict.code = ECRV_DIGALG;
    verdict.fault = "the algorithm policy does not allow the digest: " + answer.weakness;
}

void SignerJudge::judgePath(SignerVerdict& verdict) {
    PathOptions options = params_.path;
    options.time = verdict.moment;
    if (options.keyUsage == 0 && options.anyKeyUsage == 0) options.anyKeyUsage = kSigningUses;
    const RevocationManager::MoreCrls more(revocation_, crls_);
    // What is revoked is asked of today's CRLs below: those of a moment in the past are seldom there.
    const bool past = verdict.moment < params_.now && options.revocation != RevocationCheck::None;
    if (past) options.revocation = RevocationCheck::None;
    verdict.path = manager_.buildPath(verdict.certificate, options, extra_);
    verdict.code = verdict.path.code;
    for (size_t i = 0; past && verdict.code == 0 && i + 1 < verdict.path.steps.size(); ++i) judgeStatus(verdict, i);
}

/// The status of a certificate of the path for a moment that is past: by what is known today, else by what was known
/// then. A revocation after the moment counts unless a time stamp shows that the signature is older.
void SignerJudge::judgeStatus(SignerVerdict& verdict, size_t index) {
    using enum CrtStatus::State;
    PathStep& step = verdict.path.steps[index];
    PathOptions options = params_.path;
    options.time = verdict.moment;
    const CrtStatus then = manager_.statusOnPath(verdict.path, index, options, extra_);
    options.time = params_.now;
    const CrtStatus today = manager_.statusOnPath(verdict.path, index, options, extra_);
    step.asked = true;
    step.status = today.state == Good || today.state == Revoked ? today : then;
    const bool revokedThen = then.state == Revoked || (today.state == Revoked && today.revokedAt <= verdict.moment);
    if (revokedThen || today.state == Revoked) {
        const bool hold = step.status.reason == CrlReason::CertificateHold;
        verdict.revokedSince = !revokedThen;
        if (!revokedThen && verdict.momentSource == MomentSource::Stamp) return;
        failPath(verdict, hold ? ECRV_CRTHANG : ECRV_CRTREV, index,
                 revokedThen ? "revoked when it was signed"
                             : "revoked since, and nothing but the signer's word shows that it was signed before");
    } else if (step.status.state != Good) {
        const bool fails = step.status.state == Unusable || params_.path.revocation == RevocationCheck::Required;
        if (fails) failPath(verdict, step.status.code, index, step.status.text);
    }
}

}  // namespace crv
