// Opening and keeping a profile as a person does it, with everything that can go wrong on the way.
#include <csignal>

#include "misc/file_semaphore.h"
#include "session_screen.h"
#include "support/cert_maker.h"
#include "support/pg_server.h"

namespace crv::test {
namespace {

TEST_F(SessionScreen, EscapeAndNoLeaveEveryStepOfTheCreationBehind) {
    start();
    play({{kSelection, "\r"}, {kNoDatabase, "xn"}, {kSelection, ""}});
    EXPECT_FALSE(std::filesystem::exists(file("db")));
    const Step open{kSelection, "\r"}, create{kNoFile, "T"}, password{kNewPassword, kPassword + "\r"};
    play({open, {kNoDatabase, "t"}, {kNoFile, "n"}});
    play({open, create, {kNewPassword, keys::kEscape}});
    play({open, create, password, {kRepeat, keys::kEscape}});
    play({open, create, password, {kRepeat, kPassword + "\r"}, {kSeeding, "abc" + keys::kEscape}});
    message("Operacja przerwana przez użytkownika !!!");
    EXPECT_EQ(leave(kSelection), 0);
    EXPECT_EQ(screen->errors(), "");
    EXPECT_FALSE(std::filesystem::exists(file("praca.p12")));
    EXPECT_EQ(run("ls -A | sort"), "db\nlista.conf\n") << "nothing else is left behind";
}

TEST_F(SessionScreen, PasswordsAreAskedUntilTheyAreGoodAndRepeatedThreeTimesAtMost) {
    start();
    play({{kSelection, "\r"}, {kNoDatabase, "t"}, {kNoFile, "t"}});
    for (const char* weak : {"", "Abcdef1", "abcdefg1", "ABCDEFG1", "Abcdefgh"}) {
        play({{kNewPassword, weak + keys::kEnter}, {"jedną małą oraz jeden inny znak (cyfra lub inne) !!!", ""}});
        EXPECT_EQ(screen->row(22), "Hasło musi mieć przynajmniej 8 znaków, mieć co najmniej jedną dużą literę,");
        screen->send(" ");
    }
    for (const char* wrong : {"", "Abcdefg2", "abcdefg1"}) {
        play({{kNewPassword, kPassword + "\r"},
              {kRepeat, wrong + keys::kEnter},
              {"Niepoprawne powtórzenie hasła", " "}});
    }
    play({{kSelection, "\r"}, {kNoFile, "t"}});
    // What was typed and taken back is no part of a password.
    play({{kNewPassword, kPassword + "xyz" + keys::kBackspace + keys::kBackspace + keys::kBackspace + "\r"},
          {kRepeat, kPassword + "\r"},
          {kSeeding, std::string(29, 'k')}});
    play({{kSeeding + " - 29", "\r"}});
    message("Zainicjowanie generatora wymaga podania co najmniej 30 znaków tekstu !!!");
    play({{kSeeding, std::string(300, 'k')}, {kSeeding + " - 256", "\r"}});
    EXPECT_EQ(leave(), 0);
    EXPECT_EQ(secrets(), "seed 20\n");
    EXPECT_EQ(std::filesystem::status(file("praca.p12")).permissions(),
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
}

TEST_F(SessionScreen, AWrongPasswordIsAskedAgainAsOftenAsNeeded) {
    prepare();
    startUnder("export CRV_LOG=" + file("log"));
    play({{kSelection, "\r"}});
    for (const std::string& wrong :
         std::vector<std::string>{"", "Abcdefg2", "abcdefg1", std::string(254, 'x'), "Zażółć gęślą"})
        play({{kAskPassword, wrong + "\r"}, {kWrongPassword, " "}});
    // A resize in the middle of the entry loses nothing of it.
    play({{kAskPassword, keys::kEscape}, {kSelection, "\r"}, {kAskPassword, kPassword.substr(0, 4)}});
    screen->waitFor(kAskPassword + "****");
    screen->resize(40, 120);
    play({{kAskPassword, kPassword.substr(4)}, {kAskPassword + "********", "\r"}, {kMainMenu, ""}});
    EXPECT_EQ(screen->row(0).substr(28), "Konfiguracja pakietu CORVANE 3.9.18.18 (K.2023030101) - [PRACA]");
    EXPECT_EQ(leave(), 0);
    EXPECT_NE(
        readFile(file("log")).find("log-in to profile \"PRACA\", file \"" + file("praca.p12") + "\": wrong password"),
        std::string::npos);
}

TEST_F(SessionScreen, FilesThatCannotBeUsedAreNamedAndLeftAlone) {
    prepare();
    const std::string good = readFile(file("praca.p12")), format = "Błędny format pliku bezpieczeństwa !!!";
    std::string flipped = good;
    flipped[good.size() / 2] ^= 1;
    for (const auto& [bytes, text] : {std::pair{std::string(), format},
                                      {"no PFX", format},
                                      {good.substr(0, good.size() / 2), format},
                                      {flipped, kWrongPassword}}) {
        writeFile(file("praca.p12"), bytes);
        start();
        play({{kSelection, "\r"}, {kAskPassword, kPassword + "\r"}, {text, " "}});
        screen->waitUntil("the selection or the prompt again",
                          [&] { return screen->shows(kSelection) || screen->shows(kAskPassword); });
        EXPECT_EQ(readFile(file("praca.p12")), bytes);
    }
    std::filesystem::remove(file("praca.p12"));
    std::filesystem::create_directory(file("praca.p12"));
    start();
    play({{kSelection, "\r"}, {"Katalog w miejscu pliku: " + file("praca.p12"), " "}, {kSelection, ""}});
}

TEST_F(SessionScreen, PlacesThatCannotBeUsedAreRefused) {
    prepare();
    const auto profile = [&](const std::string& p12, const std::string& type, const std::string& db) {
        writeFile(file("lista.conf"), "\\Praca\\Type [l] = 1\n\\Praca\\Pkcs12File [s] = \"" + p12 +
                                          "\"\n\\Praca\\dbtype [s] = \"" + type + "\"\n\\Praca\\db [s] = \"" + db +
                                          "\"\n");
    };
    const auto choose = [&](const Steps& steps) {
        start();
        play({{kSelection, "\r"}});
        play(steps);
    };
    writeFile(file("db/version.txt"), "6");
    choose({{"Niepoprawna wersja bazy danych !!!", " "}, {kSelection, ""}});
    std::filesystem::remove_all(file("db"));
    writeFile(file("db"), "a file in the folder's place");
    choose({});
    screen->waitUntil("refusal", [&] {
        return screen->shows("Brak dostępu do bazy danych !!!") || screen->shows("Błąd przy sprawdzaniu") ||
               screen->shows(kNoDatabase);
    });
    // A folder in which nobody can make anything.
    profile("/proc/praca.p12", "corvane", "/proc/praca");
    choose({{kNoDatabase, "t"}, {"Błąd przy tworzeniu bazy danych !!!", " "}, {kSelection, ""}});
    // Said before anybody types a password.
    profile("~/nie/ma/praca.p12", "brak", "");
    choose({{"Nie ma katalogu: " + file("nie/ma/"), " "}});
    EXPECT_EQ(leave(kSelection), 0);
}

TEST_F(SessionScreen, AFullDiskKeepsTheOldSecurityFileAndFailsAnImport) {
    prepareKey(true);
    // More than the limit that the new file may grow to.
    startUnder("trap '' XFSZ; ulimit -f 1");
    const std::string before = readFile(file("praca.p12"));
    play({{kSelection, "\r"}, {kAskPassword, kPassword + "\r"}, {"Błąd zapisu pliku bezpieczeństwa !!!", " "}});
    screen->waitFor(kSelection);
    EXPECT_EQ(readFile(file("praca.p12")), before);
    EXPECT_EQ(run("ls -A | grep -c praca"), "3\n") << "the file, its lock and its history, nothing half written";
    prepare();
    demoCa("correspondents ca 9 osoby.der");
    for (const char* end : {"Błąd bazy danych !!!", "Wczytano 9 certyfikatów."}) {
        logIn();
        play({{kMainMenu, "3"}, {"6) Usuń", "3"}, {"Podaj nazwę pliku", "~/osoby.der\r"}, {end, " "}});
        EXPECT_EQ(leave("6) Usuń"), 0);
        start();
    }
}

#ifndef __SANITIZE_ADDRESS__  // which needs the memory for itself
TEST_F(SessionScreen, AFileThatNoMemoryHoldsIsSaidSo) {
    prepare();
    run("truncate -s 900M wielki");
    startUnder("ulimit -v 400000");
    logIn();
    play({{kMainMenu, "3"}, {"6) Usuń", "3"}, {"Podaj nazwę pliku", "~/wielki\r"}, {"Brak pamięci !!!", " "}});
    EXPECT_EQ(leave("6) Usuń"), 0);
}
#endif

TEST_F(SessionScreen, ALockHeldByAnotherProgramIsWaitedFor) {
    prepare();
    start();
    FileSemaphore other(file("praca.p12.lck"));
    ASSERT_EQ(other.p(kExclusiveLock), 1);
    const std::string waiting = "Plik bezpieczeństwa jest używany przez inny program, proszę czekać...";
    play({{kSelection, "\r"}, {kAskPassword, kPassword + "\r"}, {waiting, ""}});
    other.v();
    screen->waitFor(kMainMenu);
    // Escape or Ctrl-C while a save waits: the file stays, the terminal is given back.
    ASSERT_EQ(other.p(kExclusiveLock), 1);
    const std::string before = readFile(file("praca.p12"));
    const Steps change{{kNewPassword, "Hijklmn2\r"}, {kRepeat, "Hijklmn2\r"}};
    play({{kMainMenu, "17"}});
    play(change);
    play({{waiting, keys::kEscape}, {"Operacja przerwana przez użytkownika !!!", " "}, {"7) Zmiana hasła", "7"}});
    play(change);
    play({{waiting, "\x03"}});
    EXPECT_EQ(screen->waitExit(), 128 + SIGINT);
    EXPECT_EQ(readFile(file("praca.p12")), before);
    EXPECT_TRUE(screen->cursorVisible());
}

TEST_F(SessionScreen, ThePasswordChangeKeepsItsRulesAndSuitsEveryTerminal) {
    prepareKey(true);
    open("1");
    const std::string change = "7) Zmiana hasła", done = "Hasło zostało zmienione", copies = "mają dawne hasło";
    play({{change, "7"}, {kNewPassword, keys::kEscape}, {change, "7"}, {kNewPassword, "\r"}});
    play({{change, "7"}, {kNewPassword, "krotkie\r"}, {"(cyfra lub inne) !!!", " "}, {kNewPassword, keys::kEscape}});
    play({{change, "7"}, {kNewPassword, "Hijklmn2\r"}, {kRepeat, "Hijklmn3\r"}, {"Hasła się nie zgadzają !!!", " "}});
    play({{change, "7"}, {kNewPassword, "Hijklmn2\r"}, {kRepeat, keys::kEscape}, {change, ""}});
    EXPECT_TRUE(opensWith(kPassword));
    // The field ends after 39 characters.
    const std::string longest = "Aa1" + std::string(36, 'b'), polish = "Zażółć12";
    play({{change, "7"}, {kNewPassword, longest + "c" + keys::kBackspace + "\r"}, {kTooLong, " "}});
    play({{kNewPassword, longest + "\r"}, {kRepeat, longest + "c\r"}, {kTooLong, " "}, {kRepeat, longest + "\r"}});
    play({{done, " "}, {copies, " "}, {change, "w"}});
    EXPECT_FALSE(opensWith(kPassword));
    EXPECT_TRUE(opensWith(longest));
    // Later saves use it, and so does the next change.
    play({{kMainMenu, "28"}, {"ANY POLICY", "d"}, {"Podaj identyfikator", "1.2.3\r"}, {"Podaj nazwę", "a\r"}});
    play({{" 1.2.3 ", "w"}, {"9) Rozszerzone", "w"}});
    EXPECT_TRUE(opensWith(longest));
    play({{kMainMenu, "17"}, {kNewPassword, polish + "\r"}, {kRepeat, polish + "\r"}, {done, " "}});
    play({{copies, " "}});
    EXPECT_EQ(leave(change), 0);
    EXPECT_TRUE(opensWith(polish));
    const std::string octets = std::string("Za\xbf\xf3\xb3\xe6") + "12";
    for (const auto& [option, typed] :
         {std::pair{"-utf8", polish}, {"-ascii", polish}, {"-latin2", octets}, {"-cp1250", octets}}) {
        SCOPED_TRACE(option);
        start({option, "-profile", "praca"}, std::string(option) == "-utf8");
        play({{"dost", typed + "\r"}, {"1) Klucze", "w"}});
        EXPECT_EQ(screen->waitExit(), 0);
        EXPECT_EQ(screen->title(), "Konfiguracja CORVANE 3.9.18.18 - [praca]");
    }
}

TEST_F(SessionScreen, AKilledPasswordChangeLeavesAFileUnderOneOfTheTwoPasswords) {
    prepare();
    std::string current = kPassword;
    for (const std::string delay : {"0", "0.002", "0.005", "0.009", "0.014", "0.02"}) {
        start();
        logIn(current);
        const std::string next = "Nowe" + delay + "haslo";
        play({{kMainMenu, "17"}, {kNewPassword, next + "\r"}, {kRepeat, next + "\r"}});
        shell("sleep " + delay);
        screen->send("\x03");
        EXPECT_EQ(screen->waitExit(), 128 + SIGINT);
        if (opensWith(next)) {
            current = next;
        } else {
            ASSERT_TRUE(opensWith(current));
        }
    }
}

TEST_F(SessionScreen, KindsThatTheConsoleCannotOpenSayWhy) {
    for (const auto& [type, text] : {std::pair{"7", "Nieznany typ profilu"},
                                     {"5", "Błąd podczas inicjowania biblioteki PKCS#11"},
                                     {"3", "bibliotek"}}) {
        writeFile(file("lista.conf"), "\\A\\Type [l] = " + std::string(type) + "\n\\A\\dbtype [s] = \"w pamieci\"\n");
        start();
        play({{kSelection, "\r"}, {text, ""}});
        EXPECT_EQ(screen->row(23).find("Assertion"), std::string::npos);
        screen->send(" ");
        EXPECT_EQ(leave(kSelection), 0);
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
    for (const std::string mode : {"-termdumb", "-termsimple", "-termrich"}) {
        SCOPED_TRACE(mode);
        start({mode});
        logIn();
        int row = 10;
        for (const char* entry : {"1) Klucze", "2) Konfiguracja", "3) Bazy danych", "4) Szczegóły profilu"}) {
            EXPECT_EQ(screen->row(row), std::string(23, ' ') + entry);
            EXPECT_EQ(screen->cell(row, 23).underline, mode == "-termrich");
            EXPECT_EQ(screen->cell(row++, 23).reverse, mode == "-termsimple");
        }
        EXPECT_EQ(screen->row(15), std::string(23, ' ') + "W) Wyjście");
        screen->send("q8 3");  // keys that mean nothing, then the databases
        screen->waitUntil("the databases' menu is drawn to its last row",
                          [&] { return screen->row(12) == std::string(23, ' ') + "W) Wyjście"; });
        screen->resize(30, 100);
        play({{"Eksportuj wszystkie certyfikaty", ""}, {"Przeglądaj bazę CRL", "w"}, {"1) Klucze", "2"}});
        EXPECT_EQ(leave("9) Rozszerzone zastosowanie klucza"), 0);
    }
}

// Databases.

class DataBaseScreen : public SessionScreen {
  protected:
    void SetUp() override {
        prepareKey(true);
        open("3");
    }
    /// Chooses an entry, types the name of a file and puts the answer away; in between an answer to a question.
    void answer(const std::string& entry, const std::string& name, const std::string& text,
                const Steps& question = {}) {
        play({{"6) Usuń przeterminowane", entry}, {"Poda", name + "\r"}});
        play(question);
        play({{text, " "}, {"6) Usuń", ""}});
    }
    void expectCertificates(int count) {
        answer("5", "~/wszystkie.der", "Zapisano certyfikaty w liczbie: " + std::to_string(count));
    }
};

TEST_F(DataBaseScreen, CertificatesAreImportedInEveryFormOnceAndExportedButNotOverTheProfile) {
    play({{"6) Usuń", "5"}, {"Brak certyfikatów w bazie danych", " "}});
    demoCa("correspondents ca 3 trzy.der");
    run("cat trzy.der user.crt > cztery.der; openssl crl2pkcs7 -nocrl -certfile ca/ca.pem -certfile user.pem -outform "
        "DER -out paczka.p7b; (cat trzy.der; echo to nie certyfikat) > zepsute.der; : > pusty; cp praca.p12 inny.p12; "
        "ln -s praca.p12 dowiazanie");
    answer("3", "nie_ma", "Błąd otwarcia pliku nie_ma !!!");
    answer("3", file(""), "Błąd otwarcia pliku");
    const std::pair<std::string, int> imports[] = {{file("pusty"), 0}, {file("inny.p12"), 0}, {"~/zepsute.der", 3},
                                                   {"~/trzy.der", 3},  {"~/cztery.der", 4},   {"~/paczka.p7b", 2},
                                                   {"~/ca/ca.pem", 1}};
    for (const auto& [name, count] : imports) answer("3", name, "Wczytano " + std::to_string(count) + " certyfikatów.");
    const std::string longName = std::string(120, 'a') + "@example.com";
    save("dlugi.der",
         makeCert({.subject = {{"CN", "D"}}, .extensions = {{"subjectAltName", "email:" + longName}}}).der);
    play({{"6) Usuń", "3"}, {"Poda", "~/dlugi.der\r"}, {"Wczytano 0 certyfikatów. Odrzucono: 1.", " "}});
    play({{"Odrzucone certyfikaty", ""}, {"adres e-mail dłuższy niż 128 znaków", "w"}});
    const std::string p12 = readFile(file("praca.p12")), list = readFile(file("lista.conf"));
    const std::string isList = "To jest lista profili, podaj inną nazwę: ", notOpened = "Błąd otwarcia pliku ";
    const std::pair<std::string, std::string> refusals[] = {
        {"~/praca.p12", kOfTheProfile},  {"~/praca.p12.lck", kOfTheProfile},
        {"~/db/nowy", kOfTheProfile},    {"~/dowiazanie", kOfTheProfile},
        {"~/db", kOfTheProfile},         {"~/lista.conf", isList},
        {"~/.crvprofiles.conf", isList}, {"~/inny.p12", "Plik zawiera klucze (PKCS#12), podaj inną nazwę: "},
        {"~/nie/ma/pliku", notOpened},   {"", notOpened}};
    for (const auto& [name, text] : refusals) answer("5", name, text + name);
    play({{"6) Usuń", "5"}, {"Poda", "~/trzy.der\r"}, {"Plik już istnieje. Czy chcesz go zastąpić (t/n)?", "n"}});
    EXPECT_EQ(readFile(file("praca.p12")), p12);
    EXPECT_EQ(readFile(file("lista.conf")), list);
    expectCertificates(5);
    EXPECT_EQ(run("cat trzy.der user.crt ca.crt | cmp - wszystkie.der"), "");
    answer("5", "/dev/full", "Błąd zapisu pliku /dev/full !!!");
    play({{"6) Usuń", "3"}, {"Podaj nazwę pliku z certyfikatami:", "a b" + keys::kEscapeTwice}});
    EXPECT_EQ(leave("6) Usuń"), 0);
}

TEST_F(DataBaseScreen, AnImportStopsOnEscapeAndKeepsWhatItHas) {
    run("for i in 1 2 3 4 5 6 7 8; do cat user.crt user.crt > b; mv b user.crt; done; cp user.crt c; "
        "for i in $(seq 1500); do cat c; done > wiele.der");
    play({{"6) Usuń", "3"}, {"Podaj nazwę pliku z certyfikatami:", "~/wiele.der\r"}});
    screen->waitUntil("a count", [&] {
        return screen->shows("Trwa wczytywanie certyfikatów: ") && !screen->shows("certyfikatów: 0");
    });
    screen->send(keys::kEscapeTwice);
    screen->waitFor("certyfikatów. (przerwano)");
    EXPECT_FALSE(screen->shows("Wczytano 384000")) << screen->row(23);
    screen->send(" ");
    expectCertificates(1);
}

TEST_F(DataBaseScreen, CrlsAreVerifiedAndKept) {
    run("openssl crl -in ca.crl -inform DER -out lista.pem; head -c 40 ca.crl > ucieta.crl; cp ca.crl stara.crl");
    const std::string question = "Wystąpił błąd weryfikacji listy CRL. Czy mimo to chcesz wczytać listę";
    const Steps yes{{question, "t"}};
    answer("4", "nie_ma", "Błąd otwarcia pliku nie_ma");
    for (const char* name : {"~/ucieta.crl", "~/user.crt", "~/praca.p12", "~/lista.conf"})
        answer("4", name, "Błędny format listy CRL !!!");
    play({{"6) Usuń", "4"},
          {"Podaj nazwe pliku z lista CRL:", "~/lista.pem\r"},
          {"Przyczyna: ", ""},
          {question, "n"},
          {"6) Usuń", ""}});
    EXPECT_FALSE(std::filesystem::exists(file("db/1.crl")));
    answer("4", "~/lista.pem", "Lista CRL poprawnie wczytana", yes);
    EXPECT_EQ(readFile(file("db/1.crl")), readFile(file("ca.crl")));
    demoCa("revoke ca user.crt");
    answer("4", "~/ca/ca.crl", "poprawnie wczytana", yes);
    answer("4", "~/stara.crl", "Wczytywana lista CRL jest starsza niż znajdująca się w bazie danych.", yes);
    EXPECT_EQ(run("cat db/*.crl | openssl crl -inform DER -noout -text | grep -c 'Serial Number: 01'"), "1\n");
}

TEST_F(DataBaseScreen, ARevokedCertificateIsShownAsSuchEverywhere) {
    demoCa("revoke ca user.crt");
    play({{"6) Usuń", "w"}, {"(brak ścieżki)", "2"}, {"9) Rozszerzone", "1"}, {"Brak punktów zaufania", "d"}});
    play({{"Podaj nazwę pliku", "~/ca.crt\r"}, {"poprawnie dodany", " "}, {"Dodany punkt zaufania", "w"}});
    play({{"1/1", "w"}, {"9) Rozszerzone", "w"}, {"(nieznany)", "3"}});
    answer("4", "~/ca/ca.crl", "Lista CRL poprawnie wczytana");
    answer("3", "~/user.crt", "Wczytano 1");
    play({{"6) Usuń", "1"}, {" unieważniony", "d"}, {"UNIEWAŻNIONY ", ""}});
    EXPECT_FALSE(screen->shows("unspecified")) << "no reason is given";
    play({{"UNIEWAŻNIONY ", "w"}, {"Koniec", "w"}, {"6) Usuń", "w"}});
    play({{"(unieważniony)", ""}});
}

TEST_F(DataBaseScreen, ExpiredCertificatesAreRemovedAfterTheTimeIsConfirmed) {
    demoCa("correspondents ca 2 dwa.der");
    save("dawny.crt", makeCert({.subject = {{"CN", "Dawny"}}, .notBefore = -9 * kDay, .notAfter = -kDay}).der);
    answer("3", "~/dwa.der", "Wczytano 2");
    answer("3", "~/dawny.crt", "Wczytano 1");
    play({{"6) Usuń", "6"}, {"jest poprawny (t/n) ?", ""}});
    EXPECT_NE(screen->row(0).find("Porządkowanie bazy certyfikatów"), std::string::npos);
    const std::string hour = run("date +'Czy czas systemowy: %Y.%m.%d %H:'");
    EXPECT_NE(screen->row(23).find(hour.substr(0, hour.size() - 1)), std::string::npos) << screen->row(23);
    screen->send("n");
    expectCertificates(3);
    for (const char* removed : {"1", "0"}) {
        play({{"6) Usuń", "6"},
              {"jest poprawny", "t"},
              {"Usunięto " + std::string(removed) + " certyfikatów. Pozostało 2 certyfikatów", " "}});
    }
}

TEST_F(SessionScreen, ADatabaseOnAServerIsMadeFilledAndWrittenOutAsOneInFiles) {
    prepare();
    PgServer& server = PgServer::shared();
    const std::string connection = server.newDatabase();
    writeFile(file("lista.conf"),
              "\\Praca\\Type [l] = 1\n\\Praca\\Pkcs12File [s] = \"~/praca.p12\"\n\\Praca\\dbtype [s] = \"postgresql\"\n"
              "\\Praca\\dbname [s] = \"" +
                  connection + "\"\n");
    const MadeCert authority = makeCert({.subject = {{"CN", "Urząd"}}, .extensions = caExtensions()});
    save("urzad.der", authority.der);
    save("lista.crl", makeCrl({}, authority));
    start();
    play({{kSelection, "\r"}, {kNoDatabase, "t"}, {kAskPassword, kPassword + "\r"}, {kMainMenu, "3"}});
    for (const char* told : {"Wczytano 1 certyfikatów.", "Wczytano 1 certyfikatów."})
        play({{"3) Instaluj", "3"}, {"z certyfikatami:", "~/urzad.der\r"}, {told, " "}});
    play({{"4) Instaluj", "4"}, {"Podaj nazwe pliku z lista CRL:", "~/lista.crl\r"}, {"(t/n)", "t"}});
    play({{"Lista CRL", " "}, {"5) Eksportuj", "5"}, {"zapisać certyfikaty:", "~/eksport.der\r"}});
    play({{"Zapisano certyfikaty w liczbie: 1", " "}, {"5) Eksportuj", ""}});
    EXPECT_EQ(leave("5) Eksportuj"), 0);
    EXPECT_EQ(run("cmp urzad.der eksport.der"), "");
    EXPECT_EQ(server.sql(connection, "SELECT count(*) FROM corvane.crl"), "1\n");
    server.sql(connection, "UPDATE corvane.version SET number = 2");
    start();
    play({{kSelection, "\r"}, {"Niepoprawna wersja bazy danych !!!", " "}, {kSelection, ""}});
    server.stop();
    play({{kSelection, "\r"}, {"Brak dostępu do bazy danych !!!", " "}, {"Brak połączenia z bazą PostgreSQL", " "}});
    EXPECT_EQ(leave(kSelection), 0);
    server.start();
}

TEST_F(SessionScreen, ALogInWhoseRoundsTakeLongStopsOnEscape) {
    prepareKey(false);
    // The count is the end of the file; 2^23 rounds make no key that is right, but take their time.
    run("openssl pkcs12 -export -inkey user.key -nocerts -iter 70000 -out praca.p12 -passout pass:" + kPassword +
        " && printf '\\177\\377\\377' | dd of=praca.p12 bs=1 seek=$(($(stat -c %s praca.p12) - 3)) conv=notrunc 2>&1");
    start();
    play({{kSelection, "\r"}, {kAskPassword, kPassword + "\r"}, {"Trwa odczyt kluczy", keys::kEscapeTwice}});
    message("Przerwano otwieranie pliku bezpieczeństwa");
    EXPECT_EQ(leave(kSelection), 0);
}

// Installing the user's certificate.

TEST_F(SessionScreen, TheUsersCertificateIsInstalledOnceForItsKey) {
    prepare();
    open("1");
    play({{"6) Instaluj", "6"}, {"Brak kluczy, nie można zainstalować certyfikatu !!!", " "}});
    std::filesystem::remove_all(file("db"));
    prepareKey(false);
    open("1");
    const auto install = [&](const std::string& name, const std::string& text) {
        play({{"6) Instaluj", "6"}, {"Podaj nazwę pliku z certyfikatem: ", name + "\r"}, {text, " "}});
    };
    install("nie ma", "Błąd otwarcia pliku nie ma !!!");
    install("~/ca.crl", "Plik ~/ca.crl nie zawiera poprawnego certyfikatu !!!");
    install("~/ca.crt", "Certyfikat nie jest sparowany z zadnym kluczem uzytkownika !!!");
    run("mv db gdzie; openssl crl2pkcs7 -nocrl -certfile ca/ca.pem -certfile user.pem -out paczka.p7b");
    install("~/user.crt", "Błąd bazy danych !!!");
    EXPECT_EQ(secrets().find("certificate"), std::string::npos) << "nothing was saved";
    run("rm -rf db; mv gdzie db");
    install("~/paczka.p7b", "Certyfikat użytkownika poprawnie zainstalowany");
    play({{"Urząd pokazowy", "w"}});
    install("~/user.pem", "Certyfikat do tego zastosowania już istnieje !!!");
    play({{"6) Instaluj", "6"}, {"Podaj nazwę", keys::kEscapeTwice}});
    // Never unasked: one that is not valid now, one that takes the place of a valid one.
    const std::string ca = "openssl ca -config ca/ca.cnf -batch -notext -in user.req ";
    const std::tuple<const char*, const char*, const char*> cases[] = {
        {"20010101000000Z -enddate 20020101000000Z", "Certyfikat jest przeterminowany. Czy go zainstalować (t/n)?",
         "n"},
        {"20470101000000Z -enddate 20480101000000Z", "Certyfikat nie jest jeszcze ważny. Czy go zainstalować (t/n)?",
         "n"},
        {"$(date -u +%Y%m%d%H%M%SZ) -enddate 20480101000000Z",
         "Klucz ma już ważny certyfikat. Czy zastąpić go nowszym (t/n)?", "n"},
    };
    for (const auto& [dates, question, answer] : cases) {
        run(ca + "-startdate " + dates + " -out inny.pem 2>&1");
        play({{"6) Instaluj", "6"}, {"Podaj nazwę", "~/inny.pem\r"}, {question, answer}});
    }
    EXPECT_EQ(leave("6) Instaluj"), 0);
    EXPECT_EQ(secrets(), "certificate\nkey\nseed 20\n");
}

TEST_F(SessionScreen, AnotherProgramsFileIsTakenOverOnlyWhenTheUserAgrees) {
    prepareKey(true);
    run("openssl pkcs12 -export -inkey user.key -in user.pem -certfile ca/ca.pem -out praca.p12 -passout pass:" +
        kPassword + " && cp praca.p12 obcy.p12");
    start();
    const Steps enter{{kSelection, "\r"}, {kAskPassword, kPassword + "\r"}};
    play(enter);
    play({{kForeign, "n"}, {"otwarto tylko do odczytu", " "}, {kMainMenu, "17"}});
    play(
        {{kNewPassword, "Hijklmn2\r"}, {kRepeat, "Hijklmn2\r"}, {"otwarto tylko do odczytu", " "}, {"7) Zmiana", "w"}});
    play({{kMainMenu, "w"}});
    EXPECT_EQ(run("cmp praca.p12 obcy.p12; ls *.orig 2>/dev/null || true"), "");
    play(enter);
    play({{kForeign, "t"}, {"Czy dodać urzędy certyfikacji z tego pliku do punktów zaufania (t/n)?", "t"}});
    play({{"Dodano punktów zaufania: 1, odrzucono: 0", " "}});
    EXPECT_EQ(leave(), 0);
    EXPECT_EQ(run("cmp praca.p12.orig obcy.p12; stat -c %a praca.p12.orig"), "600\n");
    EXPECT_NE(secrets().find("\ntrusted "), std::string::npos);
}

}  // namespace
}  // namespace crv::test
