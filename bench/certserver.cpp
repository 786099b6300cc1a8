// The certificate database on a PostgreSQL server against psql's \copy of the same rows into the same tables, against
// one INSERT a certificate, and against bare prepared queries of libpq. CRV_BENCH_PG is the connection string of an
// empty database; its schema "corvane" is deleted. 10,000 certificates unless CRV_BENCH_CERTS says otherwise.
#include <benchmark/benchmark.h>
#include <libpq-fe.h>

#include <cstdlib>
#include <filesystem>
#include <random>
#include <stdexcept>

#include "cert_set.h"
#include "crypto/kc_hash.h"
#include "db_sql/crt_db.h"
#include "db_sql/crt_keys.h"
#include "db_sql/db_pg_values.h"

using namespace crv;
using namespace crv::bench;

namespace {

constexpr size_t kLookUps = 20000;
/// Of the certificates so many are inserted one by one.
constexpr size_t kSingles = 2000;

const std::string& connection() {
    static const std::string text = [] {
        const char* given = std::getenv("CRV_BENCH_PG");
        if (!given) throw std::runtime_error("CRV_BENCH_PG is not set");
        return std::string(given);
    }();
    return text;
}

void psql(const std::string& commands) {
    if (std::system(("psql -X -q -v ON_ERROR_STOP=1 -d '" + connection() + "' " + commands + " >/dev/null").c_str()) !=
        0)
        throw std::runtime_error("psql " + commands);
}

void demand(const DbManager& manager, bool done) {
    if (!done) throw std::runtime_error(manager.lastFailure());
}

/// A manager on tables made anew.
struct Fresh {
    DbManager manager;
    Fresh() {
        psql("-c 'DROP SCHEMA IF EXISTS corvane CASCADE' -c CHECKPOINT");
        attach(manager);
        demand(manager, manager.createDb());
    }
    static void attach(DbManager& manager) {
        DbConfig config;
        config.setType(std::string(kDbKindPg));
        config.dbName = connection();
        manager.init(config);
    }
};

void importAll(DbManager& manager) {
    size_t at = 0;
    ImportProgress done;
    demand(manager,
           CrtDb(manager).insertMany([&](ByteView& der) { return at < certs().size() && (der = certs()[at++], true); },
                                     nullptr, nullptr, done));
    if (done.stored != certs().size()) throw std::runtime_error("not all were stored");
}

void count(benchmark::State& state, size_t items) {
    state.counters["each"] = benchmark::Counter(
        static_cast<double>(items), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void importOurs(benchmark::State& state) {
    static_cast<void>(certs());
    for (auto _ : state) {
        state.PauseTiming();
        Fresh fresh;
        state.ResumeTiming();
        importAll(fresh.manager);
    }
    count(state, certs().size());
}

/// What the import left, written out and copied back: the rows are the same.
void importCopy(benchmark::State& state) {
    const std::string folder = std::filesystem::temp_directory_path() / "crvbench-pg-";
    psql("-c \"\\copy corvane.crt TO '" + folder + "crt' (FORMAT binary)\" -c \"\\copy corvane.dn_field TO '" + folder +
         "dn' (FORMAT binary)\"");
    for (auto _ : state) {
        state.PauseTiming();
        Fresh fresh;
        state.ResumeTiming();
        psql("-1 -c \"\\copy corvane.crt FROM '" + folder +
             "crt' (FORMAT binary)\" -c \"\\copy corvane.dn_field FROM '" + folder + "dn' (FORMAT binary)\"");
    }
    for (const char* name : {"crt", "dn"}) std::filesystem::remove(folder + name);
    count(state, certs().size());
}

void insertOneByOne(benchmark::State& state) {
    for (auto _ : state) {
        state.PauseTiming();
        Fresh fresh;
        state.ResumeTiming();
        for (size_t i = 0; i < std::min(kSingles, certs().size()); ++i)
            demand(fresh.manager, CrtDb(fresh.manager).insert(ByteView(certs()[i])));
    }
    count(state, std::min(kSingles, certs().size()));
}

using Connection = std::unique_ptr<PGconn, void (*)(PGconn*)>;

/// Executes a prepared statement; the first value of its answer.
int64_t execute(const Connection& conn, const char* name, const PgValues& values) {
    const PgValues::Pointers given = values.pointers();
    PGresult* result = PQexecPrepared(conn.get(), name, static_cast<int>(given.values.size()), given.values.data(),
                                      given.lengths.data(), given.formats.data(), 0);
    if (PQresultStatus(result) != PGRES_COMMAND_OK && PQresultStatus(result) != PGRES_TUPLES_OK)
        throw std::runtime_error(PQerrorMessage(conn.get()));
    const int64_t first = PQntuples(result) > 0 ? std::atoll(PQgetvalue(result, 0, 0)) : 0;
    PQclear(result);
    return first;
}

/// As a program without this library does it: a transaction a certificate, an INSERT each row, all prepared.
void insertBare(benchmark::State& state) {
    const size_t singles = std::min(kSingles, certs().size());
    for (auto _ : state) {
        state.PauseTiming();
        const Fresh fresh;
        const Connection conn(PQconnectdb(connection().c_str()), PQfinish);
        for (const auto& [name, sql] :
             {std::pair{"begin", "BEGIN"},
              {"commit", "COMMIT"},
              {"field", "INSERT INTO corvane.dn_field VALUES ($1, $2)"},
              {"crt",
               "INSERT INTO corvane.crt (sha256, ser_num, sbj_dn, key_id, crt_hash, email, is_ca, not_after, der) "
               "VALUES ($1, $2, $3, $4, $5, $6, $7, $8, $9) ON CONFLICT (sha256) DO NOTHING RETURNING id"}})
            PQclear(PQprepare(conn.get(), name, sql, 0, nullptr));
        state.ResumeTiming();
        CrtRecord record;
        for (size_t i = 0; i < singles; ++i) {
            if (!makeCrtRecord(certs()[i], record)) throw std::runtime_error("no certificate");
            PgValues row;
            row.octets(hashOf(KcHashAlgo::Sha256, record.der)).octets(record.serNumHash).octets(record.sbjDnHash);
            row.octets(record.keyId).octets(record.crtHash).octets(asBytes(record.email)).flag(record.isCa);
            execute(conn, "begin", {});
            const int64_t id = execute(conn, "crt", row.number(*record.notAfter).octets(record.der));
            for (const DnFld& field : record.dnFlds) {
                Bytes key{field.type};
                key.insert(key.end(), field.value.begin(), field.value.end());
                execute(conn, "field", PgValues().octets(key).number(id));
            }
            execute(conn, "commit", {});
        }
    }
    count(state, singles);
}

/// The subjects that are looked up, in no order.
const std::vector<DbHash>& subjects() {
    static const std::vector<DbHash> list = [] {
        Fresh fresh;
        importAll(fresh.manager);
        psql("-c 'VACUUM ANALYZE corvane.crt'");
        std::mt19937_64 random(5);
        std::vector<DbHash> made;
        CrtRecord record;
        for (size_t i = 0; i < kLookUps; ++i) {
            if (!makeCrtRecord(certs()[random() % certs().size()], record)) throw std::runtime_error("no certificate");
            made.push_back(record.sbjDnHash);
        }
        return made;
    }();
    return list;
}

void subjectOurs(benchmark::State& state) {
    static_cast<void>(subjects());
    DbManager manager;
    Fresh::attach(manager);
    for (auto _ : state) {
        for (const DbHash& hash : subjects()) {
            CrtItemList found;
            demand(manager, manager.findCertsBySbjDnHash(found, hash));
            if (found.size() != 1) throw std::runtime_error("not found");
        }
    }
    count(state, kLookUps);
}

void subjectBare(benchmark::State& state) {
    static_cast<void>(subjects());
    const Connection conn(PQconnectdb(connection().c_str()), PQfinish);
    PQclear(PQprepare(conn.get(), "q", "SELECT id, der FROM corvane.crt WHERE sbj_dn = $1::bytea ORDER BY id DESC", 0,
                      nullptr));
    for (auto _ : state) {
        for (const DbHash& hash : subjects()) {
            const char* value = reinterpret_cast<const char*>(hash.data());
            const int length = static_cast<int>(hash.size()), format = 1;
            PGresult* result = PQexecPrepared(conn.get(), "q", 1, &value, &length, &format, 1);
            if (PQntuples(result) != 1) throw std::runtime_error("not found");
            benchmark::DoNotOptimize(toBytes({reinterpret_cast<const uint8_t*>(PQgetvalue(result, 0, 1)),
                                              static_cast<size_t>(PQgetlength(result, 0, 1))}));
            PQclear(result);
        }
    }
    count(state, kLookUps);
}

const int kRounds = setSize() > 200000 ? 1 : 3;

}  // namespace

BENCHMARK(importOurs)->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(kRounds)->UseRealTime();
BENCHMARK(importCopy)->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(kRounds)->UseRealTime();
BENCHMARK(insertOneByOne)->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(3)->UseRealTime();
BENCHMARK(insertBare)->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(3)->UseRealTime();
BENCHMARK(subjectOurs)->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(5)->UseRealTime();
BENCHMARK(subjectBare)->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(5)->UseRealTime();

BENCHMARK_MAIN();
