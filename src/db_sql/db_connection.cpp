#include "db_sql/db_connection.h"

#include <array>
#include <stdexcept>

#include "db_sql/crt_maintenance.h"
#include "db_sql/db_crt_crv.h"
#include "db_sql/db_mem.h"
#include "misc/logger.h"

namespace crv {

std::mutex DbMem::m_dbHoldersMutex;
std::map<std::string, DbMemHolder> DbMem::m_dbHolders;

DbMem::DbMem(const std::string& name) {
    const std::scoped_lock guard(m_dbHoldersMutex);
    holder_ = &m_dbHolders[name];
}

namespace {

[[noreturn]] void refuse() {
    throw std::runtime_error("Profil nie ma bazy danych");
}

/// Never holds anything.
class NoCrts final : public DbCrtMem {
  public:
    InsertResult insertCert(const CrtRecord&) override { refuse(); }
    size_t insertSlice(std::span<const CrtRecord>, const SliceEnd&, std::vector<InsertOutcome>&) override { refuse(); }
};

class NoCrls final : public DbCrlMem {
  protected:
    void save(long, ByteView, ByteView) override { refuse(); }
};

class NoSrvs final : public SrvMem {
  protected:
    void change(const std::function<void(Numbers&)>&) override { refuse(); }
};

class NoneConnection final : public DbConnection {
  public:
    [[nodiscard]] CrtStore& crts() override { return crts_; }
    [[nodiscard]] CrlStore& crls() override { return crls_; }
    [[nodiscard]] SrvStore& srvs() override { return srvs_; }

  private:
    NoCrts crts_;
    NoCrls crls_;
    NoSrvs srvs_;
};

bool mendStores(const std::string& directory) {
    try {
        mendSideRecords(directory);
        return true;
    } catch (const std::exception& e) {
        logLine(LogLevel::Error, std::string("certificate store not mended: ") + e.what());
        return false;
    }
}

/// The stores bound to one directory with one lock.
class CrvConnection final : public DbConnection {
  public:
    explicit CrvConnection(const std::string& path)
        : db_(connected(path)),
          crts_(db_->directory(), db_->lock()),
          crls_(db_->directory(), db_->lock()),
          srvs_(db_->directory(), db_->lock()) {
        db_->setStoreMender([directory = db_->directory()] { return mendStores(directory); });
    }

    [[nodiscard]] CrtStore& crts() override { return crts_; }
    [[nodiscard]] CrlStore& crls() override { return crls_; }
    [[nodiscard]] SrvStore& srvs() override { return srvs_; }
    [[nodiscard]] DbState isDbCreated() override { return db_->isDbCreated(); }
    void create() override { db_->create(); }
    void copyDb(const std::string& destination) override { db_->copyDb(destination); }

  private:
    static std::unique_ptr<DbCrv> connected(const std::string& path) {
        auto db = std::make_unique<DbCrv>();
        db->connect(path);
        return db;
    }

    std::unique_ptr<DbCrv> db_;
    DbCrtCrv crts_;
    DbCrlCrv crls_;
    SrvCrv srvs_;
};

}  // namespace

std::unique_ptr<DbConnection> CrvConnFactory::connect(const DbConfig& config) const {
    return std::make_unique<CrvConnection>(config.db);
}

std::unique_ptr<DbConnection> MemConnFactory::connect(const DbConfig& config) const {
    return std::make_unique<DbMem>(config.dbName);
}

std::unique_ptr<DbConnection> NoneConnFactory::connect(const DbConfig&) const {
    return std::make_unique<NoneConnection>();
}

const ConnFactory& connFactory(const DbConfig& config) {
    static const CrvConnFactory files;
    static const MemConnFactory memory;
    static const NoneConnFactory none;
    if (config.type() == kDbKindFile) return files;
    if (config.type() == kDbKindMemory) return memory;
    return config.type().empty() && !config.db.empty() ? static_cast<const ConnFactory&>(files) : none;
}

}  // namespace crv
