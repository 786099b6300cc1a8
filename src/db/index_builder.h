// Making the indexes of a table all at once from its records, which is many times faster than inserting one by one.
#pragma once

#include <span>
#include <string_view>
#include <vector>

#include "db/entry_sorter.h"
#include "db/indxuser.h"

namespace crv {

/// What does not fit into memory while an index "<base name>.idx" is made stands in a file of that extension beside it.
inline constexpr const char* kRunsExtension = ".run";

/// Gathers keys and record numbers, then sorts them and writes them as full pages into an empty index file. What comes
/// out answers like an index into which they were inserted in the order in which they were added, and is the same octet
/// for octet however much memory there was. Answers as DbAnswer says; after dbError the status of the index file says
/// why, also when it was the file beside it.
class IndexBuilder {
  public:
    static constexpr size_t kMemory = size_t{14} << 20;  ///< octets of entries kept, all indexes together

    /// The index file is empty, open until finish(), and outlives the builder.
    explicit IndexBuilder(IndexFile& index, size_t memory = kMemory);

    /// Adds a record under keys[i] in each index i; numbers ascend. dbError for a key that does not fit into its slot.
    [[nodiscard]] DbAnswer add(std::span<const std::string_view> keys, int64_t recNo);
    /// Writes all indexes. The builder is used up.
    [[nodiscard]] DbAnswer finish();

  private:
    [[nodiscard]] bool writeTrees();
    DbAnswer fail();

    IndexFile* index_;
    RunFile runs_;
    std::vector<EntrySorter> sorters_;  // one for each index
    int64_t count_ = 0;
};

}  // namespace crv
