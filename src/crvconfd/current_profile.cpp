#include "crvconfd/current_profile.h"

#include <exception>

#include "crvconfd/context.h"
#include "crvconfd/messages.h"
#include "crvconfd/toolkit.h"
#include "src/configuration_manager.h"

namespace crv {

bool saveCurrentProfile() {
    try {
        cfgManager->profile()->saveProfileWithRollbackIfError(currentProfileSource.media, currentProfileSource.file);
        return true;
    } catch (const std::exception& e) {
        errInfo(kMessageRow, "Błąd zapisu profilu: %s", failureText(e).c_str());
        return false;
    }
}

}  // namespace crv
