#include "db_sql/db_crt_pg.h"

#include <algorithm>
#include <map>
#include <set>
#include <utility>

#include "db_sql/db_pg_crt_row.h"
#include "db_sql/db_pg_schema.h"
#include "misc/exceptions.h"

namespace crv {

namespace {

// Of equal keys the newest comes first, as the tables on disk have them.
constexpr PgStatement kBySerNum{"crv_ser_num",
                                "SELECT id, der FROM corvane.crt WHERE ser_num = $1::bytea ORDER BY id DESC"};
constexpr PgStatement kBySbjDn{"crv_sbj_dn",
                               "SELECT id, der FROM corvane.crt WHERE sbj_dn = $1::bytea ORDER BY id DESC"};
constexpr PgStatement kByKeyId{"crv_key_id",
                               "SELECT id, der FROM corvane.crt WHERE key_id = $1::bytea ORDER BY id DESC"};
constexpr PgStatement kByCrtHash{"crv_crt_hash",
                                 "SELECT id, der FROM corvane.crt WHERE crt_hash = $1::bytea ORDER BY id DESC"};
constexpr PgStatement kByField{"crv_field",
                               "SELECT c.id, c.der FROM corvane.dn_field f JOIN corvane.crt c ON c.id = f.crt "
                               "WHERE f.field = $1::bytea ORDER BY f.crt DESC"};
constexpr PgStatement kCas{"crv_cas", "SELECT id, der FROM corvane.crt WHERE is_ca ORDER BY id"};

constexpr PgStatement kForward{"crv_forward",
                               "SELECT id, der FROM corvane.crt WHERE id > $1::bigint ORDER BY id LIMIT $2::bigint"};
constexpr PgStatement kBackward{
    "crv_backward", "SELECT id, der FROM corvane.crt WHERE id < $1::bigint ORDER BY id DESC LIMIT $2::bigint"};
constexpr PgStatement kGet{"crv_get", "SELECT der FROM corvane.crt WHERE id = $1::bigint"};
constexpr PgStatement kCount{"crv_count", "SELECT count(*) FROM corvane.crt"};

/// The lock is taken before the id: the row that the insertion waits for is the lock's.
constexpr PgStatement kInsert{
    "crv_insert",
    "WITH turn AS MATERIALIZED (SELECT pg_advisory_xact_lock(" CRV_PG_INSERT_LOCK
    ") AS had), stored AS (INSERT INTO corvane.crt (" CRV_PG_COLUMNS
    ") SELECT $1::bytea, $2::bytea, $3::bytea, $4::bytea, $5::bytea, $6::bytea, $7::boolean, $8::bigint, $9::bytea "
    "FROM turn WHERE had IS NOT NULL ON CONFLICT (sha256) DO NOTHING RETURNING id), "
    "fields AS (INSERT INTO corvane.dn_field (field, crt) SELECT unnest($10::bytea[]), id FROM stored) "
    "SELECT id FROM stored"};

constexpr const char* kMakeIncoming =
    "CREATE TEMPORARY TABLE IF NOT EXISTS corvane_incoming (sha256 bytea, ser_num bytea, sbj_dn bytea, "
    "key_id bytea, crt_hash bytea, email bytea, is_ca boolean, not_after bigint, der bytea, n bigint) "
    "WITH (toast_tuple_target = 8160) ON COMMIT DELETE ROWS";
/// Two removals that meet the same certificates in different orders would wait for each other.
constexpr const char* kTakeRemovalTurn = "SELECT pg_advisory_xact_lock(4857398251074617346)";
constexpr PgStatement kPresent{"crv_present", "SELECT sha256 FROM corvane.crt WHERE sha256 = ANY ($1::bytea[])"};
constexpr const char* kTakeTurn = "SELECT pg_advisory_xact_lock(" CRV_PG_INSERT_LOCK ")";
constexpr const char* kCopyIncoming = "COPY pg_temp.corvane_incoming FROM STDIN (FORMAT binary)";
constexpr PgStatement kTakeIncoming{"crv_take",
                                    "INSERT INTO corvane.crt (" CRV_PG_COLUMNS ") SELECT " CRV_PG_COLUMNS
                                    " FROM pg_temp.corvane_incoming ORDER BY n ON CONFLICT (sha256) DO NOTHING "
                                    "RETURNING sha256, id"};
/// One message, since the lock is held: while a server reads a COPY neither the limit of a statement nor that of an
/// idle transaction ends its wait for a client that was stopped.
constexpr PgStatement kInsertFields{
    "crv_insert_fields", "INSERT INTO corvane.dn_field (field, crt) SELECT * FROM unnest($1::bytea[], $2::bigint[])"};

#define CRV_PG_DELETE(condition)                             \
    "WITH gone AS (DELETE FROM corvane.crt WHERE " condition \
    " RETURNING id), "                                       \
    "fields AS (DELETE FROM corvane.dn_field USING gone WHERE crt = gone.id) SELECT count(*) FROM gone"
constexpr PgStatement kDelete{"crv_delete",
                              CRV_PG_DELETE("id = $1::bigint AND ($2::bytea IS NULL OR crt_hash = $2::bytea)")};
constexpr PgStatement kDeleteOverTime{"crv_delete_over_time", CRV_PG_DELETE("not_after < $1::bigint")};
constexpr PgStatement kDeleteThese{"crv_delete_these", CRV_PG_DELETE("sha256 = ANY($1::bytea[])")};

constexpr PgStatement kSetTime{"crv_set_time",
                               "INSERT INTO corvane.net_cert_time VALUES ($1::bytea, "
                               "floor(extract(epoch FROM clock_timestamp()))::bigint) "
                               "ON CONFLICT (name) DO UPDATE SET time = excluded.time"};
constexpr PgStatement kGetTime{"crv_get_time", "SELECT time FROM corvane.net_cert_time WHERE name = $1::bytea"};
constexpr PgStatement kDropTime{"crv_drop_time", "DELETE FROM corvane.net_cert_time WHERE name = $1::bytea"};

/// What one transaction of an import takes: about a tenth of a second.
constexpr size_t kPieceRecords = 2048;
constexpr size_t kPieceOctets = size_t{4} << 20;
/// Rows of a COPY that are made at once.
constexpr size_t kRowOctets = size_t{1} << 17;
/// Certificates that are asked for at once on a walk.
constexpr size_t kPage = 256;

std::span<const CrtRecord> pieceOf(std::span<const CrtRecord> records) {
    size_t count = 0;
    for (size_t octets = 0; count < std::min(records.size(), kPieceRecords) && octets < kPieceOctets; ++count)
        octets += records[count].der.size();
    return records.first(count);
}

PgValues keyOf(ByteView octets) {
    return PgValues().octets(octets);
}

}  // namespace

void DbCrtPg::setSync(bool on) {
    CrtStore::setSync(on);
    session_->setSync(on);
}

void DbCrtPg::find(CrtItemList& list, const PgStatement& statement, const PgValues& key) {
    const PgUse use(*session_);
    const PgResult found = session_->run(statement, key);
    for (int row = 0; row < found.rows(); ++row)
        insertCrtItem(list, found.number(row, 0), toBytes(found.octets(row, 1)));
}

void DbCrtPg::findCertsBySerNumHash(CrtItemList& list, ByteView digest) {
    find(list, kBySerNum, keyOf(digest));
}

void DbCrtPg::findCertsBySbjDnHash(CrtItemList& list, ByteView digest) {
    find(list, kBySbjDn, keyOf(digest));
}

void DbCrtPg::findCertsByKeyIdHash(CrtItemList& list, ByteView keyId) {
    find(list, kByKeyId, keyOf(keyId));
}

void DbCrtPg::findCertsByCrtHash(CrtItemList& list, ByteView hash) {
    find(list, kByCrtHash, keyOf(hash));
}

void DbCrtPg::findCertsBySbjDnFld(CrtItemList& list, uint8_t type, const std::string& value) {
    find(list, kByField, keyOf(pgField(type, value)));
}

void DbCrtPg::findCaCerts(CrtItemList& list) {
    find(list, kCas, {});
}

InsertResult DbCrtPg::insertCert(const CrtRecord& record) {
    demandStorable(record);
    const PgUse use(*session_);
    PgValues values;
    addPgColumns(values, record, pgKeyOf(record.der));
    const PgResult stored = session_->run(kInsert, values.list(pgFieldsOf(record)));
    return stored.rows() > 0 ? InsertResult::Stored : InsertResult::Present;
}

// --- import ---

/// Records of one transaction.
struct DbCrtPg::Piece {
    std::vector<CrtRefusal> refusals;
    std::vector<Bytes> hashes;  ///< empty for a record that is refused or known to be there already

    [[nodiscard]] PgSession::RowSource rows(std::span<const CrtRecord> records) const;
    /// Subject fields, each with the index of its record.
    [[nodiscard]] std::vector<std::pair<Bytes, size_t>> fields(std::span<const CrtRecord> records) const;
};

PgSession::RowSource DbCrtPg::Piece::rows(std::span<const CrtRecord> records) const {
    return [this, records, values = PgValues(), i = size_t{0}](Bytes& rows) mutable {
        for (; i < records.size() && rows.size() < kRowOctets; ++i) {
            if (hashes[i].empty()) continue;
            addPgColumns(values.clear(), records[i], hashes[i]);
            values.number(static_cast<int64_t>(i)).appendRow(rows);
        }
        return i < records.size();
    };
}

std::vector<std::pair<Bytes, size_t>> DbCrtPg::Piece::fields(std::span<const CrtRecord> records) const {
    std::vector<std::pair<Bytes, size_t>> list;
    for (size_t i = 0; i < records.size(); ++i) {
        if (hashes[i].empty()) continue;
        for (Bytes& field : pgFieldsOf(records[i])) list.emplace_back(std::move(field), i);
    }
    return list;
}

std::set<Bytes> DbCrtPg::presentOf(std::span<const Bytes> hashes) {
    const PgUse use(*session_);
    const PgResult found = session_->run(kPresent, PgValues().list(hashes));
    std::set<Bytes> present;
    for (int row = 0; row < found.rows(); ++row) present.insert(toBytes(found.octets(row, 0)));
    return present;
}

/// After a piece that was mostly there already the server is asked first, for the hashes alone.
DbCrtPg::Piece DbCrtPg::takePiece(std::span<const CrtRecord> records) {
    Piece piece;
    for (const CrtRecord& record : records) piece.hashes.push_back(pgKeyOf(record.der));
    std::set<Bytes> seen = mostlyPresent_ ? presentOf(piece.hashes) : std::set<Bytes>();
    for (size_t i = 0; i < records.size(); ++i) {
        Bytes& hash = piece.hashes[i];
        piece.refusals.push_back(refusalOf(records[i]));
        if (piece.refusals[i] != CrtRefusal::None || !seen.insert(hash).second) hash.clear();
    }
    return piece;
}

size_t DbCrtPg::insertSlice(std::span<const CrtRecord> records, const SliceEnd&, std::vector<InsertOutcome>& outcomes) {
    records = pieceOf(records);
    const Piece piece = takePiece(records);
    std::map<Bytes, int64_t> ids;
    if (std::ranges::any_of(piece.hashes, [](const Bytes& hash) { return !hash.empty(); })) ids = store(records, piece);
    for (size_t i = 0; i < records.size(); ++i) {
        const InsertResult accepted = ids.contains(piece.hashes[i]) ? InsertResult::Stored : InsertResult::Present;
        outcomes.push_back(
            {piece.refusals[i] == CrtRefusal::None ? accepted : InsertResult::Refused, piece.refusals[i]});
    }
    mostlyPresent_ = ids.size() < records.size() / 2;
    return records.size();
}

/// Certificates are on their way while others insert; under the lock go their fields alone, which need the ids, and
/// which are made while the server stores the certificates. Who is stopped there is given up with his transaction after
/// its limit.
std::map<Bytes, int64_t> DbCrtPg::store(std::span<const CrtRecord> records, const Piece& piece) {
    PgTransaction transaction(*session_, PgTransaction::Kind::Change);
    session_->command(kMakeIncoming);
    session_->copyIn(kCopyIncoming, piece.rows(records));
    session_->command(kTakeTurn);
    std::vector<std::pair<Bytes, size_t>> fields;
    const PgResult stored = session_->run(kTakeIncoming, {}, [&] { fields = piece.fields(records); });
    std::map<Bytes, int64_t> ids;
    for (int row = 0; row < stored.rows(); ++row) ids[toBytes(stored.octets(row, 0))] = stored.number(row, 1);
    std::vector<Bytes> values;
    std::vector<int64_t> owners;
    for (auto& [field, record] : fields) {
        const auto id = ids.find(piece.hashes[record]);
        if (id == ids.end()) continue;
        values.push_back(std::move(field));
        owners.push_back(id->second);
    }
    if (!values.empty()) session_->run(kInsertFields, PgValues().list(values).list(owners));
    transaction.commit();
    return ids;
}

// --- deletion ---

void DbCrtPg::deleteCert(int64_t id, const std::optional<DbHash>& expected) {
    const PgUse use(*session_);
    PgValues which;
    which.number(id);
    expected ? which.octets(*expected) : which.null();
    if (session_->run(kDelete, which).number(0, 0) == 0)
        throw StoreError(StoreCause::NotFound, "DbCrtPg::deleteCert. Brak certyfikatu");
}

CrtStore::Removed DbCrtPg::counted(const PgResult& removed) {
    Removed result;
    result.removed = static_cast<size_t>(removed.number(0, 0));
    result.remaining = static_cast<size_t>(session_->run(kCount).number(0, 0));
    return result;
}

CrtStore::Removed DbCrtPg::removeCerts(const Expired& expired) {
    const PgUse use(*session_);
    std::vector<Bytes> these;
    forward(0, SIZE_MAX, [&](int64_t, ByteView der) {
        if (expired(der)) these.push_back(pgKeyOf(der));
        return true;
    });
    PgTransaction transaction(*session_, PgTransaction::Kind::Long);
    session_->command(kTakeRemovalTurn);
    const Removed result = counted(session_->run(kDeleteThese, PgValues().list(these)));
    transaction.commit();
    return result;
}

CrtStore::Removed DbCrtPg::removeCertsOverTime(int64_t time) {
    PgTransaction transaction(*session_, PgTransaction::Kind::Long);
    session_->command(kTakeRemovalTurn);
    const Removed result = counted(session_->run(kDeleteOverTime, PgValues().number(time)));
    transaction.commit();
    return result;
}

// --- browsing ---

void DbCrtPg::walk(const PgStatement& statement, int64_t from, size_t count, const Visit& visit) {
    while (count > 0) {
        const size_t page = std::min(count, kPage);
        const PgResult found = session_->run(statement, PgValues().number(from).number(static_cast<int64_t>(page)));
        for (int row = 0; row < found.rows(); ++row) {
            from = found.number(row, 0);
            if (!visit(from, found.octets(row, 1))) return;
        }
        if (static_cast<size_t>(found.rows()) < page) return;
        count -= page;
    }
}

/// One statement sees one moment anyway.
void DbCrtPg::walkAtOneMoment(const PgStatement& statement, int64_t from, size_t count, const Visit& visit) {
    if (count <= kPage) {
        const PgUse use(*session_);
        return walk(statement, from, count, visit);
    }
    PgTransaction snapshot(*session_, PgTransaction::Kind::Snapshot);
    walk(statement, from, count, visit);
    snapshot.commit();
}

void DbCrtPg::forward(int64_t after, size_t count, const Visit& visit) {
    walkAtOneMoment(kForward, after, count, visit);
}

void DbCrtPg::backward(int64_t before, size_t count, const Visit& visit) {
    walkAtOneMoment(kBackward, before, count, visit);
}

void DbCrtPg::get(int64_t id, Bytes& der) {
    const PgUse use(*session_);
    const PgResult found = session_->run(kGet, PgValues().number(id));
    if (found.rows() == 0) throw StoreError(StoreCause::NotFound, "DbCrtPg::get. Brak certyfikatu");
    der = toBytes(found.octets(0, 0));
}

size_t DbCrtPg::count() {
    const PgUse use(*session_);
    return static_cast<size_t>(session_->run(kCount).number(0, 0));
}

// --- network fetch times ---

void DbCrtPg::setNetCertTime(const std::string& name) {
    if (name.size() > kMaxNetCertName) throw StoreError(StoreCause::Refused, "DbCrtPg::setNetCertTime. Za dluga nazwa");
    const PgUse use(*session_);
    session_->run(kSetTime, keyOf(asBytes(name)));
}

int64_t DbCrtPg::getNetCertTime(const std::string& name) {
    const PgUse use(*session_);
    const PgResult found = session_->run(kGetTime, keyOf(asBytes(name)));
    return found.rows() > 0 ? found.number(0, 0) : 0;
}

void DbCrtPg::removeNetCertTime(const std::string& name) {
    const PgUse use(*session_);
    session_->run(kDropTime, keyOf(asBytes(name)));
}

}  // namespace crv
