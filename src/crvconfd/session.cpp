#include "crvconfd/session.h"

#include "api/crvctx.h"
#include "crvconfd/context.h"
#include "crvconfd/profile_details.h"
#include "crvconfd/program_info.h"
#include "crvconfd/select_profile.h"
#include "crvconfd/toolkit.h"

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
        crvCtx->setProfile(std::move(named));
        runSession();
        return;
    }
    std::string lastName;
    std::optional<ProfileMedia> source;
    for (;;) {
        crvCtx->setProfile(nullptr);
        auto profile = selectProfile(line.kind, lastName, line.listFile ? line.listFile->c_str() : nullptr, source,
                                     [](const CrvProfile& shown) { OnProfileDetails(&shown); });
        if (!profile) return;
        lastName = profile->name();
        crvCtx->setProfile(std::move(profile));
        runSession();
    }
}

}  // namespace crv
