// The tables of a PostgreSQL database: making them, and what state they are in.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "db_sql/db_crv.h"
#include "db_sql/db_pg_session.h"

namespace crv {

/// Version of the tables. A program works with its own version only.
constexpr int64_t kPgSchemaVersion = 1;

/// Key of the advisory lock under which certificates are inserted: their ids then grow in the order in which they
/// become visible, and two imports of the same certificates do not wait for each other in a circle. Also that of the
/// tables.
#define CRV_PG_INSERT_LOCK "4857398251074617345"

[[nodiscard]] DbState pgState(PgSession& session);
/// Why the tables cannot be worked with; empty for Complete and Missing.
[[nodiscard]] const char* pgStateText(DbState state);
/// Makes schema and tables in one transaction; nothing to do for a complete database. Throws StoreError.
void createPgTables(PgSession& session);

using PgFinding = std::function<void(const std::string& where, const std::string& what)>;
/// Looks at every certificate and CRL with its keys, as they were at one moment; false when something is wrong.
[[nodiscard]] bool checkPg(PgSession& session, const PgFinding& tell);
/// Makes missing indexes, deletes subject fields without their certificate, writes keys and fields anew that are not
/// those of their certificate or CRL.
void repairPg(PgSession& session, const PgFinding& tell);

struct PgTableFigures {
    std::string table;
    int64_t rows = 0, dataOctets = 0, indexOctets = 0;
};
[[nodiscard]] std::vector<PgTableFigures> pgFigures(PgSession& session);

/// The moment at which the server was started, in microseconds, with the database's number. A replica and a restored
/// backup, which share the system identifier, are told from it.
[[nodiscard]] std::string pgIdentity(PgSession& session);

}  // namespace crv
