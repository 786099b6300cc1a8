// Whether the rows of a PostgreSQL database have the keys of what stands in them.
#pragma once

#include "db_sql/db_pg_schema.h"

namespace crv {

/// Compares every certificate and CRL with its keys, and a certificate with its subject fields. Tells what is wrong;
/// with `mend` writes keys and fields anew that are not right, each row by itself, and tells that. Fetches everything
/// that is stored.
void checkPgKeys(PgSession& session, const PgFinding& tell, bool mend);

}  // namespace crv
