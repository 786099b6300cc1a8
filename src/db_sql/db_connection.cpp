#include "db_sql/db_connection.h"

#include <algorithm>
#include <array>

#include "db_sql/crt_maintenance.h"
#include "db_sql/db_crt_crv.h"
#include "db_sql/db_mem.h"
#include "db_sql/db_pg.h"
#include "misc/exceptions.h"
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
    throw StoreError(StoreCause::Refused, "Profil nie ma bazy danych");
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

bool mendStores(const DbCrv& db) {
    try {
        static_cast<void>(mendSideRecords(db.directory(), SideMend::Missing, [&](int percent) {
            db.reportMending(DbCrv::kIndexPercent + (100 - DbCrv::kIndexPercent) * percent / 100);
        }));
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
        db_->setStoreMender([db = db_.get()] { return mendStores(*db); });
    }

    [[nodiscard]] CrtStore& crts() override { return crts_; }
    [[nodiscard]] CrlStore& crls() override { return crls_; }
    [[nodiscard]] SrvStore& srvs() override { return srvs_; }
    [[nodiscard]] DbState isDbCreated() override { return db_->isDbCreated(); }
    void setMendProgress(const DbCrv::MendProgress& progress) override { db_->setMendProgress(progress); }
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

constexpr std::array<ConnFactory, 4> kConnFactories{{
    // CrvConnFactory: files in the directory that the settings name
    {kDbKindFile,
     [](const DbConfig& config) -> std::unique_ptr<DbConnection> {
         return std::make_unique<CrvConnection>(config.db);
     }},
    // MemConnFactory: memory shared by the name in the settings
    {kDbKindMemory,
     [](const DbConfig& config) -> std::unique_ptr<DbConnection> { return std::make_unique<DbMem>(config.dbName); }},
    // NoneConnFactory: counts as created, finds nothing, refuses insertions
    {kDbKindNone, [](const DbConfig&) -> std::unique_ptr<DbConnection> { return std::make_unique<NoneConnection>(); }},
    // PgConnFactory: the tables on the server that the settings name
    {kDbKindPg, [](const DbConfig& config) -> std::unique_ptr<DbConnection> { return std::make_unique<DbPg>(config); }},
}};

}  // namespace

const ConnFactory& connFactory(const DbConfig& config) {
    const std::string_view unnamed = config.db.empty() ? kDbKindNone : kDbKindFile;
    const std::string_view kind = config.type().empty() ? unnamed : std::string_view{config.type()};
    return *std::ranges::find(kConnFactories, kind, &ConnFactory::dbType);  // DbConfig admits no other kind
}

}  // namespace crv
