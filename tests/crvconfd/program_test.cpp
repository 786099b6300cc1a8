// The program from outside: command line, environment, printed lists, statuses.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <fstream>
#include <thread>

#include "crvconfd/session/profile_names.h"
#include "misc/exceptions.h"
#include "support/screen/screen_program.h"
#include "support/temp_dir.h"

namespace crv::test {
namespace {

const std::string kProgram = CRV_BIN_DIR "/crvconfd";
const std::string kVersion = "Konfiguracja pakietu CORVANE 3.9.18.18 (K.2023030101)\n";

/// A folder, which is HOME, with the program under three names.
class Program : public testing::Test {
  protected:
    Program() {
        for (const char* name : {"crvconfd", "MySigner", "corvane-Sign"})
            std::filesystem::create_symlink(kProgram, dir.path() / name);
    }
    /// Standard output and error of "[NAME=value...] ./program arguments" in an environment of HOME, then "=status".
    [[nodiscard]] std::string run(const std::string& line) const {
        const std::string home = dir.path().string();
        return shell("cd " + home + "; env -i HOME=" + home + " " + line + " </dev/null; echo =$?");
    }
    void list(const std::string& name, const std::vector<std::string>& profiles) const {
        std::string text;
        for (const std::string& profile : profiles) text += "\\" + profile + "\\Type [l] = 7\n";
        writeFile(dir.file(name), text);
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
             {"-profile nikt", "Nie znaleziono profilu nikt\nSzukano w: /"},
             {"-crvProfile 'a\x1b[1m'", "Nie znaleziono profilu a?[1m\nSzukano w: /"},
             {"", "Program wymaga terminala na standardowym wejściu i wyjściu.\n=1\n"},
             {"-list >/dev/full", "Błąd zapisu na standardowe wyjście: No space left on device\n=255\n"},
             {"-list >&-", "Błąd zapisu na standardowe wyjście: Bad file descriptor\n=255\n"}}) {
        EXPECT_EQ(run("./crvconfd " + arguments).substr(0, expected.size()), expected) << arguments;
    }
}

TEST_F(Program, HelpIsWholeAndMarksTheDefaultByTheName) {
    const std::string help = run("./crvconfd -profile x --HELP -nonsense");
    const std::string signer = run("./MySigner -corvane -h");
    EXPECT_EQ(help.substr(0, help.find("  -profile")), "Sposób użycia:\ncrvconfd [parametry]\n\nParametry:\n");
    EXPECT_EQ(std::count(help.begin(), help.end(), '\n'), 33);
    EXPECT_EQ(help.substr(help.find("profili i będzie")), "profili i będzie można wybrać profil do edycji.\n=0\n");
    for (const auto& [text, part] : {std::pair{&help, "dla programu Corvane-Signature\n"},
                                     {&help, "dla programu Corvane (domyślnie)\n"},
                                     {&help, "\n                      w postaci '\\xx'\n"},
                                     {&signer, "\nMySigner [parametry]\n"},
                                     {&signer, "dla programu Corvane-Signature (domyślnie)\n"},
                                     {&signer, "dla programu Corvane\n"}})
        EXPECT_NE(text->find(part), std::string::npos) << part;
}

TEST_F(Program, TextsAreConvertedToTheDisplayEncoding) {
    const std::string utf8 = "Błędny parametr wywołania programu: -ó\n",
                      ascii = "Błędny parametr wywołania programu: -\xC3l\n";
    for (const std::string line : {"./crvconfd", "LANG=pl_PL LC_ALL=C ./crvconfd", "LC_ALL=C ./crvconfd -utf8",
                                   "LC_ALL=POSIX ./crvconfd -cp1250", "LC_ALL=C ./crvconfd -latin2"})
        EXPECT_EQ(run(line + " -ó"), utf8 + "=1\n") << line;
    for (const std::string line : {"LANG=C ./crvconfd", "./crvconfd -ascii", "./crvconfd -CP852"})
        EXPECT_EQ(run(line + " -ó"), ascii + "=1\n") << line;
    EXPECT_EQ(run("./crvconfd -latin2 '\xb9'"), "Błędny parametr wywołania programu: \xb1\n=1\n");
}

TEST_F(Program, ListsNameTheirProfilesAndWhoseTheyAre) {
    list(".crvprofiles.conf", {"Drugi", "pierwszy", "dr\x1bugi"});
    list(".crvsignerprofiles.conf", {"podpis"});
    list("inne.conf", {"a", "b"});
    const std::string marked = " 1. DR?UGI <użytkownika>\n 2. DRUGI <użytkownika>\n 3. PIERWSZY <użytkownika>\n=0\n";
    const std::string users = "Lista profili użytkownika:\n 1. DR?UGI\n 2. DRUGI\n 3. PIERWSZY\n=0\n";
    const std::string signers = "Lista profili:\n 1. PODPIS <użytkownika>\n=0\n";
    const std::string fromFile = "Lista profili:\n 1. A\n 2. B\n=0\n";
    const std::pair<const char*, std::string> cases[] = {
        {"./crvconfd -list", "Lista profili:\n" + marked},
        {"./crvconfd -list -user", users},
        {"./crvconfd -list -signer", signers},
        {"./corvane-Sign -list", signers},
        {"./corvane-Sign -list -corvane", "Lista profili:\n" + marked},
        {"./crvconfd -list -profiles inne.conf", fromFile},
        {"./crvconfd -list -profiles '~/inne.conf'", fromFile},
        {"CRV_PROFILE_FILE=inne.conf ./crvconfd -list -common", fromFile},  // the environment wins
        {"CRV_PROFILE_FILE=inne.conf ./crvconfd -list -profiles nie.conf", fromFile},
        {"CRV_PROFILE=c ./crvconfd -profiles inne.conf -profile a",
         "Nie znaleziono profilu c\nSzukano w: inne.conf\n=1\n"},
        {"./crvconfd -list -profiles inne.conf -user", users}};
    for (const auto& [line, expected] : cases) EXPECT_EQ(run(line), expected) << line;
}

TEST_F(Program, TheShellCompletesNamesInAnyCaseAndWithBlanks) {
    list(".crvprofiles.conf", {"alfa", "biuro nowe"});
    const std::string script = "'. " CRV_SOURCE_DIR
                               "/completion/crvconfd; COMP_WORDS=(x -profile \"$1\"); COMP_CWORD=2; "
                               "_crvconfd; printf \"[%s]\" \"${COMPREPLY[@]}\"'";
    const std::pair<const char*, const char*> cases[] = {{"al", "[ALFA]"},
                                                         {"BIU", "[BIURO\\ NOWE]"},
                                                         {"biuro\\ n", "[BIURO\\ NOWE]"},
                                                         {"\"biu", "[BIURO NOWE]"},
                                                         {"x", "[]"}};
    for (const auto& [typed, completed] : cases) {
        const std::string line = "PATH=$PWD:/usr/bin:/bin LC_ALL=C.UTF-8 bash -c " + script + " _ '" + typed + "'";
        EXPECT_EQ(run(line), std::string(completed) + "=0\n");
    }
}

TEST_F(Program, BrokenListsAreReportedAndLeftAlone) {
    for (const std::string& text : {std::string("\\A\\Type [l] = 1\nbroken\n"), std::string("\177ELF\0\1\2", 7)}) {
        writeFile(dir.file("bad.conf"), text);
        for (const std::string wanted : {"-list", "-profile a"}) {
            const std::string output = run("./crvconfd -profiles bad.conf " + wanted);
            EXPECT_EQ(output.substr(output.rfind('=')), "=255\n");
            EXPECT_GT(output.find("\nSzukano w: bad.conf\n"), 10U) << "without a word: " << output;
            EXPECT_NE(output.find("\nSzukano w: bad.conf\n"), std::string::npos) << output;
        }
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
    const std::string output = run("./crvconfd -list -profiles many.conf");
    EXPECT_EQ(std::count(output.begin(), output.end(), '\n'), 10002);
    EXPECT_NE(output.find("\n10000. P19999\n"), std::string::npos);
}

// The selection screen.

class Selection : public Program {
  protected:
    [[nodiscard]] ScreenProgram open(const std::vector<std::string>& options = {}) const {
        std::vector<std::string> arguments{kProgram};
        arguments.insert(arguments.end(), options.begin(), options.end());
        return ScreenProgram({.arguments = arguments, .environment = {{"HOME", dir.path().string()}}});
    }
};

TEST_F(Selection, ShowsTheListAndLeavesCleanly) {
    const std::string longName(80, 'd');
    list(".crvprofiles.conf", {"alfa", "beta", longName});
    for (const std::string& leave : {std::string("W"), std::string("w"), keys::kEscape}) {
        ScreenProgram console = open();
        console.waitFor("szczegóły profilu");
        console.waitFor("... (U)");
        const std::pair<int, std::string> rows[] = {
            {0, std::string(13, ' ') + "Konfiguracja pakietu CORVANE 3.9.18.18 (K.2023030101)"},
            {2, std::string(32, ' ') + "Wybierz profil:"},
            {4, "|>ALFA" + std::string(69, ' ') + "(U) |"},
            {6, "| " + std::string(69, 'D') + "... (U) |"},
            {22, "Wybór: klawisze nawigacyjne, spacja, +, -; Enter: zatwierdź"},
            {23, "Esc,W: koniec, I: szczegóły profilu"}};
        for (const auto& [row, text] : rows) EXPECT_EQ(console.row(row), text);
        EXPECT_TRUE(console.cell(0, 0).reverse);
        EXPECT_TRUE(console.cell(4, 10).reverse);
        console.send(leave);
        EXPECT_EQ(console.waitExit(), 0);
        EXPECT_EQ(console.errors(), "");
        EXPECT_TRUE(console.cursorVisible());
    }
}

TEST_F(Selection, DetailsComeAndGoAndAChoiceOpensTheProfile) {
    list(".crvprofiles.conf", {"alfa", "beta"});
    ScreenProgram console = open({"-user", "-termdumb"});
    console.waitFor("[ALFA]");
    EXPECT_EQ(console.row(4), std::string(36, ' ') + "|[ALFA]|");
    console.send(keys::kDown + "i");
    console.waitGone("Wybierz profil:");
    console.send(keys::kEscapeTwice);
    console.waitFor("[BETA]");
    console.waitFor("szczegóły profilu");
    // A key soon after a single Escape is a key.
    console.send("i");
    console.waitGone("Wybierz profil:");
    console.send(keys::kEscape);
    std::this_thread::sleep_for(std::chrono::milliseconds(250));
    console.send(keys::kEnter);
    console.waitUntil("the title names the profile",
                      [&] { return console.title() == "Konfiguracja CORVANE 3.9.18.18 - [BETA]"; });
}

TEST_F(Selection, ARecordThatIsDamagedStaysAndAListThatVanishesIsAnError) {
    list(".crvprofiles.conf", {"alfa"});
    const std::string whole = readFile(dir.file(".crvprofiles.conf"));
    ScreenProgram console = open();
    console.waitFor("ALFA");
    writeFile(dir.file(".crvprofiles.conf"), whole + "\\ALFA\\PROXY\\HTTP\\PASS [s] = xyz\n");
    console.send(keys::kEnter);
    console.waitFor("Błąd ładowania profilu: ALFA");
    console.send(" ");
    console.waitFor("Niepoprawnie zapisane hasło");
    console.send(" ");
    console.waitFor("Wybierz profil:");
    std::filesystem::remove(dir.file(".crvprofiles.conf"));
    console.send("i" + keys::kEnter);
    console.waitFor("Błąd ładowania profilu: ALFA");
    console.send(" ");
    console.waitFor("Brak zdefiniowanych profili.");
    console.send(" ");
    console.waitFor("Czy chcesz utworzyć profil");
    console.send("n");
    EXPECT_EQ(console.waitExit(), 0);
}

TEST_F(Selection, NothingToChooseFromAndABrokenListEndTheProgram) {
    ScreenProgram none = open({"-user", "-termdumb"});
    none.waitFor("Brak zdefiniowanych profili.");
    EXPECT_FALSE(none.cell(0, 0).reverse);
    none.send(" ");
    none.waitFor("Czy chcesz utworzyć profil");
    none.send("n");
    EXPECT_EQ(none.waitExit(), 0);
    const std::string file = dir.file(".crvprofiles.conf"), searched = "\nSzukano w: " + file;
    EXPECT_EQ(none.errors(), "Brak zdefiniowanych profili." + searched + " (nie ma takiego pliku)\n");
    writeFile(file, "\n\nbroken\n");
    ScreenProgram broken = open({"-user"});
    broken.waitFor("Plik: ~/.crvprofiles.conf: Blad skladni w linii: 3");
    broken.send(" ");
    EXPECT_EQ(broken.waitExit(), 255);
    EXPECT_EQ(broken.errors(), "Blad skladni w linii: 3, plik: ~/.crvprofiles.conf" + searched + "\n");
    writeFile(file, "\\A\\Type [l] = 1\n\\ODD\\Type [s] = 1\n");
    ScreenProgram odd = open({"-user"});
    odd.waitFor("Typ profilu ODD nie jest liczba [l] w linii: 2, plik: ~/.crvprofiles.conf");
    odd.send(" ");
    odd.waitFor(">A ");
    odd.send("w");
    EXPECT_EQ(odd.waitExit(), 0);
}

TEST_F(Selection, ListsAreChangedByTheKeysOfRow21) {
    ScreenProgram console = open();
    console.waitFor("Brak zdefiniowanych profili.");
    const std::pair<std::string, std::string> steps[] = {
        {" ", "utworzyć profil"},
        {"t", "Nazwa profilu:"},
        {"a" + keys::kEnter, ">A  "},
        {"k", "Pliki będą"},
        {"t", "Nazwa profilu: A"},
        {"2" + keys::kEnter, ">A2  "},
        {"z", "nazwę profilu A2"},
        {"t", "Nazwa profilu: A2"},
        {"b" + keys::kEnter, ">A2B  "},
        {"n", "utworzyć profil"},
        {"t", "Nazwa profilu:"},
        {"a" + keys::kEnter, "już istnieje"},
        {" ", ">A2B  "},
        {keys::kDown, ">A  "},
        {"U", "usunąć profil A z"},
        {"n", "U: usunięcie z listy"},
        {"u", "usunąć profil A z"},
        {"t", ">A2B  "},
        {"u", "usunąć profil A2B"},
        {"t", "Brak zdefiniowanych profili."},
        {" ", "utworzyć profil"},
    };
    for (const auto& [typed, shown] : steps) {
        console.send(typed);
        console.waitFor(shown);
    }
    console.send("n");
    EXPECT_EQ(console.waitExit(), 0);
}

TEST_F(Selection, ProfilesAreFoundByLetterAndFilterInEverySizeOfTheTerminal) {
    std::vector<std::string> names{"alfa", "gamma", "łąka", "lato"};
    for (int i = 10; i < 40; ++i) names.push_back("p" + std::to_string(i));
    list(".crvprofiles.conf", names);
    std::ofstream(dir.file(".crvprofiles.conf"), std::ios::app) << "\\GAMMA\\Pkcs12File [s] = \"~/g.p12\"\n";
    std::filesystem::create_directories(dir.file(".local/state/corvane"));
    writeFile(dir.file(".local/state/corvane/ends"), "9999999999 /x\nrubbish\n1 " + dir.file("g.p12") + "\n");
    ScreenProgram console = open();
    console.waitFor("szczegóły profilu");
    EXPECT_NE(console.row(5).find("GAMMA" + std::string(35, ' ') + "*(U) "), std::string::npos);
    const std::pair<std::string, std::string> steps[] = {
        {"G", ">GAMMA"},
        {"l", ">LATO"},
        {"l", ">łąKA"},
        {"p", ">P10"},
        {"/", "Pokaż zawierające:"},
        {"p2\r", "\"p2\": 10 z 34"},
        {"P", ">P21"},
        {"?", "następny profil na tę literę"},
        {" ", ">P21"},
        {"/", "Pokaż zawierające: p2"},
        {"x\r", "Nic na liście nie zawiera: p2x"},
        {" ", ">P"},
    };
    for (const auto& [typed, shown] : steps) {
        console.send(typed);
        console.waitFor(shown);
    }
    console.send("p");
    for (const auto& [rows, columns] : {std::pair{43, 132}, {24, 80}, {20, 80}, {15, 60}, {24, 80}}) {
        const std::string size = std::to_string(columns) + "x" + std::to_string(rows);
        console.resize(rows, columns);
        console.waitUntil("the list fills " + size, [&, rows = rows, columns = columns] {
            return rows < 24 ||
                   (console.row(rows - 1).starts_with("Esc,W: koniec") && console.cell(0, columns - 1).reverse);
        });
        console.send(keys::kHome + keys::kEnd);
        console.waitFor(">łąKA");
        console.send("a");
        console.waitFor(">ALFA");
    }
    console.send("w");
    EXPECT_EQ(console.waitExit(), 0);
}

TEST_F(Selection, SignalsEndTheProgramAsSuch) {
    list(".crvprofiles.conf", {"alfa"});
    ScreenProgram console = open();
    console.waitFor("ALFA");
    console.signal(SIGTERM);
    EXPECT_EQ(console.waitExit(), 128 + SIGTERM);
    EXPECT_EQ(console.row(0), "");
    ScreenProgram endless = open({"-profiles", "/dev/zero"});
    endless.waitFor("Konfiguracja pakietu");
    endless.send("\x03");
    EXPECT_EQ(endless.waitExit(), 128 + SIGINT) << "one is enough";
    EXPECT_EQ(endless.row(0), "");
}

}  // namespace
}  // namespace crv::test
