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
#include "misc/byte_order.h"
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
    explicit IndexMaker(std::string name, MendExtent extent = MendExtent::AfterCrash, TableKnowledge knowledge = {})
        : name_(std::move(name)), extent_(extent), knowledge_(std::move(knowledge)) {}

    /// memory: of the sorting, see IndexBuilder.
    [[nodiscard]] bool run(size_t memory = IndexBuilder::kMemory) {
        const std::string indexPath = rebuildName(name_) + kIndexExtension;
        if (data_.open(name_ + kDataExtension) != kDbOk) return false;
        if (index_.create(indexPath, data_.numIndexes(), data_.descs(), false) != kDbOk) return false;
        if (index_.open(indexPath) != kDbOk) return false;
        keepRights(name_, kIndexExtension);
        IndexBuilder builder(index_, memory);
        for (bool more = true; more;) {
            DataScan scan(data_, from_);
            if (!walk(scan, builder, more)) return false;
        }
        return builder.finish() == kDbOk && keepCountGrowing() && index_.sync() && (!changed_ || data_.sync());
    }
    [[nodiscard]] Salvaged salvaged() const { return salvaged_; }
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
            if (salvages() && headIsWrong(scan, more)) return more;
            previous_ = scan.recNo();
            if (scan.deleted()) continue;
            scan.keys(keys_);
            if (salvages() && !rightKeys(scan)) return false;
            more = salvages() && !index_.keysFit(keys_);
            if (more) return dropAt(scan.recNo());
            if (builder.add(keys_, scan.recNo()) != kDbOk) return false;
        }
    }

    [[nodiscard]] bool salvages() const { return extent_ == MendExtent::Salvage; }

    /// Puts a head in place of another one, in the copy; the walk goes on from there.
    bool restore(int64_t recNo, const RecordHead& head) {
        ++salvaged_.restored;
        from_ = recNo;
        return useCopy() && data_.writeAt(recNo, DataFile::encodeHead(head));
    }

    /// A head whose numbers are possible but not right: put right; done tells whether that succeeded.
    bool headIsWrong(const DataScan& scan, bool& done) {
        RecordHead head = scan.head();
        const bool uneven = knowledge_.bodiesFill && head.length != head.capacity;
        const bool live = scan.deleted() && knowledge_.isLive && knowledge_.isLive(scan.recNo(), scan.body());
        if (!uneven && !live && head.flag == (head.deleted ? 1 : 0)) return false;
        // One octet is damaged, not two: the number that leads to a record is the right one.
        const int64_t after = scan.recNo() + data_.recordSize(head.length);
        if (uneven) {
            RecordHead next;
            const bool byLength = after == data_.length() || headAt(data_, after, next);
            (byLength ? head.capacity : head.length) = byLength ? head.length : head.capacity;
        }
        head.deleted = (head.flag & 1) != 0 && !live;
        done = restore(scan.recNo(), head);
        return true;
    }

    /// What was made from the body counts more than what stands in the slots.
    bool rightKeys(const DataScan& scan) {
        if (!knowledge_.keysOf || !knowledge_.keysOf(scan.recNo(), scan.body(), made_)) return true;
        if (std::ranges::equal(made_, keys_, {}, [](const std::string& key) { return keyText(key); })) return true;
        Bytes slots(static_cast<size_t>(data_.keyOctets()));
        auto to = slots.begin();
        keys_.assign(made_.begin(), made_.end());
        if (!index_.keysFit(keys_)) return true;
        for (int i = 0; i < data_.numIndexes(); to += data_.descs()[i++].keyLen)
            std::ranges::copy(keyText(keys_[i]), to);
        ++salvaged_.restored;
        return useCopy() && data_.writeAt(scan.recNo() + static_cast<int64_t>(kRecordHead), slots);
    }

    /// A record with a key that does not end in its slot cannot be found.
    bool dropAt(int64_t recNo) {
        from_ = recNo;
        ++salvaged_.lost;
        return useCopy() && data_.remove(recNo) == kDbOk;
    }

    bool mendAt(int64_t damaged) {
        from_ = damaged;
        const int64_t next = nextRecord(data_, damaged);
        const bool tail = next == kNowhere;
        if (salvages() && (jumpedOverRecords(damaged) || restoreHead(damaged, tail ? data_.length() : next)))
            return true;
        if (!tail && !salvages()) {
            logLine(LogLevel::Error, "damaged record at " + std::to_string(damaged) + " in " + data_.path());
            return false;
        }
        if (salvages() && !useCopy()) return false;
        ++salvaged_.lost;
        if (tail) {
            logLine(LogLevel::Warning, "part of a record cut off at the end of " + data_.path());
            changed_ = true;
            return data_.truncate(damaged);
        }
        const RecordHead bridge{true, 0, next - damaged - data_.recordSize(0)};
        return bridge.capacity >= 0 && data_.writeAt(damaged, DataFile::encodeHead(bridge));
    }

    /// The record before may lead past others: it ends where the first of them begins.
    bool jumpedOverRecords(int64_t damaged) {
        RecordHead head;
        const int64_t next = previous_ == kNowhere ? kNowhere : nextRecord(data_, previous_);
        if (next == kNowhere || next >= damaged || !headAt(data_, previous_, head)) return false;
        head.capacity = next - previous_ - data_.recordSize(0);
        head.length = knowledge_.bodiesFill ? head.capacity : std::min(head.length, head.capacity);
        if (!restore(previous_, head)) return false;
        from_ = next;
        return true;
    }

    /// A head that is no longer one, but has a number that fits exactly to where the next record begins.
    bool restoreHead(int64_t damaged, int64_t next) {
        std::array<uint8_t, kRecordHead> octets;
        const int64_t room = next - damaged - data_.recordSize(0);
        if (room < 0 || !data_.readAt(damaged, octets.data(), octets.size())) return false;
        const auto length = loadLe<int64_t>(octets.data() + kRecordLength);
        const auto capacity = loadLe<int64_t>(octets.data() + kRecordCapacity);
        if (length != room && capacity != room) return false;
        const bool deleted = (loadLe<int64_t>(octets.data() + kRecordDeleted) & 1) != 0;
        const bool shorter = !knowledge_.bodiesFill && length >= 0 && length < room;
        return restore(damaged, {deleted, shorter ? length : room, room});
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
    TableKnowledge knowledge_;
    DataFile data_;
    IndexFile index_;
    std::vector<std::string_view> keys_;
    std::vector<std::string> made_;
    int64_t from_ = kHeadSize;
    int64_t previous_ = kNowhere;  // the last record that was sound
    bool copied_ = false;
    bool changed_ = false;  // the data file
    Salvaged salvaged_;
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

bool remakeIndexes(const std::string& name, MendExtent extent, Salvaged& salvaged, TableKnowledge knowledge) {
    discardRebuilt(name);
    IndexMaker maker(name, extent, std::move(knowledge));
    const bool made = maker.run();
    salvaged = maker.salvaged();
    if (!made) discardRebuilt(name);
    return made;
}

bool mendTable(const std::string& name) {
    // Only a mark "swapping" makes "#" files count, so whatever is there is the rest of another time.
    discardRebuilt(name);
    IndexMaker maker(name);
    bool made = maker.run();
    if (!made && maker.noRoom()) {
        // The mark is set, so nobody believes the old index any more, and the data file has all that is in it. Its room
        // is enough for the new one, not for what is sorted beside it.
        discardRebuilt(name);
        fileOps().unlink(name + kIndexExtension);
        made = IndexMaker(name).run(SIZE_MAX);
    }
    if (!made) discardRebuilt(name);
    return made && swapRebuilt(name);
}

}  // namespace crv
