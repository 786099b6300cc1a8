#include "api/message_streams.h"

#include <ctime>

#include "api/key_store_call.h"
#include "asn/x509/signed_certificate.h"
#include "config/config_oids.h"
#include "context/context_options.h"
#include "messages/profile_messages.h"
#include "messages/signature_level.h"

namespace crv {
namespace {

constexpr const char* kMessageLabel = "CMS";

constexpr VerifyMoment kMoments[] = {VerifyMoment::Signing, VerifyMoment::Now, VerifyMoment::Given};

constexpr SignatureLevel kLevels[] = {SignatureLevel::Basic, SignatureLevel::Stamped, SignatureLevel::LongTerm};

bool optionSet(const CRVctx& ctx, long id) {
    return ctx.configurationManager.record().getIntOpt(id) != 0;
}

bool inPem(const CRVctx& ctx, long form) {
    demand(form >= CRVMSG_FORM_CONFIGURED && form <= CRVMSG_FORM_PEM);
    return form == CRVMSG_FORM_CONFIGURED ? optionSet(ctx, kOptBase64) : form == CRVMSG_FORM_PEM;
}

SignaturePolicy policyOf(const CRVctx& ctx, const CrvSignParams& given) {
    const auto list = ctx.configurationManager.record().getPolicies();
    const auto known = std::ranges::find_if(
        list, [&](const auto& one) { return one.policyId.text() == std::string_view(given.policy); });
    if (known == list.end()) throw CrvApiException(ECRV_API_INV_PAR, given.policy);
    SignaturePolicy policy{known->policyId};
    if (given.policy_digest == 0) return policy;
    policy.hash = hashOfOption(given.policy_digest);
    policy.digest = toBytes(octetsIn(given.policy_hash, given.policy_hash_len));
    demand(policy.digest.size() == hashLength(policy.hash));
    return policy;
}

std::vector<MessageSignerKey> signersIn(const CRVctx& ctx, const CrvSignParams& given) {
    std::vector<MessageSignerKey> list;
    for (const CertPtr& one : certsOfHandles(given.signers, given.signers_count))
        list.push_back(signerOf(ctx.keyManager, ctx.configurationManager, one));
    if (list.empty()) list.push_back(signerOf(ctx.keyManager, ctx.configurationManager));
    return list;
}

std::unique_ptr<CrvStream> streamInto(CRVctx& ctx, ContentSink sink, bool pem) {
    auto made = std::make_unique<CrvStream>();
    made->owner = &ctx;
    made->output = std::make_unique<MessageOutput>(std::move(sink), pem);
    return made;
}

void demandGoodRecipient(CRVctx& ctx, const CertPtr& certificate) {
    const PathVerdict path = ctx.certificateManager.buildPath(certificate, PathOptions{std::time(nullptr)});
    if (!path.good()) throw CrvApiException(path.code, certificate->subject().text() + ": " + path.reason);
}

}  // namespace

MessageOutput::MessageOutput(ContentSink sink, bool pem) : sink_(std::move(sink)) {
    if (pem) writer_.emplace(*this, kMessageLabel);
}

ContentSink MessageOutput::sink() {
    return [this](ByteView piece) { return writer_ ? writer_->write(piece) : sink_(piece); };
}

bool MessageOutput::finish() {
    return !writer_ || writer_->finish();
}

CertList certsOfHandles(const CrvCert* const* certs, long count) {
    demand(count >= 0 && (certs || count == 0));
    CertList list;
    for (long i = 0; i < count; ++i) {
        demand(certs[i]);
        list.push_back(certs[i]->certificate);
    }
    return list;
}

std::unique_ptr<CrvStream> beginSigning(CRVctx& ctx, const CrvSignParams* params, ContentSink sink) {
    CrvSignParams given{};
    if (params) given = takeIn(params);
    constexpr unsigned long kAll = CRVSIGN_NO_TIME | CRVSIGN_COSIGN;
    demand(given.content >= CRVSIGN_CONTENT_CONFIGURED && given.content <= CRVSIGN_CONTENT_BESIDE);
    demand((given.flags & ~kAll) == 0 && ((given.flags & CRVSIGN_COSIGN) == 0 || !given.message));
    demandLogIn(ctx);
    demand(given.level >= 0 && given.level < std::ssize(kLevels));
    SignParams plan{signersIn(ctx, given)};
    plan.cosign = (given.flags & CRVSIGN_COSIGN) != 0;
    plan.detachedMessage = toBytes(octetsIn(given.message, given.message_len));
    const bool configured = given.content == CRVSIGN_CONTENT_CONFIGURED;
    // A message that is there says itself where its content stands.
    plan.detached = !plan.cosign && plan.detachedMessage.empty() &&
                    (configured ? optionSet(ctx, kOptContentinfoDetached) : given.content == CRVSIGN_CONTENT_BESIDE);
    if ((given.flags & CRVSIGN_NO_TIME) == 0) plan.time = std::time(nullptr);
    if (given.policy) plan.policy = policyOf(ctx, given);
    plan.proofs.certificates = certsOfHandles(given.certificates, given.certificates_count);
    raiseLevel(plan, kLevels[given.level], {ctx.certificateManager, ctx.revocationManager, ctx.networkManager});
    auto made = streamInto(ctx, std::move(sink), inPem(ctx, given.form));
    made->work.emplace<MessageSigner>(std::move(plan), ctx.keyManager.random(), made->output->sink());
    return made;
}

std::unique_ptr<CrvStream> beginVerifying(CRVctx& ctx, const CrvMessageParams* params, ContentSink sink) {
    CrvMessageParams given{};
    if (params) given = takeIn(params);
    demand(given.moment >= 0 && given.moment < std::ssize(kMoments));
    demandLogIn(ctx);
    VerifyParams plan;
    plan.now = std::time(nullptr);
    plan.moment = kMoments[given.moment];
    plan.time = given.time;
    plan.everyStamp = optionSet(ctx, kOptVerifyAllTimestamps);
    plan.detached = given.message != nullptr;
    plan.message = toBytes(octetsIn(given.message, given.message_len));
    plan.path = pathOptionsIn(given.path);
    plan.certificates = certsIn(given.path);
    const CertList& own = ctx.keyManager.userCerts();
    plan.certificates.insert(plan.certificates.end(), own.begin(), own.end());
    auto made = streamInto(ctx, std::move(sink), false);
    plan.content = made->output->sink();
    made->work.emplace<MessageVerifier>(std::move(plan), ctx.certificateManager, ctx.revocationManager);
    return made;
}

std::unique_ptr<CrvStream> beginEncrypting(CRVctx& ctx, const CrvEncryptParams* params, ContentSink sink) {
    const CrvEncryptParams given = takeIn(params);
    constexpr unsigned long kAll = CRVENCRYPT_SELF | CRVENCRYPT_OAEP | CRVENCRYPT_UNCHECKED;
    demand((given.flags & ~kAll) == 0);
    demandLogIn(ctx);
    CertList recipients = certsOfHandles(given.recipients, given.recipients_count);
    EncryptParams plan = encryptParamsOf(ctx.keyManager, ctx.configurationManager, std::move(recipients),
                                         (given.flags & CRVENCRYPT_SELF) != 0);
    if ((given.flags & CRVENCRYPT_OAEP) != 0) plan.rsaPadding = RsaPadding::Oaep;
    if (given.cipher) {
        const auto cipher = ASNobjectId::fromText(given.cipher);
        demand(cipher.has_value());
        plan.algorithm = *cipher;
    }
    if ((given.flags & CRVENCRYPT_UNCHECKED) == 0)
        for (const CertPtr& one : plan.recipients) demandGoodRecipient(ctx, one);
    auto made = streamInto(ctx, std::move(sink), inPem(ctx, given.form));
    made->work.emplace<MessageEncryptor>(plan, ctx.keyManager.random(), made->output->sink());
    return made;
}

std::unique_ptr<CrvStream> beginDecrypting(CRVctx& ctx, ContentSink sink) {
    demandLogIn(ctx);
    auto made = streamInto(ctx, std::move(sink), false);
    made->work.emplace<MessageDecryptor>(decryptionKeysOf(ctx.keyManager, ctx.certificateManager),
                                         made->output->sink());
    return made;
}

}  // namespace crv

CrvMessageVerdict::CrvMessageVerdict(crv::MessageVerdict made) : verdict(std::move(made)) {
    for (const crv::SignerVerdict& one : verdict.signers) {
        Signer& row = signers.emplace_back();
        row.certificate.certificate = one.certificate;
        if (!one.path.certs.empty()) row.path = std::make_unique<CrvVerifyResult>(one.path);
        if (!one.stampPath.certs.empty()) row.stampPath = std::make_unique<CrvVerifyResult>(one.stampPath);
        if (one.policy) row.policy = one.policy->text();
        for (const std::string& what : one.notSigned) row.notSigned.append(what).push_back('\n');
    }
}
