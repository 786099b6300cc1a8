// The data file of a table: records one behind another, never moved while the file lives.
#pragma once

#include <array>
#include <span>
#include <string>
#include <string_view>

#include "db/table_format.h"
#include "misc/file.h"

namespace crv {

/// The fixed part of a record.
struct RecordHead {
    bool deleted = false;
    int64_t length = 0;    ///< octets of the body in use
    int64_t capacity = 0;  ///< octets of the body given when it was inserted
    int64_t flag = 0;      ///< as it was read: a sound one is 0 or 1
};

/// A record is known by its position, the record number. Nothing of a record is kept between operations. The caller
/// holds the lock of the table from open() to close(). After dbError status() says why.
class DataFile : public File {
  public:
    /// Writes the header and closes. More than MAX_INDEX descriptions fail an assertion. wait: as in IndexFile.
    [[nodiscard]] DbAnswer create(const std::string& path, int idxNumb, const IndexDesc* descs, bool wait = true);
    [[nodiscard]] DbAnswer open(const std::string& path);
    /// Ends the use; the descriptor stays for the next open(). Records not yet flushed are lost.
    void close();
    /// While on, inserted records stay in memory and are written in large pieces, by flush(), and before one of them is
    /// read. A failure to write loses all that are in memory.
    void deferWrites(bool on) { deferred_ = on; }
    [[nodiscard]] DbAnswer flush();

    /// Appends a record; answers its number, or 0. Each key must be shorter than its slot.
    [[nodiscard]] int64_t insert(std::span<const std::string_view> keys, ByteView body);
    /// Rewrites the body in place: dbOk, dbDeleted, dbTooLong (nothing written) or dbError.
    [[nodiscard]] DbAnswer update(int64_t recNo, ByteView body);
    /// dbOk for a live record, dbDeleted for a deleted one, which is read only when includeDeleted is set.
    [[nodiscard]] DbAnswer data(int64_t recNo, TableRecord& record, bool includeDeleted);
    /// Whether the record is live or deleted.
    [[nodiscard]] DbAnswer state(int64_t recNo);
    /// Sets the deleted flag.
    [[nodiscard]] DbAnswer remove(int64_t recNo);
    /// Number of the first record; dbNoRecord when there is none.
    [[nodiscard]] DbAnswer top(int64_t& recNo);
    /// Number of the record behind recNo; dbNoRecord after the last one.
    [[nodiscard]] DbAnswer next(int64_t recNo, int64_t& following);

    [[nodiscard]] int numIndexes() const { return numIdx_; }
    [[nodiscard]] const IndexDesc* descs() const { return descs_.data(); }
    [[nodiscard]] int64_t keyOctets() const { return keyOctets_; }
    /// Octets of a record with that body capacity.
    [[nodiscard]] int64_t recordSize(int64_t capacity) const {
        return static_cast<int64_t>(data_format::kRecordHead) + keyOctets_ + capacity;
    }
    /// Reads a record's head from octets; false when it is none or does not end within the file.
    [[nodiscard]] bool decodeHead(const uint8_t* octets, int64_t recNo, RecordHead& head) const;
    [[nodiscard]] static std::array<uint8_t, data_format::kRecordHead> encodeHead(const RecordHead& head);

  private:
    [[nodiscard]] bool readHead(int64_t recNo, RecordHead& head);
    [[nodiscard]] bool parseHeader(const uint8_t* octets);
    [[nodiscard]] bool keysFit(std::span<const std::string_view> keys) const;
    [[nodiscard]] bool written(int64_t recNo);

    int numIdx_ = 0;
    std::array<IndexDesc, MAX_INDEX> descs_{};
    int64_t keyOctets_ = 0;
    Bytes scratch_;
    Bytes pending_;  // records that belong behind the end of the file
    bool deferred_ = false;
    bool lost_ = false;  // records of a batch could not be written; nothing is, until the file is closed
};

}  // namespace crv
