#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "db/database.h"
#include "db_sql/db_crl_files.h"
#include "db_sql/db_crv.h"
#include "misc/no_oop.h"
#include "support/faulty_file_ops.h"
#include "support/temp_dir.h"

using namespace crv;
using namespace crv::test;
namespace fs = std::filesystem;

namespace {

constexpr int certificates = 40;

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
        for (int i = 0; i < certificates; ++i) {
            const int64_t id = put(crt, {std::to_string(i), "", "subject\n\\"}, std::string(100 + i, 'c'));
            put(dn, {recNoEncode(id), "nName"}, "");
            if (i % 4 == 0) put(ca, {recNoEncode(id)}, "");
            put(addIdx, {recNoEncode(id), "k" + std::to_string(i), "h"}, "");
        }
        CrlFileGuard(path + "/").write(1, asBytes("index"), asBytes("crl"));
    }
    static int64_t put(DataBase& table, const std::vector<std::string>& keys, const std::string& body) {
        int64_t recNo = 0;
        const std::vector<std::string_view> views(keys.begin(), keys.end());
        EXPECT_EQ(table.insert(views, asBytes(body), recNo), dbOk);
        return recNo;
    }
    std::string file(const std::string& name) const { return path + "/" + name; }
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
    const std::string stat = run("stat " + path);
    EXPECT_NE(stat.find("certific: 40 live, 0 deleted, 40 insertions, data "), std::string::npos) << stat;
    EXPECT_NE(
        stat.find("  index 1: 2 pages, 1 levels") == std::string::npos ? stat.find("  index 1: 3 pages, 2 levels") : 0,
        std::string::npos)
        << stat;
    const std::string dump = run("dump " + path + " certific");
    EXPECT_EQ(
        dump.rfind("0 00000038 live length 100 of 100\n  key 0: 0\n  key 1: \n  key 2: subject\\x0A\\x5C\n  body: 6363",
                   0),
        0U)
        << dump;
    EXPECT_EQ(run("repair " + path).substr(0, 2), "0 ");
    EXPECT_EQ(run("stat " + path).substr(0, 40), stat.substr(0, 40));
    EXPECT_EQ(run("dump " + path + " certific"), dump);
}

TEST_F(Crvdb, WrongCallsAndPlacesAreNotUsable) {
    for (const std::string& call :
         {std::string(), std::string("check"), "check " + dir.file("none"), "check " + dir.path().string(),
          "dump " + path + " nothing", "repair " + dir.file("none"), "forget " + path}) {
        EXPECT_EQ(run(call).substr(0, 2), "2 ") << call;
    }
    EXPECT_FALSE(fs::exists(dir.file("none")));
    EXPECT_EQ(run("--help").substr(0, 7), "0 usage");
}

void overwrite(const std::string& path, std::streamoff at, const std::string& octets) {
    std::fstream out(path, std::ios::in | std::ios::out | std::ios::binary);
    out.seekp(at);
    out << octets;
}

TEST_F(Crvdb, DamageIsNamedAndRepaired) {
    struct Row {
        const char* what;
        std::function<void()> damage;
        const char* said;
        bool repaired = true;
    };
    const auto change = [&](const char* name, std::streamoff at, const std::string& octets) {
        overwrite(file(name), at, octets);
    };
    const std::vector<Row> rows{
        {"mark", [&] { overwrite(file("db.lck"), 0, "CRVMARK2\n"); }, "a change was cut off"},
        {"index gone", [&] { fs::remove(file("certific.idx")); }, "certific.idx: missing"},
        {"index header", [&] { change("dnfld.idx", 16, "xx"); }, "dnfld: index file has a damaged header"},
        {"data header", [&] { change("addidx.dta", 0, "xx"); }, "addidx: data file has a damaged header"},
        {"record", [&] { change("certific.dta", 56 + 343 + 8, "xx"); }, "certific: data: no sound record at 399"},
        {"page", [&] { change("ca.idx", 2048, std::string(1, 3)); }, "ca: index 0: live record not reached"},
        {"reference", [&] { change("certific.dta", 56, std::string(1, 1)); },
         "dnfld: record without its certificate at 56"},
        {"table gone", [&] { fs::remove(file("ca.dta")); }, "ca.dta: missing"},
        {"CRL index", [&] { test::writeFile(file("crl_idx.asn"), "torn"); }, "crl_idx.asn: does not match its tag"},
        {"CRL", [&] { test::writeFile(file("1.crl"), "torn"); }, "1.crl: does not match its tag", false},
        {"version", [&] { test::writeFile(file("version.txt"), "6"); }, "version.txt: not the version \"7\""},
        {"imports", [&] { fs::remove(file("imports.dat")); }, "imports.dat: missing"}};
    fs::copy(path, dir.file("good"));
    for (const Row& row : rows) {
        fs::remove_all(path);
        fs::copy(dir.file("good"), path);
        row.damage();
        const std::string before = run("check " + path);
        EXPECT_EQ(before.substr(0, 2), "1 ") << row.what << before;
        EXPECT_NE(before.find(row.said), std::string::npos) << row.what << before;
        EXPECT_EQ(run("check " + path), before) << "a check changes nothing";
        const std::string repair = run("repair " + path);
        EXPECT_EQ(repair[0], row.repaired ? '0' : '1') << row.what << repair;
    }
}

TEST_F(Crvdb, CertificateWithoutItsIdentifiersIsNamed) {
    DataBase addIdx;
    ASSERT_EQ(addIdx.open(file("addidx")), dbOk);
    ASSERT_EQ(addIdx.remove(), dbOk);
    EXPECT_EQ(run("check " + path), "1 addidx: no record of the certificate at 56\n");
    EXPECT_EQ(run("repair " + path)[0], '1') << "what is no certificate has no identifiers to make anew";
}

}  // namespace
