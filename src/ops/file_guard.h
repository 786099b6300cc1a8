// Which files no export may go over: the files that profiles live in, and key stores.
#pragma once

#include <string>
#include <vector>

namespace crv {

class CrvProfile;

/// What stands where a file is to be written.
enum class FileClaim {
    None,
    Profile,  ///< a profile's security file, trust-point store, lock or database, or a profile list
    Keys      ///< a PKCS#12 file of nobody's: it may hold the only copy of a key
};

struct FileVerdict {
    FileClaim claim = FileClaim::None;
    std::string owner;    ///< of FileClaim::Profile: the profile's name; empty for a list
    bool exists = false;  ///< a regular file would be replaced
};

/// Knows the files of every profile in the lists that the process and its environment name: the user's and the common
/// one of both programs, CRV_PROFILE_FILE, and those handed over. A list that cannot be read claims itself only.
class FileGuard {
  public:
    explicit FileGuard(const std::vector<std::string>& furtherLists = {});

    /// Adds a profile that need not be in any list any more.
    void add(const CrvProfile& profile);

    /// Looks at a name, "~/" expanded. Links are followed; a name that is not there yet counts by its folder.
    [[nodiscard]] FileVerdict judge(const std::string& path) const;

  private:
    struct Claimed {
        std::string path;
        std::string owner;
        bool folder;  ///< with everything in it
    };

    void addList(const std::string& path);
    void addPath(const std::string& path, const std::string& owner, bool folder = false);

    std::vector<Claimed> claimed_;
};

}  // namespace crv
