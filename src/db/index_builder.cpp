#include "db/index_builder.h"

#include <algorithm>
#include <new>
#include <string>

#include "misc/byte_order.h"
#include "misc/logger.h"

namespace crv {

using namespace index_format;

namespace {

constexpr size_t kSortPieceSize = size_t{256} << 10;

/// Splits `total` entries among the fewest pages that hold `most` each.
class EvenSplit {
  public:
    EvenSplit(size_t total, size_t most) : total_(total), pages_((total + most - 1) / most) {}
    [[nodiscard]] size_t pages() const { return pages_; }
    /// How many are the share of a page.
    [[nodiscard]] size_t share(size_t page) const { return total_ / pages_ + (page < total_ % pages_ ? 1 : 0); }

  private:
    size_t total_;
    size_t pages_;
};

/// Writes the pages of one index while its entries come in their order. How many pages there are on each level is known
/// from the beginning, and so where each has its place: the leaves, then level by level the pages above, the root last.
class TreeWriter {
  public:
    /// At least one entry. The file ends before `start`, or there.
    TreeWriter(IndexFile& file, const IndexFile::Root& tree, size_t entries, int64_t start)
        : file_(&file), tree_(tree), pageSize_(static_cast<size_t>(tree.desc.pageSize)), end_(start) {
        const auto keys = static_cast<size_t>(tree.maxKeys);
        addLevel({entries, keys});
        // A page has a child more than keys, so two children at least.
        while (levels_.back().split.pages() > 1) addLevel({levels_.back().split.pages(), keys + 1});
        tree_.first = start;
        tree_.last = levels_.front().position(pageSize_, levels_.front().split.pages() - 1);
        tree_.root = levels_.back().start;
    }

    [[nodiscard]] bool add(const IndexEntry& entry) {
        Level& leaves = levels_.front();
        if (leaves.left == 0) beginPage(leaves, kNowhere);
        put(leaves, entry.key, {entry.recNo, kNowhere});
        return --leaves.left > 0 || endPage(entry);
    }
    /// Writes what is still in memory.
    [[nodiscard]] bool finish() {
        return std::ranges::all_of(levels_, [this](Level& level) { return write(level); });
    }
    [[nodiscard]] const IndexFile::Root& tree() const { return tree_; }
    [[nodiscard]] int64_t end() const { return end_; }

  private:
    struct Level {
        EvenSplit split;
        int64_t start;      // of its first page
        int64_t written;    // where the buffer belongs
        size_t page = 0;    // that is filled
        size_t left = 0;    // entries or children still missing in it
        size_t keys = 0;    // of it
        size_t at = 0;      // keys that are there
        std::string key{};  // the last entry below the last child, which separates that from the next one
        int64_t recNo = 0;
        Bytes buffer{};

        [[nodiscard]] int64_t position(size_t pageSize, size_t number) const {
            return start + static_cast<int64_t>(number * pageSize);
        }
    };

    void addLevel(EvenSplit split) {
        levels_.push_back({.split = split, .start = end_, .written = end_});
        end_ = levels_.back().position(pageSize_, split.pages());
    }

    [[nodiscard]] uint8_t* page(Level& level) const { return level.buffer.data() + level.buffer.size() - pageSize_; }

    void beginPage(Level& level, int64_t leftmost) {
        const bool leaf = leftmost == kNowhere;
        level.left = level.split.share(level.page);
        level.keys = leaf ? level.left : level.left - 1;
        level.at = 0;
        level.buffer.resize(level.buffer.size() + pageSize_);
        uint8_t* to = page(level);
        const bool hasNext = leaf && level.page + 1 < level.split.pages(), hasPrevious = leaf && level.page > 0;
        storeLe(to + kPageCount, static_cast<int64_t>(level.keys));
        storeLe(to + kPageNext, hasNext ? level.position(pageSize_, level.page + 1) : kNowhere);
        storeLe(to + kPagePrev, hasPrevious ? level.position(pageSize_, level.page - 1) : kNowhere);
        storeLe(to + kPageLeftmost, leftmost);
    }

    void put(Level& level, std::string_view key, Page::Entry entry) const {
        uint8_t* entries = page(level) + kPageHead;
        storeLe(entries + level.at * kEntrySize, entry.recNo);
        storeLe(entries + level.at * kEntrySize + 8, entry.child);
        const size_t slot = level.keys * kEntrySize + level.at * static_cast<size_t>(tree_.desc.keyLen);
        std::ranges::copy(key, entries + slot);
        ++level.at;
    }

    /// A leaf is full, and perhaps pages above it: the level above each is told of it.
    [[nodiscard]] bool endPage(const IndexEntry& last) {
        for (size_t depth = 0;; ++depth) {
            Level& level = levels_[depth];
            const int64_t position = level.position(pageSize_, level.page++);
            if (level.buffer.size() >= kSortPieceSize && !write(level)) return false;
            if (depth + 1 == levels_.size()) return true;
            Level& above = levels_[depth + 1];
            if (above.left == 0) {
                beginPage(above, position);
            } else {
                put(above, above.key, {above.recNo, position});
            }
            above.key = last.key;
            above.recNo = last.recNo;
            if (--above.left > 0) return true;
        }
    }

    [[nodiscard]] bool write(Level& level) const {
        if (level.buffer.empty()) return true;
        if (!file_->writeAt(level.written, level.buffer)) return false;
        level.written += static_cast<int64_t>(level.buffer.size());
        level.buffer.clear();
        return true;
    }

    IndexFile* file_;
    IndexFile::Root tree_;
    size_t pageSize_;
    int64_t end_;
    std::vector<Level> levels_;  // leaves first
};

/// The path without its extension.
std::string runsPath(const std::string& index) {
    return index.substr(0, index.rfind('.')) + kRunsExtension;
}

}  // namespace

IndexBuilder::IndexBuilder(IndexFile& index, size_t memory) : index_(&index), runs_(runsPath(index.path())) {
    const auto count = static_cast<size_t>(index.numIndexes());
    for (size_t i = 0; i < count; ++i) sorters_.emplace_back(runs_, memory / count);
}

DbAnswer IndexBuilder::fail() {
    if (runs_.status() != FileStatus::Ok && runs_.status() != FileStatus::NotOpen) {
        logLine(LogLevel::Error, "keys not sorted, no room for or no access to: " + runsPath(index_->path()));
        index_->setStatus(runs_.status());
    }
    return kDbError;
}

DbAnswer IndexBuilder::add(std::span<const std::string_view> keys, int64_t recNo) {
    if (keys.size() != sorters_.size()) return kDbError;
    try {
        for (size_t i = 0; i < keys.size(); ++i) {
            const std::string_view key = keyText(keys[i]);
            if (key.size() >= static_cast<size_t>(index_->root(static_cast<int>(i)).desc.keyLen)) return kDbError;
            if (!sorters_[i].add(key, recNo)) return fail();
        }
    } catch (const std::bad_alloc&) {
        return index_->setStatus(FileStatus::NoMemory), kDbError;
    }
    ++count_;
    return kDbOk;
}

bool IndexBuilder::writeTrees() {
    int64_t end = index_->length();
    for (int i = 0; i < index_->numIndexes(); ++i) {
        EntrySorter sorter = std::move(sorters_[static_cast<size_t>(i)]);
        if (sorter.size() == 0) continue;
        if (!sorter.sort()) return false;
        TreeWriter writer(*index_, index_->root(i), sorter.size(), end);
        IndexEntry entry;
        for (size_t n = 0; n < sorter.size(); ++n) {
            if (!sorter.next(entry) || !writer.add(entry)) return false;
        }
        if (!writer.finish()) return false;
        end = writer.end();
        index_->setTree(i, writer.tree());
    }
    return true;
}

DbAnswer IndexBuilder::finish() {
    bool done = false;
    try {
        done = writeTrees();
    } catch (const std::bad_alloc&) {
        return index_->setStatus(FileStatus::NoMemory), kDbError;
    }
    if (!done) return fail();
    runs_.close();
    index_->setInsertions(count_);
    return index_->flush();
}

}  // namespace crv
