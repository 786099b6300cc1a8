#include "crvconfd/screens/select_profile.h"

#include <algorithm>

#include "crvconfd/engines/screen.h"
#include "crvconfd/screens/profile_actions.h"
#include "crvconfd/session/messages.h"
#include "crvconfd/session/profile_names.h"
#include "crvconfd/session/program_info.h"
#include "crvconfd/toolkit/toolkit.h"
#include "misc/ascii.h"
#include "misc/utf8.h"

namespace crv {

namespace {

constexpr size_t kLongestShown = 72;
constexpr size_t kNarrowest = 40;
constexpr int kProfilesRow = 3;
constexpr int kProfileRows = 17;
constexpr int kActionsRow = 21;

/// What the screen and its callback know.
struct Selection {
    AvailableProfiles kind;
    const char* file;
    const ProfileDetails& details;
    std::vector<std::string> names{};
    int userCount = 0;
    const ProfileAction* chosen = nullptr;  // by its key, at the index
    int chosenAt = 0;

    [[nodiscard]] ProfileMedia mediaOf(int index) const {
        switch (kind) {
            case AvailableProfiles::Common:
                return ProfileMedia::Common;
            case AvailableProfiles::File:
                return ProfileMedia::File;
            case AvailableProfiles::User:
                return ProfileMedia::User;
            case AvailableProfiles::All:
                break;
        }
        return index < userCount ? ProfileMedia::User : ProfileMedia::Common;
    }

    /// The lists that an action works on: that of the profile, or where new ones go.
    [[nodiscard]] ListPlace placeOf(const ProfileAction& action, int index) const {
        if (kind != AvailableProfiles::All || !action.needsProfile) return {kind, file ? file : ""};
        return {index < userCount ? AvailableProfiles::User : AvailableProfiles::Common, {}};
    }

    /// Null also when the list has changed so that it cannot be read any more; `why` then says so.
    [[nodiscard]] std::unique_ptr<CrvProfile> load(int index, std::string& why) const {
        const ProfileMedia media = mediaOf(index);
        why.clear();
        try {
            return CrvProfile::getProfileByName(media, media == ProfileMedia::File ? file : "",
                                                names[static_cast<size_t>(index)]);
        } catch (const std::exception& failure) {
            why = failureText(failure);
            return nullptr;
        }
    }

    [[nodiscard]] std::vector<std::string> items() const {
        if (kind != AvailableProfiles::All) return names;
        size_t width = 0;
        for (const std::string& name : names) width = std::max(width, name.size());
        width = std::max(kNarrowest, std::min(kLongestShown, width));
        std::vector<std::string> result;
        for (size_t i = 0; i < names.size(); ++i) {
            std::string item = names[i];
            if (item.size() > kLongestShown) item = std::string(cutText(item, kLongestShown - 3)) + "...";
            // Filled up by columns as far as the list's limit in bytes leaves room for the mark.
            const size_t wanted = width - std::min(width, columnsOf(item));
            item.append(std::min(wanted, kLongestShown - item.size()), ' ');
            result.push_back(item + (static_cast<int>(i) < userCount ? " (U)" : " (W)"));
        }
        return result;
    }

    [[nodiscard]] int indexOf(const std::string& name, std::optional<ProfileMedia> source) const {
        int found = -1;
        for (int i = 0; i < static_cast<int>(names.size()); ++i) {
            if (!equalIgnoreCase(names[static_cast<size_t>(i)], name)) continue;
            if (found < 0 || mediaOf(i) == source) found = i;
        }
        return std::max(found, 0);
    }
};

void drawFixedLines() {
    displayProgramInfo(0);
    displCentText(2, "Wybierz profil:");
    std::string actions;
    for (const ProfileAction& action : profileActions())
        actions += (actions.empty() ? "" : ", ") + std::string(action.label);
    displText(kActionsRow, 0, "%s", actions.c_str());
    displText(22, 0, "Wybór: klawisze nawigacyjne, spacja, +, -; Enter: zatwierdź");
    displText(23, 0, "Esc,W: koniec, I: szczegóły profilu");
}

ShowMenuListCallbackRet selectProfileCallback(int key, int index, Selection& state) {
    for (const ProfileAction& action : profileActions()) {
        if (!isLetter(key, action.key) || index < 0) continue;
        state.chosen = &action;
        state.chosenAt = index;
        return ShowMenuListCallbackRet::LeaveCancel;
    }
    switch (key) {
        case 'W':
        case 'w':
            return ShowMenuListCallbackRet::LeaveCancel;
        case 'I':
        case 'i':
            break;
        default:
            return ShowMenuListCallbackRet::Continue;
    }
    std::string why;
    const auto profile = index < 0 ? nullptr : state.load(index, why);
    if (!profile || !state.details) return ShowMenuListCallbackRet::NextKey;
    state.details(*profile);
    clrScr();
    drawFixedLines();
    return ShowMenuListCallbackRet::Redraw;
}

/// Does what was chosen; the cursor stays where it was unless something was done.
void runChosen(const Selection& state, std::string& name, std::optional<ProfileMedia>& source) {
    const std::string current = state.names[static_cast<size_t>(state.chosenAt)];
    const ListPlace place = state.placeOf(*state.chosen, state.chosenAt);
    const auto next = runProfileAction(*state.chosen, place, current);
    name = next.value_or(current);
    source = next ? place.home() : state.mediaOf(state.chosenAt);
}

/// False when the list stays empty.
bool offerFirstProfile(const Selection& state) {
    errInfo(kMessageRow, "Brak zdefiniowanych profili.");
    const ProfileAction& create = profileActions().front();
    return runProfileAction(create, state.placeOf(create, -1), {}).has_value();
}

}  // namespace

std::unique_ptr<CrvProfile> selectProfile(AvailableProfiles kind, const std::string& lastName, const char* file,
                                          std::optional<ProfileMedia>& source, const ProfileDetails& details) {
    std::string name = lastName;
    for (;;) {
        clrScr();
        displayProgramInfo(0);
        Selection state{kind, file, details};
        readProfileList(state.names, kind, state.userCount, file);
        if (state.names.empty()) {
            if (!offerFirstProfile(state)) return nullptr;
            continue;
        }
        drawFixedLines();
        const int index =
            showCentMenuList(kProfilesRow, state.items(), state.indexOf(name, source), kProfileRows, true,
                             [&state](int key, int current) { return selectProfileCallback(key, current, state); });
        if (state.chosen) {
            runChosen(state, name, source);
            continue;
        }
        if (index < 0) return nullptr;
        source = state.mediaOf(index);
        std::string why;
        if (auto profile = state.load(index, why)) return profile;
        name = state.names[static_cast<size_t>(index)];
        errInfo(kMessageRow, "Błąd ładowania profilu: %s", name.c_str());
        if (!why.empty()) errInfo(kMessageRow, "%s", why.c_str());
    }
}

}  // namespace crv
