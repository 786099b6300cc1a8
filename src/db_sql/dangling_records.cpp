#include "db_sql/dangling_records.h"

#include <algorithm>
#include <functional>

#include "db/data_scan.h"
#include "db/database.h"
#include "db_sql/no_oop.h"
#include "misc/whole_file.h"

namespace crv {

namespace {

bool forEachLive(const std::string& path, const std::function<void(const DataScan&)>& visit) {
    if (!fileExists(path)) return true;
    DataFile data;
    if (data.open(path) != kDbOk) return false;
    DataScan scan(data);
    for (DataScan::Result result; (result = scan.next()) != DataScan::Result::End;) {
        if (result != DataScan::Result::Record) return false;
        if (!scan.deleted()) visit(scan);
    }
    return true;
}

}  // namespace

bool DanglingRecords::readCertificates() {
    if (!read_) {
        read_ = forEachLive(directory_ + std::string(crtTb.file) + kDataExtension,
                            [&](const DataScan& scan) { certificates_.push_back(scan.recNo()); });
    }
    return read_;
}

bool DanglingRecords::find(const TableLayout& side, std::vector<int64_t>& records) {
    if (!readCertificates()) return false;
    return forEachLive(directory_ + std::string(side.file) + kDataExtension, [&](const DataScan& scan) {
        const auto id = recNoDecode(scan.key(0));
        if (!id || !std::binary_search(certificates_.begin(), certificates_.end(), *id))
            records.push_back(scan.recNo());
    });
}

}  // namespace crv
