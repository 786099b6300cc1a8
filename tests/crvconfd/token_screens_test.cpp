// A profile on a token at the console, from its PIN to its removal.
#include "session_screen.h"
#include "support/soft_hsm.h"

namespace crv::test {
namespace {

const std::string kAskPin = "Podaj PIN do karty:",
                  kLastTry = "To ostatnia próba przed zablokowaniem karty. Kontynuować (t/n)?";

struct TokenScreens : SessionScreen {
    TokenScreens() {
        hsm.initToken("karta");
        writeFile(file("lista.conf"), "\\Praca\\Type [l] = 5\n\\Praca\\PKCS11Library [s] = \"" + SoftHsm::mock() +
                                          "\"\n\\Praca\\dbtype [s] = \"w pamieci\"\n");
    }
    void begin() {
        screen.reset();
        ScreenProgram::Start start{.arguments = {CRV_BIN_DIR "/crvconfd", "-profiles", file("lista.conf")},
                                   .environment = {{"HOME", dir.path().string()}}};
        for (const char* name : {"SOFTHSM2_CONF", "XDG_RUNTIME_DIR", "CRV_MOCK_LOG", "CRV_MOCK_SCRIPT"})
            start.environment[name] = std::getenv(name);
        screen = std::make_unique<ScreenProgram>(start);
    }

    SoftHsm hsm;
};

TEST_F(TokenScreens, ACardIsTakenIntoUseAndMissedWhenItIsGone) {
    demoCa("init ca");
    begin();
    play({{kSelection, "\r"}, {kAskPin, "4321\r"}, {kWrongPassword, " "}, {kAskPin, "1234\r"}, {"Brak kluczy", "1"}});
    screen->waitFor("6) Instaluj");
    EXPECT_EQ(screen->row(11), "") << "no password to change";
    play({{"1) Generuj klucz do podpisywania", "1"}, {"Wybierz parametry", "g"}});
    screen->waitFor("został poprawnie wygenerowany.", std::chrono::seconds(60));
    play({{"", " "}, {"Podaj nazwę pliku zgłoszenia certyfikacyjnego:", "~/zgloszenie.pem\r"}});
    message("Klucz został poprawnie wygenerowany i zapisany.");
    demoCa("sign ca zgloszenie.pem user.crt");
    play({{"6) Instaluj certyfikat użytkownika", "6"}, {"Podaj nazwę pliku z certyfikatem:", "~/user.crt\r"}});
    play({{"Certyfikat użytkownika poprawnie zainstalowany", " "}, {"Zainstalowane certyfikaty", "w"}});
    hsm.deleteToken("karta");
    play({{"6) Instaluj", "w"}, {kMainMenu, "2"}, {"1) Punkty zaufania", "1"}, {"Brak punktów zaufania", "d"}});
    play({{"Podaj nazwę pliku z certyfikatem:", "~/ca/ca.pem\r"}, {"Karta nieznaleziona", " "}});
    play({{"Brak punktów zaufania", "w"}, {"1) Punkty zaufania", "w"}});
    EXPECT_EQ(leave(), 0);
}

TEST_F(TokenScreens, ThePinIsAskedForAsTheTokenSays) {
    const struct {
        const char* flags;
        Steps steps;
        int logins;
    } rows[] = {
        {"0x40000", {{"Karta zablokowana !!!", " "}, {kSelection, ""}}, 0},
        {"0x20000", {{kLastTry, "n"}, {kSelection, ""}}, 0},
        {"0x20000", {{kLastTry, "t"}, {kAskPin, "1234\r"}, {kMainMenu, "w"}}, 1},
        {"0x10000", {{"Podano już błędny PIN do karty karta", " "}, {kAskPin, "\x1b\x1b"}, {kSelection, ""}}, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.flags);
        hsm.script(std::string("C_GetTokenInfo * flags ") + row.flags);
        begin();
        play({{kSelection, "\r"}});
        play(row.steps);
        screen->waitFor(kSelection);
        EXPECT_EQ(hsm.calls("C_Login"), row.logins);
    }
    hsm.script("C_GetTokenInfo * flags 0x100\nC_Login * pause 2");
    begin();
    play({{kSelection, "\r"}, {"Podaj PIN na czytniku...", ""}, {kMainMenu, ""}});
    EXPECT_EQ(hsm.calls("C_Login null"), 1);
}

}  // namespace
}  // namespace crv::test
