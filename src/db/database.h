// An indexed table: records in a data file, found through the indexes of an index file of the same base name.
#pragma once

#include <array>
#include <span>
#include <string>
#include <string_view>

#include "db/datafile.h"
#include "db/db_lock.h"
#include "db/indxuser.h"

namespace crv {

inline constexpr const char* kIndexExtension = ".idx";
inline constexpr const char* kDataExtension = ".dta";

/// Every cursor operation lands on live records and passes over deleted ones. Each index has a cursor of its own; the
/// operations work on the selected index. Answers as DbAnswer says; after dbError lastError() names the file, whose
/// status says why. The caller holds the lock of the table, shared or exclusive, from open() to close().
class DataBase {
  public:
    enum class Error : int { None = 0, Index = 1, Data = 2 };
    static constexpr size_t kMaxName = 255;

    /// Binds the lock under which the table is used: its mark is set before the first write, and it is spoilt when
    /// a write fails half-way. It must live as long as the table is used. Without one no mark is kept.
    void bindLock(DbLock* lock) { lock_ = lock; }
    /// Null when there is none.
    [[nodiscard]] DbLock* lock() const { return lock_; }

    /// Makes both files. More than MAX_INDEX descriptions fail an assertion. wait: as in IndexFile.
    [[nodiscard]] DbAnswer create(const std::string& name, int idxNumb, const IndexDesc* descs, bool wait = true);
    /// Opens both files, the cursors at the top, index 0 selected. Nothing to do for an open table.
    [[nodiscard]] DbAnswer open(const std::string& name);
    /// Ends the use, and a batch.
    void close();
    /// A change was left half done: the mark of the bound lock stays, and the next user mends.
    void spoilLock();
    /// From now to endBatch() or close(), insertions keep records and changed index pages in memory and write them in
    /// large pieces: many at a time are several times faster. What was inserted is there when endBatch() has returned;
    /// should the process die before, the mark says that the indexes must be made anew. Needs a bound lock, which is
    /// held exclusively until then. A failure spoils the lock.
    void beginBatch();
    /// Writes a batch down and ends it.
    [[nodiscard]] DbAnswer endBatch();
    [[nodiscard]] bool isOpen() const { return index_.isOpen() && data_.isOpen(); }
    void selectIndex(int idx) {
        index_.selectIndex(idx);
        steps_ = 0;
    }

    /// Stores a record under its keys, one for each index; each shorter than its slot. Cursors rest on it.
    [[nodiscard]] DbAnswer insert(std::span<const std::string_view> keys, ByteView body, int64_t& recNo);
    [[nodiscard]] DbAnswer top();
    [[nodiscard]] DbAnswer bottom();
    /// |n| live records on or back; dbNoRecord, with the cursor where it was, when there are fewer.
    [[nodiscard]] DbAnswer skip(int n);
    /// First live record whose key is not below: dbOk when equal, dbGreater otherwise, dbNoRecord with the cursor
    /// on the last live record when there is none.
    [[nodiscard]] DbAnswer seek(std::string_view key);
    /// First live record with the key; dbNoRecord, with the cursor on none, when there is none. The records of other
    /// keys are not read.
    [[nodiscard]] DbAnswer seekEqual(std::string_view key);
    /// The record at the cursor.
    [[nodiscard]] DbAnswer data(TableRecord& record);
    /// Number of the record at the cursor.
    [[nodiscard]] DbAnswer recNo(int64_t& number);
    /// Rewrites the body of the record at the cursor: dbOk, dbTooLong, dbNoRecord for none or a deleted one.
    [[nodiscard]] DbAnswer update(ByteView body);
    /// Deletes the record at the cursor; its index entries stay.
    [[nodiscard]] DbAnswer remove();
    /// Puts the cursor on the record; dbError when it is deleted, cannot be read or is not found by its key.
    [[nodiscard]] DbAnswer setRec(int64_t recNo);

    /// Waits until the disk has what was written (ends a batch first).
    [[nodiscard]] DbAnswer sync();

    [[nodiscard]] Error lastError() const { return error_; }
    [[nodiscard]] bool isOutOfMemory() const;
    [[nodiscard]] IndexFile& indexFile() { return index_; }
    [[nodiscard]] DataFile& dataFile() { return data_; }
    /// The same as a batch for who works under the mark of somebody else.
    void deferWrites(bool on);

  private:
    [[nodiscard]] DbAnswer flush();
    DbAnswer fail(Error error);
    [[nodiscard]] DbAnswer settle();
    [[nodiscard]] DbAnswer current(int64_t& recNo);
    [[nodiscard]] DbAnswer currentLive(int64_t& recNo);
    /// Steps until a live record; dbNoRecord at the end. passed counts the deleted ones.
    [[nodiscard]] DbAnswer toLive(int direction, int64_t& passed);
    [[nodiscard]] DbAnswer fromFound(DbAnswer answer, std::string_view key);
    [[nodiscard]] DbAnswer fromEnd(DbAnswer answer, int direction);
    [[nodiscard]] bool beginChange();

    IndexFile index_;
    DataFile data_;
    DbLock* lock_ = nullptr;
    Error error_ = Error::None;
    bool deferred_ = false;
    int64_t knownLength_ = 0;                      // of the data file, when the table was closed
    int64_t steps_ = 0;                            // from where skip() began
    enum class Place : char { AtTop, Set, None };  // atTop: not looked up yet
    std::array<Place, MAX_INDEX> places_{};
};

}  // namespace crv
