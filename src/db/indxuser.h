// The index file of a table: up to ten B+ trees of fixed-length string keys in one file.
#pragma once

#include <algorithm>
#include <array>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "db/index_page.h"
#include "db/table_format.h"
#include "misc/file.h"

namespace crv {

/// Keys compare as strings of octets that end at the first zero octet. Equal keys are allowed, a new one goes before
/// the old ones. Each index has a cursor on one of its entries.
///
/// The caller holds the lock of the table from open() to close(). Pages read are kept beyond close() and believed again
/// only when the file is the same one and its header, insertion count included, and its length did not change. All
/// page changes of one insertion are made in memory first; then new pages are written, then the changed ones, then the
/// header, each once. Operations answer as DbAnswer says; after dbError status() says why.
class IndexFile : public File {
  public:
    /// Makes the file with empty indexes and closes it. More than MAX_INDEX descriptions fail an assertion. wait: until
    /// the disk has it; off for what is synced before it counts.
    [[nodiscard]] DbAnswer create(const std::string& path, int idxNumb, const IndexDesc* descs, bool wait = true);
    /// sameTable: nothing was inserted into the table since close(), so what is kept of the file needs no look at it.
    [[nodiscard]] DbAnswer open(const std::string& path, bool sameTable = false);
    /// Ends the use; descriptor and pages stay for the next open(). Changes not yet flushed are lost.
    void close();
    /// Forgets the kept descriptor and pages too.
    void drop();

    /// Index for the cursor operations; a number beyond the count fails an assertion.
    void selectIndex(int idx);
    [[nodiscard]] int selected() const { return current_; }

    /// Adds recNo under keys[i] to each index i; the cursors rest on the new entries. dbError also for a key that does
    /// not fit into its slot, and then nothing has changed.
    [[nodiscard]] DbAnswer insert(std::span<const std::string_view> keys, int64_t recNo);
    /// Cursor on the first entry whose key is not below the given one: dbOk when equal, dbGreater; dbNoRecord with
    /// the cursor on the last entry when all keys are below.
    [[nodiscard]] DbAnswer seek(std::string_view key);
    [[nodiscard]] DbAnswer top();
    [[nodiscard]] DbAnswer bottom();
    /// One entry on (+1) or back (-1); at the end dbNoRecord, and the cursor stays.
    [[nodiscard]] DbAnswer skip(int n);
    /// Whether there is a key for each index, each shorter than its slot.
    [[nodiscard]] bool keysFit(std::span<const std::string_view> keys) const;
    /// Key and record number at the cursor.
    [[nodiscard]] DbAnswer data(std::string& key, int64_t& recNo);

    struct Cursor {
        int64_t page = kNowhere;
        int entry = 0;
    };
    [[nodiscard]] Cursor cursor() {
        static_cast<void>(catchUp(current_));  // a failure shows at the next step
        return indexes_[current_].cursor;
    }
    void setCursor(Cursor cursor) { indexes_[current_].cursor = cursor; }

    /// True after a write that failed when some pages were already changed, and after deferred changes were lost: the
    /// file must be made anew.
    [[nodiscard]] bool halfWritten() const { return halfWritten_; }
    /// While on, changed pages stay in memory and are written in large steps and by flush(). Behind the first hundreds
    /// insertions wait, too, until their index is looked at, flush() is called or they take 8 MiB: in the order of
    /// their keys they find their pages faster, and change each of them once. For files that count only when they are
    /// complete, and for changes under a mark. A failure while on loses all that was not written, and may show at a
    /// later operation.
    void deferWrites(bool on) {
        deferred_ = on;
        inBatch_ = 0;
    }
    [[nodiscard]] DbAnswer flush();

    // For the checker.
    struct Root {
        IndexDesc desc;
        int maxKeys = 0;
        int64_t root = kNowhere;
        int64_t first = kNowhere;
        int64_t last = kNowhere;
    };
    [[nodiscard]] int numIndexes() const { return numIdx_; }
    [[nodiscard]] int64_t insertions() const { return insertions_; }
    [[nodiscard]] const Root& root(int idx) const { return indexes_[idx]; }
    /// A page of an index; null with the status set when the file holds none there. Valid until the next call.
    [[nodiscard]] const Page* pageAt(int idx, int64_t position) { return page(indexes_[idx], position); }
    /// More entries than the file can hold: a walk that goes on longer runs in a circle.
    [[nodiscard]] int64_t stepLimit() const {
        return std::max(length(), end_) / static_cast<int64_t>(index_format::kEntrySize);
    }

    // For the builder, which appends the pages of whole trees. flush() writes what is set here.
    void setInsertions(int64_t n) { insertions_ = n; }
    void setTree(int idx, const Root& tree) { static_cast<Root&>(indexes_[idx]) = tree; }

  private:
    struct Index : Root {
        Cursor cursor;
    };
    struct Step {
        Page* page;
        int p;
    };
    /// An insertion into one index that is still to be made.
    struct Waiting {
        size_t key;     // where its octets begin in waitingKeys_
        size_t size;    // of them
        uint64_t part;  // the first eight as a number that sorts like them
        int64_t recNo;
    };
    using Head = std::array<uint8_t, index_format::kHeadSize>;

    bool readHead(const Head& head);
    [[nodiscard]] Head encodeHead() const;
    Page* page(const Index& index, int64_t position);
    Page& newPage(const Index& index);
    void touch(Page& page);
    [[nodiscard]] Page* descend(const Index& index, std::string_view key);
    [[nodiscard]] bool insertInto(Index& index, std::string_view key, int64_t recNo);
    [[nodiscard]] DbAnswer insertLater(std::span<const std::string_view> keys, int64_t recNo);
    [[nodiscard]] std::string_view keyOf(const Waiting& one) const;
    [[nodiscard]] bool catchUp(int idx);
    [[nodiscard]] bool catchUpAll();
    [[nodiscard]] bool insertWaiting(Index& index, std::vector<Waiting>& waiting);
    void forgetWaiting();
    [[nodiscard]] bool threadLeaf(Index& index, Page& left, Page& right);
    [[nodiscard]] bool splitUpwards(Index& index);
    void growRoot(Index& index, const Page& left, std::string_view key, Page::Entry separator);
    [[nodiscard]] ByteView encoded(std::span<Page* const> pages);
    [[nodiscard]] bool writeChanges();
    void forgetChanges();
    void loseChanges();
    [[nodiscard]] bool ready();
    [[nodiscard]] DbAnswer land(int64_t page, bool atEnd);
    DbAnswer bad();

    int numIdx_ = 0;
    int64_t insertions_ = 0;
    std::array<Index, MAX_INDEX> indexes_{};
    int current_ = 0;
    PageCache cache_;
    Head head_{};               // as read or written last
    int64_t knownLength_ = 0;   // when head_ was
    int64_t end_ = 0;           // where the next page goes
    std::vector<Page*> dirty_;  // the cache keeps them while they are
    std::vector<Step> path_;    // of the last descent, the leaf last
    Bytes scratch_;
    std::array<std::vector<Waiting>, MAX_INDEX> waiting_;
    std::string waitingKeys_;
    size_t waitingEntries_ = 0;  // since that was empty
    int64_t inBatch_ = 0;        // insertions since deferWrites()
    bool deferred_ = false;
    bool halfWritten_ = false;
};

}  // namespace crv
