#include "asn/x509/ext_policies.h"

#include "asn/known_oids.h"

namespace crv {

std::string DisplayText::utf8() const {
    const ASNoctstr* text = chosenAs<ASNoctstr>();
    return text ? stringToUtf8(getChosenTag(), text->value()) : "";
}

std::string PolicyQualifierInfo::text() const {
    ASNia5String address;
    if (policyQualifierId == OID_QT_CPS && address << qualifier) return address.utf8();
    UserNotice notice;
    if (policyQualifierId == OID_QT_USER_NOTICE && notice << qualifier && notice.explicitText)
        return notice.explicitText->utf8();
    return {};
}

MemberTable NoticeReference::members() const {
    static constexpr Member kMembers[] = {member<&NoticeReference::organization>,
                                          member<&NoticeReference::noticeNumbers>};
    return kMembers;
}

MemberTable UserNotice::members() const {
    static constexpr Member kMembers[] = {member<&UserNotice::noticeRef>, member<&UserNotice::explicitText>};
    return kMembers;
}

MemberTable PolicyQualifierInfo::members() const {
    static constexpr Member kMembers[] = {member<&PolicyQualifierInfo::policyQualifierId>,
                                          member<&PolicyQualifierInfo::qualifier>};
    return kMembers;
}

MemberTable PolicyInformation::members() const {
    static constexpr Member kMembers[] = {member<&PolicyInformation::policyIdentifier>,
                                          member<&PolicyInformation::policyQualifiers>};
    return kMembers;
}

MemberTable PolicyMapping::members() const {
    static constexpr Member kMembers[] = {member<&PolicyMapping::issuerDomainPolicy>,
                                          member<&PolicyMapping::subjectDomainPolicy>};
    return kMembers;
}

MemberTable PolicyConstraints::members() const {
    static constexpr Member kMembers[] = {member<&PolicyConstraints::requireExplicitPolicy>,
                                          member<&PolicyConstraints::inhibitPolicyMapping>};
    return kMembers;
}

MemberTable QcStatement::members() const {
    static constexpr Member kMembers[] = {member<&QcStatement::statementId>, member<&QcStatement::statementInfo>};
    return kMembers;
}

}  // namespace crv
