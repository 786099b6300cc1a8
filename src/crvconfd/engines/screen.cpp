#include "crvconfd/engines/screen.h"

#include <algorithm>

#include "crvconfd/toolkit/toolkit.h"
#include "misc/ascii.h"

namespace crv {

namespace {

constexpr int kListRows = kFooterRow - kFirstRow - 1;
constexpr char kLeave = 'w';

int upper(int key) {
    return key > 0 && key < 128 ? asciiUpper(static_cast<char>(key)) : key;
}

bool isOffered(const ScreenAction& action, bool withItems) {
    return (withItems || !action.needsItem) && (!action.offered || action.offered());
}

const ScreenAction* actionOfKey(const ScreenOps& ops, int key, bool withItems) {
    const auto found = std::find_if(ops.actions.begin(), ops.actions.end(), [&](const ScreenAction& action) {
        return action.key != 0 && upper(action.key) == upper(key) && isOffered(action, withItems);
    });
    return found == ops.actions.end() ? nullptr : &*found;
}

const ScreenAction* actionOfEnter(const ScreenOps& ops) {
    const auto found =
        std::find_if(ops.actions.begin(), ops.actions.end(), [](const auto& action) { return action.needsItem; });
    return found == ops.actions.end() ? nullptr : &*found;
}

void showLabels(const ScreenOps& ops, bool withItems) {
    std::vector<const char*> labels;
    for (const ScreenAction& action : ops.actions)
        if (action.label && isOffered(action, withItems)) labels.push_back(action.label);
    if (ops.drawLabels) return ops.drawLabels(labels);
    std::string text;
    for (const char* label : labels) text.append(label).append(ops.gap);
    displCentColText(kFooterRow, "%s", (text + kGoBack).c_str());
}

bool hasItems(const ScreenOps& ops) {
    return ops.hasItems && ops.hasItems();
}

bool isHelp(int key) {
    return key == '?' || key == kKeyHelp || key == kListKeyHelp;
}

std::string keyName(int key) {
    if (key == kKeyEnter) return "Enter";
    return key < 128 ? std::string(1, static_cast<char>(upper(key))) : std::string();
}

/// The keys of the screen with what they do, in the order of its actions.
std::vector<std::pair<std::string, std::string>> keysOf(const ScreenOps& ops, bool withItems) {
    std::vector<std::pair<std::string, std::string>> rows;
    bool scrolls = ops.items && withItems;
    for (const ScreenAction& action : ops.actions) {
        scrolls = scrolls || action.key == kKeyPageDown;
        if (!action.label || !isOffered(action, withItems)) continue;
        std::string label = action.label;
        std::erase(label, '~');
        rows.emplace_back(keyName(action.key), std::move(label));
    }
    if (scrolls) rows.emplace_back("strzałki, PgUp, PgDn, Home, End", "przewijanie i wybór");
    rows.emplace_back(ops.escapeLeaves ? "W, Esc" : "W", "powrót");
    rows.emplace_back("F1, ?", "ta pomoc");
    return rows;
}

void showKeys(const ScreenOps& ops, bool withItems) {
    constexpr int kKeyColumn = 2, kMeaningColumn = 34;
    const ScreenKeeper keeper;
    clrScr();
    displHeader(0, "%s", "Klawisze");
    int row = kFirstRow;
    for (const auto& [name, meaning] : keysOf(ops, withItems)) {
        displText(row, kKeyColumn, "%s", name.c_str());
        displText(row++, kMeaningColumn, "%s", meaning.c_str());
    }
    static_cast<void>(getKey());
}

int awaitKey(const ScreenOps& ops) {
    const IdleWork idle(ops.idle);
    return getScrollKey();
}

/// An action chosen by its key; null to go back.
const ScreenAction* chooseByKey(const ScreenOps& ops) {
    for (;;) {
        const int key = awaitKey(ops);
        if (const ScreenAction* action = actionOfKey(ops, key, hasItems(ops))) return action;
        if (isHelp(key)) showKeys(ops, hasItems(ops));
        if (isLetter(key, kLeave) || (key == kKeyEscape && ops.escapeLeaves)) return nullptr;
    }
}

/// The same with a list, in which the cursor moves.
const ScreenAction* chooseInList(ScreenOps& ops, const std::vector<std::string>& items) {
    const ScreenAction* chosen = nullptr;
    const auto onKey = [&](int key, int index) {
        ops.selected = static_cast<size_t>(std::max(index, 0));
        if (isLetter(key, kLeave)) return ShowMenuListCallbackRet::LeaveCancel;
        chosen = actionOfKey(ops, key, true);
        if (!chosen && isHelp(key)) {
            showKeys(ops, true);
            return ShowMenuListCallbackRet::NextKey;
        }
        return chosen ? ShowMenuListCallbackRet::LeaveCancel : ShowMenuListCallbackRet::Continue;
    };
    const int index = showMenuList(kFirstRow, 0, items, static_cast<int>(ops.selected),
                                   std::min<int>(kListRows, static_cast<int>(items.size())), false, onKey);
    if (index < 0) return chosen;
    ops.selected = static_cast<size_t>(index);
    return actionOfEnter(ops);
}

const ScreenAction* choose(ScreenOps& ops) {
    const auto items = ops.items ? ops.items() : std::vector<std::string>();
    ops.selected = std::min(ops.selected, items.empty() ? 0 : items.size() - 1);
    clrScr();
    ops.draw();
    showLabels(ops, !items.empty() || hasItems(ops));
    if (!items.empty()) return chooseInList(ops, items);
    if (ops.items) displText(kFirstRow, 1, "%s", ops.empty);
    return chooseByKey(ops);
}

}  // namespace

bool isLetter(int key, char letter) {
    return upper(key) == upper(letter);
}

std::function<void()> drawTitle(std::string title) {
    return [title = std::move(title)] { displHeader(0, "%s", title.c_str()); };
}

void drawLabels(const ScreenOps& ops) {
    showLabels(ops, hasItems(ops));
}

void drawScreen(const ScreenOps& ops) {
    clrScr();
    ops.draw();
    drawLabels(ops);
}

void runScreen(ScreenOps& ops) {
    for (;;) {
        const ScreenAction* action = choose(ops);
        if (action) {
            action->run(ops.selected);
            if (ops.done && ops.done()) return;
        } else if (!ops.mayLeave || ops.mayLeave()) {
            return;
        }
    }
}

}  // namespace crv
