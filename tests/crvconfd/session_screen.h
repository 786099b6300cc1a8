// Sessions of the console on profiles of a test's own folder, which is HOME.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

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
    static inline const std::string kAskPassword = "Wprowadź hasło dostępu:";

    /// A list with the file profile Praca: "praca.p12" and the folder "db".
    SessionScreen();

    void start(const std::vector<std::string>& options = {}, const std::map<std::string, std::string>& environment = {},
               bool utf8 = true);
    /// Starts the console under a shell's limits: "ulimit -f 8", "trap '' XFSZ".
    void startUnder(const std::string& shellCommands);
    void play(const Steps& steps);
    /// Waits for the message on row 23 and puts it away.
    void message(const std::string& text) { play({{text, " "}}); }
    /// From nothing to the main menu: databases and security file.
    void create(const std::string& password = kPassword);
    /// From the selection to the main menu.
    void logIn(const std::string& password = kPassword);
    /// From the main menu out; the program's status.
    int leave();
    /// Database and security file as create() makes them, without running the console again for each test.
    void prepare();
    /// prepare(), but with a key in the security file, its certificate by a demo authority too when asked. Beside them
    /// "user.key", "user.crt", "ca.crt" (DER) and "ca.crl".
    void prepareKey(bool withCertificate);
    /// The demo authority in the folder "ca".
    std::string demoCa(const std::string& arguments);

    [[nodiscard]] std::string file(const std::string& name) const { return dir.file(name); }
    /// Output of a command that runs in the folder and must succeed.
    std::string run(const std::string& command) const;
    /// What the independent reader finds in the security file.
    [[nodiscard]] std::string secrets(const std::string& password = kPassword) const;
    [[nodiscard]] bool opensWith(const std::string& password) const;

    TempDir dir;
    std::unique_ptr<ScreenProgram> screen;
};

}  // namespace crv::test
