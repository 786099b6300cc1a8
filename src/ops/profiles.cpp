#include "ops/profiles.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "misc/ascii.h"
#include "misc/atomic_write.h"
#include "misc/exceptions.h"
#include "misc/file_ops.h"
#include "misc/path.h"
#include "misc/whole_file.h"
#include "ops/op_error.h"
#include "profiles/crv_profile_creation_guard.h"

namespace crv {
namespace {

constexpr mode_t kFolderMode = 0700;

constexpr ProfileField kFields[] = {
    {"key-file", CRVPROFILE_ATTR_PKCS12_FILE, false, true},
    {"db-type", CRVPROFILE_ATTR_DB_TYPE, false, false},
    {"db", CRVPROFILE_ATTR_DB, false, true},
    {"db-name", CRVPROFILE_ATTR_DB_NAME, false, false},
    {"db-login", CRVPROFILE_ATTR_DB_LOGIN, false, false},
    {"roots-file", CRVPROFILE_ATTR_ROOTS_FILE, false, true},
    {"roots-empty-password", CRVPROFILE_ATTR_ROOTS_EMPTY_PASSWORD, true, false},
    {"pkcs11-library", CRVPROFILE_ATTR_PKCS11_LIBRARY, false, true},
    {"signing-token", CRVPROFILE_ATTR_SKEY_TOK, false, false},
    {"decryption-token", CRVPROFILE_ATTR_DKEY_TOK, false, false},
    {"keep-session-open", CRVPROFILE_ATTR_PKCS11_KEEP_SESSION_OPEN, true, false},
    {"reader-name", CRVPROFILE_ATTR_READER_NAME, false, false},
    {"cert-filter", CRVPROFILE_ATTR_CERT_FILTER, false, false},
    {"device-library", CRVPROFILE_ATTR_TRV_LIB_PATH, false, true},
    {"device-type", CRVPROFILE_ATTR_T23_TYPE, true, false},
};

constexpr std::pair<const char*, std::string_view> kDbKindNames[] = {
    {"files", kDbKindFile}, {"memory", kDbKindMemory}, {"none", kDbKindNone}, {"server", kDbKindPg}};

/// Runs what reads or writes a list, with its failures as OpError.
template <class Work>
auto withList(const std::string& path, const Work& work) {
    try {
        return work();
    } catch (const CrvApiException& failure) {
        const OpFault fault = failure.code() == ECRV_SRV_EXIST     ? OpFault::ServerExists
                              : failure.code() == ECRV_SRV_NOT_FND ? OpFault::ServerMissing
                                                                   : OpFault::BadValue;
        throw OpError(fault, failure.code(), failure.hasText() ? failure.what() : path);
    } catch (const StoreError& failure) {
        throw OpError(OpFault::ListFailed, failure.what());
    }
}

std::string prefixOf(const std::string& name) {
    return "\\" + name + "\\";
}

void demandName(const std::string& name) {
    if (name.empty() || !fitsListName(name) || name.front() == ' ' || name.back() == ' ')
        throw OpError(OpFault::BadValue, name);
}

/// A record that cannot be opened for its "Type" is not taken for one that is not there.
void demandSound(const ListPlace& place, ProfileMedia media, const std::string& name) {
    for (const ListFlaw& flaw :
         withList(place.path(media), [&] { return CrvProfile::getListFlaws(media, place.file); }))
        if (equalIgnoreCase(flaw.name, name)) throw OpError(OpFault::ListFailed, flaw.text);
}

void demandFree(const ListPlace& place, ProfileMedia media, const std::string& name) {
    demandName(name);
    if (!fileExists(place.path(media))) return;
    if (CrvProfile::getProfileByName(media, place.file, name)) throw OpError(OpFault::ProfileExists, name);
    demandSound(place, media, name);
}

std::string dbKindOf(const std::string& text) {
    const auto* row = std::ranges::find(kDbKindNames, text, [](const auto& pair) { return pair.first; });
    return row == std::end(kDbKindNames) ? text : std::string(row->second);
}

/// Makes the folder and those above it, and tells the guard of the last one.
void makeFolder(const std::string& path, CrvProfileCreationGuard& guard) {
    std::string folder = expandHome(path);
    if (folder.empty() || fileExists(folder)) return;
    if (!createDirectoryPath(folder, kFolderMode))
        throw OpError(OpFault::FolderFailed, folder + ": " + std::strerror(errno));
    guard.setDBCreated(std::move(folder));
}

void fillIn(CrvProfile& profile, const ListPlace& place) {
    const std::string folder = folderOf(place.path(place.home()));
    std::string value;
    if (profile.dbConfig().type().empty()) profile.setAttr(CRVPROFILE_ATTR_DB_TYPE, std::string(kDbKindFile));
    const bool nameFits = profile.name().find('/') == std::string::npos;
    const auto fill = [&](long attribute, const std::string& path) {
        if (profile.getAttr(attribute, value) == kAttrOk && !value.empty()) return;
        if (!nameFits) throw OpError(OpFault::BadValue, profile.name());
        profile.setAttr(attribute, path);
    };
    if (profile.kind() == ProfileKind::Pkcs12) fill(CRVPROFILE_ATTR_PKCS12_FILE, folder + profile.name() + ".p12");
    if (profile.dbConfig().type() == kDbKindFile) fill(CRVPROFILE_ATTR_DB, folder + "db/" + profile.name());
}

/// The new record with its folders, into the list.
void store(const CrvProfile& profile, const ListPlace& place, const OpMode& mode) {
    if (mode.dryRun) return;
    CrvProfileCreationGuard keyGuard, dbGuard;  // each knows one folder
    std::string keyFile;
    profile.getAttr(CRVPROFILE_ATTR_PKCS12_FILE, keyFile);
    if (!keyFile.empty()) makeFolder(folderOf(keyFile), keyGuard);
    if (profile.dbConfig().type() == kDbKindFile) makeFolder(profile.dbConfig().db, dbGuard);
    profile.saveProfile(place.home(), place.file);
    for (CrvProfileCreationGuard* guard : {&keyGuard, &dbGuard}) guard->setCreationCompleted();
}

/// Holds the list's lock around the work.
template <class Work>
auto underLock(const ListPlace& place, ProfileMedia media, const OpMode& mode, const Work& work) {
    const ListLock lock(media, place.file, mode);
    return withList(place.path(media), work);
}

}  // namespace

ListLock::ListLock(ProfileMedia media, const std::string& file, const OpMode& mode)
    : lock_(expandHome(CrvProfile::getCfgFileName(media, file)) + ".lck", mode) {}

ProfileMedia ListPlace::home() const {
    if (kind == AvailableProfiles::File) return ProfileMedia::File;
    return kind == AvailableProfiles::Common ? ProfileMedia::Common : ProfileMedia::User;
}

std::string ListPlace::path(ProfileMedia media) const {
    return expandHome(CrvProfile::getCfgFileName(media, file));
}

std::span<const ProfileField> profileFields() {
    return kFields;
}

namespace {

void demandList(const ListPlace& place) {
    const std::string path = place.path(place.home());
    if (place.kind == AvailableProfiles::File && !fileExists(path)) throw OpError(OpFault::FileMissing, path);
}

std::vector<ProfileMedia> listsOf(const ListPlace& place) {
    std::vector<ProfileMedia> lists{place.home()};
    if (place.kind == AvailableProfiles::All) lists.push_back(ProfileMedia::Common);
    return lists;
}

void eachList(const ListPlace& place, const std::function<void(ProfileIterator&, ProfileMedia)>& visit) {
    demandList(place);
    for (const ProfileMedia media : listsOf(place)) {
        const auto iterator =
            withList(place.path(media), [&] { return CrvProfile::getProfileIterator(media, place.file); });
        visit(*iterator, media);
    }
}

}  // namespace

void eachProfile(const ListPlace& place, const std::function<void(const CrvProfile&, ProfileMedia)>& visit) {
    eachList(place, [&](ProfileIterator& iterator, ProfileMedia media) {
        while (const auto profile = withList(place.path(media), [&] { return CrvProfile::getNextProfile(iterator); }))
            visit(*profile, media);
    });
}

void eachProfileName(const ListPlace& place, const std::function<void(const std::string&, ProfileMedia)>& visit) {
    eachList(place, [&](ProfileIterator& iterator, ProfileMedia media) {
        std::string name;
        while (withList(place.path(media), [&] { return CrvProfile::getNextProfileName(iterator, name); }))
            visit(name, media);
    });
}

std::vector<std::string> listFlaws(const ListPlace& place) {
    demandList(place);
    std::vector<std::string> texts;
    for (const ProfileMedia media : listsOf(place)) {
        for (const ListFlaw& flaw :
             withList(place.path(media), [&] { return CrvProfile::getListFlaws(media, place.file); }))
            texts.push_back(flaw.text);
    }
    return texts;
}

FoundProfile findProfile(const ListPlace& place, const std::string& name) {
    if (name.empty()) throw OpError(OpFault::NoProfileNamed);
    demandList(place);
    FoundProfile found;
    found.profile =
        withList(place.path(place.home()), [&] { return loadCrvProfile(place.kind, name, place.file, &found.media); });
    if (!found.profile) {
        demandSound(place, found.media, name);
        throw OpError(OpFault::ProfileMissing, name);
    }
    return found;
}

void setFields(CrvProfile& profile, const FieldValues& values) {
    for (const auto& [name, value] : values) {
        const auto* field = std::ranges::find(kFields, name, &ProfileField::name);
        if (field == std::end(kFields)) throw OpError(OpFault::BadValue, name);
        const std::string text = field->attribute == CRVPROFILE_ATTR_DB_TYPE ? dbKindOf(value) : value;
        int result = kAttrBadArgument;
        try {
            result = profile.setAttr(field->attribute, text);
        } catch (const CrvApiException&) {  // a kind of database that there is not
        }
        if (result != kAttrOk) throw OpError(OpFault::BadValue, "--" + name + " " + value);
    }
}

std::unique_ptr<CrvProfile> createProfile(const ListPlace& place, long type, const std::string& name,
                                          const FieldValues& values, const OpMode& mode) {
    const std::string list = place.path(place.home());
    CrvProfileCreationGuard guard;
    if (!mode.dryRun) makeFolder(folderOf(list), guard);
    auto profile = underLock(place, place.home(), mode, [&] {
        demandFree(place, place.home(), name);
        auto fresh = CrvProfile::create(type);
        if (!fresh) throw OpError(OpFault::BadValue, std::to_string(type));
        fresh->setAttr(CRVPROFILE_ATTR_NAME, name);
        setFields(*fresh, values);
        fillIn(*fresh, place);
        store(*fresh, place, mode);
        return fresh;
    });
    guard.setCreationCompleted();
    return profile;
}

std::unique_ptr<CrvProfile> copyProfile(const ListPlace& place, const std::string& name, const std::string& newName,
                                        const FieldValues& values, const OpMode& mode) {
    return underLock(place, place.home(), mode, [&] {
        auto copy = findProfile(place, name).profile;
        demandFree(place, place.home(), newName);
        copy->setAttr(CRVPROFILE_ATTR_NAME, newName);
        setFields(*copy, values);
        store(*copy, place, mode);
        return copy;
    });
}

void renameProfile(const ListPlace& place, const std::string& name, const std::string& newName, const OpMode& mode) {
    const ProfileMedia media = findProfile(place, name).media;
    const std::string path = place.path(media);
    underLock(place, media, mode, [&] {
        UniversalConfMgr list(media);
        list.loadFromFile(path);
        if (!list.doesPathExist(prefixOf(name))) throw OpError(OpFault::ProfileMissing, name);
        demandFree(place, media, newName);
        UniversalConfMgr renamed = list;
        renamed.remove(prefixOf(name));
        UniversalConfMgr::Iterator at;
        for (const UCMNodeType type : {UCMNodeType::Long, UCMNodeType::String, UCMNodeType::Binary}) {
            for (list.getIterator(at, prefixOf(name), type); at; ++at)
                renamed.setNode((prefixOf(newName) + at.getDescr()).c_str(), at.getData());
        }
        if (!mode.dryRun) renamed.seveToFile(path);
    });
}

void removeProfile(const ListPlace& place, const std::string& name, const OpMode& mode) {
    const ProfileMedia media = findProfile(place, name).media;
    underLock(place, media, mode, [&] {
        if (!CrvProfile::getProfileByName(media, place.file, name)) throw OpError(OpFault::ProfileMissing, name);
        if (!mode.dryRun) CrvProfile::removeProfile(media, place.file, name);
    });
}

void changeListed(const ListPlace& place, const std::string& name, const OpMode& mode,
                  const std::function<void(CrvProfile&)>& change) {
    const ProfileMedia media = findProfile(place, name).media;
    underLock(place, media, mode, [&] {
        const auto profile = CrvProfile::getProfileByName(media, place.file, name);
        if (!profile) throw OpError(OpFault::ProfileMissing, name);
        change(*profile);
        if (!mode.dryRun) profile->saveProfile(media, place.file);
    });
}

std::vector<ProfileFinding> checkProfile(const CrvProfile& profile) {
    std::vector<ProfileFinding> findings;
    const auto pathOf = [&](long attribute) {
        std::string path;
        return profile.getAttr(attribute, path) == kAttrOk ? expandHome(path) : std::string();
    };
    const auto demand = [&](const std::string& path, int access, ProfileFlaw flaw) {
        if (fileOps().access(path, access) != 0) findings.push_back({flaw, path});
    };
    if (profile.kind() == ProfileKind::Pkcs12) {
        const std::string file = pathOf(CRVPROFILE_ATTR_PKCS12_FILE);
        demand(file, F_OK, ProfileFlaw::KeyFileMissing);
        if (findings.empty()) demand(file, R_OK, ProfileFlaw::KeyFileUnreadable);
    }
    if (profile.dbConfig().type() == kDbKindFile) {
        const std::string folder = expandHome(profile.dbConfig().db);
        demand(folder, X_OK, ProfileFlaw::FolderMissing);
        demand(folder + "/version.txt", F_OK, ProfileFlaw::DatabaseMissing);
    }
    if (const std::string roots = pathOf(CRVPROFILE_ATTR_ROOTS_FILE); !roots.empty())
        demand(roots, F_OK, ProfileFlaw::RootsFileMissing);
    return findings;
}

}  // namespace crv
