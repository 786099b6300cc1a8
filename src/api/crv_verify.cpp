// Calls that judge certificates.
#include <algorithm>
#include <cstring>
#include <ctime>

#include "api/api_frame.h"
#include "asn/x509/signed_certificate.h"
#include "pki/cert_file_reader.h"

namespace crv {

/// A verdict with what is handed out of it.
struct VerifyResult {
    PathVerdict verdict;
    std::vector<std::string> subjects{};
    std::string policies{};
};

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

PathOptions optionsFromC(const CrvVerifyParams* params) {
    PathOptions options{std::time(nullptr)};
    if (!params) return options;
    demand(params->size == sizeof(CrvVerifyParams) && params->depth >= 0 && params->key_usage <= UINT32_MAX);
    demand(params->revocation >= 0 && params->revocation < std::ssize(kRevocationChecks));
    if (params->time != 0) options.time = params->time;
    if (params->depth != 0) options.depth = static_cast<size_t>(params->depth);
    options.keyUsage = static_cast<uint32_t>(params->key_usage);
    options.extendedUsages = identifiersOf(params->ext_usages);
    options.policies = identifiersOf(params->policies);
    options.revocation = kRevocationChecks[params->revocation];
    setFlags(params->flags, options);
    return options;
}

CertList certsOf(const unsigned char* octets, long len) {
    demand(octets && len >= 0);
    CertList list;
    CertFileReader reader(Bytes(octets, octets + len));
    for (ByteView der; reader.next(der);) {
        CertPtr one = makeCert(der);
        if (!one) break;
        list.push_back(std::move(one));
    }
    return list;
}

int crvVerifyCertInt(CRVctx* ctx, const unsigned char* octets, long len, const CrvVerifyParams* params,
                     CrvVerifyResult** result) {
    demand(result);
    *result = nullptr;
    const PathOptions options = optionsFromC(params);
    const CertList certs = certsOf(octets, len);
    if (!ctx->keyManager.isLoggedIn()) return ECRV_API_NOT_INITED;
    if (certs.empty()) return ECRV_INV_CRT_FMT;
    auto made = std::make_unique<VerifyResult>();
    made->verdict = ctx->certificateManager.buildPath(certs.front(), options, certs);
    for (const CertPtr& one : made->verdict.certs) made->subjects.push_back(one->subject().text());
    made->policies = made->verdict.policyText();
    const int code = made->verdict.code;
    if (code != CRV_OK) ctx->state.setDiagnosticText(made->verdict.reason);
    *result = made.release();
    return code;
}

/// Gives a caller's structure as much of ours as its size says.
template <class Structure>
void handOut(Structure whole, Structure* to) {
    demand(to && to->size >= static_cast<long>(sizeof to->size));
    whole.size = to->size;
    std::memcpy(to, &whole, std::min(static_cast<size_t>(to->size), sizeof whole));
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

CrvVerifyInfo infoOf(const VerifyResult& result) {
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
}  // namespace crv

using namespace crv;

int crvVerifyCertAPI(CRVctx* ctx, const unsigned char* certs, long len, const CrvVerifyParams* params,
                     CrvVerifyResult** result) {
    return apiFrame(ctx, [&] { return crvVerifyCertInt(ctx, certs, len, params, result); });
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
    return apiFrame(ctx, [&] {
        const std::unique_ptr<CrvVerifyResult> ended(result);
        return CRV_OK;
    });
}
