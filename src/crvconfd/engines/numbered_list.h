// The engine of the two editors of numbered lists: user policies and accepted extended key usages.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace crv {

/// One entry as the screen shows it.
struct NumberedEntry {
    std::string oid;   ///< dotted decimal
    std::string name;  ///< bytes of a file: control characters are drawn as "?"
};

/// What an editor brings; the texts are static.
struct NumberedListTexts {
    const char* title;           ///< header of the list
    const char* deletionPrompt;  ///< asks for the number of the entry to delete
    const char* noSuchNumber;    ///< shown for a number above the count
};

struct NumberedListEditor {
    NumberedListTexts texts;
    /// The entries in the order of their numbers.
    std::function<std::vector<NumberedEntry>()> entries;
    /// Draws what stands in place of an empty list, where nothing can be deleted; null draws nothing.
    std::function<void()> drawEmpty;
    /// Asks for a new entry, adds it and saves. Says itself what went wrong.
    std::function<void()> add;
    /// Removes the entry at an index from 0 and saves.
    std::function<void(size_t index)> remove;
};

/// Draws one entry on a row.
void drawNumberedEntry(int row, size_t number, const NumberedEntry& entry);

/// Draws the list from its first entry.
void drawNumberedList(const NumberedListEditor& editor);

/// Asks for a number and returns the index that it means; -1 when there is none (which has been said where it must be).
[[nodiscard]] int askForEntry(const NumberedListTexts& texts, size_t count);

/// Shows the list and obeys its keys until the user goes back: D adds, U deletes, W returns; Page Up and Page Down
/// (also the arrows) turn the pages of a list longer than the screen.
void runNumberedList(const NumberedListEditor& editor);

}  // namespace crv
