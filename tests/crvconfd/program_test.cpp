// The program from outside: command line, environment, printed lists, statuses.
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>

#include "crvconfd/profile_names.h"
#include "misc/exceptions.h"
#include "support/screen/screen_program.h"
#include "support/temp_dir.h"

namespace crv::test {
namespace {

const std::string kProgram = CRV_BIN_DIR "/crvconfd";
const std::string kVersion = "Konfiguracja pakietu CORVANE 3.9.18.18 (K.2023030101)\n";

class Program : public testing::Test {
  protected:
    /// Standard output and error of the program under an environment of HOME and the given assignments, then "=status".
    [[nodiscard]] std::string run(const std::string& arguments, const std::string& environment = "",
                                  const std::string& program = kProgram) const {
        return shell("cd " + dir.path().string() + "; env -i HOME=" + dir.path().string() + " " + environment + " " +
                     program + " " + arguments + " </dev/null; echo =$?");
    }
    void list(const std::string& name, const std::vector<std::string>& profiles) const {
        std::string text;
        for (const std::string& profile : profiles) text += "\\" + profile + "\\Type [l] = 7\n";
        writeFile(dir.file(name), text);
    }
    /// A copy of the program under another name.
    [[nodiscard]] std::string named(const std::string& name) const {
        std::filesystem::create_symlink(kProgram, dir.path() / name);
        return dir.file(name);
    }
    TempDir dir;
};

TEST_F(Program, OptionsEndWithTheirTextsAndStatuses) {
    const std::string copyright = "Copyright";
    for (const auto& [arguments, expected] : std::vector<std::pair<std::string, std::string>>{
             {"-version", kVersion + copyright},
             {"-V", kVersion + copyright},
             {"--Version -nonsense", kVersion + copyright},
             {"-signer -VER", "Konfiguracja CORVANE Signature 3.9.18.18 (K.2023030101)\n" + copyright},
             {"-signer -corvaneprofiles -ver", kVersion + copyright},
             {"-profile -version -version", kVersion + copyright},
             {"-nonsense -version", "Błędny parametr wywołania programu: -nonsense\n=1\n"},
             {"-lista", "Błędny parametr wywołania programu: -lista\n=1\n"},
             {"''", "Błędny parametr wywołania programu: \n=1\n"},
             {"-v -termdumb -termsimple -termrich -dnutf8 -dnesc -dnnorm -LIST", "Brak profili\n=0\n"},
             {"-list -user", "Brak profili użytkownika\n=0\n"},
             {"-listprofiles -commonProfiles", "Brak profili wspólnych\n=0\n"},
             {"-user -allProfiles -list", "Brak profili\n=0\n"},
             {"-list -profiles", "Nie można otworzyć pliku z listą profili: \n=1\n"},
             {"-profilesFile nie.conf", "Nie można otworzyć pliku z listą profili: nie.conf\n=1\n"},
             {"-list -profiles .", "Nie można otworzyć pliku z listą profili: .\n=1\n"},
             {"-profile nikt", "Nie znaleziono profilu nikt\n=1\n"},
             {"-crvProfile 'a\x1b[1m'", "Nie znaleziono profilu a?[1m\n=1\n"},
             {"", "Program wymaga terminala na standardowym wejściu i wyjściu.\n=1\n"},
             {"-list >/dev/full", "Błąd zapisu na standardowe wyjście: No space left on device\n=255\n"},
             {"-list >&-", "Błąd zapisu na standardowe wyjście: Bad file descriptor\n=255\n"}}) {
        EXPECT_EQ(run(arguments).substr(0, expected.size()), expected) << arguments;
    }
}

TEST_F(Program, HelpIsWholeAndMarksTheDefaultByTheName) {
    const std::string help = run("-profile x --HELP -nonsense");
    EXPECT_EQ(help.substr(0, help.find("  -profile")), "Sposób użycia:\ncrvconfd [parametry]\n\nParametry:\n");
    EXPECT_EQ(std::count(help.begin(), help.end(), '\n'), 33);
    EXPECT_NE(help.find("dla programu Corvane-Signature\n"), std::string::npos);
    EXPECT_NE(help.find("dla programu Corvane (domyślnie)\n"), std::string::npos);
    EXPECT_NE(help.find("\n                      w postaci '\\xx'\n"), std::string::npos);
    EXPECT_NE(help.find("programu\n\nJeśli program zostanie wywołany bez parametrów, zostanie wyświetlona lista\n"),
              std::string::npos);
    EXPECT_EQ(help.substr(help.find("profili i będzie")), "profili i będzie można wybrać profil do edycji.\n=0\n");
    const std::string signer = run("-corvane -h", "", named("MySigner"));
    EXPECT_NE(signer.find("\nMySigner [parametry]\n"), std::string::npos);
    EXPECT_NE(signer.find("dla programu Corvane-Signature (domyślnie)\n"), std::string::npos);
    EXPECT_NE(signer.find("dla programu Corvane\n"), std::string::npos);
}

TEST_F(Program, TextsAreConvertedToTheDisplayEncoding) {
    const std::string utf8 = "Błędny parametr wywołania programu: -ó\n",
                      ascii = "Błędny parametr wywołania programu: -\xC3l\n";
    for (const auto& [environment, arguments, expected] : {std::tuple{"", "", utf8},
                                                           {"LANG=C", "", ascii},
                                                           {"LANG=pl_PL LC_ALL=C", "", utf8},
                                                           {"LC_ALL=C", "-utf8", utf8},
                                                           {"", "-ascii", ascii},
                                                           {"", "-CP852", ascii},
                                                           {"LC_ALL=POSIX", "-cp1250", utf8},
                                                           {"LC_ALL=C", "-latin2", utf8}}) {
        EXPECT_EQ(run(std::string(arguments) + " -ó", environment), expected + "=1\n") << environment << arguments;
    }
    EXPECT_EQ(run("-latin2 '\xb9'"), "Błędny parametr wywołania programu: \xb1\n=1\n");
}

TEST_F(Program, ListsNameTheirProfilesAndWhoseTheyAre) {
    list(".crvprofiles.conf", {"Drugi", "pierwszy", "dr\x1bugi"});
    list(".crvsignerprofiles.conf", {"podpis"});
    list("inne.conf", {"a", "b"});
    const std::string user = "  1. DR?UGI", two = "  2. DRUGI", three = "  3. PIERWSZY";
    const auto lines = [&](const std::string& mark) {
        return user.substr(1) + mark + "\n" + two.substr(1) + mark + "\n" + three.substr(1) + mark + "\n";
    };
    EXPECT_EQ(run("-list"), "Lista profili:\n" + lines(" <użytkownika>") + "=0\n");
    EXPECT_EQ(run("-list -user"), "Lista profili użytkownika:\n" + lines("") + "=0\n");
    EXPECT_EQ(run("-list -signer"), "Lista profili:\n 1. PODPIS <użytkownika>\n=0\n");
    EXPECT_EQ(run("-list", "", named("corvane-Sign")), "Lista profili:\n 1. PODPIS <użytkownika>\n=0\n");
    EXPECT_EQ(run("-list -corvane", "", dir.file("corvane-Sign")), run("-list"));
    const std::string fromFile = "Lista profili:\n 1. A\n 2. B\n=0\n";
    EXPECT_EQ(run("-list -profiles inne.conf"), fromFile);
    EXPECT_EQ(run("-list -profiles '~/inne.conf'"), fromFile);
    EXPECT_EQ(run("-list -common", "CRV_PROFILE_FILE=inne.conf"), fromFile) << "the environment wins";
    EXPECT_EQ(run("-list -profiles nie.conf", "CRV_PROFILE_FILE=inne.conf"), fromFile);
    EXPECT_EQ(run("-profiles inne.conf -profile a", "CRV_PROFILE=c"), "Nie znaleziono profilu c\n=1\n");
    EXPECT_EQ(run("-list -profiles inne.conf -user"), "Lista profili użytkownika:\n" + lines("") + "=0\n");
}

TEST_F(Program, BrokenListsAreReportedAndLeftAlone) {
    for (const std::string& text : {std::string("\\A\\Type [l] = 1\nbroken\n"), std::string("\x7f"
                                                                                            "ELF\0\1\2",
                                                                                            7)}) {
        writeFile(dir.file("bad.conf"), text);
        const std::string output = run("-list -profiles bad.conf");
        EXPECT_EQ(output.substr(output.rfind('=')), "=255\n");
        EXPECT_GT(output.size(), 10U) << "without a word";
        EXPECT_EQ(readFile(dir.file("bad.conf")), text);
    }
}

TEST_F(Program, ListOfAFileNeedsTheFile) {
    std::vector<std::string> names;
    int users = 0;
    try {
        readProfileList(names, AvailableProfiles::File, users, nullptr);
        FAIL();
    } catch (const VtestException& failure) {
        EXPECT_STREQ(failure.what(), "Assertion profilesFile failed in src/crvconfd/main");
        EXPECT_EQ(failure.line(), 453);
    }
}

TEST_F(Program, TenThousandProfilesAreListed) {
    std::vector<std::string> names;
    for (int i = 0; i < 10000; ++i) names.push_back("p" + std::to_string(10000 + i));
    list("many.conf", names);
    const std::string output = run("-list -profiles many.conf");
    EXPECT_EQ(std::count(output.begin(), output.end(), '\n'), 10002);
    EXPECT_NE(output.find("\n10000. P19999\n"), std::string::npos);
}

// The selection screen.

class Selection : public Program {
  protected:
    [[nodiscard]] ScreenProgram::Start start(const std::vector<std::string>& arguments) const {
        ScreenProgram::Start start{.arguments = {kProgram}, .environment = {{"HOME", dir.path().string()}}};
        start.arguments.insert(start.arguments.end(), arguments.begin(), arguments.end());
        return start;
    }
};

TEST_F(Selection, ShowsTheListAndLeavesCleanly) {
    const std::string longName(80, 'd');
    list(".crvprofiles.conf", {"alfa", "beta", longName});
    for (const std::string& leave : {std::string("W"), std::string("w"), keys::kEscape}) {
        ScreenProgram console(start({}));
        console.waitFor("szczegóły profilu");
        console.waitFor("... (U)");
        EXPECT_EQ(
            console.cells(0, 0, 80),
            std::string(13, ' ') + "Konfiguracja pakietu CORVANE 3.9.18.18 (K.2023030101)" + std::string(14, ' '));
        EXPECT_TRUE(console.cell(0, 0).reverse);
        EXPECT_EQ(console.row(2), std::string(32, ' ') + "Wybierz profil:");
        EXPECT_EQ(console.row(4), "|>ALFA" + std::string(69, ' ') + "(U) |");
        EXPECT_EQ(console.row(6), "| " + std::string(69, 'D') + "... (U) |");
        EXPECT_EQ(console.row(22), "Wybór: klawisze nawigacyjne, spacja, +, -; Enter: zatwierdź");
        EXPECT_EQ(console.row(23), "Esc,W: koniec, I: szczegóły profilu");
        EXPECT_TRUE(console.cell(4, 10).reverse);
        console.send(leave);
        EXPECT_EQ(console.waitExit(), 0);
        EXPECT_EQ(console.errors(), "");
        EXPECT_TRUE(console.cursorVisible());
    }
}

TEST_F(Selection, DetailsComeAndGoAndAChoiceOpensTheProfile) {
    list(".crvprofiles.conf", {"alfa", "beta"});
    ScreenProgram console(start({"-user", "-termdumb"}));
    console.waitFor("[ALFA]");
    EXPECT_EQ(console.row(4), std::string(36, ' ') + "|[ALFA]|");
    console.send(keys::kDown + "i");
    console.waitGone("Wybierz profil:");
    console.send(keys::kEscapeTwice);
    console.waitFor("[BETA]");
    console.waitFor("szczegóły profilu");
    console.send(keys::kEnter);
    console.waitUntil("the title names the profile",
                      [&] { return console.title() == "Konfiguracja CORVANE 3.9.18.18 - [BETA]"; });
}

TEST_F(Selection, AListThatVanishesUnderTheScreenIsAnError) {
    list(".crvprofiles.conf", {"alfa"});
    ScreenProgram console(start({}));
    console.waitFor("ALFA");
    std::filesystem::remove(dir.file(".crvprofiles.conf"));
    console.send("i" + keys::kEnter);
    console.waitFor("Błąd ładowania profilu: ALFA");
    console.send(" ");
    EXPECT_EQ(console.waitExit(), 0);
}

TEST_F(Selection, NothingToChooseFromEndsTheProgram) {
    ScreenProgram console(start({"-user", "-termdumb"}));
    console.waitFor("Brak zdefiniowanych profili.");
    EXPECT_FALSE(console.cell(0, 0).reverse);
    console.send(" ");
    EXPECT_EQ(console.waitExit(), 0);
}

TEST_F(Selection, ABrokenListIsShownOnTheScreenAndEndsWith255) {
    writeFile(dir.file(".crvprofiles.conf"), "broken\n");
    ScreenProgram console(start({}));
    console.waitUntil("the message row speaks", [&] { return !console.row(23).empty(); });
    console.send(" ");
    EXPECT_EQ(console.waitExit(), 255);
    EXPECT_EQ(console.errors(), "");
}

TEST_F(Selection, SignalsEndTheProgramAsSuch) {
    list(".crvprofiles.conf", {"alfa"});
    ScreenProgram console(start({}));
    console.waitFor("ALFA");
    console.signal(SIGTERM);
    EXPECT_EQ(console.waitExit(), 128 + SIGTERM);
    EXPECT_EQ(console.row(0), "");
}

}  // namespace
}  // namespace crv::test
