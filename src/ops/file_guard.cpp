#include "ops/file_guard.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <optional>

#include "asn/pkcs/pfx.h"
#include "keystore/file_history.h"
#include "misc/atomic_write.h"
#include "misc/exceptions.h"
#include "misc/file_ops.h"
#include "misc/path.h"
#include "misc/whole_file.h"
#include "profiles/crv_profile.h"

namespace crv {

namespace {

/// No key store is longer.
constexpr size_t kLongestKeyStore = size_t{64} << 20;

std::optional<struct stat> lookAt(const std::string& path) {
    struct stat info {};
    if (path.empty() || fileOps().stat(path, &info) != 0) return std::nullopt;
    return info;
}

bool sameFile(const std::string& a, const std::string& b) {
    const auto one = lookAt(a), other = lookAt(b);
    return one && other && FileId::of(*one) == FileId::of(*other);
}

/// A name that may not exist yet: the same folder and the same last part.
bool samePlace(const std::string& a, const std::string& b) {
    const auto last = [](const std::string& path) { return path.substr(path.rfind('/') + 1); };
    return last(a) == last(b) && sameFile(folderOf(a), folderOf(b));
}

/// As the security file's lock is named: links are followed first.
std::string lockOf(const std::string& securityFile) {
    std::error_code error;
    const auto resolved = std::filesystem::weakly_canonical(securityFile, error);
    return (error ? securityFile : resolved.string()) + ".lck";
}

bool isKeyStore(const std::string& path) {
    try {
        const Bytes content = readFile(path, kLongestKeyStore);
        return Pfx().readExactly(content, ASN_FLAG_CONST);
    } catch (const StoreError&) {
        return false;  // longer, or unreadable: the caller's question about replacing it remains
    }
}

}  // namespace

FileGuard::FileGuard(const std::vector<std::string>& furtherLists) {
    for (const std::string& list : furtherLists) addList(list);
    for (const ProfileMedia media : {ProfileMedia::User, ProfileMedia::Common}) {
        // Without a list set for the process this is the main package's.
        addList(CrvProfile::getDefaultCfgFileName(media));
        addList(CrvProfile::getSignerCfgFileName(media));
    }
    if (const char* list = std::getenv("CRV_PROFILE_FILE")) addList(list);
}

void FileGuard::addPath(const std::string& path, const std::string& owner, bool folder) {
    if (!path.empty()) claimed_.push_back({expandHome(path), owner, folder});
}

void FileGuard::add(const CrvProfile& profile) {
    if (std::string path; profile.getAttr(CRVPROFILE_ATTR_PKCS12_FILE, path) == kAttrOk && !path.empty())
        addPath(historyFolder(expandHome(path)), profile.name(), true);
    for (const long attribute : {CRVPROFILE_ATTR_PKCS12_FILE, CRVPROFILE_ATTR_ROOTS_FILE}) {
        std::string path;
        if (profile.getAttr(attribute, path) != kAttrOk || path.empty()) continue;
        addPath(path, profile.name());
        addPath(lockOf(expandHome(path)), profile.name());
    }
    addPath(profile.dbConfig().db, profile.name(), true);
}

void FileGuard::addList(const std::string& path) {
    const auto known = [&](const Claimed& one) { return one.path == expandHome(path); };
    if (path.empty() || std::any_of(claimed_.begin(), claimed_.end(), known)) return;
    addPath(path, {});
    addPath(path + ".lck", {});
    try {
        const auto iterator = CrvProfile::getProfileIterator(ProfileMedia::File, path);
        while (const auto profile = CrvProfile::getNextProfile(*iterator)) add(*profile);
    } catch (const StoreError&) {  // no such list, or one that names no profiles
    }
}

FileVerdict FileGuard::judge(const std::string& path) const {
    const std::string target = expandHome(path);
    const auto info = lookAt(target);
    FileVerdict verdict;
    verdict.exists = info && S_ISREG(info->st_mode);
    const auto found = std::find_if(claimed_.begin(), claimed_.end(), [&](const Claimed& one) {
        return sameFile(target, one.path) || samePlace(target, one.path) ||
               (one.folder && sameFile(folderOf(target), one.path));
    });
    if (found != claimed_.end()) {
        verdict.claim = FileClaim::Profile;
        verdict.owner = found->owner;
    } else if (verdict.exists && isKeyStore(target)) {
        verdict.claim = FileClaim::Keys;
    }
    return verdict;
}

}  // namespace crv
