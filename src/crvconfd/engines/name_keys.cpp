#include "crvconfd/engines/name_keys.h"

#include <algorithm>
#include <filesystem>

#include "crvconfd/engines/pick_list.h"
#include "crvconfd/toolkit/toolkit.h"
#include "misc/path.h"
#include "misc/utf8.h"

namespace crv {

namespace {

constexpr int kTab = 9;
constexpr size_t kMostRemembered = 50;

/// Oldest first.
std::vector<std::string> remembered;

bool canBeTyped(std::string_view name, bool word) {
    while (!name.empty()) {
        const auto character = takeCharacter(name);
        if (!character || isHarmful(*character) || (word && *character == ' ')) return false;
    }
    return true;
}

/// What all begin with; whole characters.
std::string commonStart(const std::vector<std::string>& names) {
    std::string_view common = names.front();
    for (const std::string& name : names) {
        const auto differ = std::ranges::mismatch(common, name).in1;
        common = cutText(common, static_cast<size_t>(differ - common.begin()));
    }
    return std::string(common);
}

}  // namespace

void NameKeys::remember(const std::string& name) {
    if (name.empty()) return;
    std::erase(remembered, name);
    remembered.push_back(name);
    if (remembered.size() > kMostRemembered) remembered.erase(remembered.begin());
}

bool NameKeys::take(int key, LineEditor& line) {
    if (key == kTab) {
        complete(line);
        return true;
    }
    twice_ = false;
    if (key != kKeyUp && key != kKeyDown) return false;
    recall(line, key == kKeyUp);
    return true;
}

void NameKeys::recall(LineEditor& line, bool older) {
    if (older ? back_ == remembered.size() : back_ == 0) return beepSignal();
    if (back_ == 0) unfinished_ = line.text();
    back_ = older ? back_ + 1 : back_ - 1;
    line.replace(back_ == 0 ? unfinished_ : remembered[remembered.size() - back_]);
}

/// Names in a folder that begin so, folders with a slash behind them; hidden ones only when a dot was typed.
std::vector<std::string> NameKeys::candidates(std::string_view folder, std::string_view begun) const {
    std::vector<std::string> names;
    std::error_code error;
    const std::string path = folder.empty() ? "." : expandHome(std::string(folder));
    for (std::filesystem::directory_iterator entry(path, error), end; !error && entry != end; entry.increment(error)) {
        std::string name = entry->path().filename().string();
        if (!name.starts_with(begun) || (name.front() == '.' && begun.empty()) || !canBeTyped(name, word_)) continue;
        std::error_code unknown;
        if (entry->is_directory(unknown)) name += '/';
        names.push_back(std::move(name));
    }
    std::ranges::sort(names);
    return names;
}

void NameKeys::complete(LineEditor& line) {
    const std::string_view typed = std::string_view{line.text()}.substr(0, line.cursor());
    const size_t slash = typed.rfind('/');
    const std::string_view folder = slash == std::string_view::npos ? "" : typed.substr(0, slash + 1);
    const std::string begun(typed.substr(folder.size()));
    const std::vector<std::string> names = candidates(folder, begun);
    if (names.empty()) return beepSignal();
    std::string more = commonStart(names).substr(begun.size());
    if (more.empty() && twice_ && names.size() > 1) {
        const int chosen = pickFromList({kFirstRow}, names);
        if (chosen >= 0) more = names[static_cast<size_t>(chosen)].substr(begun.size());
    } else if (more.empty()) {
        beepSignal();
    }
    twice_ = more.empty();
    if (!line.insert(more)) beepSignal();
}

}  // namespace crv
