// CRLs and import numbers on a PostgreSQL server.
#pragma once

#include "db_sql/crl_store.h"
#include "db_sql/db_pg_session.h"
#include "db_sql/srv_store.h"

namespace crv {

/// A row for each CRL. Who stores one holds an advisory lock for its issuer from the comparison with what is there to
/// the end of the transaction, so CRLs of different issuers do not wait for each other. Numbers are not used again.
class DbCrlPg final : public CrlStore {
  public:
    explicit DbCrlPg(PgSession& session) : session_(&session) {}

    [[nodiscard]] bool deleteCrl(long number) override;
    void getAllCrls(std::vector<Bytes>& list) override;
    void getCrlIndex(CrlIndex& index) override;
    [[nodiscard]] bool getCrlByFileNum(long number, Bytes& der) override;

  protected:
    void insertion(const DistinguishedName& issuer, const std::function<void()>& work) override;
    [[nodiscard]] CrlIndex rowsOf(const DistinguishedName& issuer) override;
    [[nodiscard]] Bytes loadCrl(long number) override;
    void put(CrlIndex& index, CrlIndexEntry* place, CrlIndexEntry& fresh, ByteView der) override;
    void drop(CrlIndex& index, long number) override;

  private:
    PgSession* session_;
};

class DbSrvPg final : public SrvStore {
  public:
    explicit DbSrvPg(PgSession& session) : session_(&session) {}

    void delSrv(const std::string& name) override;
    [[nodiscard]] long getLastImportNr(const std::string& name) override;
    [[nodiscard]] Numbers read() override;

  protected:
    void put(const std::string& name, long number) override;

  private:
    PgSession* session_;
};

}  // namespace crv
