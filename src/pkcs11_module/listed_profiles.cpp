#include "pkcs11_module/listed_profiles.h"

#include <sys/auxv.h>

#include <algorithm>
#include <cstdlib>
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

}  // namespace

ListedProfiles::ListedProfiles()
    : only_(asciiUpper(viewOrEmpty(secure_getenv("CRV_PROFILE")))),
      databases_(viewOrEmpty(secure_getenv("CRV_PKCS11_DATABASE")) == "1") {
    const std::string file = orEmpty(secure_getenv("CRV_PROFILE_FILE"));
    const auto add = [this](ProfileMedia media, const std::string& path) {
        lists_.push_back({media, expandHome(CrvProfile::getCfgFileName(media, path))});
    };
    if (!file.empty()) {
        add(ProfileMedia::File, file);
    } else {
        if (getauxval(AT_SECURE) == 0) add(ProfileMedia::User, {});
        add(ProfileMedia::Common, {});
    }
}

bool ListedProfiles::changed() const {
    return std::ranges::any_of(lists_, [](const List& list) { return list.stamp != FileStamp::of(list.path); });
}

std::vector<ListedProfile> ListedProfiles::read() {
    std::vector<ListedProfile> found;
    for (List& list : lists_) {
        list.stamp = FileStamp::of(list.path);
        try {
            readInto(list, found);
        } catch (const StoreError& error) {
            logLine(LogLevel::Error, std::string("PKCS#11 module: ") + error.what());
        }
    }
    std::set<std::string_view> names;
    std::erase_if(found, [&](const ListedProfile& profile) { return !names.insert(profile.name).second; });
    return found;
}

void ListedProfiles::readInto(const List& list, std::vector<ListedProfile>& found) const {
    UniversalConfMgr store(list.media);
    if (!store.loadIfExists(list.path)) return;
    UniversalConfMgr::Iterator at;
    for (store.getIterator(at, "\\", UCMNodeType::Key); at; ++at) {
        std::string name = at.getDescr();
        name.pop_back();
        if (name.empty() || (!only_.empty() && name != only_)) continue;
        const std::string prefix = "\\" + name + "\\";
        const auto* type = valueAt<long>(store, prefix + "TYPE");
        const auto* file = valueAt<std::string>(store, prefix + "PKCS12FILE");
        if (!type || *type != static_cast<long>(ProfileKind::Pkcs12) || !file || file->empty()) continue;
        const bool own = list.media == ProfileMedia::File;
        found.push_back({std::move(name), list.media, own ? list.path : "", expandHome(*file), {}});
        const auto* kind = valueAt<std::string>(store, prefix + "DBTYPE");
        const auto* folder = valueAt<std::string>(store, prefix + "DB");
        if (databases_ && kind && *kind == kDbKindFile && folder && !folder->empty())
            found.back().dbLock = expandHome(*folder) + "/" + std::string(kLockFileName);
    }
}

}  // namespace crv::p11
