// Databases copied from kind to kind: everything arrives, and a copy that was
// cut off goes on.
#include "ops/database_copy.h"

#include <gtest/gtest.h>

#include "db_sql/db_manager.h"
#include "ops/op_error.h"
#include "profiles/crv_profile.h"
#include "support/cert_maker.h"
#include "support/pg_server.h"

namespace crv::test {
namespace {

TEST(DatabaseCopy, GoesFromFilesOverAServerIntoMemoryAndGoesOnWhereItWasCutOff) {
    const TempDir dir;
    const std::string list = dir.file("profile.conf"), connection = PgServer::shared().newDatabase();
    std::string text;
    for (const auto& [name, type, place] : {std::tuple{"A", "corvane", dir.file("db")},
                                            {"B", "postgresql", connection},
                                            {"C", "w pamieci", std::string("copied")}}) {
        const std::string key = "\\" + std::string(name) + "\\";
        text += key + "Type [l] = 1\n" + key + "db [s] = \"" + place + "\"\n" + key + "dbname [s] = \"" + place +
                "\"\n" + key + "dbtype [s] = \"" + type + "\"\n";
    }
    writeFile(list, text);
    const auto profile = [&](const char* name) { return CrvProfile::getProfileByName(ProfileMedia::File, list, name); };
    const auto from = profile("A"), over = profile("B"), to = profile("C");
    DbManager source, server, memory;
    source.init(from->dbConfig());
    server.init(over->dbConfig());
    memory.init(to->dbConfig());
    ASSERT_TRUE(source.createDb() && server.createDb()) << server.lastFailure();
    const MadeCert issuer = makeCert({.subject = {{"CN", "A"}}, .extensions = caExtensions()});
    const Bytes crl = makeCrl({.number = 3, .nextUpdate = kDay}, issuer);
    for (int i = 0; i < 20; ++i)
        ASSERT_TRUE(CrtDb(source).insert(ByteView(makeCert({.subject = {{"CN", "U" + std::to_string(i)}}}).der)));
    ASSERT_EQ(source.insertCrl(crl, true), CrlInsert::Stored);
    ASSERT_TRUE(source.setLastImportNr("s", 7) && source.setLastImportNr("t", 2) && server.setLastImportNr("t", 5));
    CrtItemList wanted, found;
    ASSERT_TRUE(source.readForward(0, SIZE_MAX, wanted));
    for (size_t i = 0; i < 5; ++i) ASSERT_TRUE(CrtDb(server).insert(ByteView(wanted[i].der)));

    EXPECT_EQ(copyDatabase(*from, *over, {.dryRun = true}, nullptr).certificates.stored, 20U);
    DbCopied done = copyDatabase(*from, *over, {}, nullptr);
    EXPECT_EQ(done.certificates.stored, 15U);
    EXPECT_EQ(done.certificates.present, 5U);
    EXPECT_EQ(done.crls, 1U);
    EXPECT_EQ(done.servers, 1U) << "of the other the target knows more";
    done = copyDatabase(*over, *to, {}, nullptr);
    EXPECT_EQ(done.certificates.stored, 20U);
    EXPECT_EQ(copyDatabase(*over, *to, {}, nullptr).certificates.present, 20U);
    EXPECT_THROW(copyDatabase(*over, *over, {}, nullptr), OpError);

    ASSERT_TRUE(memory.readForward(0, SIZE_MAX, found));
    ASSERT_EQ(found.size(), wanted.size());
    for (size_t i = 0; i < found.size(); ++i) EXPECT_EQ(found[i].der, wanted[i].der);
    CrlIndex index;
    std::vector<Bytes> crls;
    long number = 0;
    EXPECT_TRUE(memory.getCrlIndex(index) && memory.getAllCrls(crls) && memory.getLastImportNr("t", number));
    EXPECT_EQ(crls, std::vector<Bytes>{crl});
    EXPECT_TRUE(index.size() == 1 && index[0].isVerified());
    EXPECT_EQ(number, 5);

    PgServer::shared().sql(connection, "UPDATE corvane.crl SET der = der || '\\x00'");
    EXPECT_EQ(copyDatabase(*over, *to, {}, nullptr).crlsLeftOut, 1U);
    PgServer::shared().sql(connection, "ALTER TABLE corvane.crl RENAME der TO gone");
    EXPECT_THROW(copyDatabase(*over, *to, {}, nullptr), OpError) << "a list that cannot be read is not passed over";

    // More than one batch: the source is free while the target stores, even to be compacted.
    std::vector<Bytes> many;
    for (size_t i = 0; i < 3000; ++i) {
        many.push_back(wanted[i % 20].der);
        many.back().back() ^= static_cast<uint8_t>(1 + i / 20);
    }
    size_t at = 0;
    ImportProgress imported;
    ASSERT_TRUE(CrtDb(source).insertMany([&](ByteView& der) { return at < many.size() && (der = many[at++], true); },
                                         nullptr, nullptr, imported));
    bool compacted = false;
    const auto compact = [&](const DbCopied&) {
        CrtStore::Removed removed;
        const auto some = [&](ByteView der) { return std::ranges::equal(der, many[7]); };
        EXPECT_TRUE(std::exchange(compacted, true) || source.removeCerts(some, removed)) << source.lastFailure();
    };
    copyDatabase(*from, *to, {}, compact);
    size_t count = 0;
    EXPECT_TRUE(memory.countCerts(count));
    EXPECT_EQ(count, 3020U);

    // Cut off behind the first batch, it goes on behind what is there; one database under two names is refused.
    PgServer::shared().sql(connection,
                           "TRUNCATE corvane.crt, corvane.dn_field, corvane.crl; "
                           "ALTER TABLE corvane.crl RENAME gone TO der");
    const auto cut = [](const DbCopied&) { throw OpStopped(); };
    EXPECT_THROW(copyDatabase(*from, *over, {}, cut), OpStopped);
    ASSERT_TRUE(server.countCerts(count) && count > 0 && count < 3019);
    DbCopied last;
    done = copyDatabase(*from, *over, {}, [&](const DbCopied& now) { last = now; });
    EXPECT_EQ(done.certificates.present, count);
    EXPECT_EQ(done.certificates.stored, 3019 - count);
    EXPECT_EQ(last.certificatesThere, 3019U);
    EXPECT_EQ(last.crlsThere, 1U);
    EXPECT_EQ(last.crlsHandled(), 1U) << "what is shown last is all";
    writeFile(list, text + "\\D\\Type [l] = 1\n\\D\\dbtype [s] = \"postgresql\"\n\\D\\dbname [s] = \"" + connection +
                        " connect_timeout=5\"\n");
    try {
        copyDatabase(*over, *profile("D"), {}, nullptr);
        ADD_FAILURE() << "one database under two names";
    } catch (const OpError& error) {
        EXPECT_EQ(error.fault(), OpFault::SameDatabase);
    }
}

}  // namespace
}  // namespace crv::test
