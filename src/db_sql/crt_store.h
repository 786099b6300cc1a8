// The certificate store of a database, whatever its kind.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>

#include "db_sql/crt_item.h"
#include "db_sql/crt_record.h"

namespace crv {

/// Every operation stands alone: the file kind takes the lock and opens the tables for its duration. Failures are
/// exceptions. Searches append to the list and find nothing without failing. Digests and key identifiers are given as
/// octets.
class CrtStore {
  public:
    CrtStore() = default;
    virtual ~CrtStore() = default;
    CrtStore(const CrtStore&) = delete;
    CrtStore& operator=(const CrtStore&) = delete;

    virtual void findCertsBySerNumHash(CrtItemList& list, ByteView digest) = 0;
    virtual void findCertsBySbjDnHash(CrtItemList& list, ByteView digest) = 0;
    virtual void findCertsByKeyIdHash(CrtItemList& list, ByteView keyId) = 0;
    virtual void findCertsByCrtHash(CrtItemList& list, ByteView hash) = 0;
    /// Values are cut as dnFldValue does.
    virtual void findCertsBySbjDnFld(CrtItemList& list, uint8_t type, const std::string& value) = 0;
    virtual void findCaCerts(CrtItemList& list) = 0;

    /// Stores one certificate; a refusal is an exception with its text.
    virtual InsertResult insertCert(const CrtRecord& record) = 0;
    /// Asked after each certificate of a slice; true ends the slice.
    using SliceEnd = std::function<bool()>;
    /// Stores certificates in one go, holding the lock and the tables; answers how many were handled, at least one.
    /// Their outcomes are appended. A failure of the database is an exception, after which those of the slice that were
    /// not yet there may be stored or not.
    virtual size_t insertSlice(std::span<const CrtRecord> records, const SliceEnd& atEnd,
                               std::vector<InsertOutcome>& outcomes) = 0;
    /// With `expected` given, only when the certificate has that SHA-1: another process may have compacted the store
    /// since the id was seen.
    virtual void deleteCert(int64_t id, const std::optional<DbHash>& expected) = 0;

    /// Certificates in record order: up to `count` behind `after` (0: from the first). False in the visitor stops.
    using Visit = std::function<bool(int64_t id, ByteView der)>;
    virtual void forward(int64_t after, size_t count, const Visit& visit) = 0;
    /// The same backwards: up to `count` before `before` (INT64_MAX: from the last), the nearest one first.
    virtual void backward(int64_t before, size_t count, const Visit& visit) = 0;
    /// An exception when there is no such certificate.
    virtual void get(int64_t id, Bytes& der) = 0;
    virtual size_t count() = 0;

    virtual void setNetCertTime(const std::string& name) = 0;
    /// Seconds since 1970, 0 for an unknown name.
    virtual int64_t getNetCertTime(const std::string& name) = 0;
    /// Forgets a time; nothing to do for an unknown name.
    virtual void removeNetCertTime(const std::string& name) = 0;

    struct Removed {
        size_t removed = 0;
        size_t remaining = 0;
    };
    /// Removes every certificate that `expired` says yes to, and compacts the store: ids change.
    using Expired = std::function<bool(ByteView der)>;
    virtual Removed removeCerts(const Expired& expired) = 0;
    /// The same for those whose validity ended before the time; what cannot be parsed stays.
    virtual Removed removeCertsOverTime(int64_t time);

    /// Whether insertions wait until the disk has the data (the default); off only for measuring.
    virtual void setSync(bool on) { sync_ = on; }
    [[nodiscard]] bool sync() const { return sync_; }

  private:
    bool sync_ = true;
};

}  // namespace crv
