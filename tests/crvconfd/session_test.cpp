// Opening and keeping a profile as a person does it, with everything that can go wrong on the way.
#include <algorithm>
#include <csignal>
#include <fstream>

#include "misc/file_semaphore.h"
#include "session_screen.h"

namespace crv::test {
namespace {

const std::string kSelection = "Wybierz profil:";
const std::string kNewPassword = "Wprowadź nowe hasło dostępu:";
const std::string kRepeat = "Powtórz hasło:";
const std::string kSeeding = "aby zainicjowac generator pseudolosowy:";
const std::string kNoDatabase = "Bazy danych pakietu nie istnieją";
const std::string kNoFile = "Plik bezpieczeństwa pakietu nie istnieje";

TEST_F(SessionScreen, EscapeAndNoLeaveEveryStepOfTheCreationBehind) {
    start();
    play({{kSelection, keys::kEnter}, {kNoDatabase, "xn"}, {kSelection, ""}});
    EXPECT_FALSE(std::filesystem::exists(file("db")));
    const Step open{kSelection, keys::kEnter}, create{kNoFile, "T"}, password{kNewPassword, kPassword + keys::kEnter};
    play({open, {kNoDatabase, "t"}, {kNoFile, "n"}});
    play({open, create, {kNewPassword, keys::kEscape}});
    play({open, create, password, {kRepeat, keys::kEscape}});
    play({open, create, password, {kRepeat, kPassword + keys::kEnter}, {kSeeding, "abc" + keys::kEscape}});
    message("Operacja przerwana przez użytkownika !!!");
    play({{kSelection, "w"}});
    EXPECT_EQ(screen->waitExit(), 0);
    EXPECT_EQ(screen->errors(), "");
    EXPECT_FALSE(std::filesystem::exists(file("praca.p12")));
    EXPECT_EQ(run("ls -A | sort"), "db\nlista.conf\n") << "nothing else is left behind";
}

TEST_F(SessionScreen, PasswordsAreAskedUntilTheyAreGoodAndRepeatedThreeTimesAtMost) {
    start();
    play({{kSelection, keys::kEnter}, {kNoDatabase, "t"}, {kNoFile, "t"}});
    for (const char* weak : {"", "Abcdef1", "abcdefg1", "ABCDEFG1", "Abcdefgh"}) {
        play({{kNewPassword, weak + keys::kEnter}, {"jedną małą oraz jeden inny znak (cyfra lub inne) !!!", ""}});
        EXPECT_EQ(screen->row(22), "Hasło musi mieć przynajmniej 8 znaków, mieć co najmniej jedną dużą literę,");
        screen->send(" ");
    }
    for (const char* wrong : {"", "Abcdefg2", "abcdefg1"})
        play({{kNewPassword, kPassword + keys::kEnter},
              {kRepeat, wrong + keys::kEnter},
              {"Niepoprawne powtórzenie hasła", " "}});
    play({{kSelection, keys::kEnter}, {kNoFile, "t"}});
    // What was typed and taken back is no part of a password.
    play({{kNewPassword, kPassword + "xyz" + keys::kBackspace + keys::kBackspace + keys::kBackspace + keys::kEnter},
          {kRepeat, kPassword + keys::kEnter},
          {kSeeding, std::string(29, 'k')}});
    screen->waitFor(kSeeding + " - 29");
    screen->send(keys::kEnter);
    message("Zainicjowanie generatora wymaga podania co najmniej 30 znaków tekstu !!!");
    play({{kSeeding, std::string(300, 'k')}});
    screen->waitFor(kSeeding + " - 256");
    screen->send(keys::kEnter);
    EXPECT_EQ(leave(), 0);
    EXPECT_EQ(secrets(), "seed 20\n");
    EXPECT_EQ(std::filesystem::status(file("praca.p12")).permissions(),
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
}

TEST_F(SessionScreen, AWrongPasswordIsAskedAgainAsOftenAsNeeded) {
    prepare();
    start();
    play({{kSelection, keys::kEnter}});
    for (const std::string& wrong : {std::string(), std::string("Abcdefg2"), std::string("abcdefg1"),
                                     std::string(254, 'x'), std::string("Zażółć gęślą")}) {
        play({{kAskPassword, wrong + keys::kEnter}});
        message("Błędne hasło/PIN lub naruszona integralność pliku bezpieczeństwa !!!");
    }
    // A resize in the middle of the entry loses nothing of it.
    play({{kAskPassword, keys::kEscape}, {kSelection, keys::kEnter}, {kAskPassword, kPassword.substr(0, 4)}});
    screen->waitFor(kAskPassword + "****");
    screen->resize(40, 120);
    screen->send(kPassword.substr(4));
    screen->waitFor(kAskPassword + "********");
    screen->send(keys::kEnter);
    screen->waitFor(kMainMenu);
    EXPECT_EQ(screen->row(0).substr(8), "Konfiguracja pakietu CORVANE 3.9.18.18 (K.2023030101) - [PRACA]");
    EXPECT_EQ(leave(), 0);
}

TEST_F(SessionScreen, FilesThatCannotBeUsedAreNamedAndLeftAlone) {
    prepare();
    const std::string good = readFile(file("praca.p12"));
    const auto broken = [&](const std::string& bytes, const std::string& text) {
        SCOPED_TRACE(text);
        writeFile(file("praca.p12"), bytes);
        start();
        play({{kSelection, keys::kEnter}, {kAskPassword, kPassword + keys::kEnter}});
        message(text);
        screen->waitUntil("the selection or the prompt again",
                          [&] { return screen->shows(kSelection) || screen->shows(kAskPassword); });
        EXPECT_EQ(readFile(file("praca.p12")), bytes);
    };
    const char* format = "Błędny format pliku bezpieczeństwa !!!";
    broken("", format);
    broken("no PFX", format);
    broken(good.substr(0, good.size() / 2), format);
    std::string flipped = good;
    flipped[good.size() / 2] ^= 1;
    broken(flipped, "Błędne hasło/PIN lub naruszona integralność pliku bezpieczeństwa !!!");
    std::filesystem::remove(file("praca.p12"));
    std::filesystem::create_directory(file("praca.p12"));
    start();
    play({{kSelection, keys::kEnter}, {kAskPassword, kPassword + keys::kEnter}});
    screen->waitFor("pliku bezpieczeństwa !!!");
}

TEST_F(SessionScreen, DatabasesThatCannotBeUsedAreRefused) {
    prepare();
    const auto refused = [&](const std::string& text) {
        start();
        play({{kSelection, keys::kEnter}});
        message(text);
        screen->waitFor(kSelection);
    };
    writeFile(file("db/version.txt"), "6");
    refused("Niepoprawna wersja bazy danych !!!");
    std::filesystem::remove_all(file("db"));
    writeFile(file("db"), "a file in the folder's place");
    start();
    play({{kSelection, keys::kEnter}});
    screen->waitUntil("refusal", [&] {
        return screen->shows("Brak dostępu do bazy danych !!!") || screen->shows("Błąd przy sprawdzaniu") ||
               screen->shows(kNoDatabase);
    });
    std::filesystem::remove(file("db"));
    // A folder in which nobody can make anything.
    writeFile(file("lista.conf"),
              "\\Praca\\Type [l] = 1\n\\Praca\\Pkcs12File [s] = \"/proc/praca.p12\"\n"
              "\\Praca\\dbtype [s] = \"corvane\"\n\\Praca\\db [s] = \"/proc/praca\"\n");
    start();
    play({{kSelection, keys::kEnter}, {kNoDatabase, "t"}});
    message("Błąd przy tworzeniu bazy danych !!!");
    screen->waitFor(kSelection);
}

TEST_F(SessionScreen, AFailingSaveLeavesTheOldFileAndSaysSo) {
    // Without a folder to put it in, a new security file has no lock either.
    writeFile(file("lista.conf"),
              "\\Praca\\Type [l] = 1\n\\Praca\\Pkcs12File [s] = \"~/nie/ma/praca.p12\"\n"
              "\\Praca\\dbtype [s] = \"brak\"\n");
    start();
    play({{kSelection, keys::kEnter},
          {kNoFile, "t"},
          {kNewPassword, kPassword + keys::kEnter},
          {kRepeat, kPassword + keys::kEnter},
          {kSeeding, std::string(30, 'k') + keys::kEnter}});
    message("Błąd blokady pliku bezpieczeństwa !!!");
    play({{kSelection, "w"}});
    EXPECT_EQ(screen->waitExit(), 0);
}

TEST_F(SessionScreen, AFullDiskKeepsTheOldSecurityFile) {
    prepareKey(true);
    // More than the limit that the new file may grow to.
    startUnder("trap '' XFSZ; ulimit -f 1");
    const std::string before = readFile(file("praca.p12"));
    play({{kSelection, keys::kEnter}, {kAskPassword, kPassword + keys::kEnter}});
    message("Błąd zapisu pliku bezpieczeństwa !!!");
    screen->waitFor(kSelection);
    EXPECT_EQ(readFile(file("praca.p12")), before);
    EXPECT_EQ(run("ls -A | grep -c praca"), "2\n") << "the file and its lock, nothing half written";
}

TEST_F(SessionScreen, AFullDiskFailsAnImportAndNothingElse) {
    prepareKey(true);
    std::filesystem::remove(file("praca.p12"));
    prepare();
    demoCa("correspondents ca 9 osoby.der");
    startUnder("trap '' XFSZ; ulimit -f 1");
    logIn();
    const Steps import{{"6) Usuń", "3"}, {"Podaj nazwę pliku", "~/osoby.der\r"}};
    play({{kMainMenu, "3"}});
    play(import);
    message("Błąd bazy danych !!!");
    play({{"6) Usuń", "w"}});
    EXPECT_EQ(leave(), 0);
    start();
    logIn();
    play({{kMainMenu, "3"}});
    play(import);
    message("Wczytano 9 certyfikatów.");
}

#ifndef __SANITIZE_ADDRESS__  // which needs the memory for itself
TEST_F(SessionScreen, AFileThatNoMemoryHoldsIsSaidSo) {
    prepare();
    run("truncate -s 900M wielki");
    startUnder("ulimit -v 400000");
    logIn();
    play({{kMainMenu, "3"}, {"6) Usuń", "3"}, {"Podaj nazwę pliku", "~/wielki\r"}});
    message("Brak pamięci !!!");
    play({{"6) Usuń", "w"}});
    EXPECT_EQ(leave(), 0);
}
#endif

TEST_F(SessionScreen, ALockHeldByAnotherProgramIsWaitedFor) {
    prepare();
    start();
    FileSemaphore other(file("praca.p12.lck"));
    ASSERT_EQ(other.p(exclusiveLock), 1);
    const std::string waiting = "Plik bezpieczeństwa jest używany przez inny program, proszę czekać...";
    play({{kSelection, keys::kEnter}, {kAskPassword, kPassword + keys::kEnter}, {waiting, ""}});
    other.v();
    screen->waitFor(kMainMenu);
    // Ctrl-C while a save waits: the file stays, the terminal is given back.
    ASSERT_EQ(other.p(exclusiveLock), 1);
    const std::string before = readFile(file("praca.p12"));
    play({{kMainMenu, "17"}, {kNewPassword, "Hijklmn2\r"}, {kRepeat, "Hijklmn2\r"}, {waiting, "\x03"}});
    EXPECT_EQ(screen->waitExit(), 128 + SIGINT);
    EXPECT_EQ(readFile(file("praca.p12")), before);
    EXPECT_TRUE(screen->cursorVisible());
}

TEST_F(SessionScreen, ThePasswordChangeKeepsItsRules) {
    prepare();
    start();
    logIn();
    const std::string change = "7) Zmiana hasła";
    play({{kMainMenu, "1"}, {change, "7"}, {kNewPassword, keys::kEscape}, {change, "7"}, {kNewPassword, keys::kEnter}});
    play({{change, "7"}, {kNewPassword, "krotkie\r"}, {"(cyfra lub inne) !!!", " "}, {kNewPassword, keys::kEscape}});
    play({{change, "7"}, {kNewPassword, "Hijklmn2\r"}, {kRepeat, "Hijklmn3\r"}, {"Hasła się nie zgadzają !!!", " "}});
    play({{change, "7"}, {kNewPassword, "Hijklmn2\r"}, {kRepeat, keys::kEscape}});
    screen->waitFor(change);
    EXPECT_TRUE(opensWith(kPassword));
    // The field ends after 39 characters.
    const std::string longest = "Aa1" + std::string(36, 'b');
    play({{change, "7"},
          {kNewPassword, longest + "ccc\r"},
          {kRepeat, longest + "\r"},
          {"Hasło zostało zmienione", " "},
          {change, "w"}});
    EXPECT_FALSE(opensWith(kPassword));
    EXPECT_TRUE(opensWith(longest));
    // Later saves use it.
    play({{kMainMenu, "17"}, {kNewPassword, "Zażółć12\r"}, {kRepeat, "Zażółć12\r"}, {"Hasło zostało zmienione", " "}});
    play({{change, "w"}});
    EXPECT_EQ(leave(), 0);
    EXPECT_TRUE(opensWith("Zażółć12"));
}

TEST_F(SessionScreen, OnePasswordOpensTheFileFromEveryTerminal) {
    prepare();
    start();
    logIn();
    const std::string password = "Zażółć12";
    play({{kMainMenu, "17"}, {kNewPassword, password + "\r"}, {kRepeat, password + "\r"}, {"zmienione", " "}});
    play({{"7) Zmiana hasła", "w"}});
    ASSERT_EQ(leave(), 0);
    const std::string octets = std::string("Za\xbf\xf3\xb3\xe6") + "12";
    for (const auto& [option, typed] :
         {std::pair{"-utf8", password}, {"-ascii", password}, {"-latin2", octets}, {"-cp1250", octets}}) {
        SCOPED_TRACE(option);
        start({option, "-profile", "praca"}, {}, std::string(option) == "-utf8");
        play({{"dost", typed + "\r"}, {"1) Klucze", "w"}});
        EXPECT_EQ(screen->waitExit(), 0);
        EXPECT_EQ(screen->title(), "Konfiguracja CORVANE 3.9.18.18 - [praca]");
    }
}

TEST_F(SessionScreen, AKilledPasswordChangeLeavesAFileUnderOneOfTheTwoPasswords) {
    prepare();
    std::string current = kPassword;
    for (const int delay : {0, 2, 5, 9, 14, 20}) {
        start();
        logIn(current);
        const std::string next = "Nowe" + std::to_string(delay) + "haslo";
        play({{kMainMenu, "17"}, {kNewPassword, next + "\r"}, {kRepeat, next + "\r"}});
        shell("sleep 0.0" + std::string(delay < 10 ? "0" : "") + std::to_string(delay));
        screen->send("\x03");
        EXPECT_EQ(screen->waitExit(), 128 + SIGINT);
        if (opensWith(next))
            current = next;
        else
            ASSERT_TRUE(opensWith(current));
    }
}

TEST_F(SessionScreen, KindsThatTheConsoleCannotOpenSayWhy) {
    for (const auto& [type, text] : {std::pair{"7", "Nieznany typ profilu"},
                                     {"5", "Błąd podczas inicjowania biblioteki PKCS#11"},
                                     {"3", "bibliotek"}}) {
        writeFile(file("lista.conf"), "\\A\\Type [l] = " + std::string(type) + "\n\\A\\dbtype [s] = \"w pamieci\"\n");
        start();
        play({{kSelection, keys::kEnter}, {text, ""}});
        EXPECT_EQ(screen->row(23).find("Assertion"), std::string::npos);
        screen->send(" ");
        EXPECT_EQ((play({{kSelection, "w"}}), screen->waitExit()), 0);
    }
}

TEST_F(SessionScreen, LongNamesAreCutInTheHeaderOnly) {
    const std::string name(100, 'n');
    writeFile(file("lista.conf"), "\\" + name + "\\Type [l] = 1\n\\" + name + "\\dbtype [s] = \"brak\"\n");
    start({"-profile", name});
    screen->waitFor(kNoFile);
    EXPECT_EQ(screen->row(0),
              "Konfiguracja pakietu CORVANE 3.9.18.18 (K.2023030101) - [" + name.substr(0, 19) + "...]");
    EXPECT_EQ(screen->title(), "Konfiguracja CORVANE 3.9.18.18 - [" + name + "]");
    screen->send("n");
    EXPECT_EQ(screen->waitExit(), 0) << "a profile named by the command line is opened once";
}

// Menus.

TEST_F(SessionScreen, MenusShowTheirEntriesInEveryTerminalMode) {
    prepare();
    for (const char* mode : {"-termdumb", "-termsimple", "-termrich"}) {
        SCOPED_TRACE(mode);
        start({mode});
        logIn();
        const bool dumb = std::string(mode) == "-termdumb", rich = std::string(mode) == "-termrich";
        for (const auto& [row, text] : {std::pair{10, "1) Klucze"},
                                        {11, "2) Konfiguracja"},
                                        {12, "3) Bazy danych"},
                                        {13, "4) Szczegóły profilu"},
                                        {15, "W) Wyjście"}}) {
            EXPECT_EQ(screen->row(row), std::string(23, ' ') + text);
            EXPECT_EQ(screen->cell(row, 23).underline, rich);
            EXPECT_EQ(screen->cell(row, 23).reverse, !rich && !dumb);
        }
        screen->send("q8 3");  // keys that mean nothing, then the databases
        screen->waitUntil("the databases' menu is drawn to its last row",
                          [&] { return screen->row(12) == std::string(23, ' ') + "W) Wyjście"; });
        screen->resize(30, 100);
        screen->waitFor("Eksportuj wszystkie certyfikaty");
        play({{"Przeglądaj bazę CRL", "w"}, {"1) Klucze", "2"}, {"9) Rozszerzone zastosowanie klucza", "W"}});
        screen->waitFor("1) Klucze");
        EXPECT_EQ(leave(), 0);
    }
}

// Databases.

class DataBaseScreen : public SessionScreen {
  protected:
    void SetUp() override {
        prepareKey(true);
        start();
        logIn();
        play({{kMainMenu, "3"}});
    }
    /// Chooses an entry, types the name of a file and puts the answer away.
    void answer(const std::string& entry, const std::string& name, const std::string& text) {
        play({{"6) Usuń przeterminowane", entry}, {"Poda", name + "\r"}, {text, " "}});
    }
    size_t certificates() {
        std::filesystem::remove(file("wszystkie.der"));
        play({{"6) Usuń przeterminowane", "5"},
              {"Podaj nazwą pliku do ktorego", "~/wszystkie.der\r"},
              {"w liczbie", " "}});
        screen->waitFor("6) Usuń przeterminowane");
        return static_cast<size_t>(
            std::stoul(run("python3 -c \"\n"
                           "import sys\nd=open('wszystkie.der','rb').read()\nn=0\n"
                           "while d: d=d[4+int.from_bytes(d[2:4],'big'):]; n+=1\n"
                           "print(n)\"")));
    }
};

TEST_F(DataBaseScreen, CertificatesAreImportedInEveryFormAndCounted) {
    demoCa("correspondents ca 3 trzy.der");
    run("cat trzy.der user.crt > cztery.der; openssl crl2pkcs7 -nocrl -certfile ca/ca.pem -certfile user.pem -outform "
        "DER -out paczka.p7b; (cat trzy.der; echo to nie certyfikat) > zepsute.der; : > pusty; cp praca.p12 inny.p12");
    for (const auto& [name, text] :
         std::vector<std::pair<std::string, std::string>>{{"nie_ma", "Błąd otwarcia pliku nie_ma !!!"},
                                                          {file(""), "Błąd otwarcia pliku"},
                                                          {file("pusty"), "Wczytano 0 certyfikatów."},
                                                          {file("inny.p12"), "Wczytano 0 certyfikatów."},
                                                          {"~/zepsute.der", "Wczytano 3 certyfikatów."},
                                                          {"~/trzy.der", "Wczytano 3 certyfikatów."},
                                                          {"~/cztery.der", "Wczytano 4 certyfikatów."},
                                                          {"~/paczka.p7b", "Wczytano 2 certyfikatów."},
                                                          {"~/ca/ca.pem", "Wczytano 1 certyfikatów."}}) {
        answer("3", name, text);
    }
    EXPECT_EQ(certificates(), 5U) << "each once";
    play({{"6) Usuń", "3"}, {"Podaj nazwę pliku z certyfikatami:", "a b" + keys::kEscapeTwice}, {"6) Usuń", "w"}});
    EXPECT_EQ(leave(), 0);
}

TEST_F(DataBaseScreen, AnImportStopsOnEscapeAndKeepsWhatItHas) {
    run("for i in 1 2 3 4 5 6 7 8; do cat user.crt user.crt > b; mv b user.crt; done; cp user.crt c; "
        "for i in $(seq 400); do cat c; done > wiele.der");
    play({{"6) Usuń", "3"}, {"Podaj nazwę pliku z certyfikatami:", "~/wiele.der\r"}});
    screen->waitUntil("a count", [&] {
        return screen->shows("Trwa wczytywanie certyfikatów: ") && !screen->shows("certyfikatów: 0");
    });
    screen->send(keys::kEscapeTwice);
    screen->waitFor("Wczytano ");
    EXPECT_FALSE(screen->shows("Wczytano 102400")) << screen->row(23);
    screen->send(" ");
    EXPECT_EQ(certificates(), 1U);
}

TEST_F(DataBaseScreen, ExportsAreWholeAndNeverGoOverTheProfile) {
    play({{"6) Usuń", "5"}, {"Brak certyfikatów w bazie danych", " "}});
    demoCa("correspondents ca 2 dwa.der");
    answer("3", "~/dwa.der", "Wczytano 2 certyfikatów.");
    const std::string p12 = readFile(file("praca.p12")), list = readFile(file("lista.conf"));
    run("ln -s praca.p12 dowiazanie; ln praca.p12 twarde");
    for (const char* name : {"~/praca.p12", "~/lista.conf", "~/praca.p12.lck", "~/db/certific.dat", "~/db/nowy",
                             "~/dowiazanie", "~/twarde", "~/nie/ma/pliku", "~/.crvprofiles.conf", "~/db", ""})
        answer("5", name, "Błąd otwarcia pliku " + std::string(name));
    EXPECT_EQ(readFile(file("praca.p12")), p12);
    EXPECT_EQ(readFile(file("lista.conf")), list);
    answer("5", "~/eksport.der", "Zapisano certyfikaty w liczbie: 2");
    EXPECT_EQ(readFile(file("eksport.der")), readFile(file("dwa.der")));
    answer("5", "/dev/full", "Błąd zapisu pliku /dev/full !!!");
}

TEST_F(DataBaseScreen, CrlsAreVerifiedAndKept) {
    run("openssl crl -in ca.crl -inform DER -out lista.pem; head -c 40 ca.crl > ucieta.crl; cp ca.crl stara.crl");
    const std::string entry = "4", question = "Wystąpił błąd weryfikacji listy CRL. Czy mimo to chcesz wczytać listę";
    answer(entry, "nie_ma", "Błąd otwarcia pliku nie_ma");
    for (const char* name : {"~/ucieta.crl", "~/user.crt", "~/praca.p12", "~/lista.conf"})
        answer(entry, name, "Błędny format listy CRL !!!");
    play({{"6) Usuń", entry}, {"Podaj nazwe pliku z lista CRL:", "~/lista.pem\r"}, {question, "n"}});
    EXPECT_FALSE(std::filesystem::exists(file("db/1.crl")));
    play({{"6) Usuń", entry},
          {"Podaj nazwe pliku z lista CRL:", "~/lista.pem\r"},
          {question, "t"},
          {"Lista CRL poprawnie wczytana", " "}});
    EXPECT_EQ(readFile(file("db/1.crl")), readFile(file("ca.crl")));
    demoCa("revoke ca user.crt");
    play({{"6) Usuń", entry}, {"Podaj nazwe", "~/ca/ca.crl\r"}, {question, "t"}, {"poprawnie wczytana", " "}});
    play({{"6) Usuń", entry},
          {"Podaj nazwe", "~/stara.crl\r"},
          {question, "t"},
          {"Wczytywana lista CRL jest starsza niż znajdująca się w bazie danych.", " "}});
    EXPECT_EQ(run("cat db/*.crl | openssl crl -inform DER -noout -text | grep -c 'Serial Number: 01'"), "1\n");
}

TEST_F(DataBaseScreen, ExpiredCertificatesAreRemovedAfterTheTimeIsConfirmed) {
    demoCa("correspondents ca 2 dwa.der");
    run("faketime=; openssl req -x509 -key user.key -subj /CN=stary -days 1 -out dawny.pem -not_before 20200101000000Z "
        "-not_after 20200102000000Z 2>/dev/null || openssl ca -batch -config ca/ca.cnf -in user.req -startdate "
        "20200101000000Z -enddate 20200102000000Z -notext -out dawny.pem 2>/dev/null");
    answer("3", "~/dwa.der", "Wczytano 2");
    answer("3", "~/dawny.pem", "Wczytano 1");
    play({{"6) Usuń", "6"}, {"jest poprawny (t/n) ?", ""}});
    EXPECT_EQ(screen->row(0).find("Porządkowanie bazy certyfikatów") != std::string::npos, true);
    const std::string year = run("date +'Czy czas systemowy: %Y.%m.%d %H:'");
    EXPECT_NE(screen->row(23).find(year.substr(0, year.size() - 1)), std::string::npos) << screen->row(23);
    EXPECT_NE(screen->row(23).find("  jest poprawny (t/n) ?"), std::string::npos);
    screen->send("n");
    EXPECT_EQ(certificates(), 3U);
    play({{"6) Usuń", "6"}, {"jest poprawny", "t"}, {"Usunięto 1 certyfikatów. Pozostało 2 certyfikatów", " "}});
    EXPECT_EQ(certificates(), 2U);
    play({{"6) Usuń", "6"}, {"jest poprawny", "t"}, {"Usunięto 0 certyfikatów. Pozostało 2 certyfikatów", " "}});
}

// Installing the user's certificate.

TEST_F(SessionScreen, TheUsersCertificateIsInstalledOnceForItsKey) {
    prepare();
    start();
    logIn();
    play({{kMainMenu, "1"}, {"6) Instaluj", "6"}, {"Brak kluczy, nie można zainstalować certyfikatu !!!", " "}});
    std::filesystem::remove_all(file("db"));
    prepareKey(false);
    start();
    logIn();
    play({{kMainMenu, "1"}});
    const auto install = [&](const std::string& name, const std::string& text) {
        play({{"6) Instaluj", "6"}, {"Podaj nazwę pliku z certyfikatem: ", name + "\r"}, {text, " "}});
    };
    install("nie ma", "Plik nie ma nie zawiera poprawnego certyfikatu !!!");
    install("~/ca.crl", "Plik ~/ca.crl nie zawiera poprawnego certyfikatu !!!");
    install("~/ca.crt", "Certyfikat nie jest sparowany z zadnym kluczem uzytkownika !!!");
    run("mv db gdzie; openssl crl2pkcs7 -nocrl -certfile ca/ca.pem -certfile user.pem -out paczka.p7b");
    install("~/user.crt", "Błąd bazy danych !!!");
    EXPECT_EQ(secrets().find("certificate"), std::string::npos) << "nothing was saved";
    run("rm -rf db; mv gdzie db");
    install("~/paczka.p7b", "Certyfikat użytkownika poprawnie zainstalowany");
    install("~/user.pem", "Certyfikat do tego zastosowania już istnieje !!!");
    play({{"6) Instaluj", "6"}, {"Podaj nazwę", keys::kEscapeTwice}, {"6) Instaluj", "w"}});
    EXPECT_EQ(leave(), 0);
    EXPECT_EQ(secrets(), "certificate\nkey\nseed 20\n");
}

}  // namespace
}  // namespace crv::test
