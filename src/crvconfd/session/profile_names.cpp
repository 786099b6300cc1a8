#include "crvconfd/session/profile_names.h"

#include <array>
#include <cerrno>

#include "crvconfd/session/messages.h"
#include "crvconfd/toolkit/encoding.h"
#include "misc/c_string.h"
#include "misc/exceptions.h"
#include "misc/file_ops.h"
#include "misc/path.h"
#include "ops/profiles.h"
#include "profiles/crv_profile.h"

namespace crv {

namespace {

constexpr size_t kLongestName = 256;

struct KindTexts {
    const char* heading;
    const char* none;
};

// In the order of AvailableProfiles.
constexpr std::array<KindTexts, 4> kKindTexts{{
    {"Lista profili:", "Brak profili"},
    {"Lista profili użytkownika:", "Brak profili użytkownika"},
    {"Lista profili wspólnych:", "Brak profili wspólnych"},
    {"Lista profili:", "Brak profili"},
}};

// In the order of ProfileMedia.
constexpr std::array kKinds{AvailableProfiles::User, AvailableProfiles::Common, AvailableProfiles::File};

void readNames(std::vector<std::string>& list, ProfileMedia media, const std::string& file) {
    const auto iterator = CrvProfile::getProfileIterator(media, file);
    for (std::string name; CrvProfile::getNextProfileName(*iterator, name);) {
        if (name.size() <= kLongestName) list.push_back(name);
    }
}

}  // namespace

void readProfileList(std::vector<std::string>& list, AvailableProfiles kind, int& userCount, const char* file) {
    list.clear();
    userCount = 0;
    if (kind == AvailableProfiles::File) {
        const char* profilesFile = file;
        VTEST_AT(profilesFile, "src/crvconfd/main", 453);
        readNames(list, ProfileMedia::File, profilesFile);
        return;
    }
    if (kind != AvailableProfiles::Common) {
        readNames(list, ProfileMedia::User, {});
        userCount = static_cast<int>(list.size());
    }
    if (kind != AvailableProfiles::User) readNames(list, ProfileMedia::Common, {});
}

std::string searchedLists(AvailableProfiles kind, const char* file) {
    std::string text;
    for (const ProfileMedia media : {ProfileMedia::User, ProfileMedia::Common, ProfileMedia::File}) {
        const bool all = kind == AvailableProfiles::All && media != ProfileMedia::File;
        if (!all && kind != kKinds[static_cast<size_t>(media)]) continue;
        const std::string path = expandHome(CrvProfile::getCfgFileName(media, media == ProfileMedia::File ? file : ""));
        struct stat info {};
        const bool there = fileOps().stat(path, &info) == 0;
        text += (text.empty() ? "" : "\n") + ("Szukano w: " + path + (there ? "" : " (" + systemReason(errno) + ")"));
    }
    return text;
}

std::vector<std::string> flawsOfLists(AvailableProfiles kind, const char* file) {
    std::vector<std::string> texts;
    for (const std::string& flaw : listFlaws({kind, orEmpty(file)})) texts.push_back(reasonFirst(flaw));
    return texts;
}

std::string profileListText(AvailableProfiles kind, const char* file) {
    std::vector<std::string> names;
    int userCount = 0;
    readProfileList(names, kind, userCount, file);
    const KindTexts& texts = kKindTexts[static_cast<size_t>(kind)];
    if (names.empty()) return pl(texts.none) + "\n";
    std::string text = std::string(texts.heading) + "\n";
    for (size_t i = 0; i < names.size(); ++i) {
        const std::string number = std::to_string(i + 1);
        text += (number.size() < 2 ? " " : "") + number + ". " + printable(names[i]);
        if (kind == AvailableProfiles::All)
            text += i < static_cast<size_t>(userCount) ? " <użytkownika>" : " <wspólny>";
        text += "\n";
    }
    return pl(text);
}

}  // namespace crv
