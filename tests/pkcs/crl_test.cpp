// Certificate revocation lists.
#include <gtest/gtest.h>

#include <ctime>
#include <iomanip>
#include <sstream>

#include "asn/known_oids.h"
#include "asn/x509/signed_cert_rev_list.h"
#include "asn/x509/signed_certificate.h"
#include "misc/ascii.h"
#include "pkcs/data_file.h"

namespace crv::test {
namespace {

std::string squeezed(std::string text) {
    std::erase(text, ' ');
    for (char& c : text) c = asciiUpper(c);
    return text;
}

std::string dated(const char* label, std::optional<int64_t> seconds) {
    char text[40] = "";
    const std::time_t time = seconds.value_or(-1);
    std::strftime(text, sizeof text, "%b %e %H:%M:%S %Y GMT", gmtime(&time));
    return squeezed(label + std::string(text));
}

/// What openssl said about the list, in the lines that we can say, too.
std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    bool reason = false;
    for (std::string line; std::getline(in, line);) {
        const bool serial = line.find("Serial Number: ") != std::string::npos;
        if (serial || reason || line.find("Revocation Date: ") != std::string::npos ||
            line.find(" Update: ") != std::string::npos)
            lines.push_back(squeezed(serial ? line.substr(line.find(": ") + 2) : line));
        reason = line.find("CRL Reason Code") != std::string::npos;
    }
    return lines;
}

std::vector<std::string> linesOf(const SignedCertRevList& crl) {
    std::vector<std::string> lines = {dated("Last Update: ", crl.thisUpdate()),
                                      dated("Next Update: ", crl.nextUpdate())};
    auto entries = crl.entries();
    while (const RevokedCertificate* entry = entries.next()) {
        std::ostringstream number;
        for (const int octet : entry->userCertificate.magnitude())
            number << std::hex << std::uppercase << std::setw(2) << std::setfill('0') << octet;
        lines.push_back(number.str());
        lines.push_back(dated("Revocation Date: ", entry->revokedAt()));
        if (entry->extensions().find(OID_CE_CRL_REASON) != nullptr)
            lines.push_back(squeezed(crlReasonName(entry->reason())));
    }
    return lines;
}

TEST(Crl, SaysWhatOthersSayAboutIt) {
    for (const std::string& name : dataFiles("crl_", ".der")) {
        const Bytes text = dataFile(name.substr(0, name.size() - 4) + ".txt");
        EXPECT_EQ(linesOf(fromFile<SignedCertRevList>(name)), linesOf(std::string(asText(text)))) << name;
    }
}

TEST(Crl, NumberScopeAndKindAreKnown) {
    const SignedCertRevList full = fromFile<SignedCertRevList>("crl_full.der");
    EXPECT_EQ(full.crlNumber()->decimal(), "17294106256055010823");
    EXPECT_EQ(full.baseCrlNumber(), std::nullopt);
    EXPECT_EQ(full.authorityKeyId(), fromFile<SignedCertificate>("crt_rsa.der").getKeyIdFromCert());
    EXPECT_EQ(full.entryCount(), 10U);
    const auto point = full.issuingDistributionPoint();
    ASSERT_TRUE(point);
    EXPECT_TRUE(point->indirectCrl.value());
    EXPECT_EQ(point->onlySomeReasons->names(), (std::vector<std::string>{"keyCompromise", "cACompromise"}));
    const SignedCertRevList delta = fromFile<SignedCertRevList>("crl_delta.der");
    EXPECT_EQ(delta.baseCrlNumber()->value(), 41);
    EXPECT_FALSE(delta.issuingDistributionPoint());
    EXPECT_EQ(fromFile<SignedCertRevList>("crl_empty.der").entryCount(), 0U);
}

TEST(Crl, SignaturesAreRightUnderTheIssuersKeyOnly) {
    const PublicKey rsa = fromFile<SignedCertificate>("crt_rsa.der").keyInfo().publicKey();
    const PublicKey ec = fromFile<SignedCertificate>("crt_ec.der").keyInfo().publicKey();
    for (const char* name : {"crl_rsa.der", "crl_full.der", "crl_pss.der", "crl_certtool.der"}) {
        EXPECT_TRUE(fromFile<SignedCertRevList>(name).isSignedBy(rsa)) << name;
        EXPECT_FALSE(fromFile<SignedCertRevList>(name).isSignedBy(ec)) << name;
    }
    EXPECT_TRUE(fromFile<SignedCertRevList>("crl_delta.der").isSignedBy(ec));
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
    EXPECT_FALSE(fromFile<SignedCertRevList>("crl_full.der").hasUnknownCriticalExtension());
    EXPECT_FALSE(fromFile<SignedCertRevList>("crl_delta.der").hasUnknownCriticalExtension());
    for (const bool critical : {false, true}) {
        SignedCertRevList list;
        SignedCertRevList ofEntry;
        RevokedCertificate entry = entryOf(1);
        Extensions extensions;
        extensions.set(kUnknown, ASNnull(), critical);
        list.tbs.crlExtensions.emplace(extensions);
        entry.crlEntryExtensions.emplace().build(extensions);
        ofEntry.tbs.revokedCertificates.emplace().add(entry);
        EXPECT_EQ(list.hasUnknownCriticalExtension(), critical);
        EXPECT_EQ(ofEntry.hasUnknownCriticalExtension(), critical);
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
