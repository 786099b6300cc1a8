#include "crvconfd/engines/screen.h"

#include <algorithm>

#include "crvconfd/engines/list_search.h"
#include "crvconfd/engines/text_view.h"
#include "misc/ascii.h"

namespace crv {

namespace {

constexpr char kLeave = 'w';

int listRows() {
    return kFooterRow - kFirstRow - 1;
}

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

size_t shownWidth(const std::string& labels) {
    return columnsOf(labels) - static_cast<size_t>(std::ranges::count(labels, '~'));
}

/// The labels side by side; on a narrow terminal closer together, and those that do not fit are in the help alone.
std::string labelRow(const std::vector<const char*>& labels, const char* gap) {
    const auto room = static_cast<size_t>(shownColumns());
    std::string text;
    for (const char* label : labels) text.append(label).append(gap);
    text += kGoBack;
    if (shownWidth(text) <= room) return text;
    const std::string end = std::string("F1  ") + kGoBack;
    text.clear();
    for (const char* label : labels) {
        if (shownWidth(text + label + "  " + end) > room) break;
        text.append(label).append("  ");
    }
    return text + end;
}

void showLabels(const ScreenOps& ops, bool withItems) {
    std::vector<const char*> labels;
    for (const ScreenAction& action : ops.actions)
        if (action.label && isOffered(action, withItems)) labels.push_back(action.label);
    if (ops.drawLabels) return ops.drawLabels(labels);
    displCentColText(kFooterRow, "%s", labelRow(labels, ops.gap).c_str());
}

bool hasItems(const ScreenOps& ops) {
    return ops.hasItems && ops.hasItems();
}

std::string keyName(int key) {
    if (key == kKeyEnter) return "Enter";
    return key < 128 ? std::string(1, static_cast<char>(upper(key))) : std::string();
}

/// The keys of the screen with what they do, in the order of its actions.
KeyRows keysOf(const ScreenOps& ops, bool withItems) {
    KeyRows rows;
    bool scrolls = ops.items && withItems;
    for (const ScreenAction& action : ops.actions) {
        scrolls = scrolls || action.key == kKeyPageDown;
        if (!action.label || !isOffered(action, withItems)) continue;
        std::string label = action.label;
        std::erase(label, '~');
        rows.emplace_back(keyName(action.key), std::move(label));
    }
    if (scrolls) rows.emplace_back("strzałki, PgUp, PgDn, Home, End", "przewijanie i wybór");
    if (ops.items && withItems) {
        rows.emplace_back("/", "tylko wiersze z podanym tekstem");
        rows.emplace_back("inne litery, cyfry", "następny wiersz na tę literę");
    }
    rows.emplace_back(ops.escapeLeaves ? "W, Esc" : "W", "powrót");
    rows.emplace_back("F1, ?", "ta pomoc");
    return rows;
}

int awaitKey(const ScreenOps& ops) {
    const IdleWork idle(ops.idle);
    return getScreenKey();
}

/// What the user wants of a screen as it is drawn.
struct Chosen {
    const ScreenAction* action = nullptr;
    bool again = false;  ///< draw it anew
};

/// An action chosen by its key; none to go back.
Chosen chooseByKey(const ScreenOps& ops) {
    for (;;) {
        const int key = awaitKey(ops);
        if (key == kKeyResized) return {.again = true};
        if (const ScreenAction* action = actionOfKey(ops, key, hasItems(ops))) return {action};
        if (isHelp(key)) {
            showKeys(keysOf(ops, hasItems(ops)));
            return {.again = true};
        }
        if (isLetter(key, kLeave) || (key == kKeyEscape && ops.escapeLeaves)) return {};
    }
}

/// The same with a list, in which the cursor moves.
class ListChoice {
  public:
    ListChoice(ScreenOps& ops, ListSearch& search, const std::vector<std::string>& items)
        : ops_(ops), search_(search), indices_(search.shown(items)), all_(items.size()) {
        for (const size_t index : indices_) shown_.push_back(items[index]);
    }

    Chosen run() {
        search_.draw(shown_.size(), all_);
        const auto at = std::ranges::lower_bound(indices_, ops_.selected);
        int selected = static_cast<int>(std::min<ptrdiff_t>(at - indices_.begin(), std::ssize(indices_) - 1));
        const int rows = std::min<int>(listRows(), static_cast<int>(shown_.size()));
        for (;;) {
            jumpTo_.reset();
            const int index = showMenuList(kFirstRow, 0, shown_, selected, rows, false,
                                           [this](int key, int current) { return onKey(key, current); });
            if (jumpTo_) {
                selected = static_cast<int>(*jumpTo_);
                continue;
            }
            if (index < 0) return choice_;
            select(index);
            return {actionOfEnter(ops_)};
        }
    }

  private:
    void select(int index) { ops_.selected = indices_[static_cast<size_t>(std::max(index, 0))]; }

    ShowMenuListCallbackRet onKey(int key, int index) {
        select(index);
        if (isLetter(key, kLeave)) return ShowMenuListCallbackRet::LeaveCancel;
        choice_.action = actionOfKey(ops_, key, true);
        if (choice_.action) return ShowMenuListCallbackRet::LeaveCancel;
        if (isHelp(key)) showKeys(keysOf(ops_, true));
        if (key == ListSearch::kKey) search_.ask();
        // The terminal may have another size behind the help.
        choice_.again = isHelp(key) || key == ListSearch::kKey || key == kListKeyResized;
        jumpTo_ = ListSearch::jump(shown_, static_cast<size_t>(std::max(index, 0)), key);
        return choice_.again || jumpTo_ ? ShowMenuListCallbackRet::LeaveCancel : ShowMenuListCallbackRet::Continue;
    }

    ScreenOps& ops_;
    ListSearch& search_;
    std::vector<size_t> indices_;  // of the items shown
    std::vector<std::string> shown_;
    size_t all_;
    std::optional<size_t> jumpTo_;
    Chosen choice_;
};

Chosen choose(ScreenOps& ops, ListSearch& search) {
    const auto items = ops.items ? ops.items() : std::vector<std::string>();
    ops.selected = std::min(ops.selected, items.empty() ? 0 : items.size() - 1);
    clrScr(ops.items ? kFewestRows : ops.leastRows);
    ops.draw();
    showLabels(ops, !items.empty() || hasItems(ops));
    if (!items.empty()) return ListChoice(ops, search, items).run();
    if (ops.items) displText(kFirstRow, 1, "%s", ops.empty);
    if (ops.rowInUse) moveCursor(ops.rowInUse(), 0);
    return chooseByKey(ops);
}

}  // namespace

bool isHelp(int key) {
    return key == '?' || key == kKeyHelp || key == kListKeyHelp;
}

void showKeys(const KeyRows& rows) {
    constexpr size_t kWidestKeys = 33, kNarrowestMeaning = 24;
    const ScreenKeeper keeper;
    size_t top = 0;
    for (;;) {
        clrScr(kFewestRows);
        const auto room = static_cast<size_t>(shownColumns()) - 2,
                   width = std::min(kWidestKeys, room - kNarrowestMeaning);
        std::vector<std::string> lines;
        for (const auto& [name, meaning] : rows) addColumns(lines, " " + name, width, meaning, room);
        displHeader(0, "%s", "Klawisze");
        drawLines(lines, top);
        const int key = getScreenKey();
        if (key != kKeyResized && !scrollLines(key, lines.size(), top)) return;
    }
}

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
    clrScr(ops.leastRows);
    ops.draw();
    drawLabels(ops);
}

void runScreen(ScreenOps& ops) {
    ListSearch search;
    for (;;) {
        const Chosen chosen = choose(ops, search);
        if (chosen.action) {
            chosen.action->run(ops.selected);
            if (ops.done && ops.done()) return;
        } else if (chosen.again) {
            continue;
        } else if (!ops.mayLeave || ops.mayLeave()) {
            return;
        }
    }
}

}  // namespace crv
