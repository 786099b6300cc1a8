// Bringing the entries of an index into their order, in memory as long as they are few and through a file beyond that.
#pragma once

#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "misc/bytes.h"
#include "misc/file.h"

namespace crv {

/// Where sorters put what exceeds their memory: made when it is first needed. It loses its name at once, so nothing is
/// left of it when the process ends, however that happens (between the two steps: discardRebuilt()).
class RunFile : public File {
  public:
    explicit RunFile(std::string path) : wanted_(std::move(path)) {}
    /// Nothing to do when it is open.
    [[nodiscard]] bool begin();

  private:
    std::string wanted_;
};

struct IndexEntry {
    std::string_view key;
    int64_t recNo = 0;
};

/// Reads back a sorted run.
class RunReader {
  public:
    RunReader(RunFile& file, int64_t start, int64_t end, size_t bufferSize);

    /// Goes on to the next entry; false when the file cannot be read or is not what was written.
    [[nodiscard]] bool next();
    [[nodiscard]] bool ended() const { return ended_; }
    [[nodiscard]] IndexEntry entry() const { return {key_, recNo_}; }
    /// Whether the present entry comes before that of another run.
    [[nodiscard]] bool before(const RunReader& other) const;

  private:
    [[nodiscard]] bool have(size_t octets);

    RunFile* file_;
    int64_t position_;  // of what is read next into the buffer
    int64_t end_;
    Bytes buffer_;
    size_t at_ = 0;      // in the buffer
    size_t filled_ = 0;  // octets of it
    std::string key_;
    uint64_t part_ = 0;  // its first octets
    int64_t recNo_ = 0;
    bool ended_ = false;
};

/// Takes the entries of one index and gives them back by key, equal keys by falling record number. Keeps 32 octets and
/// the key for each in memory, but not more than `memory` in all: then a sorted run goes to the file. Out of memory is
/// std::bad_alloc; after false the status of the file says why.
class EntrySorter {
  public:
    /// The file outlives the sorter.
    EntrySorter(RunFile& file, size_t memory) : file_(&file), memory_(memory) {}

    /// A key without zero octets and below 65536 octets; record numbers ascend.
    [[nodiscard]] bool add(std::string_view key, int64_t recNo);
    [[nodiscard]] size_t size() const { return size_; }
    /// Ends the adding.
    [[nodiscard]] bool sort();
    /// Called size() times after sort(); the key is good until the next call.
    [[nodiscard]] bool next(IndexEntry& entry);

  private:
    struct Entry {
        std::string_view key;
        int64_t recNo;
        uint64_t part;  // octets of the key that are looked at while sorting
    };
    struct Run {
        int64_t start, end;
    };

    static void sortFrom(std::span<Entry> entries, size_t depth);
    std::string_view keep(std::string_view key);
    [[nodiscard]] bool spill();
    [[nodiscard]] bool beginMerge();
    [[nodiscard]] bool advance();

    RunFile* file_;
    size_t memory_;
    size_t size_ = 0;
    std::vector<Entry> entries_;
    size_t at_ = 0;                                // entry that next() gives
    std::vector<std::unique_ptr<char[]>> blocks_;  // of the keys
    size_t block_ = 0;                             // blocks in use
    size_t left_ = 0;                              // octets free in the last of them
    size_t keyOctets_ = 0;
    std::vector<Run> runs_;
    std::vector<std::unique_ptr<RunReader>> heap_;  // the first one has the next entry
    bool given_ = false;                            // that entry was given
};

}  // namespace crv
