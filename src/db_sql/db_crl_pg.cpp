#include "db_sql/db_crl_pg.h"

#include "db_sql/crt_keys.h"
#include "misc/exceptions.h"

namespace crv {

namespace {

constexpr PgStatement kLockIssuer{"crv_crl_lock", "SELECT pg_advisory_xact_lock($1::bigint)"};
constexpr PgStatement kRowsOfIssuer{"crv_crl_issuer",
                                    "SELECT number, entry FROM corvane.crl WHERE issuer = $1::bytea ORDER BY number"};
constexpr PgStatement kAllRows{"crv_crl_index", "SELECT number, entry FROM corvane.crl ORDER BY number"};
constexpr PgStatement kAllCrls{"crv_crl_all", "SELECT number, entry, der FROM corvane.crl ORDER BY number"};
constexpr PgStatement kOneCrl{"crv_crl_one", "SELECT number, entry, der FROM corvane.crl WHERE number = $1::bigint"};
constexpr PgStatement kAddCrl{"crv_crl_add",
                              "INSERT INTO corvane.crl (issuer, entry, der) VALUES ($1::bytea, $2::bytea, $3::bytea) "
                              "RETURNING number"};
/// The row may have been deleted since it was looked at.
constexpr PgStatement kReplaceCrl{
    "crv_crl_replace",
    "INSERT INTO corvane.crl (issuer, entry, der, number) VALUES ($1::bytea, $2::bytea, $3::bytea, $4::bigint) "
    "ON CONFLICT (number) DO UPDATE SET issuer = excluded.issuer, entry = excluded.entry, der = excluded.der"};
constexpr PgStatement kDeleteCrl{"crv_crl_delete",
                                 "DELETE FROM corvane.crl WHERE number = $1::bigint RETURNING number"};

constexpr PgStatement kSrvs{"crv_srv_all", "SELECT name, number FROM corvane.server"};
constexpr PgStatement kSrv{"crv_srv_get", "SELECT number FROM corvane.server WHERE name = $1::bytea"};
constexpr PgStatement kPutSrv{"crv_srv_put",
                              "INSERT INTO corvane.server VALUES ($1::bytea, $2::bigint) "
                              "ON CONFLICT (name) DO UPDATE SET number = excluded.number"};
constexpr PgStatement kDeleteSrv{"crv_srv_delete", "DELETE FROM corvane.server WHERE name = $1::bytea"};

int64_t lockKeyOf(const DistinguishedName& issuer) {
    const DbHash hash = dnHash(issuer);
    uint64_t key = 0;
    for (size_t i = 0; i < sizeof key; ++i) key = key << 8 | hash[i];
    return static_cast<int64_t>(key);
}

void readEntry(const PgResult& found, int row, CrlIndexEntry& entry) {
    if (!entry.readExactly(found.octets(row, 1)))
        throw StoreError(StoreCause::Damaged, "Niepoprawny format indeksu list CRL");
    entry.number.setValue(static_cast<long>(found.number(row, 0)));
}

CrlIndex indexOf(const PgResult& found) {
    CrlIndex index;
    for (int row = 0; row < found.rows(); ++row) readEntry(found, row, index.add());
    return index;
}

}  // namespace

void DbCrlPg::insertion(const DistinguishedName& issuer, const std::function<void()>& work) {
    PgTransaction transaction(*session_, PgTransaction::Kind::Change);
    session_->run(kLockIssuer, PgValues().number(lockKeyOf(issuer)));
    work();
    transaction.commit();
}

CrlIndex DbCrlPg::rowsOf(const DistinguishedName& issuer) {
    return indexOf(session_->run(kRowsOfIssuer, PgValues().octets(dnHash(issuer))));
}

Bytes DbCrlPg::loadCrl(long number) {
    const PgResult found = session_->run(kOneCrl, PgValues().number(number));
    return found.rows() > 0 ? toBytes(found.octets(0, 2)) : Bytes();
}

void DbCrlPg::put(CrlIndex&, CrlIndexEntry* place, CrlIndexEntry& fresh, ByteView der) {
    fresh.number.setValue(place ? place->fileNumber() : 0);
    PgValues values;
    values.octets(dnHash(fresh.issuer)).octets(fresh.encoded()).octets(der);
    if (place) {
        session_->run(kReplaceCrl, values.number(place->fileNumber()));
    } else {
        fresh.number.setValue(static_cast<long>(session_->run(kAddCrl, values).number(0, 0)));
    }
}

void DbCrlPg::drop(CrlIndex&, long number) {
    session_->run(kDeleteCrl, PgValues().number(number));
}

bool DbCrlPg::deleteCrl(long number) {
    const PgUse use(*session_);
    return session_->run(kDeleteCrl, PgValues().number(number)).rows() > 0;
}

void DbCrlPg::getAllCrls(std::vector<Bytes>& list) {
    const PgUse use(*session_);
    const PgResult found = session_->run(kAllCrls);
    for (int row = 0; row < found.rows(); ++row) {
        CrlIndexEntry entry;
        readEntry(found, row, entry);
        if (isSound(entry, found.octets(row, 2))) list.push_back(toBytes(found.octets(row, 2)));
    }
}

void DbCrlPg::getCrlIndex(CrlIndex& index) {
    const PgUse use(*session_);
    index = indexOf(session_->run(kAllRows));
}

bool DbCrlPg::getCrlByFileNum(long number, Bytes& der) {
    const PgUse use(*session_);
    const PgResult found = session_->run(kOneCrl, PgValues().number(number));
    if (found.rows() == 0) return false;
    CrlIndexEntry entry;
    readEntry(found, 0, entry);
    der = toBytes(found.octets(0, 2));
    return isSound(entry, der);
}

// --- import numbers ---

void DbSrvPg::delSrv(const std::string& name) {
    const PgUse use(*session_);
    session_->run(kDeleteSrv, PgValues().octets(asBytes(name)));
}

long DbSrvPg::getLastImportNr(const std::string& name) {
    const PgUse use(*session_);
    const PgResult found = session_->run(kSrv, PgValues().octets(asBytes(name)));
    return found.rows() > 0 ? static_cast<long>(found.number(0, 0)) : 0;
}

SrvStore::Numbers DbSrvPg::read() {
    const PgUse use(*session_);
    const PgResult found = session_->run(kSrvs);
    Numbers numbers;
    for (int row = 0; row < found.rows(); ++row)
        numbers[std::string(asText(found.octets(row, 0)))] = static_cast<long>(found.number(row, 1));
    return numbers;
}

void DbSrvPg::put(const std::string& name, long number) {
    const PgUse use(*session_);
    session_->run(kPutSrv, PgValues().octets(asBytes(name)).number(number));
}

}  // namespace crv
