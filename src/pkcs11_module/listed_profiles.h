// The profiles that become tokens: those of the lists whose keys stand in a security file.
#pragma once

#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "pkcs11_module/file_stamp.h"
#include "profiles/profile_media.h"

namespace crv::p11 {

struct ListedProfile {
    std::string name;       ///< upper-cased, as lists have it
    std::string keyFile;    ///< absolute path of the security file
    std::string rootsFile;  ///< path of its additional trust points that open without a password; else empty
    std::string dbLock;     ///< path of the lock of its database; empty without a database that is shown

    bool operator==(const ListedProfile&) const = default;
};

/// The lists are those of CRV_PROFILE_FILE, else the user's and the common one, of which the first to have a name keeps
/// it, whatever kind of profile it is there. CRV_PROFILE leaves one profile. A program with more rights than its user
/// (secure_getenv(3)) is shown the common list only, and of it what has an absolute path: it must not read what its
/// user chose. CRV_PKCS11_DATABASE=1 shows the certificates of databases, too.
class ListedProfiles {
  public:
    ListedProfiles();

    /// Whether a list is another one than at the last reading.
    [[nodiscard]] bool changed() const;
    /// Reads the lists in order. One that cannot be read keeps the profiles that it had and is told to the log: neither
    /// a slip in it nor a moment without files may stop the programs that load modules.
    [[nodiscard]] std::vector<ListedProfile> read();

  private:
    struct List {
        ProfileMedia media;
        std::string path;
        std::filesystem::path folder;  ///< what relative paths are relative to: where the process stood when it began
        std::optional<FileStamp> stamp = {};  ///< none: to be read
        std::vector<ListedProfile> profiles = {};
        std::set<std::string> names = {};  ///< of its records of any kind
        std::string told = {};             ///< the last fault
    };
    void readAgain(List& list) const;
    /// Its profiles; all its names go to `names`.
    [[nodiscard]] std::vector<ListedProfile> profilesOf(const List& list, std::set<std::string>& names) const;

    std::vector<List> lists_;
    std::string only_;  // upper-cased; empty: all
    bool databases_;
};

}  // namespace crv::p11
