#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>

#include "db/table_test_base.h"
#include "db_sql/crl_store.h"
#include "db_sql/crt_keys.h"
#include "db_sql/db_crv.h"
#include "db_sql/no_oop.h"
#include "support/cert_maker.h"
#include "support/faulty_file_ops.h"

using namespace crv;
using namespace crv::test;
using testing::AllOf, testing::ContainsRegex, testing::HasSubstr, testing::Not, testing::StartsWith;
namespace fs = std::filesystem;

namespace {

class Crvdb : public testing::Test {
  protected:
    Crvdb() {
        const ScopedFileOps fast(unsynced);
        DbCrv db;
        db.connect(path);
        db.create();
        DataBase crt, dn, ca, addIdx;
        EXPECT_TRUE(crt.open(file("certific")) && dn.open(file("dnfld")) && ca.open(file("ca")) &&
                    addIdx.open(file("addidx")));
        for (int i = 0; i < 40; ++i) {
            const std::string body(100 + i, 'c'), hash(asText(crtHash(asBytes(body))));
            const std::string id = recNoEncode(add(crt, {std::to_string(i), "", "subject\n\\"}, body));
            EXPECT_NE(add(dn, {id, "nName"}, ""), 0);
            EXPECT_TRUE(i % 4 != 0 || add(ca, {id}, "") != 0);
            EXPECT_NE(add(addIdx, {id, "k" + std::to_string(i), hash}, ""), 0);
        }
        const MadeCert issuer = makeCert({.subject = {{"CN", "A"}}, .extensions = caExtensions()});
        DbLock lock(file("db.lck"));
        EXPECT_EQ(DbCrlCrv(path + "/", lock).insertCrl(makeCrl({}, issuer), true), CrlInsert::Stored);
    }
    std::string file(const std::string& name) const { return path + "/" + name; }
    void overwrite(const std::string& name, std::streamoff at, const std::string& octets) const {
        std::fstream out(file(name), std::ios::in | std::ios::out | std::ios::binary);
        out.seekp(at);
        out << octets;
    }
    /// Answers "<exit status> <output>".
    std::string run(const std::string& arguments) const {
        int status = -1;
        const std::string output = shell(CRV_BIN_DIR "/crvdb " + arguments, &status);
        return std::to_string(status) + " " + output;
    }

    FaultyFileOps unsynced;
    const TempDir dir;
    const std::string path = dir.file("db");
};

TEST_F(Crvdb, SoundDatabaseIsSoundAndStaysAsItIs) {
    EXPECT_EQ(run("check " + path), "0 sound\n");
    const std::string stat = run("stat " + path), dump = run("dump " + path + " certific");
    EXPECT_THAT(stat, HasSubstr("certific: 40 live, 0 deleted, 40 insertions, data "));
    EXPECT_THAT(stat, ContainsRegex("  index 1: (2 pages, 1|3 pages, 2) levels"));
    EXPECT_THAT(dump, StartsWith("0 00000038 live length 100 of 100\n  key 0: 0\n  key 1: \n"
                                 "  key 2: subject\\x0A\\x5C\n  body: 6363"));
    EXPECT_THAT(run("repair " + path), StartsWith("0 "));
    EXPECT_EQ(run("stat " + path).substr(0, 40), stat.substr(0, 40));
    EXPECT_EQ(run("dump " + path + " certific"), dump);
}

TEST_F(Crvdb, WrongCallsAndPlacesAreNotUsable) {
    const std::string none = dir.file("none");
    for (const std::string& call :
         {std::string(), std::string("check"), "check " + none, "check " + dir.path().string(),
          "dump " + path + " nothing", "repair " + none, "forget " + path}) {
        EXPECT_THAT(run(call), StartsWith("2 ")) << call;
    }
    EXPECT_FALSE(fs::exists(none));
    EXPECT_THAT(run("--help"), StartsWith("0 usage"));
    EXPECT_THAT(run("-V"), StartsWith("0 crvdb "));
}

TEST_F(Crvdb, DamageIsNamedAndRepaired) {
    constexpr int kWhole = -1;
    struct Row {
        const char* name;
        int at;              // where the octets are written over the old ones, or the whole file when negative
        std::string octets;  // none: the file is gone
        const char* said;
    };
    const Row rows[] = {
        {"db.lck", 0, "CRVMARK2\n", "a change was cut off"},
        {"certific.idx", kWhole, "", "certific.idx: missing"},
        {"dnfld.idx", 16, "xx", "dnfld: index file has a damaged header"},
        {"addidx.dta", 0, "xx", "addidx: data file has a damaged header"},
        {"ca.dta", 10, "\x12", "ca: data file has a damaged header"},
        {"certific.dta", 56 + 343 + 8, "xx", "certific: data: no sound record at 399"},
        {"certific.dta", 56, "\x40", "certific: data: odd mark of deletion at 56"},
        {"certific.dta", 56 + 343 + 26, "\x20", "certific: data: no sound record at"},
        {"certific.idx", 1000, "x", "certific: index: octets in the header that are not in use"},
        {"addidx.idx", 2048 + 4095, "x", "addidx: index 0: octets that are not in use at 2048"},
        {"ca.idx", 2048, "\3", "ca: index 0: live record not reached"},
        {"certific.dta", 56, "\1", "dnfld: record without its certificate at 56"},
        {"ca.dta", kWhole, "", "ca.dta: missing"},
        {"crl_idx.asn", kWhole, "torn", "crl_idx.asn: does not match its tag"},
        {"1.crl", kWhole, "torn", "1.crl: does not match its tag"},
        {"1.crl", 60, "x", "1.crl: not the CRL that the index names"},
        {"1.crl", kWhole, "", "1.crl: missing"},
        {"crl_idx.asn", kWhole, "", "crl_idx.asn: "},
        {"7.crl", kWhole, "foreign", "7.crl: not in the index"},
        {"version.txt", kWhole, "6", "version.txt: not the version \"7\""},
        {"imports.dat", kWhole, "", "imports.dat: missing"},
    };
    fs::copy(path, dir.file("good"));
    for (const Row& row : rows) {
        SCOPED_TRACE(row.said);
        fs::remove_all(path);
        fs::copy(dir.file("good"), path);
        if (row.at == kWhole) fs::remove(file(row.name));
        if (row.at == kWhole && !row.octets.empty()) test::writeFile(file(row.name), row.octets);
        if (row.at != kWhole) overwrite(row.name, row.at, row.octets);
        const std::string before = run("check " + path);
        EXPECT_THAT(before, AllOf(StartsWith("1 "), HasSubstr(row.said)));
        EXPECT_EQ(run("check " + path), before) << "a check changes nothing";
        EXPECT_THAT(run("repair " + path), StartsWith("0"));
    }
}

TEST_F(Crvdb, ManyFaultsOfOneKindAreCounted) {
    for (int i = 100; i < 125; ++i) test::writeFile(file(std::to_string(i) + ".crl"), "foreign");
    EXPECT_THAT(run("check " + path), AllOf(HasSubstr("119.crl: has no tag\n"), Not(HasSubstr("120.crl")),
                                            HasSubstr(".crl: and 5 more: not in the index\n")));
}

TEST_F(Crvdb, CertificateWithoutItsIdentifiersIsNamed) {
    DataBase addIdx;
    ASSERT_EQ(addIdx.open(file("addidx")), kDbOk);
    ASSERT_EQ(addIdx.remove(), kDbOk);
    EXPECT_EQ(run("check " + path), "1 addidx: no record of the certificate at 56\n");
    EXPECT_THAT(run("repair " + path), AllOf(StartsWith("0"), HasSubstr("neither read nor found")))
        << "what is no certificate has no identifiers to make anew";
}

}  // namespace
