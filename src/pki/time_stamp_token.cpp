#include "pki/time_stamp_token.h"

#include <algorithm>

#include "asn/known_oids.h"
#include "asn/tsp/signing_certificate.h"
#include "corvane/crverrors.h"
#include "crypto/crypto_error.h"

namespace crv {

namespace {

SignatureCheck checkToken(const SignedData& data, const SignedCertificate& signer) {
    try {
        return data.verify(signer.keyInfo().publicKey());
    } catch (const CryptoError& error) {
        if (!error.isOfInput()) throw;
        return SignatureCheck::Unsupported;
    }
}

/// RFC 3161 2.4.2, RFC 5816 2.2.1: the signed attributes name the certificate, by either hash.
bool namesSigner(const SignerInfo& signer, const SignedCertificate& certificate) {
    return signer.signedAttrs && namedBy(*signer.signedAttrs, certificate) == true;
}

/// RFC 3161 2.4.2: where the stamp says who made it, that is a name of the certificate.
bool isNamed(const TstInfo& info, const SignedCertificate& certificate) {
    if (!info.tsa) return true;
    const GeneralName& name = *info.tsa;
    if (name.name()) return *name.name() == certificate.subject();
    const auto others = certificate.extensions().get<GeneralNames>(OID_CE_SUBJECT_ALT_NAME);
    return others &&
           std::ranges::any_of(*others, [&](const GeneralName& one) { return one.encoded() == name.encoded(); });
}

/// RFC 3161 2.3.
bool isOnlyForStamps(const SignedCertificate& certificate) {
    const Extension* extension = certificate.extensions().find(OID_CE_EXT_KEY_USAGE);
    const auto usages = certificate.extensions().get<ExtKeyUsage>(OID_CE_EXT_KEY_USAGE);
    return extension && extension->critical.value() && usages && usages->size() == 1 &&
           (*usages)[0] == OID_KP_TIME_STAMPING;
}

/// Reasons of a revocation that leave the stamps of before as they are (RFC 3161 4). One that is not told may be that
/// of a stolen key.
bool keepsStamps(CrlReason reason) {
    return reason == CrlReason::AffiliationChanged || reason == CrlReason::Superseded ||
           reason == CrlReason::CessationOfOperation;
}

NetVerdict unverified(std::string why) {
    return {ECRV_TS_VERIF, "time stamp: " + std::move(why)};
}

NetVerdict noToken(const char* why) {
    return {ECRV_TCP_PROT, std::string("time stamp: ") + why};
}

/// What the status of one certificate of the path says against the stamp.
PathFault faultOfStanding(const PathJudge::Standing& standing, const TimeStampRules& rules) {
    using enum CrtStatus::State;
    const CrtStatus& status = standing.status;
    if (standing.revokedThen) return {ECRV_CRTREV, "", "revoked when it stamped"};
    if (standing.revokedSince && keepsStamps(status.reason)) return {};
    if (standing.revokedSince) return {ECRV_CRTREV, "", "revoked since, and its key may be known"};
    const bool fails = (status.state == Unusable && !rules.fresh) ||
                       (status.state != Good && rules.revocation == RevocationCheck::Required);
    if (!fails) return {};
    return {status.code == 0 ? ECRV_CRL_NOT_FOUND : status.code, status.clause,
            "its status is not known: " + status.text};
}

}  // namespace

NetVerdict TimeStampToken::read(ByteView der) {
    der_ = toBytes(der);
    if (!outer_.readExactly(der_) || !outer_.get(OID_PKCS7_SIGNED_DATA, data_, ASN_FLAG_CONST | ASN_FLAG_COPY))
        return noToken("no signed data");
    const auto content = data_.content();
    if (!(data_.encapContentInfo.contentType == OID_CT_TST_INFO) || !content || !info_.readExactly(*content))
        return noToken("it holds no stamp");
    if (data_.signerInfos.size() != 1) return unverified("not signed exactly once");
    for (const SignedCertificate& one : data_.certificateList()) {
        if (certificates_.size() == kMostCertificates) break;
        if (CertPtr kept = makeCert(encodingOf(one))) certificates_.push_back(std::move(kept));
    }
    return {};
}

std::string TimeStampToken::faultOfHashes(const AlgorithmPolicy* policy, int64_t now) const {
    const SignerInfo& signer = data_.signerInfos[0];
    const auto algorithm = signatureAlgorithmOf(signer);
    if (!policy) return "the algorithm policy of the configuration cannot be read";
    if (!algorithm || !isHash(hash())) return "an unknown algorithm";
    for (const KcHashAlgo one : {hash(), hashAlgoOf(signer.digestAlgorithm), algorithm->hash})
        if (policy->hash(one, now).refused) return "a hash that the algorithm policy refuses";
    return {};
}

/// Of the first that the token may mean the one that it names by its hash. Each that is looked at is a piece of work,
/// and so is a token that means none.
CertPtr TimeStampToken::signerAmong(const CertList& certificates, size_t& work) const {
    const SignerInfo& signer = data_.signerInfos[0];
    CertPtr found;
    size_t looked = 0;
    for (const CertPtr& one : certificates) {
        if (looked == std::min(kMostCandidates, work)) break;
        if (!signer.sid.matches(*one)) continue;
        ++looked;
        const bool named = namesSigner(signer, *one);
        if (named || !found) found = one;
        if (named) break;
    }
    work -= std::min(work, std::max<size_t>(looked, 1));
    return found;
}

std::string TimeStampToken::faultOfPath(const CertPtr& signer, const TimeStampRules& rules, PathJudge& judge,
                                        TimeStampFacts& facts) const {
    PathOptions options{judge.now(), 0, RevocationCheck::None};
    options.extendedUsages.emplace_back(OID_KP_TIME_STAMPING);
    options.anyKeyUsage = 1U << KeyUsage::kDigitalSignature | 1U << KeyUsage::kNonRepudiation;
    CertList extra = certificates_;
    extra.insert(extra.end(), rules.extra.begin(), rules.extra.end());
    facts.path = judge.path(signer, options, extra);
    if (!facts.path.good()) return facts.path.reason;
    if (rules.revocation == RevocationCheck::None) return {};
    options.revocation = rules.revocation;
    const int64_t moment = std::min(facts.genTime, judge.now());
    // Nothing but the key in question shows the time that the token names, so where a status must be known nobody
    // chooses the lists by which it is judged.
    const auto belief =
        rules.revocation == RevocationCheck::Required ? PathJudge::Belief::Claimed : PathJudge::Belief::Shown;
    for (size_t i = 0; i + 1 < facts.path.steps.size(); ++i) {
        const PathJudge::Standing standing = judge.standing(facts.path, i, options, extra, moment, belief);
        facts.path.steps[i].status = standing.status;
        facts.path.steps[i].asked = true;
        const PathFault fault = faultOfStanding(standing, rules);
        if (!fault) continue;
        facts.path.code = fault.code;
        facts.path.clause = fault.clause;
        facts.path.failedAt = i;
        return facts.path.reason = fault.text;
    }
    return {};
}

NetVerdict TimeStampToken::judge(const MessageImprint& imprint, const TimeStampRules& rules, PathJudge& judge,
                                 TimeStampFacts& facts) const {
    const auto time = info_.genTime.seconds();
    const int64_t now = judge.now();
    if (!(info_.messageImprint == imprint)) return unverified("it stamps something else");
    if (!time) return unverified("it names no time");
    if (info_.version.valueOr(0) != 1) return unverified("an unknown version");
    if (info_.extensions &&
        std::ranges::any_of(*info_.extensions, [](const Extension& e) { return e.critical.value(); }))
        return unverified("an unknown critical extension");
    if (std::string why = faultOfHashes(judge.manager().algorithms(), now); !why.empty())
        return unverified(std::move(why));
    CertList known = certificates_;
    known.insert(known.end(), rules.extra.begin(), rules.extra.end());
    if (judge.left().signatures == 0) return unverified("there are more signatures than are looked at");
    const CertPtr signer = signerAmong(known, judge.left().signatures);
    if (!signer) return unverified("the signer's certificate is missing");
    if (checkToken(data_, *signer) != SignatureCheck::Good) return unverified("the signature is wrong");
    if (!namesSigner(data_.signerInfos[0], *signer)) return unverified("it names another signer");
    if (!isNamed(info_, *signer)) return unverified("it says that somebody else made it");
    if (!isOnlyForStamps(*signer)) return unverified("the signer's certificate is not only for time stamps");
    facts.genTime = *time;
    if (std::string why = faultOfPath(signer, rules, judge, facts); !why.empty())
        return unverified("path of the signer: " + why);
    if (info_.accuracy) facts.accuracy = info_.accuracy->microseconds();
    facts.difference = now - *time;
    facts.policy = info_.policy.text();
    facts.serial = info_.serialNumber.decimal();
    facts.authority = signer->subject().text();
    facts.token = der_;
    facts.certificates = certificates_;
    return {};
}

}  // namespace crv
