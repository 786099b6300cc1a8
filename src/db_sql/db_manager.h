// The one way to the stores of a profile's database.
#pragma once

#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "db_sql/db_connection.h"
#include "misc/exceptions.h"

namespace crv {

/// Answer of a step through the certificates.
enum class DbStep {
    Found,
    End,    ///< no certificate there; the current one stays
    Failed  ///< as for every other operation
};

/// The name under which the time of the last fetch of CRLs from a server is remembered.
[[nodiscard]] std::string crlTimeName(const std::string& server);

/// One per library context; used by one thread at a time. Hides what kind the database is.
///
/// No operation throws. An exception of the store is written to the log ("Wyjatek w funkcji: DbManager::" name "()" and
/// the exception's text), the connection is dropped, so that the next operation makes a new one, and the operation
/// answers false (or failed). lastFailure() then has the text, lastCause() the cause.
class DbManager {
  public:
    using ConfigSource = std::function<DbConfig()>;

    /// Takes the settings of the database. Nothing is opened.
    void init(DbConfig config);
    /// Asks for the settings at every operation: a context's profile changes.
    void init(ConfigSource source);
    void deinit();

    bool getConnection();
    /// Makes a connection when there is none for the present settings.
    bool openIfNeeded();
    /// Incomplete also for a failure, NoAccess when the server cannot be reached; lastFailure() has the text then.
    DbState isDbCreated();
    bool createDb();
    bool copyDb(const std::string& destination);

    // Searches append what they find; finding nothing is no failure.
    bool findCertsBySerNumHash(CrtItemList& list, ByteView digest) {
        return inCrt("findCertsBySerNumHash", &CrtStore::findCertsBySerNumHash, list, digest);
    }
    bool findCertsBySbjDnHash(CrtItemList& list, ByteView digest) {
        return inCrt("findCertsBySbjDnHash", &CrtStore::findCertsBySbjDnHash, list, digest);
    }
    bool findCertsByKeyIdHash(CrtItemList& list, ByteView keyId) {
        return inCrt("findCertsByKeyIdHash", &CrtStore::findCertsByKeyIdHash, list, keyId);
    }
    bool findCertsByCrtHash(CrtItemList& list, ByteView hash) {
        return inCrt("findCertsByCrtHash", &CrtStore::findCertsByCrtHash, list, hash);
    }
    bool findCertsBySbjDnFld(CrtItemList& list, uint8_t type, const std::string& value) {
        return inCrt("findCertsBySbjDnFld", &CrtStore::findCertsBySbjDnFld, list, type, value);
    }
    bool findCaCerts(CrtItemList& list) { return inCrt("findCaCerts", &CrtStore::findCaCerts, list); }

    /// Stores one certificate; result, when given, tells whether it was there already.
    bool insertCert(const CrtRecord& record, InsertResult* result = nullptr);
    /// Stores certificates from the first on as long as atEnd answers false, in one go. Appends the outcomes; handled
    /// answers their number. See CrtStore::insertSlice.
    bool insertCerts(std::span<const CrtRecord> records, const CrtStore::SliceEnd& atEnd,
                     std::vector<InsertOutcome>& outcomes, size_t& handled);
    /// Deletes the current certificate. Fails when another one has its id since top, next, prev or get showed it.
    bool deleteCert();
    /// Removes the certificates that `expired` says yes to and compacts the store: ids change.
    bool removeCerts(const CrtStore::Expired& expired, CrtStore::Removed& result);
    bool removeCertsOverTime(int64_t time, CrtStore::Removed& result);

    // Browsing in record order. The current certificate is known by its id.
    DbStep top();
    DbStep next();
    DbStep prev();
    bool getCrtId(int64_t& id);
    bool setCrtId(int64_t id);
    bool get(Bytes& der);
    /// Pages: up to `count` certificates behind `after` (0: from the first), or before `before` (INT64_MAX: from the
    /// last), the nearest one first.
    bool readForward(int64_t after, size_t count, CrtItemList& list);
    bool readBackward(int64_t before, size_t count, CrtItemList& list);
    bool countCerts(size_t& count);
    /// Shows every certificate, as they are at one moment: nobody changes them meanwhile. False in the visitor stops.
    bool visitCerts(const CrtStore::Visit& visit);

    bool setNetCertTime(const std::string& name) { return inCrt("setNetCertTime", &CrtStore::setNetCertTime, name); }
    /// 0 for an unknown name.
    bool getNetCertTime(const std::string& name, int64_t& time);

    bool getAllCrls(std::vector<Bytes>& list) { return inCrl("getAllCrls", &CrlStore::getAllCrls, list); }
    /// Stores a CRL; see CrlStore for what `verified` decides.
    CrlInsert insertCrl(ByteView der, bool verified);
    /// Fails for a number that no CRL has.
    bool deleteCrl(long number);
    bool getCrlIndex(CrlIndex& index) { return inCrl("getCrlIndex", &CrlStore::getCrlIndex, index); }
    bool getCrlByFileNum(long number, Bytes& der);

    /// Forgets the import number of a server and when its CRLs were fetched.
    bool delSrv(const std::string& name);
    bool getLastImportNr(const std::string& name, long& number);
    bool getLastImportNrs(SrvStore::Numbers& numbers);
    bool setLastImportNr(const std::string& name, long number) {
        return inSrv("setLastImportNr", &SrvStore::setLastImportNr, name, number);
    }

    [[nodiscard]] const std::string& lastFailure() const { return lastFailure_; }
    /// Why the store failed; Failed too when the failure was none of the store's.
    [[nodiscard]] StoreCause lastCause() const { return lastCause_; }
    /// Hears, in the middle of an operation, how far mending after a crash has come; must not use the manager.
    void setMendProgress(DbCrv::MendProgress progress) { mendProgress_ = std::move(progress); }
    /// Whether insertions wait until the disk has the data (the default); off only for measuring.
    void setSync(bool on) { sync_ = on; }

  private:
    using Work = std::function<void(DbConnection&)>;
    bool run(const char* name, const Work& work);
    // An operation that is one of a store's.
    template <class Method, class... Args>
    bool inCrt(const char* name, Method method, Args&&... args) {
        return run(name, [&](DbConnection& db) { (db.crts().*method)(args...); });
    }
    template <class Method, class... Args>
    bool inCrl(const char* name, Method method, Args&&... args) {
        return run(name, [&](DbConnection& db) { (db.crls().*method)(args...); });
    }
    template <class Method, class... Args>
    bool inSrv(const char* name, Method method, Args&&... args) {
        return run(name, [&](DbConnection& db) { (db.srvs().*method)(args...); });
    }
    void fail(const char* name, const char* text, StoreCause cause = StoreCause::Failed);
    void connect();
    DbStep step(const char* name, const std::function<void(CrtStore&, const CrtStore::Visit&)>& walk);

    ConfigSource source_;
    DbConfig connected_;
    std::unique_ptr<DbConnection> connection_;
    int64_t crtId_ = 0;
    std::optional<DbHash> seen_;  // the current certificate as it was shown
    std::string lastFailure_;
    StoreCause lastCause_ = StoreCause::Failed;
    bool sync_ = true;
    DbCrv::MendProgress mendProgress_;
};

}  // namespace crv
