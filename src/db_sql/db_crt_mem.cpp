#include "db_sql/db_crt_mem.h"

#include <algorithm>

#include "db_sql/crt_keys.h"
#include "db_sql/no_oop.h"
#include "misc/exceptions.h"

namespace crv {

namespace {

std::string fieldKey(uint8_t type, std::string value) {
    return static_cast<char>(type) + std::move(value);
}

std::string rawKey(ByteView octets) {
    return std::string(asText(octets));
}

}  // namespace

template <class Look>
bool DbCrtMem::anyOf(Key kind, const std::string& key, Look look) const {
    for (auto at = keys_[kind].lower_bound({key, INT64_MIN}); at != keys_[kind].end() && at->first == key; ++at) {
        if (look(-at->second)) return true;
    }
    return false;
}

void DbCrtMem::find(CrtItemList& list, Key kind, const std::string& key) {
    const std::scoped_lock guard(mutex_);
    anyOf(kind, key, [&](int64_t id) { return insertCrtItem(list, id, crts_.at(id).der), false; });
}

void DbCrtMem::findCertsBySerNumHash(CrtItemList& list, ByteView digest) {
    find(list, kBySerNum, codeDigest(digest));
}

void DbCrtMem::findCertsBySbjDnHash(CrtItemList& list, ByteView digest) {
    find(list, kBySbjDn, codeDigest(digest));
}

void DbCrtMem::findCertsByKeyIdHash(CrtItemList& list, ByteView keyId) {
    find(list, kByKeyId, rawKey(keyId));
}

void DbCrtMem::findCertsByCrtHash(CrtItemList& list, ByteView hash) {
    find(list, kByCrtHash, rawKey(hash));
}

void DbCrtMem::findCertsBySbjDnFld(CrtItemList& list, uint8_t type, const std::string& value) {
    find(list, kByField, fieldKey(type, dnFldValue(value)));
}

void DbCrtMem::findCaCerts(CrtItemList& list) {
    const std::scoped_lock guard(mutex_);
    for (const int64_t id : cas_) insertCrtItem(list, id, crts_.at(id).der);
}

bool DbCrtMem::holds(const std::string& serNumKey, ByteView der) const {
    return anyOf(kBySerNum, serNumKey, [&](int64_t id) { return std::ranges::equal(crts_.at(id).der, der); });
}

InsertResult DbCrtMem::insertCert(const CrtRecord& record) {
    demandStorable(record);
    const std::string serNumKey = codeDigest(record.serNumHash);
    const std::scoped_lock guard(mutex_);
    if (holds(serNumKey, record.der)) return InsertResult::Present;
    Stored crt{toBytes(record.der),
               {{kBySerNum, serNumKey},
                {kBySbjDn, codeDigest(record.sbjDnHash)},
                {kByKeyId, rawKey(record.keyId)},
                {kByCrtHash, rawKey(record.crtHash)}}};
    for (const DnFld& field : record.dnFlds) crt.keys.emplace_back(kByField, fieldKey(field.type, field.value));
    const int64_t id = ++lastId_;
    for (const auto& [kind, key] : crt.keys) keys_[kind].emplace(key, -id);
    if (record.isCa) cas_.insert(id);
    crts_.emplace(id, std::move(crt));
    return InsertResult::Stored;
}

size_t DbCrtMem::insertSlice(std::span<const CrtRecord> records, const SliceEnd& atEnd,
                             std::vector<InsertOutcome>& outcomes) {
    size_t done = 0;
    do {
        const CrtRefusal refusal = refusalOf(records[done]);
        outcomes.push_back({refusal == CrtRefusal::None ? insertCert(records[done]) : InsertResult::Refused, refusal});
    } while (++done < records.size() && !atEnd());
    return done;
}

void DbCrtMem::erase(std::map<int64_t, Stored>::iterator crt) {
    for (const auto& [kind, key] : crt->second.keys) keys_[kind].erase({key, -crt->first});
    cas_.erase(crt->first);
    crts_.erase(crt);
}

void DbCrtMem::deleteCert(int64_t id, const std::optional<DbHash>& expected) {
    const std::scoped_lock guard(mutex_);
    const auto crt = crts_.find(id);
    if (crt == crts_.end() || (expected && *expected != crtHash(crt->second.der)))
        throw StoreError(StoreCause::NotFound, "DbCrtMem::deleteCert. Brak certyfikatu");
    erase(crt);
}

void DbCrtMem::forward(int64_t after, size_t count, const Visit& visit) {
    const std::scoped_lock guard(mutex_);
    for (auto at = crts_.upper_bound(after); at != crts_.end() && count > 0; ++at, --count) {
        if (!visit(at->first, at->second.der)) return;
    }
}

void DbCrtMem::backward(int64_t before, size_t count, const Visit& visit) {
    const std::scoped_lock guard(mutex_);
    for (auto at = crts_.lower_bound(before); at != crts_.begin() && count > 0; --count) {
        --at;
        if (!visit(at->first, at->second.der)) return;
    }
}

void DbCrtMem::get(int64_t id, Bytes& der) {
    const std::scoped_lock guard(mutex_);
    const auto crt = crts_.find(id);
    if (crt == crts_.end()) throw StoreError(StoreCause::NotFound, "DbCrtMem::get. Brak certyfikatu");
    der = crt->second.der;
}

size_t DbCrtMem::count() {
    const std::scoped_lock guard(mutex_);
    return crts_.size();
}

void DbCrtMem::setNetCertTime(const std::string&) {}

void DbCrtMem::removeNetCertTime(const std::string&) {}

int64_t DbCrtMem::getNetCertTime(const std::string&) {
    return 0;
}

CrtStore::Removed DbCrtMem::removeCerts(const Expired& expired) {
    const std::scoped_lock guard(mutex_);
    Removed result;
    for (auto at = crts_.begin(); at != crts_.end();) {
        const auto crt = at++;
        if (!expired(crt->second.der)) continue;
        erase(crt);
        ++result.removed;
    }
    result.remaining = crts_.size();
    return result;
}

}  // namespace crv
