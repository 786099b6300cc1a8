// The newcomer's road: from an empty folder to a profile in use, with other tools looking at the files on the way. The
// steps follow each other in one session.
#include "session_screen.h"

namespace crv::test {
namespace {

struct SlowRoad : SessionScreen {
    void createEverything() {
        demoCa("init ca");
        demoCa("correspondents ca 3 korespondenci.der");
        start();
        create();
        EXPECT_EQ(run("cat db/version.txt"), "7");
    }

    void generateAKey() {
        play({{kMainMenu, "1"}, {"3) Generuj klucz do podpisywania i szyfrowania", "3"}, {"Wybierz parametry", "g"}});
        screen->waitFor("został poprawnie wygenerowany.", std::chrono::seconds(60));
        play({{"", " "}, {"Podaj nazwę pliku zgłoszenia certyfikacyjnego:", "~/zgloszenie.pem\r"}});
        message("Klucz został poprawnie wygenerowany i zapisany.");
        EXPECT_NE(run("openssl req -in zgloszenie.pem -noout -verify -text 2>&1").find("CN = PRACA"),
                  std::string::npos);
    }

    void installItsCertificate() {
        demoCa("sign ca zgloszenie.pem user.crt");
        play({{"6) Instaluj certyfikat użytkownika", "6"}, {"Podaj nazwę pliku z certyfikatem:", "~/user.crt\r"}});
        play({{"Certyfikat użytkownika poprawnie zainstalowany", " "},
              {"Zainstalowane certyfikaty", "w"},
              {"6) Instaluj", "w"}});
    }

    void trustTheAuthority() {
        play({{kMainMenu, "2"}, {"1) Punkty zaufania", "1"}, {"Brak punktów zaufania", "d"}});
        play({{"Podaj nazwę pliku z certyfikatem:", "~/ca/ca.pem\r"}, {"poprawnie dodany", " "}});
        play({{"Dodany punkt zaufania", "w"}, {"1/1", "w"}, {"1) Punkty zaufania", "w"}});
    }

    void fillTheDatabase() {
        play({{kMainMenu, "3"}, {"3) Instaluj", "3"}, {"z certyfikatami:", "~/korespondenci.der\r"}});
        message("Wczytano 3 certyfikatów.");
        play({{"4) Instaluj", "4"}, {"Podaj nazwe pliku z lista CRL:", "~/ca/ca.crl\r"}});
        message("Lista CRL poprawnie wczytana");
        play({{"5) Eksportuj", "5"}, {"Podaj nazwą pliku do ktorego zapisać certyfikaty:", "~/eksport.der\r"}});
        play({{"Zapisano certyfikaty w liczbie: 4", " "}, {"5) Eksportuj", "w"}});
        EXPECT_EQ(run("cat user.crt korespondenci.der | cmp - eksport.der && cmp ca/ca.crl db/1.crl"), "");
    }

    void changeThePassword() {
        play({{kMainMenu, "17"}, {kNewPassword, next + "\r"}, {kRepeat, next + "\r"}});
        play({{"Hasło zostało zmienione", " "}, {"mają dawne hasło", " "}, {"7) Zmiana hasła", "w"}});
    }

    void acceptPoliciesAndUsages() {
        play({{kMainMenu, "28"}, {"ANY POLICY", "d"}, {"Podaj identyfikator polityki:", "1.2.616.1\r"}});
        play({{"Podaj nazwę polityki:", "umowy\r"}, {"1.2.616.1", "w"}});
        play({{"9) Rozszerzone zastosowanie klucza", "9"}, {"Akceptowane", "d"}});
        play({{"Podaj identyfikator", "1.3.6.1.5.5.7.3.4\r"}, {"Podaj nazwę", "poczta\r"}, {"poczta", "w"}});
        EXPECT_EQ(leave("9) Rozszerzone"), 0);
        EXPECT_EQ(screen->errors(), "");
    }

    void readTheFilesWithOtherTools() {
        EXPECT_FALSE(opensWith(kPassword));
        const std::string found = secrets(next);
        EXPECT_EQ(found.find("certificate\n"), 0U) << found;
        for (const std::string& part :
             {std::string("\nkey\n"), std::string("policy 1.2.616.1 756d6f777900\n"), std::string("seed 20\n"),
              "trusted " + run("openssl x509 -in ca/ca.pem -outform DER | sha1sum | cut -c1-40")})
            EXPECT_NE(found.find(part), std::string::npos) << part << found;
        EXPECT_NE(readFile(file("lista.conf")).find("1.3.6.1.5.5.7.3.4"), std::string::npos);
    }

    void findEverythingAgain() {
        start();
        logIn(next);
        play({{"ważny do", ""}, {kMainMenu, "28"}, {"umowy", "w"}, {"8) Polityki", "9"}, {"poczta", "w"}});
        EXPECT_EQ(leave("8) Polityki"), 0);
    }

    const std::string next = "Nowehaslo2";
};

TEST_F(SlowRoad, FromNothingToAProfileInUse) {
    const std::pair<const char*, void (SlowRoad::*)()> steps[] = {
        {"create databases and security file", &SlowRoad::createEverything},
        {"generate a key and write its request", &SlowRoad::generateAKey},
        {"install the certificate", &SlowRoad::installItsCertificate},
        {"add a trust point", &SlowRoad::trustTheAuthority},
        {"import and export certificates, import a CRL", &SlowRoad::fillTheDatabase},
        {"change the password", &SlowRoad::changeThePassword},
        {"policies and key usages", &SlowRoad::acceptPoliciesAndUsages},
        {"other tools read the files", &SlowRoad::readTheFilesWithOtherTools},
        {"everything is there at the next log-in", &SlowRoad::findEverythingAgain},
    };
    for (const auto& [name, step] : steps) {
        SCOPED_TRACE(name);
        (this->*step)();
        if (HasFailure()) break;  // what follows stands on it
    }
}

}  // namespace
}  // namespace crv::test
