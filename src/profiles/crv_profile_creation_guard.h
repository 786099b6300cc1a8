// What was made while a profile is being set up, taken away again unless the setting-up is finished.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace crv {

/// Paths come as the system knows them, without "~/": taking away must not need memory.
class CrvProfileCreationGuard {
  public:
    CrvProfileCreationGuard() = default;
    ~CrvProfileCreationGuard() { cleanProfile(); }
    CrvProfileCreationGuard(const CrvProfileCreationGuard&) = delete;
    CrvProfileCreationGuard& operator=(const CrvProfileCreationGuard&) = delete;

    /// The database directory; removed when it is empty by then.
    void setDBCreated(std::string directory) { directory_ = std::move(directory); }
    /// A file of the database.
    void addDBFileCreated(std::string file) { files_.push_back(std::move(file)); }
    void setPkcs12FileCreated(std::string file) { files_.push_back(std::move(file)); }
    void setRootsFileCreated(std::string file) { files_.push_back(std::move(file)); }
    /// A registry value; there is no registry on this platform, so it is recorded and nothing stands behind it.
    void setRootsRegCreated(std::string path) { registry_ = std::move(path); }

    /// The profile is complete: nothing will be taken away.
    void setCreationCompleted() { forget(); }
    /// Removes everything recorded (what cannot be removed stays) and forgets it.
    void cleanProfile();

  private:
    void forget();

    std::string directory_;
    std::vector<std::string> files_;
    std::string registry_;
};

}  // namespace crv
