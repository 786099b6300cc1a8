#include "db_sql/db_crv.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>

#include "db/table_rebuild.h"
#include "db/table_test_base.h"
#include "db_sql/no_oop.h"
#include "misc/exceptions.h"
#include "support/faulty_file_ops.h"
#include "support/message_of.h"

using namespace crv;
using namespace crv::test;
namespace fs = std::filesystem;

namespace {

class DbCrvTest : public testing::Test {
  protected:
    DbCrvTest() { db.connect(path); }
    std::string file(const std::string& name) const { return path + "/" + name; }
    void setMark(char mark, const std::string& names = "") {
        test::writeFile(file("db.lck"), "CRVMARK" + (mark + names) + "\n");
    }
    bool isComplete() { return db.isDbCreated() == DbState::Complete; }

    FaultyFileOps unsynced;
    const ScopedFileOps fast{unsynced};
    const TempDir dir;
    const std::string path = dir.file("deep/base");
    DbCrv db;
};

TEST_F(DbCrvTest, StateIsReadFromTheFiles) {
    EXPECT_EQ(db.isDbCreated(), DbState::Missing);
    db.create();
    EXPECT_TRUE(isComplete());
    EXPECT_EQ(test::readFile(file("version.txt")), "7");
    EXPECT_EQ(test::readFile(file("crl_idx.asn")), std::string("0\0", 2));
    EXPECT_NO_THROW(db.create()) << "nothing to do";
    struct Row {
        const char* version;
        std::vector<const char*> removed;
        DbState state;
    };
    for (const Row& row :
         {Row{"7\n", {}, DbState::OtherVersion},
          {"", {}, DbState::OtherVersion},
          {"6", {}, DbState::OtherVersion},
          {"7", {"imports.dat"}, DbState::Incomplete},
          {"7", {"version.txt"}, DbState::Incomplete},
          {"7", {"version.txt", "addidx.dta", "addidx.idx", "imports.dat", "crl_idx.asn"}, DbState::OtherVersion}}) {
        fs::remove_all(path);
        db.create();
        test::writeFile(file("version.txt"), row.version);
        for (const char* name : row.removed) fs::remove(file(name));
        EXPECT_EQ(db.isDbCreated(), row.state) << row.version << row.removed.size();
        EXPECT_EQ(db.getFilesCount(), 11 - static_cast<int>(row.removed.size()));
    }
    EXPECT_THROW(db.create(), StoreError) << "never over files that are there";
    EXPECT_TRUE(fs::exists(file("certific.dta")));
}

TEST_F(DbCrvTest, WhatCannotBeReachedIsNotMissing) {
    db.create();
    for (const std::string& denied : {file("ca.idx"), path + "/"}) {
        unsynced.deniedPath = denied;
        EXPECT_EQ(db.isDbCreated(), DbState::NoAccess) << denied;
    }
    std::string directory;
    EXPECT_TRUE(buildDBDirectory(std::string(254, 'x'), directory));
    EXPECT_FALSE(buildDBDirectory(std::string(255, 'x'), directory));
    EXPECT_EQ(messageOf([] { DbCrv().connect(""); }), "DbCrv::connect. Blad wywolania funkcji: buildDBDirectory");
}

TEST_F(DbCrvTest, CreationThatFailsOrStopsCountsAsMissingAndCanBeRepeated) {
    for (int64_t room = 8; !isComplete(); room += 1900) {
        ASSERT_LT(room, 100000);
        unsynced.room = room;
        const bool created = messageOf([&] { db.create(); }).empty();
        EXPECT_EQ(db.isDbCreated(), created ? DbState::Complete : DbState::Missing) << room;
        EXPECT_EQ(fs::exists(path), created) << room;
    }
    unsynced.room = FaultyFileOps::kNever;
    bool finished = false;
    for (int n = 0; !finished; ++n) {
        fs::remove_all(dir.file("deep"));
        FaultyFileOps dying;
        dying.changesLeft = n;
        {
            const ScopedFileOps use(dying);
            DbCrv died;
            died.connect(path);
            (void)messageOf([&] { died.create(); });
        }
        EXPECT_TRUE(isComplete() || db.isDbCreated() == DbState::Missing) << n;
        db.create();
        EXPECT_TRUE(isComplete()) << n;
        finished = dying.changesLeft > 0;
        EXPECT_TRUE(!finished || n > 20);
    }
}

TEST_F(DbCrvTest, CopyHoldsEveryFileOfTheList) {
    db.create();
    test::writeFile(file("imports.dat"), "7 ldap\n");
    db.copyDb(dir.file("copy/there"));
    db.copyDb(path);
    for (const std::string_view name : DbCrv::m_dbFileNames) {
        EXPECT_EQ(test::readFile(dir.file("copy/there/" + std::string(name))), test::readFile(file(std::string(name))));
    }
    EXPECT_FALSE(fs::exists(dir.file("copy/there/db.lck")));
    fs::remove(file("imports.dat"));
    EXPECT_THROW(db.copyDb(dir.file("copy2")), StoreError);
}

TEST_F(DbCrvTest, MarkOfADeadWriterIsMendedBeforeAnybodyGoesOn) {
    db.create();
    DataBase crt, ca;
    ASSERT_EQ(crt.open(file("certific")), kDbOk);
    ASSERT_EQ(ca.open(file("ca")), kDbOk);
    const int64_t kept = add(crt, {"1", "", "2"}, "body"), gone = add(crt, {"3", "", "4"}, "body");
    for (const auto& key : {recNoEncode(kept), recNoEncode(gone), std::string("no number")}) add(ca, {key}, "");
    ASSERT_EQ(crt.setRec(gone), kDbOk);
    ASSERT_EQ(crt.remove(), kDbOk);
    crt.close(), ca.close();
    fs::resize_file(file("certific.idx"), 3000);
    test::writeFile(file("certifi#.idx"), "half made");
    test::writeFile(file("crl_idx.asn.bak"), std::string("0\0", 2));
    test::writeFile(file("crl_idx.asn"), "torn");
    int called = 0;
    db.setStoreMender([&] { return ++called == 2; });
    setMark('2');
    EXPECT_THROW((void)db.isDbCreated(), StoreError) << "not mended: nobody goes on";
    EXPECT_TRUE(isComplete());
    EXPECT_EQ(called, 2);
    EXPECT_TRUE(isComplete());
    EXPECT_EQ(called, 2) << "mended once";
    EXPECT_FALSE(fs::exists(file("certifi#.idx")));
    EXPECT_EQ(problemsOf(file("certific")), "");
    EXPECT_EQ(checkTable(file("ca")).live, 1);
    EXPECT_EQ(test::readFile(file("crl_idx.asn")), std::string("0\0", 2));
}

TEST_F(DbCrvTest, SwapIsFinishedForTheNamedTablesOnly) {
    db.create();
    for (const auto& [name, keys] :
         {std::pair<const char*, std::vector<std::string>>{"certific", {"1", "", "2"}}, {"dnfld", {"1", "x"}}}) {
        DataBase table;
        ASSERT_EQ(table.open(file(name)), kDbOk);
        ASSERT_NE(add(table, keys, "body"), 0);
        table.close();
        TableRebuild fresh(file(name));
        ASSERT_TRUE(fresh.begin() && fresh.finish());
        fresh.keep();
    }
    fs::rename(file("certifi#.idx"), file("certific.idx"));
    setMark('3', "certific/");
    EXPECT_TRUE(isComplete());
    EXPECT_EQ(checkTable(file("certific")).live, 0);
    EXPECT_EQ(problemsOf(file("certific")), "");
    EXPECT_EQ(checkTable(file("dnfld")).live, 1) << "a left-over of another time";
}

TEST_F(DbCrvTest, AFullDatabaseIsNoUnfinishedCreation) {
    db.create();
    EXPECT_EQ(fs::status(path).permissions(), fs::perms::owner_all);
    DataBase ca;
    ASSERT_EQ(ca.open(file("ca")), kDbOk);
    add(ca, {"no number"}, "");
    ca.close();
    for (const bool version : {true, false}) {
        if (!version) fs::remove(file("version.txt"));
        setMark('1');
        EXPECT_EQ(db.isDbCreated(), version ? DbState::Complete : DbState::Incomplete);
        EXPECT_TRUE(fs::exists(file("ca.dta")));
    }
}

TEST_F(DbCrvTest, AMarkThatWasCutOffSwapsNothing) {
    db.create();
    const std::string names = "certific/ca/\n";
    for (const auto& [octets, swapped] : {std::pair{names + names, true},
                                          {names, true},
                                          {names + "c", false},
                                          {names + "older names/\n", false},
                                          {std::string("certific/"), false}}) {
        TableRebuild fresh(file("certific"));
        ASSERT_TRUE(fresh.begin() && fresh.finish());
        fresh.keep();
        struct stat before {
        }, after{};
        ASSERT_EQ(::stat(file("certifi#.dta").c_str(), &before), 0);
        test::writeFile(file("db.lck"), "CRVMARK3" + octets);
        EXPECT_TRUE(isComplete());
        ASSERT_EQ(::stat(file("certific.dta").c_str(), &after), 0);
        EXPECT_EQ(before.st_ino == after.st_ino, swapped) << octets;
        EXPECT_FALSE(fs::exists(file("certifi#.dta")));
    }
}

TEST_F(DbCrvTest, LeftoversOfKilledProcessesGo) {
    db.create();
    const std::string dead = file(".crv-999999999-0.tmp"), young = file(".crv-999999998-0.tmp"),
                      alive = file(".crv-" + std::to_string(getpid()) + "-0.tmp"), other = file(".crv-x.tmp");
    for (const std::string& name : {dead, young, alive, other, file("c#.dta")}) test::writeFile(name, "x");
    for (const std::string& name : {dead, alive, other}) {
        fs::last_write_time(name, fs::file_time_type::clock::now() - std::chrono::hours(1));
    }
    EXPECT_TRUE(isComplete());
    EXPECT_FALSE(fs::exists(dead) || fs::exists(file("c#.dta")));
    EXPECT_TRUE(fs::exists(young) && fs::exists(alive) && fs::exists(other));
}

TEST_F(DbCrvTest, ReaderWithoutRightsSaysThatMendingIsNeeded) {
    db.create();
    unsynced.denyWriting = true;
    EXPECT_TRUE(isComplete());
    setMark('2');
    EXPECT_EQ(messageOf([&] { (void)db.isDbCreated(); }), "Baza danych wymaga naprawy: " + file("db.lck"));
}

TEST(DbLock, OnlyNestedLocksShareAndForeignContentIsNoMark) {
    const TempDir dir;
    test::writeFile(dir.file("l"), "something else that an old program wrote");
    DbLock lock(dir.file("l"));
    {
        const DbGuard outer(lock, kSharedLock);
        EXPECT_EQ(lock.acquire(kExclusiveLock), DbLock::Result::NotHad);
    }
    {
        const DbGuard outer(lock, kExclusiveLock);
        ASSERT_TRUE(lock.beginChange());
        { const DbGuard inner(lock, kSharedLock); }
        EXPECT_EQ(test::readFile(dir.file("l")).substr(0, 8), "CRVMARK2");
        lock.spoil();
    }
    EXPECT_EQ(lock.acquire(kSharedLock), DbLock::Result::NeedsMending) << "spoilt, and there is no mender";
    lock.setMender([&](DbMark, const auto&) { return lock.keepMark(), true; });
    {
        const DbGuard heir(lock, kExclusiveLock);
        EXPECT_EQ(test::readFile(dir.file("l")).substr(0, 8), "CRVMARK2") << "of the heir's change now";
        const DbChange cutOff(&lock);
    }
    lock.setMender([](DbMark mark, const auto&) { return mark == DbMark::Changing; });
    EXPECT_EQ(lock.acquire(kSharedLock), DbLock::Result::Ok);
    lock.release();
    EXPECT_EQ(test::readFile(dir.file("l")).substr(0, 8), "CRVMARK0");
}

TEST(DbKeys, OfDigestsAreNotHexadecimalButRecordNumbersAre) {
    const Bytes digest{0x0A, 0xFF, 0x30};
    EXPECT_EQ(codeDigest(digest), "0:??30");
    char small[5];
    EXPECT_EQ(messageOf([&] { codeDigest(digest.data(), 3, small, 5); }),
              "Assertion dstLen >= 2*digestLen failed in src/misc/no_oop");
    EXPECT_EQ(recNoEncode(56) + recNoEncode(0x123456789ABCL), "00000038123456789ABC");
    EXPECT_EQ(recNoDecode("00000038"), 56);
    EXPECT_EQ(recNoDecode("7fffffffffffffff"), INT64_MAX);
    for (const char* bad : {"8000000000000000", "fffffffffffffffff", "", "xyz", "-1"})
        EXPECT_FALSE(recNoDecode(bad)) << bad;
}

}  // namespace
