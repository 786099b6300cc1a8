#include "keystore/file_history.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <new>

#include "misc/atomic_write.h"
#include "misc/exceptions.h"
#include "misc/file_ops.h"
#include "misc/whole_file.h"

namespace crv {
namespace {

constexpr std::string_view kEnding = ".p12", kKeptEnding = "-kept.p12";
constexpr std::string_view kTimePattern = "00000000T000000Z-";  // a zero stands for any digit
constexpr size_t kTimeLength = kTimePattern.size();

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

bool isKept(const std::string& name) {
    return name.ends_with(kKeptEnding);
}

/// The number behind the time; -1 for a name that is none of ours.
long numberIn(const std::string& name) {
    const std::string_view ending = isKept(name) ? kKeptEnding : kEnding;
    if (name.size() <= kTimeLength + ending.size() || !name.ends_with(ending)) return -1;
    const auto fits = [](char c, char pattern) { return pattern == '0' ? isDigit(c) : c == pattern; };
    if (!std::ranges::equal(name.substr(0, kTimeLength), kTimePattern, fits)) return -1;
    const std::string digits = name.substr(kTimeLength, name.size() - kTimeLength - ending.size());
    return digits.size() <= 6 && std::ranges::all_of(digits, isDigit) ? std::strtol(digits.c_str(), nullptr, 10) : -1;
}

std::string timeNow() {
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    gmtime_r(&now, &parts);
    char text[kTimeLength + 1];
    std::strftime(text, sizeof text, "%Y%m%dT%H%M%SZ-", &parts);
    return text;
}

/// Where a group keeps a security file together, its members keep the history together. What root makes for a user's
/// file is the user's: else later saves could keep nothing.
void shareWithOwners(const std::string& securityFile, const std::string& path, mode_t mode) {
    struct stat info {};
    if (fileOps().stat(securityFile, &info) != 0) return;
    const FileDescriptor fd(fileOps().open(path, O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
    if (!fd.valid()) return;
    if (geteuid() == 0 && info.st_uid != 0) static_cast<void>(fileOps().fchown(fd.get(), info.st_uid, info.st_gid));
    if ((info.st_mode & S_IWGRP) && fileOps().fchown(fd.get(), static_cast<uid_t>(-1), info.st_gid) == 0)
        static_cast<void>(fileOps().fchmod(fd.get(), mode));
}

/// Above all of its second, also when the clock went back: the newest is the last one in order.
std::string nextName(const std::vector<FormerFile>& kept) {
    const std::string now = timeNow();
    if (kept.empty()) return now + "1";
    const std::string& last = kept.back().name;
    if (last.substr(0, kTimeLength) < now) return now + "1";
    return last.substr(0, kTimeLength) + std::to_string(numberIn(last) + 1);
}

bool hasOctets(const FormerFile& former, ByteView octets) try {
    return former.size == static_cast<int64_t>(octets.size()) && std::ranges::equal(readFile(former.path), octets);
} catch (const StoreError&) {
    return false;
}

}  // namespace

std::string HistoryFailure::text() const {
    return path + ": " + std::strerror(error);
}

std::string historyFolder(const std::string& securityFile) {
    return securityFile + ".d/";
}

namespace {

/// 0, or the errno of a folder that is there and cannot be read: what stands in it is not known then.
int readHistory(const std::string& securityFile, std::vector<FormerFile>& kept) {
    const std::string folder = historyFolder(securityFile);
    std::vector<std::string> names;
    if (fileOps().list(folder, names) != 0) {
        if (errno == ENOMEM) throw std::bad_alloc();
        return errno == ENOENT ? 0 : errno;
    }
    for (const std::string& name : names) {
        struct stat info {};
        if (numberIn(name) < 0 || fileOps().lstat(folder + name, &info) != 0 || !S_ISREG(info.st_mode)) continue;
        kept.push_back({name, folder + name, info.st_size});
    }
    std::ranges::sort(
        kept, {}, [](const FormerFile& one) { return std::pair(one.name.substr(0, kTimeLength), numberIn(one.name)); });
    return 0;
}

}  // namespace

std::vector<FormerFile> historyOf(const std::string& securityFile, HistoryFailure* failure) {
    std::vector<FormerFile> kept;
    const int error = readHistory(securityFile, kept);
    if (failure && error != 0) *failure = {historyFolder(securityFile), error};
    return kept;
}

HistoryFailure keepFormer(const std::string& securityFile, ByteView octets, std::optional<size_t> most) {
    const std::string folder = historyFolder(securityFile);
    if (fileOps().mkdir(folder, 0700) == 0) {
        shareWithOwners(securityFile, folder, 0770);
    } else if (errno != EEXIST) {
        return {folder, errno};
    }
    // What cannot be listed may have the name that comes next.
    HistoryFailure failure;
    std::vector<FormerFile> kept = historyOf(securityFile, &failure);
    if (!failure.empty()) return failure;
    if (most && !kept.empty() && hasOctets(kept.back(), octets)) return {};
    const std::string path = folder + nextName(kept) + std::string(most ? kEnding : kKeptEnding);
    const WriteResult written = writeFileAtomically(path, octets, {.mode = WriteMode::KeepOrSecret});
    if (!written && written.error == ENOMEM) throw std::bad_alloc();
    if (!written) return {path, written.error};
    shareWithOwners(securityFile, path, 0660);
    if (!most) return {};
    std::erase_if(kept, [](const FormerFile& one) { return isKept(one.name); });
    // One that cannot be deleted does no harm.
    for (size_t i = 0; i + *most < kept.size() + 1; ++i) static_cast<void>(fileOps().unlink(kept[i].path));
    return {};
}

HistoryFailure sealHistory(const std::string& securityFile) {
    std::vector<FormerFile> kept;
    if (const int error = readHistory(securityFile, kept)) return {historyFolder(securityFile), error};
    for (const FormerFile& one : kept) {
        const std::string base = one.path.substr(0, one.path.size() - kEnding.size());
        if (!isKept(one.name) && fileOps().rename(one.path, base + std::string(kKeptEnding)) != 0)
            return {one.path, errno};
    }
    return {};
}

bool clearHistory(const std::string& securityFile) {
    std::vector<FormerFile> kept;
    if (readHistory(securityFile, kept) != 0) return false;
    for (const FormerFile& one : kept)
        if (fileOps().unlink(one.path) != 0) return false;
    return syncFolder(historyFolder(securityFile));
}

}  // namespace crv
