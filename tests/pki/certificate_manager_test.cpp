#include "pki/certificate_manager.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>

#include "asn/x509/signed_certificate.h"
#include "corvane/crverrors.h"
#include "misc/base64_file.h"
#include "pki/cert_file_reader.h"
#include "pki/certificate_search.h"
#include "pki/revocation_manager.h"
#include "support/cert_maker.h"
#include "support/temp_dir.h"

using namespace crv;
using namespace crv::test;

namespace {

using Extensions = std::vector<std::pair<std::string, std::string>>;

const int64_t kNow = time(nullptr);

CertPlan authority(const char* name, int pathLength = -1) {
    return {.subject = {{"C", "PL", kPrintableString}, {"CN", name}}, .extensions = caExtensions(pathLength)};
}

/// Managers over a memory database of their own, with one trust point.
class ManagersTest : public testing::Test {
  protected:
    ManagersTest() {
        freshDatabase();
        certificates.init(database, cache, [this] { return trust; });
        revocation.init(certificates);
        trust.push_back(makeCert(ByteView(root.der)));
    }
    void freshDatabase() {
        DbConfig config;
        config.setType("w pamieci");
        config.dbName = dir.path().string() + std::to_string(++databases);
        database.init(config);
    }
    MadeCert issue(const CertPlan& plan, const MadeCert& issuer) { return test::makeCert(plan, &issuer); }
    MadeCert leafOf(const MadeCert& issuer, const char* serial = "1") {
        return issue({.subject = {{"CN", "A"}}, .serial = serial}, issuer);
    }
    void store(const MadeCert& made) { ASSERT_TRUE(certificates.db().insert(ByteView(made.der))); }
    PathVerdict path(const MadeCert& made, RevocationCheck check = RevocationCheck::IfKnown, uint32_t usage = 0) {
        return certificates.buildPath(crv::makeCert(made.der), {kNow, usage, check});
    }
    CrtStatus status(const MadeCert& made) { return revocation.status(crv::makeCert(made.der), kNow); }
    CrlInsert insertCrl(const CrlPlan& plan, const MadeCert& issuer) {
        return revocation.insert(makeCrl(plan, issuer));
    }

    const TempDir dir;
    int databases = 0;
    DbManager database;
    CertificateCache cache;
    CertificateManager certificates;
    RevocationManager revocation;
    CertList trust;
    const MadeCert root = test::makeCert(authority("Korzeń"));
    const MadeCert middle = issue(authority("Urząd pośredni"), root);
};

TEST_F(ManagersTest, PathsEndWithTheAnswerThatTheirFaultDeserves) {
    struct Case {
        const char* name;
        int code;
        Extensions ca = caExtensions();
        Extensions leaf{};
        int64_t caUntil = kDay, from = -kDay, until = kDay;
    };
    const auto constrained = [](const char* names) {
        Extensions extensions = caExtensions();
        extensions.emplace_back("nameConstraints", names);
        return extensions;
    };
    const auto named = [](const char* names) { return Extensions{{"subjectAltName", names}}; };
    const Case cases[] = {
        {"good", 0},
        {"signature", ECRV_CRTSIGN},
        {.name = "expired", .code = ECRV_CRTAFTER, .until = -60},
        {.name = "not yet valid", .code = ECRV_CRTBEFORE, .from = 3600},
        {.name = "issuer expired", .code = ECRV_CRTAFTER, .caUntil = -60},
        {"issuer without basicConstraints", ECRV_PATH_VER_ERR, {}},
        {"issuer is no authority", ECRV_PATH_VER_ERR, {{"basicConstraints", "CA:FALSE"}}},
        {"issuer must not sign", ECRV_PATH_VER_ERR, {{"basicConstraints", "CA:TRUE"}, {"keyUsage", "cRLSign"}}},
        {"unknown critical extension", ECRV_PATH_VER_ERR, caExtensions(), {{"1.2.3.4", "critical,DER:0500"}}},
        {"unknown extension", 0, caExtensions(), {{"1.2.3.4", "DER:0500"}}},
        {"name constraint", ECRV_PATH_VER_ERR, constrained("permitted;email:firma.pl"), named("email:a@inna.pl")},
        {"name constraint kept", 0, constrained("critical,permitted;email:.firma.pl,excluded;DNS:zla.firma.pl"),
         named("email:a@x.firma.pl,DNS:dobra.firma.pl")},
        {"excluded name", ECRV_PATH_VER_ERR, constrained("critical,excluded;DNS:firma.pl"), named("DNS:a.firma.pl")},
        {"constraint on a form not understood", ECRV_PATH_VER_ERR, constrained("critical,permitted;RID:1.2.3"),
         named("RID:1.2.3")},
        {"host kept", 0, constrained("excluded;URI:.firma.pl"), named("URI:http://inna.pl:80/a")},
        {"no host to judge", ECRV_PATH_VER_ERR, constrained("excluded;URI:.firma.pl"), named("URI:urn:a:b")},
        {"address for a host", ECRV_PATH_VER_ERR, constrained("excluded;URI:.firma.pl"), named("URI:http://10.0.0.1")},
        {"malformed names", ECRV_PATH_VER_ERR, constrained("excluded;DNS:firma.pl"), {{"2.5.29.17", "DER:0500"}}},
        {"malformed critical extension", ECRV_PATH_VER_ERR, caExtensions(), {{"2.5.29.15", "critical,DER:0500"}}},
    };
    for (const Case& one : cases) {
        // A name of its own for each authority keeps the cases apart.
        const MadeCert ca = issue(
            {.subject = {{"CN", "Wystawca"}, {"O", one.name}}, .notAfter = one.caUntil, .extensions = one.ca}, root);
        store(ca);
        MadeCert leaf = issue({.subject = {{"CN", "Jan"}},
                               .serial = "5",
                               .notBefore = one.from,
                               .notAfter = one.until,
                               .extensions = one.leaf},
                              ca);
        if (one.code == ECRV_CRTSIGN) leaf.der.back() ^= 1;
        const PathVerdict found = path(leaf);
        EXPECT_EQ(found.code, one.code) << one.name << ": " << found.reason;
        EXPECT_EQ(found.certs.size(), one.code == ECRV_CRTSIGN ? 2U : 3U) << one.name;
    }
}

TEST_F(ManagersTest, ManyVerdictsAreThoseOfEachAlone) {
    store(middle);
    const MadeCert other = issue(authority("Urząd pośredni"), root), stranger = test::makeCert(authority("Obcy"));
    ASSERT_EQ(insertCrl({.entries = {{"7", 1}, {"300", 1}}}, middle), CrlInsert::Stored);
    CertList many;
    for (int i = 0; i < 700; ++i) {
        const MadeCert& issuer = i % 50 == 3 ? stranger : i % 50 == 4 ? other : middle;
        MadeCert leaf = leafOf(issuer, std::to_string(i).c_str());
        if (i % 50 == 5) leaf.der.back() ^= 1;
        many.push_back(crv::makeCert(leaf.der));
    }
    const PathOptions options{kNow};
    std::vector<int> alone, together;
    for (const CertPtr& one : many) {
        cache.clear();
        alone.push_back(certificates.buildPath(one, options).code);
    }
    cache.clear();
    certificates.buildPaths(many, options, {}, [&](size_t index, const PathVerdict& verdict) {
        EXPECT_EQ(index, together.size());
        together.push_back(verdict.code);
        return true;
    });
    EXPECT_EQ(together, alone);
    EXPECT_EQ(std::ranges::count(together, ECRV_CRTREV), 2);
    EXPECT_EQ(std::ranges::count(together, ECRV_CRTSIGN), 28);
    size_t heard = 0;
    certificates.buildPaths(many, options, {}, [&](size_t, const PathVerdict&) { return ++heard < 300; });
    EXPECT_EQ(heard, 300U);
}

TEST_F(ManagersTest, PathLengthNameAndIssuerAreChecked) {
    const MadeCert shallow = issue(authority("Płytki", 0), root);
    const MadeCert below = issue(authority("Zbyt głęboki"), shallow);
    const MadeCert selfIssued = issue(authority("Płytki", 0), shallow);
    for (const MadeCert* one : {&shallow, &below}) store(*one);
    EXPECT_EQ(path(leafOf(below)).code, ECRV_PATH_VER_ERR);
    EXPECT_EQ(path(leafOf(shallow)).code, 0);
    store(selfIssued);
    EXPECT_EQ(path(leafOf(selfIssued)).code, 0) << "a new key does not count";
    const MadeCert old = test::makeCert({.subject = shallow.subject, .version1 = true}, &shallow);
    store(old);
    EXPECT_EQ(path(leafOf(old)).code, ECRV_PATH_VER_ERR) << "only a trust point may be an authority without saying so";
    MadeCert renamed = middle;
    renamed.subject = {{"CN", "Ktoś inny"}};
    EXPECT_EQ(path(leafOf(renamed)).code, ECRV_CRTNOTFOUND);
    MadeCert stranger = test::makeCert(authority("Urząd pośredni"));
    store(stranger);
    EXPECT_EQ(path(leafOf(stranger)).code, ECRV_CRTNOTFOUND) << "no trust point";
    MadeCert forged = middle;
    forged.key = test::makeKey();
    store(middle);
    EXPECT_EQ(path(leafOf(forged)).code, ECRV_CRTSIGN) << "another key of that name";
    EXPECT_EQ(path(root).code, 0) << "a trust point is its own path";
    const MadeCert signing =
        issue({.subject = {{"CN", "A"}}, .extensions = {{"keyUsage", "digitalSignature"}}}, middle);
    EXPECT_EQ(path(signing, RevocationCheck::None, 1U << KeyUsage::kDigitalSignature).code, 0);
    EXPECT_EQ(path(signing, RevocationCheck::None, 1U << KeyUsage::kKeyEncipherment).code, ECRV_PATH_VER_ERR);
    trust.clear();
    EXPECT_EQ(path(signing).code, ECRV_CRTNOTFOUND);
}

TEST_F(ManagersTest, CrossCertificatesAreTriedUntilOneIsGood) {
    // The same authority under an expired and a good certificate, and a circle of two others.
    CertPlan old = authority("Krzyżowy");
    old.notAfter = -60;
    const TestKey key = test::makeKey();
    const MadeCert expired = test::makeCert(old, &root, key);
    const MadeCert good = test::makeCert(authority("Krzyżowy"), &root, key);
    const MadeCert circle = test::makeCert(authority("Koło"), &good);
    const MadeCert back = test::makeCert(authority("Krzyżowy"), &circle, key);
    for (const MadeCert* one : {&expired, &back, &circle, &good}) store(*one);
    EXPECT_EQ(path(leafOf(circle)).code, 0);
    // A web that leads nowhere has more paths than anybody can walk.
    MadeCert web = test::makeCert(authority("Sieć"), nullptr, key);
    for (int i = 0; i < 14; ++i) store(web = test::makeCert(authority("Sieć"), &web, key));
    EXPECT_EQ(path(leafOf(web)).code, ECRV_CRTNOTFOUND);
}

TEST_F(ManagersTest, StatusComesFromCurrentVerifiedCrlsAndTheirDeltas) {
    store(middle);
    const MadeCert good = leafOf(middle, "10"), revoked = leafOf(middle, "11"), held = leafOf(middle, "12"),
                   later = leafOf(middle, "13");
    EXPECT_EQ(status(good).state, CrtStatus::State::Unknown);
    EXPECT_EQ(status(good).code, ECRV_CRL_NOT_FOUND);
    EXPECT_EQ(path(good, RevocationCheck::Required).code, ECRV_CRL_NOT_FOUND);
    EXPECT_EQ(path(good).code, 0);
    const CrlPlan first{.entries = {{"11", 1, -7200}, {"12", 6}}};
    EXPECT_EQ(insertCrl(first, middle), CrlInsert::Stored);
    EXPECT_EQ(status(good).state, CrtStatus::State::Good);
    EXPECT_EQ(path(good, RevocationCheck::Required).code, ECRV_CRL_NOT_FOUND) << "nothing is known of the authority";
    EXPECT_EQ(insertCrl({}, root), CrlInsert::Stored);
    EXPECT_EQ(path(good, RevocationCheck::Required).code, 0);
    const CrtStatus found = status(revoked);
    EXPECT_EQ(found.state, CrtStatus::State::Revoked);
    EXPECT_EQ(found.reason, CrlReason::KeyCompromise);
    EXPECT_NEAR(static_cast<double>(found.revokedAt), static_cast<double>(kNow - 7200), 60);
    EXPECT_EQ(path(revoked).code, ECRV_CRTREV);
    EXPECT_EQ(path(held).code, ECRV_CRTHANG);
    // The delta lifts the hold and revokes another one.
    EXPECT_EQ(insertCrl({.entries = {{"12", 8}, {"13", 4}}, .number = 2, .base = 1}, middle), CrlInsert::Stored);
    EXPECT_EQ(status(held).state, CrtStatus::State::Good);
    EXPECT_EQ(status(later).reason, CrlReason::Superseded);
    AuthorityCrls last;
    ASSERT_TRUE(revocation.lastCrls(*crv::makeCert(middle.der), last));
    ASSERT_TRUE(last.complete && last.delta);
    EXPECT_EQ(last.delta->crlNumber->decimal(), "2");
    // A newer complete CRL makes the delta meaningless.
    EXPECT_EQ(insertCrl({.number = 3}, middle), CrlInsert::Stored);
    EXPECT_EQ(status(later).state, CrtStatus::State::Good);
}

TEST_F(ManagersTest, CrlsThatMustNotBeBelievedMakeTheStatusUnusable) {
    store(middle);
    const MadeCert leaf = leafOf(middle, "11");
    MadeCert forger = middle;
    forger.key = test::makeKey();
    const auto with = [](const char* name, const char* value) {
        return Extensions{{"authorityKeyIdentifier", "keyid"}, {name, value}};
    };
    struct Row {
        const char* what;
        CrlPlan plan;
        int code;
    };
    const Row rows[] = {
        {"stale", {.number = 1, .thisUpdate = -7200, .nextUpdate = -60}, ECRV_CRL_EXPIRED},
        {"from the future", {.number = 2, .thisUpdate = 3600}, ECRV_CRL_EXPIRED},
        {"forged", {.number = 3, .thisUpdate = -30, .extensions = {}}, ECRV_CRTSIGN},
        {"unknown critical extension",
         {.number = 4, .thisUpdate = -20, .extensions = with("1.2.3.4", "critical,DER:0500")},
         ECRV_INV_CRL_FMT},
        {"for authorities only",
         {.number = 5, .thisUpdate = -10, .extensions = with("issuingDistributionPoint", "critical,onlyCA:TRUE")},
         0},
        {"malformed scope", {.number = 6, .extensions = with("2.5.29.28", "critical,DER:0500")}, ECRV_INV_CRL_FMT},
        {"malformed base", {.number = 7, .extensions = with("2.5.29.27", "critical,DER:0500")}, ECRV_INV_CRL_FMT},
        {"delta of another scope that would keep the stale one going",
         {.number = 8,
          .base = 1,
          .extensions = with("issuingDistributionPoint", "critical,onlysomereasons:keyCompromise")},
         0},
    };
    for (Row row : rows) {
        if (row.plan.number != 1 && row.plan.number != 8) row.plan.entries = {{"11"}};
        const bool forged = row.code == ECRV_CRTSIGN;
        const Bytes crl = makeCrl(row.plan, forged ? forger : middle);
        EXPECT_EQ(revocation.verify(crl, kNow), row.code) << row.what;
        // The delta meets the stale one, else each stands alone.
        freshDatabase();
        store(middle);
        const Bytes stale = makeCrl(rows[0].plan, middle);
        EXPECT_EQ(revocation.insert(row.plan.number == 8 ? stale : crl), CrlInsert::Stored);
        EXPECT_EQ(revocation.insert(crl), CrlInsert::Stored) << row.what << ": the user may want it all the same";
        const bool about = row.plan.number != 5;
        EXPECT_EQ(status(leaf).state, about ? CrtStatus::State::Unusable : CrtStatus::State::Unknown) << row.what;
        EXPECT_EQ(path(leaf).good(), !about) << row.what << " passes as unknown";
    }
    freshDatabase();
    store(middle);
    const MadeCert otherRoot = test::makeCert(authority("Inny korzeń"));
    trust.push_back(makeCert(ByteView(otherRoot.der)));
    const MadeCert twin = issue(authority("Urząd pośredni"), otherRoot);
    store(twin);
    EXPECT_EQ(insertCrl({.number = 9, .extensions = {}}, twin), CrlInsert::Stored);
    EXPECT_EQ(status(leaf).state, CrtStatus::State::Unknown) << "an authority of that name under another trust point";
}

TEST_F(ManagersTest, CrlInsertionAnswersWithItsCodes) {
    EXPECT_EQ(revocation.insert(Bytes{0x30, 0x00}), CrlInsert::Malformed);
    EXPECT_EQ(insertCrl({.number = 5}, root), CrlInsert::Stored);
    EXPECT_EQ(insertCrl({.number = 4}, root), CrlInsert::Older);
    const Bytes six = makeCrl({.number = 6}, root);
    EXPECT_EQ(revocation.insert(six), CrlInsert::Stored);
    EXPECT_EQ(revocation.insert(six), CrlInsert::Stored) << "equal content";
    EXPECT_EQ(insertCrl({.entries = {{"1"}}, .number = 6, .thisUpdate = -61}, root), CrlInsert::Older);
    const MadeCert forger = test::makeCert(authority("Korzeń"));
    EXPECT_EQ(insertCrl({.number = 65535, .thisUpdate = -1}, forger), CrlInsert::Stored) << "as the user wished";
    AuthorityCrls last;
    const CertPtr issuer = makeCert(ByteView(root.der));
    EXPECT_TRUE(revocation.lastCrls(*issuer, last));
    EXPECT_EQ(last.complete->crlNumber->decimal(), "6");
    EXPECT_EQ(insertCrl({.number = 7, .thisUpdate = -40}, root), CrlInsert::Stored) << "a forged list outranks nothing";
    revocation.setDeviceUpdate([](ByteView) { return 0x1234U; });
    EXPECT_EQ(insertCrl({.number = 8}, root), CrlInsert::DeviceFailed);
    EXPECT_EQ(revocation.deviceError(), 0x1234U);
    DbConfig none;
    none.setType("brak");
    database.init(none);
    EXPECT_EQ(insertCrl({.number = 9}, root), CrlInsert::Failed);
}

TEST_F(ManagersTest, CertificatesAreReadFromFilesInAnyUsualForm) {
    const auto text = [](const std::string& s) { return toBytes(asBytes(s)); };
    const auto plus = [](Bytes octets, const char* more) {
        octets.insert(octets.end(), more, more + std::strlen(more));
        return octets;
    };
    std::vector<Bytes> ders{root.der, middle.der, leafOf(middle).der};
    Bytes joined;
    std::string blocks = "01 Tekst przed\n";  // which looks like a SEQUENCE
    for (const Bytes& der : ders) {
        joined.insert(joined.end(), der.begin(), der.end());
        blocks += toPem("CERTIFICATE", der) + "między\n" + toPem("EC PARAMETERS", Bytes{5, 0});
    }
    const Bytes cut(joined.begin(), joined.end() - 3), bundle = makeBundle(ders);
    // what, content, certificates in it, whether the reader stopped before its end
    using Row = std::tuple<const char*, Bytes, size_t, bool>;
    for (const auto& [what, content, certs, stopped] :
         {Row{"one", root.der, 1, false}, Row{"concatenated", joined, 3, false},
          Row{"line end behind", plus(joined, "\n"), 3, false}, Row{"PEM", text(blocks), 3, false},
          Row{"bundle", bundle, 3, false}, Row{"PEM bundle", text(toPem("PKCS7", bundle)), 3, false},
          Row{"Base64", text(toBase64(root.der)), 1, false}, Row{"empty", {}, 0, false},
          Row{"rubbish behind", plus(joined, "x"), 3, true}, Row{"cut off", cut, 2, true},
          Row{"rubbish", text("to nie certyfikat"), 0, true},
          Row{"broken PEM", text(blocks + "-----BEGIN CERTIFICATE-----\n!\n"), 3, true}}) {
        CertFileReader reader(content);
        size_t count = 0;
        for (ByteView der; reader.next(der); ++count) EXPECT_NE(crv::makeCert(der), nullptr) << what;
        EXPECT_EQ(count, certs) << what;
        EXPECT_EQ(reader.stoppedEarly(), stopped) << what;
    }
    // Of a long file a piece at a time is read; certificates lie across the ends of pieces.
    Bytes many;
    size_t fit = 0;
    for (; many.size() < 5'000'000; ++fit) many.insert(many.end(), root.der.begin(), root.der.end());
    for (const auto& [what, content, certs, stopped] :
         {Row{"long", many, fit, false}, Row{"long, line end", plus(many, "\n"), fit, false},
          Row{"long, rubbish behind", plus(many, "x"), fit, true},
          Row{"long, certificate behind a line end", plus(many, "\n0\3"), fit, true},
          Row{"long, cut off", {many.begin(), many.end() - 3}, fit - 1, true}}) {
        test::writeFile(dir.file("long"), std::string(asText(content)));
        CertFileReader reader = CertFileReader::open(dir.file("long"));
        size_t count = 0;
        for (ByteView der; reader.next(der) && std::ranges::equal(der, root.der);) ++count;
        EXPECT_EQ(count, certs) << what;
        EXPECT_EQ(reader.stoppedEarly(), stopped) << what;
    }
    struct : FileOps {
        int left = 1;
        ssize_t read(int fd, void* buffer, size_t size) override {
            if (left-- > 0) return FileOps::read(fd, buffer, size);
            errno = EIO;
            return -1;
        }
    } broken;
    {
        const ScopedFileOps use(broken);
        ImportProgress done;
        EXPECT_EQ(certificates.importCerts(dir.file("long"), {}, done), TransferEnd::NotRead);
        EXPECT_GT(done.handled(), 1000U) << "what came before the failure";
        broken.left = 1;
        EXPECT_THROW(static_cast<void>(certificates.readCerts(dir.file("long"))), StoreError);
    }
    const Bytes crl = makeCrl({}, root);
    for (const Bytes& form : {crl, plus(crl, "\r\n"), text(toPem("X509 CRL", crl)), text(toBase64(crl)),
                              text(blocks + toPem("X509 CRL", crl))})
        EXPECT_EQ(crlFromFile(form), crl);
    EXPECT_FALSE(crlFromFile(text(blocks)));
}

TEST_F(ManagersTest, ImportAndExportGoThroughFiles) {
    const std::string in = dir.file("in"), out = dir.file("out");
    std::string content;
    for (int i = 10; i < 30; ++i) content += asText(leafOf(root, std::to_string(i).c_str()).der);
    test::writeFile(in, content + "ogon");
    ImportProgress done;
    EXPECT_EQ(certificates.importCerts(in, nullptr, done), TransferEnd::BadInput);
    EXPECT_EQ(done.stored, 20U);
    size_t count = 0;
    EXPECT_EQ(certificates.exportCerts(out, count), TransferEnd::Done);
    EXPECT_EQ(count, 20U);
    EXPECT_EQ(test::readFile(out), content);
    EXPECT_EQ(certificates.importCerts(
                  out, [](const ImportProgress&) { return false; }, done),
              TransferEnd::Stopped);
    EXPECT_EQ(done.present, 20U);
    EXPECT_EQ(certificates.importCerts(dir.file("nie ma"), nullptr, done), TransferEnd::NotOpened);
    // A compaction in the middle moves no certificate past the export.
    DbConfig files;
    files.db = dir.file("base");
    DbManager other;
    other.init(files);
    database.init(files);
    ASSERT_TRUE(database.createDb());
    database.setSync(false);
    for (int i = 0; i < 300; ++i) store(issue({.subject = {{"CN", "Jan"}}, .notAfter = i < 100 ? -60 : kDay}, root));
    CrtStore::Removed removed;
    const auto compact = [&](size_t) { return CrtDb(other).removeCertsOverTime(kNow, removed); };
    EXPECT_EQ(certificates.exportCerts(out, count, compact), TransferEnd::Done);
    EXPECT_EQ(removed.removed, 100U);
    EXPECT_EQ(count, 300U);
    EXPECT_EQ(certificates.exportCerts(dir.file("nie/ma"), count), TransferEnd::NotOpened);
}

TEST_F(ManagersTest, TheWorkerFindsWhatTheUserKnows) {
    const MadeCert anna = issue({.subject = {{"CN", "Anna ŹDŹBŁO"}, {"O", "Firma"}},
                                 .serial = "0A1B",
                                 .notAfter = 5 * kDay,
                                 .extensions = {{"subjectAltName", "email:Anna@Firma.pl"}}},
                                middle);
    store(anna);
    for (int i = 0; i < 300; ++i) store(leafOf(root));
    using Row = std::pair<CertificateQuery, size_t>;
    for (const auto& [query, found] :
         {Row{{}, 301}, Row{{.subject = "źdźbło"}, 1}, Row{{.subject = "firma", .issuer = "POŚREDNI"}, 1},
          Row{{.issuer = "korze"}, 300}, Row{{.email = "anna@"}, 1}, Row{{.serial = "a1b"}, 1},
          Row{{.serial = "2587"}, 1}, Row{{.serial = "0a:1b"}, 1}, Row{{.serial = "a1"}, 0},
          Row{{.expiresWithinDays = 6, .time = kNow}, 1}, Row{{.expiresWithinDays = 4, .time = kNow}, 0},
          Row{{.expiresWithinDays = 6, .time = kNow + 6 * kDay}, 0}}) {
        std::vector<int64_t> ids;
        EXPECT_EQ(searchCertificates(database, query, nullptr, ids), SearchEnd::Done);
        EXPECT_EQ(ids.size(), found) << query.subject << query.issuer << query.email << query.serial;
    }
}

TEST_F(ManagersTest, TheSearchCanBeStoppedAndCountsAsItGoes) {
    const MadeCert made = issue({.subject = {{"CN", "Jan"}}}, root);
    CrtRecord record;
    record.der = made.der;
    record.keyId = {1};
    // One certificate under many numbers keeps the worker busy for a while.
    constexpr uint32_t kCopies = 40000;
    for (uint32_t i = 0; i < kCopies; ++i) {
        Bytes copy = made.der;
        copy[copy.size() - 1 - i % 8] ^= static_cast<uint8_t>(1 + i / 8 % 255);
        record.der = copy;
        record.serNumHash[0] = static_cast<uint8_t>(i);
        record.serNumHash[1] = static_cast<uint8_t>(i >> 8);
        ASSERT_TRUE(database.insertCert(record));
    }
    std::vector<int64_t> ids;
    size_t told = 0;
    const auto stopAtOnce = [&](size_t found, size_t looked) {
        EXPECT_LE(found, looked);
        told = found;
        return false;
    };
    EXPECT_EQ(searchCertificates(database, {}, stopAtOnce, ids), SearchEnd::Stopped);
    EXPECT_GE(ids.size(), told);
    EXPECT_LT(ids.size(), kCopies);
    EXPECT_THROW(static_cast<void>(searchCertificates(
                     database, {}, [](size_t, size_t) -> bool { throw std::runtime_error("ekran"); }, ids)),
                 std::runtime_error);
    database.deinit();
    EXPECT_EQ(searchCertificates(database, {}, nullptr, ids), SearchEnd::Failed);
}

}  // namespace
