#include "db_sql/db_crl_files.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "support/message_of.h"
#include "support/temp_dir.h"

using namespace crv;
using namespace crv::test;

namespace {

constexpr const char* kCrlText = "Naruszona integralność bazy CRL (plik CRL). Wykonano operację restore";
constexpr const char* kIndexText = "Naruszona integralność bazy CRL (plik indeksu CRL-i). Wykonano operację restore";

class CrlFiles : public testing::Test {
  protected:
    CrlFiles() { begin(); }
    void begin() {
        for (const auto& entry : std::filesystem::directory_iterator(dir.path())) std::filesystem::remove(entry);
        guard.create();
        guard.write(1, asBytes("index of 1"), asBytes("first crl"));
        guard.write(2, asBytes("index of 1 and 2"), asBytes("second crl"));
    }
    std::string file(const std::string& name) const { return dir.file(name); }
    std::string writing(long n) {
        return messageOf([&] { guard.write(n, asBytes("index of 3"), asBytes("crl")); });
    }

    const TempDir dir;
    CrlFileGuard guard{dir.path().string() + "/"};
};

TEST(IntegrityTag, LengthAndLastFourOctets) {
    EXPECT_EQ(makeDataForIntChk(asBytes("abcdefg")), (Bytes{0, 0, 0, 7, 'd', 'e', 'f', 'g'}));
    EXPECT_EQ(makeDataForIntChk(asBytes("ab")), (Bytes{0, 0, 0, 2, 'a', 'b', 0, 0}));
    EXPECT_EQ(makeDataForIntChk({}), Bytes(8));
}

TEST(IntegrityTag, AnswersOfTheCheck) {
    const TempDir dir;
    const std::string file = dir.file("f"), tag = dir.file("t"), right("\0\0\0\5bcde", 8);
    EXPECT_EQ(checkIntegrity(file, tag), 2) << "no tag";
    test::writeFile(tag, right);
    EXPECT_EQ(checkIntegrity(file, tag), 1) << "no file";
    for (const auto& [content, answer] :
         {std::pair{"abcdf", 1}, {"xbcde", 0}, {"aabcde", 1}, {"bcde", 1}, {"", 1}, {"abcde", 0}}) {
        test::writeFile(file, content);
        EXPECT_EQ(checkIntegrity(file, tag), answer) << content;
    }
    for (const size_t size : {0, 7, 9, 100}) {
        test::writeFile(tag, (right + std::string(100, 'x')).substr(0, size));
        EXPECT_EQ(checkIntegrity(file, tag), 1) << size;
    }
    EXPECT_EQ(checkIntegrity(file, dir.path()), 2);
}

TEST_F(CrlFiles, WritesEachWithItsTag) {
    EXPECT_EQ(test::readFile(file("2.crl")), "second crl");
    EXPECT_EQ(guard.checkCrl(2), 0);
    EXPECT_EQ(guard.readCrl(1), toBytes(asBytes("first crl")));
    EXPECT_EQ(guard.checkIndex(), 0);
    EXPECT_EQ(guard.readIndex(), toBytes(asBytes("index of 1 and 2")));
    EXPECT_EQ(test::readFile(file("crl_idx.asn.bak")), "index of 1");
    EXPECT_FALSE(std::filesystem::exists(file("crl_rollback_log.txt")));
}

TEST_F(CrlFiles, DamageIsToldAndLeadsBackToTheIndexBeforeIt) {
    struct Row {
        const char* what;
        std::vector<std::string> damaged;
        const char* said;
        std::string index;  // afterwards
    };
    for (const Row& row :
         {Row{"CRL", {"2.crl"}, kCrlText, "index of 1"},
          {"index", {"crl_idx.asn"}, kIndexText, "index of 1"},
          {"index and its copy", {"crl_idx.asn", "crl_idx.asn.bak"}, kIndexText, "damaged crl_idx.asn"},
          {"CRL without a tag: the index is not looked at", {"crl_idx.asn", "2.chk"}, "", "index of 3"}}) {
        SCOPED_TRACE(row.what);
        begin();
        for (const std::string& name : row.damaged) test::writeFile(file(name), "damaged " + name);
        if (row.damaged.back() == "2.chk") std::filesystem::remove(file("2.chk"));
        EXPECT_EQ(writing(3), row.said);
        EXPECT_EQ(test::readFile(file("crl_idx.asn")), row.index);
        EXPECT_EQ(std::filesystem::exists(file("3.crl")), row.index == "index of 3");
        if (row.index != "index of 1") continue;
        EXPECT_EQ(guard.checkIndex(), 0);
        EXPECT_EQ(test::readFile(file("crl_rollback_log.txt")).substr(0, 20), "rollback crlNUm = 3 ");
        EXPECT_EQ(writing(2), "") << "the number before is free again";
        EXPECT_EQ(test::readFile(file("2.crl")), "crl");
    }
}

}  // namespace
