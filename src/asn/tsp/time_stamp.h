// Requests for time stamps, the answers, and what a token says (RFC 3161 2.4).
#pragma once

#include "asn/asn_time.h"
#include "asn/pkcs/content_info.h"
#include "asn/x509/algorithm_identifier.h"
#include "asn/x509/extension.h"
#include "asn/x509/general_name.h"

namespace crv {

/// The digest that is stamped.
class MessageImprint : public ASNsequenceF {
  public:
    AlgorithmIdentifier hashAlgorithm;
    ASNoctstr hashedMessage;

    void set(KcHashAlgo hash, ByteView digest);
    friend bool operator==(const MessageImprint& a, const MessageImprint& b);

  protected:
    [[nodiscard]] MemberTable members() const override;
};

class TimeStampReq : public ASNsequenceF {
  public:
    ASNinteger version{1};
    MessageImprint messageImprint;
    std::optional<ASNobjectId> reqPolicy;
    std::optional<ASNinteger> nonce;
    ASNbool certReq;
    std::optional<Implicit<0, Extensions>> extensions;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

/// Whether the request was granted (RFC 3161 2.4.2).
class PkiStatusInfo : public ASNsequenceF {
  public:
    ASNinteger status;
    std::optional<ASNsequenceList<ASNutf8String>> statusString;
    std::optional<ASNbitstr> failInfo;

    /// granted or grantedWithMods.
    [[nodiscard]] bool granted() const { return status.valueOr(-1) == 0 || status.valueOr(-1) == 1; }
    /// What the server says of it on one line: its texts, then the names of the failures.
    [[nodiscard]] std::string text() const;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

/// Read it in keeping mode.
class TimeStampResp : public ASNsequenceF {
  public:
    PkiStatusInfo status;
    std::optional<ContentInfo> timeStampToken;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

/// How far the true time may be from genTime, either way.
class TstAccuracy : public ASNsequenceF {
  public:
    std::optional<ASNinteger> seconds;
    std::optional<Implicit<0, ASNinteger>> millis;
    std::optional<Implicit<1, ASNinteger>> micros;

    /// In microseconds; nothing for a negative or absurd one.
    [[nodiscard]] std::optional<int64_t> microseconds() const;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

/// TSTInfo: the content of a token, whose type is OID_CT_TST_INFO.
class TstInfo : public ASNsequenceF {
  public:
    ASNinteger version{1};
    ASNobjectId policy;
    MessageImprint messageImprint;
    ASNinteger serialNumber;
    ASNgenTime genTime;
    std::optional<TstAccuracy> accuracy;
    ASNbool ordering;
    std::optional<ASNinteger> nonce;
    std::optional<Explicit<0, GeneralName>> tsa;
    std::optional<Implicit<1, Extensions>> extensions;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

}  // namespace crv
