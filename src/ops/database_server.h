// Databases on a server, looked at as a whole.
#pragma once

#include "db_sql/db_pg_schema.h"
#include "ops/database_files.h"

namespace crv {

class CrvProfile;

[[nodiscard]] bool isOnServer(const CrvProfile& profile);

/// Every certificate, CRL and index, looked at by the server; false when something is damaged. These throw OpError
/// (DatabaseMissing, DatabaseFailed).
bool checkServerDatabase(const CrvProfile& profile, const DbTell& tell);
/// Makes missing indexes and deletes what leads nowhere, then checks.
bool repairServerDatabase(const CrvProfile& profile, const OpMode& mode, const DbTell& tell);
std::vector<PgTableFigures> serverFigures(const CrvProfile& profile);

/// The same for a database and its replicas, whatever names lead there; empty when the server does not tell.
[[nodiscard]] std::string serverIdentity(const CrvProfile& profile);

}  // namespace crv
