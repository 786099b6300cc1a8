#include "crvconfd/session/current_profile.h"

#include <exception>

#include "config/configuration_manager.h"
#include "crvconfd/session/context.h"
#include "crvconfd/session/messages.h"
#include "crvconfd/toolkit/toolkit.h"
#include "ops/op_error.h"

namespace crv {

bool changeCurrentProfile(const std::function<void(CrvProfile&)>& change) {
    bool saving = false;
    try {
        const ProfileChange result = changeProfile(*cfgManager->profile(), currentProfileSource, change);
        if (result) return true;
        saving = result.saving;
        std::rethrow_exception(result.failure);
    } catch (const OpStopped&) {
        (void)waitForKeyOrTimeout(0);  // which ends the session
    } catch (const std::exception& failure) {
        warnInfo(kMessageRow, "%s%s", saving ? "Błąd zapisu profilu: " : "", failureText(failure).c_str());
    }
    return false;
}

}  // namespace crv
