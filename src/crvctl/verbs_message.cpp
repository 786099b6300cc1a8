// Verbs on messages.
#include <algorithm>
#include <ctime>

#include "asn/x509/signed_certificate.h"
#include "crvctl/show.h"
#include "crvctl/verbs.h"
#include "crvctl/verbs_net.h"
#include "messages/profile_messages.h"
#include "misc/ascii.h"
#include "ops/messages.h"
#include "ops/settings.h"

namespace crv::ctl {
namespace {

constexpr const char* kSignatureChecks[] = {"good",           "bad",       "unsupported", "no-signature",
                                            "no-certificate", "no-content"};
constexpr const char* kMomentSources[] = {"stamp", "claim", "now", "given"};

constexpr struct {
    const char* word;
    KcHashAlgo hash;
} kDigests[] = {{"sha256", KcHashAlgo::Sha256},    {"sha384", KcHashAlgo::Sha384},
                {"sha512", KcHashAlgo::Sha512},    {"sha3-256", KcHashAlgo::Sha3256},
                {"sha3-384", KcHashAlgo::Sha3384}, {"sha3-512", KcHashAlgo::Sha3512}};

SignFileOrder signOrder(const Run& run) {
    const Call& call = run.call;
    SignFileOrder order{call.operand(0), targetOf(run, call.operand(1))};
    const std::string level = call.value("level").value_or("B");
    order.level = level == "B"   ? SignatureLevel::Basic
                  : level == "T" ? SignatureLevel::Stamped
                                 : SignatureLevel::LongTerm;
    order.progress = goesOn;
    if (call.has("key")) order.keys = call.options.find("key")->second;
    order.detached = call.has("detached");
    order.cosign = call.has("cosign");
    order.claimTime = !call.has("no-time");
    order.pem = call.has("pem");
    order.pss = call.has("pss");
    for (const auto& row : kDigests)
        if (call.value("digest") == row.word) order.hash = row.hash;
    order.detachedMessage = call.value("message").value_or("");
    order.policy = call.value("policy").value_or("");
    order.policyDocument = call.value("policy-document").value_or("");
    if (order.cosign && (order.detached || !order.detachedMessage.empty()))
        throw CallError("not together", "--cosign, --detached, --message");
    return order;
}

VerifyParams verifyParams(const Call& call) {
    VerifyParams params;
    params.now = std::time(nullptr);
    if (call.has("at") && call.has("now")) throw CallError("not together", "--at, --now");
    if (call.has("now")) params.moment = VerifyMoment::Now;
    if (const auto at = call.value("at")) {
        params.moment = VerifyMoment::Given;
        params.time = timeFrom(*at);
    }
    params.path.revocation = revocationOf(call);
    params.path.policies = identifiersOf(call, "policy");
    if (const auto file = call.value("certs")) params.certificates = certsOfFile(*file);
    return params;
}

/// As certificates show their numbers.
std::string smallDigits(std::string hex) {
    for (char& digit : hex) digit = asciiLower(digit);
    return hex;
}

/// What is known of each certificate of a path below the trust point, and where it is from.
Values statusOf(const PathVerdict& path) {
    static constexpr const char* kStates[] = {"good", "revoked", "unknown", "unusable"};
    Values list;
    for (const PathStep& step : path.steps) {
        if (!step.asked) continue;
        const StatusSourceNote& source = step.status.source;
        const bool known = source.thisUpdate != 0;
        list.emplace_back(Fields{{"subject", step.certificate->subject().rfc4514()},
                                 {"status", kStates[static_cast<size_t>(step.status.state)]},
                                 {"source", !known ? Value() : Value(source.ocsp ? "ocsp" : "crl")},
                                 {"issued", known ? timeOf(source.thisUpdate) : Value()},
                                 {"age", known ? Value(source.age) : Value()}});
    }
    return list;
}

Fields signerFields(const SignerVerdict& one) {
    Values notSigned;
    for (const std::string& what : one.notSigned) notSigned.emplace_back(what);
    const std::string& reason = one.fault.empty() ? one.path.reason : one.fault;
    return {{"good", one.good()},
            {"verdict", codeName(one.code)},
            {"reason", reason},
            {"signer", one.certificate ? one.certificate->subject().rfc4514() : ""},
            {"issuer", one.certificate ? one.certificate->issuer().rfc4514() : one.issuer},
            {"serial", smallDigits(one.serial)},
            {"sha256", one.certificate ? hexOf(one.certificate->fingerprint(KcHashAlgo::Sha256)) : ""},
            {"signature", kSignatureChecks[static_cast<size_t>(one.signature)]},
            {"algorithm", one.algorithm},
            {"claimedTime", one.claimedTime ? timeOf(one.claimedTime) : Value()},
            {"stampTime", one.stampTime ? timeOf(one.stampTime) : Value()},
            {"stampAuthority", one.stampAuthority},
            {"stampFault", one.stampFault},
            {"stampStatus", statusOf(one.stampPath)},
            {"at", timeOf(one.moment)},
            {"momentSource", kMomentSources[static_cast<size_t>(one.momentSource)]},
            {"policy", one.policy ? one.policy->text() : ""},
            {"path", one.path.certs.empty() ? Value() : Value(codeName(one.path.code))},
            {"clause", one.path.clause},
            {"status", statusOf(one.path)},
            {"revokedSince", one.revokedSince},
            {"expiredSince", one.expiredSince},
            {"notSigned", std::move(notSigned)}};
}

CertList recipientsOf(const Call& call, Session& session) {
    const auto each = [&](const char* name, const auto& take) {
        if (!call.has(name)) return;
        for (const std::string& value : call.options.find(name)->second) take(value);
    };
    CertList list;
    each("for-file", [&](const std::string& file) {
        const CertList more = certsOfFile(file);
        list.insert(list.end(), more.begin(), more.end());
    });
    each("for-sha256", [&](const std::string& hex) { list.push_back(findOne(session, {.sha256 = hex})); });
    each("for-email", [&](const std::string& email) { list.push_back(recipientByEmail(session, email)); });
    if (list.empty() && !call.has("self")) throw CallError("missing", "--for-file, --for-sha256, --for-email, --self");
    return list;
}

}  // namespace

void sign(Run& run) {
    const SignFileOrder order = signOrder(run);
    Session session = openReading(run);
    const SignResult result = signFile(session, order);
    run.out.change("write", "message", order.target.path);
    if (!session.context().state.warnings.empty())
        run.out.warn("lists that were fetched could not be stored", run.profileName());
    if (run.mode.dryRun || order.target.path == "-") return;  // nothing may stand behind the message
    run.out.field("detached", result.detached);
    run.out.field("contentLength", result.contentLength);
    run.out.field("signers", result.signers);
}

void verify(Run& run) {
    if (run.call.has("content") && run.call.has("out")) throw CallError("not together", "--content, --out");
    VerifyFileOrder order{run.call.value("content").value_or(run.call.operand(0))};
    if (run.call.has("content")) order.detachedMessage = run.call.operand(0);
    if (const auto out = run.call.value("out")) {
        order.out = *out;
        order.target = targetOf(run, *out);
    }
    const VerifyParams params = verifyParams(run.call);
    Session session = openReading(run);
    const MessageVerdict verdict = verifyFile(session, order, params);
    run.out.field("good", verdict.good());
    run.out.field("verdict", codeName(verdict.code()));
    run.out.field("attached", verdict.attached);
    run.out.field("contentType", verdict.contentType);
    run.out.field("contentLength", verdict.contentLength);
    run.out.field("certificatesInside", verdict.certificates.size());
    run.out.field("crlsInside", verdict.crls);
    run.out.field("ocspInside", verdict.ocspResponses);
    for (const SignerVerdict& one : verdict.signers) run.out.item(signerFields(one));
    if (!verdict.good()) return run.out.no(verdict.code());
    if (!order.out.empty() && verdict.attached) run.out.change("write", "content", order.out);
}

void encrypt(Run& run) {
    const ExportTarget target = targetOf(run, run.call.operand(1));
    Session session = openReading(run);
    EncryptParams params =
        encryptParamsOf(session.keys(), session.configuration(), recipientsOf(run.call, session), run.call.has("self"));
    if (const auto word = run.call.value("cipher")) params.algorithm = *cipherOf(*word);
    if (run.call.has("oaep")) params.rsaPadding = RsaPadding::Oaep;
    encryptFile(session, run.call.operand(0), target, params, run.call.has("pem"), run.call.has("unchecked"));
    run.out.change("write", "message", target.path);
    if (target.path != "-") run.out.field("recipients", params.recipients.size());
}

void decrypt(Run& run) {
    const ExportTarget target = targetOf(run, run.call.operand(1));
    Session session = openReading(run);
    const DecryptResult result = decryptFile(session, run.call.operand(0), target);
    run.out.change("write", "content", target.path);
    if (run.mode.dryRun) return;
    run.out.field("contentType", result.contentType);
    run.out.field("contentLength", result.contentLength);
    run.out.field("cipher", result.algorithm);
    run.out.field("authenticated", result.authenticated);
    run.out.field("recipient", result.recipient);
    for (const MessageRecipient& one : result.recipients) {
        run.out.item({{"issuer", one.issuer},
                      {"serial", smallDigits(one.serial)},
                      {"keyId", hexOf(one.keyId)},
                      {"algorithm", one.algorithm}});
    }
}

}  // namespace crv::ctl
