#include "db_sql/db_crl_files.h"

#include <algorithm>
#include <array>
#include <ctime>

#include "db_sql/db_layout.h"
#include "misc/byte_order.h"
#include "misc/exceptions.h"
#include "misc/file.h"
#include "misc/file_ops.h"
#include "misc/logger.h"
#include "misc/whole_file.h"

namespace crv {

namespace {

constexpr const char* kPlace = "src/db_sql/db_crl_crv";
constexpr size_t kTailOctets = 4;
constexpr size_t kTagOctets = 4 + kTailOctets;
constexpr std::array<uint8_t, 2> kEmptyIndex{0x30, 0x00};

Bytes tagOf(uint64_t length, ByteView tail) {
    Bytes tag(kTagOctets);
    storeBe(tag.data(), static_cast<uint32_t>(length));
    std::copy(tail.begin(), tail.end(), tag.begin() + 4);
    return tag;
}

std::string backupOf(const std::string& path) {
    return path + std::string(kBackupExtension);
}

std::string now() {
    const std::time_t seconds = std::time(nullptr);
    std::tm local{};
    std::array<char, 32> text{};
    localtime_r(&seconds, &local);
    std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &local);
    return text.data();
}

}  // namespace

Bytes makeDataForIntChk(ByteView content) {
    return tagOf(content.size(), content.last(std::min(content.size(), kTailOctets)));
}

int checkIntegrity(const std::string& file, const std::string& tag) {
    Bytes expected;
    try {
        expected = readFile(tag, kTagOctets + 1);
    } catch (const StoreError&) {
        // A tag that is there but longer than the limit is a wrong tag, not a missing one.
        struct stat info {};
        return fileOps().stat(tag, &info) == 0 && S_ISREG(info.st_mode) && info.st_size > static_cast<off_t>(kTagOctets)
                   ? 1
                   : 2;
    }
    File guarded;
    if (!guarded.open(file)) return 1;
    std::array<uint8_t, kTailOctets> tail{};
    const int64_t have = std::min<int64_t>(guarded.length(), kTailOctets);
    if (!guarded.readAt(guarded.length() - have, tail.data(), static_cast<size_t>(have))) return 1;
    return tagOf(static_cast<uint64_t>(guarded.length()), ByteView(tail).first(static_cast<size_t>(have))) == expected
               ? 0
               : 1;
}

std::string CrlFileGuard::crlPath(long n) const {
    return pathOf(std::to_string(n)) + std::string(kCrlExtension);
}

std::string CrlFileGuard::tagPath(long n) const {
    return pathOf(std::to_string(n)) + std::string(kTagExtension);
}

void CrlFileGuard::create() {
    storeIndex(kEmptyIndex);
}

void CrlFileGuard::storeIndex(ByteView index) {
    writeFile(pathOf(kCrlIndexFileName), index);
    writeFile(pathOf(kCrlIndexTagName), makeDataForIntChk(index));
}

Bytes CrlFileGuard::readIndex() const {
    return readFile(pathOf(kCrlIndexFileName));
}

Bytes CrlFileGuard::readCrl(long n) const {
    return readFile(crlPath(n));
}

int CrlFileGuard::checkIndex() const {
    return checkIntegrity(pathOf(kCrlIndexFileName), pathOf(kCrlIndexTagName));
}

int CrlFileGuard::checkCrl(long n) const {
    return checkIntegrity(crlPath(n), tagPath(n));
}

void CrlFileGuard::checkIndexOrRollback(long n) {
    if (checkIndex() != 1) return;
    rollback(n);
    throw StoreError(StoreCause::Damaged,
                     "Naruszona integralność bazy CRL (plik indeksu CRL-i). Wykonano operację restore");
}

void CrlFileGuard::write(long n, ByteView index, ByteView crl) {
    switch (checkCrl(n - 1)) {
        case 0:
            checkIndexOrRollback(n);
            break;
        case 1:
            rollback(n);
            throw StoreError(StoreCause::Damaged,
                             "Naruszona integralność bazy CRL (plik CRL). Wykonano operację restore");
        case 2:
            break;
        default:
            failAssertion("0", kPlace, __LINE__);
    }
    keepBackup();
    storeIndex(index);
    writeFile(crlPath(n), crl);
    writeTag(n, crl);
}

void CrlFileGuard::writeTag(long n, ByteView crl) {
    writeFile(tagPath(n), makeDataForIntChk(crl));
}

void CrlFileGuard::writeIndex(ByteView index) {
    checkIndexOrRollback(0);
    keepBackup();
    storeIndex(index);
}

void CrlFileGuard::keepBackup() {
    for (const std::string_view name : {kCrlIndexFileName, kCrlIndexTagName}) {
        const std::string path = pathOf(name);
        if (fileExists(path)) writeFile(backupOf(path), readFile(path));
    }
}

/// A copy that does not agree with its own tag is no help.
bool CrlFileGuard::restoreBackup() {
    const std::string index = backupOf(pathOf(kCrlIndexFileName));
    if (!fileExists(index) || checkIntegrity(index, backupOf(pathOf(kCrlIndexTagName))) == 1) return false;
    storeIndex(readFile(index));
    return true;
}

void CrlFileGuard::rollback(long n) {
    const bool restored = restoreBackup();
    const std::string line = "rollback crlNUm = " + std::to_string(n) + " " + now() +
                             (restored ? " index restored\n" : " no copy of the index to restore\n");
    logLine(LogLevel::Warning, line.substr(0, line.size() - 1));
    const FileDescriptor log(fileOps().open(pathOf(kRollbackLogName), O_WRONLY | O_CREAT | O_APPEND, 0666));
    if (!log.valid() || !writeAll(log.get(), line.data(), line.size(), -1)) {
        logLine(LogLevel::Error, "rollback log not written in " + directory_);
    }
}

}  // namespace crv
