#include "crvconfd/session/session.h"

#include <cerrno>
#include <set>

#include "context/crvctx.h"
#include "crvconfd/screens/key_gen.h"
#include "crvconfd/screens/key_store_view.h"
#include "crvconfd/screens/menus.h"
#include "crvconfd/screens/net_screens.h"
#include "crvconfd/screens/open_profile.h"
#include "crvconfd/screens/profile_details.h"
#include "crvconfd/screens/select_profile.h"
#include "crvconfd/session/context.h"
#include "crvconfd/session/current_profile.h"
#include "crvconfd/session/ends_record.h"
#include "crvconfd/session/messages.h"
#include "crvconfd/session/profile_names.h"
#include "crvconfd/session/program_info.h"
#include "crvconfd/toolkit/toolkit.h"
#include "misc/exceptions.h"
#include "misc/file_ops.h"
#include "ops/file_place.h"

namespace crv {

namespace {

constexpr struct {
    FilePlace place;
    const char* text;
} kPlaceTexts[] = {
    {FilePlace::NoFolder, "Nie ma katalogu: %s"},
    {FilePlace::NotPermitted, "Brak praw dostępu: %s"},
    {FilePlace::IsFolder, "Katalog w miejscu pliku: %s"},
    {FilePlace::Unreachable, "Plik jest nieosiągalny: %s"},
};

/// Whether the security file and its lock can be where the profile has them; says why not.
bool isPlaceGood() {
    for (const PlaceLook& look :
         {lookAtPlace(cfgManager->securityFileName()), lookAtPlace(cfgManager->securityFileLockName())}) {
        for (const auto& [place, text] : kPlaceTexts) {
            if (place != look.place) continue;
            warnInfo(kMessageRow, text, look.where.c_str());
            return false;
        }
    }
    return true;
}

/// Only then there is nothing to lose: a file that cannot be looked at may be there.
bool isMissing(const std::string& path) {
    struct stat info {};
    return fileOps().stat(path, &info) != 0 && errno == ENOENT;
}

/// Opens the keys of the current profile as its type demands.
bool openKeys() {
    switch (cfgManager->profileType()) {
        case SessionProfileType::File:
            if (!isPlaceGood()) return false;
            return isMissing(cfgManager->securityFileName()) ? createPfx() : OnProfileZaloguj();
        case SessionProfileType::Device:
            clrToEol(kMessageRow, 0);
            displText(kMessageRow, 0, "Inicjowanie pracy z kartą...");
            refreshScr();
            return deviceInit() && OnProfileZaloguj();
        default:
            errInfo(kMessageRow, "Nieznany typ profilu");
            return false;
    }
}

/// One session. The next profile, or the end of the context, logs it out and wipes its passwords.
void runSession(std::unique_ptr<CrvProfile> profile, ProfileSource source) {
    currentProfileSource = std::move(source);
    crvCtx->setProfile(std::move(profile));
    setTitle(sessionTitle().c_str());
    clrScr();
    displayProgramInfo(0);
    if (!createDB() || !openKeys()) return;
    rememberEnds();
    const CrlKeeper keeper;
    try {
        OnMainMenu();
        offerUnsavedKey();
        rememberEnds();
    } catch (const SessionOver&) {
        // The file under it is another one now.
    }
}

/// The selection; which lists it reads is told at the end when one cannot be read.
std::unique_ptr<CrvProfile> choose(AvailableProfiles kind, const std::string& lastName, const char* file,
                                   std::optional<ProfileMedia>& source, std::set<std::string>& told) try {
    const auto details = [](const CrvProfile& shown) { OnProfileDetails(&shown); };
    return selectProfile(kind, lastName, file, source, details, told);
} catch (const StoreError&) {
    sayAtEnd(searchedLists(kind, file));
    throw;
}

}  // namespace

void runSessions(const CommandLine& line, NamedProfile named) {
    const std::string file = line.listFile.value_or("");
    if (named.profile) return runSession(std::move(named.profile), {named.media, file});
    std::string lastName;
    std::optional<ProfileMedia> source;
    std::set<std::string> told;
    for (;;) {
        crvCtx->setProfile(nullptr);
        auto profile = choose(line.kind, lastName, file.c_str(), source, told);
        if (!profile) return;
        lastName = profile->name();
        runSession(std::move(profile), {source.value(), file});
    }
}

}  // namespace crv
