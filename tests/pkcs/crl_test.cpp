// Certificate revocation lists.
#include <gtest/gtest.h>

#include <ctime>
#include <sstream>

#include "asn/known_oids.h"
#include "asn/x509/signed_cert_rev_list.h"
#include "asn/x509/signed_certificate.h"
#include "pkcs/data_file.h"

namespace crv::test {
namespace {

SignedCertRevList crlFromFile(const std::string& name) {
    SignedCertRevList crl;
    EXPECT_TRUE(crl.readExactly(dataFile(name), ASN_FLAG_CONST | ASN_FLAG_COPY)) << name;
    return crl;
}

SignedCertificate certificateFromFile(const std::string& name) {
    SignedCertificate certificate;
    EXPECT_TRUE(certificate.readExactly(dataFile(name), ASN_FLAG_CONST | ASN_FLAG_COPY)) << name;
    return certificate;
}

std::string hexOf(ByteView octets) {
    std::string text;
    char digits[3];
    for (const uint8_t octet : octets) {
        std::snprintf(digits, sizeof digits, "%02X", octet);
        text += digits;
    }
    return text;
}

/// A date as openssl prints it.
int64_t secondsOf(const std::string& text) {
    std::tm tm{};
    EXPECT_NE(strptime(text.c_str(), "%b %d %H:%M:%S %Y", &tm), nullptr) << text;
    return timegm(&tm);
}

/// What openssl said about the list, in the lines that we can say, too.
std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    std::string line;
    bool reason = false;
    while (std::getline(in, line)) {
        line.erase(0, line.find_first_not_of(' '));
        const size_t colon = line.find(": ");
        const std::string label = line.substr(0, colon);
        if (label == "Last Update" || label == "Next Update" || label == "Revocation Date")
            lines.push_back(label + " " + std::to_string(secondsOf(line.substr(colon + 2))));
        if (label == "Serial Number") lines.push_back(line.substr(colon + 2));
        if (reason) lines.push_back(line);
        reason = line.find("CRL Reason Code") != std::string::npos;
    }
    return lines;
}

const char* printedReason(CrlReason reason) {
    constexpr const char* kNames[] = {"Unspecified", "Key Compromise",         "CA Compromise",   "Affiliation Changed",
                                      "Superseded",  "Cessation Of Operation", "Certificate Hold"};
    return kNames[static_cast<int>(reason)];
}

std::vector<std::string> linesOf(const SignedCertRevList& crl) {
    std::vector<std::string> lines = {"Last Update " + std::to_string(crl.thisUpdate().value_or(0)),
                                      "Next Update " + std::to_string(crl.nextUpdate().value_or(0))};
    auto entries = crl.entries();
    while (const RevokedCertificate* entry = entries.next()) {
        lines.push_back(hexOf(entry->userCertificate.magnitude()));
        lines.push_back("Revocation Date " + std::to_string(entry->revokedAt().value_or(0)));
        if (entry->extensions().find(OID_CE_CRL_REASON) != nullptr) lines.push_back(printedReason(entry->reason()));
    }
    return lines;
}

TEST(Crl, SaysWhatOthersSayAboutIt) {
    for (const std::string& name : dataFiles("crl_", ".der")) {
        const Bytes text = dataFile(name.substr(0, name.size() - 4) + ".txt");
        EXPECT_EQ(linesOf(crlFromFile(name)), linesOf(std::string(asText(text)))) << name;
    }
}

TEST(Crl, NumberScopeAndKindAreKnown) {
    const SignedCertRevList full = crlFromFile("crl_full.der");
    EXPECT_EQ(full.crlNumber()->decimal(), "17294106256055010823");
    EXPECT_EQ(full.baseCrlNumber(), std::nullopt);
    EXPECT_EQ(full.authorityKeyId(), certificateFromFile("crt_rsa.der").getKeyIdFromCert());
    EXPECT_EQ(full.entryCount(), 10U);
    const auto point = full.issuingDistributionPoint();
    ASSERT_TRUE(point);
    EXPECT_TRUE(point->indirectCrl.value());
    EXPECT_EQ(point->onlySomeReasons->names(), (std::vector<std::string>{"keyCompromise", "cACompromise"}));
    const SignedCertRevList delta = crlFromFile("crl_delta.der");
    EXPECT_EQ(delta.baseCrlNumber()->value(), 41);
    EXPECT_FALSE(delta.issuingDistributionPoint());
    EXPECT_EQ(crlFromFile("crl_empty.der").entryCount(), 0U);
}

TEST(Crl, SignaturesAreRightUnderTheIssuersKeyOnly) {
    const PublicKey rsa = certificateFromFile("crt_rsa.der").keyInfo().publicKey();
    const PublicKey ec = certificateFromFile("crt_ec.der").keyInfo().publicKey();
    for (const char* name : {"crl_rsa.der", "crl_full.der", "crl_pss.der", "crl_certtool.der"}) {
        EXPECT_TRUE(crlFromFile(name).isSignedBy(rsa)) << name;
        EXPECT_FALSE(crlFromFile(name).isSignedBy(ec)) << name;
    }
    EXPECT_TRUE(crlFromFile("crl_delta.der").isSignedBy(ec));
    Bytes altered = dataFile("crl_rsa.der");
    altered.back() ^= 1;
    SignedCertRevList crl;
    ASSERT_TRUE(crl.readExactly(altered, ASN_FLAG_CONST));
    EXPECT_FALSE(crl.isSignedBy(rsa));
}

RevokedCertificate entryOf(long number, const char* issuer = nullptr) {
    RevokedCertificate entry;
    entry.userCertificate.setValue(number);
    entry.revocationDate.build(Time(1'700'000'000));
    if (issuer == nullptr) return entry;
    GeneralNames names;
    names.add().setName(*DistinguishedName::fromText(issuer));
    Extensions extensions;
    extensions.set(OID_CE_CERTIFICATE_ISSUER, names, true);
    entry.crlEntryExtensions.emplace().build(extensions);
    return entry;
}

/// RFC 5280 5.3.3: an entry belongs to the issuer that was named last.
TEST(Crl, EntriesOfIndirectListsBelongToTheIssuerNamedBefore) {
    SignedCertRevList crl;
    const auto name = [](const char* text) { return *DistinguishedName::fromText(text); };
    crl.tbs.issuer = name("CN=List");
    auto& entries = crl.tbs.revokedCertificates.emplace();
    for (const RevokedCertificate& entry : {entryOf(1), entryOf(2, "CN=A"), entryOf(3), entryOf(4, "CN=B"), entryOf(1)})
        entries.add(entry);
    EXPECT_TRUE(crl.find(ASNinteger(3), name("CN=List"))) << "a direct list is one issuer's";
    EXPECT_FALSE(crl.find(ASNinteger(3), name("CN=A")));
    IssuingDistributionPoint point;
    point.indirectCrl.setValue(true);
    crl.tbs.crlExtensions.emplace().set(OID_CE_ISSUING_DISTRIBUTION_POINT, point, true);
    struct Row {
        long number;
        const char* issuer;
        bool found;
    };
    constexpr Row kRows[] = {{1, "CN=List", true}, {1, "cn=b", true},  {2, "CN=A", true},     {3, "CN=A", true},
                             {4, "CN=B", true},    {1, "CN=A", false}, {3, "CN=List", false}, {9, "CN=B", false}};
    for (const Row& row : kRows)
        EXPECT_EQ(crl.find(ASNinteger(row.number), name(row.issuer)).has_value(), row.found)
            << row.number << row.issuer;
}

TEST(Crl, UnknownCriticalExtensionsAreSeenInListAndEntries) {
    constexpr KnownOid kUnknown{"1.2.3.4", "unknown"};
    EXPECT_FALSE(crlFromFile("crl_full.der").hasUnknownCriticalExtension());
    EXPECT_FALSE(crlFromFile("crl_delta.der").hasUnknownCriticalExtension());
    for (const bool critical : {false, true}) {
        SignedCertRevList crl;
        crl.tbs.crlExtensions.emplace().set(kUnknown, ASNnull(), critical);
        EXPECT_EQ(crl.hasUnknownCriticalExtension(), critical);
        crl.tbs.crlExtensions.reset();
        RevokedCertificate entry = entryOf(1);
        Extensions extensions;
        extensions.set(kUnknown, ASNnull(), critical);
        entry.crlEntryExtensions.emplace().build(extensions);
        crl.tbs.revokedCertificates.emplace().add(entry);
        EXPECT_EQ(crl.hasUnknownCriticalExtension(), critical);
    }
}

TEST(Crl, MalformedEntriesSpoilTheList) {
    RevokedCertificates entries;
    entries.add(entryOf(1));
    const Bytes good = entries.encoded();
    RevokedCertificates read;
    EXPECT_TRUE(read.readExactly(good));
    EXPECT_EQ(read.count(), 1U);
    for (const size_t at : {2, 3, 4, 5, 7, 8}) {  // tags and lengths of the entry, its number and its date
        Bytes bad = good;
        bad[at] = 0xFF;
        EXPECT_FALSE(read.readExactly(bad)) << at;
    }
}

}  // namespace
}  // namespace crv::test
