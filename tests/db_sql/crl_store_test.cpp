// The CRL store of every kind, through the manager: which CRL takes the place of which.
#include <gtest/gtest.h>

#include <climits>

#include "db_sql/db_manager.h"
#include "support/cert_maker.h"
#include "support/pg_server.h"

using namespace crv;
using namespace crv::test;

namespace {

struct CrlDatabase {
    explicit CrlDatabase(std::string_view kind) {
        DbConfig config;
        config.setType(std::string(kind));
        config.db = dir.file("base");
        config.dbName = kind == kDbKindPg ? PgServer::shared().newDatabase() : dir.path().string();
        for (DbManager* one : {&manager, &other}) one->init(config);
        EXPECT_TRUE(manager.createDb()) << manager.lastFailure();
    }
    std::vector<Bytes> stored() {
        std::vector<Bytes> list;
        EXPECT_TRUE(other.getAllCrls(list)) << other.lastFailure();
        return list;
    }

    const TempDir dir;
    DbManager manager, other;
};

void expectCrlsAreJudged(std::string_view kind) {
    CrlDatabase database(kind);
    DbManager &manager = database.manager, &other = database.other;
    const auto stored = [&] { return database.stored(); };
    const MadeCert a = makeCert({.subject = {{"CN", "A"}}, .extensions = caExtensions()}),
                   b = makeCert({.subject = {{"CN", "B"}}, .extensions = caExtensions()}),
                   otherKey = makeCert({.subject = {{"CN", "A"}}, .extensions = caExtensions()});
    const struct {
        CrlPlan plan;
        const MadeCert& issuer;
        bool verified;
        CrlInsert answer;
        std::vector<size_t> left;  ///< rows whose CRLs are stored now
    } rows[] = {{{.number = 5}, a, true, CrlInsert::Stored, {0}},
                {{.number = 3}, a, true, CrlInsert::Older, {0}},
                {{.number = 1}, b, true, CrlInsert::Stored, {0, 2}},
                {{.number = 6, .base = 5}, a, true, CrlInsert::Stored, {0, 2, 3}},
                {{.number = 9}, a, false, CrlInsert::Stored, {0, 2, 3, 4}},
                {{.number = 8}, a, false, CrlInsert::Older, {0, 2, 3, 4}},
                {{.number = 7}, a, true, CrlInsert::Stored, {6, 2, 3, 4}},
                {{.number = 1}, otherKey, true, CrlInsert::Stored, {6, 2, 3, 4, 7}},
                {{.number = 7, .base = 5}, a, true, CrlInsert::Stored, {6, 2, 8, 4, 7}}};
    std::vector<Bytes> made;
    for (const auto& row : rows) {
        SCOPED_TRACE(made.size());
        made.push_back(makeCrl(row.plan, row.issuer));
        EXPECT_EQ(manager.insertCrl(made.back(), row.verified), row.answer) << manager.lastFailure();
        std::vector<Bytes> left;
        for (const size_t one : row.left) left.push_back(made[one]);
        EXPECT_EQ(stored(), left);
        EXPECT_EQ(manager.insertCrl(left.front(), true), CrlInsert::Present);
    }
    EXPECT_EQ(manager.insertCrl(asBytes("to nie lista"), true), CrlInsert::Malformed);

    CrlIndex index;
    Bytes der;
    ASSERT_TRUE(manager.getCrlIndex(index) && index.size() == 5);
    EXPECT_TRUE(index[0].isVerified() && index[2].isDelta() && !index[3].isVerified());
    EXPECT_TRUE(other.getCrlByFileNum(index[1].fileNumber(), der));
    EXPECT_EQ(der, made[2]);
    EXPECT_TRUE(manager.deleteCrl(index[1].fileNumber()));
    for (const long number : {index[1].fileNumber(), 0L, -1L, LONG_MAX}) {
        EXPECT_FALSE(other.getCrlByFileNum(number, der));
        EXPECT_EQ(other.lastCause(), StoreCause::NotFound);
        EXPECT_FALSE(manager.deleteCrl(number));
    }
    EXPECT_EQ(stored(), (std::vector{made[6], made[8], made[4], made[7]}));
    EXPECT_EQ(manager.insertCrl(made[2], true), CrlInsert::Stored);
    EXPECT_EQ(stored().size(), 5U);
}

TEST(CrlStores, ACrlIsJudgedAgainstItsLikeAndTakesTheirPlace) {
    for (const std::string_view kind : {kDbKindFile, std::string_view("w pamieci"), kDbKindPg}) {
        SCOPED_TRACE(kind);
        expectCrlsAreJudged(kind);
    }
}

}  // namespace
