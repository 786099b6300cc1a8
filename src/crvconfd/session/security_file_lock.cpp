#include "crvconfd/session/security_file_lock.h"

#include "config/configuration_manager.h"
#include "crvconfd/session/context.h"
#include "crvconfd/toolkit/toolkit.h"

namespace crv {

namespace {

bool hasNoFile() {
    const KeyMedium medium = cfgManager->keyMedium();
    return medium == KeyMedium::Token || medium == KeyMedium::Provider || medium == KeyMedium::Memory ||
           cfgManager->securityFileLockName().empty();
}

}  // namespace

SecurityFileLock::SecurityFileLock() : semaphore_(cfgManager->securityFileLockName(), hasNoFile()) {}

bool SecurityFileLock::take() {
    if (semaphore_.pCond(kExclusiveLock) == 1) return true;
    clrToEol(kMessageRow, 0);
    displText(kMessageRow, 0, "Plik bezpieczeństwa jest używany przez inny program, proszę czekać...");
    refreshScr();
    const bool taken = semaphore_.p(kExclusiveLock) == 1;
    clrToEol(kMessageRow, 0);
    if (taken) return true;
    errInfo(kMessageRow, "Błąd blokady pliku bezpieczeństwa !!!");
    return false;
}

void SecurityFileLock::release() {
    if (semaphore_.held() && semaphore_.v() == 0) errInfo(kMessageRow, "Błąd blokady pliku bezpieczeństwa !!!");
}

}  // namespace crv
