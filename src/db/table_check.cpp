#include "db/table_check.h"

#include <algorithm>
#include <limits>
#include <optional>

#include "db/data_scan.h"
#include "db/database.h"

namespace crv {

namespace {

std::string at(int64_t position) {
    return " at " + std::to_string(position);
}

class Report {
  public:
    explicit Report(TableReport& report) : report_(&report) {}
    void add(const std::string& problem) {
        if (report_->problems.size() < kMaxProblems) report_->problems.push_back(problem);
        if (report_->problems.size() == kMaxProblems) report_->problems.emplace_back("... and more");
    }
    [[nodiscard]] bool full() const { return report_->problems.size() >= kMaxProblems; }

  private:
    TableReport* report_;
};

/// Numbers of the records of a data file in file order, live or deleted.
struct Record {
    int64_t recNo;
    bool deleted;
    int reached;  // times found through the index looked at
};

void readRecords(DataFile& data, std::vector<Record>& records, TableReport& result) {
    Report report(result);
    DataScan scan(data);
    for (;;) {
        switch (scan.next()) {
            case DataScan::Result::End:
                return;
            case DataScan::Result::Unreadable:
                result.unusable = true;
                return report.add("data file cannot be read");
            case DataScan::Result::Damaged:
                return report.add("data: no sound record" + at(scan.recNo()));
            case DataScan::Result::Record:
                break;
        }
        if (scan.head().flag != (scan.deleted() ? 1 : 0)) report.add("data: odd mark of deletion" + at(scan.recNo()));
        records.push_back({scan.recNo(), scan.deleted(), 0});
        ++(scan.deleted() ? result.deleted : result.live);
    }
}

/// Walks one tree from its root and then its leaf chain.
class TreeCheck {
  public:
    TreeCheck(DataBase& table, int idx, std::vector<Record>& records, TableReport& result)
        : index_(table.indexFile()),
          data_(table.dataFile()),
          idx_(idx),
          records_(records),
          result_(result),
          report_(result) {}

    void run() {
        const IndexFile::Root& root = index_.root(idx_);
        for (Record& record : records_) record.reached = 0;
        if (root.root == kNowhere) {
            if (root.first != kNowhere || root.last != kNowhere) problem("has leaves but no root");
        } else {
            checkPage(root.root, 1, std::nullopt, std::nullopt);
            checkChain(root);
        }
        checkReached();
        result_.pages.push_back(static_cast<int64_t>(extents_.size()));
        result_.depths.push_back(depth_);
    }
    [[nodiscard]] const std::vector<std::pair<int64_t, int64_t>>& extents() const { return extents_; }

  private:
    static constexpr int kMaxDepth = 64;
    using Bound = std::optional<std::string>;

    void problem(const std::string& what) { report_.add("index " + std::to_string(idx_) + ": " + what); }

    void checkPage(int64_t position, int level, const Bound& low, const Bound& high) {
        if (report_.full()) return;
        if (level > kMaxDepth || static_cast<int64_t>(extents_.size()) > index_.stepLimit()) {
            return problem("pages run in a circle" + at(position));
        }
        const Page* found = index_.pageAt(idx_, position);
        if (!found) return problem("no page" + at(position));
        const Page page = *found;  // the walk below may push the original out of the cache
        extents_.emplace_back(position, position + page.desc.pageSize);
        checkUnused(page);
        checkKeys(page, low, high);
        if (page.leaf()) return checkLeaf(page, level);
        if (page.next != kNowhere || page.prev != kNowhere) problem("inner page with leaf links" + at(position));
        for (int i = 0; i <= page.count; ++i) {
            checkPage(page.child(i), level + 1, i == 0 ? low : Bound(page.key(i)),
                      i == page.count ? high : Bound(page.key(i + 1)));
        }
    }

    /// What a page does not use is zero, so the page as it would be written is what is there.
    void checkUnused(const Page& page) {
        Bytes there(static_cast<size_t>(page.desc.pageSize)), right(there.size());
        page.encode(right.data());
        if (!index_.readAt(page.position, there.data(), there.size()) || there != right) {
            problem("octets that are not in use" + at(page.position));
        }
    }

    void checkKeys(const Page& page, const Bound& low, const Bound& high) {
        for (int i = 1; i <= page.count; ++i) {
            if (page.key(i).size() >= static_cast<size_t>(page.desc.keyLen))
                problem("key without end" + at(page.position));
            if (i > 1 && page.key(i) < page.key(i - 1)) problem("keys out of order" + at(page.position));
        }
        if ((low && page.key(1) < *low) || (high && page.key(page.count) > *high)) {
            problem("keys beyond those of the page above" + at(page.position));
        }
    }

    void checkLeaf(const Page& leaf, int level) {
        if (depth_ == 0) depth_ = level;
        if (level != depth_) problem("leaf on another level" + at(leaf.position));
        leaves_.push_back({leaf.position, leaf.prev, leaf.next});
        for (int i = 1; i <= leaf.count; ++i) {
            if (leaf.child(i) != kNowhere) problem("leaf with a child" + at(leaf.position));
            checkEntry(leaf.recNo(i), leaf.key(i));
        }
    }

    void checkEntry(int64_t recNo, std::string_view key) {
        const auto it = std::lower_bound(records_.begin(), records_.end(), recNo,
                                         [](const Record& r, int64_t n) { return r.recNo < n; });
        if (it == records_.end() || it->recNo != recNo) return problem("entry without a record" + at(recNo));
        ++it->reached;
        TableRecord record;
        if (data_.data(recNo, record, true) == kDbError) return problem("record cannot be read" + at(recNo));
        if (record.keys[idx_] != key) problem("entry with another key than its record" + at(recNo));
    }

    void checkChain(const IndexFile::Root& root) {
        for (size_t i = 0; i < leaves_.size(); ++i) {
            const int64_t before = i == 0 ? kNowhere : leaves_[i - 1].position;
            const int64_t after = i + 1 == leaves_.size() ? kNowhere : leaves_[i + 1].position;
            if (leaves_[i].next != after) problem("wrong next leaf" + at(leaves_[i].position));
            if (leaves_[i].prev != before) problem("wrong previous leaf" + at(leaves_[i].position));
        }
        if (leaves_.empty()) return;
        if (root.first != leaves_.front().position) problem("wrong first leaf" + at(root.first));
        if (root.last != leaves_.back().position) problem("wrong last leaf" + at(root.last));
    }

    void checkReached() {
        for (const Record& record : records_) {
            if (!record.deleted && record.reached == 0) problem("live record not reached" + at(record.recNo));
            if (record.reached > 1) problem("record reached more than once" + at(record.recNo));
        }
    }

    struct Leaf {
        int64_t position, prev, next;
    };
    IndexFile& index_;
    DataFile& data_;
    int idx_;
    std::vector<Record>& records_;
    TableReport& result_;
    Report report_;
    int depth_ = 0;
    std::vector<Leaf> leaves_;
    std::vector<std::pair<int64_t, int64_t>> extents_;
};

void checkHeaders(DataBase& table, Report& report) {
    for (int i = 0; i < table.dataFile().numIndexes(); ++i) {
        const IndexFile::Root& root = table.indexFile().root(i);
        if (root.desc != table.dataFile().descs()[i]) {
            report.add("index " + std::to_string(i) + ": key length or page size differs between the files");
        }
        if (root.maxKeys != maxKeysOf(root.desc)) report.add("index " + std::to_string(i) + ": unusual keys per page");
    }
}

/// The header's area is zero but for the descriptors of the indexes.
void checkHeadArea(IndexFile& index, Report& report) {
    Bytes head(index_format::kHeadArea);
    if (!index.readAt(0, head.data(), head.size())) return report.add("index file cannot be read");
    const auto numIndexes = static_cast<size_t>(index.numIndexes());
    const auto used = index_format::kDescriptors + numIndexes * index_format::kDescriptorSize;
    bool zero =
        std::all_of(head.begin() + static_cast<std::ptrdiff_t>(used), head.end(), [](uint8_t o) { return o == 0; });
    for (size_t i = 1; i <= numIndexes; ++i) {
        const size_t end = index_format::kDescriptors + i * index_format::kDescriptorSize;
        zero = zero && head[end - 1] == 0 && head[end - 2] == 0;
    }
    if (!zero) report.add("index: octets in the header that are not in use");
}

void checkOverlaps(std::vector<std::pair<int64_t, int64_t>>& extents, Report& report) {
    std::sort(extents.begin(), extents.end());
    for (size_t i = 1; i < extents.size(); ++i) {
        if (extents[i].first < extents[i - 1].second) report.add("pages overlap" + at(extents[i].first));
    }
}

}  // namespace

TableReport checkTable(const std::string& name) {
    TableReport result;
    Report report(result);
    DataBase table;
    if (table.open(name) != kDbOk) {
        result.unusable = true;
        const bool index = table.lastError() == DataBase::Error::Index;
        const FileStatus why = index ? table.indexFile().status() : table.dataFile().status();
        report.add(std::string(index ? "index" : "data") +
                   (why == FileStatus::BadMagic ? " file has a damaged header" : " file cannot be read"));
        return result;
    }
    result.insertions = table.indexFile().insertions();
    result.dataOctets = table.dataFile().length();
    result.indexOctets = table.indexFile().length();
    checkHeaders(table, report);
    checkHeadArea(table.indexFile(), report);
    std::vector<Record> records;
    readRecords(table.dataFile(), records, result);
    std::vector<std::pair<int64_t, int64_t>> extents;
    for (int i = 0; i < table.dataFile().numIndexes(); ++i) {
        TreeCheck tree(table, i, records, result);
        tree.run();
        extents.insert(extents.end(), tree.extents().begin(), tree.extents().end());
    }
    checkOverlaps(extents, report);
    return result;
}

}  // namespace crv
