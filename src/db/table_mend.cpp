#include "db/table_mend.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>
#include <utility>

#include "db/data_scan.h"
#include "db/database.h"
#include "db/index_builder.h"
#include "db/table_rebuild.h"
#include "misc/file_ops.h"
#include "misc/logger.h"
#include "misc/whole_file.h"

namespace crv {

using namespace data_format;

namespace {

/// Pieces overlap by an octet less than a magic, so none is cut in two.
constexpr size_t kSearchPiece = 64 * 1024;
constexpr std::string_view kMagicOctets{"\x21\x43\x34\x12\0\0\0\0", 8};

bool headAt(DataFile& file, int64_t position, RecordHead& head) {
    std::array<uint8_t, kRecordHead> octets;
    return file.length() - position >= static_cast<int64_t>(kRecordHead) &&
           file.readAt(position, octets.data(), octets.size()) && file.decodeHead(octets.data(), position, head);
}

/// A certificate may hold the octets of a magic and more of a head; that another record follows, too, is no accident.
bool recordAt(DataFile& file, int64_t position) {
    RecordHead head, after;
    if (!headAt(file, position, head)) return false;
    const int64_t end = position + file.recordSize(head.capacity);
    return end == file.length() || headAt(file, end, after);
}

/// Walks a data file and puts every live record into a new index file; mends what it meets, as far as it may.
class IndexMaker {
  public:
    IndexMaker(std::string name, MendExtent extent) : name_(std::move(name)), extent_(extent) {}

    [[nodiscard]] bool run() {
        const std::string indexPath = rebuildName(name_) + kIndexExtension;
        if (data_.open(name_ + kDataExtension) != kDbOk) return false;
        if (index_.create(indexPath, data_.numIndexes(), data_.descs()) != kDbOk) return false;
        if (index_.open(indexPath) != kDbOk) return false;
        keepRights(name_, kIndexExtension);
        IndexBuilder builder(index_);
        for (bool more = true; more;) {
            DataScan scan(data_, from_);
            if (!walk(scan, builder, more)) return false;
        }
        return builder.finish() == kDbOk && keepCountGrowing() && index_.sync() && (!changed_ || data_.sync());
    }
    [[nodiscard]] int lost() const { return lost_; }
    /// The failure was one of writing the new index.
    [[nodiscard]] bool noRoom() const { return index_.status() == FileStatus::IoFailure; }

  private:
    /// more: the file was changed, and the walk goes on from there.
    bool walk(DataScan& scan, IndexBuilder& builder, bool& more) {
        for (;;) {
            const DataScan::Result result = scan.next();
            more = result == DataScan::Result::Damaged;
            if (result == DataScan::Result::End) return true;
            if (more) return mendAt(scan.recNo());
            if (result != DataScan::Result::Record) return false;
            if (scan.deleted()) continue;
            scan.keys(keys_);
            more = extent_ == MendExtent::Salvage && !index_.keysFit(keys_);
            if (more) return dropAt(scan.recNo());
            if (builder.add(keys_, scan.recNo()) != kDbOk) return false;
        }
    }

    /// A record with a key that does not end in its slot cannot be found.
    bool dropAt(int64_t recNo) {
        from_ = recNo;
        ++lost_;
        return useCopy() && data_.remove(recNo) == kDbOk;
    }

    bool mendAt(int64_t damaged) {
        from_ = damaged;
        const int64_t next = nextRecord(data_, damaged);
        const bool tail = next == kNowhere;
        if (!tail && extent_ == MendExtent::AfterCrash) {
            logLine(LogLevel::Error, "damaged record at " + std::to_string(damaged) + " in " + data_.path());
            return false;
        }
        if (extent_ == MendExtent::Salvage && !useCopy()) return false;
        ++lost_;
        if (tail) {
            logLine(LogLevel::Warning, "part of a record cut off at the end of " + data_.path());
            changed_ = true;
            return data_.truncate(damaged);
        }
        const RecordHead bridge{true, 0, next - damaged - data_.recordSize(0)};
        return bridge.capacity >= 0 && data_.writeAt(damaged, DataFile::encodeHead(bridge));
    }

    bool useCopy() {
        if (copied_) return true;
        const std::string copy = rebuildName(name_) + kDataExtension;
        if (!copyFile(data_.path(), copy)) return false;
        copied_ = changed_ = data_.open(copy) == kDbOk;
        return copied_;
    }

    /// The insertion count never falls, as far as the old one can still be read: others tell by it that a file changed.
    bool keepCountGrowing() {
        IndexFile old;
        if (old.open(name_ + kIndexExtension) == kDbOk) {
            index_.setInsertions(std::max(index_.insertions(), old.insertions()));
        }
        return index_.flush() == kDbOk;
    }

    std::string name_;
    MendExtent extent_;
    DataFile data_;
    IndexFile index_;
    std::vector<std::string_view> keys_;
    int64_t from_ = kHeadSize;
    bool copied_ = false;
    bool changed_ = false;  // the data file
    int lost_ = 0;
};

}  // namespace

int64_t nextRecord(DataFile& file, int64_t damaged) {
    // A record that bridges the gap needs room for its own head and keys.
    int64_t from = damaged + file.recordSize(0) + static_cast<int64_t>(kRecordMagic);
    Bytes piece(kSearchPiece + kMagicOctets.size() - 1);
    while (from < file.length()) {
        const ssize_t n = file.readSome(from, piece.data(), piece.size());
        if (n < static_cast<ssize_t>(kMagicOctets.size())) return kNowhere;
        const std::string_view text = asText({piece.data(), static_cast<size_t>(n)});
        for (size_t at = text.find(kMagicOctets); at != std::string_view::npos; at = text.find(kMagicOctets, at + 1)) {
            const int64_t position = from + static_cast<int64_t>(at) - static_cast<int64_t>(kRecordMagic);
            if (recordAt(file, position)) return position;
        }
        from += static_cast<int64_t>(kSearchPiece);
    }
    return kNowhere;
}

bool remakeIndexes(const std::string& name, MendExtent extent, int& lost) {
    discardRebuilt(name);
    IndexMaker maker(name, extent);
    const bool made = maker.run();
    lost = maker.lost();
    if (!made) discardRebuilt(name);
    return made;
}

bool mendTable(const std::string& name) {
    // Only a mark "swapping" makes "#" files count, so whatever is there is the rest of another time.
    discardRebuilt(name);
    IndexMaker maker(name, MendExtent::AfterCrash);
    bool made = maker.run();
    if (!made && maker.noRoom()) {
        // The mark is set, so nobody believes the old index any more, and the data file has all that is in it.
        discardRebuilt(name);
        fileOps().unlink(name + kIndexExtension);
        made = IndexMaker(name, MendExtent::AfterCrash).run();
    }
    if (!made) discardRebuilt(name);
    return made && swapRebuilt(name);
}

}  // namespace crv
