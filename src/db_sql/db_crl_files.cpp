#include "db_sql/db_crl_files.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <ctime>

#include "crypto/kc_hash.h"
#include "db_sql/crl_index.h"
#include "db_sql/db_layout.h"
#include "misc/byte_order.h"
#include "misc/exceptions.h"
#include "misc/file.h"
#include "misc/file_ops.h"
#include "misc/logger.h"
#include "misc/whole_file.h"

namespace crv {

namespace {

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

Integrity checkIntegrity(const std::string& file, const std::string& tag) {
    Bytes expected;
    try {
        expected = readFile(tag, kTagOctets + 1);
    } catch (const StoreError&) {
        // A tag that is there but longer than the limit is a wrong tag, not a missing one.
        struct stat info {};
        return fileOps().stat(tag, &info) == 0 && S_ISREG(info.st_mode) && info.st_size > static_cast<off_t>(kTagOctets)
                   ? Integrity::Broken
                   : Integrity::NoTag;
    }
    File guarded;
    if (!guarded.open(file)) return Integrity::Broken;
    std::array<uint8_t, kTailOctets> tail{};
    const int64_t have = std::min<int64_t>(guarded.length(), kTailOctets);
    if (!guarded.readAt(guarded.length() - have, tail.data(), static_cast<size_t>(have))) return Integrity::Broken;
    return tagOf(static_cast<uint64_t>(guarded.length()), ByteView(tail).first(static_cast<size_t>(have))) == expected
               ? Integrity::Sound
               : Integrity::Broken;
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

Integrity CrlFileGuard::checkIndex() const {
    return checkIntegrity(pathOf(kCrlIndexFileName), pathOf(kCrlIndexTagName));
}

Integrity CrlFileGuard::checkCrl(long n) const {
    return checkIntegrity(crlPath(n), tagPath(n));
}

bool CrlFileGuard::isIndexSound() const {
    CrlIndex index;
    return checkIndex() != Integrity::Broken && fileExists(pathOf(kCrlIndexFileName)) &&
           parseCrlIndex(readIndex(), index);
}

void CrlFileGuard::checkIndexOrRollback(long n) {
    if (isIndexSound()) return;
    rollback(n);
    throw StoreError(StoreCause::Damaged,
                     "Naruszona integralność bazy CRL (plik indeksu CRL-i). Wykonano operację restore");
}

void CrlFileGuard::write(long n, ByteView index, ByteView crl) {
    switch (checkCrl(n - 1)) {
        case Integrity::Sound:
            checkIndexOrRollback(n);
            break;
        case Integrity::Broken:
            rollback(n);
            throw StoreError(StoreCause::Damaged,
                             "Naruszona integralność bazy CRL (plik CRL). Wykonano operację restore");
        case Integrity::NoTag:
            break;
    }
    keepBackup();
    storeIndex(index);
    writeFile(crlPath(n), crl);
    writeTag(n, crl);
    keepBackup();
}

/// The files go first: a row without its file is dropped by whoever mends, a file without its row is taken up again.
void CrlFileGuard::erase(long n, ByteView index) {
    keepBackup();
    fileOps().unlink(crlPath(n));
    fileOps().unlink(tagPath(n));
    storeIndex(index);
    keepBackup();
}

void CrlFileGuard::writeTag(long n, ByteView crl) {
    writeFile(tagPath(n), makeDataForIntChk(crl));
}

void CrlFileGuard::keepBackup() {
    for (const std::string_view name : {kCrlIndexFileName, kCrlIndexTagName}) {
        const std::string path = pathOf(name), copy = backupOf(path);
        if (!fileExists(path)) continue;
        const Bytes content = readFile(path);
        if (!fileExists(copy) || readFile(copy) != content) writeFile(copy, content);
    }
}

std::vector<long> CrlFileGuard::numbers() const {
    std::vector<std::string> names;
    std::vector<long> numbers;
    if (fileOps().list(directory_, names) != 0)
        throw StoreError(StoreCause::Failed, "folder bazy danych nie daje się odczytać: " + directory_);
    for (const std::string& name : names) {
        if (!name.ends_with(kCrlExtension)) continue;
        long number = 0;
        const char* end = name.data() + name.size() - kCrlExtension.size();
        const auto [rest, failed] = std::from_chars(name.data(), end, number);
        if (failed == std::errc() && rest == end && number > 0 && number <= kMostCrlFiles) numbers.push_back(number);
    }
    std::ranges::sort(numbers);
    return numbers;
}

/// The row that is right for the file of that number; none for a damaged one, which is deleted.
std::optional<CrlIndexEntry> CrlFileGuard::settle(long n, std::initializer_list<const CrlIndex*> indexes,
                                                  std::vector<std::string>& notes) {
    const Bytes der = readCrl(n), hash = hashOf(KcHashAlgo::Sha256, der);
    const std::string name = std::to_string(n) + std::string(kCrlExtension) + ": ";
    const Integrity tag = checkCrl(n);
    std::optional<CrlIndexEntry> row;
    for (const CrlIndex* index : indexes) {
        const auto same = std::ranges::find_if(*index, [&](const CrlIndexEntry& one) {
            return one.fileNumber() == n && std::ranges::equal(one.sha256.value(), hash);
        });
        if (!row && same != index->end()) row = *same;
    }
    if (ParsedCrl parsed; !row && tag != Integrity::Broken && parseCrl(der, parsed)) {
        row = parsed.entry;
        row->number.setValue(n);
        notes.push_back(name + "not the one of the index, taken up as not verified");
    }
    if (!row) {
        notes.push_back(name + "damaged, deleted");
        fileOps().unlink(crlPath(n));
        fileOps().unlink(tagPath(n));
    } else if (tag != Integrity::Sound) {
        notes.push_back(name + "tag made anew");
        writeTag(n, der);
    }
    return row;
}

std::vector<std::string> CrlFileGuard::mend() {
    CrlIndex rows, former, mended;
    const bool sound = isIndexSound();
    std::vector<std::string> notes;
    const auto load = [](const std::string& path, CrlIndex& index) {
        if (fileExists(path) && !parseCrlIndex(readFile(path), index)) index.clear();
    };
    load(pathOf(kCrlIndexFileName), rows);
    load(backupOf(pathOf(kCrlIndexFileName)), former);
    for (const long n : numbers()) {
        if (const auto row = settle(n, {&rows, &former}, notes)) mended.add() = *row;
    }
    if (!sound || mended.encoded() != rows.encoded()) {
        notes.push_back(std::string(kCrlIndexFileName) + ": made anew, lists: " + std::to_string(mended.size()));
        storeIndex(mended.encoded());
    }
    return notes;
}

void CrlFileGuard::rollback(long n) {
    std::string line = "rollback crlNUm = " + std::to_string(n) + " " + now();
    for (const std::string& note : mend()) line += " " + note + ";";
    logLine(LogLevel::Warning, line);
    line += "\n";
    const FileDescriptor log(fileOps().open(pathOf(kRollbackLogName), O_WRONLY | O_CREAT | O_APPEND, 0666));
    if (!log.valid() || !writeAll(log.get(), line.data(), line.size(), -1)) {
        logLine(LogLevel::Error, "rollback log not written in " + directory_);
    }
}

}  // namespace crv
