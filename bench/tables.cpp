// The certificate table against SQLite and LMDB with the same indexes: storing, opening for one look-up, reading all.
#include <benchmark/benchmark.h>
#include <lmdb.h>
#include <sqlite3.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "db/data_scan.h"
#include "db/database.h"
#include "db_sql/db_layout.h"

namespace {

namespace fs = std::filesystem;

constexpr size_t kBodySize = 1200;

void require(bool condition, const char* what) {
    if (!condition) throw std::runtime_error(what);
}

struct Sample {
    std::string serial, email, subject;
};

/// Record i of a table of n: scattered serial numbers, three certificates a subject.
Sample sampleOf(int64_t i) {
    const auto scattered = [](uint64_t value) {
        std::string key;
        for (int part = 0; part < 3; ++part) {
            value = (value + 0x9E3779B97F4A7C15U) * 0xBF58476D1CE4E5B9U;
            value ^= value >> 29;
            for (int k = 0; k < 16; ++k) key += static_cast<char>('0' + (value >> (4 * k) & 15));
        }
        return key.substr(0, 40);
    };
    return {scattered(static_cast<uint64_t>(i)), "user" + std::to_string(i) + "@example.com",
            scattered(static_cast<uint64_t>(i / 3) + 1000000000U)};
}

class Store {
  public:
    virtual ~Store() = default;
    /// As one change, or (`each`) every record as a change of its own, which others see when it is through.
    virtual void build(const std::string& folder, int64_t count, bool each) = 0;
    /// Opens, finds a certificate by its serial number, reads it and closes.
    virtual size_t lookUp(const std::string& folder, const std::string& serial) = 0;
    /// Reads every record; answers the octets of the bodies.
    virtual size_t scan(const std::string& folder) = 0;
};

const std::string& body() {
    static const std::string octets(kBodySize, 'c');
    return octets;
}

class Corvane : public Store {
  public:
    void build(const std::string& folder, int64_t count, bool each) override {
        crv::DbLock lock(folder + "/db.lck");
        lock.setSync(false);
        crv::DataBase table;
        const std::string name = folder + "/certific";
        require(table.create(name, crv::crtTb.numIndexes, crv::crtTb.descs.data()) == crv::kDbOk, "create");
        auto guard = std::make_unique<crv::DbGuard>(lock, crv::kExclusiveLock);
        table.bindLock(&lock);
        require(table.open(name) == crv::kDbOk, "open");
        if (!each) table.beginBatch();
        for (int64_t i = 0; i < count; ++i) {
            if (each) {
                guard.reset();
                guard = std::make_unique<crv::DbGuard>(lock, crv::kExclusiveLock);
            }
            const Sample sample = sampleOf(i);
            const std::string_view keys[] = {sample.serial, sample.email, sample.subject};
            int64_t recNo = 0;
            require(table.insert(keys, crv::asBytes(body()), recNo) == crv::kDbOk, "insert");
        }
        require(each || table.endBatch() == crv::kDbOk, "write");
        table.close();
    }

    size_t lookUp(const std::string& folder, const std::string& serial) override {
        if (!lock_) lock_ = std::make_unique<crv::DbLock>(folder + "/db.lck");
        const crv::DbGuard guard(*lock_, crv::kSharedLock);
        require(table_.open(folder + "/certific") == crv::kDbOk, "open");
        require(table_.seek(serial) == crv::kDbOk && table_.data(record_) == crv::kDbOk, "seek");
        table_.close();
        return record_.body.size();
    }

    size_t scan(const std::string& folder) override {
        crv::DataFile data;
        require(data.open(folder + "/certific.dta") == crv::kDbOk, "open");
        crv::DataScan scan(data);
        size_t octets = 0;
        while (scan.next() == crv::DataScan::Result::Record) octets += scan.body().size() + scan.body()[0] - 'c';
        return octets;
    }

  private:
    std::unique_ptr<crv::DbLock> lock_;
    crv::DataBase table_;
    crv::TableRecord record_;
};

class Sqlite : public Store {
    using Db = std::unique_ptr<sqlite3, int (*)(sqlite3*)>;
    using Statement = std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt*)>;

    static Db open(const std::string& folder) {
        sqlite3* db = nullptr;
        require(sqlite3_open((folder + "/certific.sqlite").c_str(), &db) == SQLITE_OK, "sqlite open");
        run(db, "PRAGMA synchronous=OFF; PRAGMA journal_mode=OFF");
        return {db, sqlite3_close};
    }
    static void run(sqlite3* db, const char* sql) {
        require(sqlite3_exec(db, sql, nullptr, nullptr, nullptr) == SQLITE_OK, sql);
    }
    static Statement prepare(sqlite3* db, const char* sql) {
        sqlite3_stmt* statement = nullptr;
        require(sqlite3_prepare_v2(db, sql, -1, &statement, nullptr) == SQLITE_OK, sql);
        return {statement, sqlite3_finalize};
    }
    static void bind(sqlite3_stmt* statement, int at, const std::string& text) {
        sqlite3_bind_text(statement, at, text.data(), static_cast<int>(text.size()), SQLITE_STATIC);
    }

  public:
    void build(const std::string& folder, int64_t count, bool each) override {
        const Db db = open(folder);
        run(db.get(),
            "CREATE TABLE crt(id INTEGER PRIMARY KEY, serial TEXT, email TEXT, subject TEXT, body BLOB);"
            "CREATE INDEX s ON crt(serial); CREATE INDEX e ON crt(email); CREATE INDEX d ON crt(subject)");
        if (!each) run(db.get(), "BEGIN");
        const Statement insert = prepare(db.get(), "INSERT INTO crt(serial, email, subject, body) VALUES(?,?,?,?)");
        for (int64_t i = 0; i < count; ++i) {
            const Sample sample = sampleOf(i);
            bind(insert.get(), 1, sample.serial), bind(insert.get(), 2, sample.email),
                bind(insert.get(), 3, sample.subject);
            sqlite3_bind_blob(insert.get(), 4, body().data(), static_cast<int>(kBodySize), SQLITE_STATIC);
            require(sqlite3_step(insert.get()) == SQLITE_DONE && sqlite3_reset(insert.get()) == SQLITE_OK,
                    "sqlite insert");
        }
        if (!each) run(db.get(), "COMMIT");
    }

    size_t lookUp(const std::string& folder, const std::string& serial) override {
        const Db db = open(folder);
        const Statement find = prepare(db.get(), "SELECT body FROM crt WHERE serial=?");
        bind(find.get(), 1, serial);
        require(sqlite3_step(find.get()) == SQLITE_ROW, "sqlite find");
        const auto* from = static_cast<const char*>(sqlite3_column_blob(find.get(), 0));
        return std::string(from, static_cast<size_t>(sqlite3_column_bytes(find.get(), 0))).size();
    }

    size_t scan(const std::string& folder) override {
        const Db db = open(folder);
        const Statement all = prepare(db.get(), "SELECT body FROM crt");
        size_t octets = 0;
        while (sqlite3_step(all.get()) == SQLITE_ROW) {
            octets += static_cast<size_t>(*static_cast<const char*>(sqlite3_column_blob(all.get(), 0)) - 'c');
            octets += static_cast<size_t>(sqlite3_column_bytes(all.get(), 0));
        }
        return octets;
    }
};

class Lmdb : public Store {
    struct Env {
        MDB_env* env = nullptr;
        MDB_txn* txn = nullptr;
        MDB_dbi body = 0;
        MDB_dbi index[3]{};
        bool commit;

        Env(const std::string& folder, bool write) : commit(write) {
            require(mdb_env_create(&env) == 0 && mdb_env_set_maxdbs(env, 4) == 0, "lmdb");
            require(mdb_env_set_mapsize(env, size_t{4} << 30) == 0, "lmdb size");
            require(mdb_env_open(env, (folder + "/certific.mdb").c_str(),
                                 MDB_NOSUBDIR | MDB_NOSYNC | (write ? 0 : MDB_RDONLY), 0644) == 0,
                    "lmdb open");
            require(mdb_txn_begin(env, nullptr, write ? 0 : MDB_RDONLY, &txn) == 0, "lmdb begin");
            const unsigned make = write ? MDB_CREATE : 0;
            require(mdb_dbi_open(txn, "body", MDB_INTEGERKEY | make, &body) == 0, "lmdb body");
            constexpr const char* kNames[] = {"serial", "email", "subject"};
            for (int i = 0; i < 3; ++i)
                require(mdb_dbi_open(txn, kNames[i], MDB_DUPSORT | make, &index[i]) == 0, "lmdb index");
        }
        ~Env() {
            if (commit) {
                mdb_txn_commit(txn);
            } else {
                mdb_txn_abort(txn);
            }
            mdb_env_close(env);
        }
        void next() { require(mdb_txn_commit(txn) == 0 && mdb_txn_begin(env, nullptr, 0, &txn) == 0, "lmdb next"); }
        Env(const Env&) = delete;
        Env& operator=(const Env&) = delete;
    };
    static MDB_val val(const std::string& text) { return {text.size(), const_cast<char*>(text.data())}; }

  public:
    void build(const std::string& folder, int64_t count, bool each) override {
        Env env(folder, true);
        for (int64_t i = 0; i < count; ++i) {
            if (each) env.next();
            const Sample sample = sampleOf(i);
            MDB_val id{sizeof i, &i}, octets = val(body());
            require(mdb_put(env.txn, env.body, &id, &octets, MDB_APPEND) == 0, "lmdb put");
            const std::string* keys[] = {&sample.serial, &sample.email, &sample.subject};
            for (int k = 0; k < 3; ++k) {
                MDB_val key = val(*keys[k]);
                require(mdb_put(env.txn, env.index[k], &key, &id, 0) == 0, "lmdb put index");
            }
        }
    }

    size_t lookUp(const std::string& folder, const std::string& serial) override {
        const Env env(folder, false);
        MDB_val key = val(serial), id{}, octets{};
        require(mdb_get(env.txn, env.index[0], &key, &id) == 0 && mdb_get(env.txn, env.body, &id, &octets) == 0,
                "lmdb get");
        return std::string(static_cast<const char*>(octets.mv_data), octets.mv_size).size();
    }

    size_t scan(const std::string& folder) override {
        const Env env(folder, false);
        MDB_cursor* cursor = nullptr;
        require(mdb_cursor_open(env.txn, env.body, &cursor) == 0, "lmdb cursor");
        MDB_val id{}, octets{};
        size_t all = 0;
        while (mdb_cursor_get(cursor, &id, &octets, MDB_NEXT) == 0) {
            all += octets.mv_size + static_cast<size_t>(*static_cast<const char*>(octets.mv_data) - 'c');
        }
        mdb_cursor_close(cursor);
        return all;
    }
};

/// Databases of each size, built once for the reading cases and deleted at the end.
class Built {
  public:
    ~Built() { fs::remove_all(root_); }
    std::string folder(const std::string& engine, Store& store, int64_t count) {
        std::string& path = folders_[engine + std::to_string(count)];
        if (path.empty()) {
            path = fresh();
            store.build(path, count, false);
        }
        return path;
    }
    std::string fresh() {
        if (root_.empty()) {
            std::string pattern = (fs::temp_directory_path() / "crvbench.XXXXXX").string();
            require(mkdtemp(pattern.data()), "mkdtemp");
            root_ = pattern;
        }
        const std::string path = root_ + "/" + std::to_string(next_++);
        fs::create_directory(path);
        return path;
    }

  private:
    std::string root_;
    std::map<std::string, std::string> folders_;
    int next_ = 0;
};

Built& built() {
    static Built instance;
    return instance;
}

using Maker = std::function<std::unique_ptr<Store>()>;

void insertAll(benchmark::State& state, const Maker& make, bool each) {
    for (auto _ : state) {
        state.PauseTiming();
        const std::string folder = built().fresh();
        const auto store = make();
        state.ResumeTiming();
        store->build(folder, state.range(0), each);
        state.PauseTiming();
        fs::remove_all(folder);
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void lookUp(benchmark::State& state, const Maker& make, const std::string& engine) {
    const auto store = make();
    const std::string folder = built().folder(engine, *store, state.range(0));
    int64_t i = 0;
    for (auto _ : state) {
        require(store->lookUp(folder, sampleOf(i).serial) == kBodySize, "wrong record");
        i = (i + 7919) % state.range(0);
    }
    state.SetItemsProcessed(state.iterations());
}

void scan(benchmark::State& state, const Maker& make, const std::string& engine) {
    const auto store = make();
    const std::string folder = built().folder(engine, *store, state.range(0));
    for (auto _ : state)
        require(store->scan(folder) == kBodySize * static_cast<size_t>(state.range(0)), "records missing");
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::pair<std::string, Maker>> engines{{"corvane", [] { return std::make_unique<Corvane>(); }},
                                                             {"sqlite", [] { return std::make_unique<Sqlite>(); }},
                                                             {"lmdb", [] { return std::make_unique<Lmdb>(); }}};
    const char* large = std::getenv("CRV_BENCH_LARGE");  // also a million records
    std::vector<int64_t> sizes{10000, 100000};
    if (large) sizes.push_back(1000000);
    for (const auto& [name, make] : engines) {
        for (const int64_t size : sizes) {
            const auto add = [&, n = name](const std::string& what, auto&& run) {
                benchmark::RegisterBenchmark((what + "/" + n).c_str(), run)->Arg(size)->UseRealTime();
            };
            add("insert", [make = make](benchmark::State& s) { insertAll(s, make, false); });
            add("insert_each", [make = make](benchmark::State& s) { insertAll(s, make, true); });
            add("open_seek_read_close", [make = make, n = name](benchmark::State& s) { lookUp(s, make, n); });
            add("scan", [make = make, n = name](benchmark::State& s) { scan(s, make, n); });
        }
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
