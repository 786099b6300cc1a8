#include "pki/path_rules.h"

#include <algorithm>
#include <bit>

#include "asn/tlv_view.h"
#include "corvane/crverrors.h"
#include "crypto/crypto_error.h"
#include "crypto/sign_algo_map.h"
#include "pki/crl_facts.h"

namespace crv {

namespace {

PathFault broken(const char* clause, std::string text, int code = ECRV_PATH_VER_ERR) {
    return {code, clause, std::move(text)};
}

/// The key of a certificate that leaves its DSA parameters to its issuer.
std::shared_ptr<const PublicKey> inheritingKey(const SubjectPublicKeyInfo& info, const WorkingKey& above) {
    SubjectPublicKeyInfo whole;
    const auto& parameters = info.algorithm.parameters;
    const bool leftOut = !parameters || parameters->valueTag() == ASNnull::kTag;
    if (!leftOut || !(info.algorithm.algorithm == OID_DSA) || !above.key || above.key->scheme() != KeyScheme::Dsa ||
        whole.copyObject(info) <= 0 || !whole.algorithm.readExactly(above.key->algorithm())) {
        return nullptr;
    }
    auto key = whole.usableKey();
    return key ? std::make_shared<PublicKey>(*std::move(key)) : nullptr;
}

const SignedCertificate& signedOf(const CertificateFacts& facts) {
    return *facts.certificate;
}

const SignedCertRevList& signedOf(const CrlFacts& facts) {
    return facts.crl();
}

void noteWeakness(PathStep& step, const AlgorithmPolicy::Answer& answer) {
    if (answer.weakness.empty() || step.weakness.find(answer.weakness) != std::string::npos) return;
    step.weakness += (step.weakness.empty() ? "" : "; ") + answer.weakness;
}

bool allowsPurposes(const CertificateFacts& certificate, const std::vector<ASNobjectId>& wanted) {
    if (!certificate.extendedUsages) return true;
    const auto& allowed = *certificate.extendedUsages;
    const auto has = [&](const auto& purpose) {
        return std::ranges::any_of(allowed, [&](const ASNobjectId& one) { return one == purpose; });
    };
    return has(OID_ANY_EXT_KEY_USAGE) || std::ranges::all_of(wanted, has);
}

/// Bits of an RSA modulus, without the cost of making a key; 0 when there is none.
unsigned modulusBits(ByteView publicKey) {
    const auto numbers = takeTlv(publicKey, ASNsequenceF::kTag);
    ByteView rest = numbers ? numbers->body : ByteView();
    const auto modulus = takeTlv(rest, ASNinteger::kTag);
    ByteView octets = modulus ? modulus->body : ByteView();
    while (!octets.empty() && octets.front() == 0) octets = octets.subspan(1);
    return octets.empty() ? 0 : static_cast<unsigned>(octets.size() * 8) - std::countl_zero(octets.front());
}

AlgorithmPolicy::Answer answerOnLast(const AlgorithmPolicy& policy, const CertificateFacts& certificate,
                                     const WorkingKey& above, int64_t time) {
    const SubjectPublicKeyInfo& info = certificate.certificate->keyInfo();
    if (info.algorithm.algorithm == OID_RSA_ENC)
        return policy.key(KeyScheme::Rsa, modulusBits(info.subjectPublicKey.octets()), time);
    if (info.algorithm.algorithm == OID_EC_PUBLIC_KEY && !policy.limits(KeyScheme::Ecdsa)) return {};
    const auto key = keyOf(certificate, above).key;
    return key ? policy.key(*key, time) : AlgorithmPolicy::Answer{};
}

/// Notes what the policy says; a refusal is no rule of RFC 5280.
PathFault refusalOf(const std::vector<AlgorithmPolicy::Answer>& answers, PathStep& step) {
    for (const auto& answer : answers) noteWeakness(step, answer);
    const bool refused = std::ranges::any_of(answers, [](const auto& answer) { return answer.refused; });
    return refused ? broken("", "algorithm policy: " + step.weakness, ECRV_CRTALG) : PathFault{};
}

bool allowsUses(const CertificateFacts& certificate, const PathOptions& options) {
    const uint32_t uses = certificate.keyUsage.value_or(~0U);
    const bool one = options.anyKeyUsage == 0 || (uses & options.anyKeyUsage) != 0;
    return one && (uses & options.keyUsage) == options.keyUsage;
}

void lower(size_t& counter, const std::optional<size_t>& limit) {
    if (limit) counter = std::min(counter, *limit);
}

void decrement(size_t& counter) {
    if (counter > 0) --counter;
}

PathFault timeFault(const CertificateFacts& certificate, int64_t time) {
    if (time < certificate.notBefore) return broken("6.1.3 (a)(2)", "not yet valid", ECRV_CRTBEFORE);
    if (time > certificate.notAfter) return broken("6.1.3 (a)(2)", "expired", ECRV_CRTAFTER);
    return {};
}

}  // namespace

WorkingKey keyOf(const CertificateFacts& certificate, const WorkingKey& above) {
    if (const auto& own = certificate.key()) return {own, certificate.keyDigest()};
    const auto inherited = inheritingKey(certificate.certificate->keyInfo(), above);
    return inherited ? WorkingKey{inherited, digestOf(inherited->toSpki())} : WorkingKey{};
}

template <class Facts>
PathFault signatureFault(CertificateCache& cache, WorkBudget& budget, const Facts& object, const WorkingKey& key) {
    if (!key.key) return broken("6.1.3 (a)(1)", "the issuer's key cannot be used", ECRV_CRTALG);
    if (cache.isKnownSignature(object.digest, key.digest)) return {};
    if (const auto known = budget.wrong.find({object.digest, key.digest}); known != budget.wrong.end())
        return known->second;
    if (!budget.take(&WorkLimits::signatures)) return broken("6.1.3 (a)(1)", "more signatures than are looked at");
    PathFault fault;
    try {
        if (!signedOf(object).isSignedBy(*key.key)) fault = broken("6.1.3 (a)(1)", "signature", ECRV_CRTSIGN);
    } catch (const CryptoError& error) {
        if (!error.isOfInput()) throw;
        fault = broken("6.1.3 (a)(1)", "signature algorithm", ECRV_CRTALG);
    }
    if (fault) return budget.wrong[{object.digest, key.digest}] = fault;
    cache.keepSignature(object.digest, key.digest);
    return {};
}

template PathFault signatureFault(CertificateCache&, WorkBudget&, const CertificateFacts&, const WorkingKey&);
template PathFault signatureFault(CertificateCache&, WorkBudget&, const CrlFacts&, const WorkingKey&);

PathFault ownFault(const CertificateFacts& certificate, const PathOptions& options, bool issuer) {
    if (certificate.fault) return certificate.fault;
    if (PathFault fault = timeFault(certificate, options.time)) return fault;
    if (!certificate.unknownCritical.empty()) {
        return broken(issuer ? "6.1.4 (o)" : "6.1.5 (f)",
                      "unknown critical extension " + certificate.unknownCritical.front().name());
    }
    if (issuer) {
        if (!certificate.isAuthority) return broken("6.1.4 (k)", "issuer is no authority");
        if (!certificate.allows(KeyUsage::kKeyCertSign))
            return broken("6.1.4 (n)", "issuer must not sign certificates");
        return {};
    }
    if (!allowsUses(certificate, options)) return broken("4.2.1.3", "key usage does not allow it");
    if (!allowsPurposes(certificate, options.extendedUsages))
        return broken("4.2.1.12", "extended key usage does not allow it");
    return {};
}

PathRules::PathRules(CertificateCache& cache, const AlgorithmPolicy& algorithms, const PathOptions& options,
                     WorkBudget& budget)
    : cache_(cache),
      algorithms_(algorithms),
      options_(options),
      budget_(budget),
      names_(options.limits.nameComparisons) {}

/// By RFC 5280 a trust point is a name and a key. That its certificate has a time, and may say that it is no authority,
/// is kept to all the same: whoever made it said so.
PathFault PathRules::start(const CertificateFacts& trustPoint, size_t length) {
    if (PathFault fault = timeFault(trustPoint, options_.time)) return fault;
    if (length == 0) {
        PathStep only;
        const PathFault fault = ownFault(trustPoint, options_, false);
        return fault ? fault : refusalOf({answerOnLast(algorithms_, trustPoint, {}, policyTime())}, only);
    }
    const bool entitled = !trustPoint.hasBasicConstraints || trustPoint.isAuthority;
    if (!entitled || !trustPoint.allows(KeyUsage::kKeyCertSign))
        return broken("6.1.4 (k)", "trust point is no authority");
    left_ = length;
    pathLength_ = length;
    explicitPolicy_ = options_.explicitPolicy ? 0 : length + 1;
    policyMapping_ = options_.inhibitMapping ? 0 : length + 1;
    inhibitAny_ = options_.inhibitAnyPolicy ? 0 : length + 1;
    key_ = keyOf(trustPoint, {});
    issuer_ = trustPoint.subject;
    if (options_.constrainedTrustPoint) {
        if (trustPoint.fault) return trustPoint.fault;
        names_.add(trustPoint);
        lower(pathLength_, trustPoint.pathLength);
    }
    return {};
}

PathFault PathRules::checkAlgorithms(const CertificateFacts& certificate, PathStep& step) const {
    const auto how = readSignAlgorithm(certificate.certificate->signatureAlgorithm);
    step.algorithm = signAlgorithmName(certificate.certificate->signatureAlgorithm);
    std::vector<AlgorithmPolicy::Answer> answers;
    if (how) answers.push_back(algorithms_.hash(how->hash, policyTime()));
    if (key_.key) {
        step.algorithm += ", " + std::to_string(key_.key->bits());
        answers.push_back(algorithms_.key(*key_.key, policyTime()));
    }
    // The last key signs nothing here, but what is checked is what it is worth.
    if (left_ == 1) answers.push_back(answerOnLast(algorithms_, certificate, key_, policyTime()));
    return refusalOf(answers, step);
}

/// 6.1.3.
PathFault PathRules::basic(const CertificateFacts& certificate, PathStep& step) {
    if (PathFault fault = signatureFault(cache_, budget_, certificate, key_)) return fault;
    if (certificate.issuer != issuer_) return broken("6.1.3 (a)(4)", "issued under another name");
    if (PathFault fault = ownFault(certificate, options_, left_ > 1)) return fault;
    if (PathFault fault = checkAlgorithms(certificate, step)) return fault;
    const bool last = left_ == 1;
    if (last || !certificate.selfIssued)
        if (PathFault fault = names_.check(certificate)) return fault;
    graph_.add(certificate.policies, inhibitAny_ > 0 || (!last && certificate.selfIssued));
    if (explicitPolicy_ == 0 && graph_.isNull()) return broken("6.1.3 (f)", "no policy is valid");
    return {};
}

/// 6.1.4 (h) to (j).
void PathRules::count(const CertificateFacts& certificate) {
    if (!certificate.selfIssued) {
        decrement(explicitPolicy_);
        decrement(policyMapping_);
        decrement(inhibitAny_);
    }
    lower(explicitPolicy_, certificate.requireExplicit);
    lower(policyMapping_, certificate.inhibitMapping);
    lower(inhibitAny_, certificate.inhibitAny);
}

/// 6.1.4.
PathFault PathRules::prepare(const CertificateFacts& certificate) {
    for (const PolicyMap& map : certificate.mappings) {
        if (map.issuerDomain == OID_ANY_POLICY || map.subjectDomain == OID_ANY_POLICY)
            return broken("6.1.4 (a)", "a mapping of any policy");
    }
    graph_.map(certificate.mappings, policyMapping_ > 0);
    issuer_ = certificate.subject;
    key_ = keyOf(certificate, key_);
    names_.add(certificate);
    count(certificate);
    if (!certificate.selfIssued) {
        if (pathLength_ == 0) return broken("6.1.4 (l)", "path too long");
        --pathLength_;
    }
    lower(pathLength_, certificate.pathLength);
    return {};
}

/// 6.1.5.
PathFault PathRules::wrapUp(const CertificateFacts& certificate) {
    decrement(explicitPolicy_);
    if (certificate.requireExplicit == size_t{0}) explicitPolicy_ = 0;
    const bool valid = explicitPolicy_ > 0 || !policies().empty();
    return valid ? PathFault{} : broken("6.1.5 (g)", "none of the policies wanted is valid");
}

PathFault PathRules::next(const CertificateFacts& certificate, PathStep& step) {
    if (PathFault fault = basic(certificate, step)) return fault;
    PathFault fault = left_ > 1 ? prepare(certificate) : wrapUp(certificate);
    --left_;
    return fault;
}

}  // namespace crv
