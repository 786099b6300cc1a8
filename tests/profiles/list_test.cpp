// Lists: syntax, store, iteration, lookup.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cstdlib>

#include "profiles/crv_profile.h"
#include "support/temp_dir.h"

namespace crv {
namespace {

using test::TempDir;
using test::writeFile;

std::string errorOf(auto&& action) {
    try {
        action();
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "no error";
}

TEST(ListReader, ReadsEachFormOfAValue) {
    const std::string longest(1025 - 11, 'x');
    const std::pair<std::string, NodeDesc> cases[] = {
        {"\\A\\V [l] = 10", {10L}},
        {" \t\\a\\v[L]=-7 # note", {-7L}},
        {"\\A\\V [l] = 1F", {31L}},
        {"\\A\\V [l] = 0x1F", {31L}},
        {"\\A\\V [l] = 0x1f", {31L}},
        {"\\A\\V [l] = ff", {255L}},
        {"\\A\\V [l] = \"12\"", {12L}},
        {"\\A\\V [l] = -9223372036854775808", {std::numeric_limits<long>::min()}},
        {"\\A\\V [l] = FFFFFFFFFFFFFFFF", {-1L}},
        {"\\A\\V [s] = \"x y\" # c", {std::string("x y")}},
        {"\\A\\V [s] = x   # c", {std::string("x")}},
        {"\\A\\V [s] = x#c", {std::string("x")}},
        {"\\A\\V [s] =", {std::string()}},
        {"\\A\\V  \t[ s\t] \t= \"a#b\"", {std::string("a#b")}},
        {"\\A\\V [s] = \"ą\"\r", {std::string("ą")}},
        {"\\A\r\\V [s]\r = x\r", {std::string("x")}},
        {"\\A\\V [b] = 00fF1a", {std::vector<char>{0, '\xff', 0x1a}}},
        {"\\A\\V [b] =", {std::vector<char>{}}},
        {"\\A\\V [s] = " + longest + "cut", {longest}},
    };
    for (const auto& [line, value] : cases) {
        UniversalConfMgr store;
        store.loadFromText("# head\n\n \t#\n" + line, "f");
        std::string path = line.find('\t') == std::string::npos || line[0] == ' ' ? "\\a\\V" : "\\A\\V  \t";
        ASSERT_TRUE(store.findNode(path)) << line;
        EXPECT_EQ(*store.findNode(path), value) << line;
    }
}

TEST(ListReader, NamesTheLineOfAnError) {
    const char* const broken[] = {
        "\\A\\V",
        "\\A\\V = 5",
        "A\\V [l] = 5",
        "[l] = 5",
        "\\A\\V [x] = 5",
        "\\A\\V [l",
        "\\A\\V [",
        "\\A\\V [l = 5",
        "\\A\\V [l] 5",
        "\\A\\V [ll] = 5",
        "\\A\\V [l] =",
        "\\A\\V [l] = 12abc",
        "\\A\\V [l] = 1f",
        "\\A\\V [l] = 0x",
        "\\A\\V [l] = --1",
        "\\A\\V [l] = 5 6",
        "\\A\\V [l] = 9223372036854775808",
        "\\A\\V [l] = 1FFFFFFFFFFFFFFFF",
        "\\A\\V [s] = x y",
        "\\A\\V [s] = \"x",
        "\\A\\V [s] = \"x\" y",
        "\\A\\V [s] = \"x\"\"y\"",
        "\\A\\V [b] = 1",
        "\\A\\V [b] = 0g",
        "\\A\\V [s] = x\"y",
    };
    for (const char* line : broken) {
        UniversalConfMgr store;
        store.setData("\\OLD", 1);
        EXPECT_EQ(errorOf([&] { store.loadFromText("#\n\\A\\B[l]=1\n" + std::string(line) + "\n", "f"); }),
                  "Plik: f: Blad skladni w linii: 3")
            << line;
        EXPECT_EQ(store.size(), 0u) << line;
    }
    UniversalConfMgr store;
    EXPECT_EQ(errorOf([&] { store.loadFromText("\\Demo\\Type [l] = 5\n\\DEMO\\TYPE[L]=5", "g"); }),
              "Plik: g: Podwojna definicja wartosci w linii: 2");
}

TEST(ListReader, ReadsFilesInChunksAndTellsTheirErrors) {
    TempDir dir;
    std::string text;
    for (int i = 0; i < 5000; ++i)
        text += "\\P" + std::to_string(i) + "\\S [s] = \"" + std::string(i % 60, 'v') + "\"\n";
    writeFile(dir.file("list"), text);
    UniversalConfMgr store, whole;
    store.loadFromFile(dir.file("list"));
    whole.loadFromText(text, "");
    EXPECT_EQ(store.toText(), whole.toText());
    EXPECT_EQ(store.size(), 5000u);
    EXPECT_THAT(errorOf([&] { store.loadFromFile(dir.file("none")); }),
                testing::AllOf(testing::EndsWith(" otwarcia pliku konfiguracyjnego: " + dir.file("none")),
                               testing::StartsWith("B\xC4\xB9\xE2\x80\x9A\xC3\x84\xE2\x80\xA6")));
    EXPECT_EQ(errorOf([&] { store.loadFromFile(dir.path().string()); }), "Blad odczytu pliku: " + dir.path().string());
    EXPECT_FALSE(store.loadIfExists(dir.file("none")));
}

TEST(ListStore, FoldsAsciiAndKeepsTypesApart) {
    UniversalConfMgr store;
    store.setData("\\p\\Zażółć", "x");
    store.setData("\\p\\n", 5L);
    store.setData("\\p\\b", "\0\x7f", 2);
    EXPECT_TRUE(store.isPendingChanges());
    EXPECT_EQ(store.toText(), "\\P\\B[b] = 007F\n\\P\\N[l] = 5\n\\P\\ZAżółć[s] = \"x\"\n");
    long number = 0;
    std::string text;
    std::vector<char> octets;
    EXPECT_FALSE(store.getData("\\p\\none", number));
    EXPECT_TRUE(store.getBinaryOrString("\\P\\zażółć", octets));
    EXPECT_EQ(octets, std::vector<char>{'x'});
    EXPECT_EQ(errorOf([&] { store.getData("\\p\\none", number, true); }), "getData(): opcja nie znaleziona: \\p\\none");
    EXPECT_EQ(errorOf([&] { store.getData("\\p\\b", number); }), "getData( long ): niezgodny typ: \\p\\b");
    EXPECT_EQ(errorOf([&] { store.getData("\\p\\n", text); }), "getData( string ): niezgodny typ: \\p\\n");
    EXPECT_EQ(errorOf([&] { store.getData("\\p\\n", octets); }), "getData( binary ): niezgodny typ: \\p\\n");
    EXPECT_EQ(errorOf([&] { store.getBinaryOrString("\\p\\n", octets); }),
              "getData( binary|string ): niezgodny typ: \\p\\n");
    EXPECT_EQ(errorOf([&] { store.setData(nullptr, 1L); }), "parametr path nie moze byc NULL");
    EXPECT_EQ(errorOf([&] { store.setData("A", 1L); }), "parametr path musi zaczynac sie znakiem \\");
    const UniversalConfMgr::ConfItem items[] = {{"\\P\\N", UCMNodeType::Long}, {"\\p", UCMNodeType::Key}};
    EXPECT_TRUE(store.checkConf(items));
    EXPECT_FALSE(store.checkConfItem("\\p\\n", UCMNodeType::String));
}

TEST(ListStore, RemovesAndIteratesWholeComponents) {
    UniversalConfMgr store;
    for (const char* path : {"\\A\\X", "\\A\\S\\1.2", "\\A\\S\\1.3", "\\A-B\\X", "\\AB\\X", "\\TOP"})
        store.setData(path, "v");
    const auto list = [&](const char* prefix, UCMNodeType type) {
        std::vector<std::string> found;
        UniversalConfMgr::Iterator at;
        for (store.getIterator(at, prefix, type); at; ++at) found.push_back(at.getDescr());
        return found;
    };
    using testing::ElementsAre;
    EXPECT_THAT(list("\\", UCMNodeType::Key), ElementsAre("A-B\\", "AB\\", "A\\"));
    EXPECT_THAT(list("\\a", UCMNodeType::Key), ElementsAre("S\\"));
    EXPECT_THAT(list("\\a\\s\\", UCMNodeType::String), ElementsAre("1.2", "1.3"));
    EXPECT_THAT(list("\\a", UCMNodeType::String), ElementsAre("S\\1.2", "S\\1.3", "X"));
    EXPECT_THAT(list("\\a", UCMNodeType::Long), ElementsAre());
    EXPECT_EQ(errorOf([&] { list("", UCMNodeType::Key); }), "Niepoprawna sciezka");
    EXPECT_EQ(errorOf([] { (void)pathMatches("\\A", ""); }), "Niepoprawna sciezka");
    EXPECT_FALSE(pathMatches("\\A", "\\AB"));
    EXPECT_TRUE(pathMatches("\\A", "\\a\\b"));
    store.remove("\\A\\");
    EXPECT_THAT(list("\\", UCMNodeType::Key), ElementsAre("A-B\\", "AB\\"));
    EXPECT_TRUE(store.doesPathExist("\\ab"));
    EXPECT_FALSE(store.doesPathExist("\\a"));
}

TEST(ListWriter, RefusesWhatWouldNotReadBackAndKeepsTheFile) {
    TempDir dir;
    writeFile(dir.file("l"), "old");
    const std::pair<std::string, std::string> bad[] = {{"\\A\\V", "a\"b"},
                                                       {"\\A\\V", "a\rb"},
                                                       {"\\A\\V", "a\nb"},
                                                       {"\\A[\\V", "x"},
                                                       {"\\A\\V ", "x"},
                                                       {"\\A\nB", "x"},
                                                       {"\\A\\V", std::string(1025 - 11, 'x')}};
    for (const auto& [path, value] : bad) {
        UniversalConfMgr store;
        store.setData(path.c_str(), value.c_str());
        EXPECT_NE(errorOf([&] { store.seveToFile(dir.file("l")); }), "no error") << path << '=' << value;
        EXPECT_EQ(test::readFile(dir.file("l")), "old");
    }
    UniversalConfMgr store;
    EXPECT_EQ(errorOf([&] { store.seveToFile(dir.file("no/l")); }), "Blad otwarcia pliku: " + dir.file("no/l"));
}

TEST(ListWriter, ReadsBackTheSameWithTheModeOfItsMedium) {
    TempDir dir;
    UniversalConfMgr store(ProfileMedia::Common), user(ProfileMedia::User), back;
    store.setData("\\A\\S", "a #b [x] = y");
    store.setData("\\A\\N", std::numeric_limits<long>::min());
    store.setData("\\A\\B", "\0\xff\n", 3);
    store.seveToFile(dir.file("common"));
    user.seveToFile(dir.file("user"));
    EXPECT_FALSE(store.isPendingChanges());
    back.loadFromFile(dir.file("common"));
    EXPECT_EQ(back.toText(), store.toText());
    struct stat info {};
    ASSERT_EQ(stat(dir.file("common").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777u, 0644u);
    ASSERT_EQ(stat(dir.file("user").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777u, 0600u);
}

TEST(Profiles, AreFoundByNameAndListedWithoutTheRest) {
    TempDir dir;
    writeFile(dir.file("l"),
              "\\Two\\Type[l]=2\n\\Ala\\Type[l]=1\n\\zoo\\TYPE[l]=7\n\\Txt\\Type[s]=1\n\\None\\X[l]=1\n\\T[l]=1\n");
    long count = 0;
    auto all = CrvProfile::getProfileIterator(ProfileMedia::File, dir.file("l"), &count);
    EXPECT_EQ(count, 2);
    std::string name;
    ASSERT_TRUE(CrvProfile::getNextProfileName(*all, name));
    EXPECT_EQ(name, "ALA");
    EXPECT_EQ(CrvProfile::getNextProfile(*all)->name(), "ZOO");
    EXPECT_FALSE(CrvProfile::getNextProfile(*all));
    EXPECT_EQ(CrvProfile::getProfile(ProfileMedia::File, dir.file("l"), 1)->name(), "ZOO");
    EXPECT_FALSE(CrvProfile::getProfile(ProfileMedia::File, dir.file("l"), 2));
    EXPECT_EQ(CrvProfile::getProfileByName(ProfileMedia::File, dir.file("l"), "aLA")->name(), "aLA");
    for (const char* none : {"Two", "Txt", "None", "T", "", "Al"})
        EXPECT_FALSE(CrvProfile::getProfileByName(ProfileMedia::File, dir.file("l"), none)) << none;
}

TEST(Profiles, OfTheUserShadowTheCommonOnes) {
    TempDir dir;
    setenv("HOME", dir.path().c_str(), 1);
    writeFile(dir.file(".crvprofiles.conf"), "\\A\\Type[l]=1\n");
    writeFile(dir.file("common"), "\\A\\Type[l]=5\n\\B\\Type[l]=7\n");
    ASSERT_EQ(CrvProfile::setDefaultCfgFileName(ProfileMedia::Common, "~/common"), 1);
    ProfileMedia media{};
    EXPECT_EQ(loadCrvProfile(AvailableProfiles::All, "a", "", &media)->type(), 1);
    EXPECT_EQ(media, ProfileMedia::User);
    EXPECT_EQ(loadCrvProfile(AvailableProfiles::All, "b", "", &media)->type(), 7);
    EXPECT_EQ(media, ProfileMedia::Common);
    EXPECT_FALSE(loadCrvProfile(AvailableProfiles::User, "b", ""));
    EXPECT_EQ(loadCrvProfile(AvailableProfiles::Common, "a", "")->type(), 5);
    EXPECT_EQ(loadCrvProfile(AvailableProfiles::File, "b", dir.file("common"), &media)->type(), 7);
    EXPECT_EQ(media, ProfileMedia::File);
    std::filesystem::remove(dir.file("common"));
    EXPECT_FALSE(loadCrvProfile(AvailableProfiles::Common, "a", ""));
    EXPECT_NE(errorOf([&] { loadCrvProfile(AvailableProfiles::File, "b", dir.file("common")); }), "no error");
    EXPECT_EQ(CrvProfile::setDefaultCfgFileName(ProfileMedia::File, "x"), 0);
    CrvProfile::setDefaultCfgFileName(ProfileMedia::Common, nullptr);
    EXPECT_EQ(CrvProfile::getDefaultCfgFileName(ProfileMedia::Common), "/opt/corvane/etc/crvprofiles.conf");
}

}  // namespace
}  // namespace crv
