#include "db/index_page.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "misc/byte_order.h"

namespace crv {

using namespace index_format;

Page::Page(int64_t at, IndexDesc d, int maxKeyCount)
    : position(at),
      maxKeys(maxKeyCount),
      desc(d),
      entries_(static_cast<size_t>(maxKeyCount) + 2),
      keys_((static_cast<size_t>(maxKeyCount) + 2) * static_cast<size_t>(d.keyLen)) {}

std::string_view Page::key(int i) const {
    return {slot(i), ::strnlen(slot(i), static_cast<size_t>(desc.keyLen))};
}

int Page::lowerBound(std::string_view key) const {
    // Compares like strcmp: the key's terminator is below every octet of a longer one.
    const auto below = [&](int i) {
        const int order = std::memcmp(slot(i), key.data(), std::min(key.size(), static_cast<size_t>(desc.keyLen)));
        return order < 0 || (order == 0 && key.size() > static_cast<size_t>(desc.keyLen));
    };
    int low = 1;
    for (int left = count; left > 0;) {
        const int half = left / 2;
        if (below(low + half)) {
            low += half + 1;
            left -= half + 1;
        } else {
            left = half;
        }
    }
    return low;
}

void Page::insertAt(int p, std::string_view key, Entry entry) {
    std::copy_backward(entries_.begin() + p, entries_.begin() + count + 1, entries_.begin() + count + 2);
    std::memmove(slot(p + 1), slot(p), static_cast<size_t>(count + 1 - p) * static_cast<size_t>(desc.keyLen));
    entries_[p] = entry;
    std::memset(slot(p), 0, static_cast<size_t>(desc.keyLen));
    if (!key.empty()) std::memcpy(slot(p), key.data(), key.size());
    ++count;
}

void Page::moveTail(int p, Page& to) {
    to.count = count + 1 - p;
    std::copy(entries_.begin() + p, entries_.begin() + count + 1, to.entries_.begin() + 1);
    std::memcpy(to.slot(1), slot(p), static_cast<size_t>(to.count) * static_cast<size_t>(desc.keyLen));
    count = p - 1;
}

bool Page::decode(const uint8_t* octets) {
    const auto n = loadLe<int64_t>(octets + kPageCount);
    if (n < 1 || n > maxKeys) return false;
    count = static_cast<int>(n);
    next = loadLe<int64_t>(octets + kPageNext);
    prev = loadLe<int64_t>(octets + kPagePrev);
    entries_[0].child = loadLe<int64_t>(octets + kPageLeftmost);
    const uint8_t* from = octets + kPageHead;
    for (int i = 1; i <= count; ++i, from += kEntrySize) {
        entries_[i] = {loadLe<int64_t>(from), loadLe<int64_t>(from + 8)};
    }
    std::memcpy(slot(1), from, static_cast<size_t>(count) * static_cast<size_t>(desc.keyLen));
    return true;
}

void Page::encode(uint8_t* octets) const {
    storeLe<int64_t>(octets + kPageCount, count);
    storeLe(octets + kPageNext, next);
    storeLe(octets + kPagePrev, prev);
    storeLe(octets + kPageLeftmost, entries_[0].child);
    uint8_t* to = octets + kPageHead;
    for (int i = 1; i <= count; ++i, to += kEntrySize) {
        storeLe(to, entries_[i].recNo);
        storeLe(to + 8, entries_[i].child);
    }
    const size_t keyOctets = static_cast<size_t>(count) * static_cast<size_t>(desc.keyLen);
    std::memcpy(to, slot(1), keyOctets);
    std::fill(to + keyOctets, octets + desc.pageSize, uint8_t{0});
}

Page* PageCache::find(int64_t position) {
    const auto it = byPosition_.find(position);
    if (it == byPosition_.end()) return nullptr;
    pages_.splice(pages_.begin(), pages_, it->second);
    return &*it->second;
}

Page& PageCache::add(Page page) {
    if (pages_.size() >= capacity_) {
        const auto clean = std::find_if(pages_.rbegin(), pages_.rend(), [](const Page& p) { return !p.dirty; });
        if (clean != pages_.rend()) remove(clean->position);
    }
    pages_.push_front(std::move(page));
    byPosition_[pages_.front().position] = pages_.begin();
    return pages_.front();
}

void PageCache::remove(int64_t position) {
    const auto it = byPosition_.find(position);
    if (it == byPosition_.end()) return;
    pages_.erase(it->second);
    byPosition_.erase(it);
}

void PageCache::clear() {
    pages_.clear();
    byPosition_.clear();
}

}  // namespace crv
