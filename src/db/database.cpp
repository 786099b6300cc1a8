#include "db/database.h"

#include <cstdlib>

#include "db/table_rebuild.h"
#include "misc/exceptions.h"

namespace crv {

int DataBase::fail(Error error) {
    error_ = error;
    return dbError;
}

bool DataBase::isOutOfMemory() const {
    return index_.status() == FileStatus::noMemory || data_.status() == FileStatus::noMemory;
}

int DataBase::create(const std::string& name, int idxNumb, const IndexDesc* descs) {
    error_ = Error::none;
    if (name.size() > maxName) return fail(Error::index);
    if (index_.create(name + indexExtension, idxNumb, descs) != dbOk) return fail(Error::index);
    return data_.create(name + dataExtension, idxNumb, descs) == dbOk ? dbOk : fail(Error::data);
}

int DataBase::open(const std::string& name) {
    error_ = Error::none;
    if (isOpen()) return dbOk;
    if (name.size() > maxName || index_.open(name + indexExtension) != dbOk) return fail(Error::index);
    if (data_.open(name + dataExtension) != dbOk) {
        index_.drop();
        return fail(Error::data);
    }
    if (data_.numIndexes() != index_.numIndexes()) {
        close();
        data_.setStatus(FileStatus::badMagic);
        return fail(Error::data);
    }
    places_.fill(Place::atTop);
    steps_ = 0;
    return dbOk;
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

int DataBase::flush() {
    error_ = Error::none;
    if (data_.flush() != dbOk) return fail(Error::data);
    return index_.flush() == dbOk ? dbOk : fail(Error::index);
}

int DataBase::endBatch() {
    if (!deferred_) return dbOk;
    deferWrites(false);
    const int answer = flush();
    if (answer != dbOk && lock_ != nullptr) lock_->spoil();
    return answer;
}

void DataBase::close() {
    (void)endBatch();
    index_.close();
    if (lock_ != nullptr && lock_->held() && index_.halfWritten()) lock_->spoil();
    data_.close();
}

bool DataBase::beginChange() {
    if (lock_ == nullptr || lock_->beginChange()) return true;
    data_.setStatus(FileStatus::ioFailure);
    return false;
}

int DataBase::insert(std::span<const std::string_view> keys, ByteView body, int64_t& recNo) {
    error_ = Error::none;
    if (!beginChange()) return fail(Error::data);
    const int64_t inserted = data_.insert(keys, body);
    if (inserted == 0) {
        if (lock_ != nullptr && (data_.tornTail() || deferred_)) lock_->spoil();
        return fail(Error::data);
    }
    if (index_.insert(keys, inserted) != dbOk) {
        const bool undone = data_.remove(inserted) == dbOk && !index_.halfWritten() && !index_.tornTail() && !deferred_;
        if (lock_ != nullptr && !undone) lock_->spoil();
        return fail(Error::index);
    }
    places_.fill(Place::set);
    steps_ = 0;
    recNo = inserted;
    return dbOk;
}

/// A table just opened stands at the top of each index; the place is looked up when it is first needed.
int DataBase::settle() {
    error_ = Error::none;
    if (!isOpen()) return fail(index_.isOpen() ? Error::data : Error::index);
    if (places_[index_.selected()] == Place::atTop && top() == dbError) return dbError;
    return places_[index_.selected()] == Place::none ? dbNoRecord : dbOk;
}

int DataBase::current(int64_t& recNo) {
    std::string key;
    const int answer = index_.data(key, recNo);
    return answer == dbError ? fail(Error::index) : answer;
}

int DataBase::currentLive(int64_t& recNo) {
    int answer = settle();
    if (answer == dbOk) answer = current(recNo);
    if (answer != dbOk) return answer;
    answer = data_.state(recNo);
    if (answer == dbError) return fail(Error::data);
    return answer == dbDeleted ? dbNoRecord : dbOk;
}

int DataBase::toLive(int direction, int64_t& passed) {
    for (passed = 0;; ++passed) {
        int64_t recNo = 0;
        int answer = current(recNo);
        if (answer != dbOk) return answer;
        answer = data_.state(recNo);
        if (answer == dbError) return fail(Error::data);
        if (answer == dbOk) return dbOk;
        answer = passed > index_.stepLimit() ? dbError : index_.skip(direction);
        if (answer == dbError) return fail(Error::index);
        if (answer != dbOk) return answer;
    }
}

/// Goes on from the end of the index where an operation has put the cursor to the first live record.
int DataBase::fromEnd(int answer, int direction) {
    int64_t passed = 0;
    if (answer == dbOk) answer = toLive(direction, passed);
    places_[index_.selected()] = answer == dbOk ? Place::set : Place::none;
    steps_ = 0;
    if (answer == dbError && error_ == Error::none) error_ = Error::index;
    return answer;
}

int DataBase::top() {
    error_ = Error::none;
    return fromEnd(index_.top(), 1);
}

int DataBase::bottom() {
    error_ = Error::none;
    return fromEnd(index_.bottom(), -1);
}

int DataBase::skip(int n) {
    int answer = settle();
    if (answer != dbOk) return answer;
    const IndexFile::Cursor start = index_.cursor();
    const int direction = n < 0 ? -1 : 1;
    for (int left = n; left != 0 && answer == dbOk; left -= direction) {
        answer = index_.skip(direction);
        int64_t passed = 0;
        // Farther from where it began than the index has entries: the pages of a damaged file go round in a circle.
        if (answer == dbOk && std::abs(steps_ += direction) > index_.stepLimit()) answer = dbError;
        if (answer == dbOk) {
            answer = toLive(direction, passed);
        } else if (answer == dbError) {
            fail(Error::index);
        }
    }
    if (answer != dbOk) index_.setCursor(start);
    if (answer != dbOk) steps_ = 0;
    return answer;
}

int DataBase::seek(std::string_view key) {
    error_ = Error::none;
    if (!isOpen()) return settle();
    steps_ = 0;
    int answer = index_.seek(key);
    if (answer == dbError) return fail(Error::index);
    if (answer != dbNoRecord) {
        int64_t passed = 0;
        answer = toLive(1, passed);
    }
    if (answer == dbError) return dbError;
    if (answer == dbNoRecord) return bottom() == dbError ? dbError : dbNoRecord;
    places_[index_.selected()] = Place::set;
    std::string found;
    int64_t recNo = 0;
    if (index_.data(found, recNo) != dbOk) return fail(Error::index);
    return found == keyText(key) ? dbOk : dbGreater;
}

int DataBase::data(TableRecord& record) {
    int64_t recNo = 0;
    int answer = settle();
    if (answer == dbOk) answer = current(recNo);
    if (answer != dbOk) return answer;
    answer = data_.data(recNo, record, false);
    if (answer == dbError) return fail(Error::data);
    return answer == dbDeleted ? dbNoRecord : dbOk;
}

int64_t DataBase::recNo() {
    int64_t recNo = 0;
    int answer = settle();
    if (answer == dbOk) answer = current(recNo);
    return answer == dbOk ? recNo : answer;
}

int DataBase::update(ByteView body) {
    int64_t recNo = 0;
    const int answer = currentLive(recNo);
    if (answer == dbError || answer == dbNoRecord) return answer;
    if (answer != dbOk) failAssertion("0", "src/db/database", __LINE__);
    if (!beginChange()) return fail(Error::data);
    const int updated = data_.update(recNo, body);
    return updated == dbError ? fail(Error::data) : updated;
}

int DataBase::remove() {
    int64_t recNo = 0;
    const int answer = currentLive(recNo);
    if (answer == dbError || answer == dbNoRecord) return answer;
    if (answer != dbOk) failAssertion("0", "src/db/database", __LINE__);
    if (!beginChange() || data_.remove(recNo) != dbOk) return fail(Error::data);
    return dbOk;
}

int DataBase::setRec(int64_t recNo) {
    error_ = Error::none;
    if (!isOpen()) return settle();
    TableRecord record;
    if (data_.data(recNo, record, false) != dbOk) return fail(Error::data);
    const std::string& wanted = record.keys[index_.selected()];
    steps_ = 0;
    int answer = index_.seek(wanted);
    for (int64_t steps = 0; answer == dbOk && steps <= index_.stepLimit(); ++steps) {
        std::string key;
        int64_t at = 0;
        if (index_.data(key, at) != dbOk || key != wanted) break;
        if (at == recNo) {
            places_[index_.selected()] = Place::set;
            return dbOk;
        }
        answer = index_.skip(1);
    }
    return fail(Error::index);
}

int DataBase::sync() {
    if (endBatch() != dbOk) return dbError;
    if (!index_.sync()) return fail(Error::index);
    return data_.sync() ? dbOk : fail(Error::data);
}

int DataBase::rebuild(const std::string& name) {
    error_ = Error::none;
    close();
    if (name.empty() || name.size() > maxName || !beginChange()) return fail(Error::data);
    TableRebuild copy(name);
    if (!copy.begin() || !copy.copyAll() || !copy.finish()) return fail(Error::data);
    if (lock_ != nullptr && !lock_->setMark(DbMark::swapping, {name.substr(name.rfind('/') + 1)})) {
        return fail(Error::data);
    }
    copy.keep();
    if (copy.swap()) return dbOk;
    if (lock_ != nullptr) lock_->spoil();
    return fail(Error::data);
}

}  // namespace crv
