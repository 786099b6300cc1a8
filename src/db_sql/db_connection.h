// One connection to the stores of a profile's database, and who makes it.
#pragma once

#include <memory>
#include <string>

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
    virtual void create() {}
    /// Kinds without files have nothing to copy.
    virtual void copyDb(const std::string&) {}
};

/// Makes connections of one kind.
class ConnFactory {
  public:
    ConnFactory() = default;
    virtual ~ConnFactory() = default;
    ConnFactory(const ConnFactory&) = delete;
    ConnFactory& operator=(const ConnFactory&) = delete;

    [[nodiscard]] virtual std::unique_ptr<DbConnection> connect(const DbConfig& config) const = 0;
};

/// Files in the directory that the settings name.
class CrvConnFactory final : public ConnFactory {
  public:
    [[nodiscard]] std::unique_ptr<DbConnection> connect(const DbConfig& config) const override;
};

/// Memory shared by the name in the settings.
class MemConnFactory final : public ConnFactory {
  public:
    [[nodiscard]] std::unique_ptr<DbConnection> connect(const DbConfig& config) const override;
};

/// No database: counts as created, finds nothing, refuses insertions.
class NoneConnFactory final : public ConnFactory {
  public:
    [[nodiscard]] std::unique_ptr<DbConnection> connect(const DbConfig& config) const override;
};

/// The factory of the settings' kind. Settings without a kind mean files when they name a directory, else no database.
[[nodiscard]] const ConnFactory& connFactory(const DbConfig& config);

}  // namespace crv
