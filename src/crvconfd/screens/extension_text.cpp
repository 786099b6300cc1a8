// The readable form of each extension that a certificate can carry, as the certificate view shows it.
#include <algorithm>
#include <array>

#include "asn/x509/ext_distribution.h"
#include "asn/x509/ext_key.h"
#include "asn/x509/ext_names.h"
#include "asn/x509/ext_policies.h"
#include "asn/x509/general_name.h"
#include "crvconfd/engines/text_view.h"
#include "crvconfd/screens/crt_text.h"
#include "profiles/accepted_usages.h"

namespace crv {

namespace {

using Lines = std::vector<std::string>;

/// Gives the lines of a decoded value.
using Renderer = Lines (*)(const Extension& extension, bool& decoded);

/// A renderer of a type from a function on the decoded value.
template <class T, Lines (*Render)(const T&)>
Lines rendered(const Extension& extension, bool& decoded) {
    T value;
    decoded = extension.decode(value);
    return decoded ? Render(value) : Lines();
}

std::string joined(const std::vector<std::string>& parts) {
    std::string text;
    for (const std::string& part : parts) text += (text.empty() ? "" : ", ") + part;
    return text;
}

std::string number(const ASNinteger& value) {
    return value.decimal();
}

Lines integerLines(const ASNinteger& value) {
    return {number(value)};
}

Lines commentLines(const ASNia5String& value) {
    return {value.utf8()};
}

Lines keyIdLines(const SubjectKeyIdentifier& value) {
    return {hexText(value.value())};
}

Lines usageLines(const KeyUsage& value) {
    return {joined(value.names())};
}

Lines extendedUsageLines(const ExtKeyUsage& usages) {
    Lines lines;
    for (const ASNobjectId& usage : usages) {
        const char* description = AcceptedUsages::getExtKeyUsageDescription(usage.text());
        const std::string name = description ? description : usage.name();
        lines.push_back(name == usage.text() ? name : usage.text() + " " + name);
    }
    return lines;
}

Lines constraintLines(const BasicConstraints& value) {
    Lines lines{value.cA.value() ? "urząd certyfikacji: tak" : "urząd certyfikacji: nie"};
    if (value.pathLenConstraint) lines.push_back("długość ścieżki: " + number(*value.pathLenConstraint));
    return lines;
}

Lines nameLines(const GeneralNames& names) {
    Lines lines;
    for (const GeneralName& name : names) lines.push_back(name.text());
    return lines;
}

Lines authorityKeyLines(const AuthorityKeyIdentifier& value) {
    Lines lines;
    if (value.keyIdentifier) lines.push_back(hexText(value.keyIdentifier->value()));
    if (value.authorityCertIssuer) lines.push_back(joined(nameLines(*value.authorityCertIssuer)));
    if (value.authorityCertSerialNumber)
        lines.push_back("numer seryjny: " + hexText(value.authorityCertSerialNumber->contents()));
    return lines;
}

std::string pointText(const DistributionPointName& point) {
    if (const GeneralNames* names = point.fullName()) return joined(nameLines(*names));
    return "nazwa względem wystawcy";
}

Lines distributionLines(const CrlDistributionPoints& points) {
    Lines lines;
    for (const DistributionPoint& point : points) {
        if (point.distributionPoint) lines.push_back(pointText(*point.distributionPoint));
        if (point.reasons) lines.push_back("przyczyny: " + joined(point.reasons->names()));
        if (point.cRLIssuer) lines.push_back("wystawca CRL: " + joined(nameLines(*point.cRLIssuer)));
    }
    return lines;
}

Lines issuingPointLines(const IssuingDistributionPoint& point) {
    Lines lines;
    if (point.distributionPoint) lines.push_back(pointText(*point.distributionPoint));
    const std::pair<bool, const char*> flags[] = {
        {point.onlyContainsUserCerts.value(), "tylko certyfikaty użytkowników"},
        {point.onlyContainsCaCerts.value(), "tylko certyfikaty urzędów"},
        {point.onlyContainsAttributeCerts.value(), "tylko certyfikaty atrybutów"},
        {point.indirectCrl.value(), "lista pośrednia"},
    };
    for (const auto& [set, text] : flags)
        if (set) lines.emplace_back(text);
    if (point.onlySomeReasons) lines.push_back("przyczyny: " + joined(point.onlySomeReasons->names()));
    return lines;
}

Lines accessLines(const InfoAccess& accesses) {
    Lines lines;
    for (const AccessDescription& access : accesses)
        lines.push_back(access.accessMethod.name() + ": " + access.accessLocation.text());
    return lines;
}

Lines policyLines(const CertificatePolicies& policies) {
    Lines lines;
    for (const PolicyInformation& policy : policies) {
        lines.push_back(policy.policyIdentifier.name());
        if (!policy.policyQualifiers) continue;
        for (const PolicyQualifierInfo& qualifier : *policy.policyQualifiers)
            if (const std::string text = qualifier.text(); !text.empty()) lines.push_back("  " + text);
    }
    return lines;
}

Lines mappingLines(const PolicyMappings& mappings) {
    Lines lines;
    for (const PolicyMapping& mapping : mappings)
        lines.push_back(mapping.issuerDomainPolicy.name() + " = " + mapping.subjectDomainPolicy.name());
    return lines;
}

Lines policyConstraintLines(const PolicyConstraints& value) {
    Lines lines;
    if (value.requireExplicitPolicy) lines.push_back("wymagana polityka od: " + number(*value.requireExplicitPolicy));
    if (value.inhibitPolicyMapping) lines.push_back("bez odwzorowań od: " + number(*value.inhibitPolicyMapping));
    return lines;
}

void addSubtrees(Lines& lines, const char* label, const GeneralSubtrees& subtrees) {
    for (const GeneralSubtree& subtree : subtrees) lines.push_back(label + subtree.base.text());
}

Lines nameConstraintLines(const NameConstraints& value) {
    Lines lines;
    if (value.permittedSubtrees) addSubtrees(lines, "dozwolone: ", *value.permittedSubtrees);
    if (value.excludedSubtrees) addSubtrees(lines, "wykluczone: ", *value.excludedSubtrees);
    return lines;
}

Lines statementLines(const QcStatements& statements) {
    Lines lines;
    for (const QcStatement& statement : statements) lines.push_back(statement.statementId.name());
    return lines;
}

Lines periodLines(const PrivateKeyUsagePeriod& period) {
    Lines lines;
    const auto add = [&](const char* label, const auto& time) {
        if (const auto seconds = time ? time->seconds() : std::nullopt)
            lines.push_back(label + timeLine(Time(*seconds)));
    };
    add("od: ", period.notBefore);
    add("do: ", period.notAfter);
    return lines;
}

struct ExtensionRow {
    const KnownOid& oid;
    const char* label;
    Renderer render;
};

const ExtensionRow kExtensions[] = {
    {OID_CE_KEY_USAGE, "Użycie klucza", rendered<KeyUsage, usageLines>},
    {OID_CE_EXT_KEY_USAGE, "Rozszerzone użycie", rendered<ExtKeyUsage, extendedUsageLines>},
    {OID_CE_BASIC_CONSTRAINTS, "Podstawowe ograniczenia", rendered<BasicConstraints, constraintLines>},
    {OID_CE_SUBJECT_KEY_ID, "Id. klucza", rendered<SubjectKeyIdentifier, keyIdLines>},
    {OID_CE_AUTHORITY_KEY_ID, "Id. klucza urzędu", rendered<AuthorityKeyIdentifier, authorityKeyLines>},
    {OID_CE_SUBJECT_ALT_NAME, "Inne nazwy", rendered<GeneralNames, nameLines>},
    {OID_CE_ISSUER_ALT_NAME, "Inne nazwy wystawcy", rendered<GeneralNames, nameLines>},
    {OID_CE_CERTIFICATE_POLICIES, "Polityki", rendered<CertificatePolicies, policyLines>},
    {OID_CE_POLICY_MAPPINGS, "Odwzorowania polityk", rendered<PolicyMappings, mappingLines>},
    {OID_CE_POLICY_CONSTRAINTS, "Ograniczenia polityk", rendered<PolicyConstraints, policyConstraintLines>},
    {OID_CE_INHIBIT_ANY_POLICY, "Bez dowolnej polityki", rendered<ASNinteger, integerLines>},
    {OID_CE_NAME_CONSTRAINTS, "Ograniczenia nazw", rendered<NameConstraints, nameConstraintLines>},
    {OID_CE_CRL_DISTRIBUTION_POINTS, "Punkty dystrybucji CRL", rendered<CrlDistributionPoints, distributionLines>},
    {OID_CE_FRESHEST_CRL, "Najnowsza CRL", rendered<CrlDistributionPoints, distributionLines>},
    {OID_PE_AUTHORITY_INFO_ACCESS, "Informacje o urzędzie", rendered<InfoAccess, accessLines>},
    {OID_PE_SUBJECT_INFO_ACCESS, "Informacje o właścicielu", rendered<InfoAccess, accessLines>},
    {OID_PE_QC_STATEMENTS, "Oświadczenia QC", rendered<QcStatements, statementLines>},
    {OID_CE_PRIVATE_KEY_USAGE_PERIOD, "Okres klucza prywatnego", rendered<PrivateKeyUsagePeriod, periodLines>},
    {OID_CE_CRL_NUMBER, "Numer CRL", rendered<ASNinteger, integerLines>},
    {OID_CE_DELTA_CRL_INDICATOR, "Przyrost listy CRL nr", rendered<ASNinteger, integerLines>},
    {OID_CE_ISSUING_DISTRIBUTION_POINT, "Zakres listy CRL", rendered<IssuingDistributionPoint, issuingPointLines>},
    {OID_NETSCAPE_COMMENT, "Komentarz", rendered<ASNia5String, commentLines>},
};

}  // namespace

void addExtensions(std::vector<std::string>& lines, const Extensions& extensions) {
    for (const Extension& extension : extensions) {
        const auto row = std::find_if(std::begin(kExtensions), std::end(kExtensions),
                                      [&](const ExtensionRow& known) { return extension.extnId == known.oid; });
        bool decoded = false;
        Lines values;
        if (row != std::end(kExtensions)) values = row->render(extension, decoded);
        // What cannot be read is still shown, as it stands in the certificate.
        if (!decoded) values = {hexText(extension.extnValue.value())};
        if (values.empty()) values = {""};
        std::string label = row == std::end(kExtensions) ? extension.extnId.name() : row->label;
        label += extension.critical.value() ? " (!):" : ":";
        for (const std::string& value : values) {
            addField(lines, label, displayText(value, dnDisplay()));
            label.clear();
        }
    }
}

}  // namespace crv
