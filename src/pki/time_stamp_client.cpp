#include "pki/time_stamp_client.h"

#include "corvane/crverrors.h"
#include "crypto/crypto_error.h"
#include "crypto/random_bridge.h"

namespace crv {

namespace {

constexpr size_t kNonceOctets = 16;

NetVerdict notAsked(const char* what) {
    return {ECRV_TS_VERIF, std::string("time stamp: the ") + what + " is another one"};
}

}  // namespace

TimeStampReq TimeStampClient::request(KcHashAlgo hash, ByteView digest) {
    TimeStampReq request;
    Bytes nonce(kNonceOctets);
    if (!systemRandom(nonce)) throw CryptoError(CryptoFailure::NoRandom, "no random octets for a nonce");
    request.messageImprint.set(hash, digest);
    request.nonce.emplace().setUnsigned(nonce);
    request.certReq.setValue(true);
    return request;
}

NetObject TimeStampClient::object(const TimeStampReq& request) {
    NetObject object{kTimeStampLimits};
    object.body = request.encoded();
    object.contentType = "application/timestamp-query";
    return object;
}

NetVerdict TimeStampClient::judge(const TimeStampReq& request, ByteView octets, int64_t now,
                                  TimeStampFacts& facts) const {
    TimeStampResp response;
    if (!response.readExactly(octets, ASN_FLAG_CONST)) return {ECRV_TCP_PROT, "time stamp: what came is no answer"};
    if (!response.status.granted()) return {ECRV_TS_REJECTED, "time stamp: " + response.status.text()};
    if (!response.timeStampToken) return {ECRV_TCP_PROT, "time stamp: granted, but there is none"};
    TimeStampToken token;
    if (NetVerdict bad = token.read(response.timeStampToken->encoded()); bad.code != 0) return bad;
    if (request.nonce && (!token.info().nonce || !(*token.info().nonce == *request.nonce))) return notAsked("nonce");
    if (request.reqPolicy && !(token.info().policy == *request.reqPolicy)) return notAsked("policy");
    const auto judgeAt = [&](int64_t time) {
        PathJudge judge(*certificates_, {}, time);
        return token.judge(request.messageImprint, {.fresh = true}, judge, facts);
    };
    NetVerdict verdict = judgeAt(now);
    // A clock beyond the life of the server's certificate is to be told, too: the difference says so.
    const auto time = token.info().genTime.seconds();
    if (verdict.code != 0 && time && judgeAt(*time).code == 0) verdict = {};
    facts.difference = now - facts.genTime;
    return verdict;
}

}  // namespace crv
