#include "crvconfd/engines/list_screen.h"

#include <algorithm>
#include <cctype>

#include "crvconfd/toolkit/toolkit.h"

namespace crv {

namespace {

constexpr int kFirstRow = 2;
constexpr int kFooterRow = 22;
constexpr int kListRows = kFooterRow - kFirstRow - 1;
constexpr int kLeave = 'w';

int lower(int key) {
    return key > 0 && key < 128 ? std::tolower(key) : key;
}

const ListAction* actionOfKey(const ListScreen& screen, int key, bool withItems) {
    const auto found = std::find_if(screen.actions.begin(), screen.actions.end(), [&](const ListAction& action) {
        return action.key != 0 && action.key == lower(key) && (withItems || !action.needsItem);
    });
    return found == screen.actions.end() ? nullptr : &*found;
}

const ListAction* actionOfEnter(const ListScreen& screen) {
    const auto found =
        std::find_if(screen.actions.begin(), screen.actions.end(), [](const auto& action) { return action.needsItem; });
    return found == screen.actions.end() ? nullptr : &*found;
}

/// What the user chose: an action, or null to go back.
const ListAction* choose(const ListScreen& screen, const std::vector<std::string>& items, int& selected) {
    if (items.empty()) {
        displText(kFirstRow, 1, "%s", screen.empty);
        for (;;) {
            const int key = getKey();
            if (lower(key) == kLeave || key == kKeyEscape) return nullptr;
            if (const ListAction* action = actionOfKey(screen, key, false)) return action;
        }
    }
    const ListAction* chosen = nullptr;
    const auto onKey = [&](int key, int index) {
        selected = std::max(index, 0);
        if (lower(key) == kLeave) return ShowMenuListCallbackRet::LeaveCancel;
        chosen = actionOfKey(screen, key, true);
        return chosen ? ShowMenuListCallbackRet::LeaveCancel : ShowMenuListCallbackRet::Continue;
    };
    const int index = showMenuList(kFirstRow, 0, items, selected,
                                   std::min<int>(kListRows, static_cast<int>(items.size())), false, onKey);
    if (index < 0) return chosen;
    selected = index;
    return actionOfEnter(screen);
}

}  // namespace

std::string footerText(const std::vector<ListAction>& actions, bool withItems) {
    std::string text;
    for (const ListAction& action : actions)
        if (action.label && (withItems || !action.needsItem)) text.append(action.label).append("   ");
    return text + "Po~wrót";
}

void runListScreen(const ListScreen& screen) {
    int selected = 0;
    for (;;) {
        const auto items = screen.items();
        selected = std::clamp(selected, 0, std::max(0, static_cast<int>(items.size()) - 1));
        clrScr();
        displHeader(0, "%s", screen.title().c_str());
        displCentColText(kFooterRow, "%s", footerText(screen.actions, !items.empty()).c_str());
        const ListAction* action = choose(screen, items, selected);
        if (action) {
            action->run(static_cast<size_t>(selected));
            if (screen.done && screen.done()) return;
        } else if (!screen.mayLeave || screen.mayLeave()) {
            return;
        }
    }
}

}  // namespace crv
