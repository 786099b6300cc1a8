// Certificate revocation lists.
#include <gtest/gtest.h>

#include <ctime>

#include "asn/known_oids.h"
#include "asn/x509/signed_cert_rev_list.h"
#include "asn/x509/signed_certificate.h"
#include "misc/ascii.h"
#include "misc/hex.h"
#include "pkcs/data_file.h"

namespace crv::test {
namespace {

/// Upper case without spaces, the form in which texts are compared.
std::string squeezed(std::string text) {
    std::erase(text, ' ');
    return asciiUpper(text);
}

std::string dated(const char* label, std::optional<int64_t> seconds) {
    char text[40] = "";
    const std::time_t time = seconds.value_or(-1);
    std::strftime(text, sizeof text, "%b %e %H:%M:%S %Y GMT\n", gmtime(&time));
    return label + std::string(text);
}

/// What the list says, in the words of openssl and in its order.
std::vector<std::string> linesOf(const SignedCertRevList& crl) {
    std::vector<std::string> lines = {dated("Last Update: ", crl.thisUpdate()),
                                      dated("Next Update: ", crl.nextUpdate())};
    auto entries = crl.entries();
    while (const RevokedCertificate* entry = entries.next()) {
        const std::string number = toHex(entry->userCertificate.magnitude());
        lines.push_back("Serial Number: " + number + dated("\nRevocation Date: ", entry->revokedAt()));
        if (entry->extensions().find(OID_CE_CRL_REASON))
            lines.push_back(std::string("Reason Code:\n") + crlReasonName(entry->reason()) + "\n");
    }
    return lines;
}

TEST(Crl, SaysWhatOthersSayAndIsRightUnderItsIssuersKeyOnly) {
    const PublicKey rsa = fromFile<SignedCertificate>("crt_rsa.der").keyInfo().publicKey();
    const PublicKey ec = fromFile<SignedCertificate>("crt_ec.der").keyInfo().publicKey();
    for (const std::string& name : dataFiles("crl_")) {
        SCOPED_TRACE(name);
        const auto crl = fromFile<SignedCertRevList>(name);
        std::string theirs = squeezed(std::string(asText(dataFile(name.substr(0, name.size() - 4) + ".txt"))));
        for (const std::string& line : linesOf(crl)) {
            const size_t at = theirs.find(squeezed(line));
            ASSERT_NE(at, std::string::npos) << line;
            theirs.erase(0, at + squeezed(line).size());
        }
        EXPECT_EQ(theirs.find("SERIALNUMBER"), std::string::npos) << "an entry was passed over";
        const bool byEc = name == "crl_delta.der" || name == "crl_empty.der";
        EXPECT_EQ(crl.isSignedBy(ec), byEc);
        EXPECT_EQ(crl.isSignedBy(rsa), !byEc);
        Bytes altered = dataFile(name);
        altered.back() ^= 1;
        SignedCertRevList other;
        ASSERT_TRUE(other.readExactly(altered, ASN_FLAG_CONST));
        EXPECT_FALSE(other.isSignedBy(byEc ? ec : rsa));
    }
}

TEST(Crl, NumberScopeAndKindAreKnown) {
    const auto full = fromFile<SignedCertRevList>("crl_full.der");
    EXPECT_EQ(full.crlNumber()->decimal(), "17294106256055010823");
    EXPECT_EQ(full.baseCrlNumber(), std::nullopt);
    EXPECT_EQ(full.authorityKeyId(), fromFile<SignedCertificate>("crt_rsa.der").getKeyIdFromCert());
    EXPECT_EQ(full.entryCount(), 10U);
    const auto point = full.issuingDistributionPoint();
    ASSERT_TRUE(point);
    EXPECT_TRUE(point->indirectCrl.value());
    EXPECT_EQ(point->onlySomeReasons->names(), (std::vector<std::string>{"keyCompromise", "cACompromise"}));
    const auto delta = fromFile<SignedCertRevList>("crl_delta.der");
    EXPECT_EQ(delta.baseCrlNumber()->value(), 41);
    EXPECT_FALSE(delta.issuingDistributionPoint());
    EXPECT_FALSE(full.hasUnknownCriticalExtension() || delta.hasUnknownCriticalExtension());
}

RevokedCertificate entryOf(long number, const char* issuer = nullptr) {
    RevokedCertificate entry;
    entry.userCertificate.setValue(number);
    entry.revocationDate.build(Time(1'700'000'000));
    if (!issuer) return entry;
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
    const std::tuple<long, const char*, bool> rows[] = {{1, "CN=List", true},  {1, "cn=b", true},  {3, "CN=A", true},
                                                        {3, "CN=List", false}, {1, "CN=A", false}, {9, "CN=B", false}};
    for (const auto& [number, issuer, found] : rows)
        EXPECT_EQ(crl.find(ASNinteger(number), name(issuer)).has_value(), found) << number << issuer;
}

TEST(Crl, UnknownCriticalExtensionsAreSeenInListAndEntries) {
    for (const bool critical : {false, true}) {
        SignedCertRevList list, ofEntry;
        RevokedCertificate entry = entryOf(1);
        Extensions extensions;
        extensions.set(KnownOid{"1.2.3.4", "unknown"}, ASNnull(), critical);
        list.tbs.crlExtensions.emplace(extensions);
        entry.crlEntryExtensions.emplace().build(extensions);
        ofEntry.tbs.revokedCertificates.emplace().add(entry);
        EXPECT_EQ(list.hasUnknownCriticalExtension(), critical);
        EXPECT_EQ(ofEntry.hasUnknownCriticalExtension(), critical);
    }
}

TEST(Crl, ReasonsBeyondTheTableAreNoOtherReason) {
    for (const auto& [number, name] :
         {std::pair{8L, "removeFromCRL"}, {7L, "unknown"}, {(1L << 32) + 8, "unspecified"}}) {
        RevokedCertificate entry = entryOf(1);
        Extensions extensions;
        extensions.set(OID_CE_CRL_REASON, ASNenum(number));
        entry.crlEntryExtensions.emplace().build(extensions);
        EXPECT_STREQ(crlReasonName(entry.reason()), name) << number;
    }
}

TEST(Crl, MalformedEntriesSpoilTheList) {
    RevokedCertificates entries, read;
    entries.add(entryOf(1));
    const Bytes good = entries.encoded();
    ASSERT_TRUE(read.readExactly(good));
    EXPECT_EQ(read.count(), 1U);
    for (const size_t at : {2, 3, 4, 5, 7, 8}) {  // tags and lengths of the entry, its number and its date
        Bytes bad = good;
        bad[at] = 0xFF;
        EXPECT_FALSE(read.readExactly(bad)) << at;
    }
}

}  // namespace
}  // namespace crv::test
