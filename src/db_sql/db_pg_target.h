// Where a profile's PostgreSQL server is, and how safely it is spoken to.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "db/db_config.h"
#include "db_sql/db_pg_functions.h"
#include "misc/secret.h"

namespace crv {

/// What a started connection works with.
struct PgEffective {
    bool isLocal = true;  ///< every host is a Unix socket or this machine
    std::string sslMode;
    std::string host, hostAddr, port;  ///< lists
    int hosts = 1;
    int connectSeconds = 0;  ///< for one host; 0 when nothing is said
};

/// The settings of a profile as parameters of libpq, in an order where later ones win.
class PgTarget {
  public:
    /// Throws StoreError (Refused) for a connection string that libpq cannot read or that holds a password; the text
    /// repeats nothing of it.
    PgTarget(const DbConfig& config, const PgFunctions& functions);

    void demandVerifiedServer() { add("sslmode", "verify-full"); }
    /// Leaves the first hosts out, of those that a connection started with.
    void passOver(int hosts, const PgEffective& started);
    /// Null-terminated, good until the object changes.
    [[nodiscard]] std::vector<const char*> keywords() const;
    [[nodiscard]] std::vector<const char*> values() const;
    /// Whether the connection string or the environment says how TLS is to be used.
    [[nodiscard]] bool saysSslMode() const { return saysSslMode_; }

  private:
    void add(const char* keyword, std::string_view value) { items_.emplace_back(keyword, SecretText(value)); }
    void readConnectionString(const std::string& text, const PgFunctions& functions);

    std::vector<std::pair<const char*, SecretText>> items_;
    bool saysSslMode_ = false;
};

[[nodiscard]] PgEffective effectiveOf(PGconn* conn, const PgFunctions& functions);

}  // namespace crv
