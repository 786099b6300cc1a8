// Kinds of CRLs as tables: what each says of a certificate, who may sign it, which of several counts.
#include "asn/x509/ext_names.h"
#include "asn/x509/signed_certificate.h"
#include "corvane/crverrors.h"
#include "pki/path_cases.h"

using namespace crv;
using namespace crv::test;

namespace {

class CrlCasesTest : public PathCasesTest {};

/// What makes a CRL stand for a certificate or not.
struct CrlRow {
    const char* what;
    Texts leaf{};
    std::vector<CrlPlan> crls{};
    CrtStatus::State state = CrtStatus::State::Good;
};

GeneralNames uri(const char* text) {
    GeneralNames names;
    names.add().setText(GeneralName::kUri, text);
    return names;
}

std::string points(const char* text, uint32_t reasons = 0, uint32_t second = 0) {
    CrlDistributionPoints points;
    for (const uint32_t some : {reasons, second}) {
        if (some == 0 && some != reasons) continue;
        DistributionPoint& point = points.add();
        static_cast<void>(static_cast<GeneralNames&>(*point.distributionPoint.emplace().setChosenIndex(0)) = uri(text));
        if (some != 0) point.reasons.emplace().setNamedBits(some);
    }
    return der(points);
}

std::string scope(const char* text, uint32_t reasons = 0, int flag = 0) {
    IssuingDistributionPoint point;
    if (text) static_cast<GeneralNames&>(*point.distributionPoint.emplace().setChosenIndex(0)) = uri(text);
    if (reasons != 0) point.onlySomeReasons.emplace().setNamedBits(reasons);
    point.onlyContainsUserCerts.setValue(flag == 1);
    point.onlyContainsCaCerts.setValue(flag == 2);
    point.onlyContainsAttributeCerts.setValue(flag == 5);
    return der(point, "critical,");
}

TEST_F(CrlCasesTest, CrlsAndWhatTheyAreAbout) {
    using State = CrtStatus::State;
    constexpr const char* kPoints = "2.5.29.31";
    constexpr const char* kScope = "2.5.29.28";
    constexpr uint32_t kSome = 0x06, kRest = 0x1F8;
    const auto crl = [](Texts extensions, std::vector<CrlEntry> entries = {}) {
        return CrlPlan{.entries = std::move(entries), .extensions = std::move(extensions)};
    };
    const CrlRow rows[] = {
        {"none", {}, {}, State::Unknown},
        {"plain", {}, {crl({})}},
        {"revoked", {}, {crl({}, {{"07", 1}})}, State::Revoked},
        {"another serial", {}, {crl({}, {{"08", 1}})}},
        {"foreign key identifier", {}, {crl({{"2.5.29.35", "DER:30048002AAAA"}}, {{"07"}})}, State::Revoked},
        {"removed from a complete list", {}, {crl({}, {{"07", 8}})}, State::Unusable},
        {"extension twice", {}, {crl({{"1.2.3", "DER:0500"}, {"1.2.3", "DER:0500"}})}, State::Unusable},
        {"out of date", {}, {{.thisUpdate = -7200, .nextUpdate = -60, .extensions = {}}}, State::Unusable},
        {"for users", {}, {crl({{kScope, scope(nullptr, 0, 1)}}, {{"07"}})}, State::Revoked},
        {"for authorities", {}, {crl({{kScope, scope(nullptr, 0, 2)}}, {{"07"}})}, State::Unknown},
        {"for attributes", {}, {crl({{kScope, scope(nullptr, 0, 5)}}, {{"07"}})}, State::Unknown},
        {"scope in other case",
         {{kPoints, points("http://crl.firma.pl/a")}},
         {crl({{kScope, scope("HTTP://CRL.firma.PL/a")}}, {{"07"}})},
         State::Revoked},
        {"path in other case",
         {{kPoints, points("http://crl.firma.pl/a")}},
         {crl({{kScope, scope("http://crl.firma.pl/A")}}, {{"07"}})},
         State::Unknown},
        {"scope without point", {}, {crl({{kScope, scope("http://crl.firma.pl/a")}}, {{"07"}})}, State::Unknown},
        {"some reasons", {}, {crl({{kScope, scope(nullptr, kSome)}})}, State::Unknown},
        {"every reason in two", {}, {crl({{kScope, scope(nullptr, kSome)}}), crl({{kScope, scope(nullptr, kRest)}})}},
        {"revoked in the second",
         {},
         {crl({{kScope, scope(nullptr, kSome)}}), crl({{kScope, scope(nullptr, kRest)}}, {{"07", 4}})},
         State::Revoked},
        {"point for some, list for all", {{kPoints, points("http://a.pl", kSome)}}, {crl({})}, State::Unknown},
        {"of tomorrow", {}, {{.thisUpdate = kDay, .nextUpdate = 9 * kDay, .extensions = {}}}, State::Unusable},
        {"hold", {}, {crl({}, {{"07", 6}})}, State::Revoked},
        {"unspecified", {}, {crl({}, {{"07", 0}})}, State::Revoked},
        {"an authority compromised", {}, {crl({}, {{"07", 2}})}, State::Revoked},
        {"attributes compromised", {}, {crl({}, {{"07", 10}})}, State::Revoked},
        {"revoked tomorrow", {}, {crl({}, {{"07", 1, kDay}})}, State::Revoked},
        {"last of many", {}, {crl({}, {{"01"}, {"02"}, {"03"}, {"04"}, {"05"}, {"06"}, {"07"}})}, State::Revoked},
        {"longer serial with the same end", {}, {crl({}, {{"0107"}, {"0700"}})}},
        {"unknown critical extension", {}, {crl({{"1.2.3", "critical,DER:0500"}})}, State::Unusable},
        {"unknown extension", {}, {crl({{"1.2.3", "DER:0500"}}, {{"07"}})}, State::Revoked},
        {"scope that is none", {}, {crl({{kScope, "critical,DER:0500"}})}, State::Unusable},
        {"a newer list without it", {}, {crl({}, {{"07", 6}}), {.number = 2, .thisUpdate = -30, .extensions = {}}}},
        {"point and scope",
         {{kPoints, points("http://a.pl")}},
         {crl({{kScope, scope("http://a.pl")}}, {{"07"}})},
         State::Revoked},
        {"other point",
         {{kPoints, points("http://a.pl")}},
         {crl({{kScope, scope("http://b.pl")}}, {{"07"}})},
         State::Unknown},
        {"point, list without scope", {{kPoints, points("http://a.pl")}}, {crl({}, {{"07"}})}, State::Revoked},
        {"point and list of the same some reasons",
         {{kPoints, points("http://a.pl", kSome)}},
         {crl({{kScope, scope("http://a.pl", kSome)}})},
         State::Unknown},
        {"revoked for some", {}, {crl({{kScope, scope(nullptr, kSome)}}, {{"07", 1}})}, State::Revoked},
        {"users at a point", {{kPoints, points("http://a.pl")}}, {crl({{kScope, scope("http://a.pl", 0, 1)}})}},
        {"authorities at a point",
         {{kPoints, points("http://a.pl")}},
         {crl({{kScope, scope("http://a.pl", 0, 2)}})},
         State::Unknown},
        {"lists for users and for authorities",
         {},
         {crl({{kScope, scope(nullptr, 0, 2)}}), crl({{kScope, scope(nullptr, 0, 1)}})}},
        {"delta of another scope",
         {},
         {crl({}), {.entries = {{"07"}}, .number = 2, .base = 1, .extensions = {{kScope, scope(nullptr, 0, 1)}}}},
         State::Good},
        {"delta on hold",
         {},
         {crl({}), {.entries = {{"07", 6}}, .number = 2, .base = 1, .extensions = {}}},
         State::Revoked},
        {"delta keeps an old list going",
         {},
         {{.thisUpdate = -7200, .nextUpdate = -60, .extensions = {}}, {.number = 2, .base = 1, .extensions = {}}}},
        {"delta not newer than its list",
         {},
         {{.number = 5, .extensions = {}}, {.entries = {{"07"}}, .number = 5, .base = 1, .extensions = {}}}},
        {"delta alone", {}, {{.number = 2, .base = 1, .extensions = {}}}, State::Unusable},
        {"delta revokes",
         {},
         {crl({}), {.entries = {{"07"}}, .number = 2, .base = 1, .extensions = {}}},
         State::Revoked},
        {"delta removes",
         {},
         {crl({}, {{"07", 6}}), {.entries = {{"07", 8}}, .number = 2, .base = 1, .extensions = {}}}},
        {"delta of a later base", {}, {crl({}), {.number = 9, .base = 5, .extensions = {}}}, State::Unusable},
        {"delta out of date",
         {},
         {crl({}), {.number = 2, .base = 1, .nextUpdate = -30, .extensions = {}}},
         State::Unusable},
        {"delta out of date and older than its list",
         {},
         {crl({}), {.entries = {{"07"}}, .base = 0, .thisUpdate = -90, .nextUpdate = -30, .extensions = {}}}},
        {"two points, one list for all reasons",
         {{kPoints, points("http://a.pl", kSome, kRest)}},
         {crl({{kScope, scope("http://a.pl")}})}},
    };
    for (const CrlRow& row : rows) {
        fresh();
        const MadeCert leaf = issue({.subject = {{"CN", "Jan"}}, .serial = "07", .extensions = row.leaf}, root);
        for (const CrlPlan& plan : row.crls)
            EXPECT_EQ(revocation.insert(makeCrl(plan, root)), CrlInsert::Stored) << row.what;
        const CrtStatus found = revocation.status(crv::makeCert(leaf.der), kAsked);
        EXPECT_EQ(found.state, row.state) << row.what << ": " << found.text;
        EXPECT_EQ(path(leaf).good(), row.state == State::Good || row.state == State::Unknown) << row.what;
        EXPECT_EQ(path(leaf, {.revocation = RevocationCheck::Required}).good(), row.state == State::Good) << row.what;
        EXPECT_EQ(found.source.issuer, row.state == State::Unknown ? "" : "CN=Korzeń") << row.what;
    }
}

TEST_F(CrlCasesTest, WhoeverMaySignsACrl) {
    using State = CrtStatus::State;
    const MadeCert ca = issue(caPlan("Urząd"), root);
    const MadeCert leaf = issue({.subject = {{"CN", "Jan"}}, .serial = "07"}, ca);
    const CertPlan signer{.subject = ca.subject, .serial = "02", .extensions = {{"keyUsage", "cRLSign"}}};
    const CertPlan mute{.subject = ca.subject, .serial = "03", .extensions = {{"keyUsage", "digitalSignature"}}};
    const MadeCert otherRoot = test::makeCert(caPlan("Inny korzeń"));
    trust.push_back(crv::makeCert(otherRoot.der));
    const TestKey fresh1 = test::makeKey(), fresh2 = test::makeKey(), fresh3 = test::makeKey();
    const struct {
        const char* what;
        MadeCert signer;
        State state;
    } rows[] = {{"another key of the authority", issue(signer, root, fresh1), State::Revoked},
                {"a self-issued key", issue(signer, ca, fresh2), State::Revoked},
                {"a key that must not", issue(mute, root, test::makeKey()), State::Unusable},
                {"one of that name elsewhere", issue(signer, otherRoot, fresh3), State::Unknown},
                {"a forger", {{}, ca.subject, test::makeKey()}, State::Unusable}};
    for (const auto& row : rows) {
        MadeCert by = row.signer;
        if (by.der.empty()) by.der = ca.der;
        const Bytes crl = makeCrl({.entries = {{"07", 1}}, .extensions = {}}, by);
        EXPECT_EQ(revocation.insert(crl), CrlInsert::Stored) << row.what;
        EXPECT_EQ(revocation.status(crv::makeCert(leaf.der), kAsked).state, row.state) << row.what;
        fresh();
        for (const MadeCert* one : {&ca, &leaf}) EXPECT_TRUE(certificates.db().insert(ByteView(one->der)));
        for (const auto& other : rows)
            EXPECT_TRUE(other.signer.der.empty() || certificates.db().insert(ByteView(other.signer.der)));
    }
}

TEST_F(CrlCasesTest, SeveralListsOfOneIssuer) {
    using State = CrtStatus::State;
    enum By { kCa, kNewKey, kFirst, kSecond, kUser };
    const MadeCert ca = test::makeCert(caPlan("Urząd"), &root, key);
    const auto named = [&](const MadeCert& issuer, const char* serial, const Texts& extensions) {
        return test::makeCert({.subject = ca.subject, .serial = serial, .extensions = extensions}, &issuer,
                              test::makeKey());
    };
    const Texts user{{"subjectKeyIdentifier", "hash"}}, signs{user[0], {"keyUsage", "cRLSign"}};
    const std::vector<MadeCert> by{ca, named(root, "0A", caExtensions()), named(ca, "61", signs),
                                   named(ca, "62", signs), named(ca, "63", user)};
    const MadeCert leaf = test::makeCert({.subject = {{"CN", "Jan"}}, .serial = "07"}, &ca);
    const Texts keyId = CrlPlan().extensions, forUsers{keyId[0], {"2.5.29.28", scope(nullptr, 0, 1)}},
                forSome{keyId[0], {"2.5.29.28", scope(nullptr, 0x06)}};
    const auto older = [](std::vector<CrlEntry> entries = {}) {
        return CrlPlan{.entries = std::move(entries), .thisUpdate = -7200};
    };
    const CrlPlan bare{.thisUpdate = -7200, .extensions = {}};
    const auto newer = [](std::vector<CrlEntry> entries = {}, Texts extensions = CrlPlan().extensions) {
        return CrlPlan{.entries = std::move(entries), .number = 2, .extensions = std::move(extensions)};
    };
    const struct {
        const char* what;
        std::vector<std::pair<By, CrlPlan>> crls;
        State state;
        int code = 0;
    } rows[] = {
        {"the new key revokes", {{kCa, older()}, {kNewKey, newer({{"07", 1}})}}, State::Revoked},
        {"the old key revoked", {{kCa, older({{"07", 1}})}, {kNewKey, newer()}}, State::Revoked},
        {"key identifier in one", {{kCa, bare}, {kCa, newer({{"07"}})}}, State::Revoked},
        {"one for users", {{kCa, older()}, {kCa, newer({{"07"}}, forUsers)}}, State::Revoked},
        {"a hold that ended", {{kCa, older({{"07", 6}})}, {kNewKey, newer()}}, State::Good},
        {"a hold that began", {{kCa, older()}, {kNewKey, newer({{"07", 6}})}}, State::Revoked},
        {"a hold in another scope", {{kCa, older({{"07", 6}})}, {kNewKey, newer({}, forUsers)}}, State::Revoked},
        {"a stolen key", {{kFirst, newer()}, {kSecond, newer({{"61"}}, forSome)}}, State::Unusable, ECRV_PATH_VER_ERR},
        {"keys against each other",
         {{kFirst, newer({{"62"}})}, {kSecond, newer({{"61"}})}},
         State::Unusable,
         ECRV_PATH_VER_ERR},
        {"a user of that name", {{kUser, newer()}}, State::Unusable, ECRV_CRTSIGN},
        {"a delta without key identifier",
         {{kCa, older()}, {kCa, {.number = 2, .base = 1, .extensions = {}}}},
         State::Unusable,
         ECRV_CRL_NOT_FOUND},
    };
    for (const auto& row : rows) {
        auto crls = row.crls;
        for (const char* order : {"", ", the other way round"}) {
            fresh();
            for (const MadeCert& one : by) EXPECT_TRUE(certificates.db().insert(ByteView(one.der)));
            for (const auto& [signer, plan] : crls)
                EXPECT_EQ(revocation.insert(makeCrl(plan, by[signer])), CrlInsert::Stored) << row.what;
            const CrtStatus found = revocation.status(crv::makeCert(leaf.der), kAsked);
            EXPECT_EQ(found.state, row.state) << row.what << order << ": " << found.text;
            EXPECT_EQ(found.code, row.code) << row.what << order;
            std::ranges::reverse(crls);
        }
    }
}

TEST_F(CrlCasesTest, ManyKeysForLists) {
    const MadeCert leaf = issue({.subject = {{"CN", "Jan"}}, .serial = "07"}, root);
    const auto sign = [&](int64_t nextUpdate, std::vector<CrlEntry> entries = {}) {
        const MadeCert signer =
            issue({.subject = root.subject, .extensions = {{"subjectKeyIdentifier", "hash"}, {"keyUsage", "cRLSign"}}},
                  root, test::makeKey());
        const CrlPlan plan{.entries = std::move(entries), .thisUpdate = -kDay, .nextUpdate = nextUpdate};
        EXPECT_EQ(revocation.insert(makeCrl(plan, signer)), CrlInsert::Stored);
    };
    for (int i = 0; i < 8; ++i) sign(-60);
    EXPECT_EQ(revocation.insert(makeCrl({}, root)), CrlInsert::Stored);
    EXPECT_TRUE(path(leaf, {.revocation = RevocationCheck::Required}).good()) << "lists of former keys";
    for (int i = 0; i < 8; ++i) sign(kDay);
    EXPECT_TRUE(path(leaf, {.revocation = RevocationCheck::Required}).good()) << "lists of eight keys";
    sign(kDay, {{"07", 1}});
    EXPECT_EQ(path(leaf).code, ECRV_CRTREV);
}

TEST_F(CrlCasesTest, WhatIsNotAtHandOrNotDoneNeverMakesGood) {
    const MadeCert leaf = issue({.subject = {{"CN", "Jan"}}, .serial = "07"}, root);
    EXPECT_EQ(revocation.insert(makeCrl({}, root)), CrlInsert::Stored);
    EXPECT_EQ(revocation.insert(makeCrl({.entries = {{"07"}}, .number = 2, .base = 1}, root)), CrlInsert::Stored);
    for (size_t signatures = 0; signatures < 5; ++signatures) {
        cache.clear();
        EXPECT_FALSE(path(leaf, {.limits = {.signatures = signatures}}).good()) << signatures;
    }
    fresh();
    const Texts signs{{"subjectKeyIdentifier", "hash"}, {"keyUsage", "cRLSign"}};
    const MadeCert signer = test::makeCert({.subject = root.subject, .extensions = signs}, &root, test::makeKey());
    EXPECT_EQ(revocation.insert(makeCrl({}, signer)), CrlInsert::Stored);
    EXPECT_FALSE(path(leaf).good());
    EXPECT_TRUE(certificates.buildPath(crv::makeCert(leaf.der), {.time = kAsked}, {crv::makeCert(signer.der)}).good());
}

TEST(CrlEntryIndexTest, SerialsAndIssuers) {
    const Bytes issuer{1};
    const struct {
        const char* entry;
        const char* serial;
        bool found;
    } rows[] = {{"3012 020107", "0007", true},     {"3013 02020007", "07", true}, {"3013 02020087", "0087", true},
                {"3013 02020087", "87", false},    {"3013 0202FF87", "87", true}, {"3012 020100", "0000", true},
                {"3013 02020107", "000107", true}, {"3013 02020107", "07", false}};
    for (const auto& row : rows) {
        std::string text = row.entry;
        std::erase(text, ' ');
        const Bytes entries = *fromHex(text + "170D3236303130313030303030305A");
        CrlEntryIndex index;
        EXPECT_FALSE(index.build(entries, false, issuer));
        EXPECT_EQ(index.find(*fromHex(row.serial), issuer).has_value(), row.found) << row.entry << " " << row.serial;
    }
    // certificateIssuer with nothing but a URI.
    const Bytes entries = *fromHex("3024020107170D3236303130313030303030305A3010300E0603551D1D0101FF040430028600");
    EXPECT_STREQ(CrlEntryIndex().build(entries, true, issuer).clause, "5.3.3");
}

}  // namespace
