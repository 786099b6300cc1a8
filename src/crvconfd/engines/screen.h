// The engine of screens: what is drawn, a list if there is one, and a row of actions, from which both the footer and
// the keys come.
#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "crvconfd/toolkit/toolkit.h"

namespace crv {

/// Rows without which no screen is of use.
inline constexpr int kFewestRows = 8;

/// One command of a screen.
struct ScreenAction {
    int key;                                ///< lower-case letter (upper case works too) or InternalKey; 0: Enter only
    const char* label;                      ///< shown with "~" before the letter; null: the key works unshown
    bool needsItem;                         ///< offered only while the screen has items, works on the one selected
    std::function<void(size_t index)> run;  ///< index of the item selected; 0 for actions without an item
    std::function<bool()> offered = {};     ///< a further condition; what is not offered is neither shown nor obeyed
};

using ScreenActions = std::vector<ScreenAction>;

/// Behind the actions: W, and Escape where it leaves.
inline constexpr const char* kGoBack = "Po~wrót";

struct ScreenOps {
    std::function<void()> draw;  ///< everything but the list and the labels, on a cleared screen
    /// The list from row 2 on, read again after every action; null for a screen that draws its items itself. The keys
    /// that no action has find items (ListSearch).
    std::function<std::vector<std::string>()> items = {};
    const char* empty = "";  ///< shown on row 2 in place of an empty list
    ScreenActions actions;   ///< Enter on a list runs the first that needs an item
    /// Whether a screen without a list has items.
    std::function<bool()> hasItems = {};
    /// Draws the labels of what is offered; null: centred on row 22 with kGoBack behind them.
    std::function<void(const std::vector<const char*>& labels)> drawLabels = {};
    const char* gap = "   ";  ///< between the labels of row 22
    bool escapeLeaves = true;
    /// Asked when the user goes back; false stays on the screen. Null: always leaves.
    std::function<bool()> mayLeave = {};
    /// Asked after every action; true leaves the screen. Null: never.
    std::function<bool()> done = {};
    /// The row that a low terminal is to show of a screen without a list; null: the last one that was drawn.
    std::function<int()> rowInUse = {};
    void (*idle)() = nullptr;  ///< goes on while a screen without a list waits for a key (IdleWork)
    size_t selected = 0;       ///< item of the list under the cursor; an action may move it
    /// Rows that it needs: those of the least screen, or fewer where all of it finds its place from the bottom. A list
    /// does with kFewestRows.
    int leastRows = kScreenRows;
};

/// Draws a header on row 0: the usual draw of a list.
[[nodiscard]] std::function<void()> drawTitle(std::string title);

/// Shows the screen until the user goes back.
void runScreen(ScreenOps& ops);
inline void runScreen(ScreenOps&& ops) {
    runScreen(ops);
}

/// Clears the screen and draws it once, without a list.
void drawScreen(const ScreenOps& ops);
/// Draws the labels alone.
void drawLabels(const ScreenOps& ops);

/// Keys by their names with what they do.
using KeyRows = std::vector<std::pair<std::string, std::string>>;
/// F1 or "?".
[[nodiscard]] bool isHelp(int key);
/// Shows the keys of a place until a key that scrolls nothing; then the screen is as it was.
void showKeys(const KeyRows& rows);

/// Whether a key is the letter, in either case.
[[nodiscard]] bool isLetter(int key, char letter);

}  // namespace crv
