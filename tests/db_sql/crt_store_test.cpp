// The certificate store of every kind, through the manager, against a plain scan over the same certificates.
#include <gmock/gmock.h>

#include <algorithm>
#include <map>

#include "asn/known_oids.h"
#include "asn/x509/signed_certificate.h"
#include "cert_pool.h"
#include "db_sql/crt_db.h"
#include "db_sql/crt_keys.h"
#include "db_sql/db_pg.h"
#include "support/pg_server.h"

using namespace crv;
using namespace crv::test;
using testing::HasSubstr;

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
        config.dbName = onServer() ? PgServer::shared().newDatabase() : dir.path().string();
        manager.init(config);
        EXPECT_TRUE(manager.createDb()) << manager.lastFailure();
        EXPECT_EQ(manager.isDbCreated(), DbState::Complete);
        manager.setSync(false);
    }
    ~CrtStoreTest() override { expectSound("at the end"); }

    [[nodiscard]] bool inFiles() const { return GetParam() == kDbKindFile; }
    [[nodiscard]] bool onServer() const { return GetParam() == kDbKindPg; }
    void expectSound(const char* when) const { EXPECT_EQ(problems(), "") << when; }
    [[nodiscard]] std::string problems() const {
        std::string found = inFiles() ? problemsOfDatabase(config.db) : "";
        if (!onServer()) return found;
        EXPECT_EQ(checkPg(DbPg(config).session(), [&](const auto& where, const auto& what) { found += where + what; }),
                  found.empty());
        return found;
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
    CrtItemList all() {
        CrtItemList list;
        EXPECT_TRUE(manager.readForward(0, SIZE_MAX, list));
        return list;
    }
    int64_t currentId() {
        int64_t id = 0;
        EXPECT_TRUE(manager.getCrtId(id));
        return id;
    }
    /// A finder with its arguments finds what a scan over the certificates finds.
    template <class Want, class Finder, class Store, class... Args>
    void expectFound(const std::string& what, Want want, Finder finder, Store& store, const Args&... args) {
        CrtItemList list;
        EXPECT_TRUE(std::invoke(finder, store, list, args...)) << what << manager.lastFailure();
        std::multiset<Bytes> wanted;
        std::ranges::copy_if(live, std::inserter(wanted, wanted.end()), [&](const auto& d) { return want(parsed(d)); });
        EXPECT_EQ(dersOf(list), wanted) << what;
    }
    /// Every search, for the keys of some certificates of the pool, stored or not.
    void expectSearchesAgree() {
        for (size_t i = 0; i < certPool().size(); i += 23) expectSearchesAgreeFor(certPool()[i]);
        expectFound("authority", std::mem_fn(&SignedCertificate::isCaCrt), &DbManager::findCaCerts, manager);
        EXPECT_EQ(count(), live.size());
    }
    void expectSearchesAgreeFor(const Bytes& der) {
        CrtRecord record;
        ASSERT_TRUE(makeCrtRecord(der, record));
        const SignedCertificate& wanted = parsed(der);
        const DistinguishedName& name = wanted.subject();
        const ASNinteger& number = wanted.serialNumber();
        const auto same = [&](const auto& c) { return &c == &wanted; };
        const auto sameNumber = [&](const auto& c) {
            return std::ranges::equal(c.serialNumber().encoded(), number.encoded());
        };
        const auto sameName = [&](const auto& c) { return c.subject() == name; };
        const auto sameKey = [&](const auto& c) { return c.getKeyIdFromCert() == record.keyId; };
        const auto sameBoth = [&](const auto& c) { return sameName(c) && sameKey(c); };
        expectFound("serial", sameNumber, &DbManager::findCertsBySerNumHash, manager, record.serNumHash);
        expectFound("subject", sameName, &DbManager::findCertsBySbjDnHash, manager, record.sbjDnHash);
        expectFound("octets", same, &DbManager::findCertsByCrtHash, manager, record.crtHash);
        // Some key identifiers agree before a zero octet.
        expectFound("key", sameKey, &DbManager::findCertsByKeyIdHash, manager, record.keyId);
        expectFound("subject, key", sameBoth, &CrtDb::findBySubjectAndKeyId, db, name, record.keyId);
        expectFound("issuer, serial", sameNumber, &CrtDb::findByIssuerAndSerNum, db, wanted.issuer(), number);
        for (const DnFld& field : record.dnFlds) {
            const auto sameField = [&](const auto& c) { return hasField(c, field); };
            expectFound(field.value, sameField, &DbManager::findCertsBySbjDnFld, manager, field.type, field.value);
        }
    }
    static bool hasField(const SignedCertificate& c, const DnFld& field) {
        const auto emails = c.emails();
        if (field.type == kDnEmail) return std::ranges::find(emails, field.value) != emails.end();
        return std::ranges::any_of(c.subject(), [&](const auto& set) {
            return dnFldType(set[0].type) == field.type && set[0].valueUtf8() == field.value;
        });
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
    const SignedCertificate& authority = parsed(certPool()[18]);
    CrtItemList none;
    EXPECT_TRUE(manager.findCertsBySbjDnFld(none, kDnCommonName, "Nikt")) << "no match is no failure";
    EXPECT_TRUE(db.findByIssuerAndSerNum(none, authority.subject(), authority.serialNumber()));
    EXPECT_TRUE(none.empty());
    EXPECT_TRUE(db.findByKeyUsage(none, authority.subject(), 1U << KeyUsage::kDigitalSignature, time(nullptr)));
    EXPECT_EQ(dersOf(none).count(certPool()[18]), 0U) << "an authority's key signs certificates only";
    for (const Bytes& der : certPool()) {
        InsertResult result{};
        EXPECT_TRUE(db.insert(ByteView(der), &result));
        EXPECT_EQ(result, InsertResult::Present) << "stored once";
    }
    EXPECT_EQ(count(), live.size());
}

TEST_P(CrtStoreTest, ManyCertificatesWithOneSerialNumber) {
    for (int i = 0; i < 200; ++i) {
        InsertResult result{};
        Bytes der = certPool()[1];
        der.back() ^= static_cast<uint8_t>(i % 100);
        EXPECT_TRUE(db.insert(ByteView(der), &result));
        EXPECT_EQ(result, i < 100 ? InsertResult::Stored : InsertResult::Present) << i;
    }
    CrtItemList found;
    EXPECT_TRUE(manager.findCertsBySerNumHash(found, serNumHash(parsed(certPool()[1]).serialNumber())));
    std::ranges::reverse(found);
    EXPECT_EQ(found, all()) << "the newest first";
}

TEST_P(CrtStoreTest, CrlsAreReplacedByNewerOnesAndDeleted) {
    std::vector<Bytes> crls, stored;
    for (const char* name : {"A", "B"}) {
        const MadeCert issuer = makeCert({.subject = {{"CN", name}}, .extensions = caExtensions()});
        for (long number : {1, 2}) crls.push_back(makeCrl({.number = number, .nextUpdate = number * kDay}, issuer));
    }
    for (const Bytes& crl : {crls[0], crls[1], crls[3]}) EXPECT_EQ(manager.insertCrl(crl, true), CrlInsert::Stored);
    EXPECT_TRUE(manager.getAllCrls(stored));
    EXPECT_EQ(stored, (std::vector{crls[1], crls[3]}));
    EXPECT_TRUE(manager.deleteCrl(1));
    EXPECT_FALSE(manager.deleteCrl(1));
    EXPECT_EQ(manager.lastCause(), StoreCause::NotFound);
    stored.clear();
    EXPECT_TRUE(manager.getAllCrls(stored));
    EXPECT_EQ(stored, std::vector<Bytes>{crls[3]});
}

TEST_P(CrtStoreTest, EmailsUpTo128CharactersAreStored) {
    // Addresses that long get by the maker's checks only as an attribute of the subject.
    const auto insert = [&](size_t length) {
        const std::string email = std::string(length - 9, 'a') + "@firma.pl";
        return db.insert(ByteView(makeCert({.subject = {{"CN", "Długi"}, {"emailAddress", email, kIa5String}}}).der));
    };
    EXPECT_TRUE(insert(128));
    EXPECT_FALSE(insert(129));
    EXPECT_THAT(manager.lastFailure(), HasSubstr("DbManager::insertCert()\nDbCrtCrv::insertCert. Za dlugie pole email "
                                                 "w certyfikacie"));
    EXPECT_EQ(count(), 1U);
    CrtItemList found;
    EXPECT_TRUE(manager.findCertsBySbjDnFld(found, kDnEmail, std::string(119, 'a') + "@firma.pl"));
    EXPECT_EQ(found.size(), 1U);
}

TEST_P(CrtStoreTest, DeletedCertificatesAreFoundByNoKey) {
    fill();
    const CrtItemList before = all();
    for (size_t i = 0; i < before.size(); i += 2) {
        Bytes der;
        ASSERT_TRUE(manager.setCrtId(before[i].id));
        ASSERT_TRUE(manager.get(der)) << manager.lastFailure();
        EXPECT_EQ(der, before[i].der);
        ASSERT_TRUE(manager.deleteCert()) << manager.lastFailure();
        live.erase(der);
    }
    expectSound("deleted");
    expectSearchesAgree();
    Bytes der;
    ASSERT_TRUE(manager.setCrtId(before[0].id));
    EXPECT_FALSE(manager.deleteCert()) << "it is gone already";
    EXPECT_FALSE(manager.get(der));
}

TEST_P(CrtStoreTest, ACertificateThatMovedIsNotTakenForAnother) {
    // Of three records of one size, each moves to where the one before it stood.
    std::map<size_t, std::vector<Bytes>> bySize;
    for (const Bytes& der : certPool()) bySize[der.size()].push_back(der);
    const auto howMany = [](const auto& entry) { return entry.second.size(); };
    const std::vector<Bytes>& same = std::ranges::max_element(bySize, {}, howMany)->second;
    ASSERT_GE(same.size(), 3U);
    for (size_t i = 0; i < 3; ++i) ASSERT_TRUE(db.insert(ByteView(same[i])));
    Bytes der;
    ASSERT_TRUE(manager.setCrtId(all()[1].id) && manager.get(der));
    DbManager other;
    other.init(config);
    CrtStore::Removed counts;
    ASSERT_TRUE(other.removeCerts([&](ByteView one) { return std::ranges::equal(one, same[0]); }, counts));
    EXPECT_EQ(manager.deleteCert(), !inFiles());
    EXPECT_EQ(count(), inFiles() ? 2U : 1U);
}

TEST_P(CrtStoreTest, BrowsingGoesBothWaysAndSurvivesDeletion) {
    EXPECT_EQ(manager.top(), DbStep::End);
    EXPECT_EQ(manager.prev(), DbStep::End);
    fill();
    const CrtItemList list = all();
    ASSERT_EQ(list.size(), live.size());
    size_t n = 0;
    for (DbStep step = manager.top(); step == DbStep::Found; step = manager.next(), ++n) {
        ASSERT_EQ(currentId(), list[n].id);
    }
    EXPECT_EQ(n, list.size());
    CrtItemList back, page;
    EXPECT_TRUE(manager.readBackward(INT64_MAX, SIZE_MAX, back));
    EXPECT_EQ(back, CrtItemList(list.rbegin(), list.rend()));
    EXPECT_TRUE(manager.readForward(list[9].id, 3, page));
    EXPECT_TRUE(manager.readBackward(list[9].id, 2, page));
    EXPECT_EQ(page, (CrtItemList{list[10], list[11], list[12], list[8], list[7]}));
    ASSERT_TRUE(manager.setCrtId(list[10].id));
    ASSERT_TRUE(manager.deleteCert());
    EXPECT_EQ(manager.prev(), DbStep::Found);
    EXPECT_EQ(currentId(), list[9].id);
    EXPECT_EQ(manager.next(), DbStep::Found);
    EXPECT_EQ(currentId(), list[11].id);
    ASSERT_TRUE(manager.setCrtId(list.back().id));
    EXPECT_EQ(manager.next(), DbStep::End);
    Bytes der;
    EXPECT_TRUE(manager.get(der));
    EXPECT_EQ(der, list.back().der) << "the current one stays at the end";
}

TEST_P(CrtStoreTest, ExpiredCertificatesGoAndTheRestIsRenumberedConsistently) {
    fill();
    const CrtItem third = all()[2];
    ASSERT_TRUE(manager.setCrtId(third.id));
    ASSERT_TRUE(manager.deleteCert());
    live.erase(third.der);
    const int64_t now = time(nullptr);
    const size_t expired = std::erase_if(live, [&](const Bytes& der) { return !parsed(der).isValidAt(now); });
    ASSERT_GT(expired, 10U);
    const auto rights = std::filesystem::perms::owner_read | std::filesystem::perms::owner_write;
    if (inFiles()) std::filesystem::permissions(config.db + "/certific.idx", rights);
    for (const size_t removed : {expired, size_t{0}}) {
        CrtStore::Removed result;
        ASSERT_TRUE(db.removeCertsOverTime(now, result)) << manager.lastFailure();
        EXPECT_EQ(result.removed, removed);
        EXPECT_EQ(result.remaining, live.size());
        expectSound("compacted");
    }
    if (inFiles()) {
        EXPECT_EQ(std::filesystem::status(config.db + "/certific.idx").permissions(), rights);
    }
    expectSearchesAgree();
    EXPECT_EQ(dersOf(all()), std::multiset<Bytes>(live.begin(), live.end()));
    fill();
}

TEST_P(CrtStoreTest, AnImportTellsEachCertificatesFate) {
    ASSERT_TRUE(db.insert(ByteView(certPool()[1])));
    std::vector<Bytes> file(certPool().begin(), certPool().begin() + 5);
    file.push_back(makeCert({.subject = {{"emailAddress", std::string(129, 'a'), kIa5String}}}).der);
    NameFields many;
    for (size_t i = 0; i <= kMaxCrtFields; ++i) many.push_back({"CN", std::to_string(i)});
    file.push_back(makeCert({.subject = many}).der);
    file.push_back(file[0]);
    file.push_back({0x30, 0x01, 0x00});
    file.push_back(certPool()[9]);
    size_t at = 0;
    const auto source = [&](ByteView& der) { return at < file.size() && (der = file[at++], true); };
    std::map<size_t, CrtRefusal> refused;
    const auto onRefused = [&](size_t index, CrtRefusal refusal) { refused[index] = refusal; };
    ImportProgress done, last;
    ASSERT_TRUE(db.insertMany(
        source, [&](const auto& progress) { return last = progress, true; }, onRefused, done));
    EXPECT_EQ(done.stored, 4U);
    EXPECT_EQ(done.present, 2U);
    EXPECT_EQ(refused, (std::map<size_t, CrtRefusal>{{5, CrtRefusal::EmailTooLong}, {6, CrtRefusal::TooManyFields}}));
    EXPECT_TRUE(done.unreadable) << "it stops at what is no certificate";
    EXPECT_EQ(last.handled(), done.handled());
    at = 0;
    ASSERT_TRUE(db.insertMany(
        source, [](const auto&) { return false; }, nullptr, done));
    EXPECT_EQ(count(), 5U);

    size_t given = 0;
    const CrtDb::Source endless = [&](ByteView& der) {
        return der = ++given == 3001 ? ByteView(file[8]) : file[given % 2], given < 9000;
    };
    ASSERT_TRUE(db.insertMany(endless, nullptr, nullptr, done));
    EXPECT_TRUE(done.unreadable);
    EXPECT_EQ(done.handled(), 3000U) << "what other threads took apart comes in order, up to what is no certificate";
    EXPECT_EQ(count(), 5U);
}

TEST_P(CrtStoreTest, FetchTimesAndImportNumbersAreKept) {
    const auto fetched = [&](const char* server) {
        int64_t time = -1;
        EXPECT_TRUE(manager.getNetCertTime(server, time));
        return time;
    };
    const auto imported = [&](const char* server) {
        long number = -1;
        EXPECT_TRUE(manager.getLastImportNr(server, number));
        return number;
    };
    if (inFiles()) test::writeFile(config.db + "/netCertTime.idx", "");
    EXPECT_EQ(fetched("ldap://a"), 0);
    for (int round = 0; round < 2; ++round) {
        EXPECT_TRUE(manager.setNetCertTime("ldap://a")) << manager.lastFailure();
        EXPECT_LE(std::abs(fetched("ldap://a") - (inFiles() || onServer() ? time(nullptr) : 0)), 5);
    }
    EXPECT_EQ(fetched("ldap://b"), 0);
    for (const long number : {17, 18}) EXPECT_TRUE(manager.setLastImportNr("serwer 1", number));
    EXPECT_TRUE(manager.setLastImportNr("b", -3));
    EXPECT_EQ(imported("serwer 1"), 18);
    EXPECT_FALSE(manager.setLastImportNr("a\nb", 1));
    EXPECT_TRUE(manager.delSrv("serwer 1"));
    EXPECT_EQ(imported("serwer 1"), 0);
    EXPECT_TRUE(!inFiles() || test::readFile(dir.file("base/imports.dat")) == "-3 b\n");
}

constexpr std::array kKindNames{"Files", "Memory", "Server"};
INSTANTIATE_TEST_SUITE_P(Kinds, CrtStoreTest, testing::Values("corvane", "w pamieci", "postgresql"),
                         [](const auto& kind) { return kKindNames.at(kind.index); });

DbConfig configOf(const std::string& type, const std::string& name = "") {
    DbConfig config;
    if (!type.empty()) config.setType(type);
    config.db = config.dbName = name;
    return config;
}

TEST(DbManagerTest, AProfileWithoutDatabaseFindsNothingAndRefusesInsertions) {
    DbManager manager;
    manager.init(configOf("brak"));
    EXPECT_EQ(manager.isDbCreated(), DbState::Complete);
    EXPECT_TRUE(manager.createDb());
    EXPECT_EQ(manager.top(), DbStep::End);
    EXPECT_FALSE(CrtDb(manager).insert(ByteView(certPool()[0])));
    EXPECT_FALSE(manager.setLastImportNr("a", 1));
}

TEST(DbManagerTest, FailuresNameTheOperationAndDropTheConnection) {
    const TempDir dir;
    DbManager manager;
    const auto failure = [&](const std::string& operation) {
        const std::string head = "Wyjatek w funkcji: DbManager::" + operation + "()\n", text = manager.lastFailure();
        return text.starts_with(head) ? text.substr(head.size()) : text;
    };
    EXPECT_EQ(manager.isDbCreated(), DbState::Incomplete) << "not initialised";
    EXPECT_EQ(failure("createDb")[0], 'B');
    manager.init(configOf("", dir.file("base")));
    EXPECT_EQ(manager.isDbCreated(), DbState::Missing) << "settings without a kind but with a directory mean files";
    EXPECT_EQ(manager.top(), DbStep::Failed);
    EXPECT_EQ(failure("top"), "FileSemaphore::p: blad zajecia semafora");
    ASSERT_TRUE(manager.createDb());
    EXPECT_EQ(manager.top(), DbStep::End) << "the next operation starts afresh";
    std::filesystem::remove(dir.file("base/addidx.idx"));
    EXPECT_FALSE(CrtDb(manager).insert(ByteView(certPool()[0])));
    EXPECT_EQ(failure("insertCert"), "DbCrtCrv::connect. Blad otwrcia tabeli addIdxTb");
    manager.init(configOf("", dir.file(std::string(260, 'x'))));
    EXPECT_FALSE(manager.getConnection());
    EXPECT_EQ(failure("getConnection"), "DbCrv::connect. Blad wywolania funkcji: buildDBDirectory");
}

TEST(DbManagerTest, MemoryDatabasesAreSharedByNameOnly) {
    DbManager first, same, other;
    first.init(configOf("w pamieci", "wspólna"));
    same.init(configOf("w pamieci", "wspólna"));
    other.init(configOf("w pamieci", "inna"));
    ASSERT_TRUE(CrtDb(first).insert(ByteView(certPool()[0])));
    size_t n = 0;
    EXPECT_TRUE(same.countCerts(n) && n == 1);
    EXPECT_TRUE(other.countCerts(n) && n == 0);
}

}  // namespace
