// Calls on messages.
#include "api/api_frame.h"
#include "api/message_streams.h"
#include "context/context_options.h"

namespace crv {
namespace {

/// What a program's sink takes.
ContentSink sinkOf(CrvSink sink, void* user) {
    return [sink, user](ByteView piece) {
        return !sink || sink(user, piece.data(), static_cast<long>(piece.size())) == 0;
    };
}

/// CRLs and certificates that a signature was proved with are of use to the next one.
void storeFetched(CRVctx& ctx) {
    if (ctx.dbManager.isDbCreated() == DbState::Missing) {
        ctx.networkManager.clearNetStore();
    } else {
        ctx.moveFromNetStoreToDB();
    }
}

/// The work of a stream of this context; ECRV_INV_WRK_MODE for one that failed.
template <class Work>
Work& workOf(CRVctx& ctx, CrvStream* stream) {
    demand(stream && stream->owner == &ctx);
    if (std::holds_alternative<std::monostate>(stream->work)) throw CrvApiException(ECRV_INV_WRK_MODE);
    Work* work = std::get_if<Work>(&stream->work);
    demand(work);
    return *work;
}

/// Begins a stream and hands it out.
template <class Begin>
int initStream(CRVctx* ctx, CrvStream** stream, Begin begin) {
    return apiFrame(ctx, [&] {
        demand(stream);
        *stream = nullptr;
        give(begin(*ctx), stream);
        return CRV_OK;
    });
}

template <class Work>
int updateStream(CRVctx* ctx, CrvStream* stream, const unsigned char* octets, long len) {
    return apiFrame(ctx, [&] {
        Work& work = workOf<Work>(*ctx, stream);
        const ByteView piece = octetsIn(octets, len);
        try {
            work.update(piece);
        } catch (...) {
            stream->work = std::monostate();
            throw;
        }
        return CRV_OK;
    });
}

/// Ends a stream of the context, which is freed in any case.
template <class Work, class End>
int finishStream(CRVctx* ctx, CrvStream* stream, End end) {
    return apiFrame(ctx, [&] {
        demand(stream && stream->owner == ctx);
        const std::unique_ptr<CrvStream> ended(stream);
        return end(workOf<Work>(*ctx, stream));
    });
}

/// Begins a stream that writes into a program's sink.
template <class Begin>
int initWriting(CRVctx* ctx, CrvSink sink, void* user, CrvStream** stream, Begin begin) {
    return initStream(ctx, stream, [&](CRVctx& at) {
        demand(sink);
        return begin(at, sinkOf(sink, user));
    });
}

/// Ends a message that is made.
template <class Work>
int finishMaking(CRVctx& ctx, CrvStream& stream, Work& work) {
    work.finish();
    if (!stream.output->finish()) return ECRV_WR_OUTFILE;
    storeFetched(ctx);
    return CRV_OK;
}

/// Makes a message in memory.
template <class Work, class Begin>
int makeMessage(CRVctx* ctx, const unsigned char* content, long len, unsigned char** message, long* messageLen,
                Begin begin) {
    return apiFrame(ctx, [&] {
        demand(message && messageLen);
        *message = nullptr;
        *messageLen = 0;
        const ByteView given = octetsIn(content, len);
        Bytes made;
        const auto stream = begin(*ctx, [&](ByteView piece) {
            made.insert(made.end(), piece.begin(), piece.end());
            return true;
        });
        Work& work = std::get<Work>(stream->work);
        work.update(given);
        if (finishMaking(*ctx, *stream, work) != CRV_OK) return ECRV_MEM;
        giveOctets(made, message, messageLen);
        return CRV_OK;
    });
}

/// The verdict for the caller; what is wrong becomes the diagnostic text.
std::unique_ptr<CrvMessageVerdict> judge(CRVctx& ctx, MessageVerdict made) {
    const auto bad = std::ranges::find_if(made.signers, [](const SignerVerdict& one) { return !one.good(); });
    if (bad != made.signers.end()) ctx.state.setDiagnosticText(bad->fault.empty() ? bad->path.reason : bad->fault);
    return std::make_unique<CrvMessageVerdict>(std::move(made));
}

int giveVerdict(std::unique_ptr<CrvMessageVerdict> made, CrvMessageVerdict** verdict) {
    const int code = made->verdict.code();
    give(std::move(made), verdict);
    return code;
}

int crvVerifyInt(CRVctx& ctx, ByteView octets, const CrvMessageParams* params, unsigned char** content,
                 long* contentLen, CrvMessageVerdict** verdict) {
    demand(verdict && (!content || contentLen));
    *verdict = nullptr;
    if (content) *content = nullptr;
    if (contentLen) *contentLen = 0;
    SecretBytes inside;
    const auto stream = beginVerifying(ctx, params, [&](ByteView piece) {
        if (content) inside.insert(inside.end(), piece.begin(), piece.end());
        return true;
    });
    auto& work = std::get<MessageVerifier>(stream->work);
    work.update(octets);
    auto made = judge(ctx, work.finish());
    // Last of what may fail: who gets a failure has nothing to free.
    if (content && made->verdict.good() && made->verdict.attached) giveOctets(inside, content, contentLen);
    return giveVerdict(std::move(made), verdict);
}

void putShort(std::string_view text, std::span<char> to) {
    to[text.copy(to.data(), to.size() - 1)] = '\0';
}

void tell(const DecryptResult& result, CrvDecryptInfo* info) {
    if (!info) return;
    CrvDecryptInfo whole{};
    whole.authenticated = result.authenticated;
    whole.content_len = result.contentLength;
    whole.recipients = static_cast<long>(result.recipients.size());
    whole.recipient = static_cast<long>(result.recipient);
    putShort(result.contentType, whole.content_type);
    putShort(result.algorithm, whole.algorithm);
    handOut(whole, info);
}

int crvDecryptInt(CRVctx& ctx, ByteView message, unsigned char** content, long* contentLen, CrvDecryptInfo* info) {
    demand(content && contentLen);
    *content = nullptr;
    *contentLen = 0;
    if (info) clearOut(info);
    SecretBytes plain;
    const auto stream = beginDecrypting(ctx, [&](ByteView piece) {
        plain.insert(plain.end(), piece.begin(), piece.end());
        return true;
    });
    auto& work = std::get<MessageDecryptor>(stream->work);
    work.update(message);
    tell(work.finish(), info);
    giveOctets(plain, content, contentLen);
    return CRV_OK;
}

CrvMessageInfo messageInfo(const MessageVerdict& verdict) {
    CrvMessageInfo info{};
    info.code = verdict.code();
    info.signers = static_cast<long>(verdict.signers.size());
    info.inside = verdict.attached;
    info.content_len = verdict.contentLength;
    info.content_type = verdict.contentType.c_str();
    info.certificates = static_cast<long>(verdict.certificates.size());
    info.crls = static_cast<long>(verdict.crls);
    info.ocsp_responses = static_cast<long>(verdict.ocspResponses);
    return info;
}

CrvSignerInfo signerInfo(const SignerVerdict& one, const CrvMessageVerdict::Signer& row) {
    CrvSignerInfo info{};
    info.code = one.code;
    info.signature = static_cast<long>(one.signature);
    info.reason = one.fault.empty() ? one.path.reason.c_str() : one.fault.c_str();
    info.cert = one.certificate ? &row.certificate : nullptr;
    info.issuer = one.issuer.c_str();
    info.serial = one.serial.c_str();
    info.algorithm = one.algorithm.c_str();
    info.digest = optionOfHash(one.hash);
    info.claimed_time = one.claimedTime.value_or(0);
    info.stamp_time = one.stampTime.value_or(0);
    info.stamp_fault = one.stampFault.c_str();
    info.moment = one.moment;
    info.moment_source = static_cast<long>(one.momentSource);
    info.path = row.path.get();
    info.revoked_since = one.revokedSince;
    info.expired_since = one.expiredSince;
    info.stamp_authority = one.stampAuthority.c_str();
    info.stamp_path = row.stampPath.get();
    info.policy = row.policy.c_str();
    info.not_signed = row.notSigned.c_str();
    return info;
}

}  // namespace
}  // namespace crv

using namespace crv;

int crvFreeStreamAPI(CRVctx* ctx, CrvStream* stream) {
    return freeHandle(ctx, stream);
}

int crvSignAPI(CRVctx* ctx, const unsigned char* content, long len, const CrvSignParams* params,
               unsigned char** message, long* message_len) {
    return makeMessage<MessageSigner>(ctx, content, len, message, message_len, [&](CRVctx& at, ContentSink sink) {
        return beginSigning(at, params, std::move(sink));
    });
}

int crvSignInitAPI(CRVctx* ctx, const CrvSignParams* params, CrvSink sink, void* user, CrvStream** stream) {
    return initWriting(ctx, sink, user, stream,
                       [&](CRVctx& at, ContentSink to) { return beginSigning(at, params, std::move(to)); });
}

int crvSignUpdateAPI(CRVctx* ctx, CrvStream* stream, const unsigned char* octets, long len) {
    return updateStream<MessageSigner>(ctx, stream, octets, len);
}

int crvSignFinalAPI(CRVctx* ctx, CrvStream* stream) {
    return finishStream<MessageSigner>(ctx, stream,
                                       [&](MessageSigner& work) { return finishMaking(*ctx, *stream, work); });
}

int crvVerifyAPI(CRVctx* ctx, const unsigned char* octets, long len, const CrvMessageParams* params,
                 unsigned char** content, long* content_len, CrvMessageVerdict** verdict) {
    return apiFrame(ctx,
                    [&] { return crvVerifyInt(*ctx, octetsIn(octets, len), params, content, content_len, verdict); });
}

int crvVerifyInitAPI(CRVctx* ctx, const CrvMessageParams* params, CrvSink sink, void* user, CrvStream** stream) {
    return initStream(ctx, stream, [&](CRVctx& at) { return beginVerifying(at, params, sinkOf(sink, user)); });
}

int crvVerifyUpdateAPI(CRVctx* ctx, CrvStream* stream, const unsigned char* octets, long len) {
    return updateStream<MessageVerifier>(ctx, stream, octets, len);
}

int crvVerifyFinalAPI(CRVctx* ctx, CrvStream* stream, CrvMessageVerdict** verdict) {
    return finishStream<MessageVerifier>(ctx, stream, [&](MessageVerifier& work) {
        demand(verdict);
        *verdict = nullptr;
        return giveVerdict(judge(*ctx, work.finish()), verdict);
    });
}

int crvGetMessageInfoAPI(CRVctx* ctx, const CrvMessageVerdict* verdict, CrvMessageInfo* info) {
    return apiFrame(ctx, [&] {
        demand(verdict);
        handOut(messageInfo(verdict->verdict), info);
        return CRV_OK;
    });
}

int crvGetSignerInfoAPI(CRVctx* ctx, const CrvMessageVerdict* verdict, long index, CrvSignerInfo* info) {
    return apiFrame(ctx, [&] {
        demand(verdict && index >= 0 && index < std::ssize(verdict->signers));
        handOut(signerInfo(verdict->verdict.signers[index], verdict->signers[index]), info);
        return CRV_OK;
    });
}

int crvFreeMessageVerdictAPI(CRVctx* ctx, CrvMessageVerdict* verdict) {
    return freeHandle(ctx, verdict);
}

int crvEncryptAPI(CRVctx* ctx, const unsigned char* content, long len, const CrvEncryptParams* params,
                  unsigned char** message, long* message_len) {
    return makeMessage<MessageEncryptor>(ctx, content, len, message, message_len, [&](CRVctx& at, ContentSink sink) {
        return beginEncrypting(at, params, std::move(sink));
    });
}

int crvEncryptInitAPI(CRVctx* ctx, const CrvEncryptParams* params, CrvSink sink, void* user, CrvStream** stream) {
    return initWriting(ctx, sink, user, stream,
                       [&](CRVctx& at, ContentSink to) { return beginEncrypting(at, params, std::move(to)); });
}

int crvEncryptUpdateAPI(CRVctx* ctx, CrvStream* stream, const unsigned char* octets, long len) {
    return updateStream<MessageEncryptor>(ctx, stream, octets, len);
}

int crvEncryptFinalAPI(CRVctx* ctx, CrvStream* stream) {
    return finishStream<MessageEncryptor>(ctx, stream,
                                          [&](MessageEncryptor& work) { return finishMaking(*ctx, *stream, work); });
}

int crvDecryptAPI(CRVctx* ctx, const unsigned char* message, long len, unsigned char** content, long* content_len,
                  CrvDecryptInfo* info) {
    return apiFrame(ctx, [&] { return crvDecryptInt(*ctx, octetsIn(message, len), content, content_len, info); });
}

int crvDecryptInitAPI(CRVctx* ctx, CrvSink sink, void* user, CrvStream** stream) {
    return initWriting(ctx, sink, user, stream,
                       [](CRVctx& at, ContentSink to) { return beginDecrypting(at, std::move(to)); });
}

int crvDecryptUpdateAPI(CRVctx* ctx, CrvStream* stream, const unsigned char* octets, long len) {
    return updateStream<MessageDecryptor>(ctx, stream, octets, len);
}

int crvDecryptFinalAPI(CRVctx* ctx, CrvStream* stream, CrvDecryptInfo* info) {
    return finishStream<MessageDecryptor>(ctx, stream, [&](MessageDecryptor& work) {
        if (info) clearOut(info);
        tell(work.finish(), info);
        return CRV_OK;
    });
}
