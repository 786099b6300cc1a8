// Profiles in their lists: finding, making, changing and removing them. A change holds the list's lock file, the list
// with ".lck" behind its name, reads the list again and replaces it as a whole.
#pragma once

#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "ops/lock_wait.h"
#include "profiles/crv_profile.h"

namespace crv {

/// The lists to look in.
struct ListPlace {
    AvailableProfiles kind = AvailableProfiles::All;
    std::string file;  ///< for AvailableProfiles::File

    /// Where a new profile goes: the named list, else the user's unless the common one is asked for.
    [[nodiscard]] ProfileMedia home() const;
    /// Path of the list of a medium, "~/" expanded.
    [[nodiscard]] std::string path(ProfileMedia media) const;
};

/// The lock of a list for a scope. Throws as TimedLock.
class ListLock {
  public:
    ListLock(ProfileMedia media, const std::string& file, const OpMode& mode);

  private:
    TimedLock lock_;
};

struct FoundProfile {
    std::unique_ptr<CrvProfile> profile;
    ProfileMedia media = ProfileMedia::User;
};

/// An attribute that a profile is made and changed with.
struct ProfileField {
    const char* name;  ///< as "key-file"
    long attribute;
    bool isNumber;
    bool isPath;
};
std::span<const ProfileField> profileFields();

/// Values by the fields' names; an empty text takes a value away.
using FieldValues = std::vector<std::pair<std::string, std::string>>;

/// Shows every profile in the order of the lists. Throws OpError (ListFailed) as all below.
void eachProfile(const ListPlace& place, const std::function<void(const CrvProfile&, ProfileMedia)>& visit);

/// The same without reading the records, so that a damaged one hides no other.
void eachProfileName(const ListPlace& place, const std::function<void(const std::string&, ProfileMedia)>& visit);

/// What keeps records of the lists from being profiles at all, each with its list and line.
[[nodiscard]] std::vector<std::string> listFlaws(const ListPlace& place);

/// Throws OpError (ProfileMissing, NoProfileNamed).
FoundProfile findProfile(const ListPlace& place, const std::string& name);

/// Makes a profile, with the folders that its files need (mode 0700). A file profile without them gets a key file and a
/// database folder beside its list. Answers the record. A failure leaves no folder behind. Throws OpError
/// (ProfileExists, BadValue, FolderFailed).
std::unique_ptr<CrvProfile> createProfile(const ListPlace& place, long type, const std::string& name,
                                          const FieldValues& values, const OpMode& mode);

/// Copies the record; the copy goes where new profiles go. Files are shared unless the values name others.
std::unique_ptr<CrvProfile> copyProfile(const ListPlace& place, const std::string& name, const std::string& newName,
                                        const FieldValues& values, const OpMode& mode);

/// Gives the record another name in its list, with everything in it.
void renameProfile(const ListPlace& place, const std::string& name, const std::string& newName, const OpMode& mode);

/// Takes the record out of its list; its files stay.
void removeProfile(const ListPlace& place, const std::string& name, const OpMode& mode);

/// Changes the record as the list has it under the lock. Exceptions of the change pass through, those of the library as
/// OpError.
void changeListed(const ListPlace& place, const std::string& name, const OpMode& mode,
                  const std::function<void(CrvProfile&)>& change);

/// Sets fields; OpError (BadValue) names the one that does not fit.
void setFields(CrvProfile& profile, const FieldValues& values);

/// What is wrong with a profile.
enum class ProfileFlaw { KeyFileMissing, KeyFileUnreadable, FolderMissing, DatabaseMissing, RootsFileMissing };
struct ProfileFinding {
    ProfileFlaw flaw;
    std::string path;
};
[[nodiscard]] std::vector<ProfileFinding> checkProfile(const CrvProfile& profile);

}  // namespace crv
