// What was made while a profile is being set up, taken away again unless the setting-up is finished.
#pragma once

#include <string>
#include <vector>

namespace crv {

class CrvProfileCreationGuard {
  public:
    CrvProfileCreationGuard() = default;
    ~CrvProfileCreationGuard() { cleanProfile(); }
    CrvProfileCreationGuard(const CrvProfileCreationGuard&) = delete;
    CrvProfileCreationGuard& operator=(const CrvProfileCreationGuard&) = delete;

    /// The database directory; removed when it is empty by then.
    void setDBCreated(const std::string& directory) { directory_ = directory; }
    /// A file of the database.
    void addDBFileCreated(const std::string& file) { files_.push_back(file); }
    void setPkcs12FileCreated(const std::string& file) { files_.push_back(file); }
    void setRootsFileCreated(const std::string& file) { files_.push_back(file); }
    /// A registry value; there is no registry on this platform, so it is recorded and nothing stands behind it.
    void setRootsRegCreated(const std::string& path) { registry_ = path; }

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
