#include "messages/signer_path.h"

#include <algorithm>
#include <map>

#include "asn/tlv_view.h"
#include "corvane/crverrors.h"
#include "messages/message_reader.h"
#include "misc/exceptions.h"
#include "pki/algorithm_policy.h"
#include "pki/path_rules.h"
#include "pki/time_stamp_token.h"

namespace crv {

namespace {

constexpr uint8_t kCertificateTag = 0x30, kOtherRevocationTag = 0xA1;
/// Seconds by which clocks may differ.
constexpr int64_t kClockSkew = 300;
/// Certificates that are tried for one signature at most.
constexpr size_t kMostCandidates = 8;
/// Time stamps of one signature that are looked at.
constexpr size_t kMostStamps = 4;
/// Its path at two moments, and those of its time stamps.
constexpr size_t kPathsOfSigner = 2 + kMostStamps;
/// CRLs of one issuer that are looked at, the newest of those that came along.
constexpr size_t kMostCrlsOfIssuer = 64;
/// Levels of an OCSP answer on which lists are counted.
constexpr int kDepthOfAnswer = 8;
/// Levels of a token on which lists are counted.
constexpr int kDepthOfToken = 10;

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

bool isModest(ByteView encoding, int depth) {
    try {
        demandModest(encoding, depth);
        return true;
    } catch (const CrvApiException&) {
        return false;
    }
}

/// Whether an OCSP answer may be decoded: its size, and its lists, those of the response in its octet string, too.
bool isModestAnswer(ByteView octets) {
    OcspResponse response;
    return octets.size() <= MoreOcsp::kMostOctets && isModest(octets, kDepthOfAnswer) && response.readExactly(octets) &&
           response.responseBytes && isModest(response.responseBytes->response.value(), kDepthOfAnswer);
}

/// Leaves the newest CRLs of every issuer.
CrlFactsList newestOf(CrlFactsList list) {
    std::ranges::stable_sort(list, std::ranges::greater(), [](const CrlFactsPtr& one) { return one->thisUpdate; });
    std::map<Bytes, size_t> count;
    std::erase_if(list, [&](const CrlFactsPtr& one) { return ++count[one->issuer] > kMostCrlsOfIssuer; });
    return list;
}

void failPath(SignerVerdict& verdict, int code, size_t index, const std::string& reason) {
    verdict.path.code = verdict.code = code;
    verdict.path.failedAt = index;
    verdict.path.reason = reason;
}

}  // namespace

SignerJudge::SignerJudge(const VerifyParams& params, CertificateManager& certificates, RevocationManager& revocation,
                         const std::vector<Bytes>& certificatesInside, const std::vector<Bytes>& crlsInside)
    : params_(params),
      manager_(certificates),
      revocation_(revocation),
      judge_(certificates, params.path.limits, params.now) {
    judge_.left().paths += kPathsOfSigner * kMostSigners;
    judge_.left().signatures += kMostSigners;  // a stamp each
    for (const Bytes& one : certificatesInside) {
        if (CertPtr certificate = one[0] == kCertificateTag ? manager_.cache().certificate(one) : nullptr)
            inside_.push_back(std::move(certificate));
    }
    extra_ = inside_;
    extra_.insert(extra_.end(), params.certificates.begin(), params.certificates.end());
    takeRevocation(crlsInside);
}

void SignerJudge::takeRevocation(const std::vector<Bytes>& inside) {
    std::vector<Bytes> answers;
    for (const Bytes& one : inside) {
        if (Bytes ocsp = ocspOf(one); !ocsp.empty()) {
            ++ocspCount_;
            if (isModestAnswer(ocsp)) answers.push_back(std::move(ocsp));
        } else if (CrlFactsPtr crl = CrlFacts::make(one)) {
            crls_.push_back(std::move(crl));
        }
    }
    const CrlFactsList newest = newestOf(crls_);
    moreCrls_.emplace(revocation_, newest);
    moreOcsp_.emplace(manager_, revocation_, std::move(answers));
    judge_.setMoments([this, newest](const CertificateFacts& of, const CertificateFacts& issuer) {
        const std::vector<Bytes> issuers = crlIssuersOf(of);
        std::vector<int64_t> times = moreOcsp_->moments(of, issuer);
        for (const CrlFactsPtr& one : newest)
            if (std::ranges::find(issuers, one->issuer) != issuers.end()) times.push_back(one->thisUpdate);
        return times;
    });
}

void SignerJudge::takeStored(const SignerInfo& signer, CertList& list) {
    CrtItemList items;
    if (const auto* id = signer.sid.chosenAs<IssuerAndSerialNumber>()) {
        static_cast<void>(manager_.db().findByIssuerAndSerNum(items, id->issuer, id->serialNumber));
    } else if (const auto* keyId = signer.sid.chosenAs<ASNoctstr>()) {
        static_cast<void>(manager_.database().findCertsByKeyIdHash(items, keyId->value()));
    }
    for (const CrtItem& item : items)
        if (CertPtr one = manager_.cache().certificate(item.der)) list.push_back(std::move(one));
}

/// Certificates to try, each once. Trying one costs a check of a signature.
CertList SignerJudge::candidates(const SignerInfo& signer) {
    CertList list;
    const auto take = [&](const CertList& from) {
        for (const CertPtr& one : from) {
            if (list.size() == std::min(kMostCandidates, judge_.left().signatures)) return;
            if (signer.sid.matches(*one) && !contains(list, *one)) list.push_back(one);
        }
    };
    take(extra_);
    if (list.empty()) {
        CertList stored = manager_.trustPoints();
        takeStored(signer, stored);
        take(stored);
    }
    judge_.left().signatures -= list.size();
    return list;
}

SignerVerdict SignerJudge::judge(const SignerInfo& signer, const SignedContent& content) {
    const bool exhausted = judge_.left().signatures == 0;
    SignerVerdict verdict = checkSignature(signer, content, [this](const SignerInfo& of) { return candidates(of); });
    if (exhausted) {
        verdict.code = ECRV_PATH_VER_ERR;
        verdict.fault = "the message has more signatures than are looked at";
    }
    if (verdict.signature == SignatureCheck::Good) judgeStamps(signer, verdict);
    verdict.certificateInside = verdict.certificate && contains(inside_, *verdict.certificate);
    chooseMoment(verdict);
    if (verdict.code == 0) judgeAlgorithm(verdict);
    if (verdict.code == 0) judgePath(verdict);
    return verdict;
}

/// The earliest time stamp over the signature that is good (EN 319 122-1 5.3); what is wrong with those that are not.
void SignerJudge::judgeStamps(const SignerInfo& signer, SignerVerdict& verdict) {
    if (!signer.unsignedAttrs) return;
    std::vector<ByteView> tokens;
    for (const Attribute& one : *signer.unsignedAttrs) {
        if (!(one.type == OID_AA_TIME_STAMP_TOKEN)) continue;
        for (const ASNany& token : one.values) tokens.push_back(token.getMemory());
    }
    const bool tooMany = tokens.size() > kMostStamps;
    if (tooMany) tokens.resize(kMostStamps);
    for (const ByteView token : tokens) {
        SignerVerdict one;
        std::string why = judgeStamp(token, signer, one);
        const bool earlier = one.stampTime && (!verdict.stampTime || *one.stampTime < *verdict.stampTime);
        if (earlier || !verdict.stampTime) verdict.stampPath = std::move(one.stampPath);
        if (!why.empty()) verdict.stampFault = std::move(why);
        if (!earlier) continue;
        verdict.stampTime = one.stampTime;
        verdict.stampAuthority = std::move(one.stampAuthority);
    }
    if (!params_.everyStamp) {
        if (verdict.stampTime) verdict.stampFault.clear();
        return;
    }
    if (tooMany) verdict.stampFault = "more time stamps than are looked at";
    if (verdict.stampFault.empty()) return;
    verdict.code = ECRV_TS_VERIF;
    verdict.fault = verdict.stampFault;
}

/// Why the stamp does not count; empty when it does.
std::string SignerJudge::judgeStamp(ByteView octets, const SignerInfo& signer, SignerVerdict& verdict) {
    TimeStampToken token;
    TimeStampFacts facts;
    if (!isModest(octets, kDepthOfToken)) return "time stamp: it is malformed";
    NetVerdict judged = token.read(octets);
    if (judged.code == 0) {
        MessageImprint imprint;
        const KcHashAlgo hash = token.hash();
        if (isHash(hash)) imprint.set(hash, hashOf(hash, signer.signature.value()));
        judged = token.judge(imprint, {params_.path.revocation, extra_}, judge_, facts);
    }
    verdict.stampPath = facts.path;
    if (judged.code != 0) return judged.cause;
    if (facts.genTime > params_.now + kClockSkew) return "time stamp: it lies in the future";
    verdict.stampTime = facts.genTime;
    verdict.stampAuthority = facts.authority;
    return {};
}

void SignerJudge::chooseMoment(SignerVerdict& verdict) const {
    verdict.moment = params_.now;
    verdict.momentSource = MomentSource::Now;
    if (params_.moment == VerifyMoment::Given) {
        verdict.moment = params_.time;
        verdict.momentSource = MomentSource::Given;
    } else if (params_.moment == VerifyMoment::Signing && verdict.stampTime) {
        verdict.moment = std::min(*verdict.stampTime, params_.now);
        verdict.momentSource = MomentSource::Stamp;
    } else if (params_.moment == VerifyMoment::Signing && verdict.claimedTime &&
               *verdict.claimedTime <= params_.now + kClockSkew) {
        verdict.moment = std::min(*verdict.claimedTime, params_.now);
        verdict.momentSource = MomentSource::Claim;
    }
}

/// Who has broken an algorithm can claim any time.
int64_t SignerJudge::policyTime(const SignerVerdict& verdict) const {
    return verdict.momentSource == MomentSource::Claim ? params_.now : verdict.moment;
}

void SignerJudge::judgeAlgorithm(SignerVerdict& verdict) {
    const AlgorithmPolicy* policy = manager_.algorithms();
    if (!policy) return;  // the path tells
    const AlgorithmPolicy::Answer answer = policy->hash(verdict.hash, policyTime(verdict));
    if (!answer.refused) return;
    verdict.code = ECRV_DIGALG;
    verdict.fault = "the algorithm policy does not allow the digest: " + answer.weakness;
}

void SignerJudge::judgePath(SignerVerdict& verdict) {
    PathOptions options = params_.path;
    options.time = verdict.moment;
    options.policyTime = policyTime(verdict);
    if (options.keyUsage == 0 && options.anyKeyUsage == 0) options.anyKeyUsage = kSigningUses;
    // What is revoked is asked of today's CRLs below: those of a moment in the past are seldom there.
    const bool past = verdict.moment < params_.now;
    const bool asks = past && options.revocation != RevocationCheck::None;
    if (past) options.revocation = RevocationCheck::None;
    verdict.path = judge_.path(verdict.certificate, options, extra_);
    verdict.code = verdict.path.code;
    if (past && verdict.code == 0 && verdict.momentSource == MomentSource::Claim) judgeExpiry(verdict, options);
    for (size_t i = 0; asks && verdict.code == 0 && i + 1 < verdict.path.steps.size(); ++i) judgeStatus(verdict, i);
}

/// Whether the path that was good at a moment that is only claimed has expired since: then authorities need no longer
/// say what is revoked, and whoever has the key now may have dated the signature back.
void SignerJudge::judgeExpiry(SignerVerdict& verdict, PathOptions options) {
    options.time = params_.now;
    PathVerdict today = judge_.path(verdict.certificate, options, extra_);
    verdict.expiredSince = today.code == ECRV_CRTAFTER;
    if (verdict.expiredSince && params_.path.revocation != RevocationCheck::Required) return;
    verdict.code = today.code;
    verdict.path = std::move(today);
    if (verdict.expiredSince)
        verdict.path.reason = "expired since, and nothing but the signer's word shows that it was signed before";
}

/// The status of a certificate of the path for a moment that is past: by what is known today, else by what was known
/// then, unless the moment is only claimed: nobody chooses the CRLs by which he is judged. A revocation after the
/// moment counts unless a time stamp shows that the signature is older.
void SignerJudge::judgeStatus(SignerVerdict& verdict, size_t index) {
    using enum CrtStatus::State;
    PathStep& step = verdict.path.steps[index];
    const bool stamped = verdict.momentSource == MomentSource::Stamp;
    const auto belief =
        verdict.momentSource == MomentSource::Claim ? PathJudge::Belief::Claimed : PathJudge::Belief::Shown;
    const PathJudge::Standing standing =
        judge_.standing(verdict.path, index, params_.path, extra_, verdict.moment, belief);
    step.asked = true;
    step.status = standing.status;
    if (standing.revokedThen || standing.revokedSince) {
        const bool hold = step.status.reason == CrlReason::CertificateHold;
        verdict.revokedSince = !standing.revokedThen;
        if (!standing.revokedThen && stamped) return;
        failPath(verdict, hold ? ECRV_CRTHANG : ECRV_CRTREV, index,
                 standing.revokedThen
                     ? "revoked when it was signed"
                     : "revoked since, and nothing but the signer's word shows that it was signed before");
    } else if (step.status.state != Good) {
        const bool fails = step.status.state == Unusable || params_.path.revocation == RevocationCheck::Required;
        if (fails) failPath(verdict, step.status.code, index, step.status.text);
    }
}

}  // namespace crv
