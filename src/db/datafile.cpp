#include "db/datafile.h"

#include <algorithm>
#include <new>

#include "misc/byte_order.h"
#include "misc/exceptions.h"

namespace crv {

using namespace data_format;

namespace {

constexpr const char* place = "src/db/datafile";
/// Most records fit into one read of this size.
constexpr size_t readAhead = 4096;
/// Deferred records are written when there are that many octets of them.
constexpr size_t pendingLimit = 256 * 1024;

}  // namespace

int DataFile::create(const std::string& path, int idxNumb, const IndexDesc* descs) {
    VTEST(idxNumb <= MAX_INDEX, place);
    std::array<uint8_t, data_format::headSize> head{};
    storeLe(head.data() + headMagic, tableMagic);
    storeLe(head.data() + headNumIndexes, static_cast<int16_t>(idxNumb));
    for (int i = 0; i < idxNumb; ++i) {
        storeLe(head.data() + descriptors + 4 * i, descs[i].keyLen);
        storeLe(head.data() + descriptors + 4 * i + 2, descs[i].pageSize);
    }
    if (!parseHeader(head.data())) return setStatus(FileStatus::badMagic), dbError;
    const bool made = File::create(path) && writeAt(0, head);
    const FileStatus why = status();
    File::close();
    if (!made) setStatus(why);
    return made ? dbOk : dbError;
}

bool DataFile::parseHeader(const uint8_t* octets) {
    const auto count = loadLe<int16_t>(octets + headNumIndexes);
    if (loadLe<int64_t>(octets + headMagic) != tableMagic || count < 1 || count > MAX_INDEX) return false;
    numIdx_ = count;
    keyOctets_ = 0;
    for (int i = 0; i < numIdx_; ++i) {
        const uint8_t* from = octets + descriptors + 4 * i;
        descs_[i] = {loadLe<int16_t>(from), loadLe<int16_t>(from + 2)};
        if (descs_[i].keyLen < 1) return false;
        keyOctets_ += descs_[i].keyLen;
    }
    return true;
}

int DataFile::open(const std::string& path) {
    std::array<uint8_t, data_format::headSize> head;
    const bool opened = File::open(path);
    if (opened && reused()) return dbOk;  // the header of a file never changes
    if (!opened || !readAt(0, head.data(), head.size())) {
        File::close();
        return setStatus(FileStatus::ioFailure), dbError;
    }
    if (parseHeader(head.data())) return dbOk;
    File::close();
    return setStatus(FileStatus::badMagic), dbError;
}

bool DataFile::decodeHead(const uint8_t* octets, int64_t recNo, RecordHead& head) const {
    if (loadLe<int64_t>(octets + recordMagic) != tableMagic) return false;
    head.deleted = loadLe<int64_t>(octets + recordDeleted) != 0;
    head.length = loadLe<int64_t>(octets + recordLength);
    head.capacity = loadLe<int64_t>(octets + recordCapacity);
    return head.length >= 0 && head.length <= head.capacity && head.capacity <= length() &&
           recordSize(head.capacity) <= length() - recNo;
}

std::array<uint8_t, recordHead> DataFile::encodeHead(const RecordHead& head) {
    std::array<uint8_t, recordHead> octets{};
    storeLe<int64_t>(octets.data() + recordDeleted, head.deleted ? 1 : 0);
    storeLe(octets.data() + recordMagic, tableMagic);
    storeLe(octets.data() + recordLength, head.length);
    storeLe(octets.data() + recordCapacity, head.capacity);
    return octets;
}

void DataFile::close() {
    pending_.clear();
    park();
}

int DataFile::flush() {
    if (pending_.empty()) return dbOk;
    const bool done = append(pending_) >= 0;
    pending_.clear();
    return done ? dbOk : dbError;
}

/// Sees to it that the record is in the file, if it is one of this file's.
bool DataFile::written(int64_t recNo) {
    if (recNo < static_cast<int64_t>(data_format::headSize)) return setStatus(FileStatus::badMagic), false;
    return recNo < length() || flush() == dbOk;
}

bool DataFile::readHead(int64_t recNo, RecordHead& head) {
    std::array<uint8_t, recordHead> octets;
    if (!written(recNo)) return false;
    if (!readAt(recNo, octets.data(), octets.size())) return false;
    return decodeHead(octets.data(), recNo, head) || (setStatus(FileStatus::badMagic), false);
}

bool DataFile::keysFit(std::span<const std::string_view> keys) const {
    if (keys.size() != static_cast<size_t>(numIdx_)) return false;
    for (int i = 0; i < numIdx_; ++i) {
        if (!keyFits(keys[i], descs_[i])) return false;
    }
    return true;
}

int64_t DataFile::insert(std::span<const std::string_view> keys, ByteView body) {
    if (!isOpen()) return setStatus(FileStatus::notOpen), 0;
    if (!keysFit(keys)) return 0;
    try {
        const auto size = static_cast<int64_t>(body.size());
        const auto head = encodeHead({false, size, size});
        const auto before = static_cast<int64_t>(pending_.size());
        pending_.reserve(deferred_ ? pendingLimit : 0);
        pending_.insert(pending_.end(), head.begin(), head.end());
        for (int i = 0; i < numIdx_; ++i) {
            const std::string_view key = keyText(keys[i]);
            pending_.insert(pending_.end(), key.begin(), key.end());
            pending_.resize(pending_.size() + static_cast<size_t>(descs_[i].keyLen) - key.size());
        }
        pending_.insert(pending_.end(), body.begin(), body.end());
        const int64_t recNo = length() + before;
        const bool wait = deferred_ && pending_.size() < pendingLimit;
        return wait || flush() == dbOk ? recNo : 0;
    } catch (const std::bad_alloc&) {
        pending_.clear();
        return setStatus(FileStatus::noMemory), 0;
    }
}

int DataFile::update(int64_t recNo, ByteView body) {
    RecordHead head;
    if (!readHead(recNo, head)) return dbError;
    if (head.deleted) return dbDeleted;
    if (static_cast<int64_t>(body.size()) > head.capacity) return dbTooLong;
    head.length = static_cast<int64_t>(body.size());
    // The body goes before the length that makes a longer one visible.
    if (!writeAt(recNo + recordSize(0), body)) return dbError;
    return writeAt(recNo, encodeHead(head)) ? dbOk : dbError;
}

int DataFile::data(int64_t recNo, TableRecord& record, bool includeDeleted) {
    if (!written(recNo)) return dbError;
    try {
        scratch_.resize(std::max(scratch_.size(), readAhead));
        const ssize_t have = readSome(recNo, scratch_.data(), readAhead);
        if (have < static_cast<ssize_t>(recordHead)) return setStatus(FileStatus::ioFailure), dbError;
        RecordHead head;
        if (!decodeHead(scratch_.data(), recNo, head)) return setStatus(FileStatus::badMagic), dbError;
        if (head.deleted && !includeDeleted) return dbDeleted;
        const auto size = static_cast<size_t>(recordSize(head.length));
        if (size > static_cast<size_t>(have)) {
            scratch_.resize(std::max(scratch_.size(), size));
            if (!readAt(recNo + have, scratch_.data() + have, size - static_cast<size_t>(have))) return dbError;
        }
        record.keys.resize(static_cast<size_t>(numIdx_));
        const char* from = reinterpret_cast<const char*>(scratch_.data()) + recordHead;
        for (int i = 0; i < numIdx_; from += descs_[i++].keyLen) {
            record.keys[i] = keyText({from, static_cast<size_t>(descs_[i].keyLen)});
        }
        record.body.assign(from, from + head.length);
        return head.deleted ? dbDeleted : dbOk;
    } catch (const std::bad_alloc&) {
        return setStatus(FileStatus::noMemory), dbError;
    }
}

int DataFile::state(int64_t recNo) {
    RecordHead head;
    if (!readHead(recNo, head)) return dbError;
    return head.deleted ? dbDeleted : dbOk;
}

int DataFile::remove(int64_t recNo) {
    RecordHead head;
    if (!readHead(recNo, head)) return dbError;
    head.deleted = true;
    return writeAt(recNo, encodeHead(head)) ? dbOk : dbError;
}

int DataFile::top(int64_t& recNo) {
    if (!isOpen()) return setStatus(FileStatus::notOpen), dbError;
    if (flush() != dbOk) return dbError;
    if (length() <= static_cast<int64_t>(data_format::headSize)) return dbNoRecord;
    recNo = static_cast<int64_t>(data_format::headSize);
    return dbOk;
}

int DataFile::next(int64_t recNo, int64_t& following) {
    RecordHead head;
    if (!readHead(recNo, head)) return dbError;
    const int64_t after = recNo + recordSize(head.capacity);
    if (flush() != dbOk) return dbError;
    if (after >= length()) return dbNoRecord;
    following = after;
    return dbOk;
}

}  // namespace crv
