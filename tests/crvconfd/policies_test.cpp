// The lists of user policies and of accepted extended key usages.
#include "session_screen.h"
#include "support/hex.h"

namespace crv::test {
namespace {

class ListEditor : public SessionScreen {
  protected:
    struct Texts {
        std::string entry, title, what;  ///< of the configuration menu; of the list; an entry in the genitive
    };

    void open(const Texts& which) {
        texts = which;
        SessionScreen::open("2");
        play({{"8) Polityki użytkownika", texts.entry}});
    }
    void add(const std::string& oid, const std::string& name) {
        play({{texts.title, "d"}, {"Podaj identyfikator " + texts.what + ": ", oid + "\r"}});
        play({{"Podaj nazwę " + texts.what + ": ", name + "\r"}});
    }
    void refuse(const std::string& oid, const std::string& name, const std::string& text) {
        SCOPED_TRACE(text);
        play({{texts.title, "D"}, {"Podaj identyfikator " + texts.what + ": ", oid + "\r"}});
        if (!name.empty()) play({{"Podaj nazwę " + texts.what + ": ", name == "-" ? "\r" : name + "\r"}});
        screen->waitFor(text);
        EXPECT_NE(screen->row(0).find("Dodawanie " + texts.what), std::string::npos);
        screen->send(" ");
    }
    void remove(const std::string& typed) {
        play({{texts.title, "u"}, {"Podaj numer " + texts.what + " do usuniecia: ", typed}});
    }
    Texts texts{};
};

const std::string kOid39 = "1.2.3456789012345.678901234567890.12345";
const std::string kName59(59, 'n');

class Policies : public ListEditor {
  protected:
    const Texts kTexts{"8", "Lista polityk użytkownika", "polityki"};
};

TEST_F(Policies, AreKeptInTheRecordInTheirOrder) {
    prepareKey(false);
    open(kTexts);
    message("Brak klucza lub certyfikatu do podpisywania");
    EXPECT_EQ(leave("8) Polityki"), 0);
    std::filesystem::rename(file("both.p12"), file("praca.p12"));
    open(kTexts);
    expectRow("", 22, std::string(32, ' ') + "Dodaj   Powrót");
    EXPECT_EQ(screen->row(2), " 2.5.29.32.0             ANY POLICY");
    refuse("", "", "Identyfikator polityki nie może być pusty");
    for (const char* bad : {"x", "1", "1.2.", "3.1.2", "1.40.1", "1..2", "1.2.3x", "-1.2"})
        refuse(bad, "", "Błędny identyfikator polityki");
    refuse("2.5.29.32.0", "", "Nie można dodawać identyfikatora ANY POLICY");
    refuse("1.2.3", "-", "Nazwa polityki nie może być pusta");
    std::filesystem::remove(file("praca.p12.lck"));
    std::filesystem::create_directory(file("praca.p12.lck"));
    const std::string before = readFile(file("praca.p12"));
    add("1.2.3", "a");
    play({{"Błąd blokady pliku bezpieczeństwa !!!", " "}, {"ANY POLICY", ""}});
    EXPECT_EQ(readFile(file("praca.p12")), before) << "a failing save harms nothing";
    std::filesystem::remove(file("praca.p12.lck"));
    add("1.2.3", "dru ga");  // spaces are not taken
    expectRow("", 2, " 1    1.2.3                   druga");
    refuse("1.2.3", "", "Polityka o podanym identyfikatorze została już zdefiniowana.");
    refuse("1.2.4", "druga", "Polityka o podanej nazwie zostala już zdefiniowana.");
    const std::string tooLong = "Tekst jest za długi, mieści się najwyżej ";
    play({{texts.title, "d"},
          {"identyfikator polityki: ", kOid39 + "6\177" + kOid39.back() + "\r"},
          {tooLong + "39 znaków", " "}});
    play({{"identyfikator polityki: " + kOid39, "\r"}, {"nazwę polityki: ", kName59 + "m\r"}});
    play({{tooLong + "59 znaków", " "}, {"nazwę polityki: ", "\r"}});
    expectRow("", 3, " 2    " + kOid39 + " " + kName59.substr(0, 34));
    add("2.999.1", "a");
    expectRow("", 4, " 3    2.999.1                 a");
    EXPECT_EQ(screen->row(22), std::string(28, ' ') + "Dodaj   Usuń   Powrót");
    const std::string first = "policy 1.2.3 " + hex(asBytes("druga")) + "00\n";
    const std::string rest = "policy " + kOid39 + " " + hex(asBytes(kName59)) + "00\npolicy 2.999.1 6100\n";
    EXPECT_NE(secrets().find(first + rest), std::string::npos) << secrets();
    for (const char* none : {"", "0"}) remove(none + keys::kEnter);
    remove("4\r");
    message("Brak polityki o podanym numerze");
    remove(keys::kEscapeTwice);
    remove("1\r");
    expectRow("", 2, " 1    " + kOid39 + " " + kName59.substr(0, 34));
    EXPECT_EQ(secrets().find(first), std::string::npos);
    EXPECT_NE(secrets().find(rest), std::string::npos);
    play({{texts.title, "w"}});
    EXPECT_EQ(leave("8) Polityki"), 0);
}

TEST_F(Policies, AFileThatChangedUnderTheSessionIsMergedOrLeftAlone) {
    prepareKey(true);
    open(kTexts);
    screen->waitFor("ANY POLICY");
    // A second console adds its policy first; both stay.
    auto first = std::move(screen);
    open(kTexts);
    add("1.2.3", "drugi");
    expectRow("", 2, " 1    1.2.3                   drugi");
    screen->send("ww");
    EXPECT_EQ(leave(), 0);
    screen = std::move(first);
    add("1.2.4", "pierwszy");
    screen->waitFor(" 1.2.4 ");
    EXPECT_NE(secrets().find("policy 1.2.4 "), std::string::npos) << secrets();
    // What cannot be read or belongs to another password is not written over.
    const std::string sound = readFile(file("praca.p12"));
    for (const std::string& strange : {std::string(), std::string("no PFX"), sound.substr(0, 900)}) {
        writeFile(file("praca.p12"), strange);
        add("1.2.5", "a");
        message("Błąd zapisu pliku bezpieczeństwa");
        EXPECT_EQ(readFile(file("praca.p12")), strange);
    }
    std::filesystem::remove(file("praca.p12"));
    std::filesystem::create_directory(file("praca.p12"));
    add("1.2.5", "a");
    message("Błąd odczytu pliku bezpieczeństwa");
    std::filesystem::remove(file("praca.p12"));
    add("1.2.6", "a");
    play({{" 1.2.6 ", "ww"}});
    EXPECT_NE(secrets().find("policy 1.2.6 "), std::string::npos) << "a file that vanished is made again";
}

class Usages : public ListEditor {
  protected:
    const Texts kTexts{"9", "Akceptowane rozszerzone zastosowanie klucza", "rozszerzonego zastosowania klucza"};
};

TEST_F(Usages, AreKeptInTheProfileSortedByNameAndCanAllBeReached) {
    prepare();
    open(kTexts);
    refuse("", "", "Identyfikator nie może być pusty");
    refuse("1.2.x", "", "Błędny identyfikator rozszerzonego zastosowania klucza");
    refuse("1.2.3", "-", "Nazwa nie może być pusta");
    add("1.2.3", "b");
    expectRow("", 2, " 1    1.2.3                   b");
    refuse("1.2.4", "b", "Identyfikator o podanej nazwie został już zdefiniowany.");
    refuse("1.2.3", "c", "Indetyfikator rozszerzonego zastosowania klucza został już dodany.");
    add("1.2.4", "a");
    expectRow("", 2, " 1    1.2.4                   a");
    add(kOid39, kName59);
    expectRow("", 4, " 3    " + kOid39 + " " + kName59.substr(0, 34));
    const auto list = [&] { return readFile(file("lista.conf")); };
    for (const std::string& kept : {std::string("1.2.3"), std::string("1.2.4"), kOid39, kName59})
        EXPECT_NE(list().find(kept), std::string::npos) << kept;
    EXPECT_EQ(list().find(kName59 + "m"), std::string::npos);
    remove("4\r");
    message("Brak rozszerzonego zastosowania klucza o podanym numerze");
    remove("0\r");
    remove("1\r");
    expectRow("", 2, " 1    1.2.3                   b");
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
    expectRow("", 2, " 1    1.2.3                   b");
    EXPECT_EQ(list(), before);
    // What was not saved comes with no later save.
    for (int i = 0; i < 45; ++i) add("1.3." + std::to_string(i), "n" + std::to_string(100 + i));
    expectRow("", 3, " 2    1.3.0                   n100");
    expectRow(keys::kPageDown + keys::kPageDown, 2, " 41   1.3.39                  n139");
    screen->send(keys::kPageDown);
    remove("46\r");
    expectRow("", 7, " 46   " + kOid39 + " " + kName59.substr(0, 34));
    expectRow(keys::kPageUp, 21, " 40   1.3.38                  n138");
}

}  // namespace
}  // namespace crv::test
