// The certificate database against libcrypto (parsing, keys) and SQLite (equal tables and indexes, synchronous=OFF) on
// the same certificates of about 1.2 KB. Sync is off on both sides. SQLite works without a journal, which makes it
// faster and loses the database when the process is killed; single insertions are also measured with its journal.
//
// Sets of 10,000 certificates by default; CRV_BENCH_CERTS=100000 for larger ones.
#include <benchmark/benchmark.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>
#include <openssl/sha.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>
#include <sqlite3.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <stdexcept>

#include "cert_set.h"
#include "db_sql/crt_db.h"
#include "db_sql/crt_keys.h"
#include "db_sql/no_oop.h"

using namespace crv;
using namespace crv::bench;
using namespace crv::test;

namespace {

const std::vector<CrtRecord>& records() {
    static const std::vector<CrtRecord> made = [] {
        std::vector<CrtRecord> list(certs().size());
        for (size_t i = 0; i < list.size(); ++i) {
            if (!makeCrtRecord(certs()[i], list[i])) throw std::runtime_error("certificate");
        }
        return list;
    }();
    return made;
}

class TempDir {
  public:
    TempDir() {
        std::string name = (std::filesystem::temp_directory_path() / "crvbenchXXXXXX").string();
        if (!mkdtemp(name.data())) throw std::runtime_error("mkdtemp");
        path_ = name;
    }
    ~TempDir() { std::filesystem::remove_all(path_); }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    [[nodiscard]] const std::filesystem::path& path() const { return path_; }
    [[nodiscard]] std::string file(const char* name) const { return (path_ / name).string(); }

  private:
    std::filesystem::path path_;
};

double megabytes(const std::string& folder) {
    double sum = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) sum += static_cast<double>(entry.file_size());
    return sum / 1e6;
}

// --- ours ---

struct Ours {
    TempDir dir;
    DbManager manager;
    CrtDb db{manager};

    Ours() {
        DbConfig config;
        config.db = dir.file("db");
        manager.init(config);
        manager.setSync(false);
        if (!manager.createDb()) throw std::runtime_error(manager.lastFailure());
    }
    void import() {
        size_t at = 0;
        ImportProgress done;
        const auto next = [&](ByteView& der) { return at < certs().size() && (der = certs()[at++], true); };
        if (!db.insertMany(next, nullptr, nullptr, done) || done.stored != certs().size()) {
            throw std::runtime_error(manager.lastFailure());
        }
    }
    [[nodiscard]] double size() const { return megabytes(dir.file("db")); }
};

// --- the peer ---

struct Statement {
    sqlite3_stmt* handle = nullptr;
    Statement(sqlite3* db, const char* sql) {
        if (sqlite3_prepare_v2(db, sql, -1, &handle, nullptr) != SQLITE_OK)
            throw std::runtime_error(sqlite3_errmsg(db));
    }
    ~Statement() { sqlite3_finalize(handle); }
    Statement& text(int at, const std::string& value) {
        sqlite3_bind_text(handle, at, value.data(), static_cast<int>(value.size()), SQLITE_STATIC);
        return *this;
    }
    Statement& blob(int at, ByteView value) {
        sqlite3_bind_blob(handle, at, value.data(), static_cast<int>(value.size()), SQLITE_STATIC);
        return *this;
    }
    Statement& number(int at, int64_t value) {
        sqlite3_bind_int64(handle, at, value);
        return *this;
    }
    bool step() {
        const int result = sqlite3_step(handle);
        if (result != SQLITE_ROW && result != SQLITE_DONE) throw std::runtime_error("sqlite");
        return result == SQLITE_ROW;
    }
    void run() {
        while (step()) {
        }
        sqlite3_reset(handle);
    }
};

struct PeerDb {
    sqlite3* db = nullptr;
    explicit PeerDb(const std::string& path, bool journal = false) {
        if (sqlite3_open(path.c_str(), &db) != SQLITE_OK) throw std::runtime_error("sqlite");
        exec(journal ? "PRAGMA synchronous=OFF" : "PRAGMA synchronous=OFF; PRAGMA journal_mode=OFF");
    }
    ~PeerDb() { sqlite3_close(db); }
    void exec(const char* sql) {
        if (sqlite3_exec(db, sql, nullptr, nullptr, nullptr) != SQLITE_OK) throw std::runtime_error(sqlite3_errmsg(db));
    }
};

struct Peer {
    TempDir dir;
    std::string path = dir.file("peer.db");
    Peer() {
        PeerDb(path).exec(
            "CREATE TABLE crt(id INTEGER PRIMARY KEY, ser TEXT, email TEXT, sbj TEXT, der BLOB);"
            "CREATE INDEX crt1 ON crt(ser); CREATE INDEX crt2 ON crt(email); CREATE INDEX crt3 ON crt(sbj);"
            "CREATE TABLE dn(id INTEGER, fld TEXT); CREATE INDEX dn1 ON dn(id); CREATE INDEX dn2 ON dn(fld);"
            "CREATE TABLE ca(id INTEGER); CREATE INDEX ca1 ON ca(id);"
            "CREATE TABLE add_idx(id INTEGER, key_id BLOB, hash BLOB); CREATE INDEX add1 ON add_idx(id);"
            "CREATE INDEX add2 ON add_idx(key_id); CREATE INDEX add3 ON add_idx(hash);");
    }
};

/// What the peer stores, from libcrypto.
CrtRecord parseByPeer(const Bytes& der) {
    CrtRecord record;
    const unsigned char* from = der.data();
    X509* cert = d2i_X509(nullptr, &from, static_cast<long>(der.size()));
    unsigned char* encoded = nullptr;
    int size = i2d_ASN1_INTEGER(X509_get0_serialNumber(cert), &encoded);
    SHA1(encoded, static_cast<size_t>(size), record.serNumHash.data());
    OPENSSL_free(encoded);
    const X509_NAME* subject = X509_get_subject_name(cert);
    encoded = nullptr;
    size = i2d_X509_NAME(subject, &encoded);
    SHA1(encoded, static_cast<size_t>(size), record.sbjDnHash.data());
    OPENSSL_free(encoded);
    SHA1(der.data(), der.size(), record.crtHash.data());
    const ASN1_OCTET_STRING* keyId = X509_get0_subject_key_id(cert);
    record.keyId.assign(ASN1_STRING_get0_data(keyId), ASN1_STRING_get0_data(keyId) + ASN1_STRING_length(keyId));
    STACK_OF(OPENSSL_STRING)* emails = X509_get1_email(cert);
    if (sk_OPENSSL_STRING_num(emails) > 0) record.email = sk_OPENSSL_STRING_value(emails, 0);
    X509_email_free(emails);
    for (int i = 0; i < X509_NAME_entry_count(subject); ++i) {
        unsigned char* text = nullptr;
        const int length = ASN1_STRING_to_UTF8(&text, X509_NAME_ENTRY_get_data(X509_NAME_get_entry(subject, i)));
        record.dnFlds.push_back({static_cast<uint8_t>('a' + i), std::string(text, text + length)});
        OPENSSL_free(text);
    }
    record.dnFlds.push_back({kDnEmail, record.email});
    record.isCa = X509_check_ca(cert) > 0;
    record.der = der;
    X509_free(cert);
    return record;
}

struct PeerInsert {
    PeerDb& db;
    Statement same{db.db, "SELECT der FROM crt WHERE ser=?"};
    Statement crt{db.db, "INSERT INTO crt(ser,email,sbj,der) VALUES(?,?,?,?)"};
    Statement dn{db.db, "INSERT INTO dn VALUES(?,?)"};
    Statement ca{db.db, "INSERT INTO ca VALUES(?)"};
    Statement add{db.db, "INSERT INTO add_idx VALUES(?,?,?)"};

    void run(const CrtRecord& record) {
        const std::string ser = codeDigest(record.serNumHash), sbj = codeDigest(record.sbjDnHash);
        bool found = false;
        same.text(1, ser);
        while (same.step()) {
            found = found || asText(record.der) ==
                                 std::string_view(static_cast<const char*>(sqlite3_column_blob(same.handle, 0)),
                                                  static_cast<size_t>(sqlite3_column_bytes(same.handle, 0)));
        }
        sqlite3_reset(same.handle);
        if (found) return;
        crt.text(1, ser).text(2, record.email).text(3, sbj).blob(4, record.der).run();
        const int64_t id = sqlite3_last_insert_rowid(db.db);
        for (const DnFld& field : record.dnFlds) {
            const std::string key = static_cast<char>(field.type) + field.value;
            dn.number(1, id).text(2, key).run();
        }
        if (record.isCa) ca.number(1, id).run();
        add.number(1, id).blob(2, record.keyId).blob(3, record.crtHash).run();
    }
};

void fillPeer(Peer& peer) {
    PeerDb db(peer.path);
    PeerInsert insert{db};
    db.exec("BEGIN");
    for (const Bytes& der : certs()) insert.run(parseByPeer(der));
    db.exec("COMMIT");
}

// --- the measurements ---

void count(benchmark::State& state, size_t items) {
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(items));
}

void parseOurs(benchmark::State& state) {
    for (auto _ : state) {
        for (const Bytes& der : certs()) {
            CrtRecord record;
            benchmark::DoNotOptimize(makeCrtRecord(der, record));
        }
    }
    count(state, certs().size());
}

void parsePeer(benchmark::State& state) {
    for (auto _ : state) {
        for (const Bytes& der : certs()) benchmark::DoNotOptimize(parseByPeer(der));
    }
    count(state, certs().size());
}

void importOurs(benchmark::State& state) {
    static_cast<void>(certs());
    for (auto _ : state) {
        state.PauseTiming();
        auto ours = std::make_unique<Ours>();
        state.ResumeTiming();
        ours->import();
        state.PauseTiming();
        state.counters["MB"] = ours->size();
        ours.reset();
        state.ResumeTiming();
    }
    count(state, certs().size());
}

void importPeer(benchmark::State& state) {
    for (auto _ : state) {
        state.PauseTiming();
        auto peer = std::make_unique<Peer>();
        state.ResumeTiming();
        fillPeer(*peer);
        state.PauseTiming();
        state.counters["MB"] = megabytes(peer->dir.path().string());
        peer.reset();
        state.ResumeTiming();
    }
    count(state, certs().size());
}

void insertOneOurs(benchmark::State& state) {
    static_cast<void>(records());
    for (auto _ : state) {
        state.PauseTiming();
        Ours ours;
        state.ResumeTiming();
        for (const CrtRecord& record : records()) {
            if (!ours.manager.insertCert(record)) throw std::runtime_error(ours.manager.lastFailure());
        }
    }
    count(state, records().size());
}

void insertOnePeer(benchmark::State& state) {
    static_cast<void>(records());
    for (auto _ : state) {
        state.PauseTiming();
        Peer peer;
        state.ResumeTiming();
        PeerDb db(peer.path, state.range(0) != 0);
        PeerInsert insert{db};
        for (const CrtRecord& record : records()) {
            db.exec("BEGIN");
            insert.run(record);
            db.exec("COMMIT");
        }
    }
    count(state, records().size());
}

Ours& filledOurs() {
    static const std::unique_ptr<Ours> ours = [] {
        auto made = std::make_unique<Ours>();
        made->import();
        return made;
    }();
    return *ours;
}

Peer& filledPeer() {
    static const std::unique_ptr<Peer> peer = [] {
        auto made = std::make_unique<Peer>();
        fillPeer(*made);
        return made;
    }();
    return *peer;
}

constexpr size_t kLookUps = 10000;

const CrtRecord& nth(size_t i) {
    return records()[i * 7919 % records().size()];
}

void subjectOurs(benchmark::State& state) {
    Ours& ours = filledOurs();
    static_cast<void>(records());
    for (auto _ : state) {
        for (size_t i = 0; i < kLookUps; ++i) {
            CrtItemList list;
            if (!ours.manager.findCertsBySbjDnHash(list, nth(i).sbjDnHash) || list.size() != 1) {
                throw std::runtime_error("look-up");
            }
        }
    }
    count(state, kLookUps);
}

void subjectPeer(benchmark::State& state) {
    Peer& peer = filledPeer();
    std::vector<std::string> keys;
    for (const Bytes& der : certs()) keys.push_back(codeDigest(parseByPeer(der).sbjDnHash));
    for (auto _ : state) {
        for (size_t i = 0; i < kLookUps; ++i) {
            PeerDb db(peer.path);
            Statement find(db.db, "SELECT id, der FROM crt WHERE sbj=?");
            if (!find.text(1, keys[i * 7919 % keys.size()]).step()) throw std::runtime_error("look-up");
            benchmark::DoNotOptimize(toBytes({static_cast<const uint8_t*>(sqlite3_column_blob(find.handle, 1)),
                                              static_cast<size_t>(sqlite3_column_bytes(find.handle, 1))}));
        }
    }
    count(state, kLookUps);
}

void fieldOurs(benchmark::State& state) {
    Ours& ours = filledOurs();
    static_cast<void>(records());
    for (auto _ : state) {
        for (size_t i = 0; i < kLookUps; ++i) {
            CrtItemList list;
            if (!ours.manager.findCertsBySbjDnFld(list, kDnEmail, nth(i).email) || list.size() != 1) {
                throw std::runtime_error("look-up");
            }
        }
    }
    count(state, kLookUps);
}

void fieldPeer(benchmark::State& state) {
    Peer& peer = filledPeer();
    static_cast<void>(records());
    for (auto _ : state) {
        for (size_t i = 0; i < kLookUps; ++i) {
            PeerDb db(peer.path);
            Statement find(db.db, "SELECT crt.id, der FROM dn JOIN crt ON crt.id=dn.id WHERE fld=?");
            const std::string key = static_cast<char>(kDnEmail) + nth(i).email;
            if (!find.text(1, key).step()) throw std::runtime_error("look-up");
            benchmark::DoNotOptimize(toBytes({static_cast<const uint8_t*>(sqlite3_column_blob(find.handle, 1)),
                                              static_cast<size_t>(sqlite3_column_bytes(find.handle, 1))}));
        }
    }
    count(state, kLookUps);
}

void removeTenthOurs(benchmark::State& state) {
    for (auto _ : state) {
        state.PauseTiming();
        auto ours = std::make_unique<Ours>();
        ours->import();
        size_t i = 0;
        CrtStore::Removed result;
        state.ResumeTiming();
        if (!ours->manager.removeCerts([&](ByteView) { return i++ % 10 == 0; }, result)) {
            throw std::runtime_error(ours->manager.lastFailure());
        }
        state.PauseTiming();
        state.counters["MB"] = ours->size();
        ours.reset();
        state.ResumeTiming();
    }
    count(state, certs().size());
}

void removeTenthPeer(benchmark::State& state) {
    for (auto _ : state) {
        state.PauseTiming();
        auto peer = std::make_unique<Peer>();
        fillPeer(*peer);
        state.ResumeTiming();
        {
            PeerDb db(peer->path, state.range(0) != 0);
            db.exec(
                "BEGIN; DELETE FROM crt WHERE id%10=1; DELETE FROM dn WHERE id%10=1; DELETE FROM ca WHERE id%10=1;"
                "DELETE FROM add_idx WHERE id%10=1; COMMIT; VACUUM");
        }
        state.PauseTiming();
        state.counters["MB"] = megabytes(peer->dir.path().string());
        peer.reset();
        state.ResumeTiming();
    }
    count(state, certs().size());
}

void firstPageOurs(benchmark::State& state) {
    Ours& ours = filledOurs();
    for (auto _ : state) {
        CrtItemList page;
        ours.manager.getConnection();
        if (!ours.manager.readForward(0, 20, page) || page.size() != 20) throw std::runtime_error("page");
    }
}

void lastPageOurs(benchmark::State& state) {
    Ours& ours = filledOurs();
    for (auto _ : state) {
        CrtItemList page;
        ours.manager.getConnection();
        if (!ours.manager.readBackward(INT64_MAX, 20, page) || page.size() != 20) throw std::runtime_error("page");
    }
}

/// What changes a store is made once a repetition, in one of its own; the median of three counts.
void thrice(benchmark::internal::Benchmark* one) {
    one->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(3);
}

void thriceWithAndWithoutJournal(benchmark::internal::Benchmark* one) {
    thrice(one->ArgName("journal")->Arg(0)->Arg(1));
}

BENCHMARK(parseOurs)->Unit(benchmark::kMillisecond);
BENCHMARK(parsePeer)->Unit(benchmark::kMillisecond);
BENCHMARK(importOurs)->Apply(thrice);
BENCHMARK(importPeer)->Apply(thrice);
BENCHMARK(insertOneOurs)->Apply(thrice);
BENCHMARK(insertOnePeer)->Apply(thriceWithAndWithoutJournal);
BENCHMARK(subjectOurs)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(subjectPeer)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(fieldOurs)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(fieldPeer)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(removeTenthOurs)->Apply(thrice);
BENCHMARK(removeTenthPeer)->Apply(thriceWithAndWithoutJournal);
BENCHMARK(firstPageOurs)->Unit(benchmark::kMillisecond);
BENCHMARK(lastPageOurs)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
