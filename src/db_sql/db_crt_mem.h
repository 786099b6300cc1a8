// The certificate store held in memory.
#pragma once

#include <map>
#include <mutex>
#include <set>

#include "db_sql/crt_store.h"

namespace crv {

/// Shared by all connections of the process to one database name, so its operations exclude each other. Network fetch
/// times are not kept.
class DbCrtMem : public CrtStore {
  public:
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

  private:
    enum Key : size_t { kBySerNum, kBySbjDn, kByKeyId, kByCrtHash, kByField, kKeyKinds };
    /// By key, and among equal keys the newest first, as the tables have them.
    using KeySet = std::set<std::pair<std::string, int64_t>>;
    struct Stored {
        Bytes der;
        std::vector<std::pair<Key, std::string>> keys;
    };

    /// Shows the ids under a key until `look` says true; whether it did.
    template <class Look>
    bool anyOf(Key kind, const std::string& key, Look look) const;
    void find(CrtItemList& list, Key kind, const std::string& key);
    void erase(std::map<int64_t, Stored>::iterator crt);
    [[nodiscard]] bool holds(const std::string& serNumKey, ByteView der) const;

    std::mutex mutex_;
    std::map<int64_t, Stored> crts_;
    std::array<KeySet, kKeyKinds> keys_;  // with the ids negated
    std::set<int64_t> cas_;
    int64_t lastId_ = 0;
};

}  // namespace crv
