// Databases on a PostgreSQL server.
#pragma once

#include "db_sql/db_connection.h"
#include "db_sql/db_crl_pg.h"
#include "db_sql/db_crt_pg.h"
#include "db_sql/db_pg_schema.h"
#include "misc/exceptions.h"

namespace crv {

/// The stores of one database, which stand in its schema "corvane". The server is spoken to when it is first needed.
class DbPg final : public DbConnection {
  public:
    explicit DbPg(const DbConfig& config) : session_(config), crts_(session_), crls_(session_), srvs_(session_) {}

    [[nodiscard]] CrtStore& crts() override { return crts_; }
    [[nodiscard]] CrlStore& crls() override { return crls_; }
    [[nodiscard]] SrvStore& srvs() override { return srvs_; }
    [[nodiscard]] DbState isDbCreated() override { return pgState(session_); }
    void create() override { createPgTables(session_); }
    void copyDb(const std::string&) override {
        throw StoreError(StoreCause::Refused, "DbPg::copyDb. Baza na serwerze nie ma plików");
    }
    [[nodiscard]] PgSession& session() { return session_; }

  private:
    PgSession session_;
    DbCrtPg crts_;
    DbCrlPg crls_;
    DbSrvPg srvs_;
};

}  // namespace crv
