// Extensions about certificate policies (RFC 5280 4.2.1.4, 4.2.1.5, 4.2.1.11, 4.2.1.14) and qualified statements
// (RFC 3739 3.2.6). inhibitAnyPolicy is an INTEGER.
#pragma once

#include "asn/x509/general_name.h"

namespace crv {

/// Text to be shown to people.
class DisplayText : public ASNchoiceOf<ASNia5String, ASNvisibleString, ASNbmpString, ASNutf8String> {
  public:
    [[nodiscard]] std::string utf8() const;
};

class NoticeReference : public ASNsequenceF {
  public:
    DisplayText organization;
    ASNsequenceList<ASNinteger> noticeNumbers;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

class UserNotice : public ASNsequenceF {
  public:
    std::optional<NoticeReference> noticeRef;
    std::optional<DisplayText> explicitText;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

class PolicyQualifierInfo : public ASNsequenceF {
  public:
    ASNobjectId policyQualifierId;
    ASNany qualifier;

    /// The address of the practice statement or the notice's text; empty for another qualifier.
    [[nodiscard]] std::string text() const;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

class PolicyInformation : public ASNsequenceF {
  public:
    ASNobjectId policyIdentifier;
    std::optional<ASNsequenceList<PolicyQualifierInfo>> policyQualifiers;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

class CertificatePolicies : public ASNsequenceList<PolicyInformation> {};

class PolicyMapping : public ASNsequenceF {
  public:
    ASNobjectId issuerDomainPolicy;
    ASNobjectId subjectDomainPolicy;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

class PolicyMappings : public ASNsequenceList<PolicyMapping> {};

class PolicyConstraints : public ASNsequenceF {
  public:
    std::optional<Implicit<0, ASNinteger>> requireExplicitPolicy;
    std::optional<Implicit<1, ASNinteger>> inhibitPolicyMapping;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

/// One statement of a qualified certificate.
class QcStatement : public ASNsequenceF {
  public:
    ASNobjectId statementId;
    std::optional<ASNany> statementInfo;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

class QcStatements : public ASNsequenceList<QcStatement> {};

}  // namespace crv
