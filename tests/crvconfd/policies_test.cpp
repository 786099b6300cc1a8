// The lists of user policies and of accepted extended key usages.
#include "session_screen.h"

namespace crv::test {
namespace {

std::string hex(const std::string& text) {
    std::string result;
    for (const char c : text) {
        constexpr const char* kDigits = "0123456789abcdef";
        result.append({kDigits[(c >> 4) & 15], kDigits[c & 15]});
    }
    return result;
}

class ListEditor : public SessionScreen {
  protected:
    struct Texts {
        const char* entry;  ///< of the configuration menu
        const char* title;
        const char* addTitle;
        const char* askOid;
        const char* askName;
        const char* askNumber;
    };

    void open(const Texts& which, bool withCertificate = true) {
        texts = which;
        prepareKey(withCertificate);
        start();
        logIn();
        play({{kMainMenu, "2"}, {"8) Polityki użytkownika", texts.entry}});
    }
    void add(const std::string& oid, const std::string& name) {
        play({{texts.title, "d"}, {texts.askOid, oid + "\r"}, {texts.askName, name + "\r"}});
    }
    void refuse(const std::string& oid, const std::string& name, const std::string& text) {
        SCOPED_TRACE(text);
        play({{texts.title, "D"}, {texts.askOid, oid + "\r"}});
        if (!name.empty()) play({{texts.askName, name == "-" ? "\r" : name + "\r"}});
        screen->waitFor(text);
        EXPECT_NE(screen->row(0).find(texts.addTitle), std::string::npos);
        screen->send(" ");
    }
    void remove(const std::string& number) { play({{texts.title, "u"}, {texts.askNumber, number + "\r"}}); }
    void waitRow(int row, const std::string& text) {
        screen->waitUntil("\"" + text + "\" in row " + std::to_string(row), [&] { return screen->row(row) == text; });
    }
    Texts texts{};
};

const std::string kOid39 = "1.2.3456789012345.678901234567890.12345";
const std::string kName59(59, 'n');

class Policies : public ListEditor {
  protected:
    static constexpr Texts kTexts{"8",
                                  "Lista polityk użytkownika",
                                  "Dodawanie polityki",
                                  "Podaj identyfikator polityki: ",
                                  "Podaj nazwę polityki: ",
                                  "Podaj numer polityki do usuniecia: "};
};

TEST_F(Policies, AreKeptInTheRecordInTheirOrder) {
    open(kTexts);
    waitRow(22, std::string(32, ' ') + "Dodaj   Powrót");
    EXPECT_EQ(screen->row(2), " 2.5.29.32.0             ANY POLICY");
    refuse("", "", "Identyfikator polityki nie może być pusty");
    for (const char* bad : {"x", "1", "1.2.", "3.1.2", "1.40.1", "1..2", "1.2.3x", "-1.2"})
        refuse(bad, "", "Błędny identyfikator polityki");
    refuse("2.5.29.32.0", "", "Nie można dodawać identyfikatora ANY POLICY");
    refuse("1.2.3", "-", "Nazwa polityki nie może być pusta");
    add("1.2.3", "dru ga");  // spaces are not taken
    waitRow(2, " 1    1.2.3                   druga");
    refuse("1.2.3", "", "Polityka o podanym identyfikatorze została już zdefiniowana.");
    refuse("1.2.4", "druga", "Polityka o podanej nazwie zostala już zdefiniowana.");
    add(kOid39 + "6", kName59 + "m");
    waitRow(3, " 2    " + kOid39 + " " + kName59.substr(0, 34));
    add("2.999.1", "a");
    waitRow(4, " 3    2.999.1                 a");
    EXPECT_EQ(screen->row(22), std::string(28, ' ') + "Dodaj   Usuń   Powrót");
    const std::string second = "policy " + kOid39 + " " + hex(kName59) + "00\n", third = "policy 2.999.1 6100\n";
    EXPECT_NE(secrets().find("policy 1.2.3 " + hex("druga") + "00\n" + second + third), std::string::npos) << secrets();
    for (const char* none : {"", "0"}) remove(none);
    remove("4");
    message("Brak polityki o podanym numerze");
    play({{texts.title, "u"}, {texts.askNumber, keys::kEscapeTwice}});
    remove("1");
    waitRow(2, " 1    " + kOid39 + " " + kName59.substr(0, 34));
    EXPECT_EQ(secrets().find("policy 1.2.3 "), std::string::npos);
    EXPECT_NE(secrets().find(second + third), std::string::npos);
    play({{texts.title, "w"}, {"8) Polityki", "w"}, {kMainMenu, ""}});
    EXPECT_EQ(leave(), 0);
}

TEST_F(Policies, NeedASigningCertificate) {
    open(kTexts, false);
    message("Brak klucza lub certyfikatu do podpisywania");
    play({{"8) Polityki", "w"}});
    EXPECT_EQ(leave(), 0);
}

TEST_F(Policies, AFailingSaveIsSaidAndHarmsNothing) {
    open(kTexts);
    screen->waitFor("ANY POLICY");
    std::filesystem::remove(file("praca.p12.lck"));
    std::filesystem::create_directory(file("praca.p12.lck"));
    const std::string before = readFile(file("praca.p12"));
    add("1.2.3", "a");
    message("Błąd blokady pliku bezpieczeństwa !!!");
    EXPECT_EQ(readFile(file("praca.p12")), before);
    screen->waitFor("ANY POLICY");
}

TEST_F(Policies, AFileThatChangedUnderTheSessionIsMergedOrLeftAlone) {
    open(kTexts);
    screen->waitFor("ANY POLICY");
    // A second console adds its policy first; both stay.
    const auto first = std::move(screen);
    start();
    logIn();
    play({{kMainMenu, "2"}, {"8) Polityki użytkownika", "8"}});
    add("1.2.3", "drugi");
    waitRow(2, " 1    1.2.3                   drugi");
    screen->send("ww");
    EXPECT_EQ(leave(), 0);
    const auto inFirst = [&](const std::string& oid, const Steps& rest) {
        for (const Step& step :
             Steps{{texts.title, "d"}, {"Podaj identyfikator", oid + "\r"}, {"Podaj nazwę", oid + "\r"}})
            first->waitFor(step.shown), first->send(step.typed);
        for (const Step& step : rest) first->waitFor(step.shown), first->send(step.typed);
    };
    inFirst("1.2.4", {{" 1.2.4 ", ""}});
    EXPECT_NE(secrets().find("policy 1.2.4 "), std::string::npos) << secrets();
    // What cannot be read or belongs to another password is not written over.
    const std::string sound = readFile(file("praca.p12"));
    for (const std::string& strange : {std::string(), std::string("no PFX"), sound.substr(0, 900)}) {
        writeFile(file("praca.p12"), strange);
        inFirst("1.2.5", {{"Błąd zapisu pliku bezpieczeństwa", " "}});
        EXPECT_EQ(readFile(file("praca.p12")), strange);
    }
    std::filesystem::remove(file("praca.p12"));
    std::filesystem::create_directory(file("praca.p12"));
    inFirst("1.2.5", {{"Błąd odczytu pliku bezpieczeństwa", " "}});
    std::filesystem::remove(file("praca.p12"));
    inFirst("1.2.6", {{" 1.2.6 ", "ww"}});
    EXPECT_NE(secrets().find("policy 1.2.6 "), std::string::npos) << "a file that vanished is made again";
}

class Usages : public ListEditor {
  protected:
    static constexpr Texts kTexts{"9",
                                  "Akceptowane rozszerzone zastosowanie klucza",
                                  "Dodawanie rozszerzonego zastosowania klucza",
                                  "Podaj identyfikator rozszerzonego zastosowania klucza: ",
                                  "Podaj nazwę rozszerzonego zastosowania klucza: ",
                                  "Podaj numer rozszerzonego zastosowania klucza do usuniecia: "};
};

TEST_F(Usages, AreKeptInTheProfileSortedByName) {
    open(kTexts, false);
    refuse("", "", "Identyfikator nie może być pusty");
    refuse("1.2.x", "", "Błędny identyfikator rozszerzonego zastosowania klucza");
    refuse("1.2.3", "-", "Nazwa nie może być pusta");
    add("1.2.3", "b");
    waitRow(2, " 1    1.2.3                   b");
    refuse("1.2.4", "b", "Identyfikator o podanej nazwie został już zdefiniowany.");
    refuse("1.2.3", "c", "Indetyfikator rozszerzonego zastosowania klucza został już dodany.");
    add("1.2.4", "a");
    waitRow(2, " 1    1.2.4                   a");
    add(kOid39 + "6", kName59 + "m");
    waitRow(4, " 3    " + kOid39 + " " + kName59.substr(0, 34));
    const auto list = [&] { return readFile(file("lista.conf")); };
    for (const std::string& kept : {std::string("1.2.3"), std::string("1.2.4"), kOid39, kName59})
        EXPECT_NE(list().find(kept), std::string::npos) << kept;
    EXPECT_EQ(list().find(kName59 + "m"), std::string::npos);
    remove("4");
    message("Brak rozszerzonego zastosowania klucza o podanym numerze");
    remove("0");
    remove("1");
    waitRow(2, " 1    1.2.3                   b");
    EXPECT_EQ(list().find("1.2.4"), std::string::npos);
    // A list that cannot be written: the message, and the screen shows what the list holds.
    const std::string before = list();
    std::filesystem::rename(file("lista.conf"), file("gdzie"));
    std::filesystem::create_directory(file("lista.conf"));
    add("1.2.5", "d");
    screen->waitFor("Błąd zapisu profilu: ");
    std::filesystem::remove(file("lista.conf"));
    std::filesystem::rename(file("gdzie"), file("lista.conf"));
    screen->send(" ");
    waitRow(2, " 1    1.2.3                   b");
    EXPECT_EQ(list(), before);
    add("1.2.6", "e");
    waitRow(3, " 2    1.2.6                   e");
    EXPECT_EQ(list().find("1.2.5"), std::string::npos) << "what was not saved comes with no later save";
}

TEST_F(Usages, EveryEntryOfALongListCanBeReached) {
    open(kTexts, false);
    for (int i = 0; i < 45; ++i) add("1.2." + std::to_string(i), "n" + std::to_string(100 + i));
    waitRow(2, " 1    1.2.0                   n100");
    screen->send(keys::kPageDown + keys::kPageDown);
    waitRow(2, " 41   1.2.40                  n140");
    screen->send(keys::kPageDown);
    remove("45");
    waitRow(6, "");
    screen->send(keys::kPageUp);
    waitRow(21, " 40   1.2.39                  n139");
}

}  // namespace
}  // namespace crv::test
