#include "db/entry_sorter.h"

#include <algorithm>
#include <utility>

#include "db/table_format.h"
#include "misc/byte_order.h"

namespace crv {

namespace {

constexpr size_t kBlockSize = size_t{256} << 10;
constexpr mode_t kRunMode = 0600;
/// An entry of a run: how many octets it shares with the key before, how many follow, the record number, those octets.
constexpr size_t kRunShared = 0;  // 2
constexpr size_t kRunRest = 2;    // 2
constexpr size_t kRunRecNo = 4;   // 8
constexpr size_t kRunHead = 12;
constexpr size_t kRunPiece = size_t{128} << 10;
constexpr size_t kLeastRunBuffer = 4096;

size_t sharedOctets(std::string_view a, std::string_view b) {
    return static_cast<size_t>(std::ranges::mismatch(a, b).in1 - a.begin());
}

}  // namespace

bool RunFile::begin() {
    if (isOpen()) return true;
    fileOps().unlink(wanted_);  // the rest of another time, or a link of somebody else's
    if (!create(wanted_, kRunMode, O_EXCL | O_NOFOLLOW)) return false;
    if (fileOps().unlink(wanted_) == 0) return true;
    close();
    setStatus(FileStatus::IoFailure);
    return false;
}

// --- a run ---

RunReader::RunReader(RunFile& file, int64_t start, int64_t end, size_t bufferSize)
    : file_(&file), position_(start), end_(end), buffer_(bufferSize) {}

/// Sees to it that so many octets are in the buffer.
bool RunReader::have(size_t octets) {
    if (filled_ - at_ >= octets) return true;
    std::copy(buffer_.begin() + static_cast<std::ptrdiff_t>(at_),
              buffer_.begin() + static_cast<std::ptrdiff_t>(filled_), buffer_.begin());
    filled_ -= at_;
    at_ = 0;
    buffer_.resize(std::max(buffer_.size(), octets));
    const auto wanted =
        static_cast<size_t>(std::min<int64_t>(static_cast<int64_t>(buffer_.size() - filled_), end_ - position_));
    if (!file_->readAt(position_, buffer_.data() + filled_, wanted)) return false;
    position_ += static_cast<int64_t>(wanted);
    filled_ += wanted;
    return filled_ >= octets || (file_->setStatus(FileStatus::BadMagic), false);
}

bool RunReader::next() {
    ended_ = at_ == filled_ && position_ == end_;
    if (ended_) return true;
    if (!have(kRunHead)) return false;
    const size_t shared = loadLe<uint16_t>(buffer_.data() + at_ + kRunShared);
    const size_t rest = loadLe<uint16_t>(buffer_.data() + at_ + kRunRest);
    recNo_ = loadLe<int64_t>(buffer_.data() + at_ + kRunRecNo);
    if (shared > key_.size()) return file_->setStatus(FileStatus::BadMagic), false;
    if (!have(kRunHead + rest)) return false;
    key_.resize(shared);
    key_.append(reinterpret_cast<const char*>(buffer_.data()) + at_ + kRunHead, rest);
    part_ = keyPart(key_);
    at_ += kRunHead + rest;
    return true;
}

bool RunReader::before(const RunReader& other) const {
    if (part_ != other.part_) return part_ < other.part_;
    const int order = key_.compare(other.key_);
    return order != 0 ? order < 0 : recNo_ > other.recNo_;
}

// --- the sorter ---

std::string_view EntrySorter::keep(std::string_view key) {
    if (key.size() > left_) {
        if (block_ == blocks_.size()) blocks_.push_back(std::make_unique_for_overwrite<char[]>(kBlockSize));
        ++block_;
        left_ = kBlockSize;
    }
    char* to = block_ == 0 ? nullptr : blocks_[block_ - 1].get() + (kBlockSize - left_);
    std::copy(key.begin(), key.end(), to);
    left_ -= key.size();
    return {to, key.size()};
}

bool EntrySorter::add(std::string_view key, int64_t recNo) {
    const size_t used = entries_.size() * sizeof(Entry) + keyOctets_;
    if (!entries_.empty() && used + sizeof(Entry) + key.size() > memory_ && !spill()) return false;
    entries_.push_back({keep(key), recNo, keyPart(key)});
    keyOctets_ += key.size();
    ++size_;
    return true;
}

/// The keys are equal before `depth`; each entry holds its eight octets from there on, which keeps the comparisons away
/// from the keys themselves. Keys that count records come in order already.
void EntrySorter::sortFrom(std::span<Entry> entries, size_t depth) {
    if (!std::ranges::is_sorted(entries, {}, &Entry::part)) std::ranges::sort(entries, {}, &Entry::part);
    for (size_t start = 0, end = 0; start < entries.size(); start = end) {
        const uint64_t part = entries[start].part;
        while (end < entries.size() && entries[end].part == part) ++end;
        const std::span<Entry> equal = entries.subspan(start, end - start);
        if (equal.size() == 1) continue;
        const bool goesOn = (part & 0xFF) != 0;  // no key has a zero octet
        if (goesOn) {
            for (Entry& entry : equal) entry.part = keyPart(entry.key, depth + sizeof part);
            sortFrom(equal, depth + sizeof part);
        } else if (std::ranges::is_sorted(equal, {}, &Entry::recNo)) {
            std::ranges::reverse(equal);
        } else {
            std::ranges::sort(equal, std::ranges::greater{}, &Entry::recNo);
        }
    }
}

/// Writes what is in memory as a run.
bool EntrySorter::spill() {
    if (!file_->begin()) return false;
    sortFrom(entries_, 0);
    const int64_t start = file_->length();
    Bytes piece;
    piece.reserve(kRunPiece + kRunHead);
    std::string_view before;
    for (const Entry& entry : entries_) {
        const size_t shared = sharedOctets(before, entry.key);
        const std::string_view rest = entry.key.substr(shared);
        const size_t at = piece.size();
        piece.resize(at + kRunHead);
        storeLe(piece.data() + at + kRunShared, static_cast<uint16_t>(shared));
        storeLe(piece.data() + at + kRunRest, static_cast<uint16_t>(rest.size()));
        storeLe(piece.data() + at + kRunRecNo, entry.recNo);
        piece.insert(piece.end(), rest.begin(), rest.end());
        before = entry.key;
        if (piece.size() < kRunPiece) continue;
        if (file_->append(piece) < 0) return false;
        piece.clear();
    }
    if (file_->append(piece) < 0) return false;
    runs_.push_back({start, file_->length()});
    entries_.clear();
    block_ = left_ = keyOctets_ = 0;
    return true;
}

bool EntrySorter::sort() {
    at_ = 0;
    if (!runs_.empty()) return spill() && beginMerge();
    sortFrom(entries_, 0);
    return true;
}

bool EntrySorter::beginMerge() {
    std::vector<Entry>().swap(entries_);  // an assignment of nothing would keep the memory
    blocks_.clear();
    const size_t buffer = std::clamp(memory_ / runs_.size(), kLeastRunBuffer, kRunPiece);
    for (const Run& run : runs_) {
        heap_.push_back(std::make_unique<RunReader>(*file_, run.start, run.end, buffer));
        if (!heap_.back()->next()) return false;
    }
    std::ranges::make_heap(heap_, [](const auto& a, const auto& b) { return b->before(*a); });
    return true;
}

/// Takes the first run on to its next entry, and gives it its new place in the heap.
bool EntrySorter::advance() {
    if (!heap_.front()->next()) return false;
    if (heap_.front()->ended()) {
        heap_.front() = std::move(heap_.back());
        heap_.pop_back();
    }
    for (size_t at = 0, child = 1; child < heap_.size(); at = child, child = 2 * at + 1) {
        if (child + 1 < heap_.size() && heap_[child + 1]->before(*heap_[child])) ++child;
        if (!heap_[child]->before(*heap_[at])) break;
        std::swap(heap_[at], heap_[child]);
    }
    return true;
}

bool EntrySorter::next(IndexEntry& entry) {
    if (runs_.empty()) {
        entry = {entries_[at_].key, entries_[at_].recNo};
        ++at_;
        return true;
    }
    if (std::exchange(given_, true) && !advance()) return false;
    if (heap_.empty()) return file_->setStatus(FileStatus::BadMagic), false;
    entry = heap_.front()->entry();
    return true;
}

}  // namespace crv
