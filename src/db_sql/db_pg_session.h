// One connection to a PostgreSQL server: opening it, statements with time-outs, transactions.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <set>
#include <string>

#include "db/db_config.h"
#include "db_sql/db_pg_values.h"

namespace crv {

class PgTarget;

/// A statement that is prepared when it is first used in a connection. Its address names it: make it a constant.
struct PgStatement {
    const char* name;
    const char* sql;
};

/// Statements run within an operation (PgUse). Failures are StoreError with the server's text: Unreachable when the
/// connection cannot be had, is lost or does not answer in time, NotOpened when the role lacks a right or the tables
/// are not there, NotLocked when another session holds what is needed. Used by one thread.
class PgSession {
  public:
    using Clock = std::chrono::steady_clock;

    /// Nothing is opened.
    explicit PgSession(DbConfig config) : config_(std::move(config)) {}
    ~PgSession() { disconnect(); }
    PgSession(const PgSession&) = delete;
    PgSession& operator=(const PgSession&) = delete;

    PgResult run(const PgStatement& statement, const PgValues& values = {}) {
        return run(statement, values, [] {});
    }
    /// Does something else while the server works.
    PgResult run(const PgStatement& statement, const PgValues& values, const std::function<void()>& meanwhile);
    /// One statement that is not worth preparing.
    PgResult query(const std::string& sql);
    /// Statements without parameters, separated by semicolons.
    void command(const std::string& sql);
    /// Appends some rows (PgValues::appendRow); false when they were the last ones.
    using RowSource = std::function<bool(Bytes& rows)>;
    /// Sends rows to a COPY ... FROM STDIN statement: the server takes some while the next are made.
    void copyIn(const std::string& sql, const RowSource& source);

    /// Whether a change waits until the server's disk has it.
    void setSync(bool on) { sync_ = on; }

  private:
    friend class PgUse;
    friend class PgTransaction;

    struct Finish {
        const PgFunctions* functions;
        void operator()(PGconn* conn) const { functions->finish(conn); }
    };
    using Connection = std::unique_ptr<PGconn, Finish>;

    void begin();
    void connect();
    [[nodiscard]] Connection start(const PgTarget& target);
    [[nodiscard]] bool awaitConnection();
    void setUp();
    void readVersion(bool readable);
    [[nodiscard]] bool isAlive();
    void disconnect() noexcept;
    void prepare(const PgStatement& statement);
    void copy(ByteView rows);
    void sent(int done);
    void flush(Clock::time_point end);
    [[nodiscard]] bool awaited(short events, Clock::time_point end);
    void await(short events, Clock::time_point end);
    PgResult result(bool copies = false);
    PgResult oneResult(Clock::time_point end);
    void check(const PgResult& result);
    [[noreturn]] void lost(const std::string& text);
    [[nodiscard]] Clock::time_point deadline() const { return Clock::now() + patience_; }

    DbConfig config_;
    const PgFunctions* pq_ = nullptr;
    Connection conn_{nullptr, Finish{nullptr}};
    std::set<const PgStatement*> prepared_;
    Clock::duration patience_{};       // for one statement, the server's own limit and some more
    Clock::duration usualPatience_{};  // of this connection
    Clock::time_point lastUse_;
    bool sync_ = true, syncApplied_ = true;
    bool otherVersion_ = false;  // the tables are those of another version of this program
    int depth_ = 0;              // of operations
};

/// The scope of an operation on the database. The outermost one opens the connection, and opens it again when the
/// server went away since the last operation; within an operation a lost connection is a failure.
class PgUse {
  public:
    /// Which tables the operation can work with: those of this program's version, unless it says otherwise.
    enum class Tables { Ours, Any };
    explicit PgUse(PgSession& session, Tables tables = Tables::Ours);
    ~PgUse();
    PgUse(const PgUse&) = delete;
    PgUse& operator=(const PgUse&) = delete;

  private:
    PgSession& session_;
};

/// A transaction within an operation; without commit() nothing of it stays.
class PgTransaction {
  public:
    enum class Kind {
        Change,
        Snapshot,  ///< reads the database as it was at the first statement
        Long,      ///< a change of the whole database, which may take half an hour
        LongSnapshot
    };
    PgTransaction(PgSession& session, Kind kind);
    ~PgTransaction();
    PgTransaction(const PgTransaction&) = delete;
    PgTransaction& operator=(const PgTransaction&) = delete;

    void commit();

  private:
    PgUse use_;
    PgSession& session_;
    bool open_ = true;
};

}  // namespace crv
