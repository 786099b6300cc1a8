#include "profiles/crv_profile_creation_guard.h"

#include "misc/file_ops.h"

namespace crv {

void CrvProfileCreationGuard::cleanProfile() {
    for (const std::string& file : files_) fileOps().unlink(file);
    if (!directory_.empty()) fileOps().rmdir(directory_);
    forget();
}

void CrvProfileCreationGuard::forget() {
    directory_.clear();
    files_.clear();
    registry_.clear();
}

}  // namespace crv
