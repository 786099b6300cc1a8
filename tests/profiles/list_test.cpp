// Lists: syntax, store, iteration, lookup.
#include <gmock/gmock.h>

#include <cstdlib>
#include <numeric>

#include "profiles/crv_profile.h"
#include "support/faulty_file_ops.h"
#include "support/message_of.h"
#include "support/temp_dir.h"

namespace crv::test {
namespace {

using testing::MatchesRegex;

struct Lists : testing::Test {
    TempDir dir;
    std::string list = dir.file("l");
    UniversalConfMgr store;
};

TEST_F(Lists, AreReadWithEachFormOfAValue) {
    const auto read = [&](const std::string& rest, const char* path = "\\A\\V") {
        store.loadFromText("# head\n\n \t#\n \t\\a\\v" + rest, "f");
        EXPECT_EQ(store.size(), 1u);
        return !store.findNode(path) ? NodeDesc{} : *store.findNode(path);
    };
    const std::pair<const char*, long> numbers[] = {{"10", 10},   {"-7 # note", -7}, {"1F", 31},
                                                    {"0x1f", 31}, {"ff", 255},       {"\"12\"", 12}};
    for (const auto& [text, value] : numbers) EXPECT_EQ(read(std::string("[L]=") + text), NodeDesc{value}) << text;
    EXPECT_EQ(read(" [l] = -9223372036854775808"), NodeDesc{std::numeric_limits<long>::min()});
    EXPECT_EQ(read(" [l] = FFFFFFFFFFFFFFFF"), NodeDesc{-1L});
    const std::pair<const char*, const char*> texts[] = {
        {"\"x y\" # c", "x y"}, {"x   # c", "x"}, {"x#c", "x"}, {"", ""}, {"\"ą#b\"\r", "ą#b"}, {"x\r", "x"}};
    for (const auto& [text, value] : texts)
        EXPECT_EQ(read(std::string(" [s]\r =\t") + text), NodeDesc{std::string(value)}) << text;
    EXPECT_EQ(read("  \t[ s\t] \t= x", "\\A\\V  \t"), NodeDesc{std::string("x")});
    const std::string longest(1025 - 13, 'x');
    EXPECT_EQ(read(" [s] = " + longest + "cut"), NodeDesc{longest});
    EXPECT_EQ(read(" [b] = 00fF1a"), (NodeDesc{std::vector<char>{0, '\xff', 0x1a}}));
    EXPECT_EQ(read(" [b] ="), NodeDesc{std::vector<char>{}});
}

TEST_F(Lists, ErrorsNameTheirLine) {
    for (const std::string line :
         {R"(\A\V)", R"(\A\V = 5)", R"(A\V [l] = 5)", R"(\A\V [x] = 5)", R"(\A\V [)", R"(\A\V [l = 5)", R"(\A\V [l] 5)",
          R"(\A\V [l] =)", R"(\A\V [l] = 1f)", R"(\A\V [l] = 0x)", R"(\A\V [l] = --1)", R"(\A\V [l] = 5 6)",
          R"(\A\V [l] = 1FFFFFFFFFFFFFFFF)", R"(\A\V [s] = x y)", R"(\A\V [s] = "x)", R"(\A\V [s] = "x" y)",
          R"(\A\V [b] = 1)", R"(\A\V [b] = 0g)", R"(\A\V [s] = x"y)"}) {
        store.setData("\\OLD", 1);
        EXPECT_EQ(messageOf([&] { store.loadFromText("#\n\\A\\B[l]=1\n" + line + "\n", "f"); }),
                  "Plik: f: Blad skladni w linii: 3")
            << line;
        EXPECT_EQ(store.size(), 0u) << line;
    }
    EXPECT_EQ(messageOf([&] { store.loadFromText("\\Demo\\Type [l] = 5\n\\DEMO\\TYPE[L]=5", "g"); }),
              "Plik: g: Podwojna definicja wartosci w linii: 2");
}

TEST_F(Lists, AreReadInChunksAndTellTheirErrors) {
    std::string text;
    for (int i = 0; i < 5000; ++i)
        text += "\\P" + std::to_string(i) + "\\S [s] = \"" + std::string(i % 60, 'v') + "\"\n";
    writeFile(list, text);
    UniversalConfMgr whole;
    store.loadFromFile(list);
    whole.loadFromText(text, "");
    EXPECT_EQ(store.toText(), whole.toText());
    EXPECT_EQ(store.size(), 5000u);
    const std::string none = dir.file("none"), folder = dir.path().string();
    EXPECT_THAT(messageOf([&] { store.loadFromFile(none); }),
                MatchesRegex("B\xC4\xB9\xE2\x80\x9A\xC3\x84\xE2\x80\xA6.* otwarcia pliku konfiguracyjnego: " + none));
    EXPECT_EQ(messageOf([&] { store.loadFromFile(folder); }), "Blad odczytu pliku: " + folder);
    EXPECT_FALSE(store.loadIfExists(none));
}

TEST_F(Lists, InAnyOrderAreTheSameAndCopiesChangeApart) {
    std::vector<std::string> lines;
    for (const char* path : {"A!\\X", "AB", "A\\B\\1", "A\\TYPE", "B\\TYPE", "C\\TYPE"})
        lines.push_back("\\" + std::string(path) + "[l] = " + std::to_string(lines.size()) + "\n");
    const auto joined = [&] { return std::accumulate(lines.begin(), lines.end(), std::string()); };
    const std::string sorted = joined();
    do {
        store.loadFromText(joined(), "f");
        ASSERT_EQ(store.toText(), sorted) << joined();
        EXPECT_EQ(store.findNode("\\b\\type")->line,
                  static_cast<size_t>(std::ranges::find(lines, "\\B\\TYPE[l] = 4\n") - lines.begin()) + 1);
        for (const size_t twice : {0, 3, 5}) {
            EXPECT_EQ(
                messageOf([&] { UniversalConfMgr().loadFromText(joined() + "#\n" + lines[twice] + "broken", "f"); }),
                "Plik: f: Podwojna definicja wartosci w linii: 8");
        }
        UniversalConfMgr copy = store;
        copy.remove("\\A");
        copy.setData("\\A\\NEW", 1L);
        copy.setData("\\AB", 2L);
        copy.remove("\\A\\new");
        copy.remove("\\C\\TYPE");
        EXPECT_EQ(copy.toText(), "\\A!\\X[l] = 0\n\\AB[l] = 2\n\\B\\TYPE[l] = 4\n") << joined();
        ASSERT_EQ(store.toText(), sorted) << "the copy's changes are its own";
        EXPECT_EQ(copy.below("\\b").toText(), "\\B\\TYPE[l] = 4\n");
        EXPECT_EQ(store.below("\\A").below("\\A\\B\\").toText(), "\\A\\B\\1[l] = 2\n");
        EXPECT_EQ(copy.below("\\A").size(), 0u);
        std::string keys;
        UniversalConfMgr::Iterator at;
        for (copy.getIterator(at, "\\", UCMNodeType::Key); at; ++at)
            keys += at.getDescr() + (at.findBelow("TYPE") ? "+ " : "- ");
        EXPECT_EQ(keys, "A!\\- B\\+ ");
    } while (std::ranges::next_permutation(lines).found);
}

TEST_F(Lists, FoldAsciiAndKeepTypesApart) {
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
    const std::pair<std::function<void()>, const char*> cases[] = {
        {[&] { store.getData("\\p\\none", number, true); }, "getData(): opcja nie znaleziona: \\p\\none"},
        {[&] { store.getData("\\p\\b", number); }, "getData( long ): niezgodny typ: \\p\\b"},
        {[&] { store.getData("\\p\\n", text); }, "getData( string ): niezgodny typ: \\p\\n"},
        {[&] { store.getData("\\p\\n", octets); }, "getData( binary ): niezgodny typ: \\p\\n"},
        {[&] { store.getBinaryOrString("\\p\\n", octets); }, "getData( binary|string ): niezgodny typ: \\p\\n"},
        {[&] { store.setData(nullptr, 1L); }, "parametr path nie moze byc NULL"},
        {[&] { store.setData("A", 1L); }, "parametr path musi zaczynac sie znakiem \\"}};
    for (const auto& [action, message] : cases) EXPECT_EQ(messageOf(action), message);
    const UniversalConfMgr::ConfItem items[] = {{"\\P\\N", UCMNodeType::Long}, {"\\p", UCMNodeType::Key}};
    EXPECT_TRUE(store.checkConf(items));
    EXPECT_FALSE(store.checkConfItem("\\p\\n", UCMNodeType::String));
}

TEST_F(Lists, RemoveAndIterateWholeComponents) {
    for (const char* path : {"\\A\\X", "\\A\\S\\1.2", "\\A\\S\\1.3", "\\A-B\\X", "\\AB\\X", "\\TOP"})
        store.setData(path, "v");
    const auto found = [&](const char* prefix, UCMNodeType type) {
        std::string names;
        UniversalConfMgr::Iterator at;
        for (store.getIterator(at, prefix, type); at; ++at) names += at.getDescr() + " ";
        return names;
    };
    EXPECT_EQ(found("\\", UCMNodeType::Key), "A-B\\ AB\\ A\\ ");
    EXPECT_EQ(found("\\a", UCMNodeType::Key), "S\\ ");
    EXPECT_EQ(found("\\a\\s\\", UCMNodeType::String), "1.2 1.3 ");
    EXPECT_EQ(found("\\a", UCMNodeType::String), "S\\1.2 S\\1.3 X ");
    EXPECT_EQ(found("\\a", UCMNodeType::Long), "");
    EXPECT_EQ(messageOf([&] { found("", UCMNodeType::Key); }), "Niepoprawna sciezka");
    EXPECT_EQ(messageOf([] { (void)pathMatches("\\A", ""); }), "Niepoprawna sciezka");
    EXPECT_TRUE(pathMatches("\\A", "\\a\\b") && !pathMatches("\\A", "\\AB"));
    store.remove("\\A\\");
    EXPECT_EQ(found("\\", UCMNodeType::Key), "A-B\\ AB\\ ");
    EXPECT_TRUE(store.doesPathExist("\\ab") && !store.doesPathExist("\\a"));
}

TEST_F(Lists, RefuseWhatWouldNotReadBackAndKeepTheFile) {
    writeFile(list, "old");
    for (const auto& [path, value] : {std::pair<std::string, std::string>{"\\A\\V", "a\"b"},
                                      {"\\A\\V", "a\rb"},
                                      {"\\A\\V", "a\nb"},
                                      {"\\A[\\V", "x"},
                                      {"\\A\\V ", "x"},
                                      {"\\A\nB", "x"},
                                      {"\\A\\V", std::string(1025 - 11, 'x')}}) {
        UniversalConfMgr bad;
        bad.setData(path.c_str(), value.c_str());
        EXPECT_NE(messageOf([&] { bad.seveToFile(list); }), "") << path << '=' << value;
        EXPECT_EQ(readFile(list), "old");
    }
    EXPECT_EQ(messageOf([&] { store.seveToFile(dir.file("no/l")); }), "Blad otwarcia pliku: " + dir.file("no/l"));
}

TEST_F(Lists, ReadBackTheSameWithTheModeOfTheirMedium) {
    for (const auto& [media, mode] : {std::pair{ProfileMedia::Common, 0644}, {ProfileMedia::User, 0600}}) {
        UniversalConfMgr out(media);
        out.setData("\\A\\S", "a #b [x] = y");
        out.setData("\\A\\N", std::numeric_limits<long>::min());
        out.setData("\\A\\B", "\0\xff\n", 3);
        out.seveToFile(dir.file(std::to_string(mode)));
        EXPECT_FALSE(out.isPendingChanges());
        store.loadFromFile(dir.file(std::to_string(mode)));
        EXPECT_EQ(store.toText(), out.toText());
        EXPECT_EQ(std::filesystem::status(dir.file(std::to_string(mode))).permissions(), std::filesystem::perms(mode));
    }
}

TEST_F(Lists, WrittenByHandAreKeptAndHideTheirPasswords) {
    const std::string hand = "\xEF\xBB\xBF# mine\n\\B\\Type [l] = 1\n\\A\\Type [l] = 1\n";
    writeFile(list, hand);
    std::filesystem::permissions(list, std::filesystem::perms(0644));
    UniversalConfMgr own(ProfileMedia::User);
    for (const char* value : {"one", "two"}) {
        own.loadFromFile(list);
        own.setData("\\A\\SRV\\PASS", value);
        own.seveToFile(list);
    }
    EXPECT_EQ(readFile(list + "~"), hand) << "the second save loses nothing";
    EXPECT_EQ(std::filesystem::status(list).permissions(), std::filesystem::perms(0600));
    // What has the name already is somebody's, and what cannot be kept is not lost.
    for (const std::string& kept : {list + "~1~", list + "~2~"}) {
        writeFile(list, "# " + kept + "\n" + readFile(list));
        const std::string again = readFile(list);
        own.loadFromFile(list);
        own.seveToFile(list);
        EXPECT_EQ(readFile(kept), again);
        EXPECT_EQ(std::filesystem::status(kept).permissions(), std::filesystem::perms(0600));
    }
    EXPECT_EQ(readFile(list + "~"), hand);
    writeFile(list, hand);
    own.loadFromFile(list);
    own.setData("\\A\\SRV\\PASS", "three");
    own.seveToFile(list);
    EXPECT_FALSE(std::filesystem::exists(list + "~3~")) << "kept already";
    writeFile(list, "# more\n" + hand);
    FaultyFileOps ops;
    ops.denyNewFiles = true;
    const ScopedFileOps scope(ops);
    EXPECT_THAT(messageOf([&] { own.seveToFile(list); }), testing::HasSubstr(list + "~3~: "));
    EXPECT_EQ(readFile(list), "# more\n" + hand);
}

TEST_F(Lists, OfAFolderThatOthersReadKeepTheirMode) {
    for (const auto& [home, mode] : {std::pair{dir.file("other"), 0644}, {dir.path().string(), 0600}}) {
        std::filesystem::create_directory(home);
        setenv("HOME", home.c_str(), 1);
        UniversalConfMgr named(ProfileMedia::File);
        named.setData("\\A\\SRV\\PASS", "one");
        writeFile(list, "");
        std::filesystem::permissions(list, std::filesystem::perms(0644));
        named.seveToFile(list);
        EXPECT_EQ(std::filesystem::status(list).permissions(), std::filesystem::perms(mode)) << home;
    }
}

TEST_F(Lists, ProfilesAreFoundByNameAndListedWithoutTheRest) {
    writeFile(list,
              "\\Two\\Type[l]=2\n\\Ala\\Type[l]=1\n\\zoo\\TYPE[l]=7\n\\Txt\\Type[s]=1\n\\None\\X[l]=1\n\\T[l]=1\n");
    long count = 0;
    auto all = CrvProfile::getProfileIterator(ProfileMedia::File, list, &count);
    EXPECT_EQ(count, 2);
    std::string name;
    ASSERT_TRUE(CrvProfile::getNextProfileName(*all, name));
    EXPECT_EQ(name, "ALA");
    EXPECT_EQ(CrvProfile::getNextProfile(*all)->name(), "ZOO");
    EXPECT_FALSE(CrvProfile::getNextProfile(*all));
    EXPECT_EQ(CrvProfile::getProfile(ProfileMedia::File, list, 1)->name(), "ZOO");
    EXPECT_FALSE(CrvProfile::getProfile(ProfileMedia::File, list, 2));
    EXPECT_EQ(CrvProfile::getProfileByName(ProfileMedia::File, list, "aLA")->name(), "aLA");
    for (const char* none : {"Two", "Txt", "None", "T", "", "Al"})
        EXPECT_FALSE(CrvProfile::getProfileByName(ProfileMedia::File, list, none)) << none;
    const auto flaws = CrvProfile::getListFlaws(ProfileMedia::File, list);
    ASSERT_EQ(flaws.size(), 1u);
    EXPECT_EQ(flaws[0].text, "Plik: " + list + ": Typ profilu TXT nie jest liczba [l] w linii: 4");
}

TEST_F(Lists, OfTheUserShadowTheCommonOnes) {
    using enum AvailableProfiles;
    setenv("HOME", dir.path().c_str(), 1);
    writeFile(dir.file(".crvprofiles.conf"), "\\A\\Type[l]=1\n");
    writeFile(dir.file("common"), "\\A\\Type[l]=5\n\\B\\Type[l]=7\n");
    ASSERT_EQ(CrvProfile::setDefaultCfgFileName(ProfileMedia::Common, "~/common"), 1);
    const std::tuple<AvailableProfiles, const char*, long, ProfileMedia> cases[] = {
        {All, "a", 1, ProfileMedia::User},
        {All, "b", 7, ProfileMedia::Common},
        {Common, "a", 5, ProfileMedia::Common},
        {AvailableProfiles::File, "b", 7, ProfileMedia::File}};
    for (const auto& [from, name, type, medium] : cases) {
        ProfileMedia media{};
        EXPECT_EQ(loadCrvProfile(from, name, dir.file("common"), &media)->type(), type) << name;
        EXPECT_EQ(media, medium) << name;
    }
    EXPECT_FALSE(loadCrvProfile(User, "b", ""));
    writeFile(dir.file(".crvprofiles.conf"), "\\B\\Type[s]=1\n");
    ProfileMedia flawed{};
    EXPECT_FALSE(loadCrvProfile(All, "b", "", &flawed)) << "not silently another one's keys";
    EXPECT_EQ(flawed, ProfileMedia::User);
    std::filesystem::remove(dir.file("common"));
    EXPECT_FALSE(loadCrvProfile(Common, "a", ""));
    EXPECT_NE(messageOf([&] { loadCrvProfile(AvailableProfiles::File, "b", dir.file("common")); }), "");
    EXPECT_EQ(CrvProfile::setDefaultCfgFileName(ProfileMedia::File, "x"), 0);
    CrvProfile::setDefaultCfgFileName(ProfileMedia::Common, nullptr);
    EXPECT_EQ(CrvProfile::getDefaultCfgFileName(ProfileMedia::Common), "/opt/corvane/etc/crvprofiles.conf");
}

}  // namespace
}  // namespace crv::test
