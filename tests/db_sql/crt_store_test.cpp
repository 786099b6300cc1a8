// The certificate store of both kinds, through the manager, against a plain scan over the same certificates.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>

#include "asn/known_oids.h"
#include "asn/x509/signed_certificate.h"
#include "cert_pool.h"
#include "crypto/kc_hash.h"
#include "db/database.h"
#include "db_sql/crt_db.h"
#include "db_sql/crt_keys.h"
#include "misc/no_oop.h"
#include "soundness.h"
#include "support/faulty_file_ops.h"
#include "support/temp_dir.h"

using namespace crv;
using namespace crv::test;

namespace {

std::multiset<Bytes> dersOf(const CrtItemList& list) {
    std::multiset<Bytes> ders;
    for (const CrtItem& item : list) ders.insert(item.der);
    return ders;
}

const SignedCertificate& parsed(const Bytes& der) {
    static std::map<Bytes, SignedCertificate> cache;
    const auto [at, isNew] = cache.try_emplace(der);
    EXPECT_TRUE(!isNew || at->second.readExactly(at->first, ASN_FLAG_CONST));
    return at->second;
}

class CrtStoreTest : public testing::TestWithParam<const char*> {
  protected:
    CrtStoreTest() {
        config.setType(GetParam());
        config.db = dir.file("base");
        config.dbName = dir.path().string();
        manager.init(config);
        EXPECT_TRUE(manager.createDb()) << manager.lastFailure();
        EXPECT_EQ(manager.isDbCreated(), 0);
        manager.setSync(false);
    }
    ~CrtStoreTest() override { expectSound("at the end"); }

    [[nodiscard]] bool inFiles() const { return GetParam() == dbKindFile; }
    void expectSound(const char* when) const {
        const auto problems = inFiles() ? problemsOf(dir.file("base/")) : std::vector<std::string>();
        EXPECT_EQ(problems, std::vector<std::string>()) << when;
    }
    void fill() {
        for (const Bytes& der : certPool()) {
            ASSERT_TRUE(db.insert(ByteView(der))) << manager.lastFailure();
            live.insert(der);
        }
        expectSound("filled");
    }
    size_t count() {
        size_t n = 0;
        EXPECT_TRUE(manager.countCerts(n));
        return n;
    }
    /// What a scan over the certificates finds.
    template <class Want>
    std::multiset<Bytes> scan(Want want) const {
        std::multiset<Bytes> found;
        for (const Bytes& der : live) {
            if (want(parsed(der), der)) found.insert(der);
        }
        return found;
    }
    /// Every search, for the keys of every certificate of the pool, stored or not.
    void expectSearchesAgree() {
        for (size_t i = 0; i < certPool().size(); i += 23) {
            const Bytes& der = certPool()[i];
            CrtRecord record;
            ASSERT_TRUE(makeCrtRecord(der, record));
            const SignedCertificate& wanted = parsed(der);
            CrtItemList list;
            EXPECT_TRUE(manager.findCertsBySerNumHash(list, record.serNumHash));
            EXPECT_EQ(dersOf(list), scan([&](const auto& c, auto&) {
                          return std::ranges::equal(c.serialNumber().encoded(), wanted.serialNumber().encoded());
                      }));
            list.clear();
            EXPECT_TRUE(manager.findCertsBySbjDnHash(list, record.sbjDnHash));
            EXPECT_EQ(dersOf(list), scan([&](const auto& c, auto&) { return c.subject() == wanted.subject(); }));
            list.clear();
            EXPECT_TRUE(manager.findCertsByCrtHash(list, record.crtHash));
            EXPECT_EQ(dersOf(list), scan([&](const auto&, const Bytes& other) { return other == der; }));
            list.clear();
            EXPECT_TRUE(manager.findCertsByKeyIdHash(list, record.keyId));
            EXPECT_EQ(dersOf(list), scan([&](const auto& c, auto&) { return c.getKeyIdFromCert() == record.keyId; }))
                << "key identifiers that agree before a zero octet";
            for (const DnFld& field : record.dnFlds) expectFieldAgrees(field);
        }
        CrtItemList cas;
        EXPECT_TRUE(manager.findCaCerts(cas));
        EXPECT_EQ(dersOf(cas), scan([](const auto& c, auto&) { return c.isCaCrt(); }));
    }
    void expectFieldAgrees(const DnFld& field) {
        CrtItemList list;
        EXPECT_TRUE(manager.findCertsBySbjDnFld(list, field.type, field.value));
        EXPECT_EQ(dersOf(list), scan([&](const SignedCertificate& c, auto&) {
                      const auto emails = c.emails();
                      if (field.type == dnEmail) return std::ranges::find(emails, field.value) != emails.end();
                      for (const auto& set : c.subject()) {
                          if (dnFldType(set[0].type) == field.type && set[0].valueUtf8() == field.value) return true;
                      }
                      return false;
                  }))
            << field.type << field.value;
    }

    const TempDir dir;
    DbConfig config;
    DbManager manager;
    CrtDb db{manager};
    std::set<Bytes> live;
};

TEST_P(CrtStoreTest, EverySearchAgreesWithAScan) {
    expectSearchesAgree();
    fill();
    expectSearchesAgree();
    EXPECT_EQ(count(), live.size());
    CrtItemList none;
    EXPECT_TRUE(manager.findCertsBySbjDnFld(none, dnCommonName, "Nikt")) << "no match is no failure";
    EXPECT_TRUE(none.empty());
}

TEST_P(CrtStoreTest, TheSameCertificateIsStoredOnce) {
    fill();
    const size_t before = count();
    for (const Bytes& der : certPool()) {
        InsertResult result{};
        EXPECT_TRUE(db.insert(ByteView(der), &result));
        EXPECT_EQ(result, InsertResult::present);
    }
    EXPECT_EQ(count(), before);
    CrtItemList same;
    EXPECT_TRUE(db.findBySerNum(same, parsed(certPool()[0]).serialNumber()));
    EXPECT_EQ(same.size(), 2U) << "another certificate with the same serial number is stored beside it";
}

TEST_P(CrtStoreTest, EmailsUpTo128CharactersAreStored) {
    // Addresses that long get by the maker's checks only as an attribute of the subject.
    const auto withEmail = [](size_t length) {
        const std::string email = std::string(length - 9, 'a') + "@firma.pl";
        return makeCert({.subject = {{"CN", "Długi"}, {"emailAddress", email, ia5String}}}).der;
    };
    EXPECT_TRUE(db.insert(ByteView(withEmail(128))));
    EXPECT_FALSE(db.insert(ByteView(withEmail(129))));
    EXPECT_NE(manager.lastFailure().find("DbManager::insertCert()\nDbCrtCrv::insertCert. Za dlugie pole email w "
                                         "certyfikacie"),
              std::string::npos)
        << manager.lastFailure();
    EXPECT_EQ(count(), 1U);
    CrtItemList found;
    EXPECT_TRUE(db.findByEmail(found, std::string(119, 'a') + "@firma.pl"));
    EXPECT_EQ(found.size(), 1U);
}

TEST_P(CrtStoreTest, DeletedCertificatesAreFoundByNoKey) {
    fill();
    std::vector<int64_t> ids;
    for (DbStep step = manager.top(); step == DbStep::found; step = manager.next()) {
        ids.push_back(0);
        ASSERT_TRUE(manager.getCrtId(ids.back()));
    }
    ASSERT_EQ(ids.size(), live.size());
    for (size_t i = 0; i < ids.size(); i += 2) {
        Bytes der;
        ASSERT_TRUE(manager.setCrtId(ids[i]));
        ASSERT_TRUE(manager.get(der)) << manager.lastFailure();
        ASSERT_TRUE(manager.deleteCert()) << manager.lastFailure();
        live.erase(der);
    }
    expectSound("deleted");
    expectSearchesAgree();
    EXPECT_EQ(count(), live.size());
    ASSERT_TRUE(manager.setCrtId(ids[0]));
    EXPECT_FALSE(manager.deleteCert()) << "it is gone already";
    Bytes gone;
    EXPECT_FALSE(manager.get(gone));
    DbManager other;
    other.init(config);
    CrtStore::Removed counts;
    Bytes seen;
    ASSERT_TRUE(manager.setCrtId(ids[1]));
    ASSERT_TRUE(manager.get(seen));
    ASSERT_TRUE(other.removeCerts([](ByteView) { return false; }, counts));
    EXPECT_EQ(manager.deleteCert(), !inFiles()) << "its id means another one after the compaction";
    if (!inFiles()) live.erase(seen);
}

TEST_P(CrtStoreTest, BrowsingGoesBothWaysAndSurvivesDeletion) {
    EXPECT_EQ(manager.top(), DbStep::end);
    EXPECT_EQ(manager.prev(), DbStep::end);
    fill();
    CrtItemList all, back, page;
    EXPECT_TRUE(manager.readForward(0, SIZE_MAX, all));
    EXPECT_TRUE(manager.readBackward(INT64_MAX, SIZE_MAX, back));
    std::ranges::reverse(back);
    EXPECT_EQ(all, back);
    ASSERT_EQ(all.size(), live.size());
    EXPECT_TRUE(manager.readForward(all[9].id, 3, page));
    EXPECT_EQ(page, CrtItemList(all.begin() + 10, all.begin() + 13));
    page.clear();
    EXPECT_TRUE(manager.readBackward(all[9].id, 2, page));
    EXPECT_EQ(page, (CrtItemList{all[8], all[7]}));
    ASSERT_TRUE(manager.setCrtId(all[10].id));
    ASSERT_TRUE(manager.deleteCert());
    int64_t id = 0;
    EXPECT_EQ(manager.prev(), DbStep::found);
    EXPECT_TRUE(manager.getCrtId(id));
    EXPECT_EQ(id, all[9].id);
    EXPECT_EQ(manager.next(), DbStep::found);
    EXPECT_TRUE(manager.getCrtId(id));
    EXPECT_EQ(id, all[11].id);
    ASSERT_TRUE(manager.setCrtId(all.back().id));
    EXPECT_EQ(manager.next(), DbStep::end);
    Bytes der;
    EXPECT_TRUE(manager.get(der));
    EXPECT_EQ(der, all.back().der) << "the current one stays at the end";
}

TEST_P(CrtStoreTest, ExpiredCertificatesGoAndTheRestIsRenumberedConsistently) {
    fill();
    CrtItemList all;
    ASSERT_TRUE(manager.readForward(0, 5, all));
    ASSERT_TRUE(manager.setCrtId(all[2].id));
    ASSERT_TRUE(manager.deleteCert());
    live.erase(all[2].der);
    const int64_t now = time(nullptr);
    const size_t expired = std::erase_if(live, [&](const Bytes& der) { return !parsed(der).isValidAt(now); });
    ASSERT_GT(expired, 10U);
    CrtStore::Removed result;
    ASSERT_TRUE(db.removeCertsOverTime(now, result)) << manager.lastFailure();
    EXPECT_EQ(result.removed, expired);
    EXPECT_EQ(result.remaining, live.size());
    expectSound("compacted");
    expectSearchesAgree();
    CrtItemList rest;
    ASSERT_TRUE(manager.readForward(0, SIZE_MAX, rest));
    EXPECT_EQ(dersOf(rest), std::multiset<Bytes>(live.begin(), live.end()));
    ASSERT_TRUE(db.removeCertsOverTime(now, result));
    EXPECT_EQ(result.removed, 0U);
    fill();
}

TEST_P(CrtStoreTest, AnImportTellsEachCertificatesFate) {
    ASSERT_TRUE(db.insert(ByteView(certPool()[1])));
    std::vector<Bytes> file(certPool().begin(), certPool().begin() + 5);
    file.push_back(makeCert({.subject = {{"emailAddress", std::string(129, 'a'), ia5String}}}).der);
    file.push_back(file[0]);
    file.push_back({0x30, 0x01, 0x00});
    file.push_back(certPool()[9]);
    size_t at = 0;
    const auto source = [&](ByteView& der) { return at < file.size() && (der = file[at++], true); };
    std::vector<size_t> refused;
    ImportProgress done, last;
    ASSERT_TRUE(db.insertMany(
        source, [&](const ImportProgress& p) { return last = p, true; },
        [&](size_t index, const std::string& reason) {
            refused.push_back(index);
            EXPECT_FALSE(reason.empty());
        },
        done));
    EXPECT_EQ(done.stored, 4U);
    EXPECT_EQ(done.present, 2U);
    EXPECT_EQ(refused, std::vector<size_t>{5});
    EXPECT_TRUE(done.unreadable) << "it stops at what is no certificate";
    EXPECT_EQ(last.handled(), done.handled());
    at = 0;
    ASSERT_TRUE(db.insertMany(
        source, [](const ImportProgress&) { return false; }, nullptr, done));
    EXPECT_EQ(count(), 5U);
}

TEST_P(CrtStoreTest, FetchTimesAndImportNumbersAreKept) {
    int64_t time = -1;
    long number = -1;
    EXPECT_TRUE(manager.getNetCertTime("ldap://a", time));
    EXPECT_EQ(time, 0);
    for (int round = 0; round < 2; ++round) {
        EXPECT_TRUE(manager.setNetCertTime("ldap://a")) << manager.lastFailure();
        EXPECT_TRUE(manager.getNetCertTime("ldap://a", time));
        EXPECT_NEAR(static_cast<double>(time), inFiles() ? static_cast<double>(std::time(nullptr)) : 0.0, 5.0);
    }
    EXPECT_TRUE(manager.getNetCertTime("ldap://b", time));
    EXPECT_EQ(time, 0);
    EXPECT_TRUE(manager.setLastImportNr("serwer 1", 17));
    EXPECT_TRUE(manager.setLastImportNr("b", -3));
    EXPECT_TRUE(manager.setLastImportNr("serwer 1", 18));
    EXPECT_TRUE(manager.getLastImportNr("serwer 1", number));
    EXPECT_EQ(number, 18);
    EXPECT_FALSE(manager.setLastImportNr("a\nb", 1));
    EXPECT_TRUE(manager.delSrv("serwer 1"));
    EXPECT_TRUE(manager.getLastImportNr("serwer 1", number));
    EXPECT_EQ(number, 0);
    if (inFiles()) {
        EXPECT_EQ(test::readFile(dir.file("base/imports.dat")), "-3 b\n");
    }
}

TEST_P(CrtStoreTest, CombinedSearches) {
    fill();
    const SignedCertificate& wanted = parsed(certPool()[18]);
    CrtItemList list;
    EXPECT_TRUE(db.findByIssuerAndSerNum(list, wanted.issuer(), wanted.serialNumber()));
    EXPECT_EQ(dersOf(list).count(certPool()[18]), 1U);
    list.clear();
    EXPECT_TRUE(db.findByIssuerAndSerNum(list, wanted.subject(), wanted.serialNumber()));
    EXPECT_TRUE(list.empty());
    EXPECT_TRUE(db.findBySubjectAndKeyId(list, wanted.subject(), wanted.getKeyIdFromCert()));
    EXPECT_EQ(dersOf(list), scan([&](const auto& c, auto&) {
                  return c.subject() == wanted.subject() && c.getKeyIdFromCert() == wanted.getKeyIdFromCert();
              }));
    list.clear();
    EXPECT_TRUE(db.findByKeyUsage(list, wanted.subject(), 1U << KeyUsage::digitalSignature, time(nullptr)));
    EXPECT_EQ(dersOf(list).count(certPool()[18]), 0U) << "an authority's key signs certificates only";
}

INSTANTIATE_TEST_SUITE_P(Kinds, CrtStoreTest, testing::Values("corvane", "w pamieci"),
                         [](const auto& kind) { return kind.index == 0 ? "Files" : "Memory"; });

TEST(DbManagerTest, AProfileWithoutDatabaseFindsNothingAndRefusesInsertions) {
    DbManager manager;
    DbConfig config;
    config.setType("brak");
    manager.init(config);
    EXPECT_EQ(manager.isDbCreated(), 0);
    EXPECT_TRUE(manager.createDb());
    EXPECT_EQ(manager.top(), DbStep::end);
    EXPECT_FALSE(CrtDb(manager).insert(ByteView(certPool()[0])));
    EXPECT_FALSE(manager.setLastImportNr("a", 1));
}

TEST(DbManagerTest, FailuresNameTheOperationAndDropTheConnection) {
    const TempDir dir;
    DbManager manager;
    EXPECT_EQ(manager.isDbCreated(), 2) << "not initialised";
    EXPECT_EQ(manager.lastFailure().substr(0, 42), "Wyjatek w funkcji: DbManager::createDb()\nB");
    DbConfig config;
    config.db = dir.file("base");
    manager.init(config);
    EXPECT_EQ(manager.isDbCreated(), 47) << "settings without a kind but with a directory mean files";
    EXPECT_EQ(manager.top(), DbStep::failed);
    EXPECT_EQ(manager.lastFailure(), "Wyjatek w funkcji: DbManager::top()\nFileSemaphore::p: blad zajecia semafora");
    ASSERT_TRUE(manager.createDb());
    EXPECT_EQ(manager.top(), DbStep::end) << "the next operation starts afresh";
    std::filesystem::remove(dir.file("base/addidx.idx"));
    EXPECT_FALSE(CrtDb(manager).insert(ByteView(certPool()[0])));
    EXPECT_EQ(manager.lastFailure(),
              "Wyjatek w funkcji: DbManager::insertCert()\nDbCrtCrv::connect. Blad otwrcia tabeli addIdxTb");
    config.db = dir.file(std::string(260, 'x'));
    manager.init(config);
    EXPECT_FALSE(manager.getConnection());
    EXPECT_EQ(manager.lastFailure(),
              "Wyjatek w funkcji: DbManager::getConnection()\nDbCrv::connect. Blad wywolania "
              "funkcji: buildDBDirectory");
}

TEST(DbManagerTest, MemoryDatabasesAreSharedByNameOnly) {
    DbManager a, b, c;
    DbConfig config;
    config.setType("w pamieci");
    config.dbName = "wspólna";
    a.init(config);
    b.init(config);
    config.dbName = "inna";
    c.init(config);
    ASSERT_TRUE(CrtDb(a).insert(ByteView(certPool()[0])));
    size_t n = 0;
    EXPECT_TRUE(b.countCerts(n));
    EXPECT_EQ(n, 1U);
    EXPECT_TRUE(c.countCerts(n));
    EXPECT_EQ(n, 0U);
}

}  // namespace
