// Work on the whole certificate store: mending after a crash, compaction.
#pragma once

#include <string>

#include "db/db_lock.h"
#include "db_sql/crt_store.h"

namespace crv {

/// After a crash, when each table is sound in itself: drops side records without a certificate and makes missing ones
/// from the certificates. The caller holds the exclusive lock. Throws StoreError.
void mendSideRecords(const std::string& directory);

/// Makes the four tables anew without the certificates that `expired` says yes to, the record ids in the side tables
/// renumbered, and swaps them in under the lock's mark. The caller holds the exclusive lock. Throws
/// StoreError; the old tables stay unless that happens during the swap, which is then ended by whoever takes
/// the lock next.
CrtStore::Removed compactCerts(const std::string& directory, DbLock& lock, const CrtStore::Expired& expired);

}  // namespace crv
