// What is particular to a database on a server: its states, losing it, several programs at once, who may do what.
#include "db_sql/db_pg.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <random>
#include <thread>

#include "cert_pool.h"
#include "db_sql/crt_db.h"
#include "db_sql/crt_keys.h"
#include "db_sql/db_pg_library.h"
#include "support/pg_server.h"

using namespace crv;
using namespace crv::test;
using namespace std::literals;
using std::chrono::steady_clock;
using testing::HasSubstr;
using testing::Not;

namespace {

DbConfig pgConfig(const std::string& connection) {
    DbConfig config;
    config.setType(std::string(kDbKindPg));
    config.dbName = connection;
    return config;
}

size_t countOf(DbManager& manager) {
    size_t count = 0;
    EXPECT_TRUE(manager.countCerts(count)) << manager.lastFailure();
    return count;
}

std::string problemsOf(const std::string& connection) {
    std::string found;
    static_cast<void>(checkPg(DbPg(pgConfig(connection)).session(),
                              [&](const auto& where, const auto& what) { found += where + ": " + what + "\n"; }));
    return found;
}

/// Certificates of which no two are the same, all of them readable.
std::vector<Bytes> manyCerts(size_t count) {
    std::vector<Bytes> list;
    for (size_t i = 0; i < count; ++i) {
        Bytes der = certPool()[i % certPool().size()];
        const auto n = static_cast<uint32_t>(i / certPool().size());
        for (size_t at = 0; at < 3; ++at) der[der.size() - 1 - at] ^= static_cast<uint8_t>(n >> 8 * at);
        list.push_back(std::move(der));
    }
    return list;
}

bool importAll(
    DbManager& manager, const std::vector<Bytes>& certs, ImportProgress& reached,
    const std::function<void()>& atSlice = [] {}) {
    size_t at = 0;
    ImportProgress done;
    const auto next = [&](ByteView& der) { return at < certs.size() && (der = certs[at++], true); };
    return CrtDb(manager).insertMany(
        next, [&](const ImportProgress& now) { return reached = now, atSlice(), true; }, nullptr, done);
}

class PgTest : public testing::Test {
  protected:
    PgTest() {
        manager.init(pgConfig(connection));
        EXPECT_TRUE(manager.createDb()) << manager.lastFailure();
    }
    std::string sql(const std::string& statements) const { return server.sql(connection, statements); }
    void killBackends() const {
        sql("SELECT count(pg_terminate_backend(pid, 5000)) FROM pg_stat_activity WHERE application_name = 'corvane'");
    }

    PgServer& server = PgServer::shared();
    const std::string connection = server.newDatabase();
    DbManager manager;
};

TEST_F(PgTest, TheStateIsThatOfTheTables) {
    sql("CREATE ROLE stranger LOGIN");
    const struct {
        const char* change;
        DbState state;
    } rows[] = {{"", DbState::Complete},
                {"UPDATE corvane.version SET number = 2", DbState::OtherVersion},
                {"DELETE FROM corvane.version", DbState::OtherVersion},
                {"DROP TABLE corvane.version", DbState::Incomplete},
                {"DROP TABLE corvane.crl, corvane.crt", DbState::Incomplete},
                {"DROP SCHEMA corvane CASCADE", DbState::Missing}};
    for (const auto& row : rows) {
        sql(row.change);
        EXPECT_EQ(manager.isDbCreated(), row.state) << row.change;
        EXPECT_EQ(manager.lastFailure().empty(), row.state == DbState::Complete || row.state == DbState::Missing);
        EXPECT_EQ(manager.createDb(), row.state == DbState::Complete || row.state == DbState::Missing) << row.change;
    }
    EXPECT_EQ(manager.isDbCreated(), DbState::Complete);
    sql("UPDATE corvane.version SET number = 2");
    killBackends();
    EXPECT_FALSE(CrtDb(manager).insert(ByteView(certPool()[0]))) << "nobody asked for the state";
    EXPECT_THAT(manager.lastFailure(), HasSubstr("inna wersja programu"));
    sql("UPDATE corvane.version SET number = 1");
    EXPECT_EQ(countOf(manager), 0U);
    DbManager stranger;
    stranger.init(pgConfig(connection + " user=stranger"));
    EXPECT_EQ(stranger.isDbCreated(), DbState::NoAccess);
    sql("DROP SCHEMA corvane CASCADE");
    EXPECT_FALSE(stranger.createDb());
    EXPECT_THAT(stranger.lastFailure(), HasSubstr("permission denied"));
    std::vector<std::thread> creators;
    for (int i = 0; i < 4; ++i) {
        creators.emplace_back([&] {
            DbManager other;
            other.init(pgConfig(connection));
            EXPECT_TRUE(other.createDb()) << other.lastFailure();
        });
    }
    for (std::thread& one : creators) one.join();
    EXPECT_EQ(problemsOf(connection), "");
}

TEST_F(PgTest, ChecksFindWhatIsDamagedAndRepairMendsWhatItCan) {
    for (size_t i = 0; i < 30; ++i) ASSERT_TRUE(CrtDb(manager).insert(ByteView(certPool()[i])));
    const MadeCert issuer = makeCert({.subject = {{"CN", "A"}}, .extensions = caExtensions()});
    ASSERT_EQ(manager.insertCrl(makeCrl({}, issuer), true), CrlInsert::Stored);
    sql("UPDATE corvane.crt SET der = der || '\\x00' WHERE id = 3; DELETE FROM corvane.crt WHERE id = 5; "
        "DROP INDEX corvane.crt_email; UPDATE corvane.crt SET not_after = NULL WHERE id = 7; "
        "DELETE FROM corvane.dn_field WHERE crt = 9; INSERT INTO corvane.dn_field VALUES ('x', 11); "
        "UPDATE corvane.crl SET issuer = 'x'");
    EXPECT_EQ(CrtDb(manager).insert(ByteView(certPool()[6])), true) << "there already, so it mends nothing";
    EXPECT_EQ(
        problemsOf(connection),
        "crt_email: missing\ncrt: not the certificate that was stored at 3\ncrt: keys of another certificate at 7\n"
        "dn_field: not the fields of the certificate at 9\ndn_field: not the fields of the certificate at 11\n"
        "crl: key of another issuer at 1\ndn_field: record without its certificate at 5\n");
    repairPg(DbPg(pgConfig(connection)).session(), [](const auto&, const auto&) {});
    EXPECT_EQ(problemsOf(connection), "crt: not the certificate that was stored at 3\n");
}

TEST_F(PgTest, ALostConnectionIsMadeAnewBetweenOperationsOnly) {
    ASSERT_TRUE(CrtDb(manager).insert(ByteView(certPool()[0])));
    killBackends();
    EXPECT_EQ(countOf(manager), 1U);
    server.stop();
    EXPECT_EQ(manager.isDbCreated(), DbState::NoAccess);
    EXPECT_THAT(manager.lastFailure(), HasSubstr("Brak połączenia z bazą PostgreSQL"));
    EXPECT_THAT(manager.lastFailure(), HasSubstr(server.folder()));
    server.start();
    EXPECT_EQ(countOf(manager), 1U);
    int shown = 0;
    const auto visit = [&](int64_t, ByteView) {
        if (++shown == 1) killBackends();
        return true;
    };
    for (const Bytes& der : manyCerts(600)) ASSERT_TRUE(CrtDb(manager).insert(ByteView(der)));
    EXPECT_FALSE(manager.visitCerts(visit)) << "never in the middle";
    EXPECT_EQ(manager.lastCause(), StoreCause::Unreachable);
    EXPECT_LT(shown, 600);
}

TEST_F(PgTest, WhatAnImportToldIsThereHoweverTheServerEnds) {
    const std::vector<Bytes> certs = manyCerts(8000);
    for (const char* victim : {"backend ended", "backend killed", "server killed"}) {
        SCOPED_TRACE(victim);
        const bool whole = victim == "server killed"sv, killed = victim == "backend killed"sv;
        sql("TRUNCATE corvane.crt, corvane.dn_field");
        ImportProgress reached;
        DbPg holder(pgConfig(connection));
        std::optional<PgTransaction> holding;
        std::thread killer;
        // The second slice has sent its rows and waits for its turn when its end comes.
        const auto atSlice = [&] {
            if (killer.joinable()) return;
            holding.emplace(holder.session(), PgTransaction::Kind::Change);
            holder.session().command("SELECT pg_advisory_xact_lock(" CRV_PG_INSERT_LOCK ")");
            killer = std::thread([&] {
                const char* waiting = "SELECT count(*) FROM pg_stat_activity WHERE wait_event_type = 'Lock'";
                for (int i = 0; i < 200 && sql(waiting).starts_with('0'); ++i) std::this_thread::sleep_for(20ms);
                if (whole) return server.killServer();
                if (killed) {
                    kill(std::stoi(sql("SELECT pid FROM pg_stat_activity WHERE wait_event_type = 'Lock'")), SIGKILL);
                    return;
                }
                sql("SELECT pg_terminate_backend(pid, 5000) FROM pg_stat_activity WHERE wait_event_type = 'Lock'");
            });
        };
        EXPECT_FALSE(importAll(manager, certs, reached, atSlice));
        killer.join();
        holding.reset();
        if (whole) server.start();
        // A backend that is killed takes the others with it.
        size_t there = 0;
        for (int i = 0; i < 500 && !manager.countCerts(there); ++i) std::this_thread::sleep_for(20ms);
        EXPECT_GT(reached.stored, 0U);
        EXPECT_EQ(countOf(manager), reached.stored) << "a slice is there whole or not at all";
        for (size_t i = 0; i < reached.stored; i += 97) {
            CrtItemList found;
            EXPECT_TRUE(manager.findCertsByCrtHash(found, crtHash(certs[i])));
            EXPECT_EQ(found.size(), 1U) << i;
        }
        EXPECT_EQ(problemsOf(connection), "");
    }
    ImportProgress reached;
    ASSERT_TRUE(importAll(manager, certs, reached)) << manager.lastFailure();
    EXPECT_EQ(reached.handled(), certs.size());
    EXPECT_EQ(countOf(manager), certs.size());
    // What is there is asked for by hashes after the first piece, and what is missing among it is still stored.
    sql("DELETE FROM corvane.crt WHERE id > (SELECT max(id) - 1000 FROM corvane.crt)");
    ASSERT_TRUE(importAll(manager, certs, reached)) << manager.lastFailure();
    EXPECT_EQ(reached.stored, 1000U);
    EXPECT_EQ(countOf(manager), certs.size());
}

/// One of several programs: what is its own changes only by its own hand, what is everybody's may come and go.
int workOn(const std::string& connection, size_t number, std::chrono::seconds time) {
    DbManager manager;
    manager.init(pgConfig(connection));
    manager.setSync(false);
    std::mt19937 random(static_cast<unsigned>(number));
    const std::vector<Bytes> all = manyCerts(1200);
    std::set<Bytes> present;
    const auto fail = [&](const char* what) {
        return std::fprintf(stderr, "%s: %s\n", what, manager.lastFailure().c_str());
    };
    for (const auto end = steady_clock::now() + time; steady_clock::now() < end;) {
        ImportProgress reached;
        if (!importAll(manager, {all.begin(), all.begin() + 240}, reached)) return fail("import");
        const size_t chosen = 240 + number + 8 * (random() % 100);
        if (chosen % 240 % 7 == 0) continue;  // has expired: anybody takes it away
        const Bytes& own = all[chosen];
        CrtItemList found;
        if (!manager.findCertsByCrtHash(found, crtHash(own))) return fail("search");
        if (found.size() != present.count(own)) return fail("not what was left there");
        if (found.empty()) {
            if (!CrtDb(manager).insert(ByteView(own))) return fail("insert");
            present.insert(own);
        } else {
            if (!manager.setCrtId(found[0].id) || !manager.deleteCert()) return fail("delete");
            present.erase(own);
        }
        CrtStore::Removed removed;
        if (random() % 4 == 0 && !CrtDb(manager).removeCertsOverTime(std::time(nullptr), removed))
            return fail("remove");
        if (random() % 4 == 0 && manager.top() != DbStep::Found) return fail("top");
        if (random() % 8 == 0 &&
            !manager.removeCerts([&](ByteView der) { return std::ranges::equal(der, all[random() % 240]); }, removed))
            return fail("remove some");
    }
    return 0;
}

void workTogether(const std::string& connection, std::chrono::seconds time) {
    static_cast<void>(certPool());
    std::vector<pid_t> workers;
    for (size_t i = 0; i < 8; ++i) {
        const pid_t pid = fork();
        if (pid == 0) _exit(workOn(connection, i, time) == 0 ? 0 : 1);
        workers.push_back(pid);
    }
    for (const pid_t pid : workers) {
        int status = -1;
        waitpid(pid, &status, 0);
        EXPECT_EQ(status, 0);
    }
    EXPECT_EQ(problemsOf(connection), "");
}

TEST_F(PgTest, EightProgramsAtOnceLeaveASoundDatabase) {
    workTogether(connection, 4s);
}

TEST_F(PgTest, AnImporterThatIsStoppedHoldsNobodyUpForLong) {
    const pid_t importer = [&] {
        DbPg holder(pgConfig(connection));
        const PgTransaction holding(holder.session(), PgTransaction::Kind::Change);
        holder.session().command("LOCK TABLE corvane.dn_field IN EXCLUSIVE MODE");
        const std::vector<Bytes> certs = manyCerts(100);
        const pid_t pid = fork();
        if (pid == 0) {
            DbManager other;
            other.init(pgConfig(connection + " options='-c idle_in_transaction_session_timeout=1s'"));
            ImportProgress done;
            _exit(importAll(other, certs, done) ? 0 : 1);
        }
        const char* waiting = "SELECT count(*) FROM pg_stat_activity WHERE wait_event_type = 'Lock'";
        for (int i = 0; i < 500 && sql(waiting).starts_with('0'); ++i) std::this_thread::sleep_for(20ms);
        kill(pid, SIGSTOP);
        return pid;
    }();
    DbManager next;
    next.init(pgConfig(connection + " options='-c statement_timeout=9s'"));
    EXPECT_TRUE(CrtDb(next).insert(ByteView(certPool()[0]))) << next.lastFailure();
    EXPECT_EQ(countOf(next), 1U);
    kill(importer, SIGCONT);
    int status = 0;
    waitpid(importer, &status, 0);
    EXPECT_EQ(WEXITSTATUS(status), 1) << "nothing of it is stored, and it is told so";
}

using SlowPgTest = PgTest;
TEST_F(SlowPgTest, EightProgramsForAMinute) {
    workTogether(connection, 60s);
}

TEST_F(PgTest, TheNewerOfTwoCrlsStaysWhoeverComesFirst) {
    const MadeCert issuer = makeCert({.subject = {{"CN", "A"}}, .extensions = caExtensions()});
    std::vector<Bytes> crls;
    for (long number = 1; number <= 16; ++number)
        crls.push_back(makeCrl({.number = number, .nextUpdate = kDay}, issuer));
    std::vector<std::thread> sessions;
    for (size_t first = 0; first < 4; ++first) {
        sessions.emplace_back([&, first] {
            DbManager other;
            other.init(pgConfig(connection));
            for (size_t i = first; i < crls.size(); i += 4)
                EXPECT_NE(other.insertCrl(crls[i], true), CrlInsert::Failed) << other.lastFailure();
        });
    }
    for (std::thread& one : sessions) one.join();
    std::vector<Bytes> stored;
    EXPECT_TRUE(manager.getAllCrls(stored));
    EXPECT_EQ(stored, std::vector<Bytes>{crls.back()});
    EXPECT_EQ(manager.insertCrl(crls[2], true), CrlInsert::Older);
}

TEST_F(PgTest, NamesHoldAnyOctets) {
    sql("CREATE FUNCTION public.unnest(bytea[]) RETURNS SETOF bytea LANGUAGE sql AS 'SELECT ''x''::bytea'");
    const std::string nul("a\0b", 3);
    for (const std::string& name : {std::string("O'Reilly\"; DROP TABLE corvane.crt; --"), std::string("\xFF\xFE\x80"),
                                    std::string("{a,\"b\\\\"), nul, std::string("a")}) {
        CrtRecord record;
        const Bytes der = makeCert({.subject = {{"CN", "x" + std::to_string(name.size())}}}).der;
        ASSERT_TRUE(makeCrtRecord(der, record));
        record.email = name;
        record.dnFlds.push_back({kDnOther, dnFldValue(name)});
        ASSERT_TRUE(manager.insertCert(record)) << manager.lastFailure();
        CrtItemList found;
        EXPECT_TRUE(manager.findCertsBySbjDnFld(found, kDnOther, name));
        ASSERT_FALSE(found.empty());
        EXPECT_EQ(found.front().der, der);
        long number = 0;
        EXPECT_TRUE(manager.setLastImportNr(name, static_cast<long>(name.size())));
        EXPECT_TRUE(manager.getLastImportNr(name, number));
        EXPECT_EQ(number, static_cast<long>(name.size()));
    }
    EXPECT_EQ(countOf(manager), 5U);
    sql("TRUNCATE corvane.crt, corvane.dn_field");
    // As certificates have them; the last one is no UTF-8 and was no text of its type.
    for (const std::string& name : {"O'Reilly\"; DROP TABLE corvane.crt; --"s, "{a,\"b\\}"s, nul, "zepsuty"s}) {
        Bytes der = makeCert({.subject = {{"O", "F"}, {"CN", name}}}).der;
        const auto broken = "zepsuty"sv;
        const auto at = std::search(der.begin(), der.end(), broken.begin(), broken.end());
        if (at != der.end()) std::fill_n(at, broken.size(), 0xFE);
        ImportProgress done;
        ASSERT_TRUE(importAll(manager, {der}, done)) << manager.lastFailure();
        CrtRecord record;
        ASSERT_TRUE(makeCrtRecord(der, record));
        for (const DnFld& field : record.dnFlds) {
            CrtItemList found;
            EXPECT_TRUE(manager.findCertsBySbjDnFld(found, field.type, field.value));
            EXPECT_TRUE(std::ranges::any_of(found, [&](const CrtItem& one) { return one.der == der; })) << field.value;
        }
    }
    EXPECT_EQ(problemsOf(connection), "");
}

/// Listens and says nothing, or what it is told, an answer to each request.
class FakeServer {
  public:
    explicit FakeServer(const std::vector<std::string>& answers) {
        sockaddr_in address{.sin_family = AF_INET, .sin_port = 0, .sin_addr = {htonl(INADDR_LOOPBACK)}, .sin_zero = {}};
        socklen_t size = sizeof address;
        auto* generic = reinterpret_cast<sockaddr*>(&address);
        EXPECT_TRUE(bind(listener_, generic, size) == 0 && listen(listener_, 5) == 0 &&
                    getsockname(listener_, generic, &size) == 0);
        port = ntohs(address.sin_port);
        if (!answers.empty()) thread_ = std::thread([this, answers] { serve(answers); });
    }
    ~FakeServer() {
        shutdown(listener_, SHUT_RDWR);
        if (thread_.joinable()) thread_.join();
        close(listener_);
    }

    int port = 0;

  private:
    /// Peers that go away without a word are no matter.
    void serve(const std::vector<std::string>& answers) {
        std::array<char, 4096> request{};
        for (int peer = accept(listener_, nullptr, nullptr); peer >= 0; peer = accept(listener_, nullptr, nullptr)) {
            for (const std::string& answer : answers) {
                if (read(peer, request.data(), request.size()) <= 0 || write(peer, answer.data(), answer.size()) < 0)
                    break;
            }
            static_cast<void>(!read(peer, request.data(), request.size()));
            close(peer);
        }
    }

    int listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    std::thread thread_;
};

TEST_F(PgTest, AServerThatDoesNotAnswerIsToldInTime) {
    const FakeServer silent({});
    DbManager other;
    other.init(pgConfig("host=127.0.0.1 connect_timeout=1 port=" + std::to_string(silent.port)));
    auto start = steady_clock::now();
    EXPECT_EQ(other.isDbCreated(), DbState::NoAccess);
    EXPECT_THAT(other.lastFailure(), HasSubstr("nie odpowiedział na czas"));
    EXPECT_LT(steady_clock::now() - start, 3s);
    other.init(pgConfig("host=127.0.0.1," + server.folder() + " user=postgres dbname=postgres connect_timeout=1 port=" +
                        std::to_string(silent.port) + ",5432"));
    EXPECT_EQ(other.isDbCreated(), DbState::Missing) << "the next host: " << other.lastFailure();

    other.init(pgConfig(connection + " options='-c statement_timeout=500ms'"));
    EXPECT_EQ(countOf(other), 0U);
    const std::string pid =
        sql("SELECT pid FROM pg_stat_activity WHERE application_name = 'corvane' ORDER BY backend_start DESC LIMIT 1");
    kill(std::stoi(pid), SIGSTOP);
    start = steady_clock::now();
    EXPECT_EQ(other.top(), DbStep::Failed);
    EXPECT_THAT(other.lastFailure(), HasSubstr("nie odpowiedział na czas"));
    EXPECT_LT(steady_clock::now() - start, 5s);
    kill(std::stoi(pid), SIGCONT);

    DbPg holder(pgConfig(connection));
    const PgTransaction holding(holder.session(), PgTransaction::Kind::Change);
    holder.session().command("SELECT pg_advisory_xact_lock(" CRV_PG_INSERT_LOCK ")");
    EXPECT_FALSE(CrtDb(other).insert(ByteView(certPool()[0])));
    EXPECT_THAT(other.lastFailure(), HasSubstr("statement timeout"));
}

TEST_F(PgTest, AServerThatAnswersNonsenseIsGivenUp) {
    const std::string ready("Z\0\0\0\5I", 6), welcome = std::string("R\0\0\0\10\0\0\0\0", 9) + ready;
    for (const std::string& answer : {ready, std::string("H\0\0\0\7\0\0\0", 8)}) {
        const FakeServer fake({welcome, answer});
        DbManager other;
        other.init(pgConfig("host=127.0.0.1 user=u sslmode=disable gssencmode=disable connect_timeout=2 port=" +
                            std::to_string(fake.port)));
        EXPECT_EQ(other.isDbCreated(), DbState::NoAccess);
        EXPECT_THAT(other.lastFailure(), HasSubstr("niezrozumiała odpowiedź"));
    }
}

TEST_F(PgTest, TheServerOfAnotherMachineMustShowACertificate) {
    // For libpq and us this address is that of another machine; the system takes it for its own.
    for (const auto& [target, demanded] : {std::pair{"host=0.0.0.0", true},
                                           {"host=0.0.0.0 sslmode=disable", false},
                                           {"host=0.0.0.0 sslmode=prefer", false},
                                           {"host=a,0.0.0.0 hostaddr=127.0.0.1,", true},
                                           {"host=a,localhost hostaddr=127.0.0.1,", false}}) {
        FakeServer plain({"N"});
        DbManager other;
        other.init(pgConfig(std::string(target) + " user=u connect_timeout=2 port=" + std::to_string(plain.port)));
        EXPECT_EQ(other.isDbCreated(), DbState::NoAccess);
        EXPECT_EQ(other.lastFailure().find("server does not support SSL") != std::string::npos, demanded)
            << target << other.lastFailure();
    }
}

TEST_F(PgTest, RolesDoWhatTheyMayAndPasswordsStaySecret) {
    const Bytes& der = certPool()[0];
    ASSERT_TRUE(CrtDb(manager).insert(ByteView(der)));
    sql("CREATE ROLE reader LOGIN PASSWORD 'Tajne hasło'; GRANT USAGE ON SCHEMA corvane TO reader; "
        "GRANT SELECT ON ALL TABLES IN SCHEMA corvane TO reader");
    server.demand("local all reader scram-sha-256\n");
    DbConfig config = pgConfig(connection);
    config.dbLogin = "reader";
    config.dbPass = "Tajne hasło";
    DbManager reader;
    reader.init(config);
    EXPECT_EQ(reader.isDbCreated(), DbState::Complete) << reader.lastFailure();
    EXPECT_EQ(reader.top(), DbStep::Found);
    CrtItemList found;
    EXPECT_TRUE(reader.findCertsByCrtHash(found, crtHash(der)));
    EXPECT_FALSE(CrtDb(reader).insert(ByteView(certPool()[1])));
    EXPECT_EQ(reader.lastCause(), StoreCause::NotOpened);
    config.dbPass = "Zgadywane";
    const auto failureWith = [&] {
        reader.init(config);
        EXPECT_FALSE(reader.isDbCreated() == DbState::Complete);
        return reader.lastFailure();
    };
    EXPECT_THAT(failureWith(), AllOf(HasSubstr("password authentication failed"), Not(HasSubstr("Zgadywane"))));
    for (const char* text :
         {"host=/tmp password=Zgadywane", "postgresql://u:Zgadywane@h/", "host=/tmp x=1 Zgadywane"}) {
        config.dbName = text;
        EXPECT_THAT(failureWith(), AllOf(HasSubstr("dbname"), Not(HasSubstr("Zgadywane"))));
    }
}

TEST(PgTls, TheServerMustShowACertificateOfItsAuthorityForItsName) {
    const PgServer server;
    shell("cd " + server.folder() +
          " && for n in ca stranger; do openssl req -x509 -newkey rsa:2048 -nodes -keyout $n.key -out $n.pem -subj "
          "/CN=$n -days 2; done; openssl req -newkey rsa:2048 -nodes -keyout data/server.key -out s.csr -subj /CN=db "
          "-addext subjectAltName=DNS:db.firma.example && openssl x509 -req -in s.csr -CA ca.pem -CAkey ca.key -days 2 "
          "-CAcreateserial -copy_extensions copy -out data/server.crt && chmod 600 data/server.key && "
          "chown --reference=data data/server.*");
    const int port = FakeServer({}).port;
    server.configure("ssl = on\nlisten_addresses = '127.0.0.1'\nport = " + std::to_string(port));
    const struct {
        const char *host, *authority, *failure;
    } rows[] = {{"db.firma.example", "ca.pem", ""},
                {"inny.firma.example", "ca.pem", "does not match"},
                {"db.firma.example", "stranger.pem", "certificate verify failed"},
                {"db.firma.example", "none.pem", "none.pem"}};
    for (const auto& row : rows) {
        // The system takes this address for its own; for libpq and us it is another machine's.
        const DbConfig config =
            pgConfig(std::string("host=") + row.host + " hostaddr=0.0.0.0 user=postgres port=" + std::to_string(port) +
                     " sslrootcert=" + server.folder() + "/" + row.authority);
        DbManager manager;
        manager.init(config);
        EXPECT_EQ(manager.isDbCreated(), *row.failure ? DbState::NoAccess : DbState::Missing);
        EXPECT_THAT(manager.lastFailure(), HasSubstr(row.failure));
        if (*row.failure) continue;
        DbPg database(config);
        const PgUse use(database.session());
        EXPECT_TRUE(database.session().query("SELECT ssl FROM pg_stat_ssl WHERE pid = pg_backend_pid()").flag(0, 0));
    }
}

TEST(PgPlugin, IsLoadedOnlyFromWhereOthersCannotWriteAndNothingIsLinkedWithIt) {
    const TempDir dir;
    const std::string file = dir.file("plugin.so");
    test::writeFile(file, "");
    const auto mode = [](const std::string& path, int bits) {
        std::filesystem::permissions(path, static_cast<std::filesystem::perms>(bits));
    };
    EXPECT_EQ(writableByOthers(file), "");
    mode(file, 0664);
    EXPECT_EQ(writableByOthers(file), file);
    mode(file, 0644);
    mode(dir.path().string(), 0777);
    EXPECT_EQ(writableByOthers(file), dir.path().string());
    EXPECT_THAT(shell("ldd " + std::filesystem::read_symlink("/proc/self/exe").string()), Not(HasSubstr("libpq")));
}

}  // namespace
