#include "pki/path_validator.h"

#include "corvane/crverrors.h"

namespace crv {

namespace {

void fail(PathVerdict& verdict, const PathFault& fault, size_t index) {
    verdict.code = fault.code;
    verdict.clause = fault.clause;
    verdict.reason = fault.text;
    verdict.failedAt = index;
}

PathFault faultOf(const CrtStatus& status, RevocationCheck check) {
    switch (status.state) {
        case CrtStatus::State::Good:
            break;
        case CrtStatus::State::Revoked:
            return {status.reason == CrlReason::CertificateHold ? ECRV_CRTHANG : ECRV_CRTREV, "6.1.3 (a)(3)",
                    std::string("revoked: ") + crlReasonName(status.reason)};
        case CrtStatus::State::Unusable:
            return {status.code, status.clause, "the CRL cannot be used: " + status.text};
        case CrtStatus::State::Unknown:
            if (check == RevocationCheck::Required) return {status.code, "6.1.3 (a)(3)", "status unknown"};
    }
    return {};
}

}  // namespace

PathVerdict verdictOn(const FactsList& path) {
    PathVerdict verdict;
    for (const FactsPtr& one : path) {
        verdict.certs.push_back(one->certificate);
        verdict.steps.push_back({.certificate = one->certificate});
    }
    return verdict;
}

PathVerdict verdictOn(const FactsList& path, const PathFault& fault, size_t index) {
    PathVerdict verdict = verdictOn(path);
    fail(verdict, fault, index);
    return verdict;
}

PathFault PathValidator::askStatus(const FactsList& path, size_t index, const PathOptions& options, WorkBudget& budget,
                                   PathStep& step) const {
    step.status = status_({path, index, extra_, options, budget});
    step.asked = true;
    return faultOf(step.status, options.revocation);
}

PathVerdict PathValidator::validate(const FactsList& path, const PathOptions& options, WorkBudget& budget) const {
    PathVerdict verdict = verdictOn(path);
    const size_t top = path.size() - 1;
    const auto failed = [&](const PathFault& fault, size_t index) {
        if (fault) fail(verdict, fault, index);
        verdict.exhausted = budget.exhausted;
        return static_cast<bool>(fault);
    };
    PathRules rules(cache_, algorithms_, options, budget);
    if (failed(rules.start(*path[top], top), top)) return verdict;
    for (size_t i = top; i-- > 0;)
        if (failed(rules.next(*path[i], verdict.steps[i]), i)) return verdict;
    if (options.revocation != RevocationCheck::None && status_) {
        for (size_t i = top; i-- > 0;)
            if (failed(askStatus(path, i, options, budget, verdict.steps[i]), i)) return verdict;
    }
    if (top > 0) verdict.policies = rules.policies();
    return verdict;
}

}  // namespace crv
