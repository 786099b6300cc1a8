#include "db_sql/crt_maintenance.h"

#include <algorithm>
#include <memory>
#include <optional>
#include <span>
#include <utility>

#include "db/data_scan.h"
#include "db/record_numbers.h"
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
        // By record number: the id in a damaged key leads nowhere, so a look-up through the index would pass it by.
        check(dangling.find(*CrtTableSet::kLayouts[side], [&](int64_t recNo) {
            tables.noteChange(side);
            return tables[side].dataFile().remove(recNo) == kDbOk;
        }));
    }
}

size_t dropWrong(CrtTableSet& tables, const StoredHashes& stored) {
    size_t dropped = 0;
    SideJudge judge(tables[CrtTableSet::kCrt].dataFile(), stored);
    for (const Tb side : CrtTableSet::kSides) {
        DataFile& data = tables[side].dataFile();
        scanLive(data, [&](const DataScan& record) {
            if (!judge.isWrong(*CrtTableSet::kLayouts[side], record)) return;
            tables.noteChange(side);
            check(data.remove(record.recNo()) == kDbOk);
            ++dropped;
        });
    }
    return dropped;
}

/// Drops certificates that cannot be parsed and of which no SHA-1 is stored: nobody could find or delete them.
size_t dropUnreadable(CrtTableSet& tables, const StoredHashes& stored, RecordNumbers& ids) {
    RecordNumbers kept;
    Bytes der;
    CrtRecord record;
    for (size_t at = 0; at < ids.size(); ++at) {
        const int64_t id = ids.at(at);
        const bool unreadable = stored.compare(id, {}) == StoredHashes::Answer::Unknown && tables.readCrt(id, der) &&
                                !makeCrtRecord(der, record);
        if (unreadable) {
            check(tables[CrtTableSet::kCrt].dataFile().remove(id) == kDbOk);
            tables.noteChange(CrtTableSet::kCrt);
        } else {
            kept.add(id);
        }
    }
    const size_t dropped = ids.size() - kept.size();
    ids = std::move(kept);
    return dropped;
}

/// Opens the tables; the ids of the certificates.
RecordNumbers openAll(CrtTableSet& tables) {
    for (const Tb table : CrtTableSet::kMainTables) tables.open(table, true);
    RecordNumbers ids;
    scanLive(tables[CrtTableSet::kCrt].dataFile(), [&](const DataScan& record) { ids.add(record.recNo()); });
    return ids;
}

/// Shows each live record of a side table with the place that its certificate has among the ids.
void scanSide(CrtTableSet& tables, Tb side, RecordNumbers& ids, const std::function<void(size_t)>& visit) {
    scanLive(tables[side].dataFile(), [&](const DataScan& record) {
        const std::optional<int64_t> id = recNoDecode(record.key(0));
        if (const std::optional<size_t> at = id ? ids.find(*id) : std::nullopt) visit(*at);
    });
}

/// A certificate that cannot be parsed stays, found by what is stored of it. `present`: its side records, none of which
/// stands twice; looking for each would take most of the time of mending. A damaged one keeps those that it was stored
/// with.
void completeCrt(CrtTableSet& tables, int64_t id, size_t present, const StoredHashes& stored) {
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

/// The keys of every record of a certificate in a side table.
std::vector<std::vector<std::string>> sideKeys(Tb side, const std::string& idKey, const CrtRecord& record) {
    std::vector<std::vector<std::string>> all;
    if (side == CrtTableSet::kDn) {
        for (const DnFld& field : record.dnFlds) all.push_back({idKey, dnFldKey(field.type, field.value)});
    } else if (side == CrtTableSet::kAddIdx) {
        const auto keys = addIdxKeys(record);
        all.push_back({idKey, keys[0], keys[1]});
    } else if (record.isCa) {
        all.push_back({idKey});
    }
    return all;
}

/// The four tables made anew together.
class Compaction {
  public:
    Compaction(const std::string& directory, bool sync) : directory_(directory) {
        for (const TableLayout* layout : kCertificateTables) {
            names_.emplace_back(layout->file);
            rebuilds_.push_back(std::make_unique<TableRebuild>(directory + names_.back(), sync));
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
                former_.add(from);
                present_.add(to);
            }));
        check(rebuilds_[CrtTableSet::kCrt]->finish());
        // An insertion that failed half-way leaves a certificate without its addIdx record, which is the last one
        // written: that table goes first, since it shows which certificates have to be completed.
        unfinished_.resize(former_.size(), true);
        for (const Tb side : {CrtTableSet::kAddIdx, CrtTableSet::kDn, CrtTableSet::kCa}) {
            copySide(side);
            addSide(side);
            check(rebuilds_[side]->finish());
        }
        return result;
    }

    void swap(DbLock& lock) {
        // One mark for all four: side tables with the new ids beside certificates with the old ones would find others.
        check(rebuilds_.front()->syncNames() && lock.setMark(DbMark::Swapping, names_));
        DbChange change(&lock);
        for (const auto& rebuild : rebuilds_) rebuild->keep();
        check(change.end(std::ranges::all_of(rebuilds_, [](const auto& rebuild) { return rebuild->swap(); })));
    }

  private:
    void copySide(Tb side) {
        std::string idKey;
        check(rebuilds_[side]->copy(
            [&](const DataScan&, std::span<std::string_view> keys) {
                // The id is a key of the record itself, so the copy gets another one.
                const std::optional<int64_t> old = recNoDecode(keys[0]);
                const std::optional<size_t> at = old ? former_.find(*old) : std::nullopt;
                if (!at) return false;  // that certificate was left out
                if (side == CrtTableSet::kAddIdx) unfinished_[*at] = false;
                if (unfinished_[*at]) return false;  // made anew by addSide()
                idKey = recNoEncode(present_.at(*at));
                keys[0] = idKey;
                return true;
            },
            nullptr));
    }

    /// Shows each unfinished certificate with its new id; false takes it off the list.
    void forUnfinished(const std::function<bool(int64_t id, ByteView der)>& visit) {
        DataFile certificates;
        TableRecord row;
        for (size_t at = 0; at < unfinished_.size(); ++at) {
            if (!unfinished_[at]) continue;
            const std::string path = directory_ + names_[CrtTableSet::kCrt] + kDataExtension;
            check(certificates.isOpen() || certificates.open(path) == kDbOk);
            check(certificates.data(former_.at(at), row, false) == kDbOk);
            unfinished_[at] = visit(present_.at(at), row.body);
        }
    }

    /// The records of the unfinished certificates in a side table, made anew. One that cannot be parsed keeps what it
    /// has.
    void addSide(Tb side) {
        forUnfinished([&](int64_t id, ByteView der) {
            CrtRecord record;
            if (!makeCrtRecord(der, record)) return false;
            for (const std::vector<std::string>& keys : sideKeys(side, recNoEncode(id), record)) {
                check(rebuilds_[side]->add(std::vector<std::string_view>(keys.begin(), keys.end()), {}) != 0);
            }
            return true;
        });
    }

    std::vector<std::string> names_;
    std::vector<std::unique_ptr<TableRebuild>> rebuilds_;
    std::string directory_;
    RecordNumbers former_, present_;  // of each certificate that stays
    std::vector<bool> unfinished_;    // of those
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
    RecordNumbers ids = openAll(tables);
    SideMended mended;
    // After a crash those without a certificate are gone already.
    const bool everything = extent == SideMend::Everything;
    const StoredHashes stored = everything ? StoredHashes(directory) : StoredHashes();
    if (everything) {
        mended.unreadable = dropUnreadable(tables, stored, ids);
        dropDangling(tables, directory);
        mended.wrong = dropWrong(tables, stored);
    }
    std::vector<uint16_t> present(ids.size());
    const auto count = [&](size_t at) {
        if (present[at] < UINT16_MAX) ++present[at];
    };
    for (const Tb side : CrtTableSet::kSides) scanSide(tables, side, ids, count);
    for (size_t i = 0; i < ids.size(); ++i) {
        if (progress && i % kProgressStep == 0) progress(static_cast<int>(100 * i / ids.size()));
        completeCrt(tables, ids.at(i), present[i], stored);
    }
    tables.finishChange(true);
    return mended;
}

CrtStore::Removed compactCerts(const std::string& directory, DbLock& lock, const CrtStore::Expired& expired) {
    Compaction compaction(directory, lock.syncs());
    const CrtStore::Removed result = compaction.copy(expired);
    compaction.swap(lock);
    return result;
}

}  // namespace crv
