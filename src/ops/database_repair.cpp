// Repair of what "crvdb check" finds, table by table.
#include "ops/database_files.h"

#include <functional>
#include <string>
#include <vector>

#include "db/database.h"
#include "db/table_mend.h"
#include "db/table_rebuild.h"
#include "db_sql/crt_keys.h"
#include "db_sql/crt_maintenance.h"
#include "db_sql/crt_table_set.h"
#include "misc/atomic_write.h"
#include "misc/file_ops.h"
#include "misc/whole_file.h"
#include "ops/op_error.h"

namespace crv {

namespace {

class Repair {
  public:
    Repair(const std::string& directory, const OpMode& mode, const DbTell& tell) : mode_(mode), tell_(tell) {
        db_.connect(directory);
        if (db_.getFilesCount() <= 0) throw OpError(OpFault::DatabaseMissing, directory);
    }

    bool run() {
        const TimedLock lock(db_.createSemaforeName(), mode_);
        // A swap cut off is finished first; everything else is what the repair does anyway, under that mark.
        db_.lock().setMender([this](DbMark mark, const std::vector<std::string>& names) {
            cutOff_ = true;
            db_.lock().keepMark();
            return mark != DbMark::Swapping || db_.mend(mark, names);
        });
        const DbGuard guard(db_.lock(), kExclusiveLock);
        // A repair that is stopped, or for which memory runs out, leaves its mark: the next opening goes on.
        DbChange change(&db_.lock());
        if (!db_.lock().setMark(DbMark::Changing)) return say("db.lck", "cannot be written"), false;
        repairTables();
        repairFiles();
        const int64_t removed = ok_ ? db_.removeDangling() : -1;
        if (removed > 0) say("references", std::to_string(removed) + " records without a certificate deleted");
        if (removed < 0) ok_ = false;
        if (ok_) completeCertificates();
        return change.end(ok_);
    }

  private:
    void say(std::string_view where, const std::string& what) { tell_(std::string(where), what); }

    void fail(std::string_view where, const std::string& what) {
        say(where, what);
        ok_ = false;
    }

    void repairTables() {
        std::vector<std::string> remade;
        const StoredHashes stored(db_.directory());
        for (const TableLayout* layout : kAllTables) {
            stopIfEnding();
            if (layout == &netCertTimeTb && !fileExists(db_.pathOf(layout->file) + kDataExtension)) continue;
            if (remake(*layout, stored)) remade.emplace_back(layout->file);
        }
        if (!syncFolder(db_.directory()) || !db_.lock().setMark(DbMark::Swapping, remade))
            return fail(kLockFileName, "cannot be written");
        for (const std::string& name : remade) {
            keepOldData(db_.pathOf(name));
            if (!swapRebuilt(db_.pathOf(name))) return fail(name, "new files cannot be put in place");
        }
        if (!db_.lock().setMark(DbMark::Changing)) fail(kLockFileName, "cannot be written");
    }

    /// A data file that is replaced by a repaired one stays until the next repair, in case somebody can get more out of
    /// it. A kill in between leaves a swap without an old file to replace.
    static void keepOldData(const std::string& table) {
        const std::string data = table + kDataExtension;
        if (fileExists(rebuildName(table) + kDataExtension))
            fileOps().rename(data, data + std::string(kBackupExtension));
    }

    /// The keys of a certificate's record as they would be stored now, unless it is damaged itself.
    static bool keysOfCertificate(const StoredHashes& stored, int64_t id, ByteView der,
                                  std::vector<std::string>& keys) {
        CrtRecord record;
        if (!makeCrtRecord(der, record) || stored.compare(id, record.crtHash) == StoredHashes::Answer::Other)
            return false;
        const auto made = crtTbKeys(record);
        keys.assign(made.begin(), made.end());
        return true;
    }

    /// A deletion marks the certificate first and its SHA-1 last, so only one that was cut off leaves the SHA-1.
    [[nodiscard]] TableKnowledge knowledgeOf(const TableLayout& layout, const StoredHashes& stored) const {
        if (&layout != &crtTb) return {true, {}, {}};
        return {true, std::bind_front(keysOfCertificate, std::cref(stored)), [&](int64_t id, ByteView der) {
                    return !cutOff_ && stored.compare(id, crtHash(der)) == StoredHashes::Answer::Same;
                }};
    }

    /// Makes new files beside the old ones; false when there is nothing to swap.
    bool remake(const TableLayout& layout, const StoredHashes& stored) {
        const std::string name = db_.pathOf(layout.file);
        if (!fileExists(name + kDataExtension)) {
            DataBase empty;
            if (empty.create(name, layout.numIndexes, layout.descs.data()) != kDbOk) {
                fail(layout.file, "cannot be made");
            } else {
                say(layout.file, "records lost, empty table made");
            }
            return false;
        }
        restoreHeader(layout, name + kDataExtension);
        fileOps().unlink(name + kDataExtension + std::string(kBackupExtension));
        Salvaged found;
        if (!remakeIndexes(name, MendExtent::Salvage, found, knowledgeOf(layout, stored))) {
            fail(layout.file, "cannot be repaired");
            return false;
        }
        say(layout.file, "indexes made anew" +
                             (found.restored > 0 ? ", records restored: " + std::to_string(found.restored) : "") +
                             (found.lost > 0 ? ", damaged places passed over: " + std::to_string(found.lost) : ""));
        return true;
    }

    /// The header of a table of this database is known, whatever the file says.
    void restoreHeader(const TableLayout& layout, const std::string& path) {
        const std::string sample = db_.pathOf(layout.file) + "#header";
        DataFile header;
        File file;
        Bytes right;
        if (header.create(sample, layout.numIndexes, layout.descs.data()) == kDbOk) right = readFile(sample);
        fileOps().unlink(sample);
        Bytes present(right.size());
        if (right.empty() || !file.open(path)) return fail(layout.file, "cannot be read");
        if (file.length() >= static_cast<int64_t>(right.size()) && file.readAt(0, present.data(), present.size()) &&
            present == right) {
            return;
        }
        if (!file.writeAt(0, right)) return fail(layout.file, "cannot be written");
        say(layout.file, "header of the data file restored");
    }

    void repairFiles() {
        try {
            for (const std::string& note : CrlFileGuard(db_.directory()).mend()) {
                const size_t end = note.find(": ");
                say(note.substr(0, end), note.substr(end + 2));
            }
        } catch (const StoreError& failure) {
            fail(kCrlIndexFileName, std::string("not mended: ") + failure.what());
        }
        if (!fileExists(db_.pathOf(kImportsFileName))) replace(kImportsFileName, {});
        if (db_.stateOfFiles() != DbState::Complete) replace(kVersionFileName, kVersionText);
    }

    /// Certificates whose side records are lost get them again.
    void completeCertificates() {
        try {
            const SideMended mended = mendSideRecords(db_.directory(), SideMend::Everything);
            const auto tell = [&](size_t count, const char* where, const char* what) {
                if (count > 0) say(where, std::to_string(count) + what);
            };
            tell(mended.wrong, "references", " records that their certificates do not have replaced");
            tell(mended.unreadable, "certific", " certificates that can be neither read nor found deleted");
        } catch (const std::exception& e) {
            fail("references", std::string("side records not made: ") + e.what());
        }
    }

    void replace(std::string_view name, std::string_view content) {
        writeFile(db_.pathOf(name), asBytes(content));
        say(name, "made anew");
    }

    DbCrv db_;
    OpMode mode_;
    const DbTell& tell_;
    bool ok_ = true;
    bool cutOff_ = false;  // the mark of a writer that died was found
};

}  // namespace

bool repairDatabase(const std::string& directory, const OpMode& mode, const DbTell& tell) {
    const bool repaired = mode.dryRun || Repair(directory, mode, tell).run();
    const bool sound = DatabaseFiles(directory, mode).check(tell);
    return repaired && sound;
}

}  // namespace crv
