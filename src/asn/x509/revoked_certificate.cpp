#include "asn/x509/revoked_certificate.h"

#include <utility>

#include "asn/known_oids.h"
#include "asn/tlv_view.h"
#include "asn/x509/time.h"

namespace crv {

namespace {

struct ReasonRow {
    CrlReason reason;
    const char* name;
};
constexpr ReasonRow kReasons[] = {
    {CrlReason::Unspecified, "unspecified"},
    {CrlReason::KeyCompromise, "keyCompromise"},
    {CrlReason::CACompromise, "cACompromise"},
    {CrlReason::AffiliationChanged, "affiliationChanged"},
    {CrlReason::Superseded, "superseded"},
    {CrlReason::CessationOfOperation, "cessationOfOperation"},
    {CrlReason::CertificateHold, "certificateHold"},
    {CrlReason::RemoveFromCrl, "removeFromCRL"},
    {CrlReason::PrivilegeWithdrawn, "privilegeWithdrawn"},
    {CrlReason::AACompromise, "aACompromise"},
};

}  // namespace

const char* crlReasonName(CrlReason reason) {
    for (const ReasonRow& row : kReasons)
        if (row.reason == reason) return row.name;
    return "unknown";
}

MemberTable RevokedCertificate::members() const {
    static constexpr Member kMembers[] = {member<&RevokedCertificate::userCertificate>,
                                          member<&RevokedCertificate::revocationDate>,
                                          member<&RevokedCertificate::crlEntryExtensions>};
    return kMembers;
}

bool RevokedCertificate::validMembers() const {
    const unsigned char date = revocationDate.getTag();
    return (date == ASNutcTime::kTag || date == ASNgenTime::kTag) &&
           (!crlEntryExtensions || crlEntryExtensions->getTag() == Extensions::kTag);
}

std::optional<int64_t> RevokedCertificate::revokedAt() const {
    Time date;
    return revocationDate.decode(date, ASN_FLAG_CONST) ? date.seconds() : std::nullopt;
}

Extensions RevokedCertificate::extensions() const {
    Extensions decoded;
    if (!crlEntryExtensions || !crlEntryExtensions->decode(decoded)) return {};
    return decoded;
}

bool RevokedCertificate::givesReason() const {
    return crlEntryExtensions && extensions().find(OID_CE_CRL_REASON);
}

CrlReason RevokedCertificate::reason() const {
    if (!crlEntryExtensions) return CrlReason::Unspecified;
    const auto value = extensions().get<ASNenum>(OID_CE_CRL_REASON);
    const long number = value ? value->valueOr(0) : 0;
    return std::in_range<int>(number) ? static_cast<CrlReason>(number) : CrlReason::Unspecified;
}

std::optional<int64_t> RevokedCertificate::invalidityDate() const {
    const auto date = extensions().get<ASNgenTime>(OID_CE_INVALIDITY_DATE);
    return date ? date->seconds() : std::nullopt;
}

std::optional<GeneralNames> RevokedCertificate::certificateIssuer() const {
    if (!crlEntryExtensions) return std::nullopt;
    return extensions().get<GeneralNames>(OID_CE_CERTIFICATE_ISSUER);
}

std::optional<RevokedEntryView> takeRevokedEntry(ByteView& entries) {
    ByteView rest = entries;
    const auto entry = takeTlv(rest, ASNsequenceF::kTag);
    if (!entry) return std::nullopt;
    ByteView body = entry->body;
    const auto serial = takeTlv(body, ASNinteger::kTag), date = takeTlv(body);
    if (!serial || serial->body.empty() || !date) return std::nullopt;
    if (date->tag != ASNutcTime::kTag && date->tag != ASNgenTime::kTag) return std::nullopt;
    RevokedEntryView view{serial->body, date->whole, {}};
    if (!body.empty()) {
        const auto extensions = takeTlv(body, Extensions::kTag);
        if (!extensions || !body.empty()) return std::nullopt;
        view.extensions = extensions->whole;
    }
    entries = rest;
    return view;
}

const RevokedCertificate* RevokedCertificates::Cursor::next() {
    if (!intact_ || file_.peek() < 0) return nullptr;
    intact_ = entry_.read(&file_, 0, ASN_FLAG_CONST) > 0;
    return intact_ ? &entry_ : nullptr;
}

void RevokedCertificates::add(const RevokedCertificate& entry) {
    Bytes all = toBytes(contents());
    const Bytes more = entry.encoded();
    all.insert(all.end(), more.begin(), more.end());
    setContents(all);
    ++count_;
}

bool RevokedCertificates::validContents() const {
    ByteView rest = contents();
    for (count_ = 0; takeRevokedEntry(rest);) ++count_;
    Cursor others(rest);  // entries in other forms of BER
    while (others.next()) ++count_;
    return others.intact();
}

}  // namespace crv
