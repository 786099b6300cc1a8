// The tables of the certificate store as one thing, without lock: internal to the file kind.
#pragma once

#include <array>
#include <functional>
#include <initializer_list>
#include <string>
#include <string_view>

#include "db/database.h"
#include "db_sql/crt_record.h"
#include "db_sql/db_layout.h"

namespace crv {

/// The tables of a database directory and the records of a certificate in them. Failures are StoreError with
/// the text of the step that failed. The caller holds the lock.
class CrtTableSet {
  public:
    enum Tb : size_t { kCrt, kDn, kCa, kAddIdx, kNetCertTime, kCount };
    static constexpr std::array<const TableLayout*, kCount> kLayouts{&crtTb, &dnTb, &caTb, &addIdxTb, &netCertTimeTb};
    static constexpr std::array kSides{kDn, kCa, kAddIdx};
    static constexpr std::array kMainTables{kCrt, kDn, kCa, kAddIdx};

    /// The directory ends with a slash.
    explicit CrtTableSet(std::string directory);
    CrtTableSet(const CrtTableSet&) = delete;
    CrtTableSet& operator=(const CrtTableSet&) = delete;

    DataBase& operator[](Tb table) { return tables_[table]; }
    [[nodiscard]] std::string path(Tb table) const { return directory_ + std::string(kLayouts[table]->file); }
    void bindLock(DbLock* lock);
    /// Opens a table; for a change its insertions stay in memory until finishChange() or close().
    void open(Tb table, bool forChange);
    /// Writes what is in memory. A failure spoils the bound lock, and so does a change that finishChange() did not end:
    /// the tables may not agree.
    void close(Tb table) {
        if (changed_[table]) tables_[table].spoilLock();
        changed_[table] = false;
        tables_[table].close();
    }

    /// The mapping of every answer: true for a success, false when there is no (further) record. 0 throws "Blad bazy
    /// danych", what is no answer fails an assertion.
    [[nodiscard]] static bool returnCode(DbAnswer answer);

    /// Shows each live record with that key, first to last, until the visitor answers false; the cursor rests on it.
    using Visit = std::function<bool(TableRecord& record)>;
    void forEachEqual(Tb table, int index, std::string_view key, const Visit& visit);
    /// Number of the record at the cursor; 0 when there is none.
    [[nodiscard]] int64_t recNo(Tb table);
    /// Reads the live certificate with that record number; false when it is gone.
    [[nodiscard]] bool readCrt(int64_t id, Bytes& der);
    /// Answers the number of the record.
    int64_t insertInto(Tb table, std::initializer_list<std::string_view> keys, ByteView body, const char* failure);
    /// Stores the records of a certificate; answers its id.
    int64_t insertCrt(const CrtRecord& record);
    /// Adds the side records of a certificate that are not there.
    void completeSide(int64_t id, const CrtRecord& record);
    /// Whether a side table has a record with that id and, when one is given, that second key.
    [[nodiscard]] bool sideHas(Tb table, const std::string& idKey, std::string_view second = {});
    /// Deletes every record of a side table that carries the record id.
    void removeSide(Tb table, const std::string& idKey);
    void noteChange(Tb table) { changed_[table] = true; }
    /// Writes changed pages down; with sync set waits until the disk has everything.
    void finishChange(bool sync);

  private:
    void insertSide(const std::string& idKey, const CrtRecord& record);
    void insertAddIdx(const std::string& idKey, const CrtRecord& record);

    std::string directory_;
    std::array<DataBase, kCount> tables_;
    std::array<bool, kCount> changed_{};
};

/// The keys of a certificate's record, and of its record of additional identifiers behind the id.
std::array<std::string, 3> crtTbKeys(const CrtRecord& record);
std::array<std::string, 2> addIdxKeys(const CrtRecord& record);

/// The key of a subject-name field: the type byte and the value.
std::string dnFldKey(uint8_t type, std::string value);

}  // namespace crv
