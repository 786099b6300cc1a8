#include "db_sql/db_pg_keys_check.h"

#include <algorithm>

#include "db_sql/crl_index.h"
#include "db_sql/crt_keys.h"
#include "db_sql/db_pg_crt_row.h"

namespace crv {

namespace {

/// A page of certificates: id, the columns in their order, the fields.
constexpr PgStatement kRows{"crv_check_rows",
                            "SELECT id, " CRV_PG_COLUMNS
                            ", ARRAY(SELECT f.field FROM corvane.dn_field f WHERE f.crt = c.id ORDER BY f.field) "
                            "FROM corvane.crt c WHERE id > $1::bigint ORDER BY id LIMIT 256"};
constexpr int kDerColumn = 9, kFieldsColumn = 10;
/// Fields that are right stay, so none is deleted and stored in one statement.
constexpr PgStatement kMend{
    "crv_mend_keys",
    "WITH kept AS (UPDATE corvane.crt SET ser_num = $2::bytea, sbj_dn = $3::bytea, key_id = $4::bytea, "
    "crt_hash = $5::bytea, email = $6::bytea, is_ca = $7::boolean, not_after = $8::bigint "
    "WHERE id = $11::bigint AND sha256 = $1::bytea AND der = $9::bytea RETURNING id), "
    "gone AS (DELETE FROM corvane.dn_field USING kept WHERE crt = kept.id AND field <> ALL ($10::bytea[])), "
    "added AS (INSERT INTO corvane.dn_field (field, crt) SELECT unnest($10::bytea[]), id FROM kept "
    "ON CONFLICT DO NOTHING) SELECT count(*) FROM kept"};
constexpr PgStatement kCrls{"crv_check_crls",
                            "SELECT number, issuer, entry, sha256(der) FROM corvane.crl ORDER BY number"};
constexpr PgStatement kMendCrl{
    "crv_mend_crl",
    "UPDATE corvane.crl SET issuer = $2::bytea WHERE number = $1::bigint AND entry = $3::bytea RETURNING number"};

enum class Fault { None, NotIt, Keys, Fields };

/// Fills in what the columns and the fields must be, where they are not.
Fault faultOf(const PgResult& found, int row, PgValues& right) {
    const ByteView der = found.octets(row, kDerColumn);
    const Bytes sha256 = pgKeyOf(der);
    if (!std::ranges::equal(sha256, found.octets(row, 1))) return Fault::NotIt;
    CrtRecord record;
    if (!makeCrtRecord(der, record)) return Fault::None;  // nobody knows what its keys were
    addPgColumns(right.clear(), record, sha256).list(pgFieldsOf(record));
    const PgValues::Pointers wanted = right.pointers();
    for (int column = 1; column <= kFieldsColumn; ++column) {
        const auto at = static_cast<size_t>(column - 1);
        const ByteView want(reinterpret_cast<const uint8_t*>(wanted.values[at]),
                            static_cast<size_t>(wanted.lengths[at]));
        if (found.isNull(row, column) == !wanted.values[at] && std::ranges::equal(want, found.octets(row, column)))
            continue;
        return column == kFieldsColumn ? Fault::Fields : Fault::Keys;
    }
    return Fault::None;
}

void checkCertificates(PgSession& session, const PgFinding& tell, bool mend) {
    PgValues right;
    PgResult page;
    for (int64_t last = 0;; last = page.number(page.rows() - 1, 0)) {
        page = session.run(kRows, PgValues().number(last));
        if (page.rows() == 0) return;
        for (int row = 0; row < page.rows(); ++row) {
            const Fault fault = faultOf(page, row, right);
            const std::string at = " at " + std::to_string(page.number(row, 0));
            if (fault == Fault::NotIt && !mend) tell("crt", "not the certificate that was stored" + at);
            if (fault == Fault::None || fault == Fault::NotIt) continue;
            const bool fields = fault == Fault::Fields;
            if (!mend) {
                tell(fields ? "dn_field" : "crt",
                     (fields ? "not the fields of the certificate" : "keys of another certificate") + at);
            } else if (session.run(kMend, right.number(page.number(row, 0))).number(0, 0) > 0) {
                tell(fields ? "dn_field" : "crt", (fields ? "fields written anew" : "keys written anew") + at);
            }
        }
    }
}

void checkCrls(PgSession& session, const PgFinding& tell, bool mend) {
    const PgResult found = session.run(kCrls);
    for (int row = 0; row < found.rows(); ++row) {
        const std::string at = " at " + std::to_string(found.number(row, 0));
        CrlIndexEntry entry;
        if (!entry.readExactly(found.octets(row, 2)) ||
            !std::ranges::equal(entry.sha256.value(), found.octets(row, 3))) {
            if (!mend) tell("crl", "not the CRL that its row names" + at);
            continue;
        }
        const DbHash issuer = dnHash(entry.issuer);
        if (std::ranges::equal(issuer, found.octets(row, 1))) continue;
        const auto mended = [&] {
            const PgValues values = PgValues().number(found.number(row, 0)).octets(issuer).octets(found.octets(row, 2));
            return session.run(kMendCrl, values).rows() > 0;
        };
        if (mend && !mended()) continue;  // deleted or replaced meanwhile
        tell("crl", (mend ? "key written anew" : "key of another issuer") + at);
    }
}

}  // namespace

void checkPgKeys(PgSession& session, const PgFinding& tell, bool mend) {
    const PgUse use(session);
    checkCertificates(session, tell, mend);
    checkCrls(session, tell, mend);
}

}  // namespace crv
