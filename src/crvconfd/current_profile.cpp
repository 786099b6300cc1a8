#include "crvconfd/current_profile.h"

#include <exception>

#include "crvconfd/context.h"
#include "crvconfd/messages.h"
#include "crvconfd/toolkit.h"
#include "src/configuration_manager.h"

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
