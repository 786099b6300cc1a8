#include "src/certificate_manager.h"

#include <gtest/gtest.h>

#include <functional>

#include "asn/x509/signed_certificate.h"
#include "corvane/crverrors.h"
#include "misc/base64_file.h"
#include "src/cert_file_reader.h"
#include "src/certificate_search.h"
#include "src/revocation_manager.h"
#include "support/cert_maker.h"
#include "support/temp_dir.h"

using namespace crv;
using namespace crv::test;

namespace {

using Extensions = std::vector<std::pair<std::string, std::string>>;

const int64_t now = time(nullptr);

CertSpec authority(const char* name, int pathLength = -1) {
    return {.subject = {{"C", "PL", printableString}, {"CN", name}}, .extensions = caExtensions(pathLength)};
}

/// Managers over a memory database of their own, with one trust point.
class ManagersTest : public testing::Test {
  protected:
    ManagersTest() {
        DbConfig config;
        config.setType("w pamieci");
        config.dbName = dir.path().string();
        database.init(config);
        certificates.init(database, cache, [this] { return trust; });
        revocation.init(certificates);
        trust.push_back(makeCert(ByteView(root.der)));
    }
    MadeCert issue(const CertSpec& spec, const MadeCert& issuer) { return test::makeCert(spec, &issuer); }
    void store(const MadeCert& made) { ASSERT_TRUE(certificates.db().insert(ByteView(made.der))); }
    CertPath path(const MadeCert& made, RevocationCheck check = RevocationCheck::ifKnown, uint32_t usage = 0) {
        return certificates.buildPath(crv::makeCert(made.der), {now, usage, check});
    }
    CrtStatus status(const MadeCert& made) { return revocation.status(crv::makeCert(made.der), now); }
    int insertCrl(const CrlSpec& spec, const MadeCert& issuer) { return revocation.insert(makeCrl(spec, issuer)); }

    const TempDir dir;
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
        CertSpec ca = authority("Wystawca");
        CertSpec leaf{.subject = {{"CN", "Jan"}}, .serial = "5"};
        std::function<void(MadeCert& leaf)> change = [](MadeCert&) {};
    };
    std::vector<Case> cases(14, Case{"good", 0});
    const auto set = [&](size_t i, const char* name, int code) -> Case& {
        cases[i].name = name;
        cases[i].code = code;
        return cases[i];
    };
    set(1, "expired", ECRV_CRTAFTER).leaf.notAfter = -60;
    set(2, "not yet valid", ECRV_CRTBEFORE).leaf.notBefore = 3600;
    set(3, "issuer expired", ECRV_CRTAFTER).ca.notAfter = -60;
    set(4, "issuer is no authority", ECRV_PATH_VER_ERR).ca.extensions = {{"basicConstraints", "CA:FALSE"}};
    set(5, "issuer without basicConstraints", ECRV_PATH_VER_ERR).ca.extensions = {};
    set(6, "issuer must not sign certificates", ECRV_PATH_VER_ERR).ca.extensions = {
        {"basicConstraints", "critical,CA:TRUE"}, {"keyUsage", "critical,cRLSign"}};
    set(7, "signature", ECRV_CRTSIGN).change = [](MadeCert& leaf) { leaf.der.back() ^= 1; };
    set(8, "unknown critical extension", ECRV_PATH_VER_ERR).leaf.extensions = {{"1.2.3.4", "critical,DER:0500"}};
    set(9, "unknown extension", 0).leaf.extensions = {{"1.2.3.4", "DER:0500"}};
    set(10, "name constraint", ECRV_PATH_VER_ERR)
        .ca.extensions.emplace_back("nameConstraints", "critical,permitted;email:firma.pl");
    cases[10].leaf.extensions = {{"subjectAltName", "email:a@inna.pl"}};
    set(11, "name constraint kept", 0)
        .ca.extensions.emplace_back("nameConstraints", "critical,permitted;email:.firma.pl,excluded;DNS:zla.firma.pl");
    cases[11].leaf.extensions = {{"subjectAltName", "email:a@x.firma.pl,DNS:dobra.firma.pl"}};
    set(12, "excluded name", ECRV_PATH_VER_ERR)
        .ca.extensions.emplace_back("nameConstraints", "critical,excluded;DNS:firma.pl");
    cases[12].leaf.extensions = {{"subjectAltName", "DNS:a.firma.pl"}};
    set(13, "constraint on a form not understood", ECRV_PATH_VER_ERR)
        .ca.extensions.emplace_back("nameConstraints", "critical,permitted;IP:10.0.0.0/255.0.0.0");
    cases[13].leaf.extensions = {{"subjectAltName", "IP:10.1.1.1"}};
    for (Case& one : cases) {
        // A name of its own for each authority keeps the cases apart.
        one.ca.subject.push_back({"O", one.name});
        const MadeCert ca = issue(one.ca, root);
        store(ca);
        MadeCert leaf = issue(one.leaf, ca);
        one.change(leaf);
        const CertPath found = path(leaf);
        EXPECT_EQ(found.code, one.code) << one.name << ": " << found.reason;
        EXPECT_EQ(found.certs.size(), one.code == ECRV_CRTSIGN ? 2U : 3U) << one.name;
    }
}

TEST_F(ManagersTest, PathLengthNameAndIssuerAreChecked) {
    const MadeCert shallow = issue(authority("Płytki", 0), root);
    const MadeCert below = issue(authority("Zbyt głęboki"), shallow);
    const MadeCert selfIssued = issue(authority("Płytki", 0), shallow);
    for (const MadeCert* one : {&shallow, &below}) store(*one);
    EXPECT_EQ(path(issue({.subject = {{"CN", "A"}}}, below)).code, ECRV_PATH_VER_ERR);
    EXPECT_EQ(path(issue({.subject = {{"CN", "A"}}}, shallow)).code, 0);
    store(selfIssued);
    EXPECT_EQ(path(issue({.subject = {{"CN", "A"}}}, selfIssued)).code, 0) << "a new key does not count";
    MadeCert renamed = middle;
    renamed.subject = {{"CN", "Ktoś inny"}};
    EXPECT_EQ(path(issue({.subject = {{"CN", "A"}}}, renamed)).code, ECRV_CRTNOTFOUND);
    MadeCert stranger = test::makeCert(authority("Urząd pośredni"));
    store(stranger);
    EXPECT_EQ(path(issue({.subject = {{"CN", "A"}}}, stranger)).code, ECRV_CRTNOTFOUND) << "no trust point";
    MadeCert forged = middle;
    forged.key = test::makeKey();
    store(middle);
    EXPECT_EQ(path(issue({.subject = {{"CN", "A"}}}, forged)).code, ECRV_CRTSIGN) << "another key of that name";
    EXPECT_EQ(path(root).code, 0) << "a trust point is its own path";
    const MadeCert signing =
        issue({.subject = {{"CN", "A"}}, .extensions = {{"keyUsage", "digitalSignature"}}}, middle);
    EXPECT_EQ(path(signing, RevocationCheck::none, 1U << KeyUsage::digitalSignature).code, 0);
    EXPECT_EQ(path(signing, RevocationCheck::none, 1U << KeyUsage::keyEncipherment).code, ECRV_PATH_VER_ERR);
    trust.clear();
    EXPECT_EQ(path(signing).code, ECRV_CRTNOTFOUND);
}

TEST_F(ManagersTest, CrossCertificatesAreTriedUntilOneIsGood) {
    // The same authority under an expired and a good certificate, and a circle of two others.
    CertSpec old = authority("Krzyżowy");
    old.notAfter = -60;
    const TestKey key = test::makeKey();
    const MadeCert expired = test::makeCert(old, &root, key);
    const MadeCert good = test::makeCert(authority("Krzyżowy"), &root, key);
    const MadeCert circle = test::makeCert(authority("Koło"), &good);
    const MadeCert back = test::makeCert(authority("Krzyżowy"), &circle, key);
    for (const MadeCert* one : {&expired, &back, &circle, &good}) store(*one);
    EXPECT_EQ(path(issue({.subject = {{"CN", "A"}}}, circle)).code, 0);
}

TEST_F(ManagersTest, StatusComesFromCurrentVerifiedCrlsAndTheirDeltas) {
    store(middle);
    const auto leaf = [&](const char* serial) { return issue({.subject = {{"CN", "A"}}, .serial = serial}, middle); };
    const MadeCert good = leaf("10"), revoked = leaf("11"), held = leaf("12"), later = leaf("13");
    EXPECT_EQ(status(good).state, CrtStatus::State::unknown);
    EXPECT_EQ(status(good).code, ECRV_CRL_NOT_FOUND);
    EXPECT_EQ(path(good, RevocationCheck::required).code, ECRV_CRL_NOT_FOUND);
    EXPECT_EQ(path(good).code, 0);
    const CrlSpec first{.entries = {{"11", 1, -7200}, {"12", 6}}};
    EXPECT_EQ(insertCrl(first, middle), kCrlInserted);
    EXPECT_EQ(status(good).state, CrtStatus::State::good);
    EXPECT_EQ(path(good, RevocationCheck::required).code, ECRV_CRL_NOT_FOUND) << "nothing is known of the authority";
    EXPECT_EQ(insertCrl({}, root), kCrlInserted);
    EXPECT_EQ(path(good, RevocationCheck::required).code, 0);
    const CrtStatus found = status(revoked);
    EXPECT_EQ(found.state, CrtStatus::State::revoked);
    EXPECT_EQ(found.reason, CrlReason::keyCompromise);
    EXPECT_NEAR(static_cast<double>(found.revokedAt), static_cast<double>(now - 7200), 60);
    EXPECT_EQ(path(revoked).code, ECRV_CRTREV);
    EXPECT_EQ(path(held).code, ECRV_CRTHANG);
    // The delta lifts the hold and revokes another one.
    EXPECT_EQ(insertCrl({.entries = {{"12", 8}, {"13", 4}}, .number = 2, .base = 1}, middle), kCrlInserted);
    EXPECT_EQ(status(held).state, CrtStatus::State::good);
    EXPECT_EQ(status(later).reason, CrlReason::superseded);
    AuthorityCrls last;
    ASSERT_TRUE(revocation.lastCrls(*crv::makeCert(middle.der), last));
    ASSERT_TRUE(last.complete && last.delta);
    EXPECT_EQ(last.delta->crlNumber->decimal(), "2");
    // A newer complete CRL makes the delta meaningless.
    EXPECT_EQ(insertCrl({.number = 3}, middle), kCrlInserted);
    EXPECT_EQ(status(later).state, CrtStatus::State::good);
}

TEST_F(ManagersTest, CrlsThatMustNotBeBelievedLeaveTheStatusUnknown) {
    store(middle);
    const MadeCert leaf = issue({.subject = {{"CN", "A"}}, .serial = "11"}, middle);
    MadeCert forger = middle;
    forger.key = test::makeKey();
    struct Row {
        const char* what;
        CrlSpec spec;
        const MadeCert& issuer;
        int code;
    };
    const CrlEntry entry{"11"};
    for (const Row& row :
         {Row{"stale", {.entries = {entry}, .thisUpdate = -7200, .nextUpdate = -60}, middle, ECRV_CRL_EXPIRED},
          Row{"from the future", {.entries = {entry}, .number = 2, .thisUpdate = 3600}, middle, ECRV_CRL_EXPIRED},
          Row{"forged", {.entries = {entry}, .number = 3, .thisUpdate = -30, .extensions = {}}, forger, ECRV_CRTSIGN},
          Row{"unknown critical extension",
              {.entries = {entry},
              .number = 4,
              .thisUpdate = -20,
              .extensions = {{"authorityKeyIdentifier", "keyid"}, {"1.2.3.4", "critical,DER:0500"}}},
              middle,
              ECRV_INV_CRL_FMT},
          Row{"for authorities only",
              {.entries = {entry},
              .number = 5,
              .thisUpdate = -10,
              .extensions = {{"authorityKeyIdentifier", "keyid"},
                             {"issuingDistributionPoint", "critical,onlyCA:TRUE"}}},
              middle,
              0}}) {
        const Bytes crl = makeCrl(row.spec, row.issuer);
        EXPECT_EQ(revocation.verify(crl, now), row.code) << row.what;
        EXPECT_EQ(revocation.insert(crl), kCrlInserted) << row.what << ": the user may want it all the same";
        EXPECT_EQ(status(leaf).state, CrtStatus::State::unknown) << row.what;
    }
}

TEST_F(ManagersTest, CrlInsertionAnswersWithItsCodes) {
    EXPECT_EQ(revocation.insert(Bytes{0x30, 0x00}), kCrlFormat);
    EXPECT_EQ(insertCrl({.number = 5}, root), kCrlInserted);
    EXPECT_EQ(insertCrl({.number = 4}, root), kCrlOlder);
    const Bytes six = makeCrl({.number = 6}, root);
    EXPECT_EQ(revocation.insert(six), kCrlInserted);
    EXPECT_EQ(revocation.insert(six), kCrlInserted) << "equal content";
    EXPECT_EQ(insertCrl({.entries = {{"1"}}, .number = 6, .thisUpdate = -61}, root), kCrlOlder);
    revocation.setDeviceUpdate([](ByteView) { return 0x1234U; });
    EXPECT_EQ(insertCrl({.number = 7}, root), kCrlDevice);
    EXPECT_EQ(revocation.deviceError(), 0x1234U);
    DbConfig none;
    none.setType("brak");
    database.init(none);
    EXPECT_EQ(insertCrl({.number = 8}, root), kCrlDatabase);
}

TEST_F(ManagersTest, CertificatesAreReadFromFilesInAnyUsualForm) {
    std::vector<Bytes> ders{root.der, middle.der, issue({.subject = {{"CN", "A"}}}, middle).der};
    Bytes joined;
    std::string blocks = "Tekst przed\n";
    for (const Bytes& der : ders) {
        joined.insert(joined.end(), der.begin(), der.end());
        blocks += toPem("CERTIFICATE", der) + "między\n" + toPem("EC PARAMETERS", Bytes{5, 0});
    }
    Bytes broken = joined, cut = joined;
    broken.push_back('x');
    cut.resize(cut.size() - 3);
    Bytes spaced = joined;
    spaced.push_back('\n');
    const auto text = [](const std::string& s) { return toBytes(asBytes(s)); };
    struct Row {
        const char* what;
        Bytes content;
        size_t certificates;
        bool stopped;
    };
    const Bytes bundle = makeBundle(ders);
    for (const Row& row :
         {Row{"one", root.der, 1, false}, Row{"concatenated", joined, 3, false},
          Row{"line end behind", spaced, 3, false}, Row{"PEM", text(blocks), 3, false}, Row{"bundle", bundle, 3, false},
          Row{"PEM bundle", text(toPem("PKCS7", bundle)), 3, false}, Row{"Base64", text(toBase64(root.der)), 1, false},
          Row{"empty", {}, 0, false}, Row{"rubbish behind", broken, 3, true}, Row{"cut off", cut, 2, true},
          Row{"rubbish", text("to nie certyfikat"), 0, true},
          Row{"broken PEM", text(blocks + "-----BEGIN CERTIFICATE-----\n!\n"), 3, true}}) {
        CertFileReader reader(row.content);
        size_t count = 0;
        for (ByteView der; reader.next(der); ++count) EXPECT_NE(crv::makeCert(der), nullptr) << row.what;
        EXPECT_EQ(count, row.certificates) << row.what;
        EXPECT_EQ(reader.stoppedEarly(), row.stopped) << row.what;
    }
    const Bytes crl = makeCrl({}, root);
    for (const Bytes& form : {crl, text(toPem("X509 CRL", crl)), text(toBase64(crl))}) {
        EXPECT_EQ(crlFromFile(form), crl);
    }
    EXPECT_FALSE(crlFromFile(text(blocks)));
}

TEST_F(ManagersTest, ImportAndExportGoThroughFiles) {
    std::vector<std::string> files{dir.file("in"), dir.file("out")};
    std::string content;
    for (int i = 0; i < 20; ++i) {
        const Bytes der = issue({.subject = {{"CN", "Jan"}}, .serial = std::to_string(i + 10)}, root).der;
        content += asText(der);
    }
    test::writeFile(files[0], content + "ogon");
    ImportProgress done;
    EXPECT_EQ(certificates.importCerts(files[0], nullptr, done), TransferEnd::badInput);
    EXPECT_EQ(done.stored, 20U);
    size_t count = 0;
    EXPECT_EQ(certificates.exportCerts(files[1], count), TransferEnd::done);
    EXPECT_EQ(count, 20U);
    EXPECT_EQ(test::readFile(files[1]), content);
    EXPECT_EQ(certificates.importCerts(
                  files[1], [](const ImportProgress&) { return false; }, done),
              TransferEnd::stopped);
    EXPECT_EQ(done.present, 20U);
    EXPECT_EQ(certificates.importCerts(dir.file("nie ma"), nullptr, done), TransferEnd::notOpened);
    EXPECT_EQ(certificates.exportCerts(dir.file("nie/ma"), count), TransferEnd::notOpened);
}

TEST_F(ManagersTest, TheWorkerFindsWhatTheUserKnows) {
    const MadeCert anna = issue({.subject = {{"CN", "Anna ŹDŹBŁO"}, {"O", "Firma"}},
                                 .serial = "0A1B",
                                 .notAfter = 5 * day,
                                 .extensions = {{"subjectAltName", "email:Anna@Firma.pl"}}},
                                middle);
    store(anna);
    for (int i = 0; i < 600; ++i) store(MadeCert{issue({.subject = {{"CN", "Jan"}}, .serial = "1"}, root)});
    struct Row {
        CertificateQuery query;
        size_t found;
    };
    for (const Row& row :
         {Row{{}, 601}, Row{{.subject = "źdźbło"}, 1}, Row{{.subject = "firma", .issuer = "POŚREDNI"}, 1},
          Row{{.issuer = "korze"}, 600}, Row{{.email = "anna@"}, 1}, Row{{.serial = "a1b"}, 1},
          Row{{.serial = "2587"}, 1}, Row{{.serial = "0a:1b"}, 1}, Row{{.serial = "a1"}, 0},
          Row{{.expiresWithinDays = 6, .time = now}, 1}, Row{{.expiresWithinDays = 4, .time = now}, 0},
          Row{{.expiresWithinDays = 6, .time = now + 6 * day}, 0}}) {
        std::vector<int64_t> ids;
        EXPECT_EQ(searchCertificates(database, row.query, nullptr, ids), SearchEnd::done);
        EXPECT_EQ(ids.size(), row.found) << row.query.subject << row.query.email << row.query.serial;
    }
}

TEST_F(ManagersTest, TheSearchCanBeStoppedAndCountsAsItGoes) {
    const MadeCert made = issue({.subject = {{"CN", "Jan"}}}, root);
    CrtRecord record;
    record.der = made.der;
    record.keyId = {1};
    // One certificate under many numbers keeps the worker busy for a while.
    std::vector<Bytes> copies;
    for (uint32_t i = 0; i < 40000; ++i) {
        copies.push_back(made.der);
        copies.back()[copies.back().size() - 1 - i % 8] ^= static_cast<uint8_t>(1 + i / 8 % 255);
        record.der = copies.back();
        record.serNumHash[0] = static_cast<uint8_t>(i);
        record.serNumHash[1] = static_cast<uint8_t>(i >> 8);
        ASSERT_TRUE(database.insertCert(record));
    }
    std::vector<int64_t> ids;
    size_t calls = 0, last = 0;
    const auto stopAtOnce = [&](size_t found, size_t looked) {
        EXPECT_GE(found, last);
        EXPECT_LE(found, looked);
        last = found;
        return ++calls < 1;
    };
    EXPECT_EQ(searchCertificates(database, {}, stopAtOnce, ids), SearchEnd::stopped);
    EXPECT_GE(ids.size(), last);
    EXPECT_LT(ids.size(), copies.size());
    EXPECT_THROW(static_cast<void>(searchCertificates(
                     database, {}, [](size_t, size_t) -> bool { throw std::runtime_error("ekran"); }, ids)),
                 std::runtime_error);
    database.deinit();
    EXPECT_EQ(searchCertificates(database, {}, nullptr, ids), SearchEnd::failed);
}

}  // namespace
