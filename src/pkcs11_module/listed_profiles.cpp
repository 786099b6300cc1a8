#include "pkcs11_module/listed_profiles.h"

#include <sys/auxv.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <set>

#include "db_sql/db_layout.h"
#include "misc/ascii.h"
#include "misc/c_string.h"
#include "misc/exceptions.h"
#include "misc/logger.h"
#include "misc/path.h"
#include "profiles/crv_profile.h"

namespace crv::p11 {
namespace {

template <class Value>
const Value* valueAt(const UniversalConfMgr& store, const std::string& path) {
    const NodeDesc* node = store.findNode(path);
    return node ? std::get_if<Value>(&node->value) : nullptr;
}

bool hasMoreRightsThanItsUser() {
    return getauxval(AT_SECURE) != 0;
}

std::string currentFolder() {
    std::error_code error;
    return std::filesystem::current_path(error).string();
}

}  // namespace

std::string ListedProfile::resolve(const std::string& path) const {
    return (std::filesystem::path(folder) / expandHome(path)).string();
}

ListedProfiles::ListedProfiles()
    : only_(asciiUpper(viewOrEmpty(secure_getenv("CRV_PROFILE")))),
      databases_(viewOrEmpty(secure_getenv("CRV_PKCS11_DATABASE")) == "1") {
    const std::string file = orEmpty(secure_getenv("CRV_PROFILE_FILE"));
    const std::string folder = currentFolder();
    const auto add = [&](ProfileMedia media, const std::string& path) {
        const std::filesystem::path list = expandHome(CrvProfile::getCfgFileName(media, path));
        lists_.push_back({media, (folder / list).string(), folder});
    };
    if (!file.empty()) {
        add(ProfileMedia::File, file);
    } else {
        if (!hasMoreRightsThanItsUser()) add(ProfileMedia::User, {});
        add(ProfileMedia::Common, {});
    }
}

bool ListedProfiles::changed() const {
    return std::ranges::any_of(lists_, [](const List& list) { return list.stamp != FileStamp::of(list.path); });
}

std::vector<ListedProfile> ListedProfiles::read() {
    std::vector<ListedProfile> found;
    for (List& list : lists_) {
        readAgain(list);
        found.insert(found.end(), list.profiles.begin(), list.profiles.end());
    }
    std::set<std::string> names;
    std::erase_if(found, [&](const ListedProfile& profile) { return !names.insert(profile.name).second; });
    return found;
}

void ListedProfiles::readAgain(List& list) const {
    const FileStamp stamp = FileStamp::of(list.path);
    if (list.stamp == stamp) return;
    try {
        list.profiles = profilesOf(list);
        list.stamp = stamp;
        list.told.clear();
    } catch (const StoreError& error) {
        // A list that is malformed stays so until it is written; whatever else may be over in a moment.
        list.stamp.reset();
        if (error.cause() == StoreCause::Malformed) list.stamp = stamp;
        if (list.told == error.what()) return;
        list.told = error.what();
        logLine(LogLevel::Error, "PKCS#11 module: " + list.told);
    }
}

std::vector<ListedProfile> ListedProfiles::profilesOf(const List& list) const {
    std::vector<ListedProfile> found;
    UniversalConfMgr store(list.media);
    if (!store.loadIfExists(list.path)) return found;
    // HOME is the user's choice.
    const auto usable = [](const std::string* path) {
        return path && !path->empty() && !(hasMoreRightsThanItsUser() && path->starts_with("~/"));
    };
    UniversalConfMgr::Iterator at;
    for (store.getIterator(at, "\\", UCMNodeType::Key); at; ++at) {
        std::string name = at.getDescr();
        name.pop_back();
        if (name.empty() || (!only_.empty() && name != only_)) continue;
        const std::string prefix = "\\" + name + "\\";
        const auto* type = valueAt<long>(store, prefix + "TYPE");
        const auto* file = valueAt<std::string>(store, prefix + "PKCS12FILE");
        if (!type || *type != static_cast<long>(ProfileKind::Pkcs12) || !usable(file)) continue;
        const bool own = list.media == ProfileMedia::File;
        ListedProfile profile{std::move(name), list.media, own ? list.path : "", list.folder, {}, {}};
        profile.keyFile = profile.resolve(*file);
        const auto* kind = valueAt<std::string>(store, prefix + "DBTYPE");
        const auto* folder = valueAt<std::string>(store, prefix + "DB");
        if (databases_ && kind && *kind == kDbKindFile && usable(folder))
            profile.dbLock = profile.resolve(*folder) + "/" + std::string(kLockFileName);
        found.push_back(std::move(profile));
    }
    return found;
}

}  // namespace crv::p11
