#include "pkcs11_module/listed_profiles.h"

#include <sys/auxv.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <optional>

#include "db_sql/db_layout.h"
#include "misc/ascii.h"
#include "misc/c_string.h"
#include "misc/exceptions.h"
#include "misc/logger.h"
#include "misc/path.h"
#include "profiles/profile_kinds.h"

namespace crv::p11 {
namespace {

bool hasMoreRightsThanItsUser() {
    return getauxval(AT_SECURE) != 0;
}

std::string currentFolder() {
    std::error_code error;
    return std::filesystem::current_path(error).string();
}

}  // namespace

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
    std::set<std::string> taken;
    for (List& list : lists_) {
        readAgain(list);
        std::ranges::copy_if(list.profiles, std::back_inserter(found),
                             [&](const ListedProfile& profile) { return !taken.contains(profile.name); });
        taken.insert(list.names.begin(), list.names.end());
    }
    return found;
}

void ListedProfiles::readAgain(List& list) const {
    const FileStamp stamp = FileStamp::of(list.path);
    if (list.stamp == stamp) return;
    try {
        std::set<std::string> names;
        list.profiles = profilesOf(list, names);
        list.names = std::move(names);
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

std::vector<ListedProfile> ListedProfiles::profilesOf(const List& list, std::set<std::string>& names) const {
    std::vector<ListedProfile> found;
    UniversalConfMgr store(list.media);
    if (!store.loadIfExists(list.path)) return found;
    // HOME and the folder in which a program starts are the user's choice.
    const bool absoluteOnly = hasMoreRightsThanItsUser();
    const auto usable = [&](const std::optional<std::string>& path) {
        return path && !path->empty() && (!absoluteOnly || path->starts_with('/'));
    };
    const auto resolved = [&](const std::string& path) { return (list.folder / expandHome(path)).string(); };
    UniversalConfMgr::Iterator at;
    for (store.getIterator(at, "\\", UCMNodeType::Key); at; ++at) {
        std::string name = at.getDescr();
        name.pop_back();
        if (name.empty() || (!only_.empty() && name != only_)) continue;
        const std::string prefix = "\\" + name + "\\";
        const auto type = store.findValue<long>(prefix + "TYPE");
        const auto file = store.findValue<std::string>(prefix + "PKCS12FILE");
        if (type && isListedKind(*type)) names.insert(name);
        if (!type || *type != static_cast<long>(ProfileKind::Pkcs12) || !usable(file)) continue;
        ListedProfile profile{std::move(name), resolved(*file), {}, {}};
        const auto roots = store.findValue<std::string>(prefix + "ROOTSFILE");
        const auto open = store.findValue<long>(prefix + "ROOTSEMPTYPASSWORD");
        if (open && *open != 0 && usable(roots)) profile.rootsFile = resolved(*roots);
        const auto kind = store.findValue<std::string>(prefix + "DBTYPE");
        const auto folder = store.findValue<std::string>(prefix + "DB");
        if (databases_ && kind && *kind == kDbKindFile && usable(folder))
            profile.dbLock = resolved(*folder) + "/" + std::string(kLockFileName);
        found.push_back(std::move(profile));
    }
    return found;
}

}  // namespace crv::p11
