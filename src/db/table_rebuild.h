// Making a table anew beside the old one and putting it in its place.
#pragma once

#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "db/data_scan.h"
#include "db/database.h"
#include "db/index_builder.h"

namespace crv {

/// The base name of the files in which a table is made anew: the last character replaced by "#".
std::string rebuildName(const std::string& name);

/// Deletes the files of a new table that was not completed; missing ones do not matter.
void discardRebuilt(const std::string& name);

/// Renames the files of a complete new table over the old ones, index first; a file that is not there has been renamed
/// before. False when a rename fails. Without sync (for measuring) it does not wait for the disk.
[[nodiscard]] bool swapRebuilt(const std::string& name, bool sync = true);

/// Gives a file of the new table the mode and owner of the one that it is to replace, or else those of the data file.
void keepRights(const std::string& name, const char* extension);

/// Copies the live records of a table into a new one. begin(), copy(), finish(), then keep() and swap() under the mark
/// "swapping"; the new files are deleted when it ends without keep().
class TableRebuild {
  public:
    /// Sees each live record and may put other keys in place, good until its next call; false leaves the record out.
    using Visit = std::function<bool(const DataScan& record, std::span<std::string_view> keys)>;
    /// Learns the new number of each copied record.
    using Copied = std::function<void(int64_t oldRecNo, int64_t newRecNo)>;

    /// Without sync (for measuring) nothing waits for the disk.
    explicit TableRebuild(std::string name, bool sync = true);
    ~TableRebuild();
    TableRebuild(const TableRebuild&) = delete;
    TableRebuild& operator=(const TableRebuild&) = delete;

    /// Opens the old data file and makes the new table with its index descriptions.
    [[nodiscard]] bool begin();
    /// Copies in file order. What is behind the last whole record, left by a crash, is passed over.
    [[nodiscard]] bool copy(const Visit& visit, const Copied& copied);
    [[nodiscard]] bool copyAll() { return copy(nullptr, nullptr); }
    /// Adds a record that the old table does not have; answers its number, or 0.
    [[nodiscard]] int64_t add(std::span<const std::string_view> keys, ByteView body);
    /// Makes the indexes and writes everything down: from now on the new files are complete.
    [[nodiscard]] bool finish();
    /// The new files' names are on the disk, too, when syncing is wanted. Before the mark tells of them: a name that is
    /// missing then counts as swapped in.
    [[nodiscard]] bool syncNames() const;
    /// The mark tells of the new files: from now on they stay until they are swapped in.
    void keep() { keep_ = true; }
    [[nodiscard]] bool swap();

  private:
    std::string name_;
    std::vector<std::string> files_;  // made now: at the end there may be no memory for their names
    bool sync_;
    DataFile old_;
    DataFile data_;
    IndexFile index_;
    std::optional<IndexBuilder> builder_;
    bool keep_ = false;
};

/// Compacts the table of that name, closing the object that it is used through, under whose lock this happens: live
/// records are copied to files whose name ends in "#", which then take the places of the old ones. Record numbers
/// change. dbError, with the old files untouched, when the copy fails.
[[nodiscard]] DbAnswer rebuildTable(DataBase& table, const std::string& name);

}  // namespace crv
