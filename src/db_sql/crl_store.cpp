#include "db_sql/crl_store.h"

#include <algorithm>

#include "asn/known_oids.h"
#include "asn/x509/signed_cert_rev_list.h"
#include "crypto/kc_hash.h"
#include "misc/exceptions.h"
#include "misc/file_ops.h"
#include "misc/logger.h"
#include "misc/whole_file.h"

namespace crv {

namespace {

/// An authority that changes its key issues CRLs under both for a while, and deltas stand beside the complete ones (RFC
/// 5280 5.2.4): neither may take the other's place. The scope, a critical extension (5.2.5), is compared by the caller.
bool sameAuthority(const CrlIndexEntry& a, const CrlIndexEntry& b) {
    return a.isDelta() == b.isDelta() && a.authorityKeyId.has_value() == b.authorityKeyId.has_value() &&
           (!a.authorityKeyId || *a.authorityKeyId == *b.authorityKeyId) && a.issuer == b.issuer;
}

long freeNumber(const CrlIndex& index) {
    long last = 0;
    for (const CrlIndexEntry& entry : index) last = std::max(last, entry.fileNumber());
    return last + 1;
}

}  // namespace

bool CrlStore::isSound(const CrlIndexEntry& row, ByteView der) {
    return !der.empty() && std::ranges::equal(hashOf(KcHashAlgo::Sha256, der), row.sha256.value());
}

bool CrlStore::readSound(const CrlIndexEntry& row, Bytes& der) {
    der = loadCrl(row.fileNumber());
    return isSound(row, der);
}

CrlIndex CrlIndexStore::readIndex() {
    CrlIndex index;
    if (!parseCrlIndex(loadIndex(), index)) {
        throw StoreError(StoreCause::Damaged, "Niepoprawny format indeksu list CRL");
    }
    return index;
}

CrlInsert CrlStore::insertCrl(ByteView der, bool verified) {
    ParsedCrl parsed;
    if (!parseCrl(der, parsed)) return CrlInsert::Malformed;
    if (verified) parsed.entry.verified.emplace().setValue(true);
    CrlInsert result = CrlInsert::Stored;
    insertion(parsed.entry.issuer, [&] { result = insertLocked(parsed, der); });
    return result;
}

/// A row whose file is lost or damaged gives its place away: whatever it was, it can no longer be compared.
CrlInsert CrlStore::insertLocked(ParsedCrl& parsed, ByteView der) {
    CrlIndexEntry& fresh = parsed.entry;
    CrlIndex index = rowsOf(fresh.issuer);
    CrlIndexEntry* place = nullptr;
    CrlIndexEntry* unverified = nullptr;  // the same CRL, which did not verify then
    for (CrlIndexEntry& row : index) {
        if (!sameAuthority(row, fresh)) continue;
        const bool sameRank = row.isVerified() == fresh.isVerified();
        Bytes stored;
        ParsedCrl old;
        if (!readSound(row, stored) || !parseCrl(stored, old)) {
            if (!place && sameRank) place = &row;
            continue;
        }
        if (old.scope != parsed.scope) continue;
        if (std::ranges::equal(stored, der)) {
            if (sameRank || row.isVerified()) return CrlInsert::Present;
            unverified = &row;
        } else if (sameRank) {
            if (!isNewer(fresh, row)) return CrlInsert::Older;
            place = &row;
        }
    }
    const long superfluous = place && unverified ? unverified->fileNumber() : 0;
    if (!place) place = unverified;
    put(index, place, fresh, der);
    if (superfluous != 0) drop(index, superfluous);
    return CrlInsert::Stored;
}

void CrlIndexStore::insertion(const DistinguishedName&, const std::function<void()>& work) {
    locked(kExclusiveLock, work);
}

CrlIndex CrlIndexStore::rowsOf(const DistinguishedName&) {
    return readIndex();
}

void CrlIndexStore::put(CrlIndex& index, CrlIndexEntry* place, CrlIndexEntry& fresh, ByteView der) {
    fresh.number.setValue(place ? place->fileNumber() : freeNumber(index));
    (place ? *place : index.add()) = fresh;
    save(fresh.fileNumber(), index.encoded(), der);
}

void CrlIndexStore::drop(CrlIndex& index, long number) {
    for (size_t row = index.size(); row-- > 0;) {
        if (index[row].fileNumber() == number) static_cast<void>(index.remove(row));
    }
    erase(number, index.encoded());
}

bool CrlIndexStore::deleteCrl(long number) {
    bool found = false;
    locked(kExclusiveLock, [&] {
        CrlIndex index = readIndex();
        found = std::ranges::find(index, number, &CrlIndexEntry::fileNumber) != index.end();
        if (found) drop(index, number);
    });
    return found;
}

void CrlIndexStore::getAllCrls(std::vector<Bytes>& list) {
    locked(kSharedLock, [&] {
        Bytes der;
        for (const CrlIndexEntry& row : readIndex()) {
            if (readSound(row, der)) list.push_back(std::move(der));
        }
    });
}

void CrlIndexStore::getCrlIndex(CrlIndex& index) {
    locked(kSharedLock, [&] { index = readIndex(); });
}

bool CrlIndexStore::getCrlByFileNum(long number, Bytes& der) {
    bool found = false;
    locked(kSharedLock, [&] {
        for (const CrlIndexEntry& row : readIndex()) {
            if (row.fileNumber() == number && !found) found = readSound(row, der);
        }
    });
    return found;
}

/// A reader may find the index damaged and then needs the exclusive lock for a moment. A writer takes the index back
/// and fails once, so that the user hears of it.
void DbCrlCrv::locked(int mode, const std::function<void()>& work) {
    bool sound = true;
    if (mode == kSharedLock) {
        const DbGuard guard(*lock_, kSharedLock);
        sound = files_.isIndexSound();
        if (sound) return work();
    }
    if (!sound) {
        const DbGuard guard(*lock_, kExclusiveLock);
        change([&] { files_.rollback(0); });
    }
    const DbGuard guard(*lock_, mode);
    if (mode != kSharedLock && !files_.isIndexSound()) change([&] { files_.checkIndexOrRollback(0); });
    work();
}

Bytes DbCrlCrv::loadCrl(long number) {
    return number > 0 && fileExists(files_.crlPath(number)) ? files_.readCrl(number) : Bytes();
}

/// Changes files under the mark. Where that fails without the process dying, the files are put right at once: mending
/// after a crash looks at the whole database.
void DbCrlCrv::change(const std::function<void()>& work) {
    if (!lock_->beginChange(DbMark::ChangingCrls)) {
        throw StoreError(StoreCause::Failed, "writeFile: blad zapisy pliku");
    }
    try {
        work();
    } catch (const std::exception&) {
        try {
            static_cast<void>(files_.mend());
        } catch (const std::exception& e) {
            lock_->spoil();
            logLine(LogLevel::Error, "CRL files not mended: ", e.what());
        }
        throw;
    }
}

void DbCrlCrv::save(long number, ByteView index, ByteView der) {
    change([&] { files_.write(number, index, der); });
}

void DbCrlCrv::erase(long number, ByteView index) {
    change([&] { files_.erase(number, index); });
}

void DbCrlMem::locked(int, const std::function<void()>& work) {
    const std::scoped_lock guard(mutex_);
    work();
}

Bytes DbCrlMem::loadCrl(long number) {
    const auto found = crls_.find(number);
    return found == crls_.end() ? Bytes() : found->second;
}

void DbCrlMem::save(long number, ByteView index, ByteView der) {
    crls_[number] = toBytes(der);
    index_ = toBytes(index);
}

void DbCrlMem::erase(long number, ByteView index) {
    crls_.erase(number);
    index_ = toBytes(index);
}

}  // namespace crv
