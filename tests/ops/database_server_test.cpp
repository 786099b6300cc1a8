// Databases on a server through the command tool: what it does with them, and what it says when that fails.
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <chrono>

#include "support/cert_maker.h"
#include "support/pg_server.h"

namespace crv::test {
namespace {

using testing::HasSubstr;

class ServerDatabase : public testing::Test {
  protected:
    ServerDatabase() {
        const std::string der = asString(makeCert({.subject = {{"CN", "O'Reilly\";"}}}).der);
        writeFile(dir.file("one.der"), der);
        writeFile(dir.file("two.der"), asString(makeCert({.subject = {{"CN", "Jan"}}}).der));
        addProfile("Baza", connection);
        addProfile("Krotka", connection + " options='-c statement_timeout=500ms'");
        std::filesystem::create_directory(dir.file("cisza"));
        addProfile("Cisza", "host=" + dir.file("cisza") + " connect_timeout=1");
    }
    static std::string asString(const Bytes& octets) { return {octets.begin(), octets.end()}; }
    void addProfile(const std::string& name, const std::string& target) {
        profiles += "\\" + name + "\\Type [l] = 1\n\\" + name + "\\dbtype [s] = \"postgresql\"\n\\" + name +
                    "\\dbname [s] = \"" + target + "\"\n";
        writeFile(dir.file("list.conf"), profiles);
    }
    std::string ctl(const std::string& arguments, int* status, const std::string& program = CRV_BIN_DIR "/crvctl") {
        return shell("cd " + dir.path().string() + " && HOME=$PWD CRV_PROFILE_FILE=$PWD/list.conf " + program +
                         " --lang en --non-interactive " + arguments,
                     status);
    }

    const TempDir dir;
    const std::string connection = PgServer::shared().newDatabase();
    std::string profiles;
};

TEST_F(ServerDatabase, TheCommandToolDoesItsWorkAndTellsWhyItCannot) {
    // Accepts nobody.
    const int silent = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
    (dir.file("cisza") + "/.s.PGSQL.5432").copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_TRUE(bind(silent, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 && listen(silent, 5) == 0);
    const char* kHeld = "SELECT pg_advisory_lock(4857398251074617345); SELECT pg_sleep(8)";
    const struct {
        const char *sql, *call;
        int status;
        const char* told;
    } rows[] = {
        {"", "-p Baza db check", 3, "no database"},
        {"", "-p Baza db create", 0, "Baza (postgresql)"},
        {"", "-p Baza db create", 6, "there is a database already"},
        {"", "-p Baza cert import one.der", 0, "Stored: 1"},
        {"", "-p Baza cert import one.der", 0, "There already: 1"},
        {"", "-p Baza cert export --all all.der", 0, ""},
        {"", "-p Baza db stat", 0, "crt\t1\t"},
        {"", "-p Baza db check", 0, "Sound: yes"},
        {"UPDATE corvane.crt SET email = 'x'", "-p Baza db check", 1, "keys of another certificate at 1"},
        {"", "-p Baza db repair", 0, "keys written anew at 1"},
        {"UPDATE corvane.crt SET der = der || '\\x00'", "-p Baza db repair", 1, "not the certificate that was stored"},
        {kHeld, "-p Krotka cert import two.der", 7, "statement_timeout"},
        {"", "-p Cisza cert list", 7, "nie odpowiedzia"},
        {"", "db copy --from Baza --to Cisza", 7, "nie odpowiedzia"},
        {"UPDATE corvane.version SET number = 2", "-p Baza cert list", 7, "inna wersja programu"},
        {"", "-p Baza db repair", 7, "inna wersja programu"},
        {"", "db copy --from Cisza --to Baza", 7, "nie odpowiedzia"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.call);
        // What holds the lock goes on beside the call.
        const std::string statements = dir.file("statements.sql");
        writeFile(statements, row.sql);
        shell("psql -X -q -d '" + connection + "' -f " + statements + " >/dev/null 2>&1 " +
              (row.sql == kHeld ? "& sleep 0.5" : ""));
        int status = -1;
        const auto start = std::chrono::steady_clock::now();
        EXPECT_THAT(ctl(row.call, &status), HasSubstr(row.told));
        EXPECT_EQ(status, row.status);
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
    }
    EXPECT_EQ(readFile(dir.file("all.der")), readFile(dir.file("one.der")));
    close(silent);
}

TEST_F(ServerDatabase, APlugInThatOthersCouldHaveWrittenIsNotLoaded) {
    const std::string own = dir.file("crvctl"), plugin = dir.file("libcorvane-pg.so");
    std::filesystem::copy_file(CRV_BIN_DIR "/crvctl", own);
    std::filesystem::copy_file(CRV_BIN_DIR "/../lib/libcorvane-pg.so", plugin);
    for (const auto& [mode, told] : {std::pair{0755, "no database"}, {0775, "inni użytkownicy mogą zmienić"}}) {
        std::filesystem::permissions(plugin, static_cast<std::filesystem::perms>(mode));
        int status = -1;
        EXPECT_THAT(ctl("-p Baza db check", &status, own), HasSubstr(told));
        EXPECT_NE(status, 0);
    }
}

}  // namespace
}  // namespace crv::test
