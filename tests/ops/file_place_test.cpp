// Why a security file cannot be where its profile says.
#include "ops/file_place.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "support/temp_dir.h"

namespace crv::test {
namespace {

TEST(FilePlace, TellsWhatIsInTheWay) {
    const TempDir dir;
    writeFile(dir.file("plik"), "x");
    std::filesystem::create_symlink(dir.file("kolo"), dir.file("kolo"));
    std::filesystem::create_symlink(dir.file("gdzie/indziej"), dir.file("donikad"));
    const std::tuple<std::string, FilePlace, std::string> cases[] = {
        {"plik", FilePlace::Usable, "plik"},      {"nowy", FilePlace::Free, ""},
        {"nie/ma", FilePlace::NoFolder, "nie/"},  {"plik/nowy", FilePlace::NoFolder, "plik/"},
        {"kolo", FilePlace::Unreachable, "kolo"}, {"", FilePlace::IsFolder, ""},
        {"donikad", FilePlace::Free, ""},
    };
    for (const auto& [name, place, where] : cases) {
        const PlaceLook look = lookAtPlace(dir.file(name));
        EXPECT_EQ(look.place, place) << name;
        EXPECT_EQ(look.where, dir.file(where)) << name;
    }
    if (geteuid() == 0) return;  // who may do everything
    std::filesystem::permissions(dir.file("plik"), std::filesystem::perms::none);
    EXPECT_EQ(lookAtPlace(dir.file("plik")).place, FilePlace::NotPermitted);
}

}  // namespace
}  // namespace crv::test
