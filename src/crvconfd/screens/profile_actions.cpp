#include "crvconfd/screens/profile_actions.h"

#include <algorithm>

#include "crvconfd/engines/entry.h"
#include "crvconfd/session/messages.h"
#include "crvconfd/toolkit/toolkit.h"
#include "misc/utf8.h"
#include "ops/op_error.h"

namespace crv {

namespace {

/// Octets of the longest name that lists show.
constexpr size_t kLongestProfile = 256;
constexpr OpMode kMode{.dryRun = false, .waitSeconds = 5};

constexpr CodeText kFaultTexts[] = {
    {static_cast<int>(OpFault::ProfileExists), "Profil o tej nazwie już istnieje"},
    {static_cast<int>(OpFault::ProfileMissing), "Profilu nie ma już na liście"},
    {static_cast<int>(OpFault::BadValue), "Niepoprawna nazwa profilu"},
    {static_cast<int>(OpFault::FolderFailed), "Nie można utworzyć katalogu profilu"},
    {static_cast<int>(OpFault::ListFailed), "Błąd zapisu listy profili"},
    {static_cast<int>(OpFault::LockBusy), "Lista profili jest zajęta przez inny program"},
    {static_cast<int>(OpFault::LockFailed), "Błąd blokady pliku"},
};

std::optional<std::string> askForProfileName(const std::string& start) {
    clrToEol(kMessageRow, 0);
    return askLine("Nazwa profilu: ", kLongestProfile, false, start);
}

std::optional<std::string> makeNew(const ListPlace& place, const std::string&) {
    auto name = askForProfileName({});
    if (name) createProfile(place, static_cast<long>(ProfileKind::Pkcs12), *name, {}, kMode);
    return name;
}

std::optional<std::string> copy(const ListPlace& place, const std::string& name) {
    auto newName = askForProfileName(name);
    if (newName) copyProfile(place, name, *newName, {}, kMode);
    return newName;
}

std::optional<std::string> rename(const ListPlace& place, const std::string& name) {
    auto newName = askForProfileName(name);
    if (newName) renameProfile(place, name, *newName, kMode);
    return newName;
}

std::optional<std::string> takeOut(const ListPlace& place, const std::string& name) {
    removeProfile(place, name, kMode);
    return name;
}

constexpr ProfileAction kActions[] = {
    {'N', "N: nowy profil", "Czy chcesz utworzyć profil (t/n) ?", false, makeNew},
    {'K', "K: kopia", "Czy skopiować profil %s? Pliki będą wspólne (t/n) ?", true, copy},
    {'Z', "Z: zmiana nazwy", "Czy zmienić nazwę profilu %s (t/n) ?", true, rename},
    {'U', "U: usunięcie z listy", "Czy usunąć profil %s z listy? Pliki zostaną (t/n) ?", true, takeOut},
};

bool isConfirmed(const ProfileAction& action, const std::string& name) {
    constexpr size_t kShown = 30;
    std::string text = action.question;
    const size_t mark = text.find("%s");
    if (mark != std::string::npos) text.replace(mark, 2, cutText(name, kShown));
    clrToEol(kMessageRow, 0);
    return displCentQuestion(kMessageRow, text.c_str()) == 1;
}

}  // namespace

std::span<const ProfileAction> profileActions() {
    return kActions;
}

std::optional<std::string> runProfileAction(const ProfileAction& action, const ListPlace& place,
                                            const std::string& name) {
    if (!isConfirmed(action, name)) return {};
    try {
        return action.run(place, name);
    } catch (const OpError& error) {
        const char* text = findText(kFaultTexts, static_cast<int>(error.fault()));
        warnInfo(kMessageRow, "%s", text ? text : error.what());
    }
    return {};
}

}  // namespace crv
