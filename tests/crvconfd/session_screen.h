// Sessions of the console on profiles of a test's own folder, which is HOME.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <source_location>
#include <string>
#include <vector>

#include "misc/bytes.h"
#include "support/screen/screen_program.h"
#include "support/temp_dir.h"

namespace crv::test {

/// What to wait for, and what to type then. Every message is put away with a space.
struct Step {
    std::string shown;
    std::string typed;
};
using Steps = std::vector<Step>;

class SessionScreen : public testing::Test {
  protected:
    static inline const std::string kPassword = "Abcdefg1";
    static inline const std::string kMainMenu = "W) Wyjście";
    static inline const std::string kSelection = "Wybierz profil:";
    static inline const std::string kAskPassword = "Wprowadź hasło dostępu:";
    static inline const std::string kWrongPassword =
        "Błędne hasło/PIN lub naruszona integralność pliku bezpieczeństwa !!!";
    static inline const std::string kNewPassword = "Wprowadź nowe hasło dostępu:";
    static inline const std::string kRepeat = "Powtórz hasło:";
    static inline const std::string kSeeding = "aby zainicjowac generator pseudolosowy:";
    static inline const std::string kChanged = "Zmiany zostały zapisane";
    static inline const std::string kTooLong = "Hasło jest za długie, mieści się najwyżej 39 znaków";
    static inline const std::string kOfTheProfile = "Plik należy do profilu PRACA, podaj inną nazwę: ";
    static inline const std::string kNoDatabase = "Bazy danych pakietu nie istnieją";
    static inline const std::string kNoFile =
        "Plik bezpieczeństwa pakietu nie istnieje. Czy chcesz go utworzyć (t/n) ?";

    static inline const std::string kForeign =
        "Plik pochodzi z innego programu i będzie zapisany od nowa. Przejąć go (t/n)?";

    /// A list with the file profile Praca: "praca.p12" and the folder "db".
    SessionScreen();

    void start(const std::vector<std::string>& options = {}, bool utf8 = true);
    /// Starts the console under a shell's limits: "ulimit -f 8", "trap '' XFSZ".
    void startUnder(const std::string& shellCommands);
    /// A failure names the line of the test and the step.
    void play(const Steps& steps, const std::source_location& where = std::source_location::current());
    /// Waits for the message on row 23 and puts it away.
    void message(const std::string& text, const std::source_location& where = std::source_location::current()) {
        play({{text, " "}}, where);
    }
    /// Types and waits until the row is the text, or has it in itself.
    void expectRow(const std::string& typed, int row, const std::string& text, bool whole = true);
    void expectIn(const std::string& typed, int row, const std::string& part) { expectRow(typed, row, part, false); }
    /// The steps from the question for a new security file to its end.
    static Steps fileCreation(const std::string& password = kPassword);
    /// From nothing to the main menu: databases and security file.
    void create();
    /// From the selection to the main menu.
    void logIn(const std::string& password = kPassword);
    /// Starts the console and goes to a menu below the main menu.
    void open(const std::string& typed);
    /// Out of the console: from the selection, the main menu or a menu below it that shows the text. Its status.
    int leave(const std::string& from = kMainMenu);
    /// Database and security file as create() makes them, without running the console again for each test.
    void prepare();
    /// prepare(), but with a key in the security file, its certificate by a demo authority too when asked. Beside them
    /// "user.key", "user.crt", "ca.crt" (DER) and "ca.crl".
    void prepareKey(bool withCertificate);
    /// Takes another program's file over in a session.
    void adopt(const std::string& foreign);
    /// The demo authority in the folder "ca".
    std::string demoCa(const std::string& arguments);

    [[nodiscard]] std::string file(const std::string& name) const { return dir.file(name); }
    void save(const std::string& name, const Bytes& octets) { writeFile(file(name), {octets.begin(), octets.end()}); }
    /// Output of a command that runs in the folder and must succeed.
    std::string run(const std::string& command) const;
    /// What the independent reader finds in the security file.
    [[nodiscard]] std::string secrets(const std::string& password = kPassword) const;
    [[nodiscard]] bool opensWith(const std::string& password) const;

    TempDir dir;
    int terminalRows = 24, terminalColumns = 80;  ///< of the terminal that start() makes
    std::unique_ptr<ScreenProgram> screen;
};

}  // namespace crv::test
