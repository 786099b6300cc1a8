// The CRL store of a database: at most one CRL for each issuer, key and scope.
#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <vector>

#include "db/db_lock.h"
#include "db_sql/crl_index.h"
#include "db_sql/db_crl_files.h"

namespace crv {

class SignedCertRevList;

enum class CrlInsert {
    Stored,   ///< now in the store, in the place of an older one of the same issuer, key and scope
    Present,  ///< the same CRL is there already
    Older     ///< the one that is there is not older
};

/// Failures are exceptions. A CRL whose file is not what was written is passed over, though the index may name it.
class CrlStore {
  public:
    CrlStore() = default;
    virtual ~CrlStore() = default;
    CrlStore(const CrlStore&) = delete;
    CrlStore& operator=(const CrlStore&) = delete;

    /// Throws CrvApiException with 88 for octets that are no CRL.
    CrlInsert insertCrl(ByteView der);
    void getAllCrls(std::vector<Bytes>& list);
    void getCrlIndex(CrlIndex& index);
    /// False when there is no CRL of that number.
    [[nodiscard]] bool getCrlByFileNum(long number, Bytes& der);

  protected:
    /// Runs the work under the lock of that mode.
    virtual void locked(int mode, const std::function<void()>& work) = 0;
    [[nodiscard]] virtual Bytes loadIndex() = 0;
    /// Empty when there is none.
    [[nodiscard]] virtual Bytes loadCrl(long number) = 0;
    virtual void save(long number, ByteView index, ByteView der) = 0;
    /// Whether a CRL agrees with its tag.
    [[nodiscard]] virtual bool isTagged(long number) = 0;

    [[nodiscard]] CrlIndex readIndex();

  private:
    [[nodiscard]] bool readSound(const CrlIndexEntry& row, Bytes& der, CrlIndexEntry& entry, Bytes& scope);
    CrlInsert insertLocked(CrlIndexEntry& fresh, ByteView scope, ByteView der);
    /// Shows every sound CRL until the visitor answers false.
    void forEach(const std::function<bool(const CrlIndexEntry&, Bytes& der)>& visit);
};

/// CRLs in the numbered files of a database directory, guarded by their tags.
class DbCrlCrv final : public CrlStore {
  public:
    DbCrlCrv(const std::string& directory, DbLock& lock) : files_(directory), lock_(&lock) {}

  protected:
    void locked(int mode, const std::function<void()>& work) override;
    [[nodiscard]] Bytes loadIndex() override { return files_.readIndex(); }
    [[nodiscard]] Bytes loadCrl(long number) override;
    void save(long number, ByteView index, ByteView der) override;
    [[nodiscard]] bool isTagged(long number) override { return files_.checkCrl(number) == 0; }

  private:
    void dropDamaged(long last, ByteView written);

    CrlFileGuard files_;
    DbLock* lock_;
};

/// CRLs held in memory, shared by all connections of the process to one database name.
class DbCrlMem : public CrlStore {
  protected:
    void locked(int mode, const std::function<void()>& work) override;
    [[nodiscard]] Bytes loadIndex() override { return index_; }
    [[nodiscard]] Bytes loadCrl(long number) override;
    void save(long number, ByteView index, ByteView der) override;
    [[nodiscard]] bool isTagged(long) override { return false; }

  private:
    std::mutex mutex_;
    Bytes index_ = CrlIndex().encoded();
    std::map<long, Bytes> crls_;
};

}  // namespace crv
