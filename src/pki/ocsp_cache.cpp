#include "pki/ocsp_cache.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "crypto/kc_hash.h"
#include "misc/atomic_write.h"
#include "misc/exceptions.h"
#include "misc/file_ops.h"
#include "misc/hex.h"
#include "misc/whole_file.h"

namespace crv {

namespace {

std::string nameOfAnswer(ByteView certId) {
    return toHex(hashOf(KcHashAlgo::Sha256, certId));
}

}  // namespace

void OcspCache::setFolder(const std::string& database) {
    const std::string folder = database.empty() ? std::string() : database + "ocsp/";
    if (folder == folder_) return;
    folder_ = folder;
    forget();
}

bool OcspCache::mayHold() const {
    return !held_.empty() || (!folder_.empty() && fileExists(folder_));
}

std::optional<Bytes> OcspCache::find(ByteView certId) const {
    const std::string name = nameOfAnswer(certId);
    if (const auto known = held_.find(name); known != held_.end() && Clock::now() < known->second.until)
        return known->second.answer;
    if (folder_.empty() || !fileExists(folder_ + name)) return std::nullopt;
    try {
        return readFile(folder_ + name, kMaxAnswer);
    } catch (const StoreError&) {
        return std::nullopt;
    }
}

void OcspCache::store(ByteView certId, ByteView answer, bool keeps) {
    const std::string name = nameOfAnswer(certId);
    std::erase_if(held_, [now = Clock::now()](const auto& one) { return one.second.until <= now; });
    held_.erase(name);
    if (keeps && write(name, answer)) return;
    // It is the answer now: nobody may find the one before.
    remove(certId);
    makeRoomInMemory();
    // Where there is no folder it stays for the run: whoever reads it looks whether it still holds.
    held_[name] = {toBytes(answer), keeps ? Clock::time_point::max() : Clock::now() + kMoment};
}

void OcspCache::remove(ByteView certId) {
    const std::string name = nameOfAnswer(certId);
    held_.erase(name);
    if (!folder_.empty() && fileExists(folder_ + name)) fileOps().unlink(folder_ + name);
}

void OcspCache::makeRoomInMemory() {
    if (held_.size() < kMostFiles) return;
    held_.erase(std::ranges::min_element(held_, {}, [](const auto& one) { return one.second.until; }));
}

/// The database's own folder is not made here: where there is none there is no database yet.
bool OcspCache::makeFolder() const {
    return fileExists(folder_) || (fileExists(folder_.substr(0, folder_.size() - std::string_view{"ocsp/"}.size())) &&
                                   createDirectoryPath(folder_, 0700));
}

bool OcspCache::write(const std::string& name, ByteView answer) const {
    if (folder_.empty() || !makeFolder()) return false;
    if (!fileExists(folder_ + name)) makeRoom();
    return static_cast<bool>(writeFileAtomically(folder_ + name, answer, {WriteMode::KeepOrSecret}));
}

void OcspCache::makeRoom() const {
    std::vector<std::string> names;
    if (fileOps().list(folder_, names) != 0 || names.size() < kMostFiles) return;
    std::vector<std::pair<time_t, std::string>> byAge;
    for (const std::string& name : names) {
        struct stat info {};
        if (fileOps().lstat(folder_ + name, &info) == 0) byAge.emplace_back(info.st_mtime, name);
    }
    std::ranges::sort(byAge);
    // An eighth at once, so that the folder is not read for each answer.
    const size_t keep = kMostFiles - kMostFiles / 8;
    for (size_t i = 0; i + keep < byAge.size(); ++i) fileOps().unlink(folder_ + byAge[i].second);
}

}  // namespace crv
