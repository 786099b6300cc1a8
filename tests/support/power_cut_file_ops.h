// A folder on a disk that forgets what was not synced.
#pragma once

#include <map>
#include <memory>
#include <random>

#include "support/faulty_file_ops.h"

namespace crv::test {

/// Watches the files of one folder. After changesLeft changes and syncs nothing more happens; cut() then leaves of each
/// file its last synced octets or all of them, and of the folder its last synced names or all of them, as it falls.
class PowerCutFileOps : public FaultyFileOps {
  public:
    explicit PowerCutFileOps(std::string folder) : folder_(std::move(folder)) {}

    void cut(std::mt19937_64& random);

    int open(const std::string& path, int flags, mode_t mode = 0) override;
    int fsync(int fd) override;

  private:
    /// The last synced octets of a file; an inode number may be used again, this is not.
    using Synced = std::shared_ptr<std::string>;
    [[nodiscard]] std::map<std::string, Synced> names();

    std::string folder_;
    std::map<ino_t, Synced> files_;
    std::map<std::string, Synced> syncedNames_;
};

}  // namespace crv::test
