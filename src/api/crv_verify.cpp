// Calls that judge certificates.
#include <algorithm>
#include <cstring>
#include <ctime>

#include "api/handles.h"
#include "api/key_store_call.h"
#include "api/message_streams.h"
#include "asn/x509/signed_certificate.h"

namespace crv {
namespace {

constexpr struct {
    unsigned long flag;
    bool PathOptions::*option;
    bool value;
} kVerifyFlags[] = {{CRVVERIFY_EXPLICIT_POLICY, &PathOptions::explicitPolicy, true},
                    {CRVVERIFY_INHIBIT_MAPPING, &PathOptions::inhibitMapping, true},
                    {CRVVERIFY_INHIBIT_ANY_POLICY, &PathOptions::inhibitAnyPolicy, true},
                    {CRVVERIFY_NO_DELTAS, &PathOptions::useDeltas, false},
                    {CRVVERIFY_CONSTRAINED_TRUST_POINT, &PathOptions::constrainedTrustPoint, true}};

/// By the number of CrvVerifyRevocation.
constexpr RevocationCheck kRevocationChecks[] = {RevocationCheck::IfKnown, RevocationCheck::Required,
                                                 RevocationCheck::None};

std::vector<ASNobjectId> identifiersOf(const char* const* texts) {
    std::vector<ASNobjectId> list;
    for (; texts && *texts; ++texts) {
        const auto one = ASNobjectId::fromText(*texts);
        demand(one.has_value());
        list.push_back(*one);
    }
    return list;
}

void setFlags(unsigned long flags, PathOptions& options) {
    for (const auto& row : kVerifyFlags) {
        if ((flags & row.flag) != 0) options.*row.option = row.value;
        flags &= ~row.flag;
    }
    demand(flags == 0);
}

int crvVerifyCertInt(CRVctx& ctx, const CrvCert* cert, const CrvVerifyParams* params, CrvVerifyResult** result) {
    demand(cert && result);
    *result = nullptr;
    const PathOptions options = pathOptionsIn(params);
    const CertList extra = certsIn(params);
    demandLogIn(ctx);
    auto made = std::make_unique<CrvVerifyResult>(ctx.certificateManager.buildPath(cert->certificate, options, extra));
    const int code = made->verdict.code;
    if (code != CRV_OK) ctx.state.setDiagnosticText(made->verdict.reason);
    give(std::move(made), result);
    return code;
}

long statusNumber(const PathStep& step) {
    if (!step.asked) return CRVSTATUS_NOT_ASKED;
    switch (step.status.state) {
        case CrtStatus::State::Good:
            return CRVSTATUS_GOOD;
        case CrtStatus::State::Revoked:
            return CRVSTATUS_REVOKED;
        case CrtStatus::State::Unknown:
            break;
        case CrtStatus::State::Unusable:
            return CRVSTATUS_UNUSABLE;
    }
    return CRVSTATUS_UNKNOWN;
}

CrvVerifyInfo infoOf(const CrvVerifyResult& result) {
    const PathVerdict& verdict = result.verdict;
    return {0,
            verdict.code,
            verdict.clause.c_str(),
            verdict.reason.c_str(),
            static_cast<long>(verdict.failedAt),
            static_cast<long>(verdict.steps.size()),
            verdict.exhausted,
            result.policies.c_str()};
}

CrvVerifyStep stepOf(const PathStep& step, const std::string& subject) {
    const CrtStatus& status = step.status;
    const ByteView der = encodingOf(*step.certificate);
    return {0,
            der.data(),
            static_cast<long>(der.size()),
            subject.c_str(),
            statusNumber(step),
            status.code,
            status.clause,
            status.text.c_str(),
            static_cast<long>(status.reason),
            status.revokedAt,
            status.source.issuer.c_str(),
            status.source.number.c_str(),
            status.source.thisUpdate,
            status.source.age,
            step.algorithm.c_str(),
            step.weakness.c_str(),
            status.source.delta.c_str()};
}

}  // namespace

PathOptions pathOptionsIn(const CrvVerifyParams* params) {
    PathOptions options{std::time(nullptr)};
    if (!params) return options;
    const CrvVerifyParams given = takeIn(params);
    demand(given.depth >= 0 && given.key_usage <= UINT32_MAX);
    demand(given.revocation >= 0 && given.revocation < std::ssize(kRevocationChecks));
    if (given.time != 0) options.time = given.time;
    if (given.depth != 0) options.depth = static_cast<size_t>(given.depth);
    options.keyUsage = static_cast<uint32_t>(given.key_usage);
    options.extendedUsages = identifiersOf(given.ext_usages);
    options.policies = identifiersOf(given.policies);
    options.revocation = kRevocationChecks[given.revocation];
    setFlags(given.flags, options);
    return options;
}

CertList certsIn(const CrvVerifyParams* params) {
    if (!params) return {};
    const CrvVerifyParams given = takeIn(params);
    return certsOfHandles(given.certs, given.certs_count);
}

}  // namespace crv

CrvVerifyResult::CrvVerifyResult(crv::PathVerdict made) : verdict(std::move(made)), policies(verdict.policyText()) {
    for (const crv::CertPtr& one : verdict.certs) subjects.push_back(one->subject().text());
}

using namespace crv;

int crvVerifyCertAPI(CRVctx* ctx, const CrvCert* cert, const CrvVerifyParams* params, CrvVerifyResult** result) {
    return apiFrame(ctx, [&] { return crvVerifyCertInt(*ctx, cert, params, result); });
}

int crvGetVerifyInfoAPI(CRVctx* ctx, const CrvVerifyResult* result, CrvVerifyInfo* info) {
    return apiFrame(ctx, [&] {
        demand(result);
        handOut(infoOf(*result), info);
        return CRV_OK;
    });
}

int crvGetVerifyStepAPI(CRVctx* ctx, const CrvVerifyResult* result, long index, CrvVerifyStep* step) {
    return apiFrame(ctx, [&] {
        demand(result && index >= 0 && index < std::ssize(result->subjects));
        handOut(stepOf(result->verdict.steps[index], result->subjects[index]), step);
        return CRV_OK;
    });
}

int crvFreeVerifyResultAPI(CRVctx* ctx, CrvVerifyResult* result) {
    return freeHandle(ctx, result);
}
