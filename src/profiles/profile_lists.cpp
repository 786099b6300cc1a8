// Lists of profiles: their files, and looking records up in them.
#include <array>
#include <mutex>
#include <optional>

#include "profiles/crv_profile.h"
#include "profiles/profile_kinds.h"

namespace crv {
namespace {

constexpr std::array kMainLists = {"~/.crvprofiles.conf", "/opt/corvane/etc/crvprofiles.conf"};
constexpr std::array kSignerLists = {"~/.crvsignerprofiles.conf", "/opt/corvane_signer/etc/crvprofiles.conf"};

/// The lists set for the whole process.
struct Overrides {
    std::mutex mutex;
    std::array<std::optional<std::string>, 2> paths;
};

Overrides& overrides() {
    static Overrides instance;
    return instance;
}

bool hasDefault(ProfileMedia media) {
    return media == ProfileMedia::User || media == ProfileMedia::Common;
}

UniversalConfMgr loadList(ProfileMedia media, const std::string& file) {
    UniversalConfMgr list(media);
    const std::string path = CrvProfile::getCfgFileName(media, file);
    if (hasDefault(media)) {
        list.loadIfExists(path);
    } else {
        list.loadFromFile(path);
    }
    return list;
}

/// Name of a record's kind, in capital letters.
constexpr std::string_view kTypeKey = "TYPE";

std::optional<NodeDesc> typeNode(const UniversalConfMgr& list, const std::string& name) {
    return list.findNode(("\\" + name + "\\").append(kTypeKey));
}

/// The "Type" that a record declares; 0 when the record is no profile.
long declaredType(const std::optional<NodeDesc>& node) {
    const long* type = node ? std::get_if<long>(&node->value) : nullptr;
    return type && isListedKind(*type) ? *type : 0;
}

/// Whether a record stands there that nobody can open: one whose "Type" is no number.
bool hasFlaw(const std::optional<NodeDesc>& type) {
    return type && type->type() != UCMNodeType::Long;
}

/// Name of the record that the iterator stands on.
std::string nameAt(const UniversalConfMgr::Iterator& at) {
    std::string name = at.getDescr();
    name.pop_back();
    return name;
}

/// The next name of a record, past entries that are no profiles.
bool nextName(UniversalConfMgr::Iterator& at, std::string& name) {
    bool found = false;
    for (; at && !found; ++at) {
        name = nameAt(at);
        found = !name.empty() && declaredType(at.findBelow(kTypeKey)) != 0;
    }
    return found;
}

}  // namespace

std::string CrvProfile::getDefaultCfgFileName(ProfileMedia media) {
    if (!hasDefault(media)) return {};
    const auto index = static_cast<size_t>(media);
    std::scoped_lock lock(overrides().mutex);
    return overrides().paths[index].value_or(kMainLists[index]);
}

int CrvProfile::setDefaultCfgFileName(ProfileMedia media, const char* path) {
    if (!hasDefault(media)) return 0;
    std::scoped_lock lock(overrides().mutex);
    auto& place = overrides().paths[static_cast<size_t>(media)];
    place.reset();
    if (path) place = path;
    return 1;
}

const char* CrvProfile::getSignerCfgFileName(ProfileMedia media) {
    return hasDefault(media) ? kSignerLists[static_cast<size_t>(media)] : nullptr;
}

std::string CrvProfile::getCfgFileName(ProfileMedia media, const std::string& file) {
    return media == ProfileMedia::File ? file : getDefaultCfgFileName(media);
}

std::unique_ptr<CrvProfile> CrvProfile::readProfile(const UniversalConfMgr& store, const std::string& name) {
    if (name.empty() || !fitsListName(name)) return nullptr;
    const UniversalConfMgr record = store.below("\\" + name);
    auto profile = create(declaredType(typeNode(record, name)));
    if (profile) profile->loadProfile(record, name);
    return profile;
}

std::unique_ptr<CrvProfile> CrvProfile::getProfileByName(ProfileMedia media, const std::string& file,
                                                         const std::string& name) {
    auto profile = readProfile(loadList(media, file), name);
    if (profile) profile->listFile_ = getCfgFileName(media, file);
    return profile;
}

std::unique_ptr<ProfileIterator> CrvProfile::getProfileIterator(ProfileMedia media, const std::string& file,
                                                                long* count) {
    auto iterator = std::make_unique<ProfileIterator>(loadList(media, file), getCfgFileName(media, file));
    if (count) {
        UniversalConfMgr::Iterator at = iterator->at_;
        std::string name;
        for (*count = 0; nextName(at, name);) ++*count;
    }
    return iterator;
}

std::vector<ListFlaw> CrvProfile::getListFlaws(ProfileMedia media, const std::string& file) {
    const UniversalConfMgr list = loadList(media, file);
    std::vector<ListFlaw> flaws;
    UniversalConfMgr::Iterator at;
    for (list.getIterator(at, "\\", UCMNodeType::Key); at; ++at) {
        const auto type = at.findBelow(kTypeKey);
        if (!hasFlaw(type)) continue;
        const std::string name = nameAt(at);
        flaws.push_back({name, "Plik: " + getCfgFileName(media, file) + ": Typ profilu " + name +
                                   " nie jest liczba [l] w linii: " + std::to_string(type->line)});
    }
    return flaws;
}

bool CrvProfile::getNextProfileName(ProfileIterator& iterator, std::string& name) {
    return nextName(iterator.at_, name);
}

std::unique_ptr<CrvProfile> CrvProfile::getNextProfile(ProfileIterator& iterator, std::string* met) {
    std::string name;
    const bool there = nextName(iterator.at_, name);
    if (met) *met = there ? name : std::string();
    auto profile = there ? readProfile(iterator.list_, name) : nullptr;
    if (profile) profile->listFile_ = iterator.file_;
    return profile;
}

std::unique_ptr<CrvProfile> CrvProfile::getProfile(ProfileMedia media, const std::string& file, long index) {
    auto iterator = getProfileIterator(media, file);
    std::string skipped;
    for (; index > 0; --index)
        if (!nextName(iterator->at_, skipped)) return nullptr;
    return index < 0 ? nullptr : getNextProfile(*iterator);
}

ProfileIterator::ProfileIterator(UniversalConfMgr list, std::string file)
    : list_(std::move(list)), file_(std::move(file)) {
    list_.getIterator(at_, "\\", UCMNodeType::Key);
}

std::unique_ptr<CrvProfile> loadCrvProfile(AvailableProfiles which, const std::string& name, const std::string& file,
                                           ProfileMedia* media) {
    static constexpr std::array kMedia = {ProfileMedia::User, ProfileMedia::User, ProfileMedia::Common,
                                          ProfileMedia::File};
    ProfileMedia source = kMedia[static_cast<size_t>(which)];
    auto profile = CrvProfile::getProfileByName(source, file, name);
    if (!profile && which == AvailableProfiles::All && !hasFlaw(typeNode(loadList(source, file), name))) {
        source = ProfileMedia::Common;
        profile = CrvProfile::getProfileByName(source, file, name);
    }
    if (media) *media = source;
    return profile;
}

}  // namespace crv
