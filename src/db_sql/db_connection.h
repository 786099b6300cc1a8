// One connection to the stores of a profile's database, and who makes it.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "db/db_config.h"
#include "db_sql/crl_store.h"
#include "db_sql/crt_store.h"
#include "db_sql/db_crv.h"
#include "db_sql/srv_store.h"

namespace crv {

/// The stores of one database. Failures are exceptions.
class DbConnection {
  public:
    DbConnection() = default;
    virtual ~DbConnection() = default;
    DbConnection(const DbConnection&) = delete;
    DbConnection& operator=(const DbConnection&) = delete;

    [[nodiscard]] virtual CrtStore& crts() = 0;
    [[nodiscard]] virtual CrlStore& crls() = 0;
    [[nodiscard]] virtual SrvStore& srvs() = 0;
    [[nodiscard]] virtual DbState isDbCreated() { return DbState::Complete; }
    /// Kinds without files have nothing to mend.
    virtual void setMendProgress(const DbCrv::MendProgress&) {}
    virtual void create() {}
    /// Kinds without files have nothing to copy.
    virtual void copyDb(const std::string&) {}
};

/// Makes connections of one kind.
struct ConnFactory {
    std::string_view dbType;  ///< the kind, as the settings name it
    std::unique_ptr<DbConnection> (*connect)(const DbConfig& config);
};

/// The factory of the settings' kind. Settings without a kind mean files when they name a directory, else no database.
[[nodiscard]] const ConnFactory& connFactory(const DbConfig& config);

}  // namespace crv
