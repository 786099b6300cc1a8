// A profile record: the named bundle of settings under which the library works for one user, and the operations on the
// lists that keep such records.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "asn/crv_object.h"
#include "corvane/crvprofile.h"
#include "db/db_config.h"
#include "profiles/accepted_usages.h"
#include "profiles/attr_set.h"
#include "profiles/profile_media.h"
#include "profiles/proxy_settings.h"
#include "profiles/server_list.h"
#include "profiles/universal_conf_mgr.h"

namespace crv {

/// Class of a profile record. The values of the first four are the list's "Type"; no "Type" stands for Csp.
enum class ProfileKind { Csp = 0, Pkcs12 = 1, Tarvo23 = 3, Pkcs11 = 5, Memory = 7 };

class ProfileIterator;

/// What is wrong with a record of a list.
struct ListFlaw {
    std::string name;  ///< of the record, upper-cased
    std::string text;  ///< with the list and the line
};

/// A record lives on its own: changes reach a list through saveProfile only. Each kind brings its table of attributes,
/// all state stands here, and a record assigns as a whole. Its servers, its proxy and the extended key usages that it
/// accepts are operated by the bases.
class CrvProfile : public CRVObject, public ServerList, public ProxySettings, public AcceptedUsages {
  public:
    /// A new record of a kind, or null for a number that is none of Type's.
    static std::unique_ptr<CrvProfile> create(long type);

    /// A copy of the record and its kind.
    [[nodiscard]] std::unique_ptr<CrvProfile> clone() const;

    [[nodiscard]] const std::string& name() const { return name_; }
    /// The list's "Type"; 0 for Csp.
    [[nodiscard]] long type() const { return static_cast<long>(kind_); }
    [[nodiscard]] ProfileKind kind() const { return kind_; }

    /// Attribute of a number of corvane/crvprofile.h: kAttrOk, kAttrBadArgument, kAttrTooShort, kAttrDefault,
    /// kAttrNoValue. A null buffer asks for the length only.
    int getAttr(long id, char* buf, long* len) const;
    int getAttr(long id, std::string& value) const;
    int getAttr(long id, long& value) const;
    int getAttr(long id, std::vector<char>& value) const;
    /// See AttrSet::set. The last form sets the number as decimal text. A kind of database that there is not throws
    /// CrvApiException (ECRV_API_INV_PAR) with the kinds that there are.
    int setAttr(long id, const char* value, long len);
    int setAttr(long id, const std::string& value);
    int setAttr(long id, long value);

    /// Name of the list of a medium: the one that was set, else the main package's. Empty for ProfileMedia::File.
    static std::string getDefaultCfgFileName(ProfileMedia media);
    /// Sets the list of a medium for the whole process, or with null the main package's again. 1 for User and Common,
    /// else 0.
    static int setDefaultCfgFileName(ProfileMedia media, const char* path);
    /// The signing program's list of a medium, null for File; meant for setDefaultCfgFileName.
    static const char* getSignerCfgFileName(ProfileMedia media);
    /// The caller's file for File, else the medium's list.
    static std::string getCfgFileName(ProfileMedia media, const std::string& file);

    /// A record by name, in any letter case of ASCII; it keeps the name asked for. Null: not in the list, or no
    /// profile. A default list that does not exist counts as empty. Throws StoreError when the list cannot be
    /// read.
    static std::unique_ptr<CrvProfile> getProfileByName(ProfileMedia media, const std::string& file,
                                                        const std::string& name);
    /// Iterates the records of a list in the order of their names; count, when given, receives their number. Errors as
    /// above.
    static std::unique_ptr<ProfileIterator> getProfileIterator(ProfileMedia media, const std::string& file,
                                                               long* count = nullptr);
    /// The next record, or null at the end and for a record that is no profile, behind which the iteration goes on. Its
    /// name is upper-cased. `met`, when given, receives the name, whatever stands under it; at the end it is empty.
    static std::unique_ptr<CrvProfile> getNextProfile(ProfileIterator& iterator, std::string* met = nullptr);
    /// The name of the next record without reading the rest of it; false at the end.
    static bool getNextProfileName(ProfileIterator& iterator, std::string& name);
    /// The record at an index from 0, or null.
    static std::unique_ptr<CrvProfile> getProfile(ProfileMedia media, const std::string& file, long index);
    /// Records that nobody can open because their "Type" is no number; one that declares nothing, or a number that is
    /// none of Type's, is no profile and not told. Errors as above.
    static std::vector<ListFlaw> getListFlaws(ProfileMedia media, const std::string& file);
    /// The record of a name in a loaded list, or null when it is no profile.
    static std::unique_ptr<CrvProfile> readProfile(const UniversalConfMgr& store, const std::string& name);

    /// Writes the record into a list, which is made when it does not exist and otherwise read, changed and replaced in
    /// one stretch. Throws CrvApiException: ECRV_NO_PROFILE_NAME without a name, ECRV_API_INV_PAR for what a list
    /// cannot hold; StoreError "Parametr: dbtype nie istnieje" without a kind of database, and as the list's
    /// reader and writer.
    void saveProfile(ProfileMedia media, const std::string& file) const;
    /// The same, but a failure gives the record the list's values again before it is thrown on.
    void saveProfileWithRollbackIfError(ProfileMedia media, const std::string& file);
    /// Changes the record as the list now has it (a copy of this one where it has none), saves it and takes over its
    /// servers, proxy and usages; after any exception this record is as it was.
    void changeAndSave(ProfileMedia media, const std::string& file, const std::function<void(CrvProfile&)>& change);
    /// Takes a record out of a list; a name that is not there changes nothing. Throws CrvApiException
    /// (ECRV_API_INV_PAR) for what cannot be a name, StoreError as above.
    static void removeProfile(ProfileMedia media, const std::string& file, const std::string& name);

    [[nodiscard]] const DbConfig& dbConfig() const { return db_; }
    /// Directory of the database of a new profile: the one set, else "db/" beside the list that the record came from
    /// (the user's list for a new record). Ends with a slash unless it was set otherwise.
    void getDefaultDbInstDir(std::string& directory) const;
    void setDefaultDbInstDir(const std::string& path) { dbInstDir_ = path; }

  protected:
    CrvProfile(ProfileKind kind, std::span<const AttrRow> rows);
    CrvProfile(const CrvProfile&) = default;
    CrvProfile& operator=(const CrvProfile&) = default;

  private:
    void loadProfile(const UniversalConfMgr& store, const std::string& name);
    void writeRecord(UniversalConfMgr& store) const;
    using Nodes = std::vector<std::pair<std::string, NodeDesc>>;
    /// What other versions and other programs put into the record below the prefix, by its paths; nothing of a record
    /// of another kind.
    [[nodiscard]] Nodes foreignNodes(const UniversalConfMgr& store, const std::string& prefix) const;
    /// The record of this name and kind in the list; null when it cannot be read.
    [[nodiscard]] std::unique_ptr<CrvProfile> savedRecord(ProfileMedia media, const std::string& file) const;
    /// The keys of the kind.
    void loadCfgDependingOnDevType(const UniversalConfMgr& store, const std::string& prefix) {
        own_.load(store, prefix);
    }
    void saveCfgDependingOnProfileType(UniversalConfMgr& store, const std::string& prefix) const {
        own_.save(store, prefix);
    }

    ProfileKind kind_;
    std::string name_;
    std::string listFile_;
    std::string dbInstDir_;
    DbConfig db_;
    AttrSet common_;
    AttrSet own_;
};

/// A loaded list and a place in it.
class ProfileIterator {
  public:
    ProfileIterator(UniversalConfMgr list, std::string file);
    ProfileIterator(const ProfileIterator&) = delete;
    ProfileIterator& operator=(const ProfileIterator&) = delete;

  private:
    friend class CrvProfile;
    UniversalConfMgr list_;
    std::string file_;
    UniversalConfMgr::Iterator at_;
};

/// The record of a name in the lists that a program offers; for All the user's list shadows the common one, also by a
/// record with a flaw (getListFlaws), which is not found. media, when given, receives where it was found (or looked for
/// last). Null: not found.
std::unique_ptr<CrvProfile> loadCrvProfile(AvailableProfiles which, const std::string& name, const std::string& file,
                                           ProfileMedia* media = nullptr);

}  // namespace crv
