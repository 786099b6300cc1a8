// Asking for time stamps and judging the answers (RFC 3161).
#pragma once

#include "pki/time_stamp_token.h"

namespace crv {

class TimeStampClient {
  public:
    void init(CertificateManager& certificates) { certificates_ = &certificates; }

    /// A request for a stamp over a digest: version 1, a nonce, with the certificate.
    [[nodiscard]] static TimeStampReq request(KcHashAlgo hash, ByteView digest);
    [[nodiscard]] static NetObject object(const TimeStampReq& request);
    /// Judges an answer: 0; 173 the server refuses; 107 what came is no answer; 127 the stamp does not verify
    /// (TimeStampToken::judge, now or at its own time). Its time is not compared with now, and lists that are out of
    /// date are for the asker to replace.
    [[nodiscard]] NetVerdict judge(const TimeStampReq& request, ByteView response, int64_t now,
                                   TimeStampFacts& facts) const;

  private:
    CertificateManager* certificates_ = nullptr;
};

}  // namespace crv
