#include "db_sql/db_crl_files.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>

#include "db_sql/crl_store.h"
#include "support/cert_maker.h"
#include "support/faulty_file_ops.h"
#include "support/message_of.h"
#include "support/temp_dir.h"

using namespace crv;
using namespace crv::test;

namespace {

constexpr const char* kCrlText = "Naruszona integralność bazy CRL (plik CRL). Wykonano operację restore";
constexpr const char* kIndexText = "Naruszona integralność bazy CRL (plik indeksu CRL-i). Wykonano operację restore";

Bytes crlOf(const char* issuer, long number = 1) {
    static std::map<std::string, MadeCert> issuers;
    auto& made = issuers[issuer];
    if (made.der.empty()) made = makeCert({.subject = {{"CN", issuer}}, .extensions = caExtensions()});
    return makeCrl({.number = number, .nextUpdate = number * kDay}, made);
}

class CrlFiles : public testing::Test {
  protected:
    CrlFiles() {
        lock.setMender([this](DbMark mark, const auto&) {
            return mark == DbMark::ChangingCrls && messageOf([this] { guard.mend(); }).empty();
        });
        begin();
    }
    void begin() {
        for (const auto& entry : std::filesystem::directory_iterator(dir.path())) std::filesystem::remove(entry);
        guard.create();
        EXPECT_EQ(insert(a), "stored");
        EXPECT_EQ(insert(b), "stored");
    }
    std::string file(const std::string& name) const { return dir.file(name); }
    std::string insert(const Bytes& crl, bool verified = true) {
        static const char* const kAnswers[] = {"stored", "present", "older"};
        std::string answer;
        const std::string failure =
            messageOf([&] { answer = kAnswers[static_cast<int>(store.insertCrl(crl, verified))]; });
        return failure + answer;
    }
    std::vector<Bytes> stored() {
        std::vector<Bytes> list;
        store.getAllCrls(list);
        return list;
    }

    FaultyFileOps unsynced;
    const ScopedFileOps fast{unsynced};
    const TempDir dir;
    const std::string path = dir.path().string() + "/";
    CrlFileGuard guard{path};
    DbLock lock{path + "db.lck"};
    DbCrlCrv store{path, lock};
    const Bytes a = crlOf("A"), b = crlOf("B"), c = crlOf("C");
};

TEST(IntegrityTag, LengthAndLastFourOctets) {
    EXPECT_EQ(makeDataForIntChk(asBytes("abcdefg")), (Bytes{0, 0, 0, 7, 'd', 'e', 'f', 'g'}));
    EXPECT_EQ(makeDataForIntChk(asBytes("ab")), (Bytes{0, 0, 0, 2, 'a', 'b', 0, 0}));
    EXPECT_EQ(makeDataForIntChk({}), Bytes(8));
}

TEST(IntegrityTag, AnswersOfTheCheck) {
    const TempDir dir;
    const std::string file = dir.file("f"), tag = dir.file("t"), right("\0\0\0\5bcde", 8);
    EXPECT_EQ(checkIntegrity(file, tag), Integrity::NoTag) << "no tag";
    test::writeFile(tag, right);
    EXPECT_EQ(checkIntegrity(file, tag), Integrity::Broken) << "no file";
    for (const auto& [content, answer] : {std::pair{"abcdf", false},
                                          {"xbcde", true},
                                          {"aabcde", false},
                                          {"bcde", false},
                                          {"", false},
                                          {"abcde", true}}) {
        test::writeFile(file, content);
        EXPECT_EQ(checkIntegrity(file, tag) == Integrity::Sound, answer) << content;
    }
    for (const size_t size : {0, 7, 9, 100}) {
        test::writeFile(tag, (right + std::string(100, 'x')).substr(0, size));
        EXPECT_EQ(checkIntegrity(file, tag), Integrity::Broken) << size;
    }
    EXPECT_EQ(checkIntegrity(file, dir.path()), Integrity::NoTag);
}

TEST_F(CrlFiles, WritesEachWithItsTag) {
    EXPECT_EQ(guard.checkCrl(2), Integrity::Sound);
    EXPECT_EQ(guard.readCrl(1), a);
    EXPECT_EQ(guard.checkIndex(), Integrity::Sound);
    CrlIndex copy;
    EXPECT_TRUE(parseCrlIndex(toBytes(asBytes(test::readFile(file("crl_idx.asn.bak")))), copy));
    EXPECT_EQ(copy.size(), 2U);
    EXPECT_FALSE(std::filesystem::exists(file("crl_rollback_log.txt")));
    EXPECT_EQ(test::readFile(file("db.lck")).substr(0, 8), "CRVMARK0");
}

TEST_F(CrlFiles, AFolderThatCannotBeListedCostsNoList) {
    struct : FaultyFileOps {
        int list(const std::string& /*folder*/, std::vector<std::string>& /*names*/) override {
            errno = EIO;
            return -1;
        }
    } unlisted;
    {
        const ScopedFileOps use(unlisted);
        EXPECT_THROW(static_cast<void>(guard.mend()), StoreError);
    }
    EXPECT_EQ(stored(), (std::vector{a, b}));
}

TEST_F(CrlFiles, DamageIsToldOnceAndCostsTheDamagedListOnly) {
    struct Row {
        const char* what;
        std::vector<std::string> damaged;
        const char* said;
        std::vector<Bytes> left;
    };
    for (const Row& row : {Row{"CRL", {"2.crl"}, kCrlText, {a}},
                           {"tag", {"2.chk"}, kCrlText, {a, b}},
                           {"earlier CRL", {"1.crl"}, "stored", {b, c}},
                           {"index", {"crl_idx.asn"}, kIndexText, {a, b}},
                           {"index and its copy", {"crl_idx.asn", "crl_idx.asn.bak"}, kIndexText, {a, b}},
                           {"everything", {"crl_idx.asn", "crl_idx.asn.bak", "1.crl", "2.crl"}, kIndexText, {}}}) {
        SCOPED_TRACE(row.what);
        begin();
        for (const std::string& name : row.damaged) test::writeFile(file(name), "damaged " + name);
        EXPECT_EQ(insert(c), row.said);
        EXPECT_EQ(stored(), row.left);
        if (row.said == std::string("stored")) continue;
        EXPECT_EQ(test::readFile(file("crl_rollback_log.txt")).substr(0, 18), "rollback crlNUm = ");
        EXPECT_EQ(insert(c), "stored") << "said once";
        EXPECT_EQ(stored().size(), row.left.size() + 1);
        EXPECT_EQ(guard.mend(), std::vector<std::string>()) << "nothing left to mend";
    }
}

TEST_F(CrlFiles, ADamagedIndexIsTakenBackAndForgetsNoVerifiedList) {
    const Bytes forged = crlOf("B", 65535);
    const std::string index = test::readFile(file("crl_idx.asn"));
    for (const std::string& damaged : {index + "x", index.substr(0, 9), index.substr(0, index.size() - 1) + "x"}) {
        begin();
        test::writeFile(file("crl_idx.asn"), damaged);
        EXPECT_EQ(stored(), (std::vector{a, b}));
        EXPECT_EQ(guard.checkIndex(), Integrity::Sound);
        EXPECT_EQ(insert(forged, false), "stored");
        EXPECT_EQ(stored(), (std::vector{a, b, forged})) << "no list takes the place of one that verified";
    }
}

TEST_F(CrlFiles, AListThatDidNotVerifyNeverReplacesOneThatDid) {
    const Bytes forged = crlOf("A", 65535), newer = crlOf("A", 7);
    EXPECT_EQ(insert(forged, false), "stored");
    EXPECT_EQ(stored(), (std::vector{a, b, forged}));
    EXPECT_EQ(insert(crlOf("A", 3), false), "older") << "among its like it counts";
    EXPECT_EQ(insert(newer), "stored");
    EXPECT_EQ(stored(), (std::vector{newer, b, forged}));
    EXPECT_EQ(insert(newer, false), "present");
    CrlIndex index;
    store.getCrlIndex(index);
    EXPECT_TRUE(index[0].isVerified());
    EXPECT_FALSE(index[2].isVerified());
    EXPECT_EQ(insert(forged), "stored") << "its issuer is known by now";
    EXPECT_EQ(stored(), (std::vector{forged, b}));
    EXPECT_TRUE(store.deleteCrl(2));
    EXPECT_FALSE(store.deleteCrl(2));
    EXPECT_EQ(stored(), (std::vector<Bytes>{forged}));
    EXPECT_EQ(guard.numbers(), std::vector<long>{1});
}

TEST_F(CrlFiles, EveryStopOfAChangeIsMended) {
    const Bytes newer = crlOf("A", 2);
    bool finished = false;
    for (int n = 0; !finished && !HasFailure(); ++n) {
        SCOPED_TRACE(n);
        begin();
        FaultyFileOps dying;
        dying.changesLeft = n;
        bool inserted = false, erased = false;
        {
            const ScopedFileOps use(dying);
            inserted = insert(newer) == "stored" && insert(c) == "stored";
            erased = messageOf([&] { static_cast<void>(store.deleteCrl(2)); }).empty();
        }
        const std::vector<Bytes> left = stored();
        const auto holds = [&](const Bytes& crl) { return std::ranges::find(left, crl) != left.end(); };
        EXPECT_NE(holds(a), holds(newer));
        EXPECT_TRUE(!inserted || holds(c));
        EXPECT_TRUE(erased ? !holds(b) : inserted || holds(b));
        EXPECT_EQ(guard.mend(), std::vector<std::string>());
        finished = dying.changesLeft > 0;
        EXPECT_TRUE(!finished || erased);
    }
}

}  // namespace
