#include "profiles/crv_profile.h"

#include <algorithm>
#include <cstdio>
#include <ctime>

#include "corvane/crverrors.h"
#include "misc/atomic_write.h"
#include "misc/exceptions.h"
#include "misc/path.h"

namespace crv {
namespace {

constexpr AttrRow kCommonRows[] = {
    {"RootsFile", AttrForm::Text, {CRVPROFILE_ATTR_ROOTS_FILE, kNoAttr}},
    {"RootsReg", AttrForm::Text, {CRVPROFILE_ATTR_ROOTS_REG, kNoAttr}},
    {"TrvLibPath", AttrForm::Text, {CRVPROFILE_ATTR_TRV_LIB_PATH, kNoAttr}},
    {"RootsEmptyPassword", AttrForm::OpenNumber, {CRVPROFILE_ATTR_ROOTS_EMPTY_PASSWORD, kNoAttr}},
};

/// String values of a record's own keys, for the database settings: from a list and, where it may change, into it.
class CfgIo : public RwCfgStrValue {
  public:
    CfgIo(const UniversalConfMgr& from, UniversalConfMgr* to, std::string prefix)
        : from_(from), to_(to), prefix_(std::move(prefix)) {}

    bool read(const std::string& key, std::string& value) override { return from_.getData(prefix_ + key, value); }
    void write(const std::string& key, const std::string& value) override {
        VTEST(to_, "src/profiles/crv_profile");
        to_->setData((prefix_ + key).c_str(), value.c_str());
    }

  private:
    const UniversalConfMgr& from_;
    UniversalConfMgr* to_;
    std::string prefix_;
};

std::string localTime() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    char text[32];
    std::snprintf(text, sizeof text, "%.4d%.2d%.2d%.2d%.2d%.2d", local.tm_year + 1900, local.tm_mon + 1, local.tm_mday,
                  local.tm_hour, local.tm_min, local.tm_sec);
    return text;
}

}  // namespace

CrvProfile::CrvProfile(ProfileKind kind, std::span<const AttrRow> rows)
    : kind_(kind), common_(kCommonRows), own_(rows) {}

int CrvProfile::getAttr(long id, char* buf, long* len) const {
    if (own_.knows(id)) return own_.get(id, buf, len);
    switch (id) {
        case CRVPROFILE_ATTR_NAME:
            return copyAttr(name_, buf, len);
        case CRVPROFILE_ATTR_TYPE:
            return copyOpenNumber(type(), buf, len);
        case CRVPROFILE_ATTR_TYPE_TEXT:
            return copyAttr(std::to_string(type()), buf, len);
        default:
            break;
    }
    std::string value;
    if (!db_.getAttr(id, value)) return common_.get(id, buf, len);
    if (!len || (buf && *len < 0)) return kAttrBadArgument;
    if (!value.empty()) return copyAttr(value, buf, len);
    *len = 0;
    return kAttrNoValue;
}

int CrvProfile::getAttr(long id, std::string& value) const {
    long len = 0;
    int result = getAttr(id, nullptr, &len);
    value.resize(static_cast<size_t>(result ? 0 : len));
    return result || value.empty() ? result : getAttr(id, value.data(), &len);
}

int CrvProfile::getAttr(long id, long& value) const {
    value = 0;
    long len = sizeof value;
    return getAttr(id, reinterpret_cast<char*>(&value), &len);
}

int CrvProfile::getAttr(long id, std::vector<char>& value) const {
    std::string octets;
    int result = getAttr(id, octets);
    value.assign(octets.begin(), octets.end());
    return result;
}

int CrvProfile::setAttr(long id, const char* value, long len) {
    if (own_.knows(id)) return own_.set(id, value, len);
    if (common_.knows(id)) return common_.set(id, value, len);
    if (len < 0 || (!value && len > 0)) return kAttrBadArgument;
    const std::string text = value ? std::string(value, static_cast<size_t>(len)) : std::string();
    if (id == CRVPROFILE_ATTR_NAME) {
        if (!fitsListName(text)) return kAttrBadArgument;
        name_ = text;
        return kAttrOk;
    }
    if (!fitsList(text)) return kAttrBadArgument;
    try {
        return db_.setAttr(id, text) ? kAttrOk : kAttrBadArgument;
    } catch (const StoreError& error) {
        throw CrvApiException(ECRV_API_INV_PAR, error.what());
    }
}

int CrvProfile::setAttr(long id, const std::string& value) {
    return setAttr(id, value.data(), static_cast<long>(value.size()));
}

int CrvProfile::setAttr(long id, long value) {
    return setAttr(id, std::to_string(value));
}

void CrvProfile::loadProfile(const UniversalConfMgr& store, const std::string& name) {
    const std::string prefix = "\\" + name + "\\";
    name_ = name;
    loadUsages(store, prefix);
    loadServers(store, prefix);
    loadProxy(store, prefix);
    common_.load(store, prefix);
    CfgIo reader(store, nullptr, prefix);
    db_.load(reader);
    loadCfgDependingOnDevType(store, prefix);
}

CrvProfile::Nodes CrvProfile::foreignNodes(const UniversalConfMgr& store, const std::string& prefix) const {
    static constexpr std::string_view kKeys[] = {"TYPE",   "LASTPROFILEUPDATE", "DB",    "DBTYPE",
                                                 "DBNAME", "DBLOGIN",           "DBPASS"};
    static constexpr std::string_view kTrees[] = {"SRV\\", "PROXY\\HTTP\\", "EXTKEYUSAGES\\"};
    const auto ours = [&](const std::string& key) {
        return std::ranges::find(kKeys, key) != std::end(kKeys) || common_.writes(key) || own_.writes(key) ||
               std::ranges::any_of(kTrees, [&](std::string_view tree) { return key.starts_with(tree); });
    };
    Nodes kept;
    if (store.findValue<long>(prefix + "Type") != type()) return kept;
    for (const UCMNodeType type : {UCMNodeType::Long, UCMNodeType::String, UCMNodeType::Binary}) {
        UniversalConfMgr::Iterator at;
        for (store.getIterator(at, prefix, type); at; ++at)
            if (!ours(at.getDescr())) kept.emplace_back(prefix + at.getDescr(), at.getData());
    }
    return kept;
}

void CrvProfile::writeRecord(UniversalConfMgr& store) const {
    const std::string prefix = "\\" + name_ + "\\";
    CfgIo io(store, &store, prefix);
    const auto foreign = foreignNodes(store, prefix);
    store.remove(prefix);
    for (const auto& [path, node] : foreign) store.setNode(path.c_str(), node);
    store.setData((prefix + "Type").c_str(), type());
    common_.save(store, prefix);
    db_.save(io);
    saveUsages(store, prefix);
    saveServers(store, prefix);
    saveProxy(store, prefix);
    saveCfgDependingOnProfileType(store, prefix);
    store.setData((prefix + "LastProfileUpdate").c_str(), localTime().c_str());
}

void CrvProfile::saveProfile(ProfileMedia media, const std::string& file) const {
    if (name_.empty()) throw CrvApiException(ECRV_NO_PROFILE_NAME);
    const std::string path = getCfgFileName(media, file);
    UniversalConfMgr store(media);
    store.loadIfExists(path);
    writeRecord(store);
    store.seveToFile(path);
}

void CrvProfile::saveProfileWithRollbackIfError(ProfileMedia media, const std::string& file) {
    try {
        saveProfile(media, file);
    } catch (...) {
        try {
            if (auto saved = getProfileByName(media, file, name_)) *this = *saved;
        } catch (const std::exception&) {
            // The list cannot be read either: the first failure is the one to tell.
        }
        throw;
    }
}

void CrvProfile::changeAndSave(ProfileMedia media, const std::string& file,
                               const std::function<void(CrvProfile&)>& change) {
    // Another program may have changed the list since: its changes are kept.
    auto changed = savedRecord(media, file);
    if (!changed) changed = clone();
    change(*changed);
    changed->saveProfile(media, file);
    // Names come out of a list in upper case; they are to stay as they are from the first save on.
    if (auto saved = savedRecord(media, file)) changed = std::move(saved);
    // The places where this record's files are stay those that are in use.
    changed->db_ = db_;
    changed->common_ = common_;
    changed->own_ = own_;
    changed->listFile_ = listFile_;
    changed->dbInstDir_ = dbInstDir_;
    *this = *changed;
}

std::unique_ptr<CrvProfile> CrvProfile::savedRecord(ProfileMedia media, const std::string& file) const {
    try {
        auto saved = getProfileByName(media, file, name_);
        return saved && saved->kind_ == kind_ ? std::move(saved) : nullptr;
    } catch (const std::exception&) {
        return nullptr;  // the failure that asks for the saved record is the one to be told
    }
}

void CrvProfile::removeProfile(ProfileMedia media, const std::string& file, const std::string& name) {
    if (name.empty() || !fitsListName(name)) throw CrvApiException(ECRV_API_INV_PAR);
    const std::string path = getCfgFileName(media, file);
    UniversalConfMgr store(media);
    if (media == ProfileMedia::File) {
        store.loadFromFile(path);
    } else if (!store.loadIfExists(path)) {
        return;
    }
    store.setPendingChanges(false);
    store.remove("\\" + name + "\\");
    if (store.isPendingChanges()) store.seveToFile(path);
}

void CrvProfile::getDefaultDbInstDir(std::string& directory) const {
    const std::string list = listFile_.empty() ? getDefaultCfgFileName(ProfileMedia::User) : listFile_;
    directory = dbInstDir_.empty() ? folderOf(expandHome(list)) + "db/" : dbInstDir_;
}

}  // namespace crv
