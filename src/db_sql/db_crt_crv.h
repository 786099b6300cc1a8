// The certificate store on the tables of a database directory.
#pragma once

#include "db/db_lock.h"
#include "db_sql/crt_store.h"
#include "db_sql/crt_table_set.h"

namespace crv {

/// Each operation takes the lock (shared for reading, exclusive for changes), opens the tables that it needs, and
/// closes them. Descriptors and pages are kept from one operation to the next. Failures are StoreError with the
/// text of the step that failed.
class DbCrtCrv final : public CrtStore {
  public:
    /// The directory ends with a slash; the lock is shared with the other stores of the directory.
    DbCrtCrv(std::string directory, DbLock& lock);

    void findCertsBySerNumHash(CrtItemList& list, ByteView digest) override;
    void findCertsBySbjDnHash(CrtItemList& list, ByteView digest) override;
    void findCertsByKeyIdHash(CrtItemList& list, ByteView keyId) override;
    void findCertsByCrtHash(CrtItemList& list, ByteView hash) override;
    void findCertsBySbjDnFld(CrtItemList& list, uint8_t type, const std::string& value) override;
    void findCaCerts(CrtItemList& list) override;
    InsertResult insertCert(const CrtRecord& record) override;
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
    Removed removeCerts(const Expired& expired) override;
    void setSync(bool on) override;

  private:
    class Use;
    friend class Use;
    using Tb = CrtTableSet::Tb;

    void findInCrtTb(CrtItemList& list, CrtIndex index, ByteView digest);
    void join(CrtItemList& list, Tb side, int index, std::string_view key,
              const std::function<bool(ByteView der)>& accept);
    [[nodiscard]] int64_t findByHash(const CrtRecord& record);
    [[nodiscard]] int64_t findSame(const CrtRecord& record);
    [[nodiscard]] static std::vector<Tb> tablesFor(std::span<const CrtRecord> records);
    [[nodiscard]] std::vector<bool> findNew(std::span<const CrtRecord> records);
    InsertResult insertOne(const CrtRecord& record);
    [[nodiscard]] bool know(int64_t position);
    [[nodiscard]] bool visitAt(size_t index, size_t& left, const Visit& visit);
    [[nodiscard]] bool readNetCertTime(const std::string& name, int64_t& time);
    void makeNetCertTime();

    std::string directory_;
    DbLock* lock_;
    CrtTableSet tables_;
    /// Positions of the records of certific from the first one on, as far as somebody has walked; good as long as the
    /// file is the same.
    std::vector<int64_t> positions_;
    /// So many of them, from the first one on, are deleted: nothing comes back to life in the same file.
    size_t dead_ = 0;
};

}  // namespace crv
