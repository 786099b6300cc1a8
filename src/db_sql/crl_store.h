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

/// What became of a CRL that was to be stored.
enum class CrlInsert : int {
    Stored,       ///< now in the store, in the place of an older one of the same issuer, key and scope
    Present,      ///< the same CRL is there already
    Older,        ///< the one that is there is not older
    Malformed,    ///< the octets are no CRL
    NotGenuine,   ///< it does not verify, and only one that does was to be stored
    Failed,       ///< the database failed (DbManager::lastCause)
    DeviceFailed  ///< stored, but the Tarvo device refused it (RevocationManager::deviceError)
};

/// At most one CRL of an authority, key and scope that verified when it was stored, and one that did not: what anybody
/// could have made never takes the place of a genuine one. Failures are exceptions. A CRL whose file is not what the
/// index says is passed over.
class CrlStore {
  public:
    CrlStore() = default;
    virtual ~CrlStore() = default;
    CrlStore(const CrlStore&) = delete;
    CrlStore& operator=(const CrlStore&) = delete;

    CrlInsert insertCrl(ByteView der, bool verified);
    /// False when there is no CRL of that number.
    [[nodiscard]] virtual bool deleteCrl(long number) = 0;
    virtual void getAllCrls(std::vector<Bytes>& list) = 0;
    virtual void getCrlIndex(CrlIndex& index) = 0;
    /// False when there is no CRL of that number.
    [[nodiscard]] virtual bool getCrlByFileNum(long number, Bytes& der) = 0;

  protected:
    /// Runs the work while nobody else changes the CRLs of that issuer.
    virtual void insertion(const DistinguishedName& issuer, const std::function<void()>& work) = 0;
    /// The rows of the issuer's CRLs, perhaps among others.
    [[nodiscard]] virtual CrlIndex rowsOf(const DistinguishedName& issuer) = 0;
    /// Empty when there is none.
    [[nodiscard]] virtual Bytes loadCrl(long number) = 0;
    /// Puts a CRL in the place of a row, or behind all; the row is one of the index.
    virtual void put(CrlIndex& index, CrlIndexEntry* place, CrlIndexEntry& fresh, ByteView der) = 0;
    virtual void drop(CrlIndex& index, long number) = 0;

    [[nodiscard]] static bool isSound(const CrlIndexEntry& row, ByteView der);
    [[nodiscard]] bool readSound(const CrlIndexEntry& row, Bytes& der);

  private:
    CrlInsert insertLocked(ParsedCrl& fresh, ByteView der);
};

/// CRLs whose rows stand in one index, which is read and written as a whole.
class CrlIndexStore : public CrlStore {
  public:
    [[nodiscard]] bool deleteCrl(long number) override;
    void getAllCrls(std::vector<Bytes>& list) override;
    void getCrlIndex(CrlIndex& index) override;
    [[nodiscard]] bool getCrlByFileNum(long number, Bytes& der) override;

  protected:
    /// Runs the work under the lock of that mode, with an index that can be read.
    virtual void locked(int mode, const std::function<void()>& work) = 0;
    [[nodiscard]] virtual Bytes loadIndex() = 0;
    virtual void save(long number, ByteView index, ByteView der) = 0;
    virtual void erase(long number, ByteView index) = 0;

    void insertion(const DistinguishedName& issuer, const std::function<void()>& work) override;
    [[nodiscard]] CrlIndex rowsOf(const DistinguishedName& issuer) override;
    void put(CrlIndex& index, CrlIndexEntry* place, CrlIndexEntry& fresh, ByteView der) override;
    void drop(CrlIndex& index, long number) override;

  private:
    [[nodiscard]] CrlIndex readIndex();
};

/// CRLs in the numbered files of a database directory, guarded by their tags and by the mark of the lock.
class DbCrlCrv final : public CrlIndexStore {
  public:
    DbCrlCrv(const std::string& directory, DbLock& lock) : files_(directory), lock_(&lock) {}

  protected:
    void locked(int mode, const std::function<void()>& work) override;
    [[nodiscard]] Bytes loadIndex() override { return files_.readIndex(); }
    [[nodiscard]] Bytes loadCrl(long number) override;
    void save(long number, ByteView index, ByteView der) override;
    void erase(long number, ByteView index) override;

  private:
    void change(const std::function<void()>& work);

    CrlFileGuard files_;
    DbLock* lock_;
};

/// CRLs held in memory, shared by all connections of the process to one database name.
class DbCrlMem : public CrlIndexStore {
  protected:
    void locked(int mode, const std::function<void()>& work) override;
    [[nodiscard]] Bytes loadIndex() override { return index_; }
    [[nodiscard]] Bytes loadCrl(long number) override;
    void save(long number, ByteView index, ByteView der) override;
    void erase(long number, ByteView index) override;

  private:
    std::mutex mutex_;
    Bytes index_ = CrlIndex().encoded();
    std::map<long, Bytes> crls_;
};

}  // namespace crv
