// Asking for time stamps and judging them (RFC 3161).
#pragma once

#include <optional>

#include "asn/tsp/time_stamp.h"
#include "pki/network_run.h"

namespace crv {

/// What a time stamp says.
struct TimeStampFacts {
    int64_t genTime = 0;                ///< seconds since 1970 UTC
    std::optional<int64_t> accuracy{};  ///< microseconds either way
    int64_t difference = 0;             ///< seconds by which the local clock is ahead of it
    std::string policy{};               ///< dotted identifier
    std::string serial{};               ///< decimal
    std::string authority{};            ///< name in the certificate of who signed it
    Bytes token{};                      ///< DER ContentInfo
};

class TimeStampClient {
  public:
    void init(CertificateManager& certificates) { certificates_ = &certificates; }

    /// A request for a stamp over a digest: version 1, a nonce, with the certificate.
    [[nodiscard]] static TimeStampReq request(KcHashAlgo hash, ByteView digest);
    [[nodiscard]] static NetObject object(const TimeStampReq& request);
    /// Judges an answer: 0; 173 the server refuses; 107 what came is no answer; 127 the stamp does not verify. The
    /// path of who signed it leads to a trust point at `now`; its only, critical purpose is time stamping (2.3).
    [[nodiscard]] NetVerdict judge(const TimeStampReq& request, ByteView response, int64_t now,
                                   TimeStampFacts& facts) const;
    /// The same for a token that stands alone, over a digest made with its own hash; its time is not compared with now.
    [[nodiscard]] NetVerdict judgeToken(ByteView token, const MessageImprint& imprint, int64_t now,
                                        TimeStampFacts& facts) const;

  private:
    CertificateManager* certificates_ = nullptr;
};

}  // namespace crv
