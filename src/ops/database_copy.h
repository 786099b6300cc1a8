// The contents of one profile's database into that of another, whatever their kinds.
#pragma once

#include <functional>
#include <string>

#include "db_sql/crt_db.h"
#include "ops/lock_wait.h"

namespace crv {

class CrvProfile;

struct DbCopied {
    ImportProgress certificates;
    size_t certificatesThere = 0;  ///< in the source when the copy began
    size_t crlsThere = 0;          ///< the same; known when the certificates are done
    size_t crls = 0;
    size_t crlsPresent = 0;  ///< there already, or not newer than what is there
    size_t crlsLeftOut = 0;  ///< damaged, or gone when their turn came
    size_t servers = 0;      ///< import numbers that were taken over

    [[nodiscard]] size_t crlsHandled() const { return crls + crlsPresent + crlsLeftOut; }
};

/// Copies certificates in their order, CRLs with what was found of them when they were stored, and the import numbers
/// of servers where they are higher. What is there stays, so a copy that was cut off goes on when it is run again. The
/// source is not locked while the target stores; what comes or goes there meanwhile may be copied or not. A dry run
/// only counts. Throws OpError: DatabaseMissing, DatabaseFailed, SameDatabase for one under two names; OpStopped.
DbCopied copyDatabase(const CrvProfile& from, const CrvProfile& to, const OpMode& mode,
                      const std::function<void(const DbCopied&)>& progress);

/// The database as messages name it: its folder, or what of the settings is no secret.
std::string databaseName(const CrvProfile& profile);

}  // namespace crv
