// Pages of an index file in memory, and the bounded store that keeps those last used.
#pragma once

#include <cstdint>
#include <list>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "db/table_format.h"
#include "misc/bytes.h"

namespace crv {

/// A page of one index: entries 1 to count with their keys; slot 0 carries the leftmost child. There is room for one
/// entry more than maxKeys, which a split takes away again.
class Page {
  public:
    struct Entry {
        int64_t recNo = kNowhere;
        int64_t child = kNowhere;
    };

    Page(int64_t at, IndexDesc desc, int maxKeyCount);

    int64_t position;
    int64_t next = kNowhere;
    int64_t prev = kNowhere;
    int count = 0;
    int maxKeys;
    IndexDesc desc;
    bool dirty = false;
    bool isNew = false;  ///< not yet in the file

    [[nodiscard]] bool leaf() const { return entries_[0].child == kNowhere; }
    [[nodiscard]] int64_t child(int i) const { return entries_[i].child; }
    [[nodiscard]] int64_t recNo(int i) const { return entries_[i].recNo; }
    /// The key of entry i up to its zero octet (or the whole slot when a damaged one has none).
    [[nodiscard]] std::string_view key(int i) const;
    void setLeftmost(int64_t child) { entries_[0].child = child; }

    /// First position whose key is not below the given one; count + 1 when all are. The key has no zero octet.
    [[nodiscard]] int lowerBound(std::string_view key) const;
    /// Shifts the entries from p on one place to the right and puts the new one there.
    void insertAt(int p, std::string_view key, Entry entry);
    /// Moves the entries from p on to the empty page, where they begin at 1.
    void moveTail(int p, Page& to);

    /// False when the octets (pageSize of them) are no page: a count outside 1 to maxKeys.
    [[nodiscard]] bool decode(const uint8_t* octets);
    /// Writes the octets of the page (pageSize of them).
    void encode(uint8_t* octets) const;

  private:
    [[nodiscard]] char* slot(int i) { return keys_.data() + static_cast<size_t>(i) * static_cast<size_t>(desc.keyLen); }
    [[nodiscard]] const char* slot(int i) const { return const_cast<Page*>(this)->slot(i); }

    std::vector<Entry> entries_;
    std::vector<char> keys_;
};

/// Pages by position, the least recently used ones dropped beyond the capacity. Pages with changes are never dropped,
/// and a page stays valid while fewer than minCapacity others are used.
class PageCache {
  public:
    static constexpr size_t kMinCapacity = 256;
    static constexpr size_t kMemory = size_t{4} << 20;  ///< octets of pages kept, roughly

    void setPageSize(size_t largest) { capacity_ = std::max(kMinCapacity, kMemory / std::max<size_t>(largest, 1)); }
    [[nodiscard]] size_t capacity() const { return capacity_; }
    /// Null when not kept.
    Page* find(int64_t position);
    Page& add(Page page);
    void remove(int64_t position);
    void clear();

  private:
    std::list<Page> pages_;  // most recently used first
    std::unordered_map<int64_t, std::list<Page>::iterator> byPosition_;
    size_t capacity_ = kMinCapacity;
};

}  // namespace crv
