#include "crvconfd/session/current_profile.h"

#include <exception>

#include "config/configuration_manager.h"
#include "crvconfd/session/context.h"
#include "crvconfd/session/messages.h"
#include "crvconfd/toolkit/toolkit.h"

namespace crv {

bool changeCurrentProfile(const std::function<void(CrvProfile&)>& change) {
    const char* step = "";
    try {
        cfgManager->profile()->changeAndSave(currentProfileSource.media, currentProfileSource.file,
                                             [&](CrvProfile& target) {
                                                 change(target);
                                                 step = "Błąd zapisu profilu: ";
                                             });
        return true;
    } catch (const std::exception& e) {
        errInfo(kMessageRow, "%s%s", step, failureText(e).c_str());
        return false;
    }
}

}  // namespace crv
