#include "db_sql/crl_store.h"

#include <algorithm>

#include "asn/known_oids.h"
#include "asn/x509/signed_cert_rev_list.h"
#include "corvane/crverrors.h"
#include "crypto/kc_hash.h"
#include "misc/exceptions.h"
#include "misc/file_ops.h"
#include "misc/logger.h"
#include "misc/whole_file.h"

namespace crv {

namespace {

/// What the store needs to know of a CRL. The scope is that of RFC 5280 5: the issuing distribution point, octet for
/// octet.
struct ParsedCrl {
    CrlIndexEntry entry;
    Bytes scope;
};

bool parseCrl(ByteView der, ParsedCrl& parsed) {
    SignedCertRevList crl;
    if (!crl.readExactly(der, ASN_FLAG_CONST) || !crl.thisUpdate()) return false;
    CrlIndexEntry& entry = parsed.entry;
    static_cast<void>(entry.issuer.copyObject(crl.issuer()));
    entry.thisUpdate.setSeconds(*crl.thisUpdate());
    if (const auto next = crl.nextUpdate()) entry.nextUpdate.emplace().setSeconds(*next);
    if (const auto number = crl.crlNumber()) entry.crlNumber.emplace().setUnsigned(number->magnitude());
    if (const auto base = crl.baseCrlNumber()) entry.baseCrlNumber.emplace().setUnsigned(base->magnitude());
    if (const Bytes keyId = crl.authorityKeyId(); !keyId.empty()) entry.authorityKeyId.emplace().build(keyId);
    entry.sha256.build(hashOf(KcHashAlgo::Sha256, der));
    if (const Extension* point = crl.extensions().find(OID_CE_ISSUING_DISTRIBUTION_POINT)) {
        parsed.scope = toBytes(point->extnValue.value());
    }
    return true;
}

/// No store comes near it: an authority has one row for each scope of its CRLs.
constexpr long kMostFiles = 1'000'000;

bool sameAuthority(const CrlIndexEntry& a, const CrlIndexEntry& b) {
    return a.isDelta() == b.isDelta() && a.authorityKeyId.has_value() == b.authorityKeyId.has_value() &&
           (!a.authorityKeyId || *a.authorityKeyId == *b.authorityKeyId) && a.issuer == b.issuer;
}

bool isNewer(const CrlIndexEntry& a, const CrlIndexEntry& b) {
    const int order = a.crlNumber && b.crlNumber ? compareNumbers(*a.crlNumber, *b.crlNumber) : 0;
    return order != 0 ? order > 0 : a.issued() > b.issued();
}

long freeNumber(const CrlIndex& index) {
    long last = 0;
    for (const CrlIndexEntry& entry : index) last = std::max(last, entry.fileNumber());
    return last + 1;
}

}  // namespace

/// Reads the stored CRL of a row. A change that was cut off leaves a row for a file that was not written, and the
/// former CRL with its tag: that one counts.
bool CrlStore::readSound(const CrlIndexEntry& row, Bytes& der, CrlIndexEntry& entry, Bytes& scope) {
    const long number = row.fileNumber();
    der = loadCrl(number);
    ParsedCrl parsed;
    if (der.empty() || !parseCrl(der, parsed)) return false;
    if (!(parsed.entry.sha256 == row.sha256) && !isTagged(number)) return false;
    entry = std::move(parsed.entry);
    entry.number.setValue(number);
    scope = std::move(parsed.scope);
    return true;
}

CrlIndex CrlStore::readIndex() {
    CrlIndex index;
    const bool sound = index.readExactly(loadIndex()) && std::ranges::all_of(index, [](const CrlIndexEntry& row) {
                           return row.fileNumber() > 0 && row.fileNumber() <= kMostFiles;
                       });
    if (!sound) throw StoreError(StoreCause::Damaged, "Niepoprawny format indeksu list CRL");
    return index;
}

CrlInsert CrlStore::insertCrl(ByteView der) {
    ParsedCrl parsed;
    if (!parseCrl(der, parsed)) throw CrvApiException(ECRV_INV_CRL_FMT);
    CrlInsert result = CrlInsert::Stored;
    locked(kExclusiveLock, [&] { result = insertLocked(parsed.entry, parsed.scope, der); });
    return result;
}

CrlInsert CrlStore::insertLocked(CrlIndexEntry& fresh, ByteView scope, ByteView der) {
    CrlIndex index = readIndex();
    CrlIndexEntry* place = nullptr;
    for (CrlIndexEntry& row : index) {
        if (!sameAuthority(row, fresh)) continue;
        Bytes stored, storedScope;
        CrlIndexEntry entry;
        if (!readSound(row, stored, entry, storedScope)) {
            if (!place) place = &row;
            continue;
        }
        if (!sameAuthority(entry, fresh) || !std::ranges::equal(storedScope, scope)) continue;
        if (std::ranges::equal(stored, der)) return CrlInsert::Present;
        if (!isNewer(fresh, entry)) return CrlInsert::Older;
        place = &row;
    }
    fresh.number.setValue(place ? place->fileNumber() : freeNumber(index));
    (place ? *place : index.add()) = fresh;
    save(fresh.fileNumber(), index.encoded(), der);
    return CrlInsert::Stored;
}

void CrlStore::forEach(const std::function<bool(const CrlIndexEntry&, Bytes&)>& visit) {
    locked(kSharedLock, [&] {
        for (const CrlIndexEntry& row : readIndex()) {
            Bytes der, scope;
            CrlIndexEntry entry;
            if (readSound(row, der, entry, scope) && !visit(entry, der)) return;
        }
    });
}

void CrlStore::getAllCrls(std::vector<Bytes>& list) {
    forEach([&](const CrlIndexEntry&, Bytes& der) {
        list.push_back(std::move(der));
        return true;
    });
}

void CrlStore::getCrlIndex(CrlIndex& index) {
    locked(kSharedLock, [&] { index = readIndex(); });
}

bool CrlStore::getCrlByFileNum(long number, Bytes& der) {
    bool found = false;
    locked(kSharedLock, [&] {
        for (const CrlIndexEntry& row : readIndex()) {
            CrlIndexEntry entry;
            Bytes scope;
            if (row.fileNumber() == number && !found) found = readSound(row, der, entry, scope);
        }
    });
    return found;
}

void DbCrlCrv::locked(int mode, const std::function<void()>& work) {
    const DbGuard guard(*lock_, mode);
    work();
}

Bytes DbCrlCrv::loadCrl(long number) {
    return number > 0 && fileExists(files_.crlPath(number)) ? files_.readCrl(number) : Bytes();
}

/// A damaged file makes the write fail after the index was taken back; the damaged files then go, so that the next
/// write finds a sound store. A CRL that is what the index said is not damaged: only its tag had not been written.
void DbCrlCrv::save(long number, ByteView index, ByteView der) {
    try {
        files_.write(number, index, der);
    } catch (const StoreError&) {
        dropDamaged(number, index);
        throw;
    }
}

void DbCrlCrv::dropDamaged(long last, ByteView written) {
    CrlIndex index = readIndex(), known;
    static_cast<void>(known.readExactly(written));
    for (long number = 1; number < last; ++number) {
        if (files_.checkCrl(number) != 1) continue;
        for (size_t row = index.size(); row-- > 0;) {
            if (index[row].fileNumber() == number) static_cast<void>(index.remove(row));
        }
        const Bytes der = loadCrl(number), hash = hashOf(KcHashAlgo::Sha256, der);
        const auto intact = std::ranges::find_if(known, [&](const CrlIndexEntry& row) {
            return row.fileNumber() == number && std::ranges::equal(row.sha256.value(), hash);
        });
        if (intact != known.end()) {
            index.add() = *intact;
            files_.writeTag(number, der);
            continue;
        }
        logLine(LogLevel::Error, "damaged CRL removed: " + files_.crlPath(number));
        fileOps().unlink(files_.crlPath(number));
        fileOps().unlink(files_.tagPath(number));
    }
    files_.writeIndex(index.encoded());
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

}  // namespace crv
