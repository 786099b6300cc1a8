#include "db_sql/db_crv.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "db/database.h"
#include "db/table_mend.h"
#include "db/table_rebuild.h"
#include "db_sql/dangling_records.h"
#include "db_sql/db_crl_files.h"
#include "misc/atomic_write.h"
#include "misc/exceptions.h"
#include "misc/file_ops.h"
#include "misc/logger.h"
#include "misc/path.h"
#include "misc/whole_file.h"

namespace crv {

namespace {

constexpr size_t kMaxDirectory = 255;
/// Whom the user knows and what revoked them is nobody else's business; a folder that is there keeps its mode.
constexpr mode_t kDirectoryMode = 0700;
/// Files of the format before the additional identifiers, the imports and the CRL index.
constexpr int kOldFormatFiles = 6;
constexpr size_t kVersionOctets = 4;

bool accessible(const std::string& path, int mode) {
    return fileOps().access(path, mode) == 0;
}

[[noreturn]] void refuseCreation() {
    throw StoreError(StoreCause::Failed, "DbCrv::create. Blad tworzenia katalogu baz danych");
}

}  // namespace

const std::array<std::string_view, 11> DbCrv::m_dbFileNames{"ca.dta",     "ca.idx",      "certific.dta", "certific.idx",
                                                            "dnfld.dta",  "dnfld.idx",   "version.txt",  "addidx.dta",
                                                            "addidx.idx", "imports.dat", "crl_idx.asn"};

bool buildDBDirectory(const std::string& path, std::string& directory) {
    std::string full = expandHome(path);
    if (full.empty()) return false;
    if (full.back() != '/') full += '/';
    if (full.size() > kMaxDirectory) return false;
    directory = std::move(full);
    return true;
}

void copyDbFile(const std::string& from, const std::string& to) {
    if (!fileExists(from)) throw StoreError(StoreCause::NotOpened, "readFile(): Blad otwarcia bliku: " + from);
    if (!copyFile(from, to)) throw StoreError(StoreCause::Failed, "writeFile: blad zapisy pliku");
}

void DbCrv::connect(const std::string& path) {
    if (!buildDBDirectory(path, directory_)) {
        throw StoreError(StoreCause::NotOpened, "DbCrv::connect. Blad wywolania funkcji: buildDBDirectory");
    }
    lock_ = std::make_unique<DbLock>(createSemaforeName());
    lock_->setMender([this](DbMark mark, const std::vector<std::string>& names) { return mend(mark, names); });
}

int DbCrv::getFilesCount() const {
    int count = 0;
    for (const std::string_view name : m_dbFileNames) {
        struct stat info {};
        if (fileOps().stat(pathOf(name), &info) == 0) {
            ++count;
        } else if (errno != ENOENT && errno != ENOTDIR) {
            return -1;
        }
    }
    return count;
}

DbState DbCrv::isDbCreated() {
    struct stat info {};
    if (fileOps().stat(directory_, &info) != 0) {
        return errno == ENOENT || errno == ENOTDIR ? DbState::Missing : DbState::NoAccess;
    }
    if (!accessible(directory_, R_OK | X_OK)) return DbState::NoAccess;
    if (!fileExists(createSemaforeName())) return stateOfFiles();
    const DbGuard guard(*lock_, kSharedLock);
    removeLeftovers(DbMark::None);
    return stateOfFiles();
}

DbState DbCrv::stateOfFiles() const {
    const int count = getFilesCount();
    const bool all = count == static_cast<int>(m_dbFileNames.size());
    if (count < 0) return DbState::NoAccess;
    if (count == 0) return DbState::Missing;
    const FileDescriptor version(fileOps().open(pathOf(kVersionFileName), O_RDONLY));
    if (!version.valid()) {
        if (all) return DbState::NoAccess;
        return count == kOldFormatFiles ? DbState::OtherVersion : DbState::Incomplete;
    }
    std::array<char, kVersionOctets> text{};
    const ssize_t n = readUpTo(version.get(), text.data(), text.size(), 0);
    if (n <= 0 || std::string_view(text.data(), static_cast<size_t>(n)) != kVersionText) return DbState::OtherVersion;
    return all ? DbState::Complete : DbState::Incomplete;
}

void DbCrv::makeFiles() {
    for (const TableLayout* layout : kCertificateTables) {
        DataBase table;
        if (table.create(pathOf(layout->file), layout->numIndexes, layout->descs.data()) != kDbOk) {
            throw StoreError(StoreCause::Failed, std::string(layout->createError));
        }
    }
    writeFile(pathOf(kImportsFileName), {});
    CrlFileGuard(directory_).create();
    writeFile(pathOf(kVersionFileName), asBytes(kVersionText));
}

void DbCrv::removeFiles() {
    for (const std::string_view name : m_dbFileNames) fileOps().unlink(pathOf(name));
    fileOps().unlink(pathOf(kCrlIndexTagName));
}

void DbCrv::create() {
    const bool hadDirectory = fileExists(directory_);
    if (!createDirectoryPath(directory_, kDirectoryMode)) refuseCreation();
    const bool hadLock = fileExists(createSemaforeName());
    try {
        const DbGuard guard(*lock_, kExclusiveLock);
        const DbState state = stateOfFiles();
        if (state == DbState::Complete) return;
        if (state != DbState::Missing || !lock_->setMark(DbMark::Creating)) refuseCreation();
        try {
            makeFiles();
        } catch (...) {
            removeFiles();
            throw;
        }
    } catch (...) {
        if (!hadLock && getFilesCount() == 0) fileOps().unlink(createSemaforeName());
        if (!hadDirectory) fileOps().rmdir(directory_);
        throw;
    }
}

void DbCrv::copyDb(const std::string& destination) {
    std::string target;
    if (!buildDBDirectory(destination, target)) {
        throw StoreError(StoreCause::NotOpened, "DbCrv::connect. Blad wywolania funkcji: buildDBDirectory");
    }
    struct stat from {
    }, to{};
    if (!createDirectoryPath(target, kDirectoryMode)) refuseCreation();
    if (fileOps().stat(directory_, &from) == 0 && fileOps().stat(target, &to) == 0 &&
        FileId::of(from) == FileId::of(to)) {
        return;  // a copy onto itself would empty the files
    }
    const DbGuard guard(*lock_, kSharedLock);
    for (const std::string_view name : m_dbFileNames) copyDbFile(pathOf(name), target + std::string(name));
}

bool DbCrv::mend(DbMark mark, const std::vector<std::string>& names) try {
    removeLeftovers(mark);
    // A creation writes "version.txt" last and no records: what has either is a database, whatever the mark says.
    if (mark == DbMark::Creating && !holdsAnything()) {
        removeFiles();
        return getFilesCount() == 0;
    }
    if (mark == DbMark::ChangingCrls) return mendCrls();
    if (mark == DbMark::Swapping) {
        return std::all_of(names.begin(), names.end(),
                           [&](const std::string& name) { return swapRebuilt(pathOf(name)); });
    }
    return mendChange();
} catch (const StoreError& failure) {
    logLine(LogLevel::Error, std::string("database not mended: ") + failure.what());
    return false;
}

bool DbCrv::holdsAnything() const {
    struct stat info {};
    const auto hasRecords = [&](const TableLayout* layout) {
        const std::string data = pathOf(layout->file) + kDataExtension;
        return fileOps().stat(data, &info) == 0 && info.st_size > static_cast<off_t>(data_format::kHeadSize);
    };
    return fileExists(pathOf(kVersionFileName)) || !CrlFileGuard(directory_).numbers().empty() ||
           std::ranges::any_of(kAllTables, hasRecords);
}

/// New files of a table count only under the mark of a swap.
void DbCrv::removeLeftovers(DbMark mark) const {
    for (const TableLayout* layout : kAllTables) {
        if (mark != DbMark::Swapping) discardRebuilt(pathOf(layout->file));
    }
    removeStaleTemporaries(directory_);
}

bool DbCrv::mendCrls() {
    try {
        for (const std::string& note : CrlFileGuard(directory_).mend()) logLine(LogLevel::Warning, note);
        return true;
    } catch (const StoreError& e) {
        logLine(LogLevel::Error, std::string("CRL files not mended: ") + e.what());
        return false;
    }
}

/// Indexes made after a damaged header would be those of another table.
bool DbCrv::hasLayout(const TableLayout& layout) const {
    DataFile data;
    const bool same = data.open(pathOf(layout.file) + kDataExtension) == kDbOk && layout.isThatOf(data);
    if (!same) logLine(LogLevel::Error, "damaged header, crvdb repair restores it: " + data.path());
    return same;
}

bool DbCrv::mendChange() {
    int done = 0;
    for (const TableLayout* layout : kAllTables) {
        reportMending(kIndexPercent * done++ / static_cast<int>(kAllTables.size()));
        const std::string table = pathOf(layout->file);
        // This table is made on the way; one without a head holds nothing yet and is made again.
        if (layout == &netCertTimeTb && DataFile().open(table + kDataExtension) != kDbOk) {
            for (const char* extension : {kIndexExtension, kDataExtension}) fileOps().unlink(table + extension);
        }
        if (fileExists(table + kDataExtension) && !(hasLayout(*layout) && mendTable(table))) return false;
    }
    if (removeDangling() < 0) return false;
    return mendCrls() && (!storeMender_ || storeMender_());
}

int64_t DbCrv::removeDangling() {
    DanglingRecords dangling(directory_);
    int64_t count = 0;
    for (const TableLayout* layout : kSideTables) {
        DataFile data;
        const int64_t before = count;
        const auto remove = [&](int64_t recNo) {
            ++count;
            return (data.isOpen() || data.open(pathOf(layout->file) + kDataExtension) == kDbOk) &&
                   data.remove(recNo) == kDbOk;
        };
        if (!dangling.find(*layout, remove) || (count > before && !data.sync())) return -1;
    }
    return count;
}

}  // namespace crv
