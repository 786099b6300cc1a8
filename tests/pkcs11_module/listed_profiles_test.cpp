// Which profile has a name when several lists have it.
#include "pkcs11_module/listed_profiles.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "profiles/crv_profile.h"
#include "support/temp_dir.h"

namespace crv::test {
namespace {

TEST(ListedProfiles, AnEarlierListKeepsItsNames) {
    const TempDir dir;
    const std::string own = dir.file("own.conf"), common = dir.file("common.conf");
    ::unsetenv("CRV_PROFILE_FILE");
    ::unsetenv("CRV_PROFILE");
    CrvProfile::setDefaultCfgFileName(ProfileMedia::User, own.c_str());
    CrvProfile::setDefaultCfgFileName(ProfileMedia::Common, common.c_str());
    writeFile(common, "\\X\\TYPE[l] = 1\n\\X\\PKCS12FILE[s] = \"/common.p12\"\n");
    p11::ListedProfiles lists;
    for (const auto& [text, wanted] : std::initializer_list<std::pair<std::string, std::string>>{
             {"", "/common.p12"},
             {"\\X\\TYPE[l] = 1\n\\X\\PKCS12FILE[s] = \"/own.p12\"\n", "/own.p12"},
             {"\\X\\TYPE[l] = 1\n", ""},
             {"\\X\\TYPE[l] = 5\n\\X\\PKCS11LIBRARY[s] = \"/l.so\"\n", ""},
             {"\\X\\TYPE[l] = 9\n", "/common.p12"}}) {
        writeFile(own, text);
        const auto found = lists.read();
        EXPECT_EQ(found.empty() ? "" : found.front().keyFile, wanted) << text;
    }
    CrvProfile::setDefaultCfgFileName(ProfileMedia::User, nullptr);
    CrvProfile::setDefaultCfgFileName(ProfileMedia::Common, nullptr);
}

}  // namespace
}  // namespace crv::test
