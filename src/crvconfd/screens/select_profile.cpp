#include "crvconfd/screens/select_profile.h"

#include <algorithm>

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

/// What the screen and its callback know.
struct Selection {
    AvailableProfiles kind;
    const char* file;
    const ProfileDetails& details;
    std::vector<std::string> names{};
    int userCount = 0;

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

    /// Null also when the list has changed so that it cannot be read any more.
    [[nodiscard]] std::unique_ptr<CrvProfile> load(int index) const {
        const ProfileMedia media = mediaOf(index);
        try {
            return CrvProfile::getProfileByName(media, media == ProfileMedia::File ? file : "",
                                                names[static_cast<size_t>(index)]);
        } catch (const std::exception&) {
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
    displText(22, 0, "Wybór: klawisze nawigacyjne, spacja, +, -; Enter: zatwierdź");
    displText(23, 0, "Esc,W: koniec, I: szczegóły profilu");
}

ShowMenuListCallbackRet selectProfileCallback(int key, int index, const Selection& state) {
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
    const auto profile = index < 0 ? nullptr : state.load(index);
    if (!profile || !state.details) return ShowMenuListCallbackRet::NextKey;
    state.details(*profile);
    clrScr();
    drawFixedLines();
    return ShowMenuListCallbackRet::Redraw;
}

}  // namespace

std::unique_ptr<CrvProfile> selectProfile(AvailableProfiles kind, const std::string& lastName, const char* file,
                                          std::optional<ProfileMedia>& source, const ProfileDetails& details) {
    clrScr();
    displayProgramInfo(0);
    Selection state{kind, file, details};
    readProfileList(state.names, kind, state.userCount, file);
    if (state.names.empty()) {
        errInfo(kMessageRow, "Brak zdefiniowanych profili.");
        return nullptr;
    }
    drawFixedLines();
    const int index =
        showCentMenuList(kProfilesRow, state.items(), state.indexOf(lastName, source), kProfileRows, true,
                         [&state](int key, int current) { return selectProfileCallback(key, current, state); });
    if (index < 0) return nullptr;
    source = state.mediaOf(index);
    auto profile = state.load(index);
    if (!profile) errInfo(kMessageRow, "Błąd ładowania profilu: %s", state.names[static_cast<size_t>(index)].c_str());
    return profile;
}

}  // namespace crv
