#include "db/table_rebuild.h"

#include <array>
#include <utility>

#include "db/database.h"
#include "db/table_mend.h"
#include "misc/atomic_write.h"
#include "misc/file_ops.h"
#include "misc/logger.h"
#include "misc/whole_file.h"

namespace crv {

namespace {

constexpr std::array extensions{indexExtension, dataExtension};

}  // namespace

std::string rebuildName(const std::string& name) {
    return name.substr(0, name.size() - 1) + "#";
}

void discardRebuilt(const std::string& name) {
    for (const char* extension : extensions) fileOps().unlink(rebuildName(name) + extension);
}

bool swapRebuilt(const std::string& name) {
    for (const char* extension : extensions) {
        const std::string fresh = rebuildName(name) + extension;
        if (fileExists(fresh) && fileOps().rename(fresh, name + extension) != 0) return false;
    }
    return syncFolder(folderOf(name));
}

void keepRights(const std::string& name, const char* extension) {
    const std::string fresh = rebuildName(name) + extension;
    if (!copyRights(name + extension, fresh) && !copyRights(name + dataExtension, fresh)) {
        logLine(LogLevel::warning, "mode and owner not kept: " + name + extension);
    }
}

TableRebuild::TableRebuild(std::string name) : name_(std::move(name)) {}

TableRebuild::~TableRebuild() {
    if (!keep_) discardRebuilt(name_);
}

bool TableRebuild::begin() {
    if (old_.open(name_ + dataExtension) != dbOk) return false;
    const std::string fresh = rebuildName(name_);
    if (DataBase().create(fresh, old_.numIndexes(), old_.descs()) != dbOk) return false;
    for (const char* extension : extensions) keepRights(name_, extension);
    if (data_.open(fresh + dataExtension) != dbOk || index_.open(fresh + indexExtension) != dbOk) return false;
    data_.deferWrites(true);
    builder_.emplace(index_);
    return true;
}

bool TableRebuild::copy(const Visit& visit, const Copied& copied) {
    DataScan scan(old_);
    std::vector<std::string_view> keys;
    for (;;) {
        const DataScan::Result result = scan.next();
        if (result == DataScan::Result::end) return true;
        if (result == DataScan::Result::damaged && nextRecord(old_, scan.recNo()) == nowhere) {
            logLine(LogLevel::warning, "part of a record left out at the end of " + old_.path());
            return true;
        }
        if (result != DataScan::Result::record) return false;
        if (scan.deleted()) continue;
        scan.keys(keys);
        if (visit && !visit(scan, keys)) continue;
        const int64_t recNo = data_.insert(keys, scan.body());
        if (recNo == 0 || builder_->add(keys, recNo) != dbOk) return false;
        if (copied) copied(scan.recNo(), recNo);
    }
}

bool TableRebuild::finish() {
    old_.close();
    const bool complete = data_.flush() == dbOk && builder_->finish() == dbOk && data_.sync() && index_.sync();
    data_.close();
    index_.close();
    return complete;
}

bool TableRebuild::swap() {
    return keep_ && swapRebuilt(name_);
}

}  // namespace crv
