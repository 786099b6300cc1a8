#include "db_sql/db_manager.h"

#include <new>
#include <utility>

#include "db_sql/crt_keys.h"
#include "db_sql/db_pg_schema.h"
#include "misc/exceptions.h"
#include "misc/logger.h"

namespace crv {

namespace {

constexpr const char* kTextNoCrl = "Brak listy CRL";

}  // namespace

void DbManager::init(DbConfig config) {
    init([config = std::move(config)] { return config; });
}

void DbManager::init(ConfigSource source) {
    deinit();
    source_ = std::move(source);
}

void DbManager::deinit() {
    connection_.reset();
    source_ = nullptr;
    crtId_ = 0;
}

void DbManager::connect() {
    if (!source_) throw StoreError(StoreCause::Failed, "Baza danych nie zainicjowana");
    DbConfig config = source_();
    if (!connection_ || config != connected_) {
        connection_.reset();
        if (config != connected_) crtId_ = 0;
        connection_ = connFactory(config).connect(config);
        connected_ = std::move(config);
    }
    connection_->setMendProgress(mendProgress_);
    connection_->crts().setSync(sync_);
}

void DbManager::fail(const char* name, const char* text, StoreCause cause) {
    lastCause_ = cause;
    lastFailure_ = std::string("Wyjatek w funkcji: DbManager::") + name + "()";
    logLine(LogLevel::Error, lastFailure_);
    logLine(LogLevel::Error, text);
    lastFailure_.append("\n").append(text);
    connection_.reset();
}

/// Every operation goes through here: its name, its work, and what becomes of an exception.
bool DbManager::run(const char* name, const Work& work) {
    try {
        connect();
        work(*connection_);
        return true;
    } catch (const std::bad_alloc& e) {
        fail(name, e.what(), StoreCause::NoMemory);
    } catch (const StoreError& e) {
        fail(name, e.what(), e.cause());
    } catch (const std::exception& e) {
        fail(name, e.what());
    } catch (...) {
        fail(name, "Nieznany wyjatek");
    }
    return false;
}

bool DbManager::getConnection() {
    connection_.reset();
    return run("getConnection", [](DbConnection&) {});
}

bool DbManager::openIfNeeded() {
    return run("getConnection", [](DbConnection&) {});
}

DbState DbManager::isDbCreated() {
    DbState state = DbState::Incomplete;
    lastFailure_.clear();
    if (run("createDb", [&](DbConnection& db) { state = db.isDbCreated(); })) {
        if (connFactory(connected_).dbType == kDbKindPg) lastFailure_ = pgStateText(state);
        return state;
    }
    return lastCause_ == StoreCause::Unreachable ? DbState::NoAccess : DbState::Incomplete;
}

bool DbManager::createDb() {
    return run("createDb", [](DbConnection& db) { db.create(); });
}

bool DbManager::copyDb(const std::string& destination) {
    return run("copyDb", [&](DbConnection& db) { db.copyDb(destination); });
}

bool DbManager::insertCert(const CrtRecord& record, InsertResult* result) {
    return run("insertCert", [&](DbConnection& db) {
        const InsertResult done = db.crts().insertCert(record);
        if (result) *result = done;
    });
}

bool DbManager::insertCerts(std::span<const CrtRecord> records, const CrtStore::SliceEnd& atEnd,
                            std::vector<InsertOutcome>& outcomes, size_t& handled) {
    handled = 0;
    if (records.empty()) return true;
    return run("insertCert", [&](DbConnection& db) { handled = db.crts().insertSlice(records, atEnd, outcomes); });
}

bool DbManager::deleteCert() {
    return run("deleteCert", [&](DbConnection& db) { db.crts().deleteCert(crtId_, seen_); });
}

bool DbManager::removeCerts(const CrtStore::Expired& expired, CrtStore::Removed& result) {
    return run("deleteCert", [&](DbConnection& db) {
        result = db.crts().removeCerts(expired);
        crtId_ = 0;
    });
}

bool DbManager::removeCertsOverTime(int64_t time, CrtStore::Removed& result) {
    return run("deleteCert", [&](DbConnection& db) {
        result = db.crts().removeCertsOverTime(time);
        crtId_ = 0;
    });
}

/// Moves to the certificate that the walk shows first.
DbStep DbManager::step(const char* name, const std::function<void(CrtStore&, const CrtStore::Visit&)>& walk) {
    bool found = false;
    const bool done = run(name, [&](DbConnection& db) {
        walk(db.crts(), [&](int64_t id, ByteView der) {
            crtId_ = id;
            seen_ = crtHash(der);
            found = true;
            return false;
        });
    });
    if (!done) return DbStep::Failed;
    return found ? DbStep::Found : DbStep::End;
}

DbStep DbManager::top() {
    return step("top", [](CrtStore& crts, const CrtStore::Visit& visit) { crts.forward(0, 1, visit); });
}

DbStep DbManager::next() {
    return step("next", [this](CrtStore& crts, const CrtStore::Visit& visit) { crts.forward(crtId_, 1, visit); });
}

DbStep DbManager::prev() {
    return step("prev", [this](CrtStore& crts, const CrtStore::Visit& visit) { crts.backward(crtId_, 1, visit); });
}

bool DbManager::getCrtId(int64_t& id) {
    return run("getCrtId", [&](DbConnection&) { id = crtId_; });
}

bool DbManager::setCrtId(int64_t id) {
    return run("setCrtId", [&](DbConnection&) {
        crtId_ = id;
        seen_.reset();
    });
}

bool DbManager::get(Bytes& der) {
    return run("get", [&](DbConnection& db) {
        db.crts().get(crtId_, der);
        seen_ = crtHash(der);
    });
}

bool DbManager::readForward(int64_t after, size_t count, CrtItemList& list) {
    return run("next", [&](DbConnection& db) {
        db.crts().forward(after, count, [&](int64_t id, ByteView der) {
            insertCrtItem(list, id, toBytes(der));
            return true;
        });
    });
}

bool DbManager::readBackward(int64_t before, size_t count, CrtItemList& list) {
    return run("prev", [&](DbConnection& db) {
        db.crts().backward(before, count, [&](int64_t id, ByteView der) {
            insertCrtItem(list, id, toBytes(der));
            return true;
        });
    });
}

bool DbManager::countCerts(size_t& count) {
    return run("top", [&](DbConnection& db) { count = db.crts().count(); });
}

bool DbManager::visitCerts(const CrtStore::Visit& visit) {
    return run("next", [&](DbConnection& db) { db.crts().forward(0, SIZE_MAX, visit); });
}

bool DbManager::getNetCertTime(const std::string& name, int64_t& time) {
    return run("getNetCertTime", [&](DbConnection& db) { time = db.crts().getNetCertTime(name); });
}

std::string crlTimeName(const std::string& server) {
    return "CRL:" + server;
}

bool DbManager::delSrv(const std::string& name) {
    return inSrv("delSrv", &SrvStore::delSrv, name) &&
           run("delSrv", [&](DbConnection& db) { db.crts().removeNetCertTime(crlTimeName(name)); });
}

CrlInsert DbManager::insertCrl(ByteView der, bool verified) {
    CrlInsert result = CrlInsert::Failed;
    (void)run("insertCrl", [&](DbConnection& db) { result = db.crls().insertCrl(der, verified); });
    return result;
}

bool DbManager::deleteCrl(long number) {
    return run("deleteCrl", [&](DbConnection& db) {
        if (!db.crls().deleteCrl(number)) throw StoreError(StoreCause::NotFound, kTextNoCrl);
    });
}

bool DbManager::getCrlByFileNum(long number, Bytes& der) {
    return run("getCrlByFileNum", [&](DbConnection& db) {
        if (!db.crls().getCrlByFileNum(number, der)) throw StoreError(StoreCause::NotFound, kTextNoCrl);
    });
}

bool DbManager::getLastImportNr(const std::string& name, long& number) {
    return run("getLastImportNr", [&](DbConnection& db) { number = db.srvs().getLastImportNr(name); });
}

bool DbManager::getLastImportNrs(SrvStore::Numbers& numbers) {
    return run("getLastImportNr", [&](DbConnection& db) { numbers = db.srvs().read(); });
}

}  // namespace crv
