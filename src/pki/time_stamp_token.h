// Time-stamp tokens (RFC 3161 2.4.2): what they say and whether it may be believed.
#pragma once

#include <optional>
#include <string>

#include "asn/pkcs/signed_data.h"
#include "asn/tsp/time_stamp.h"
#include "pki/network_run.h"
#include "pki/path_judge.h"

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
    CertList certificates{};            ///< that came with it
    PathVerdict path{};                 ///< of who signed it, with the status of every certificate
};

/// Whom a token may come from.
struct TimeStampRules {
    RevocationCheck revocation = RevocationCheck::IfKnown;
    CertList extra{};    ///< certificates beside those in the token
    bool fresh = false;  ///< asked for just now: whoever asked finds out what the stored lists do not tell any more
};

/// A token taken apart; one object a token.
class TimeStampToken {
  public:
    /// Certificates in a token that are looked at.
    static constexpr size_t kMostCertificates = 32;
    /// Certificates of the name and number of the signer that are looked at.
    static constexpr size_t kMostCandidates = 8;

    /// 0; 107 what stands there is no token.
    [[nodiscard]] NetVerdict read(ByteView der);
    [[nodiscard]] const TstInfo& info() const { return info_; }
    /// Of what is stamped; None for one that is unknown here.
    [[nodiscard]] KcHashAlgo hash() const { return hashAlgoOf(info_.messageImprint.hashAlgorithm); }

    /// The one verdict on time stamps, fresh ones and those of messages: 0, or 127 with the reason. The signed
    /// attributes name the certificate (RFC 5816 2.2.1); its only, critical purpose is time stamping (RFC 3161 2.3);
    /// the algorithm policy admits every hash today; its path leads to a trust point today. One that was revoked later
    /// keeps its stamps only for a reason that speaks of no danger to the key (RFC 3161 4). Where a status must be
    /// known it is known today. Nothing may be behind the judge's now. Every certificate that is tried is one of the
    /// judge's signatures.
    [[nodiscard]] NetVerdict judge(const MessageImprint& imprint, const TimeStampRules& rules, PathJudge& judge,
                                   TimeStampFacts& facts) const;

  private:
    [[nodiscard]] std::string faultOfHashes(const AlgorithmPolicy* policy, int64_t now) const;
    [[nodiscard]] CertPtr signerAmong(const CertList& certificates, size_t& work) const;
    [[nodiscard]] std::string faultOfPath(const CertPtr& signer, const TimeStampRules& rules, PathJudge& judge,
                                          TimeStampFacts& facts) const;

    Bytes der_;  // which the others refer to
    ContentInfo outer_;
    SignedData data_;
    TstInfo info_;
    CertList certificates_;
};

}  // namespace crv
