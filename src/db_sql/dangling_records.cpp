#include "db_sql/dangling_records.h"

#include "db/data_scan.h"
#include "db/database.h"
#include "db_sql/no_oop.h"
#include "misc/whole_file.h"

namespace crv {

namespace {

bool forEachLive(const std::string& path, const std::function<bool(const DataScan&)>& visit) {
    if (!fileExists(path)) return true;
    DataFile data;
    if (data.open(path) != kDbOk) return false;
    DataScan scan(data);
    for (DataScan::Result result; (result = scan.next()) != DataScan::Result::End;) {
        if (result != DataScan::Result::Record) return false;
        if (!scan.deleted() && !visit(scan)) return false;
    }
    return true;
}

}  // namespace

bool DanglingRecords::readCertificates() {
    if (!read_) {
        certificates_ = RecordNumbers();
        read_ = forEachLive(directory_ + std::string(crtTb.file) + kDataExtension, [&](const DataScan& scan) {
            certificates_.add(scan.recNo());
            return true;
        });
    }
    return read_;
}

bool DanglingRecords::find(const TableLayout& side, const Found& found) {
    if (!readCertificates()) return false;
    return forEachLive(directory_ + std::string(side.file) + kDataExtension, [&](const DataScan& scan) {
        const auto id = recNoDecode(scan.key(0));
        return (id && certificates_.find(*id)) || found(scan.recNo());
    });
}

}  // namespace crv
