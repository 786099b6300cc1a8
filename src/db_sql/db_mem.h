// Databases held in memory.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "db_sql/db_connection.h"
#include "db_sql/db_crt_mem.h"

namespace crv {

/// The stores of one name.
struct DbMemHolder {
    DbCrtMem crts;
    DbCrlMem crls;
    SrvMem srvs;
};

/// A connection to the database of that name, which is made when it is not there yet and lives as long as the process.
class DbMem final : public DbConnection {
  public:
    explicit DbMem(const std::string& name);

    [[nodiscard]] CrtStore& crts() override { return holder_->crts; }
    [[nodiscard]] CrlStore& crls() override { return holder_->crls; }
    [[nodiscard]] SrvStore& srvs() override { return holder_->srvs; }

  private:
    static std::mutex m_dbHoldersMutex;
    static std::map<std::string, DbMemHolder> m_dbHolders;

    DbMemHolder* holder_;
};

}  // namespace crv
