#include "db_sql/db_crt_crv.h"

#include <algorithm>
#include <cstring>
#include <ctime>
#include <numeric>
#include <utility>

#include "db_sql/crt_keys.h"
#include "db_sql/crt_maintenance.h"
#include "db_sql/no_oop.h"
#include "misc/atomic_write.h"
#include "misc/exceptions.h"
#include "misc/whole_file.h"

namespace crv {

namespace {

/// Certificates of one serial number that are compared octet for octet before the hash is asked.
constexpr int kMostOfOneSerial = 64;

}  // namespace

/// The scope of one operation: the lock and the tables that it works on. When what a failure left in memory cannot be
/// written at the end, the mark stays and the next user of the database mends it.
class DbCrtCrv::Use {
  public:
    Use(DbCrtCrv& store, int mode, std::span<const Tb> tables) : guard_(*store.lock_, mode), opened_{store, {}} {
        for (const Tb table : tables) {
            store.tables_.open(table, mode != kSharedLock);
            opened_.tables.push_back(table);
        }
        if (std::ranges::find(tables, Tb::kCrt) != tables.end() && !store.tables_[Tb::kCrt].dataFile().reused()) {
            store.positions_.clear();
            store.dead_ = 0;
        }
    }
    Use(DbCrtCrv& store, int mode, std::initializer_list<Tb> tables)
        : Use(store, mode, std::span(tables.begin(), tables.size())) {}

  private:
    struct Opened {
        DbCrtCrv& store;
        std::vector<Tb> tables;
        ~Opened() {
            for (const Tb table : tables) store.tables_.close(table);
        }
    };

    DbGuard guard_;
    Opened opened_;
};

DbCrtCrv::DbCrtCrv(std::string directory, DbLock& lock)
    : directory_(std::move(directory)), lock_(&lock), tables_(directory_) {
    tables_.bindLock(lock_);
}

void DbCrtCrv::setSync(bool on) {
    CrtStore::setSync(on);
    lock_->setSync(on);
}

void DbCrtCrv::findInCrtTb(CrtItemList& list, CrtIndex index, ByteView digest) {
    const Use use(*this, kSharedLock, {Tb::kCrt});
    tables_.forEachEqual(Tb::kCrt, index, codeDigest(digest), [&](TableRecord& record) {
        insertCrtItem(list, tables_.recNo(Tb::kCrt), std::move(record.body));
        return true;
    });
}

void DbCrtCrv::findCertsBySerNumHash(CrtItemList& list, ByteView digest) {
    findInCrtTb(list, kCrtBySerNum, digest);
}

void DbCrtCrv::findCertsBySbjDnHash(CrtItemList& list, ByteView digest) {
    findInCrtTb(list, kCrtBySbjDn, digest);
}

/// Collects the certificates of the side records with that key. The tables see keys only up to a zero octet, so
/// `accept` tells apart what they cannot.
void DbCrtCrv::join(CrtItemList& list, Tb side, int index, std::string_view key,
                    const std::function<bool(ByteView der)>& accept) {
    const Use use(*this, kSharedLock, {side, Tb::kCrt});
    tables_.forEachEqual(side, index, key, [&](const TableRecord& record) {
        const std::optional<int64_t> id = recNoDecode(record.keys[0]);
        Bytes der;
        if (id && tables_.readCrt(*id, der) && accept(der)) insertCrtItem(list, *id, std::move(der));
        return true;
    });
}

void DbCrtCrv::findCertsByKeyIdHash(CrtItemList& list, ByteView keyId) {
    join(list, Tb::kAddIdx, kAddByKeyId, asText(keyId), [&](ByteView der) { return !hasOtherKeyId(der, keyId); });
}

void DbCrtCrv::findCertsByCrtHash(CrtItemList& list, ByteView hash) {
    join(list, Tb::kAddIdx, kAddByCrtHash, asText(hash),
         [&](ByteView der) { return std::ranges::equal(crtHash(der), hash); });
}

void DbCrtCrv::findCertsBySbjDnFld(CrtItemList& list, uint8_t type, const std::string& value) {
    join(list, Tb::kDn, kDnByField, dnFldKey(type, value), [](ByteView) { return true; });
}

void DbCrtCrv::findCaCerts(CrtItemList& list) {
    const Use use(*this, kSharedLock, {Tb::kCa, Tb::kCrt});
    DataBase& ca = tables_[Tb::kCa];
    TableRecord record;
    for (bool found = tables_.returnCode(ca.top()); found; found = tables_.returnCode(ca.skip(1))) {
        if (!tables_.returnCode(ca.data(record))) break;
        const std::optional<int64_t> id = recNoDecode(record.keys[kCaByRecId]);
        Bytes der;
        if (id && tables_.readCrt(*id, der)) insertCrtItem(list, *id, std::move(der));
    }
}

/// The same by the certificate's hash.
int64_t DbCrtCrv::findByHash(const CrtRecord& record) {
    int64_t same = 0;
    tables_.forEachEqual(Tb::kAddIdx, kAddByCrtHash, asText(record.crtHash), [&](const TableRecord& side) {
        const int64_t id = recNoDecode(side.keys[kAddByRecId]).value_or(0);
        Bytes der;
        if (id != 0 && tables_.readCrt(id, der) && std::ranges::equal(der, record.der)) same = id;
        return same == 0;
    });
    return same;
}

/// Number of the record that holds exactly these octets, 0 when there is none. Where very many share the serial number
/// the walk past them ends, and the hash decides.
int64_t DbCrtCrv::findSame(const CrtRecord& record) {
    int64_t same = 0;
    int left = kMostOfOneSerial;
    tables_.forEachEqual(Tb::kCrt, kCrtBySerNum, codeDigest(record.serNumHash), [&](const TableRecord& stored) {
        if (left-- == 0) return false;
        if (std::ranges::equal(stored.body, record.der)) same = tables_.recNo(Tb::kCrt);
        return same == 0;
    });
    return left < 0 ? findByHash(record) : same;
}

/// The tables that the insertion of these records needs.
std::vector<CrtTableSet::Tb> DbCrtCrv::tablesFor(std::span<const CrtRecord> records) {
    std::vector<Tb> tables{Tb::kCrt, Tb::kDn, Tb::kAddIdx};
    if (std::any_of(records.begin(), records.end(), [](const CrtRecord& one) { return one.isCa; })) {
        tables.push_back(Tb::kCa);
    }
    return tables;
}

/// Which of the records have a serial number that no certificate has, neither a stored one nor one before them: these
/// need no look at the table while others wait to be written into it. In the order of the keys, which lie together.
std::vector<bool> DbCrtCrv::findNew(std::span<const CrtRecord> records) {
    std::vector<size_t> order(records.size());
    std::iota(order.begin(), order.end(), size_t{0});
    const auto serialOf = [&](size_t i) -> const DbHash& { return records[i].serNumHash; };
    std::ranges::stable_sort(order, {}, serialOf);
    std::vector<bool> isNew(records.size());
    DataBase& crt = tables_[Tb::kCrt];
    crt.selectIndex(kCrtBySerNum);
    for (size_t at = 0; at < order.size(); ++at) {
        if (at > 0 && serialOf(order[at]) == serialOf(order[at - 1])) continue;
        isNew[order[at]] = !tables_.returnCode(crt.seekEqual(codeDigest(serialOf(order[at]))));
    }
    return isNew;
}

InsertResult DbCrtCrv::insertOne(const CrtRecord& record) {
    const int64_t same = findSame(record);
    if (same == 0) return tables_.insertCrt(record), InsertResult::Stored;
    // An insertion that failed half-way leaves a certificate without its side records; addIdx's is the last.
    if (!tables_.sideHas(Tb::kAddIdx, recNoEncode(same))) tables_.completeSide(same, record);
    return InsertResult::Present;
}

InsertResult DbCrtCrv::insertCert(const CrtRecord& record) {
    demandStorable(record);
    const Use use(*this, kExclusiveLock, tablesFor({&record, 1}));
    const InsertResult result = insertOne(record);
    tables_.finishChange(sync());
    return result;
}

size_t DbCrtCrv::insertSlice(std::span<const CrtRecord> records, const SliceEnd& atEnd,
                             std::vector<InsertOutcome>& outcomes) {
    const Use use(*this, kExclusiveLock, tablesFor(records));
    const std::vector<bool> isNew = findNew(records);
    std::vector<InsertOutcome> slice;
    do {
        const CrtRecord& record = records[slice.size()];
        const CrtRefusal refusal = refusalOf(record);
        InsertResult result = InsertResult::Refused;
        if (refusal == CrtRefusal::None && isNew[slice.size()]) {
            tables_.insertCrt(record);
            result = InsertResult::Stored;
        } else if (refusal == CrtRefusal::None) {
            result = insertOne(record);
        }
        slice.push_back({result, refusal});
    } while (slice.size() < records.size() && !atEnd());
    tables_.finishChange(sync());
    outcomes.insert(outcomes.end(), std::make_move_iterator(slice.begin()), std::make_move_iterator(slice.end()));
    return slice.size();
}

void DbCrtCrv::deleteCert(int64_t id, const std::optional<DbHash>& expected) {
    const Use use(*this, kExclusiveLock, CrtTableSet::kMainTables);
    DataBase& crt = tables_[Tb::kCrt];
    Bytes der;
    const bool there = crt.setRec(id) == kDbOk && tables_.readCrt(id, der) && (!expected || *expected == crtHash(der));
    if (!there) throw StoreError(StoreCause::NotFound, "DbCrtCrv::deleteCert. Blad wywolania setRec");
    tables_.noteChange(Tb::kCrt);
    if (crt.remove() != kDbOk) throw StoreError(StoreCause::Failed, "DbCrtCrv::deleteCert. Blad usuniecia crtTb");
    for (const Tb side : CrtTableSet::kSides) tables_.removeSide(side, recNoEncode(id));
    tables_.finishChange(sync());
}

// --- browsing ---

/// Walks on until a record at or behind the position is known; false when there is none.
bool DbCrtCrv::know(int64_t position) {
    DataFile& data = tables_[Tb::kCrt].dataFile();
    while (positions_.empty() || positions_.back() < position) {
        int64_t following = 0;
        const DbAnswer answer = positions_.empty() ? data.top(following) : data.next(positions_.back(), following);
        if (!tables_.returnCode(answer)) return false;
        positions_.push_back(following);
    }
    return true;
}

/// Shows the record when it is live; false when the visitor wants no more or has had enough.
bool DbCrtCrv::visitAt(size_t index, size_t& left, const Visit& visit) {
    Bytes der;
    if (!tables_.readCrt(positions_[index], der)) {
        if (index == dead_) ++dead_;
        return true;
    }
    return visit(positions_[index], der) && --left > 0;
}

void DbCrtCrv::forward(int64_t after, size_t count, const Visit& visit) {
    const Use use(*this, kSharedLock, {Tb::kCrt});
    if (count == 0 || !know(after + 1)) return;
    const auto first = std::ranges::upper_bound(positions_, after);
    // Deleting the first certificate again and again would else pass all the deleted ones each time.
    const size_t begin = std::max(static_cast<size_t>(first - positions_.begin()), dead_);
    if (begin == positions_.size() && !know(positions_.back() + 1)) return;
    for (size_t at = begin; visitAt(at, count, visit); ++at) {
        if (at + 1 == positions_.size() && !know(positions_[at] + 1)) return;
    }
}

void DbCrtCrv::backward(int64_t before, size_t count, const Visit& visit) {
    const Use use(*this, kSharedLock, {Tb::kCrt});
    if (count == 0) return;
    static_cast<void>(know(before));
    const auto last = std::ranges::lower_bound(positions_, before);
    for (auto at = static_cast<size_t>(last - positions_.begin()); at > 0; --at) {
        if (!visitAt(at - 1, count, visit)) return;
    }
}

void DbCrtCrv::get(int64_t id, Bytes& der) {
    const Use use(*this, kSharedLock, {Tb::kCrt});
    TableRecord record;
    if (tables_[Tb::kCrt].setRec(id) != kDbOk)
        throw StoreError(StoreCause::NotFound, "DbCrtCrv::get: blad funkcji crtTb.setRec");
    if (tables_[Tb::kCrt].data(record) != kDbOk)
        throw StoreError(StoreCause::Failed, "DbCrtCrv::get: blad funkcji crtTb.data");
    der = std::move(record.body);
}

size_t DbCrtCrv::count() {
    const Use use(*this, kSharedLock, {Tb::kCrt});
    static_cast<void>(know(INT64_MAX));
    DataFile& data = tables_[Tb::kCrt].dataFile();
    return static_cast<size_t>(
        std::ranges::count_if(positions_, [&](int64_t at) { return tables_.returnCode(data.state(at)); }));
}

CrtStore::Removed DbCrtCrv::removeCerts(const Expired& expired) {
    const DbGuard guard(*lock_, kExclusiveLock);
    return compactCerts(directory_, *lock_, expired);
}

// --- network fetch times ---

/// Looks the time up when the table can be opened; false when it must be made first.
bool DbCrtCrv::readNetCertTime(const std::string& name, int64_t& time) {
    const DbGuard guard(*lock_, kSharedLock);
    DataBase& table = tables_[Tb::kNetCertTime];
    if (table.open(tables_.path(Tb::kNetCertTime)) != kDbOk) return false;
    const Use use(*this, kSharedLock, {Tb::kNetCertTime});
    TableRecord record;
    if (tables_.returnCode(table.seekEqual(name)) && tables_.returnCode(table.data(record)) &&
        record.body.size() == sizeof time) {
        std::memcpy(&time, record.body.data(), sizeof time);
    }
    return true;
}

int64_t DbCrtCrv::getNetCertTime(const std::string& name) {
    int64_t time = 0;
    if (name.size() <= kMaxNetCertName && !readNetCertTime(name, time)) {
        const DbGuard guard(*lock_, kExclusiveLock);
        makeNetCertTime();
    }
    return time;
}

/// Makes the table when it cannot be opened. Under the exclusive lock.
void DbCrtCrv::makeNetCertTime() {
    DataBase& table = tables_[Tb::kNetCertTime];
    if (table.open(tables_.path(Tb::kNetCertTime)) == kDbOk) return table.close();
    const TableLayout& layout = netCertTimeTb;
    const std::string name = tables_.path(Tb::kNetCertTime);
    if (!lock_->beginChange() || table.create(name, layout.numIndexes, layout.descs.data()) != kDbOk) {
        throw StoreError(StoreCause::Failed, std::string(layout.createError));
    }
    static_cast<void>(syncFolder(directory_));
}

void DbCrtCrv::removeNetCertTime(const std::string& name) {
    if (getNetCertTime(name) == 0) return;
    const DbGuard guard(*lock_, kExclusiveLock);
    const Use use(*this, kExclusiveLock, {Tb::kNetCertTime});
    tables_.removeSide(Tb::kNetCertTime, std::string(keyText(name)));
    tables_.finishChange(sync());
}

void DbCrtCrv::setNetCertTime(const std::string& name) {
    if (name.size() > kMaxNetCertName)
        throw StoreError(StoreCause::Refused, "DbCrtCrv::setNetCertTime. Za dluga nazwa");
    const DbGuard guard(*lock_, kExclusiveLock);
    makeNetCertTime();
    const Use use(*this, kExclusiveLock, {Tb::kNetCertTime});
    const int64_t now = std::time(nullptr);
    const ByteView body{reinterpret_cast<const uint8_t*>(&now), sizeof now};
    DataBase& table = tables_[Tb::kNetCertTime];
    tables_.noteChange(Tb::kNetCertTime);
    if (!tables_.returnCode(table.seekEqual(name))) {
        tables_.insertInto(Tb::kNetCertTime, {name}, body, "DbCrtCrv::setNetCertTime. Blad zapisu do netCertTimeTb");
    } else if (table.update(body) != kDbOk) {
        throw StoreError(StoreCause::Failed, "DbCrtCrv::setNetCertTime. Blad zapisu do netCertTimeTb");
    }
    tables_.finishChange(sync());
}

}  // namespace crv
