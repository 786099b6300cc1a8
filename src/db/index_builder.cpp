#include "db/index_builder.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

namespace crv {

namespace {

constexpr size_t kBlockSize = size_t{1} << 20;
constexpr size_t kSortPieceSize = size_t{256} << 10;

/// Eight octets of a key as a number that sorts like them; what is behind the end counts as zero.
uint64_t octetsAt(std::string_view key, size_t depth) {
    uint64_t part = 0;
    for (size_t i = depth; i < depth + sizeof part; ++i) {
        part = part << 8 | (i < key.size() ? static_cast<uint8_t>(key[i]) : 0);
    }
    return part;
}

/// Splits `total` entries among the fewest pages that hold `most` each.
class EvenSplit {
  public:
    EvenSplit(size_t total, size_t most) : total_(total), pages_((total + most - 1) / most) {}
    [[nodiscard]] size_t pages() const { return pages_; }
    /// Where the share of a page begins.
    [[nodiscard]] size_t start(size_t page) const { return page * (total_ / pages_) + std::min(page, total_ % pages_); }

  private:
    size_t total_;
    size_t pages_;
};

}  // namespace

std::string_view IndexBuilder::keep(std::string_view key) {
    if (key.size() > left_) {
        blocks_.push_back(std::make_unique_for_overwrite<char[]>(kBlockSize));
        left_ = kBlockSize;
    }
    char* to = blocks_.empty() ? nullptr : blocks_.back().get() + (kBlockSize - left_);
    std::copy(key.begin(), key.end(), to);
    left_ -= key.size();
    return {to, key.size()};
}

DbAnswer IndexBuilder::add(std::span<const std::string_view> keys, int64_t recNo) {
    if (!index_->keysFit(keys)) return kDbError;
    try {
        for (size_t i = 0; i < keys.size(); ++i) entries_[i].push_back({keep(keyText(keys[i])), recNo, 0});
    } catch (const std::bad_alloc&) {
        return index_->setStatus(FileStatus::NoMemory), kDbError;
    }
    ++count_;
    return kDbOk;
}

/// By key, equal keys by falling record number; everything before `depth` is equal. Looking at eight octets at a time
/// keeps the comparisons away from the keys themselves.
void IndexBuilder::sort(std::span<Entry> entries, size_t depth) {
    for (Entry& entry : entries) entry.part = octetsAt(entry.key, depth);
    std::sort(entries.begin(), entries.end(),
              [](const Entry& a, const Entry& b) { return a.part != b.part ? a.part < b.part : a.recNo > b.recNo; });
    for (size_t start = 0, end = 0; start < entries.size(); start = end) {
        const uint64_t part = entries[start].part;
        while (end < entries.size() && entries[end].part == part) ++end;
        const bool goesOn = (part & 0xFF) != 0;  // no key has a zero octet
        if (goesOn && end - start > 1) sort(entries.subspan(start, end - start), depth + sizeof part);
    }
}

DbAnswer IndexBuilder::finish() {
    bool done = true;
    try {
        for (int i = 0; done && i < index_->numIndexes(); ++i) done = writeTree(i);
    } catch (const std::bad_alloc&) {
        index_->setStatus(FileStatus::NoMemory);
        done = false;
    }
    blocks_.clear();
    left_ = 0;
    index_->setInsertions(std::exchange(count_, 0));
    return done && writeBuffer() ? index_->flush() : kDbError;
}

/// The leaves, then level by level the pages above, until one page is the root.
bool IndexBuilder::writeTree(int idx) {
    std::vector<Entry> entries = std::exchange(entries_[static_cast<size_t>(idx)], {});
    if (entries.empty()) return true;
    sort(entries, 0);
    IndexFile::Root tree = index_->root(idx);
    std::vector<Branch> level;
    if (!writeLeaves(tree, entries, level)) return false;
    tree.first = level.front().page;
    tree.last = level.back().page;
    while (level.size() > 1) {
        std::vector<Branch> above;
        if (!writeInner(tree, level, above)) return false;
        level = std::move(above);
    }
    tree.root = level.front().page;
    index_->setTree(idx, tree);
    return true;
}

bool IndexBuilder::writeLeaves(const IndexFile::Root& tree, std::span<const Entry> entries,
                               std::vector<Branch>& leaves) {
    const EvenSplit split(entries.size(), static_cast<size_t>(tree.maxKeys));
    leaves.reserve(split.pages());
    for (size_t i = 0; i < split.pages(); ++i) {
        Page leaf(nextPage(), tree.desc, tree.maxKeys);
        if (i > 0) leaf.prev = leaf.position - tree.desc.pageSize;
        if (i + 1 < split.pages()) leaf.next = leaf.position + tree.desc.pageSize;
        for (size_t at = split.start(i); at < split.start(i + 1); ++at) {
            leaf.insertAt(leaf.count + 1, entries[at].key, {entries[at].recNo, kNowhere});
        }
        const Entry& last = entries[split.start(i + 1) - 1];
        leaves.push_back({last.key, last.recNo, leaf.position});
        if (!write(leaf)) return false;
    }
    return true;
}

/// A page has a child more than keys, so two children at least.
bool IndexBuilder::writeInner(const IndexFile::Root& tree, std::span<const Branch> below, std::vector<Branch>& pages) {
    const EvenSplit split(below.size(), static_cast<size_t>(tree.maxKeys) + 1);
    pages.reserve(split.pages());
    for (size_t i = 0; i < split.pages(); ++i) {
        Page inner(nextPage(), tree.desc, tree.maxKeys);
        const size_t end = split.start(i + 1);
        size_t at = split.start(i);
        inner.setLeftmost(below[at].page);
        for (; at + 1 < end; ++at) {
            inner.insertAt(inner.count + 1, below[at].key, {below[at].recNo, below[at + 1].page});
        }
        pages.push_back({below[at].key, below[at].recNo, inner.position});
        if (!write(inner)) return false;
    }
    return true;
}

bool IndexBuilder::write(const Page& page) {
    page.appendTo(buffer_);
    return buffer_.size() < kSortPieceSize || writeBuffer();
}

bool IndexBuilder::writeBuffer() {
    const bool done = buffer_.empty() || index_->append(buffer_) >= 0;
    buffer_.clear();
    return done;
}

}  // namespace crv
