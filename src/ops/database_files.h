// The files of a database, looked at as they are and put right: checks, figures, records, repair.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "db/table_check.h"
#include "db_sql/db_crl_files.h"
#include "db_sql/db_crv.h"
#include "misc/bytes.h"
#include "ops/lock_wait.h"

namespace crv {

class CrvProfile;
class DbFindings;
class StoredHashes;

/// Hears of a file, or of all of one ending, what was found or done.
using DbTell = std::function<void(const std::string& where, const std::string& what)>;

struct DbRecordView {
    int64_t number;
    bool live;
    int64_t length;
    int64_t capacity;
    std::vector<std::string>
        keys;  ///< where they are asked for; octets that are no ASCII letters, digits or signs as "\x0A"
    ByteView body;
};

/// The database's directory. Throws OpError (WrongKind) when the profile keeps none in files.
std::string databaseDirectory(const CrvProfile& profile);

/// Waits while another program changes the database, no longer than the mode says: the stores themselves wait without
/// an end. Throws as TimedLock.
void waitForDatabase(const CrvProfile& profile, const OpMode& mode);

class DatabaseFiles {
  public:
    /// Holds the shared lock for as long as the object lives and mends nothing. Throws as TimedLock, and OpError
    /// (DatabaseMissing, DatabaseFailed).
    DatabaseFiles(const std::string& directory, const OpMode& mode);

    /// Whether all files are there and no change was cut off; what stands in them is not looked at.
    [[nodiscard]] bool isWhole() const { return !cutOff_ && db_.stateOfFiles() == DbState::Complete; }
    /// Every table, reference and CRL; false when something is damaged. Of each kind of damage a few are told, and how
    /// many more there are.
    bool check(const DbTell& tell);
    void figures(const std::function<void(const std::string& table, const TableReport&)>& visit);
    /// Every record of a table. Throws OpError (ObjectMissing, DatabaseFailed).
    void records(const std::string& table, const std::function<void(const DbRecordView&)>& visit, bool withKeys = true);

  private:
    void checkFiles(DbFindings& findings) const;
    void checkTables(DbFindings& findings) const;
    void checkReferences(DbFindings& findings) const;
    static void checkCertificates(DataFile& certificates, const StoredHashes& stored, DbFindings& findings);
    void checkSides(DataFile& certificates, const StoredHashes& stored, DbFindings& findings) const;
    void checkCrls(DbFindings& findings) const;

    DbCrv db_;
    std::unique_ptr<TimedLock> lock_;
    bool cutOff_ = false;  // the mark of a writer that died was found
};

/// Makes the tables anew from their data files under the exclusive lock, puts the other files right and checks; tells
/// what was done and what is left. True when the database is sound. Throws as DatabaseFiles.
bool repairDatabase(const std::string& directory, const OpMode& mode, const DbTell& tell);

}  // namespace crv
