// One road through the screens in every size of the terminal: what is in use at a step, a prompt, a message or the row
// under the cursor, must be seen whole.
#include "session_screen.h"
#include "support/cert_maker.h"

namespace crv::test {
namespace {

struct TerminalSize {
    int rows, columns;
};

void PrintTo(const TerminalSize& size, std::ostream* out) {
    *out << size.columns << "x" << size.rows;
}

const std::string kUnsaved = "Zapisać zmiany (t/n)?",
                  kFilter = "Pokaż zawierające:", kForRequest = "zgłoszenia certyfikacyjnego:";

struct Sizes : SessionScreen, testing::WithParamInterface<TerminalSize> {
    /// In a row, or in two below each other, as a message is shown that is wider than the terminal.
    [[nodiscard]] bool isSeen(const std::string& text) const {
        for (int row = 0; row < terminalRows; ++row) {
            const std::string next = row + 1 < terminalRows ? screen->row(row + 1) : "";
            for (const std::string& seen : {screen->row(row) + " " + next, screen->row(row) + next})
                if (seen.find(text) != std::string::npos) return true;
        }
        return false;
    }

    /// As play(), with what is seen.
    void go(const Steps& steps) {
        for (const Step& step : steps) {
            screen->waitUntil('"' + step.shown + "\" is seen", [&] { return isSeen(step.shown); });
            screen->send(step.typed);
        }
    }

    [[nodiscard]] int rowsWith(const std::string& text) const {
        int count = 0;
        for (int row = 0; row < terminalRows; ++row) count += screen->row(row).find(text) != std::string::npos ? 1 : 0;
        return count;
    }

    /// The help of the place, all of it, and back.
    void readHelp(const std::string& first) {
        screen->send("\033OP");
        go({{first, ""}});
        screen->send(isSeen("ta pomoc") ? "" : keys::kEnd);
        go({{"ta pomoc", " "}});
    }
};

TEST_P(Sizes, WhatIsInUseIsSeen) {
    prepareKey(true);
    demoCa("correspondents ca 60 korespondenci.der");
    std::filesystem::create_directory(dir.path() / "dokumenty");
    writeFile(file("dokumenty/żółw i ćma.req"), "stary");
    save("długa.crt", makeCert({.subject = {{"C", "PL"},
                                            {"O", "Firma"},
                                            {"OU", "Dział"},
                                            {"OU", "Zespół"},
                                            {"L", "Łódź"},
                                            {"ST", "Łódzkie"},
                                            {"OU", "Komórka"},
                                            {"CN", "Długa nazwa"}},
                                .extensions = caExtensions()})
                          .der);
    std::filesystem::remove_all(file("praca.p12.d"));
    writeFile(file("praca.p12.d"), "w miejscu historii");
    terminalRows = GetParam().rows;
    terminalColumns = GetParam().columns;
    start();
    go({{">PRACA", ""}});
    readHelp("otwarcie profilu");
    go({{">PRACA", "/"}, {kFilter, "ó\r"}, {"Nic na liście nie zawiera: ó", " "}, {">PRACA", "\r"}});
    go({{kAskPassword, "Ó\rxx"}, {kWrongPassword, " "}, {kAskPassword, kPassword + "\r"}, {kMainMenu, "1"}});
    go({{"7) Zmiana hasła", "7"}, {kNewPassword, "krótkie\r"}, {"mieć co najmniej jedną dużą literę,", " "}});
    go({{kNewPassword, keys::kEscape}, {"3) Generuj klucz do podpisywania i szyfrowania", "3"}});
    go({{"Klucz dla danego zastosowania już istnieje i nie może zostać nadpisany", " "},
        {"Zapisać zgłoszenie dla istniejącego klucza (t/n)?", "t"},
        {kForRequest, "~/dok\t\t"},
        {"~/dokumenty/żółw i ćma.req", "\033[200~c\033[201~\177\r"},
        {"Plik już istnieje. Czy chcesz go zastąpić (t/n)?", "n"},
        {kForRequest, keys::kUp},
        {"~/dokumenty/żółw i ćma.req", "\025~/brak/ż\r"},
        {"Nie mogę otworzyć pliku: ~/brak/ż (nie ma takiego pliku)", " "},
        {kForRequest, std::string(70, 'a') + "żółć"},
        {"aaaażółć", keys::kEscapeTwice}});
    go({{"4) Wyświetl certyfikat", "4"}, {"Numer seryjny:", ""}});
    readHelp("Dane");
    go({{"Numer seryjny:", keys::kEnd + "m"}, {"Wybierz parametry", "r\033[200~w\033[201~p"}, {"sha384with", "/"}});
    go({{kFilter, "512\r"}, {">sha512withRSAEncryption", "?"}, {"zatwierdzenie", " "}, {">sha512with", "\r"}});
    go({{"sha512withRSAEncryption", ""}, {"Generuj   Wyjście", "w"}, {"Identyfikator klucza:", "o"}});
    go({{">podpis i szyfr.", "e"}, {"(podpis i szyfr.) w osobnym pliku (t/n)?", "n"}, {">podpis", "u"}});
    go({{"jest w UŻYCIU. Usunąć go z jego certyfikatami (t/n)?", "n"}, {">podpis", "w"}, {"Powrót", "w"}});
    go({{"7) Zmiana hasła", "w"}, {kMainMenu, "2"}, {"9) Rozszerzone", "1"}, {"Brak punktów zaufania", "d"}});
    go({{"z certyfikatem:", "~/długa.crt\r"}, {"nie ma katalogu: ", ""}, {"praca.p12.d/", ""}});
    go({{"Nie udało się zachować poprzedniego pliku", " "}, {"Punkt zaufania poprawnie dodany", " "}});
    std::filesystem::remove(file("praca.p12.d"));
    go({{"Dodany punkt zaufania", "w"}, {"CN=Długa nazwa", "u"}, {"chcesz usunąć punkt zaufania (t/n)?", ""}});
    go({{"Długa nazwa", ""}, {"PL", "t"}, {"Punkt zaufania usunięty", " "}, {"Brak punktów zaufania", "d"}});
    go({{"z certyfikatem:", "~/ca/\t\t"}, {">ca.cnf", "/"}, {kFilter, "CA.PEM\r"}, {">ca.pem", "\r"}});
    go({{"~/ca/ca.pem", "\r"}, {"Punkt zaufania poprawnie dodany", " "}, {"Dodany punkt zaufania", "w"}, {"1/1", "u"}});
    go({{"Czy na pewno chcesz usunąć punkt zaufania (t/n)?", "n"},
        {"CN=Urząd pokazowy", "w"},
        {"9) Rozszerzone", "3"}});
    go({{"Brak serwerów", "d"}, {">Nazwa:", "\rZegar żółty\r"}, {"Zegar żółty", keys::kEnd}, {">Urząd:", "\r"}});
    go({{">dowolny", keys::kDown + "\r"}, {"Urząd pokazowy", "w"}, {kUnsaved, "n"}, {"Brak serwerów", "w"}});
    go({{"9) Rozszerzone", "8"}, {"ANY POLICY", "d"}, {"Podaj identyfikator polityki:", "1.2.3\r"}});
    go({{"Podaj nazwę polityki:", "żółw\r"}, {"1.2.3", "u"}, {"Podaj numer polityki do usuniecia:", "7\r"}});
    go({{"Brak polityki o podanym numerze", " "}, {"żółw", "w"}, {"9) Rozszerzone", "w"}, {kMainMenu, "3"}});
    go({{"6) Usuń", "3"}, {"z certyfikatami:", "~/korespondenci.der\r"}, {"Wczytano 60 certyfikatów.", " "}});
    go({{"6) Usuń", "6"}, {" jest poprawny (t/n) ?", "n"}, {"6) Usuń", "1"}, {">  Korespondent", keys::kEnd}});
    go({{">  Korespondent nr 60", ""}, {"Powrót", ""}});
    EXPECT_EQ(rowsWith("  Korespondent "), terminalRows - 5) << "the page fills the screen\n" << screen->picture();
    go({{">  Korespondent nr 60", "z"},
        {">Nazwa:", "\rdent nr 59\rs"},
        {"znaleziono: 1", ""},
        {">  Korespondent nr 59", "u"}});
    go({{"Czy na pewno chcesz usunąć certyfikat (t/n)?", "n"}, {">  Korespondent nr 59", "w"}, {"6) Usuń", "w"}});
    go({{kMainMenu, "1"}, {"4) Wyświetl certyfikat", "4"}, {"Numer seryjny:", "m"}, {"Generuj   Wyjście", "g"}});
    go({{"został poprawnie wygenerowany.", " "}, {"także dotychczasowym kluczem (t/n)?", "t"}});
    go({{kForRequest, "~/nowy.req\r"}, {"wygenerowany i zapisany.", " "}, {"Identyfikator klucza:", "o"}});
    go({{">podpis", "h"}, {" UTC ", "p"}, {"Wrócić do pliku z 2", "t"}, {"miał wtedy:", kPassword + "\r"}});
    go({{"Tamten plik nie ma klucza ", "n"}, {" UTC ", keys::kEnd + "p"}, {"Wrócić do pliku z 2", "t"}});
    go({{"miał wtedy:", kPassword + "\r"}, {"nie ma klucza ", "t"}, {"Otwórz profil jeszcze raz.", " "}});
    go({{">PRACA", "\r"}, {kAskPassword, "złe\r"}, {kWrongPassword, " "}, {kAskPassword, keys::kEscape}});
    go({{"poprzednie pliki bezpieczeństwa. Pokazać je (t/n)?", "n"}, {">PRACA", "w"}});
    EXPECT_EQ(screen->waitExit(), 0);
    EXPECT_EQ(readFile(file("dokumenty/żółw i ćma.req")), "stary");
}

INSTANTIATE_TEST_SUITE_P(Terminals, Sizes,
                         testing::Values(TerminalSize{24, 80}, TerminalSize{20, 80}, TerminalSize{15, 60},
                                         TerminalSize{43, 132}));

}  // namespace
}  // namespace crv::test
