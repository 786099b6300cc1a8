#include "ops/database_files.h"

#include <algorithm>
#include <array>
#include <map>

#include "crypto/kc_hash.h"
#include "db/data_scan.h"
#include "db/database.h"
#include "db/table_check.h"
#include "db_sql/crt_keys.h"
#include "db_sql/crt_maintenance.h"
#include "db_sql/crt_table_set.h"
#include "db_sql/dangling_records.h"
#include "db_sql/db_connection.h"
#include "db_sql/no_oop.h"
#include "misc/file_ops.h"
#include "misc/hex.h"
#include "misc/whole_file.h"
#include "ops/db_findings.h"
#include "ops/op_error.h"
#include "profiles/crv_profile.h"

namespace crv {

namespace {

std::string escaped(std::string_view text) {
    std::string out;
    for (const char c : text) {
        if (c >= 0x20 && c < 0x7F && c != '\\') {
            out += c;
        } else {
            (out += "\\x") += toHex(c);
        }
    }
    return out;
}

bool hasOwnKeys(const DataScan& scan) {
    CrtRecord record;
    if (!makeCrtRecord(scan.body(), record)) return true;  // nobody knows what its keys were
    std::vector<std::string_view> keys;
    scan.keys(keys);
    return std::ranges::equal(crtTbKeys(record), keys, {}, [](const std::string& key) { return keyText(key); });
}

}  // namespace

std::string databaseDirectory(const CrvProfile& profile) {
    if (connFactory(profile.dbConfig()).dbType != kDbKindFile) throw OpError(OpFault::WrongKind, profile.name());
    return profile.dbConfig().db;
}

void waitForDatabase(const CrvProfile& profile, const OpMode& mode) {
    std::string directory;
    if (connFactory(profile.dbConfig()).dbType != kDbKindFile) return;
    if (buildDBDirectory(profile.dbConfig().db, directory))
        const TimedLock lock(directory + std::string(kLockFileName), OpMode{true, mode.waitSeconds});
}

DatabaseFiles::DatabaseFiles(const std::string& directory, const OpMode& mode) {
    db_.connect(directory);
    if (db_.getFilesCount() < 0) throw OpError(OpFault::DatabaseFailed, directory);
    if (db_.getFilesCount() == 0) throw OpError(OpFault::DatabaseMissing, directory);
    lock_ = std::make_unique<TimedLock>(db_.createSemaforeName(), OpMode{true, mode.waitSeconds});
    if (!fileExists(db_.createSemaforeName())) return;
    DbLock probe(db_.createSemaforeName());
    // Not acquire(): it would wait until it may mend.
    const DbLock::Result result = probe.acquireIfSound();
    if (result == DbLock::Result::NotHad) throw OpError(OpFault::LockBusy, db_.createSemaforeName());
    cutOff_ = result == DbLock::Result::NeedsMending;
}

bool DatabaseFiles::check(const DbTell& tell) {
    DbFindings findings(tell);
    if (cutOff_) findings.add(std::string(kLockFileName), "a change was cut off; the next opening mends it");
    checkFiles(findings);
    checkTables(findings);
    checkReferences(findings);
    checkCrls(findings);
    return findings.finish();
}

void DatabaseFiles::checkFiles(DbFindings& findings) const {
    for (const std::string_view name : DbCrv::m_dbFileNames) {
        if (!fileExists(db_.pathOf(name))) findings.add(std::string(name), "missing");
    }
    if (db_.stateOfFiles() == DbState::OtherVersion) {
        findings.add(std::string(kVersionFileName), "not the version \"" + std::string(kVersionText) + "\"");
    }
}

void DatabaseFiles::checkTables(DbFindings& findings) const {
    for (const TableLayout* layout : kAllTables) {
        stopIfEnding();
        const std::string name = db_.pathOf(layout->file);
        if (layout == &netCertTimeTb && !fileExists(name + kDataExtension)) continue;
        const TableReport report = checkTable(name);
        for (const std::string& problem : report.problems) findings.add(std::string(layout->file), problem);
        DataFile data;
        if (data.open(name + kDataExtension) != kDbOk) continue;
        if (!layout->isThatOf(data)) {
            findings.add(std::string(layout->file), "other indexes than this table has");
        }
    }
}

void DatabaseFiles::checkReferences(DbFindings& findings) const {
    DanglingRecords dangling(db_.directory());
    for (const TableLayout* layout : kSideTables) {
        // Where the file cannot be read the damage is in the list already.
        static_cast<void>(dangling.find(*layout, [&](int64_t recNo) {
            findings.add(std::string(layout->file), "record without its certificate at " + std::to_string(recNo));
            return true;
        }));
    }
    DataFile certificates;
    const StoredHashes stored(db_.directory());
    if (certificates.open(db_.pathOf(crtTb.file) + kDataExtension) != kDbOk) return;
    checkCertificates(certificates, stored, findings);
    checkSides(certificates, stored, findings);
}

void DatabaseFiles::checkCertificates(DataFile& certificates, const StoredHashes& stored, DbFindings& findings) {
    DataScan scan(certificates);
    while (scan.next() == DataScan::Result::Record) {
        stopIfEnding();
        if (scan.deleted()) continue;
        const std::string at = " at " + std::to_string(scan.recNo());
        const auto answer = stored.compare(scan.recNo(), crtHash(scan.body()));
        if (answer == StoredHashes::Answer::Unknown) {
            findings.add(std::string(addIdxTb.file), "no record of the certificate" + at);
        } else if (answer == StoredHashes::Answer::Other) {
            findings.add(std::string(crtTb.file), "not the certificate that was stored" + at +
                                                      ", delete it and import it again: SHA-256 " +
                                                      toHex(hashOf(KcHashAlgo::Sha256, scan.body())));
        } else if (!hasOwnKeys(scan)) {
            findings.add(std::string(crtTb.file), "keys of another certificate" + at);
        }
    }
}

void DatabaseFiles::checkSides(DataFile& certificates, const StoredHashes& stored, DbFindings& findings) const {
    SideJudge judge(certificates, stored);
    for (const TableLayout* layout : kSideTables) {
        DataFile data;
        if (data.open(db_.pathOf(layout->file) + kDataExtension) != kDbOk) continue;
        DataScan scan(data);
        while (scan.next() == DataScan::Result::Record) {
            if (scan.deleted() || !judge.isWrong(*layout, scan)) continue;
            findings.add(std::string(layout->file),
                         "record that its certificate does not have at " + std::to_string(scan.recNo()));
        }
    }
}

namespace {

void checkCrlRows(const CrlFileGuard& crls, const CrlIndex& index, DbFindings& findings) {
    const std::vector<long> numbers = crls.numbers();
    const auto nameOf = [](long n) { return std::to_string(n) + std::string(kCrlExtension); };
    for (const CrlIndexEntry& row : index) {
        const long n = row.fileNumber();
        if (!std::ranges::binary_search(numbers, n)) {
            findings.add(nameOf(n), "missing");
        } else if (!std::ranges::equal(hashOf(KcHashAlgo::Sha256, crls.readCrl(n)), row.sha256.value())) {
            findings.add(nameOf(n), "not the CRL that the index names");
        }
    }
    for (const long n : numbers) {
        if (std::ranges::find(index, n, &CrlIndexEntry::fileNumber) == index.end()) {
            findings.add(nameOf(n), "not in the index");
        }
    }
}

}  // namespace

void DatabaseFiles::checkCrls(DbFindings& findings) const {
    const CrlFileGuard crls(db_.directory());
    CrlIndex index;
    if (fileExists(db_.pathOf(kCrlIndexFileName)) && crls.checkIndex() == Integrity::Broken) {
        findings.add(std::string(kCrlIndexFileName), "does not match its tag");
    } else if (!crls.isIndexSound()) {
        findings.add(std::string(kCrlIndexFileName), "cannot be read");
    } else {
        static_cast<void>(parseCrlIndex(crls.readIndex(), index));
        checkCrlRows(crls, index, findings);
    }
    std::vector<std::string> names;
    if (fileOps().list(db_.directory(), names) != 0) findings.add(db_.directory(), "cannot be listed");
    std::sort(names.begin(), names.end());
    for (const std::string& name : names) {
        if (!name.ends_with(kCrlExtension)) continue;
        const std::string tag = name.substr(0, name.size() - kCrlExtension.size()) + std::string(kTagExtension);
        const Integrity answer = checkIntegrity(db_.pathOf(name), db_.pathOf(tag));
        if (answer == Integrity::Sound) continue;
        findings.add(name, answer == Integrity::Broken ? "does not match its tag" : "has no tag");
    }
}

void DatabaseFiles::figures(const std::function<void(const std::string&, const TableReport&)>& visit) {
    for (const TableLayout* layout : kAllTables) {
        stopIfEnding();
        const std::string name = db_.pathOf(layout->file);
        if (fileExists(name + kDataExtension)) visit(std::string(layout->file), checkTable(name));
    }
}

void DatabaseFiles::records(const std::string& table, const std::function<void(const DbRecordView&)>& visit,
                            bool withKeys) {
    const bool known = std::ranges::any_of(kAllTables, [&](const TableLayout* l) { return l->file == table; });
    DataFile data;
    if (!known || data.open(db_.pathOf(table) + kDataExtension) != kDbOk) throw OpError(OpFault::ObjectMissing, table);
    DataScan scan(data);
    DataScan::Result result{};
    while ((result = scan.next()) == DataScan::Result::Record) {
        stopIfEnding();
        DbRecordView view{scan.recNo(), !scan.deleted(), scan.head().length, scan.head().capacity, {}, scan.body()};
        for (int i = 0; withKeys && i < data.numIndexes(); ++i) view.keys.push_back(escaped(scan.key(i)));
        visit(view);
    }
    if (result != DataScan::Result::End)
        throw OpError(OpFault::DatabaseFailed, table + " at " + std::to_string(scan.recNo()));
}

}  // namespace crv
