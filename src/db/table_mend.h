// Making the indexes of a table anew from its data file, keeping the record numbers.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "db/datafile.h"

namespace crv {

/// Position of the first record behind a damaged place; nowhere when none follows. A record counts when its head is
/// sound and another one, or the end of the file, follows it.
int64_t nextRecord(DataFile& file, int64_t damaged);

enum class MendExtent {
    AfterCrash,  ///< only what a cut-off change leaves: a part of a record at the end is cut off
    Salvage      ///< records lost in the middle too: a copy of the data file bridges them by a deleted record
};

/// What a salvage knows of a table beyond its files.
struct TableKnowledge {
    /// Bodies never changed their length, so one that differs from the capacity is a damage.
    bool bodiesFill = false;
    /// Makes the keys of a record from its body; false when that cannot be done. Null: nobody can.
    std::function<bool(int64_t recNo, ByteView body, std::vector<std::string>& keys)> keysOf;
    /// Whether a record that is marked as deleted never was. Null: each was.
    std::function<bool(int64_t recNo, ByteView body)> isLive;
};

/// Damaged places of a data file.
struct Salvaged {
    int lost = 0;      ///< passed over: a deleted record bridges them
    int restored = 0;  ///< put right again
};

/// Makes "#" files with new indexes of all live records; the old files stay until swapRebuilt(). With salvage there
/// may be a new data file too. False, with the old files as they were, when the data file cannot be read or is damaged
/// beyond the extent.
[[nodiscard]] bool remakeIndexes(const std::string& name, MendExtent extent, Salvaged& salvaged,
                                 TableKnowledge knowledge = {});

/// remakeIndexes() after a crash, and the swap. Where the disk has no room for both, the old index goes first. The
/// caller holds the exclusive lock with its mark set.
[[nodiscard]] bool mendTable(const std::string& name);

}  // namespace crv
