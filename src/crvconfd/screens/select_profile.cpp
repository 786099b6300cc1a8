#include "crvconfd/screens/select_profile.h"

#include <algorithm>
#include <ctime>
#include <set>

#include "crvconfd/engines/list_search.h"
#include "crvconfd/engines/screen.h"
#include "crvconfd/screens/profile_actions.h"
#include "crvconfd/session/ends_record.h"
#include "crvconfd/session/messages.h"
#include "crvconfd/session/profile_names.h"
#include "crvconfd/session/program_info.h"
#include "crvconfd/toolkit/encoding.h"
#include "crvconfd/toolkit/toolkit.h"
#include "misc/ascii.h"
#include "misc/path.h"
#include "misc/utf8.h"

namespace crv {

namespace {

constexpr size_t kLongestShown = 72;
constexpr size_t kNarrowest = 40;
constexpr int kProfilesRow = 3;
/// With one profile.
constexpr int kSelectionRows = 9;
constexpr int kProfileRows = 17;  // of the least screen
constexpr BottomRow kActionsRow{21};
constexpr const char* kNoProfiles = "Brak zdefiniowanych profili.";

/// What the screen and its callback know.
struct Selection {
    AvailableProfiles kind;
    const char* file;
    const ProfileDetails& details;
    ListSearch& search;
    std::vector<std::string> names{};
    int userCount = 0;
    const ProfileAction* chosen = nullptr;  // by its key, at the index
    int chosenAt = 0;
    std::vector<size_t> shown{};                            // of the names, those that the list shows
    std::set<std::pair<std::string, ProfileMedia>> soon{};  // with a mark
    std::optional<size_t> jumpTo{};                         // in the list
    bool again = false;                                     // draw the screen anew

    /// The number of a name by its place in the list; -1 for none.
    [[nodiscard]] int indexAt(int place) const {
        return place < 0 ? -1 : static_cast<int>(shown[static_cast<size_t>(place)]);
    }

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

    /// Marks the names of the lists whose security files are in the record of ends.
    void findMarks() {
        const EndsRecord ends = readEnds();
        const int64_t limit = std::time(nullptr) + kSoonEnds;
        if (std::ranges::none_of(ends, [&](const auto& one) { return one.second < limit; })) return;
        UniversalConfMgr store;
        std::optional<ProfileMedia> loaded;
        for (int i = 0; i < static_cast<int>(names.size()); ++i) {
            const ProfileMedia media = mediaOf(i);
            if (loaded != media) {
                if (!store.loadIfExists(CrvProfile::getCfgFileName(media, file ? file : ""))) continue;
                loaded = media;
            }
            const std::string& name = names[static_cast<size_t>(i)];
            const auto path = store.findValue<std::string>("\\" + name + "\\PKCS12FILE");
            const auto found = path ? ends.find(endsName(expandHome(*path))) : ends.end();
            if (found != ends.end() && found->second < limit) soon.insert({name, media});
        }
    }

    [[nodiscard]] bool isMarked(size_t index) const {
        return soon.contains({names[index], mediaOf(static_cast<int>(index))});
    }

    [[nodiscard]] std::vector<std::string> items() const {
        if (kind != AvailableProfiles::All) {
            std::vector<std::string> result = names;
            for (size_t i = 0; i < result.size(); ++i)
                if (isMarked(i)) result[i] += " *";
            return result;
        }
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
            result.push_back(item + (isMarked(i) ? "*" : " ") + (static_cast<int>(i) < userCount ? "(U)" : "(W)"));
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
    displText(kFooterRow, 0, "Wybór: klawisze nawigacyjne, spacja, +, -; Enter: zatwierdź");
    displText(kMessageRow, 0, "Esc,W: koniec, I: szczegóły profilu");
}

KeyRows selectionKeys() {
    KeyRows rows{
        {"strzałki, spacja, +, -, PgUp, PgDn", "wybór"}, {"Enter", "otwarcie profilu"}, {"I", "szczegóły profilu"}};
    for (const ProfileAction& action : profileActions())
        rows.emplace_back(std::string(1, action.key), std::string_view(action.label).substr(3));
    rows.insert(rows.end(), {{"/", "tylko profile z podanym tekstem w nazwie"},
                             {"inne litery, cyfry", "następny profil na tę literę"},
                             {"*", "coś w profilu wygasa w ciągu 30 dni (jak przy ostatnim otwarciu)"},
                             {"(U), (W)", "profil użytkownika, profil wspólny"},
                             {"W, Esc", "koniec"},
                             {"F1, ?", "ta pomoc"}});
    return rows;
}

ShowMenuListCallbackRet leave(bool wanted) {
    return wanted ? ShowMenuListCallbackRet::LeaveCancel : ShowMenuListCallbackRet::Continue;
}

/// What the keys beside those of the program do: help, filter, jumps, another size of the terminal.
ShowMenuListCallbackRet findByKey(int key, int place, Selection& state) {
    if (isHelp(key)) showKeys(selectionKeys());
    state.again = key == ListSearch::kKey || isScreenStale();
    state.chosenAt = state.indexAt(place);
    if (key == ListSearch::kKey) state.search.ask();
    std::vector<std::string> listed;
    for (const size_t index : state.shown) listed.push_back(state.names[index]);
    state.jumpTo = ListSearch::jump(listed, static_cast<size_t>(std::max(place, 0)), key);
    return leave(state.again || state.jumpTo);
}

ShowMenuListCallbackRet selectProfileCallback(int key, int place, Selection& state) {
    const int index = state.indexAt(place);
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
            return findByKey(key, place, state);
    }
    std::string why;
    const auto profile = index < 0 ? nullptr : state.load(index, why);
    if (!profile || !state.details) return ShowMenuListCallbackRet::NextKey;
    const std::pair size{screenRows(), shownColumns()};
    state.details(*profile);
    clrScr(kSelectionRows);
    drawFixedLines();
    state.chosenAt = index;
    state.again = size != std::pair{screenRows(), shownColumns()};
    return state.again ? ShowMenuListCallbackRet::LeaveCancel : ShowMenuListCallbackRet::Redraw;
}

/// Does what was chosen; the cursor stays where it was unless something was done.
void runChosen(const Selection& state, std::string& name, std::optional<ProfileMedia>& source) {
    const std::string current = state.names[static_cast<size_t>(state.chosenAt)];
    const ListPlace place = state.placeOf(*state.chosen, state.chosenAt);
    const auto next = runProfileAction(*state.chosen, place, current);
    name = next.value_or(current);
    source = next ? place.home() : state.mediaOf(state.chosenAt);
}

/// Each once.
void tellFlaws(const Selection& state, std::set<std::string>& told) {
    for (const std::string& flaw : flawsOfLists(state.kind, state.file)) {
        if (!told.insert(flaw).second) continue;
        note(flaw);
        warnInfo(kMessageRow, "%s", printable(flaw).c_str());
    }
}

/// False when the list stays empty.
bool offerFirstProfile(const Selection& state) {
    errInfo(kMessageRow, kNoProfiles);
    const ProfileAction& create = profileActions().front();
    return runProfileAction(create, state.placeOf(create, -1), {}).has_value();
}

/// Shows the list; the number of the name chosen, -1 for none.
int runList(Selection& state, const std::string& name, std::optional<ProfileMedia> source) {
    state.shown = state.search.shown(state.names);
    const std::vector<std::string> all = state.items();
    std::vector<std::string> items;
    for (const size_t index : state.shown) items.push_back(all[index]);
    drawFixedLines();
    state.search.draw(items.size(), all.size());
    const auto wanted = static_cast<size_t>(state.indexOf(name, source));
    auto place = static_cast<int>(std::ranges::lower_bound(state.shown, wanted) - state.shown.begin());
    for (;;) {
        state.jumpTo.reset();
        place = std::min(place, static_cast<int>(items.size()) - 1);
        const int chosen =
            showCentMenuList(kProfilesRow, items, place, std::max(kProfileRows + screenRows() - kScreenRows, 1), true,
                             [&state](int key, int current) { return selectProfileCallback(key, current, state); });
        if (!state.jumpTo) return state.indexAt(chosen);
        place = static_cast<int>(*state.jumpTo);
    }
}

}  // namespace

std::unique_ptr<CrvProfile> selectProfile(AvailableProfiles kind, const std::string& lastName, const char* file,
                                          std::optional<ProfileMedia>& source, const ProfileDetails& details,
                                          std::set<std::string>& told) {
    std::string name = lastName;
    ListSearch search;
    for (;;) {
        clrScr(kSelectionRows);
        displayProgramInfo(0);
        Selection state{kind, file, details, search};
        readProfileList(state.names, kind, state.userCount, file);
        tellFlaws(state, told);
        if (state.names.empty()) {
            if (!offerFirstProfile(state)) {
                std::string text = std::string(kNoProfiles) + "\n";
                for (const std::string& flaw : flawsOfLists(kind, file)) text += flaw + "\n";
                sayAtEnd(text + searchedLists(kind, file));
                return nullptr;
            }
            continue;
        }
        state.findMarks();
        const int index = runList(state, name, source);
        if (state.chosen) {
            runChosen(state, name, source);
            continue;
        }
        if (state.again && state.chosenAt >= 0) {
            name = state.names[static_cast<size_t>(state.chosenAt)];
            source = state.mediaOf(state.chosenAt);
        }
        if (state.again) continue;
        if (index < 0) return nullptr;
        source = state.mediaOf(index);
        std::string why;
        if (auto profile = state.load(index, why)) return profile;
        name = state.names[static_cast<size_t>(index)];
        errInfo(kMessageRow, "Błąd ładowania profilu: %s", name.c_str());
        if (!why.empty()) warnInfo(kMessageRow, "%s", why.c_str());
    }
}

}  // namespace crv
