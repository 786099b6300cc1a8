// Which files an export refuses to go over.
#include "ops/file_guard.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "profiles/crv_profile.h"
#include "support/temp_dir.h"

namespace crv::test {
namespace {

class FileGuardTest : public testing::Test {
  protected:
    FileGuardTest() {
        setenv("HOME", dir.path().c_str(), 1);
        setenv("CRV_PROFILE_FILE", dir.file("srodowisko.conf").c_str(), 1);
        for (const auto& [list, name] : {std::pair{".crvprofiles.conf", "dom"},
                                         {".crvsignerprofiles.conf", "podpis"},
                                         {"srodowisko.conf", "env"},
                                         {"inna.conf", "inny"}}) {
            const std::string key = "\\" + std::string(name) + "\\";
            writeFile(dir.file(list), key + "Type [l] = 1\n" + key + "dbtype [s] = \"corvane\"\n" + key +
                                          "Pkcs12File [s] = \"~/" + name + ".p12\"\n" + key + "db [s] = \"" +
                                          dir.file(std::string("db_") + name) + "\"\n");
            std::filesystem::create_directory(dir.file(std::string("db_") + name));
        }
    }
    ~FileGuardTest() override { unsetenv("CRV_PROFILE_FILE"); }

    FileVerdict judge(const std::string& name) const { return FileGuard({dir.file("inna.conf")}).judge("~/" + name); }

    TempDir dir;
};

TEST_F(FileGuardTest, EveryListedProfileKeepsItsFilesWhateverTheyAreCalled) {
    writeFile(dir.file("podpis.p12"), "keys");
    std::filesystem::create_symlink(dir.file("podpis.p12"), dir.file("dowiazanie"));
    std::filesystem::create_hard_link(dir.file("podpis.p12"), dir.file("twarde"));
    const std::pair<const char*, const char*> owned[] = {
        {"dom.p12", "DOM"},   {"dom.p12.lck", "DOM"}, {"podpis.p12", "PODPIS"}, {"dowiazanie", "PODPIS"},
        {"twarde", "PODPIS"}, {"env.p12", "ENV"},     {"db_inny/nowy", "INNY"}, {"./inny.p12.lck", "INNY"}};
    for (const auto& [name, owner] : owned) {
        EXPECT_EQ(judge(name).claim, FileClaim::Profile) << name;
        EXPECT_EQ(judge(name).owner, owner) << name;
    }
    for (const char* list : {".crvprofiles.conf", ".crvsignerprofiles.conf", "srodowisko.conf", "inna.conf"}) {
        EXPECT_EQ(judge(list).claim, FileClaim::Profile) << list;
        EXPECT_EQ(judge(list).owner, "") << list;
    }
}

TEST_F(FileGuardTest, AnUnreadableListClaimsItselfAndKeyStoresAreKnownByTheirContent) {
    writeFile(dir.file("srodowisko.conf"), "no list");
    shell("cd " + dir.path().string() +
          " && openssl req -x509 -newkey rsa:2048 -nodes -subj /CN=x -keyout k -out c 2>&1 && "
          "openssl pkcs12 -export -inkey k -in c -passout pass: -out obcy");
    EXPECT_EQ(judge("srodowisko.conf").claim, FileClaim::Profile);
    EXPECT_EQ(judge("obcy").claim, FileClaim::Keys);
    EXPECT_EQ(judge("c").claim, FileClaim::None);
    EXPECT_TRUE(judge("c").exists);
    EXPECT_FALSE(judge("nowy").exists);
}

}  // namespace
}  // namespace crv::test
