#include "session_screen.h"

namespace crv::test {

namespace {

const std::string kConsole = CRV_BIN_DIR "/crvconfd";

std::string quoted(const std::string& text) {
    return "'" + text + "'";
}

}  // namespace

SessionScreen::SessionScreen() {
    writeFile(file("lista.conf"),
              "\\Praca\\Type [l] = 1\n\\Praca\\Pkcs12File [s] = \"~/praca.p12\"\n\\Praca\\dbtype [s] = \"corvane\"\n"
              "\\Praca\\db [s] = \"" +
                  file("db") + "\"\n");
}

void SessionScreen::start(const std::vector<std::string>& options, bool utf8) {
    std::vector<std::string> arguments{kConsole, "-profiles", file("lista.conf")};
    arguments.insert(arguments.end(), options.begin(), options.end());
    screen.reset();
    screen = std::make_unique<ScreenProgram>(ScreenProgram::Start{.arguments = arguments,
                                                                  .environment = {{"HOME", dir.path().string()}},
                                                                  .rows = terminalRows,
                                                                  .columns = terminalColumns,
                                                                  .utf8 = utf8});
}

void SessionScreen::startUnder(const std::string& shellCommands) {
    screen.reset();
    screen = std::make_unique<ScreenProgram>(ScreenProgram::Start{
        .arguments = {"/bin/sh", "-c", shellCommands + "; exec " + kConsole + " -profiles " + file("lista.conf")},
        .environment = {{"HOME", dir.path().string()}}});
}

void SessionScreen::play(const Steps& steps, const std::source_location& where) {
    std::string last = "nothing";
    for (const Step& step : steps) {
        try {
            // Rows end with their last character.
            screen->waitFor(step.shown.substr(0, step.shown.find_last_not_of(' ') + 1));
        } catch (const ScreenFailure& failure) {
            throw ScreenFailure(std::string(where.file_name()) + ":" + std::to_string(where.line()) + ": step " +
                                std::to_string(&step - steps.data() + 1) + ", after \"" + last +
                                "\": " + failure.what());
        }
        screen->send(step.typed);
        last = step.typed;
    }
}

void SessionScreen::expectRow(const std::string& typed, int row, const std::string& text, bool whole) {
    SCOPED_TRACE(typed);
    screen->send(typed);
    screen->waitUntil("row " + std::to_string(row) + " \"" + text + '"', [&] {
        return whole ? screen->row(row) == text : screen->row(row).find(text) != std::string::npos;
    });
}

Steps SessionScreen::fileCreation(const std::string& password) {
    return {{kNoFile, "t"},
            {kNewPassword, password + "\r"},
            {kRepeat, password + "\r"},
            {kSeeding, std::string(30, 'k') + "\r"}};
}

void SessionScreen::create() {
    play({{kSelection, "\r"}, {kNoDatabase + ". Czy chcesz je utworzyć (t/n) ?", "t"}});
    play(fileCreation(kPassword));
    screen->waitFor(kMainMenu);
}

void SessionScreen::logIn(const std::string& password) {
    play({{kSelection, "\r"}, {kAskPassword, password + "\r"}, {kMainMenu, ""}});
}

void SessionScreen::open(const std::string& typed) {
    start();
    logIn();
    screen->send(typed);
}

int SessionScreen::leave(const std::string& from) {
    if (from != kMainMenu && from != kSelection) play({{from, "w"}});
    if (from != kSelection) play({{kMainMenu, "w"}});
    play({{kSelection, "w"}});
    return screen->waitExit();
}

void SessionScreen::prepare() {
    static const TempDir kept;
    if (!std::filesystem::exists(kept.file("praca.p12"))) {
        start();
        create();
        ASSERT_EQ(leave(), 0);
        std::filesystem::copy(dir.path(), kept.path(), std::filesystem::copy_options::recursive);
    }
    for (const char* name : {"praca.p12", "db"}) {
        std::filesystem::copy(
            kept.path() / name, dir.path() / name,
            std::filesystem::copy_options::recursive | std::filesystem::copy_options::overwrite_existing);
    }
}

void SessionScreen::prepareKey(bool withCertificate) {
    static const TempDir kept;
    prepare();
    if (!std::filesystem::exists(kept.file("user.crt"))) {
        shell("cd " + kept.path().string() + " && " CRV_SOURCE_DIR "/examples/demo-ca/demo-ca init ca && " +
              "openssl req -new -newkey rsa:2048 -nodes -utf8 -keyout user.key -out user.req -subj '/CN=Użytkownik' "
              "-addext keyUsage=critical,digitalSignature,keyEncipherment && " CRV_SOURCE_DIR
              "/examples/demo-ca/demo-ca sign ca user.req user.crt && openssl x509 -in ca/ca.pem -outform DER -out "
              "ca.crt && cp ca/ca.crl . && openssl x509 -inform DER -in user.crt -out user.pem && "
              "openssl pkcs12 -export -inkey user.key -in user.pem -out both.p12 -passout pass:" +
              kPassword +
              " && openssl pkcs12 -export -inkey user.key -nocerts -out key.p12 -passout pass:" + kPassword);
        for (const char* name : {"both.p12", "key.p12"}) adopt(kept.file(name));
    }
    std::filesystem::copy(kept.path(), dir.path(), std::filesystem::copy_options::recursive);
    // The authority's configuration names the folder in which it was made.
    run("sed -i 's|" + kept.path().string() + "|" + dir.path().string() + "|' ca/ca.cnf");
    std::filesystem::rename(dir.path() / (withCertificate ? "both.p12" : "key.p12"), dir.path() / "praca.p12");
}

void SessionScreen::adopt(const std::string& foreign) {
    std::filesystem::rename(foreign, file("praca.p12"));
    start();
    play({{kSelection, "\r"}, {kAskPassword, kPassword + "\r"}, {kForeign, "t"}});
    ASSERT_EQ(leave(), 0);
    std::filesystem::rename(file("praca.p12"), foreign);
    std::filesystem::remove(file("praca.p12.orig"));
}

std::string SessionScreen::run(const std::string& command) const {
    int status = 0;
    const std::string output = shell("cd " + quoted(dir.path().string()) + " && " + command, &status);
    EXPECT_EQ(status, 0) << command << '\n' << output;
    return output;
}

std::string SessionScreen::demoCa(const std::string& arguments) {
    return run(CRV_SOURCE_DIR "/examples/demo-ca/demo-ca " + arguments);
}

std::string SessionScreen::secrets(const std::string& password) const {
    return run("python3 " CRV_TEST_DATA "/security_file.py praca.p12 " + quoted(password));
}

bool SessionScreen::opensWith(const std::string& password) const {
    int status = 0;
    const std::string output =
        shell("python3 " CRV_TEST_DATA "/security_file.py " + file("praca.p12") + " " + quoted(password), &status);
    EXPECT_TRUE(output.find("seed 20") != std::string::npos || output == "wrong password\n") << output;
    return output != "wrong password\n";
}

}  // namespace crv::test
