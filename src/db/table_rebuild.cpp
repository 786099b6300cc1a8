#include "db/table_rebuild.h"

#include <array>
#include <utility>

#include "db/table_mend.h"
#include "misc/atomic_write.h"
#include "misc/file_ops.h"
#include "misc/logger.h"
#include "misc/whole_file.h"

namespace crv {

namespace {

constexpr std::array kExtensions{kIndexExtension, kDataExtension};
constexpr std::array kRebuiltExtensions{kIndexExtension, kDataExtension, kRunsExtension};

}  // namespace

std::string rebuildName(const std::string& name) {
    return name.substr(0, name.size() - 1) + "#";
}

void discardRebuilt(const std::string& name) {
    for (const char* extension : kRebuiltExtensions) fileOps().unlink(rebuildName(name) + extension);
}

bool swapRebuilt(const std::string& name, bool sync) {
    for (const char* extension : kExtensions) {
        const std::string fresh = rebuildName(name) + extension;
        if (!fileExists(fresh)) continue;
        // ext4 writes down what is renamed over another file, which takes as long as a sync.
        if (!sync) fileOps().unlink(name + extension);
        if (fileOps().rename(fresh, name + extension) != 0) return false;
    }
    return !sync || syncFolder(folderOf(name));
}

void keepRights(const std::string& name, const char* extension) {
    const std::string fresh = rebuildName(name) + extension;
    if (!copyRights(name + extension, fresh) && !copyRights(name + kDataExtension, fresh)) {
        logLine(LogLevel::Warning, "mode and owner not kept: " + name + extension);
    }
}

TableRebuild::TableRebuild(std::string name, bool sync) : name_(std::move(name)), sync_(sync) {
    for (const char* extension : kRebuiltExtensions) files_.push_back(rebuildName(name_) + extension);
}

TableRebuild::~TableRebuild() {
    if (keep_) return;
    for (const std::string& file : files_) fileOps().unlink(file);
}

bool TableRebuild::begin() {
    if (old_.open(name_ + kDataExtension) != kDbOk) return false;
    const std::string fresh = rebuildName(name_);
    discardRebuilt(name_);
    if (DataBase().create(fresh, old_.numIndexes(), old_.descs(), false) != kDbOk) return false;
    for (const char* extension : kExtensions) keepRights(name_, extension);
    if (data_.open(fresh + kDataExtension) != kDbOk || index_.open(fresh + kIndexExtension) != kDbOk) return false;
    data_.deferWrites(true);
    builder_.emplace(index_);
    return true;
}

bool TableRebuild::copy(const Visit& visit, const Copied& copied) {
    DataScan scan(old_);
    std::vector<std::string_view> keys;
    for (;;) {
        const DataScan::Result result = scan.next();
        if (result == DataScan::Result::End) return true;
        if (result == DataScan::Result::Damaged && nextRecord(old_, scan.recNo()) == kNowhere) {
            logLine(LogLevel::Warning, "part of a record left out at the end of " + old_.path());
            return true;
        }
        if (result != DataScan::Result::Record) return false;
        if (scan.deleted()) continue;
        scan.keys(keys);
        if (visit && !visit(scan, keys)) continue;
        const int64_t recNo = add(keys, scan.body());
        if (recNo == 0) return false;
        if (copied) copied(scan.recNo(), recNo);
    }
}

int64_t TableRebuild::add(std::span<const std::string_view> keys, ByteView body) {
    const int64_t recNo = data_.insert(keys, body);
    return recNo != 0 && builder_->add(keys, recNo) == kDbOk ? recNo : 0;
}

bool TableRebuild::finish() {
    old_.close();
    const bool complete =
        data_.flush() == kDbOk && builder_->finish() == kDbOk && (!sync_ || (data_.sync() && index_.sync()));
    builder_.reset();
    data_.close();
    index_.close();
    return complete;
}

bool TableRebuild::syncNames() const {
    return !sync_ || syncFolder(folderOf(name_));
}

bool TableRebuild::swap() {
    return keep_ && swapRebuilt(name_, sync_);
}

DbAnswer rebuildTable(DataBase& table, const std::string& name) {
    table.close();
    DbLock* lock = table.lock();
    if (name.empty() || name.size() > DataBase::kMaxName || (lock && !lock->beginChange())) return kDbError;
    TableRebuild copy(name, !lock || lock->syncs());
    if (!copy.begin() || !copy.copyAll() || !copy.finish() || !copy.syncNames()) return kDbError;
    if (lock && !lock->setMark(DbMark::Swapping, {name.substr(name.rfind('/') + 1)})) return kDbError;
    DbChange change(lock);
    copy.keep();
    return change.end(copy.swap()) ? kDbOk : kDbError;
}

}  // namespace crv
