// Verifying every invariant of a table.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

namespace crv {

/// What a check found.
struct TableReport {
    std::vector<std::string> problems;  ///< in words, one line each; empty for a sound table
    bool unusable = false;              ///< a file is missing, cannot be read or is no table file
    int64_t live = 0;
    int64_t deleted = 0;
    int64_t insertions = 0;
    std::vector<int64_t> pages;  ///< pages in use, by index
    std::vector<int> depths;     ///< levels of each tree
    int64_t dataOctets = 0;      ///< lengths of the files
    int64_t indexOctets = 0;
};

/// Checks headers, record chain, page bounds, key order, the leaf chain both ways, equal depth, the entries against
/// their records, and that every live record is reached once through every index. Problems of one kind are cut off
/// after maxProblems. The caller holds the lock.
TableReport checkTable(const std::string& name);

constexpr size_t kMaxProblems = 20;

}  // namespace crv
