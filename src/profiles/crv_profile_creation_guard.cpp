#include "profiles/crv_profile_creation_guard.h"

#include "misc/file_ops.h"
#include "misc/path.h"

namespace crv {

void CrvProfileCreationGuard::cleanProfile() {
    for (const std::string& file : files_) fileOps().unlink(expandHome(file));
    if (!directory_.empty()) fileOps().rmdir(expandHome(directory_));
    forget();
}

void CrvProfileCreationGuard::forget() {
    directory_.clear();
    files_.clear();
    registry_.clear();
}

}  // namespace crv
