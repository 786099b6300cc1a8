// Work on the whole certificate store: mending after a crash, compaction.
#pragma once

#include <functional>
#include <string>

#include "db/data_scan.h"
#include "db/db_lock.h"
#include "db_sql/crt_store.h"
#include "db_sql/db_layout.h"
#include "db_sql/stored_hashes.h"

namespace crv {

enum class SideMend {
    Missing,    ///< after a crash: makes missing records from the certificates
    Everything  ///< a repair: drops also those that their certificate does not have; a damaged one keeps what it has
};

/// What was dropped by a repair.
struct SideMended {
    size_t wrong = 0;       ///< side records that their certificate does not have
    size_t unreadable = 0;  ///< certificates that cannot be parsed and of which no side record tells what they were
};

/// When each table is sound in itself: drops side records without a certificate and makes missing ones. The caller
/// holds the exclusive lock. Throws StoreError.
SideMended mendSideRecords(const std::string& directory, SideMend extent,
                           const std::function<void(int percent)>& progress = nullptr);

/// Compares a side record with its certificate.
class SideJudge {
  public:
    SideJudge(DataFile& certificates, const StoredHashes& stored) : certificates_(&certificates), stored_(&stored) {}

    /// Whether the certificate is there as it was stored, and would not be stored with this record. Records of one
    /// certificate after another cost one look at it.
    [[nodiscard]] bool isWrong(const TableLayout& side, const DataScan& record);

  private:
    [[nodiscard]] bool load(int64_t id);

    DataFile* certificates_;
    const StoredHashes* stored_;
    int64_t id_ = 0;
    bool intact_ = false;
    TableRecord row_;
    CrtRecord record_;
};

/// Makes the four tables anew without the certificates that `expired` says yes to, the record ids in the side tables
/// renumbered, and swaps them in under the lock's mark. The caller holds the exclusive lock. Throws
/// StoreError; the old tables stay unless that happens during the swap, which is then ended by whoever takes
/// the lock next.
CrtStore::Removed compactCerts(const std::string& directory, DbLock& lock, const CrtStore::Expired& expired);

}  // namespace crv
