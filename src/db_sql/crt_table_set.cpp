#include "db_sql/crt_table_set.h"

#include <algorithm>
#include <utility>

#include "db_sql/dn_fld.h"
#include "db_sql/no_oop.h"
#include "misc/exceptions.h"

namespace crv {

std::string dnFldKey(uint8_t type, std::string value) {
    return static_cast<char>(type) + dnFldValue(std::move(value));
}

std::array<std::string, 3> crtTbKeys(const CrtRecord& record) {
    return {codeDigest(record.serNumHash), record.email, codeDigest(record.sbjDnHash)};
}

std::array<std::string, 2> addIdxKeys(const CrtRecord& record) {
    return {std::string(keyText(asText(record.keyId))), std::string(keyText(asText(record.crtHash)))};
}

CrtTableSet::CrtTableSet(std::string directory) : directory_(std::move(directory)) {}

void CrtTableSet::bindLock(DbLock* lock) {
    for (DataBase& table : tables_) table.bindLock(lock);
}

void CrtTableSet::open(Tb table, bool forChange) {
    changed_[table] = false;
    const TableLayout& layout = *kLayouts[table];
    const DataFile& data = tables_[table].dataFile();
    const bool opened = tables_[table].open(path(table)) == kDbOk;
    // With other key lengths than those of the layout insertions would succeed and be lost at the next repair.
    if (!opened || !layout.isThatOf(data))
        throw StoreError(StoreCause::NotOpened, std::string(kLayouts[table]->openError));
    tables_[table].deferWrites(forChange);
}

bool CrtTableSet::returnCode(DbAnswer answer) {
    switch (answer) {
        case kDbOk:
            return true;
        case kDbNoRecord:
        case kDbDeleted:
        case kDbGreater:
            return false;
        case kDbError:
            throw StoreError(StoreCause::Failed, "Blad bazy danych");
        default:
            failAssertion("0", "src/db_sql/db_crt_crv", __LINE__);
    }
}

void CrtTableSet::forEachEqual(Tb table, int index, std::string_view key, const Visit& visit) {
    DataBase& in = tables_[table];
    in.selectIndex(index);
    TableRecord record;
    for (bool found = returnCode(in.seekEqual(key)); found; found = returnCode(in.skip(1))) {
        if (!returnCode(in.data(record)) || record.keys[static_cast<size_t>(index)] != keyText(key)) return;
        if (!visit(record)) return;
    }
}

bool CrtTableSet::readCrt(int64_t id, Bytes& der) {
    TableRecord record;
    if (!returnCode(tables_[kCrt].dataFile().data(id, record, false))) return false;
    der = std::move(record.body);
    return true;
}

int64_t CrtTableSet::insertInto(Tb table, std::initializer_list<std::string_view> keys, ByteView body,
                                const char* failure) {
    int64_t recNo = 0;
    noteChange(table);
    if (tables_[table].insert({keys.begin(), keys.size()}, body, recNo) != kDbOk)
        throw StoreError(StoreCause::Failed, failure);
    return recNo;
}

void CrtTableSet::insertSide(const std::string& idKey, const CrtRecord& record) {
    for (const DnFld& field : record.dnFlds) {
        insertInto(kDn, {idKey, dnFldKey(field.type, field.value)}, {},
                   "DbCrtCrv::insertIntoDnTb. Blad wstawienie do dnTb");
    }
    if (record.isCa) insertInto(kCa, {idKey}, {}, "DbCrtCrv::insertIntoCaTb. Blad wstawienie do caTb");
}

void CrtTableSet::insertAddIdx(const std::string& idKey, const CrtRecord& record) {
    const auto keys = addIdxKeys(record);
    insertInto(kAddIdx, {idKey, keys[0], keys[1]}, {}, "DbCrtCrv::insertIntoCaTb. Blad wstawienie do addIdxTb");
}

int64_t CrtTableSet::recNo(Tb table) {
    int64_t number = 0;
    return returnCode(tables_[table].recNo(number)) ? number : 0;
}

int64_t CrtTableSet::insertCrt(const CrtRecord& record) {
    const auto keys = crtTbKeys(record);
    const int64_t id =
        insertInto(kCrt, {keys[0], keys[1], keys[2]}, record.der, "DbCrtCrv::insertCert. Blad zapisu do crtTb");
    const std::string idKey = recNoEncode(id);
    insertSide(idKey, record);
    insertAddIdx(idKey, record);
    return id;
}

bool CrtTableSet::sideHas(Tb table, const std::string& idKey, std::string_view second) {
    bool found = false;
    forEachEqual(table, kDnByRecId, idKey, [&](const TableRecord& record) {
        found = second.empty() || record.keys[1] == keyText(second);
        return !found;
    });
    return found;
}

void CrtTableSet::completeSide(int64_t id, const CrtRecord& record) {
    const std::string idKey = recNoEncode(id);
    CrtRecord missing;
    std::ranges::copy_if(record.dnFlds, std::back_inserter(missing.dnFlds),
                         [&](const DnFld& field) { return !sideHas(kDn, idKey, dnFldKey(field.type, field.value)); });
    missing.isCa = record.isCa && !sideHas(kCa, idKey);
    insertSide(idKey, missing);
    if (!sideHas(kAddIdx, idKey)) insertAddIdx(idKey, record);
}

void CrtTableSet::removeSide(Tb table, const std::string& idKey) {
    DataBase& side = tables_[table];
    side.selectIndex(kDnByRecId);
    TableRecord record;
    while (returnCode(side.seekEqual(idKey)) && returnCode(side.data(record)) && record.keys[0] == idKey) {
        noteChange(table);
        if (!returnCode(side.remove())) return;
    }
}

void CrtTableSet::finishChange(bool sync) {
    for (size_t table = 0; table < kCount; ++table) {
        if (!changed_[table]) continue;
        const bool done = (sync ? tables_[table].sync() : tables_[table].endBatch()) == kDbOk;
        if (!done) throw StoreError(StoreCause::Failed, "Blad bazy danych");
    }
    changed_.fill(false);
}

}  // namespace crv
