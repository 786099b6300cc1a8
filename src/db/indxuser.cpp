#include "db/indxuser.h"

#include <algorithm>
#include <new>

#include "misc/byte_order.h"
#include "misc/exceptions.h"

namespace crv {

using namespace index_format;

namespace {

constexpr const char* kIndexPlace = "src/db/indxuser";
constexpr size_t kMaxDepth = 64;
/// So many insertions of a batch are made at once: few that wait are not worth a search.
constexpr int64_t kMadeAtOnce = 256;
/// Octets of insertions that wait before they are made.
constexpr size_t kWaitingLimit = size_t{8} << 20;
/// Pages that are written at once: more would only take memory.
constexpr std::ptrdiff_t kPagesAtATime = 256;

}  // namespace

DbAnswer IndexFile::bad() {
    setStatus(FileStatus::BadMagic);
    return kDbError;
}

DbAnswer IndexFile::create(const std::string& path, int idxNumb, const IndexDesc* descs, bool wait) {
    VTEST(idxNumb <= MAX_INDEX, kIndexPlace);
    drop();
    numIdx_ = idxNumb;
    insertions_ = 0;
    size_t largest = 0;
    for (int i = 0; i < numIdx_; ++i) {
        indexes_[i] = {};
        indexes_[i].desc = descs[i];
        indexes_[i].maxKeys = maxKeysOf(descs[i]);
        if (indexes_[i].maxKeys < 2) return bad();
        largest = std::max<size_t>(largest, static_cast<size_t>(descs[i].pageSize));
    }
    if (numIdx_ < 1) return bad();
    cache_.setPageSize(largest);
    const bool made = File::create(path) && allocate(kHeadArea) == 0 && writeAt(0, encodeHead()) && (!wait || sync());
    const FileStatus why = status();
    drop();
    if (!made) setStatus(why);
    return made ? kDbOk : kDbError;
}

DbAnswer IndexFile::open(const std::string& path, bool sameTable) {
    if (!File::open(path)) return drop(), setStatus(FileStatus::IoFailure), kDbError;
    const bool kept = reused() && length() == knownLength_ && !halfWritten_;
    Head head = head_;
    if (!(kept && sameTable) && !readAt(0, head.data(), head.size()))
        return drop(), setStatus(FileStatus::IoFailure), kDbError;
    if (!kept || head != head_) {
        cache_.clear();
        halfWritten_ = false;
        if (!readHead(head)) return drop(), bad();
        head_ = head;
        knownLength_ = length();
    }
    end_ = length();
    current_ = 0;
    for (Index& index : indexes_) index.cursor = {};
    return kDbOk;
}

void IndexFile::close() {
    loseChanges();
    park();
}

/// Changes that were deferred and never written: the file is behind the data file.
void IndexFile::loseChanges() {
    if (dirty_.empty() && std::ranges::all_of(waiting_, &std::vector<Waiting>::empty)) return;
    forgetWaiting();
    forgetChanges();
    halfWritten_ = true;
    static_cast<void>(readHead(head_));  // the roots may be pages that will never be written
}

void IndexFile::drop() {
    loseChanges();
    forgetChanges();
    head_ = {};
    knownLength_ = 0;
    File::close();
}

bool IndexFile::readHead(const Head& head) {
    const auto count = loadLe<int64_t>(head.data() + kHeadNumIndexes);
    if (count < 1 || count > MAX_INDEX) return false;
    numIdx_ = static_cast<int>(count);
    insertions_ = loadLe<int64_t>(head.data() + kHeadInsertions);
    size_t largest = 0;
    for (int i = 0; i < numIdx_; ++i) {
        const uint8_t* from = head.data() + kDescriptors + kDescriptorSize * static_cast<size_t>(i);
        Index& index = indexes_[i];
        index.desc = {loadLe<int16_t>(from + kDescKeyLen), loadLe<int16_t>(from + kDescPageSize)};
        index.maxKeys = loadLe<int16_t>(from + kDescMaxKeys);
        index.root = loadLe<int64_t>(from + kDescRoot);
        index.first = loadLe<int64_t>(from + kDescFirst);
        index.last = loadLe<int64_t>(from + kDescLast);
        if (loadLe<int64_t>(from + kDescMagic) != kTableMagic) return false;
        if (index.maxKeys < 2 || index.maxKeys % 2 != 0 || index.maxKeys > maxKeysOf(index.desc)) return false;
        largest = std::max<size_t>(largest, static_cast<size_t>(index.desc.pageSize));
    }
    cache_.setPageSize(largest);
    return true;
}

IndexFile::Head IndexFile::encodeHead() const {
    Head head{};
    storeLe<int64_t>(head.data() + kHeadNumIndexes, numIdx_);
    storeLe(head.data() + kHeadInsertions, insertions_);
    for (int i = 0; i < numIdx_; ++i) {
        uint8_t* to = head.data() + kDescriptors + kDescriptorSize * static_cast<size_t>(i);
        const Index& index = indexes_[i];
        storeLe(to + kDescMagic, kTableMagic);
        storeLe(to + kDescRoot, index.root);
        storeLe(to + kDescFirst, index.first);
        storeLe(to + kDescLast, index.last);
        storeLe(to + kDescPageSize, index.desc.pageSize);
        storeLe(to + kDescKeyLen, index.desc.keyLen);
        storeLe(to + kDescMaxKeys, static_cast<int16_t>(index.maxKeys));
    }
    return head;
}

void IndexFile::selectIndex(int idx) {
    const int numIdx = numIdx_;
    VTEST(idx < numIdx, kIndexPlace);
    VTEST(idx >= 0, kIndexPlace);
    current_ = idx;
}

Page* IndexFile::page(const Index& index, int64_t position) {
    Page* kept = cache_.find(position);
    if (kept && kept->desc == index.desc && kept->maxKeys == index.maxKeys) return kept;
    const auto size = static_cast<size_t>(index.desc.pageSize);
    if (kept || position < static_cast<int64_t>(kHeadArea) || position > length() - static_cast<int64_t>(size)) {
        return bad(), nullptr;
    }
    try {
        scratch_.resize(std::max(scratch_.size(), size));
        if (!readAt(position, scratch_.data(), size)) return nullptr;
        Page read(position, index.desc, index.maxKeys);
        if (!read.decode(scratch_.data())) return bad(), nullptr;
        return &cache_.add(std::move(read));
    } catch (const std::bad_alloc&) {
        return setStatus(FileStatus::NoMemory), nullptr;
    }
}

Page& IndexFile::newPage(const Index& index) {
    Page& page = cache_.add(Page(end_, index.desc, index.maxKeys));
    page.isNew = true;
    end_ += index.desc.pageSize;
    touch(page);
    return page;
}

void IndexFile::touch(Page& page) {
    if (!page.dirty) dirty_.push_back(&page);
    page.dirty = true;
}

/// The leaf where the key belongs, and the way to it: at each page the first position whose key is not below.
Page* IndexFile::descend(const Index& index, std::string_view key) {
    path_.clear();
    for (int64_t position = index.root;;) {
        Page* at = page(index, position);
        if (!at) return nullptr;
        const int p = at->lowerBound(key);
        path_.push_back({at, p});
        if (at->leaf()) return at;
        if (path_.size() == kMaxDepth) return bad(), nullptr;
        position = at->child(p - 1);
    }
}

bool IndexFile::insertInto(Index& index, std::string_view key, int64_t recNo) {
    if (index.root == kNowhere) {
        Page& only = newPage(index);
        only.insertAt(1, key, {recNo, kNowhere});
        index.root = index.first = index.last = only.position;
        index.cursor = {only.position, 1};
        return true;
    }
    Page* leaf = descend(index, key);
    if (!leaf) return false;
    const int p = path_.back().p;
    leaf->insertAt(p, key, {recNo, kNowhere});
    touch(*leaf);
    index.cursor = {leaf->position, p};
    return leaf->count <= leaf->maxKeys || splitUpwards(index);
}

/// Splits the overflowing leaf at the end of the path and then every page above it that overflows in turn.
bool IndexFile::splitUpwards(Index& index) {
    for (;;) {
        Page& left = *path_.back().page;
        const int half = left.maxKeys / 2;
        const std::string key(left.key(half + 1));
        Page& right = newPage(index);
        Page::Entry separator{left.recNo(half + 1), right.position};
        if (left.leaf()) {
            left.moveTail(half + 2, right);
            if (!threadLeaf(index, left, right)) return false;
        } else {
            right.setLeftmost(left.child(half + 1));
            left.moveTail(half + 2, right);
            --left.count;
        }
        path_.pop_back();
        if (path_.empty()) return growRoot(index, left, key, separator), true;
        Page& parent = *path_.back().page;
        parent.insertAt(path_.back().p, key, separator);
        touch(parent);
        if (parent.count <= parent.maxKeys) return true;
    }
}

/// Threads the new right leaf into the chain and moves the cursor when its entry went there.
bool IndexFile::threadLeaf(Index& index, Page& left, Page& right) {
    right.next = left.next;
    right.prev = left.position;
    left.next = right.position;
    if (right.next != kNowhere) {
        Page* after = page(index, right.next);
        if (!after) return false;
        after->prev = right.position;
        touch(*after);
    } else {
        index.last = right.position;
    }
    if (index.cursor.page == left.position && index.cursor.entry > left.count) {
        index.cursor = {right.position, index.cursor.entry - left.count};
    }
    return true;
}

void IndexFile::growRoot(Index& index, const Page& left, std::string_view key, Page::Entry separator) {
    Page& root = newPage(index);
    root.setLeftmost(left.position);
    root.insertAt(1, key, separator);
    index.root = root.position;
}

bool IndexFile::keysFit(std::span<const std::string_view> keys) const {
    if (keys.size() != static_cast<size_t>(numIdx_)) return false;
    for (int i = 0; i < numIdx_; ++i) {
        if (!keyFits(keys[i], indexes_[i].desc)) return false;
    }
    return true;
}

DbAnswer IndexFile::insert(std::span<const std::string_view> keys, int64_t recNo) {
    if (!isOpen()) return setStatus(FileStatus::NotOpen), kDbError;
    if (!keysFit(keys)) return kDbError;
    if (halfWritten_) return bad();
    if (deferred_ && ++inBatch_ > kMadeAtOnce) return insertLater(keys, recNo);
    if (!catchUpAll()) return kDbError;
    const auto before = indexes_;
    const int64_t count = insertions_;
    try {
        bool done = true;
        for (int i = 0; done && i < numIdx_; ++i) done = insertInto(indexes_[i], keyText(keys[i]), recNo);
        insertions_ = static_cast<int64_t>(static_cast<uint64_t>(insertions_) + 1);
        const bool wait = deferred_ && dirty_.size() < cache_.capacity() / 4 * 3;
        if (done && (wait || writeChanges())) return kDbOk;
    } catch (const std::bad_alloc&) {
        setStatus(FileStatus::NoMemory);
    }
    if (deferred_) halfWritten_ = true;  // earlier changes are lost with this one
    forgetChanges();
    indexes_ = before;
    insertions_ = count;
    return kDbError;
}

// --- insertions that wait ---

DbAnswer IndexFile::insertLater(std::span<const std::string_view> keys, int64_t recNo) {
    try {
        for (size_t i = 0; i < keys.size(); ++i) {
            const std::string_view key = keyText(keys[i]);
            waiting_[i].push_back({waitingKeys_.size(), key.size(), keyPart(key), recNo});
            waitingKeys_ += key;
        }
    } catch (const std::bad_alloc&) {
        setStatus(FileStatus::NoMemory);
        loseChanges();  // of some indexes only it would be
        return kDbError;
    }
    insertions_ = static_cast<int64_t>(static_cast<uint64_t>(insertions_) + 1);
    waitingEntries_ += keys.size();
    const bool many = waitingKeys_.size() + waitingEntries_ * sizeof(Waiting) >= kWaitingLimit;
    return !many || catchUpAll() ? kDbOk : kDbError;
}

std::string_view IndexFile::keyOf(const Waiting& one) const {
    return std::string_view{waitingKeys_}.substr(one.key, one.size);
}

void IndexFile::forgetWaiting() {
    for (std::vector<Waiting>& waiting : waiting_) waiting.clear();
    waitingKeys_.clear();
    waitingEntries_ = 0;
}

bool IndexFile::catchUpAll() {
    for (int i = 0; i < numIdx_; ++i) {
        if (!catchUp(i)) return false;
    }
    forgetWaiting();
    return true;
}

/// A failure loses all that was not written.
bool IndexFile::catchUp(int idx) {
    std::vector<Waiting>& waiting = waiting_[idx];
    if (waiting.empty()) return true;
    bool done = false;
    try {
        done = insertWaiting(indexes_[idx], waiting);
    } catch (const std::bad_alloc&) {
        setStatus(FileStatus::NoMemory);
    }
    if (!done) loseChanges();
    waiting.clear();
    return done;
}

/// In the order of the keys, equal ones as they came; the last one at the end, since the cursor rests on it.
bool IndexFile::insertWaiting(Index& index, std::vector<Waiting>& waiting) {
    std::sort(waiting.begin(), waiting.end() - 1, [this](const Waiting& a, const Waiting& b) {
        if (a.part != b.part) return a.part < b.part;
        const int order = keyOf(a).compare(keyOf(b));
        if (order != 0) return order < 0;
        return a.key != b.key ? a.key < b.key : a.recNo < b.recNo;
    });
    Page* leaf = nullptr;  // where the one before went
    for (const Waiting& one : waiting) {
        const std::string_view key = keyOf(one);
        const bool ordered = leaf && &one != &waiting.back() && leaf->count < leaf->maxKeys;
        if (ordered && key <= leaf->key(leaf->count)) {
            const int p = leaf->lowerBound(key);
            leaf->insertAt(p, key, {one.recNo, kNowhere});
            touch(*leaf);
            index.cursor = {leaf->position, p};
            continue;
        }
        if (!insertInto(index, key, one.recNo)) return false;
        leaf = cache_.find(index.cursor.page);
        if (dirty_.size() < cache_.capacity() / 4 * 3) continue;
        if (!writeChanges()) return false;
        leaf = nullptr;
    }
    return true;
}

DbAnswer IndexFile::flush() {
    if (halfWritten_) return bad();
    if (!catchUpAll()) return kDbError;
    if (dirty_.empty() && encodeHead() == head_) return kDbOk;
    try {
        return writeChanges() ? kDbOk : kDbError;
    } catch (const std::bad_alloc&) {
        return setStatus(FileStatus::NoMemory), kDbError;
    }
}

/// The octets of pages, one behind another; good until the next call.
ByteView IndexFile::encoded(std::span<Page* const> pages) {
    size_t size = 0;
    for (const Page* page : pages) size += static_cast<size_t>(page->desc.pageSize);
    scratch_.resize(std::max(scratch_.size(), size));
    uint8_t* to = scratch_.data();
    for (const Page* page : pages) {
        page->encode(to);
        to += page->desc.pageSize;
    }
    return {scratch_.data(), size};
}

/// New pages go first, and are taken back when the disk is full: until all are there nothing has changed.
bool IndexFile::writeChanges() {
    std::ranges::sort(dirty_, {}, &Page::position);
    const auto fresh = std::ranges::find_if(dirty_, &Page::isNew);  // behind all old ones
    const int64_t end = length();
    for (auto it = fresh; it != dirty_.end();) {
        const auto start = it;
        it += std::min(kPagesAtATime, dirty_.end() - it);
        if (append(encoded({start, it})) >= 0) continue;
        halfWritten_ = !truncate(end);
        return false;
    }
    halfWritten_ = true;
    for (auto it = dirty_.begin(); it != fresh;) {
        // Pages that lie side by side are written together.
        const auto start = it;
        while (++it != fresh && it - start < kPagesAtATime &&
               (*it)->position == (*(it - 1))->position + (*(it - 1))->desc.pageSize) {
        }
        if (!writeAt((*start)->position, encoded({start, it}))) return false;
    }
    const Head head = encodeHead();
    if (!writeAt(0, head)) return false;
    halfWritten_ = false;
    head_ = head;
    knownLength_ = end_ = length();
    for (Page* page : dirty_) page->dirty = page->isNew = false;
    dirty_.clear();
    return true;
}

void IndexFile::forgetChanges() {
    cache_.clear();
    dirty_.clear();
    end_ = length();
}

/// Whether the selected index can be looked at.
bool IndexFile::ready() {
    if (!isOpen()) return setStatus(FileStatus::NotOpen), false;
    if (!halfWritten_) return catchUp(current_);
    // What was lost would be missed without a word.
    if (status() == FileStatus::Ok) static_cast<void>(bad());
    return false;
}

/// Puts the cursor on the first or last entry of a leaf.
DbAnswer IndexFile::land(int64_t position, bool atEnd) {
    Index& index = indexes_[current_];
    if (position == kNowhere) return kDbNoRecord;
    const Page* leaf = page(index, position);
    if (!leaf) return kDbError;
    if (!leaf->leaf()) return bad();
    index.cursor = {position, atEnd ? leaf->count : 1};
    return kDbOk;
}

DbAnswer IndexFile::top() {
    if (!ready()) return kDbError;
    return land(indexes_[current_].first, false);
}

DbAnswer IndexFile::bottom() {
    if (!ready()) return kDbError;
    return land(indexes_[current_].last, true);
}

DbAnswer IndexFile::seek(std::string_view key) {
    if (!ready()) return kDbError;
    Index& index = indexes_[current_];
    if (index.root == kNowhere) return kDbNoRecord;
    const Page* leaf = descend(index, keyText(key));
    if (!leaf) return kDbError;
    const int p = path_.back().p;
    index.cursor = {leaf->position, std::min(p, leaf->count)};
    if (p > leaf->count) return kDbNoRecord;
    return leaf->key(p) == keyText(key) ? kDbOk : kDbGreater;
}

DbAnswer IndexFile::skip(int n) {
    if (n != 1 && n != -1) return kDbError;
    if (!ready()) return kDbError;
    Index& index = indexes_[current_];
    if (index.cursor.page == kNowhere) return kDbNoRecord;
    const Page* leaf = page(index, index.cursor.page);
    if (!leaf) return kDbError;
    const int to = index.cursor.entry + n;
    if (to >= 1 && to <= leaf->count) return index.cursor.entry = to, kDbOk;
    const int64_t from = index.cursor.page, beside = n > 0 ? leaf->next : leaf->prev;
    if (beside == kNowhere) return kDbNoRecord;
    // A leaf that does not lead back belongs to a damaged chain, which may go round in a circle.
    const Page* next = page(index, beside);
    if (!next) return kDbError;
    return (n > 0 ? next->prev : next->next) == from ? land(beside, n < 0) : bad();
}

DbAnswer IndexFile::data(std::string& key, int64_t& recNo) {
    if (!ready()) return kDbError;
    const Index& index = indexes_[current_];
    if (index.cursor.page == kNowhere) return kDbNoRecord;
    const Page* leaf = page(index, index.cursor.page);
    if (!leaf) return kDbError;
    if (index.cursor.entry > leaf->count) return bad();
    key = leaf->key(index.cursor.entry);
    recNo = leaf->recNo(index.cursor.entry);
    return kDbOk;
}

}  // namespace crv
