#include "crvconfd/session.h"

#include "crvconfd/context.h"
#include "crvconfd/program_info.h"
#include "crvconfd/select_profile.h"
#include "crvconfd/toolkit.h"
#include "src/configuration_manager.h"

namespace crv {

namespace {

/// One session of the current profile.
void runSession() {
    setTitle(sessionTitle().c_str());
    clrScr();
    displayProgramInfo(0);
}

}  // namespace

void runSessions(const CommandLine& line, std::unique_ptr<CrvProfile> named) {
    if (named) {
        cfgManager->setProfile(std::move(named));
        runSession();
        return;
    }
    std::string lastName;
    std::optional<ProfileMedia> source;
    for (;;) {
        cfgManager->setProfile(nullptr);
        auto profile = selectProfile(line.kind, lastName, line.listFile ? line.listFile->c_str() : nullptr, source, {});
        if (!profile) return;
        lastName = profile->name();
        cfgManager->setProfile(std::move(profile));
        runSession();
    }
}

}  // namespace crv
