#include "crvconfd/session/current_profile.h"

#include <exception>

#include "config/configuration_manager.h"
#include "crvconfd/session/context.h"
#include "crvconfd/session/messages.h"
#include "crvconfd/toolkit/toolkit.h"

namespace crv {

bool changeCurrentProfile(const std::function<void(CrvProfile&)>& change) {
    const ProfileChange result = changeProfile(*cfgManager->profile(), currentProfileSource, change);
    if (result) return true;
    try {
        std::rethrow_exception(result.failure);
    } catch (const std::exception& failure) {
        errInfo(kMessageRow, "%s%s", result.saving ? "Błąd zapisu profilu: " : "", failureText(failure).c_str());
    }
    return false;
}

}  // namespace crv
