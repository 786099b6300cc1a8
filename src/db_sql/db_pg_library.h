// Finding and loading the plug-in that brings libpq.
#pragma once

#include <string>

#include "db_sql/db_pg_functions.h"

namespace crv {

/// The functions of libpq; the plug-in is loaded at the first call and stays. It is looked for beside the running
/// program, in its build tree and where the package is installed. Throws StoreError (Unreachable) when there is none,
/// when others could have written it, and when it does not load; the text says what to do.
const PgFunctions& pgFunctions();

/// Empty when only the user or root can have written the file and the folders above it; else the path that others can.
[[nodiscard]] std::string writableByOthers(const std::string& path);

}  // namespace crv
