#include "db_sql/crt_maintenance.h"

#include <algorithm>
#include <memory>
#include <optional>
#include <span>

#include "db/data_scan.h"
#include "db/table_rebuild.h"
#include "db_sql/crt_keys.h"
#include "db_sql/crt_table_set.h"
#include "db_sql/dangling_records.h"
#include "db_sql/no_oop.h"
#include "misc/exceptions.h"
#include "misc/logger.h"

namespace crv {

namespace {

using Tb = CrtTableSet::Tb;

/// Certificates from one report of progress to the next.
constexpr size_t kProgressStep = 1024;

void check(bool done) {
    if (!done) throw StoreError(StoreCause::Failed, "Blad bazy danych");
}

/// Shows every live record of a data file.
void scanLive(DataFile& file, const std::function<void(const DataScan&)>& visit) {
    DataScan scan(file);
    for (auto at = scan.next(); at != DataScan::Result::End; at = scan.next()) {
        check(at == DataScan::Result::Record);
        if (!scan.deleted()) visit(scan);
    }
}

void dropDangling(CrtTableSet& tables, const std::string& directory) {
    DanglingRecords dangling(directory);
    for (const Tb side : CrtTableSet::kSides) {
        std::vector<int64_t> records;
        check(dangling.find(*CrtTableSet::kLayouts[side], records));
        // By record number: the id in a damaged key leads nowhere, so a look-up through the index would pass it by.
        for (const int64_t recNo : records) check(tables[side].dataFile().remove(recNo) == kDbOk);
        if (!records.empty()) tables.noteChange(side);
    }
}

size_t dropWrong(CrtTableSet& tables, const StoredHashes& stored) {
    size_t dropped = 0;
    SideJudge judge(tables[CrtTableSet::kCrt].dataFile(), stored);
    for (const Tb side : CrtTableSet::kSides) {
        std::vector<int64_t> wrong;
        scanLive(tables[side].dataFile(), [&](const DataScan& record) {
            if (judge.isWrong(*CrtTableSet::kLayouts[side], record)) wrong.push_back(record.recNo());
        });
        for (const int64_t recNo : wrong) check(tables[side].dataFile().remove(recNo) == kDbOk);
        if (!wrong.empty()) tables.noteChange(side);
        dropped += wrong.size();
    }
    return dropped;
}

/// Drops certificates that cannot be parsed and of which no SHA-1 is stored: nobody could find or delete them.
size_t dropUnreadable(CrtTableSet& tables, const StoredHashes& stored, std::vector<int64_t>& ids) {
    return std::erase_if(ids, [&](int64_t id) {
        Bytes der;
        CrtRecord record;
        if (stored.compare(id, {}) != StoredHashes::Answer::Unknown || !tables.readCrt(id, der)) return false;
        if (makeCrtRecord(der, record)) return false;
        check(tables[CrtTableSet::kCrt].dataFile().remove(id) == kDbOk);
        tables.noteChange(CrtTableSet::kCrt);
        return true;
    });
}

/// Opens the tables; the ids of the certificates.
std::vector<int64_t> openAll(CrtTableSet& tables) {
    for (const Tb table : CrtTableSet::kMainTables) tables.open(table, true);
    std::vector<int64_t> ids;
    scanLive(tables[CrtTableSet::kCrt].dataFile(), [&](const DataScan& record) { ids.push_back(record.recNo()); });
    return ids;
}

/// Shows each live record of a side table with the place that its certificate has among the ids.
void scanSide(CrtTableSet& tables, Tb side, const std::vector<int64_t>& ids, const std::function<void(size_t)>& visit) {
    scanLive(tables[side].dataFile(), [&](const DataScan& record) {
        const std::optional<int64_t> id = recNoDecode(record.key(0));
        const auto at = id ? std::ranges::lower_bound(ids, *id) : ids.end();
        if (at != ids.end() && *at == *id) visit(static_cast<size_t>(at - ids.begin()));
    });
}

/// A certificate that cannot be parsed stays, found by what is stored of it. `present`: its side records, none of which
/// stands twice; looking for each would take most of the time of mending. A damaged one keeps those that it was stored
/// with.
void completeCrt(CrtTableSet& tables, int64_t id, size_t present = 0, const StoredHashes& stored = {}) {
    Bytes der;
    CrtRecord record;
    if (!tables.readCrt(id, der)) return;
    if (makeCrtRecord(der, record)) {
        const size_t wanted = record.dnFlds.size() + (record.isCa ? 1 : 0) + 1;
        const bool damaged = stored.compare(id, record.crtHash) == StoredHashes::Answer::Other;
        if (present != wanted && !damaged) tables.completeSide(id, record);
    } else {
        logLine(LogLevel::Warning, "certificate that cannot be read, record " + std::to_string(id));
    }
}

/// Certificates whose insertion failed half-way lack their addIdx record, which is the last one written.
void completeUnfinished(const std::string& directory, DbLock& lock) {
    // Its own objects, which end before the tables are copied: the copy must see everything in the files.
    CrtTableSet tables(directory);
    tables.bindLock(&lock);
    const std::vector<int64_t> ids = openAll(tables);
    std::vector<bool> finished(ids.size());
    scanSide(tables, CrtTableSet::kAddIdx, ids, [&](size_t at) { finished[at] = true; });
    for (size_t i = 0; i < ids.size(); ++i) {
        if (!finished[i]) completeCrt(tables, ids[i]);
    }
    tables.finishChange(false);
}

/// The four tables made anew together.
class Compaction {
  public:
    explicit Compaction(const std::string& directory) {
        for (const TableLayout* layout : kCertificateTables) {
            names_.emplace_back(layout->file);
            rebuilds_.push_back(std::make_unique<TableRebuild>(directory + names_.back()));
        }
    }

    CrtStore::Removed copy(const CrtStore::Expired& expired) {
        for (const auto& rebuild : rebuilds_) check(rebuild->begin());
        CrtStore::Removed result;
        check(rebuilds_[CrtTableSet::kCrt]->copy(
            [&](const DataScan& record, std::span<std::string_view>) {
                const bool keep = !expired(record.body());
                ++(keep ? result.remaining : result.removed);
                return keep;
            },
            [&](int64_t from, int64_t to) {
                ids_.push_back({from, to});
            }));
        check(rebuilds_[CrtTableSet::kCrt]->finish());
        for (const Tb side : CrtTableSet::kSides) {
            copySide(side);
            check(rebuilds_[side]->finish());
        }
        return result;
    }

    void swap(DbLock& lock) {
        // One mark for all four: side tables with the new ids beside certificates with the old ones would find others.
        check(lock.setMark(DbMark::Swapping, names_));
        for (const auto& rebuild : rebuilds_) rebuild->keep();
        const bool swapped = std::ranges::all_of(rebuilds_, [](const auto& rebuild) { return rebuild->swap(); });
        if (!swapped) lock.spoil();
        check(swapped);
    }

  private:
    /// The new record number of a certificate; none when it was left out.
    [[nodiscard]] std::optional<int64_t> newId(int64_t id) const {
        const auto at = std::ranges::lower_bound(ids_, id, {}, &Renumbered::from);
        return at != ids_.end() && at->from == id ? std::optional(at->to) : std::nullopt;
    }

    void copySide(Tb side) {
        std::string idKey;
        check(rebuilds_[side]->copy(
            [&](const DataScan&, std::span<std::string_view> keys) {
                // The id is a key of the record itself, so the copy gets another one.
                const std::optional<int64_t> old = recNoDecode(keys[0]);
                const std::optional<int64_t> id = old ? newId(*old) : std::nullopt;
                if (!id) return false;
                idKey = recNoEncode(*id);
                keys[0] = idKey;
                return true;
            },
            nullptr));
    }

    struct Renumbered {
        int64_t from, to;
    };
    std::vector<std::string> names_;
    std::vector<std::unique_ptr<TableRebuild>> rebuilds_;
    std::vector<Renumbered> ids_;  // in rising order, as the records lie
};

}  // namespace

bool SideJudge::load(int64_t id) {
    if (id == id_) return intact_;
    id_ = id;
    intact_ = certificates_->data(id, row_, false) == kDbOk && makeCrtRecord(row_.body, record_) &&
              stored_->compare(id, record_.crtHash) != StoredHashes::Answer::Other;
    return intact_;
}

bool SideJudge::isWrong(const TableLayout& side, const DataScan& record) {
    const std::optional<int64_t> id = recNoDecode(record.key(0));
    if (!id || !load(*id)) return false;
    if (&side == &caTb) return !record_.isCa;
    if (&side == &addIdxTb)
        return addIdxKeys(record_) != std::array{std::string(record.key(1)), std::string(record.key(2))};
    return std::ranges::none_of(record_.dnFlds, [&](const DnFld& field) {
        return keyText(dnFldKey(field.type, field.value)) == record.key(kDnByField);
    });
}

SideMended mendSideRecords(const std::string& directory, SideMend extent,
                           const std::function<void(int percent)>& progress) {
    CrtTableSet tables(directory);
    std::vector<int64_t> ids = openAll(tables);
    SideMended mended;
    // After a crash those without a certificate are gone already.
    const bool everything = extent == SideMend::Everything;
    const StoredHashes stored = everything ? StoredHashes(directory) : StoredHashes();
    if (everything) {
        mended.unreadable = dropUnreadable(tables, stored, ids);
        dropDangling(tables, directory);
        mended.wrong = dropWrong(tables, stored);
    }
    std::vector<uint32_t> present(ids.size());
    for (const Tb side : CrtTableSet::kSides) scanSide(tables, side, ids, [&](size_t at) { ++present[at]; });
    for (size_t i = 0; i < ids.size(); ++i) {
        if (progress && i % kProgressStep == 0) progress(static_cast<int>(100 * i / ids.size()));
        completeCrt(tables, ids[i], present[i], stored);
    }
    tables.finishChange(true);
    return mended;
}

CrtStore::Removed compactCerts(const std::string& directory, DbLock& lock, const CrtStore::Expired& expired) {
    completeUnfinished(directory, lock);
    Compaction compaction(directory);
    const CrtStore::Removed result = compaction.copy(expired);
    compaction.swap(lock);
    return result;
}

}  // namespace crv
