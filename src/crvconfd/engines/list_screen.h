// The engine of screens that show a list and a row of actions on it: server lists, forms, browsers.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace crv {

/// One command of a list screen.
struct ListAction {
    char key;                               ///< lower-case letter; upper case works too. 0: Enter only
    const char* label;                      ///< text of the footer with "~" before the letter, or null for none
    bool needsItem;                         ///< offered only while the list has items, works on the one selected
    std::function<void(size_t index)> run;  ///< index of the item selected; 0 for actions without an item
};

struct ListScreen {
    std::function<std::string()> title;               ///< header of row 0
    std::function<std::vector<std::string>()> items;  ///< read again after every action
    const char* empty;                                ///< shown on row 2 in place of an empty list
    std::vector<ListAction> actions;                  ///< Enter runs the first that needs an item
    /// Asked when the user goes back; false stays on the screen. Null: always leaves.
    std::function<bool()> mayLeave = {};
    /// Asked after every action; true leaves the screen. Null: never.
    std::function<bool()> done = {};
};

/// Shows the list until the user goes back with W or Escape. The footer is built from the actions' labels and
/// "Po~wrót".
void runListScreen(const ListScreen& screen);

/// "a   b   c" with "Po~wrót" behind it.
[[nodiscard]] std::string footerText(const std::vector<ListAction>& actions, bool withItems);

}  // namespace crv
