#include "db/datafile.h"

#include <algorithm>
#include <new>

#include "misc/byte_order.h"
#include "misc/exceptions.h"

namespace crv {

using namespace data_format;

namespace {

constexpr const char* kDataPlace = "src/db/datafile";
/// Most records fit into one read of this size.
constexpr size_t kReadAhead = 4096;
/// Deferred records are written when there are that many octets of them.
constexpr size_t kPendingLimit = 256 * 1024;

}  // namespace

DbAnswer DataFile::create(const std::string& path, int idxNumb, const IndexDesc* descs, bool wait) {
    VTEST(idxNumb <= MAX_INDEX, kDataPlace);
    std::array<uint8_t, data_format::kHeadSize> head{};
    storeLe(head.data() + kHeadMagic, kTableMagic);
    storeLe(head.data() + kHeadNumIndexes, static_cast<int16_t>(idxNumb));
    for (int i = 0; i < idxNumb; ++i) {
        storeLe(head.data() + kDescriptors + 4 * i, descs[i].keyLen);
        storeLe(head.data() + kDescriptors + 4 * i + 2, descs[i].pageSize);
    }
    if (!parseHeader(head.data())) return setStatus(FileStatus::BadMagic), kDbError;
    const bool made = File::create(path) && writeAt(0, head) && (!wait || sync());
    const FileStatus why = status();
    File::close();
    if (!made) setStatus(why);
    return made ? kDbOk : kDbError;
}

bool DataFile::parseHeader(const uint8_t* octets) {
    const auto count = loadLe<int16_t>(octets + kHeadNumIndexes);
    if (loadLe<int64_t>(octets + kHeadMagic) != kTableMagic || count < 1 || count > MAX_INDEX) return false;
    numIdx_ = count;
    keyOctets_ = 0;
    for (int i = 0; i < numIdx_; ++i) {
        const uint8_t* from = octets + kDescriptors + 4 * i;
        descs_[i] = {loadLe<int16_t>(from), loadLe<int16_t>(from + 2)};
        if (descs_[i].keyLen < 1) return false;
        keyOctets_ += descs_[i].keyLen;
    }
    return true;
}

DbAnswer DataFile::open(const std::string& path) {
    std::array<uint8_t, data_format::kHeadSize> head;
    const bool opened = File::open(path);
    if (opened && reused()) return kDbOk;  // the header of a file never changes
    if (!opened || !readAt(0, head.data(), head.size())) {
        File::close();
        return setStatus(FileStatus::IoFailure), kDbError;
    }
    if (parseHeader(head.data())) return kDbOk;
    File::close();
    return setStatus(FileStatus::BadMagic), kDbError;
}

bool DataFile::decodeHead(const uint8_t* octets, int64_t recNo, RecordHead& head) const {
    if (loadLe<int64_t>(octets + kRecordMagic) != kTableMagic) return false;
    head.flag = loadLe<int64_t>(octets + kRecordDeleted);
    head.deleted = head.flag != 0;
    head.length = loadLe<int64_t>(octets + kRecordLength);
    head.capacity = loadLe<int64_t>(octets + kRecordCapacity);
    return head.length >= 0 && head.length <= head.capacity && head.capacity <= length() &&
           recordSize(head.capacity) <= length() - recNo;
}

std::array<uint8_t, kRecordHead> DataFile::encodeHead(const RecordHead& head) {
    std::array<uint8_t, kRecordHead> octets{};
    storeLe<int64_t>(octets.data() + kRecordDeleted, head.deleted ? 1 : 0);
    storeLe(octets.data() + kRecordMagic, kTableMagic);
    storeLe(octets.data() + kRecordLength, head.length);
    storeLe(octets.data() + kRecordCapacity, head.capacity);
    return octets;
}

void DataFile::close() {
    pending_.clear();
    lost_ = false;
    park();
}

DbAnswer DataFile::flush() {
    if (lost_) return kDbError;
    if (pending_.empty()) return kDbOk;
    const bool done = append(pending_) >= 0;
    pending_.clear();
    lost_ = deferred_ && !done;  // a look-up may be what writes: the batch has to hear of it, too
    return done ? kDbOk : kDbError;
}

/// Sees to it that the record is in the file, if it is one of this file's.
bool DataFile::written(int64_t recNo) {
    if (recNo < static_cast<int64_t>(data_format::kHeadSize)) return setStatus(FileStatus::BadMagic), false;
    return recNo < length() || flush() == kDbOk;
}

bool DataFile::readHead(int64_t recNo, RecordHead& head) {
    std::array<uint8_t, kRecordHead> octets;
    if (!written(recNo)) return false;
    if (!readAt(recNo, octets.data(), octets.size())) return false;
    return decodeHead(octets.data(), recNo, head) || (setStatus(FileStatus::BadMagic), false);
}

bool DataFile::keysFit(std::span<const std::string_view> keys) const {
    if (keys.size() != static_cast<size_t>(numIdx_)) return false;
    for (int i = 0; i < numIdx_; ++i) {
        if (!keyFits(keys[i], descs_[i])) return false;
    }
    return true;
}

int64_t DataFile::insert(std::span<const std::string_view> keys, ByteView body) {
    if (!isOpen()) return setStatus(FileStatus::NotOpen), 0;
    if (!keysFit(keys)) return 0;
    try {
        const auto size = static_cast<int64_t>(body.size());
        const auto head = encodeHead({false, size, size});
        const auto before = static_cast<int64_t>(pending_.size());
        pending_.reserve(deferred_ ? kPendingLimit : 0);
        pending_.resize(pending_.size() + static_cast<size_t>(recordSize(0)));
        uint8_t* to = std::ranges::copy(head, pending_.data() + before).out;
        for (int i = 0; i < numIdx_; to += descs_[i++].keyLen) std::ranges::copy(keyText(keys[i]), to);
        pending_.insert(pending_.end(), body.begin(), body.end());
        const int64_t recNo = length() + before;
        const bool wait = deferred_ && pending_.size() < kPendingLimit;
        return wait || flush() == kDbOk ? recNo : 0;
    } catch (const std::bad_alloc&) {
        pending_.clear();
        lost_ = deferred_;
        return setStatus(FileStatus::NoMemory), 0;
    }
}

DbAnswer DataFile::update(int64_t recNo, ByteView body) {
    RecordHead head;
    if (!readHead(recNo, head)) return kDbError;
    if (head.deleted) return kDbDeleted;
    if (static_cast<int64_t>(body.size()) > head.capacity) return kDbTooLong;
    head.length = static_cast<int64_t>(body.size());
    // The body goes before the length that makes a longer one visible.
    if (!writeAt(recNo + recordSize(0), body)) return kDbError;
    return writeAt(recNo, encodeHead(head)) ? kDbOk : kDbError;
}

DbAnswer DataFile::data(int64_t recNo, TableRecord& record, bool includeDeleted) {
    if (!written(recNo)) return kDbError;
    try {
        scratch_.resize(std::max(scratch_.size(), kReadAhead));
        const ssize_t have = readSome(recNo, scratch_.data(), kReadAhead);
        if (have < static_cast<ssize_t>(kRecordHead)) return setStatus(FileStatus::IoFailure), kDbError;
        RecordHead head;
        if (!decodeHead(scratch_.data(), recNo, head)) return setStatus(FileStatus::BadMagic), kDbError;
        if (head.deleted && !includeDeleted) return kDbDeleted;
        const auto size = static_cast<size_t>(recordSize(head.length));
        if (size > static_cast<size_t>(have)) {
            scratch_.resize(std::max(scratch_.size(), size));
            if (!readAt(recNo + have, scratch_.data() + have, size - static_cast<size_t>(have))) return kDbError;
        }
        record.keys.resize(static_cast<size_t>(numIdx_));
        const char* from = reinterpret_cast<const char*>(scratch_.data()) + kRecordHead;
        for (int i = 0; i < numIdx_; from += descs_[i++].keyLen) {
            record.keys[i] = keyText({from, static_cast<size_t>(descs_[i].keyLen)});
        }
        record.body.assign(from, from + head.length);
        return head.deleted ? kDbDeleted : kDbOk;
    } catch (const std::bad_alloc&) {
        return setStatus(FileStatus::NoMemory), kDbError;
    }
}

DbAnswer DataFile::state(int64_t recNo) {
    RecordHead head;
    if (!readHead(recNo, head)) return kDbError;
    return head.deleted ? kDbDeleted : kDbOk;
}

DbAnswer DataFile::remove(int64_t recNo) {
    RecordHead head;
    if (!readHead(recNo, head)) return kDbError;
    head.deleted = true;
    return writeAt(recNo, encodeHead(head)) ? kDbOk : kDbError;
}

DbAnswer DataFile::top(int64_t& recNo) {
    if (!isOpen()) return setStatus(FileStatus::NotOpen), kDbError;
    if (flush() != kDbOk) return kDbError;
    if (length() <= static_cast<int64_t>(data_format::kHeadSize)) return kDbNoRecord;
    recNo = static_cast<int64_t>(data_format::kHeadSize);
    return kDbOk;
}

DbAnswer DataFile::next(int64_t recNo, int64_t& following) {
    RecordHead head;
    if (!readHead(recNo, head)) return kDbError;
    const int64_t after = recNo + recordSize(head.capacity);
    if (flush() != kDbOk) return kDbError;
    if (after >= length()) return kDbNoRecord;
    following = after;
    return kDbOk;
}

}  // namespace crv
