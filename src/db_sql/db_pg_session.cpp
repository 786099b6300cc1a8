#include "db_sql/db_pg_session.h"

#include <poll.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "db_sql/db_pg_library.h"
#include "db_sql/db_pg_schema.h"
#include "db_sql/db_pg_target.h"
#include "misc/c_string.h"
#include "misc/exceptions.h"
#include "misc/file_semaphore.h"
#include "misc/logger.h"

namespace crv {

namespace {

using namespace std::chrono_literals;

constexpr std::chrono::seconds kConnectTime = 10s;
/// What a statement may take beyond the server's own limit before the server counts as gone.
constexpr std::chrono::seconds kGrace = 2s;
constexpr std::chrono::minutes kLongTime = 30min;
/// A connection that was idle for so long is asked whether it still leads to the server.
constexpr std::chrono::seconds kIdle = 30s;
constexpr std::chrono::seconds kPingTime = 5s;
/// How often a wait looks whether the process is being ended.
constexpr std::chrono::milliseconds kTick = 200ms;
constexpr size_t kCopyPiece = size_t{1} << 18;
/// What a server answers to a statement, save failures.
constexpr std::array kAnswers{PGRES_EMPTY_QUERY, PGRES_COMMAND_OK, PGRES_TUPLES_OK};
constexpr const char* kTooLate = "serwer nie odpowiedział na czas";
constexpr const char* kNoAnswer = "niezrozumiała odpowiedź serwera";

/// Names are looked for among the server's own first of all: in a path that others may write to, a function of theirs
/// that fits our arguments better would run with our rights. Sets the limits that neither the connection string nor the
/// role has set. Compiling a statement takes longer than any of ours: the planner believes a temporary table to be
/// large. An insertion must see what was stored while it waited for its turn.
constexpr const char* kSetLimits =
    "SELECT pg_catalog.set_config('search_path', 'pg_catalog, pg_temp', false); SET jit = off; "
    "SET default_transaction_isolation = 'read committed'; "
    "SELECT set_config(name, CASE setting WHEN '0' THEN wanted ELSE setting END, false) FROM "
    "pg_catalog.pg_settings "
    "JOIN (VALUES ('statement_timeout', '60000'), ('idle_in_transaction_session_timeout', '600000')) AS w(name, "
    "wanted) "
    "USING (name)";
/// A change holds others up: one that is stopped between its statements is given up soon, or sooner where the role
/// says so.
constexpr const char* kBeginChange =
    "BEGIN ISOLATION LEVEL READ COMMITTED; SELECT set_config('idle_in_transaction_session_timeout', "
    "(extract(epoch FROM least(current_setting('idle_in_transaction_session_timeout')::interval, '30s')) * 1000)"
    "::integer::text, true)";
/// The limit; whether the version of the tables can be read.
constexpr PgStatement kLimit{
    "crv_limit",
    "SELECT setting::bigint, EXISTS (SELECT FROM pg_catalog.pg_class c JOIN pg_catalog.pg_namespace n "
    "ON n.oid = c.relnamespace WHERE n.nspname = 'corvane' AND c.relname = 'version' AND "
    "has_schema_privilege(n.oid, 'USAGE') AND has_table_privilege(c.oid, 'SELECT')) "
    "FROM pg_catalog.pg_settings WHERE name = 'statement_timeout'"};
constexpr PgStatement kOwnVersion{"crv_own_version", "SELECT max(number) FROM corvane.version"};

struct StateRow {
    std::string_view state;  ///< SQLSTATE, or its class
    StoreCause cause;
    const char* means = "";  ///< what the server's text leaves open
};
constexpr const char* kConnectionGone = "Brak połączenia z bazą PostgreSQL: ";
constexpr std::array<StateRow, 13> kStateRows{
    {{"08", StoreCause::Unreachable, kConnectionGone},
     {"57014", StoreCause::Unreachable,
      "Serwer PostgreSQL przerwał polecenie, powtórz je później albo zwiększ limit czasu (statement_timeout) roli: "},
     {"25P03", StoreCause::Unreachable, kConnectionGone},
     {"57P", StoreCause::Unreachable, kConnectionGone},
     {"53300", StoreCause::Unreachable, kConnectionGone},
     {"53", StoreCause::Unreachable, "Serwerowi PostgreSQL brakuje miejsca lub pamięci, zawiadom administratora: "},
     {"42501", StoreCause::NotOpened},
     {"25006", StoreCause::NotOpened},
     {"42P01", StoreCause::NotOpened},
     {"3F000", StoreCause::NotOpened},
     {"55P03", StoreCause::NotLocked},
     {"40P01", StoreCause::NotLocked},
     {"XX001", StoreCause::Damaged}}};
constexpr StateRow kOtherState{"", StoreCause::Failed};

const StateRow& rowOf(std::string_view state) {
    const auto* row = std::ranges::find_if(kStateRows, [&](const auto& r) { return state.starts_with(r.state); });
    return row == kStateRows.end() ? kOtherState : *row;
}

/// libpq's texts come in lines that are indented.
std::string oneLine(std::string_view text) {
    std::string line;
    for (const char c : text) {
        const bool space = c == '\n' || c == '\t' || c == '\r';
        if (!space) {
            line += c;
        } else if (!line.empty() && line.back() != ' ') {
            line += ' ';
        }
    }
    while (line.ends_with(' ')) line.pop_back();
    return line;
}

void takeNotice(void*, const char* text) {
    logLine(LogLevel::Debug, "PostgreSQL: " + oneLine(viewOrEmpty(text)));
}

}  // namespace

// --- connection ---

void PgSession::lost(const std::string& text) {
    disconnect();
    throw StoreError(StoreCause::Unreachable, kConnectionGone + text);
}

void PgSession::disconnect() noexcept {
    conn_.reset();
    prepared_.clear();
    syncApplied_ = true;
}

void PgSession::begin() {
    if (isAlive()) return;
    const bool again = conn_ != nullptr;
    disconnect();
    if (again) logLine(LogLevel::Info, "PostgreSQL: the server went away, connecting anew");
    connect();
}

/// What a server says before it goes waits in the socket. One that vanished without a word is found by asking it.
bool PgSession::isAlive() {
    if (!conn_) return false;
    pollfd input{pq_->socket(conn_.get()), POLLIN, 0};
    const Clock::time_point end = Clock::now() + kPingTime;
    while (::poll(&input, 1, 0) > 0) {
        if (processEnding() || Clock::now() > end) return false;
        if (pq_->consumeInput(conn_.get()) == 0 || pq_->status(conn_.get()) != CONNECTION_OK) return false;
    }
    if (pq_->status(conn_.get()) != CONNECTION_OK || pq_->transactionStatus(conn_.get()) != PQTRANS_IDLE) return false;
    if (Clock::now() - lastUse_ < kIdle) return true;
    try {
        patience_ = kPingTime;
        command("");
        patience_ = usualPatience_;
        return true;
    } catch (const StoreError&) {
        return false;
    }
}

PgSession::Connection PgSession::start(const PgTarget& target) {
    Connection conn(pq_->connectStart(target.keywords().data(), target.values().data(), 1), Finish{pq_});
    if (!conn) throw std::bad_alloc();
    pq_->setNoticeProcessor(conn.get(), takeNotice, nullptr);
    return conn;
}

void PgSession::connect() {
    pq_ = &pgFunctions();
    PgTarget target(config_, *pq_);
    conn_ = start(target);
    const PgEffective found = effectiveOf(conn_.get(), *pq_);
    // libpq's own default, "prefer", is as good as no TLS: whoever is in between answers that there is none.
    if (!found.isLocal && !target.saysSslMode() && found.sslMode == "prefer") {
        target.demandVerifiedServer();
        conn_ = start(target);
    }
    patience_ = found.connectSeconds > 0 ? std::chrono::seconds(found.connectSeconds) : kConnectTime;
    // libpq goes on to the next host when one refuses, not when one is silent.
    for (int passed = 1; !awaitConnection(); ++passed) {
        if (passed >= found.hosts) lost(kTooLate);
        target.passOver(passed, found);
        conn_ = start(target);
    }
    if (pq_->setnonblocking(conn_.get(), 1) != 0) lost(oneLine(pq_->errorMessage(conn_.get())));
    try {
        setUp();
    } catch (...) {
        disconnect();
        throw;
    }
}

/// False when the time is over.
bool PgSession::awaitConnection() {
    const Clock::time_point end = deadline();
    PGconn* conn = conn_.get();
    PostgresPollingStatusType next = pq_->status(conn) == CONNECTION_BAD ? PGRES_POLLING_FAILED : PGRES_POLLING_WRITING;
    while (next == PGRES_POLLING_READING || next == PGRES_POLLING_WRITING) {
        if (!awaited(next == PGRES_POLLING_READING ? POLLIN : POLLOUT, end)) return false;
        next = pq_->connectPoll(conn);
    }
    if (next != PGRES_POLLING_OK) lost(oneLine(pq_->errorMessage(conn)));
    return true;
}

void PgSession::setUp() {
    command(kSetLimits);
    const PgResult limit = run(kLimit);
    usualPatience_ = std::chrono::milliseconds(limit.number(0, 0)) + kGrace;
    patience_ = usualPatience_;
    readVersion(limit.flag(0, 1));
}

/// A table without a row is for the state to tell.
void PgSession::readVersion(bool readable) {
    const PgResult version = readable ? run(kOwnVersion) : PgResult();
    otherVersion_ = !version.isNull(0, 0) && version.number(0, 0) != kPgSchemaVersion;
}

// --- statements ---

/// Waits for the socket; false when the time given is over.
bool PgSession::awaited(short events, Clock::time_point end) {
    for (;;) {
        if (processEnding()) lost("przerwano");
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
        if (left <= 0ms) return false;
        pollfd one{pq_->socket(conn_.get()), events, 0};
        const int ready = ::poll(&one, 1, static_cast<int>(std::min(left, kTick).count()));
        if (ready > 0) return true;
        if (ready < 0 && errno != EINTR) lost("poll");
    }
}

void PgSession::await(short events, Clock::time_point end) {
    if (!awaited(events, end)) lost(kTooLate);
}

void PgSession::flush(Clock::time_point end) {
    for (int left = pq_->flush(conn_.get()); left != 0; left = pq_->flush(conn_.get())) {
        if (left < 0) lost(oneLine(pq_->errorMessage(conn_.get())));
        await(POLLIN | POLLOUT, end);
        // A server that answers before it has read everything would else wait for us, and we for it.
        pollfd input{pq_->socket(conn_.get()), POLLIN, 0};
        if (::poll(&input, 1, 0) > 0 && pq_->consumeInput(conn_.get()) == 0)
            lost(oneLine(pq_->errorMessage(conn_.get())));
    }
}

/// The next result; none at the end of what was sent.
PgResult PgSession::oneResult(Clock::time_point end) {
    while (pq_->isBusy(conn_.get()) != 0) {
        await(POLLIN, end);
        if (pq_->consumeInput(conn_.get()) == 0) lost(oneLine(pq_->errorMessage(conn_.get())));
    }
    return {pq_->getResult(conn_.get()), pq_};
}

/// Sends what waits, and takes all results: the first failure, else the last one, or that of a COPY which begins where
/// one was asked for. libpq gives the other kinds of a COPY again and again.
PgResult PgSession::result(bool copies) {
    const Clock::time_point end = deadline();
    flush(end);
    PgResult last, failure;
    for (PgResult next = oneResult(end); next.get(); next = oneResult(end)) {
        const ExecStatusType status = pq_->resultStatus(next.get());
        if (copies && status == PGRES_COPY_IN) return next;
        const bool failed = status == PGRES_FATAL_ERROR || status == PGRES_BAD_RESPONSE;
        if (!failed && std::ranges::find(kAnswers, status) == kAnswers.end()) lost(kNoAnswer);
        (failed && !failure.get() ? failure : last) = std::move(next);
    }
    lastUse_ = Clock::now();
    check(failure);
    if (!last.get()) lost(kNoAnswer);
    return last;
}

void PgSession::check(const PgResult& result) {
    if (!result.get()) return;
    if (pq_->status(conn_.get()) != CONNECTION_OK) lost(oneLine(pq_->resultErrorMessage(result.get())));
    const std::string_view state = viewOrEmpty(pq_->resultErrorField(result.get(), PG_DIAG_SQLSTATE));
    std::string text = orEmpty(pq_->resultErrorField(result.get(), PG_DIAG_MESSAGE_PRIMARY));
    if (text.empty()) text = oneLine(pq_->resultErrorMessage(result.get()));
    const StateRow& row = rowOf(state);
    if (row.means == kConnectionGone) lost(oneLine(text));
    throw StoreError(row.cause, (*row.means ? row.means : "PostgreSQL: ") + oneLine(text));
}

void PgSession::sent(int done) {
    if (done != 1) lost(oneLine(pq_->errorMessage(conn_.get())));
}

void PgSession::prepare(const PgStatement& statement) {
    if (prepared_.contains(&statement)) return;
    sent(pq_->sendPrepare(conn_.get(), statement.name, statement.sql, 0, nullptr));
    result();
    prepared_.insert(&statement);
}

PgResult PgSession::run(const PgStatement& statement, const PgValues& values, const std::function<void()>& meanwhile) {
    prepare(statement);
    const PgValues::Pointers given = values.pointers();
    sent(pq_->sendQueryPrepared(conn_.get(), statement.name, static_cast<int>(given.values.size()), given.values.data(),
                                given.lengths.data(), given.formats.data(), 1));
    flush(deadline());
    meanwhile();
    return result();
}

PgResult PgSession::query(const std::string& sql) {
    sent(pq_->sendQueryParams(conn_.get(), sql.c_str(), 0, nullptr, nullptr, nullptr, nullptr, 1));
    return result();
}

void PgSession::command(const std::string& sql) {
    sent(pq_->sendQuery(conn_.get(), sql.c_str()));
    result();
}

void PgSession::copy(ByteView rows) {
    while (!rows.empty()) {
        const ByteView piece = rows.first(std::min(rows.size(), kCopyPiece));
        const int done =
            pq_->putCopyData(conn_.get(), reinterpret_cast<const char*>(piece.data()), static_cast<int>(piece.size()));
        if (done < 0) lost(oneLine(pq_->errorMessage(conn_.get())));
        if (done > 0) rows = rows.subspan(piece.size());
        flush(deadline());
    }
}

void PgSession::copyIn(const std::string& sql, const RowSource& source) {
    sent(pq_->sendQuery(conn_.get(), sql.c_str()));
    if (pq_->resultStatus(result(true).get()) != PGRES_COPY_IN) lost(kNoAnswer);
    Bytes rows;
    PgValues::beginRows(rows);
    for (bool more = true; more; rows.clear()) {
        more = source(rows);
        if (!more) PgValues::endRows(rows);
        copy(rows);
    }
    sent(pq_->putCopyEnd(conn_.get(), nullptr));
    result();
}

// --- operations ---

PgUse::PgUse(PgSession& session, Tables tables) : session_(session) {
    if (session_.depth_ == 0) {
        session_.begin();
        // Since the connection was made the tables may have been made anew.
        if (tables == Tables::Ours && session_.otherVersion_) session_.readVersion(session_.run(kLimit).flag(0, 1));
        if (tables == Tables::Ours && session_.otherVersion_)
            throw StoreError(StoreCause::Failed, pgStateText(DbState::OtherVersion));
    }
    ++session_.depth_;
    if (session_.sync_ == session_.syncApplied_) return;
    try {
        session_.command(session_.sync_ ? "RESET synchronous_commit" : "SET synchronous_commit = off");
        session_.syncApplied_ = session_.sync_;
    } catch (...) {
        --session_.depth_;
        throw;
    }
}

PgUse::~PgUse() {
    --session_.depth_;
}

PgTransaction::PgTransaction(PgSession& session, Kind kind) : use_(session), session_(session) {
    const bool reads = kind == Kind::Snapshot || kind == Kind::LongSnapshot;
    session.command(reads ? "BEGIN ISOLATION LEVEL REPEATABLE READ READ ONLY" : kBeginChange);
    if (kind == Kind::Change || kind == Kind::Snapshot) return;
    session.command("SET LOCAL statement_timeout = '30min'");
    session.patience_ = kLongTime + kGrace;
}

/// What is open is given up with the connection: an answer may be on its way.
PgTransaction::~PgTransaction() {
    session_.patience_ = session_.usualPatience_;
    if (open_) session_.disconnect();
}

void PgTransaction::commit() {
    session_.command("COMMIT");
    open_ = false;
}

}  // namespace crv
