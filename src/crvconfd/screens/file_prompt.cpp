#include "crvconfd/screens/file_prompt.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <vector>

#include "config/configuration_manager.h"
#include "crvconfd/session/context.h"
#include "crvconfd/session/current_profile.h"
#include "crvconfd/toolkit/toolkit.h"
#include "misc/atomic_write.h"
#include "misc/file_ops.h"
#include "misc/path.h"

namespace crv {

namespace {

std::optional<FileId> idOf(const std::string& path) {
    struct stat info {};
    if (path.empty() || fileOps().stat(expandHome(path), &info) != 0) return std::nullopt;
    return FileId::of(info);
}

bool sameFile(const std::string& a, const std::string& b) {
    const auto id = idOf(a);
    return id && id == idOf(b);
}

/// A name that may not exist yet: the same folder and the same last part.
bool samePlace(const std::string& a, const std::string& b) {
    const auto last = [](const std::string& path) { return path.substr(path.rfind('/') + 1); };
    return last(a) == last(b) && sameFile(folderOf(a), folderOf(b));
}

std::vector<std::string> profileFiles() {
    std::vector<std::string> files{cfgManager->securityFileName(), cfgManager->securityFileLockName(),
                                   currentProfileSource.file};
    for (const ProfileMedia media : {ProfileMedia::User, ProfileMedia::Common}) {
        files.push_back(CrvProfile::getDefaultCfgFileName(media));
        files.emplace_back(CrvProfile::getSignerCfgFileName(media));
    }
    std::string roots;
    if (cfgManager->profile()->getAttr(CRVPROFILE_ATTR_ROOTS_FILE, roots) == kAttrOk) files.push_back(roots);
    return files;
}

}  // namespace

std::optional<TypedFile> askForFile(const char* prompt, bool word, size_t longest) {
    std::array<char, kLongestFileName + 1> name{};
    const int size = static_cast<int>(std::min(name.size(), longest + 1));
    const int length = word ? inputWord(kMessageRow, 0, prompt, name.data(), size)
                            : inputText(kMessageRow, 0, prompt, name.data(), size);
    if (length < 0) return std::nullopt;
    return TypedFile{name.data(), expandHome(name.data())};
}

bool isProfileFile(const std::string& path) {
    for (const std::string& file : profileFiles())
        if (!file.empty() && (sameFile(path, file) || samePlace(path, expandHome(file)))) return true;
    const std::string folder = cfgManager->profile()->dbConfig().db;
    return !folder.empty() && sameFile(folderOf(path), folder);
}

}  // namespace crv
