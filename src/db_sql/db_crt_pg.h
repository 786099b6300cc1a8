// The certificate store on a PostgreSQL server.
#pragma once

#include <map>
#include <set>

#include "db_sql/crt_store.h"
#include "db_sql/db_pg_session.h"

namespace crv {

/// Each operation is a statement or a transaction of its own. Everything that a certificate says is bytea: names hold
/// any octets. Ids grow in the order in which certificates become visible.
class DbCrtPg final : public CrtStore {
  public:
    explicit DbCrtPg(PgSession& session) : session_(&session) {}

    void findCertsBySerNumHash(CrtItemList& list, ByteView digest) override;
    void findCertsBySbjDnHash(CrtItemList& list, ByteView digest) override;
    void findCertsByKeyIdHash(CrtItemList& list, ByteView keyId) override;
    void findCertsByCrtHash(CrtItemList& list, ByteView hash) override;
    void findCertsBySbjDnFld(CrtItemList& list, uint8_t type, const std::string& value) override;
    void findCaCerts(CrtItemList& list) override;
    InsertResult insertCert(const CrtRecord& record) override;
    /// Handles a piece of the records, whatever atEnd says: it takes less than a slice may.
    size_t insertSlice(std::span<const CrtRecord> records, const SliceEnd& atEnd,
                       std::vector<InsertOutcome>& outcomes) override;
    void deleteCert(int64_t id, const std::optional<DbHash>& expected) override;
    void forward(int64_t after, size_t count, const Visit& visit) override;
    void backward(int64_t before, size_t count, const Visit& visit) override;
    void get(int64_t id, Bytes& der) override;
    size_t count() override;
    void setNetCertTime(const std::string& name) override;
    int64_t getNetCertTime(const std::string& name) override;
    void removeNetCertTime(const std::string& name) override;
    /// Ids stay as they are.
    Removed removeCerts(const Expired& expired) override;
    Removed removeCertsOverTime(int64_t time) override;
    void setSync(bool on) override;

  private:
    struct Piece;
    void find(CrtItemList& list, const PgStatement& statement, const PgValues& key);
    void walk(const PgStatement& statement, int64_t from, size_t count, const Visit& visit);
    void walkAtOneMoment(const PgStatement& statement, int64_t from, size_t count, const Visit& visit);
    std::set<Bytes> presentOf(std::span<const Bytes> hashes);
    Piece takePiece(std::span<const CrtRecord> records);
    std::map<Bytes, int64_t> store(std::span<const CrtRecord> records, const Piece& piece);
    Removed counted(const PgResult& removed);

    PgSession* session_;
    bool mostlyPresent_ = false;  // the last piece of an import was
};

}  // namespace crv
