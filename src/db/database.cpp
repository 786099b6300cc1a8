#include "db/database.h"

#include <cstdlib>

#include "misc/exceptions.h"

namespace crv {

DbAnswer DataBase::fail(Error error) {
    error_ = error;
    return kDbError;
}

bool DataBase::isOutOfMemory() const {
    return index_.status() == FileStatus::NoMemory || data_.status() == FileStatus::NoMemory;
}

DbAnswer DataBase::create(const std::string& name, int idxNumb, const IndexDesc* descs, bool wait) {
    error_ = Error::None;
    if (name.size() > kMaxName) return fail(Error::Index);
    if (index_.create(name + kIndexExtension, idxNumb, descs, wait) != kDbOk) return fail(Error::Index);
    return data_.create(name + kDataExtension, idxNumb, descs, wait) == kDbOk ? kDbOk : fail(Error::Data);
}

DbAnswer DataBase::open(const std::string& name) {
    error_ = Error::None;
    if (isOpen()) return kDbOk;
    if (name.size() > kMaxName) return fail(Error::Index);
    // Each insertion makes the data file longer; whatever makes it shorter makes another index file, too.
    const bool hasData = data_.open(name + kDataExtension) == kDbOk;
    const bool same = hasData && data_.reused() && data_.length() == knownLength_;
    if (index_.open(name + kIndexExtension, same) != kDbOk) {
        data_.close();
        return fail(Error::Index);
    }
    if (!hasData) {
        index_.drop();
        return fail(Error::Data);
    }
    // An index with slots of another size would take keys that the records cannot hold.
    bool agree = data_.numIndexes() == index_.numIndexes();
    for (int i = 0; agree && i < data_.numIndexes(); ++i) agree = data_.descs()[i] == index_.root(i).desc;
    if (!agree) {
        close();
        data_.setStatus(FileStatus::BadMagic);
        return fail(Error::Data);
    }
    places_.fill(Place::AtTop);
    steps_ = 0;
    return kDbOk;
}

void DataBase::beginBatch() {
    VTEST(lock_ != nullptr, "src/db/database");
    deferWrites(true);
}

void DataBase::deferWrites(bool on) {
    index_.deferWrites(on);
    data_.deferWrites(on);
    deferred_ = on;
}

DbAnswer DataBase::flush() {
    error_ = Error::None;
    if (data_.flush() != kDbOk) return fail(Error::Data);
    return index_.flush() == kDbOk ? kDbOk : fail(Error::Index);
}

DbAnswer DataBase::endBatch() {
    if (!deferred_) return kDbOk;
    deferWrites(false);
    const DbAnswer answer = flush();
    if (answer != kDbOk && lock_) lock_->spoil();
    return answer;
}

void DataBase::close() {
    (void)endBatch();
    index_.close();
    if (index_.halfWritten()) spoilLock();
    knownLength_ = data_.length();
    data_.close();
}

void DataBase::spoilLock() {
    if (lock_ && lock_->held()) lock_->spoil();
}

bool DataBase::beginChange() {
    if (!lock_ || lock_->beginChange()) return true;
    data_.setStatus(FileStatus::IoFailure);
    return false;
}

DbAnswer DataBase::insert(std::span<const std::string_view> keys, ByteView body, int64_t& recNo) {
    error_ = Error::None;
    if (!beginChange()) return fail(Error::Data);
    const int64_t inserted = data_.insert(keys, body);
    if (inserted == 0) {
        if (lock_ && (data_.tornTail() || deferred_)) lock_->spoil();
        return fail(Error::Data);
    }
    if (index_.insert(keys, inserted) != kDbOk) {
        const bool undone =
            data_.remove(inserted) == kDbOk && !index_.halfWritten() && !index_.tornTail() && !deferred_;
        if (lock_ && !undone) lock_->spoil();
        return fail(Error::Index);
    }
    places_.fill(Place::Set);
    steps_ = 0;
    recNo = inserted;
    return kDbOk;
}

/// A table just opened stands at the top of each index; the place is looked up when it is first needed.
DbAnswer DataBase::settle() {
    error_ = Error::None;
    if (!isOpen()) return fail(index_.isOpen() ? Error::Data : Error::Index);
    if (places_[index_.selected()] == Place::AtTop && top() == kDbError) return kDbError;
    return places_[index_.selected()] == Place::None ? kDbNoRecord : kDbOk;
}

DbAnswer DataBase::current(int64_t& recNo) {
    std::string key;
    const DbAnswer answer = index_.data(key, recNo);
    return answer == kDbError ? fail(Error::Index) : answer;
}

DbAnswer DataBase::currentLive(int64_t& recNo) {
    DbAnswer answer = settle();
    if (answer == kDbOk) answer = current(recNo);
    if (answer != kDbOk) return answer;
    answer = data_.state(recNo);
    if (answer == kDbError) return fail(Error::Data);
    return answer == kDbDeleted ? kDbNoRecord : kDbOk;
}

DbAnswer DataBase::toLive(int direction, int64_t& passed) {
    for (passed = 0;; ++passed) {
        int64_t recNo = 0;
        DbAnswer answer = current(recNo);
        if (answer != kDbOk) return answer;
        answer = data_.state(recNo);
        if (answer == kDbError) return fail(Error::Data);
        if (answer == kDbOk) return kDbOk;
        answer = passed > index_.stepLimit() ? kDbError : index_.skip(direction);
        if (answer == kDbError) return fail(Error::Index);
        if (answer != kDbOk) return answer;
    }
}

/// Goes on from the end of the index where an operation has put the cursor to the first live record.
DbAnswer DataBase::fromEnd(DbAnswer answer, int direction) {
    int64_t passed = 0;
    if (answer == kDbOk) answer = toLive(direction, passed);
    places_[index_.selected()] = answer == kDbOk ? Place::Set : Place::None;
    steps_ = 0;
    if (answer == kDbError && error_ == Error::None) error_ = Error::Index;
    return answer;
}

DbAnswer DataBase::top() {
    error_ = Error::None;
    return fromEnd(index_.top(), 1);
}

DbAnswer DataBase::bottom() {
    error_ = Error::None;
    return fromEnd(index_.bottom(), -1);
}

DbAnswer DataBase::skip(int n) {
    DbAnswer answer = settle();
    if (answer != kDbOk) return answer;
    const IndexFile::Cursor start = index_.cursor();
    const int direction = n < 0 ? -1 : 1;
    for (int left = n; left != 0 && answer == kDbOk; left -= direction) {
        answer = index_.skip(direction);
        int64_t passed = 0;
        // Farther from where it began than the index has entries: the pages of a damaged file go round in a circle.
        if (answer == kDbOk && std::abs(steps_ += direction) > index_.stepLimit()) answer = kDbError;
        if (answer == kDbOk) {
            answer = toLive(direction, passed);
        } else if (answer == kDbError) {
            fail(Error::Index);
        }
    }
    if (answer == kDbOk) return kDbOk;
    index_.setCursor(start);
    steps_ = 0;
    return answer;
}

/// Where a search of the index ended, goes on to the first live record.
DbAnswer DataBase::fromFound(DbAnswer answer, std::string_view key) {
    steps_ = 0;
    if (answer == kDbError) return fail(Error::Index);
    if (answer != kDbNoRecord) {
        int64_t passed = 0;
        answer = toLive(1, passed);
    }
    if (answer == kDbError) return kDbError;
    if (answer == kDbNoRecord) return bottom() == kDbError ? kDbError : kDbNoRecord;
    places_[index_.selected()] = Place::Set;
    std::string found;
    int64_t recNo = 0;
    if (index_.data(found, recNo) != kDbOk) return fail(Error::Index);
    return found == keyText(key) ? kDbOk : kDbGreater;
}

DbAnswer DataBase::seek(std::string_view key) {
    error_ = Error::None;
    return isOpen() ? fromFound(index_.seek(key), key) : settle();
}

DbAnswer DataBase::seekEqual(std::string_view key) {
    error_ = Error::None;
    if (!isOpen()) return settle();
    DbAnswer answer = index_.seek(key);
    if (answer == kDbOk || answer == kDbError) answer = fromFound(answer, key);
    if (answer == kDbOk || answer == kDbError) return answer;
    places_[index_.selected()] = Place::None;
    return kDbNoRecord;
}

DbAnswer DataBase::data(TableRecord& record) {
    int64_t recNo = 0;
    DbAnswer answer = settle();
    if (answer == kDbOk) answer = current(recNo);
    if (answer != kDbOk) return answer;
    answer = data_.data(recNo, record, false);
    if (answer == kDbError) return fail(Error::Data);
    return answer == kDbDeleted ? kDbNoRecord : kDbOk;
}

DbAnswer DataBase::recNo(int64_t& number) {
    const DbAnswer answer = settle();
    return answer == kDbOk ? current(number) : answer;
}

DbAnswer DataBase::update(ByteView body) {
    int64_t recNo = 0;
    const DbAnswer answer = currentLive(recNo);
    if (answer == kDbError || answer == kDbNoRecord) return answer;
    if (answer != kDbOk) failAssertion("0", "src/db/database", __LINE__);
    if (!beginChange()) return fail(Error::Data);
    const DbAnswer updated = data_.update(recNo, body);
    return updated == kDbError ? fail(Error::Data) : updated;
}

DbAnswer DataBase::remove() {
    int64_t recNo = 0;
    const DbAnswer answer = currentLive(recNo);
    if (answer == kDbError || answer == kDbNoRecord) return answer;
    if (answer != kDbOk) failAssertion("0", "src/db/database", __LINE__);
    if (!beginChange() || data_.remove(recNo) != kDbOk) return fail(Error::Data);
    return kDbOk;
}

DbAnswer DataBase::setRec(int64_t recNo) {
    error_ = Error::None;
    if (!isOpen()) return settle();
    TableRecord record;
    if (data_.data(recNo, record, false) != kDbOk) return fail(Error::Data);
    const std::string& wanted = record.keys[index_.selected()];
    steps_ = 0;
    DbAnswer answer = index_.seek(wanted);
    for (int64_t steps = 0; answer == kDbOk && steps <= index_.stepLimit(); ++steps) {
        std::string key;
        int64_t at = 0;
        if (index_.data(key, at) != kDbOk || key != wanted) break;
        if (at == recNo) {
            places_[index_.selected()] = Place::Set;
            return kDbOk;
        }
        answer = index_.skip(1);
    }
    return fail(Error::Index);
}

DbAnswer DataBase::sync() {
    if (endBatch() != kDbOk) return kDbError;
    // The data first: what the disk has of it, an index can be made from again.
    const bool done = data_.sync() && index_.sync();
    if (done) return kDbOk;
    if (lock_) lock_->spoil();
    return fail(data_.status() == FileStatus::Ok ? Error::Index : Error::Data);
}

}  // namespace crv
