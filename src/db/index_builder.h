// Making the indexes of a table all at once from its records, which is many times faster than inserting one by one.
#pragma once

#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include "db/indxuser.h"

namespace crv {

/// Gathers keys and record numbers, then sorts them and writes them as full pages into an empty index file. What comes
/// out answers like an index into which they were inserted in the order in which they were added. Keeps 32 octets and
/// the key in memory for each entry. Answers as DbAnswer says; after dbError the status of the index file says why.
class IndexBuilder {
  public:
    /// The index file is empty, open until finish(), and outlives the builder.
    explicit IndexBuilder(IndexFile& index) : index_(&index), entries_(static_cast<size_t>(index.numIndexes())) {}

    /// Adds a record under keys[i] in each index i; numbers ascend. dbError for a key that does not fit into its slot.
    [[nodiscard]] DbAnswer add(std::span<const std::string_view> keys, int64_t recNo);
    /// Writes all indexes and empties the builder.
    [[nodiscard]] DbAnswer finish();

  private:
    struct Entry {
        std::string_view key;
        int64_t recNo;
        uint64_t part;  // octets of the key that are looked at while sorting
    };
    /// A page just written, with its last entry, which separates it from the next one.
    struct Branch {
        std::string_view key;
        int64_t recNo;
        int64_t page;
    };

    static void sort(std::span<Entry> entries, size_t depth);
    std::string_view keep(std::string_view key);
    [[nodiscard]] bool writeTree(int idx);
    [[nodiscard]] bool writeLeaves(const IndexFile::Root& tree, std::span<const Entry> entries,
                                   std::vector<Branch>& leaves);
    [[nodiscard]] bool writeInner(const IndexFile::Root& tree, std::span<const Branch> below,
                                  std::vector<Branch>& pages);
    [[nodiscard]] int64_t nextPage() const { return index_->length() + static_cast<int64_t>(buffer_.size()); }
    [[nodiscard]] bool write(const Page& page);
    [[nodiscard]] bool writeBuffer();

    IndexFile* index_;
    std::vector<std::vector<Entry>> entries_;
    std::vector<std::unique_ptr<char[]>> blocks_;  // of the keys
    size_t left_ = 0;                              // octets free in the last block
    int64_t count_ = 0;
    Bytes buffer_;  // pages that belong behind the end of the file
};

}  // namespace crv
