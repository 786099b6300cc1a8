#include "crvconfd/engines/numbered_list.h"

#include <algorithm>

#include "crvconfd/engines/screen.h"
#include "crvconfd/toolkit/toolkit.h"

namespace crv {

namespace {

constexpr int kNumberColumn = 1;
constexpr int kOidColumn = 6;
constexpr int kNameColumn = 30;

size_t pageSize() {
    return static_cast<size_t>(kFooterRow - kFirstRow);
}

/// First entry of the last page.
size_t lastPage(size_t count) {
    return count == 0 ? 0 : (count - 1) / pageSize() * pageSize();
}

void drawPage(const NumberedListEditor& editor, const std::vector<NumberedEntry>& entries, size_t first) {
    displHeader(0, "%s", editor.texts.title);
    if (entries.empty() && editor.drawEmpty) return editor.drawEmpty();
    const size_t end = std::min(entries.size(), first + pageSize());
    for (size_t i = first; i < end; ++i) drawNumberedEntry(kFirstRow + static_cast<int>(i - first), i + 1, entries[i]);
    if (entries.size() <= pageSize()) return;
    // The labels of the footer need all of a narrow row.
    const int row = shownColumns() < kScreenColumns ? kMessageRow : kFooterRow;
    displText(row, 0, "%zu-%zu/%zu PgUp/PgDn", first + 1, end, entries.size());
}

}  // namespace

void drawNumberedEntry(int row, size_t number, const NumberedEntry& entry) {
    displText(row, kNumberColumn, "%zu", number);
    displText(row, kOidColumn, "%s", entry.oid.c_str());
    // A long identifier keeps its right to be read whole: the name then follows it.
    const int afterOid = kOidColumn + static_cast<int>(entry.oid.size());
    const int column = afterOid <= kNameColumn ? kNameColumn : afterOid + 1;
    displText(row, column, "%s", entry.name.c_str());
}

int askForEntry(const NumberedListTexts& texts, size_t count) {
    const int number = input_positive_number_yx(kMessageRow, 0, texts.deletionPrompt);
    if (number < 1) return -1;
    if (static_cast<size_t>(number) <= count) return number - 1;
    errInfo(kMessageRow, "%s", texts.noSuchNumber);
    return -1;
}

namespace {

ScreenOps numberedListOps(const NumberedListEditor& editor, size_t& first) {
    const auto count = [&editor] { return editor.entries().size(); };
    const auto isBare = [&editor, count] { return count() == 0 && editor.drawEmpty; };
    const auto remove = [&editor, count](size_t) {
        if (const int index = askForEntry(editor.texts, count()); index >= 0) editor.remove(static_cast<size_t>(index));
    };
    const auto down = [&first, count](size_t) { first = std::min(first + pageSize(), lastPage(count())); };
    const auto up = [&first](size_t) { first -= std::min(first, pageSize()); };
    const auto draw = [&editor, &first] {
        const auto entries = editor.entries();
        first = std::min(first, lastPage(entries.size()));
        drawPage(editor, entries, first);
    };
    return {.draw = draw,
            .actions = {{'d', "~Dodaj", false, [&editor](size_t) { editor.add(); }},
                        {'u', "~Usuń", false, remove, [isBare] { return !isBare(); }},
                        // Obeyed even where it is not shown.
                        {'u', nullptr, false, remove},
                        {kKeyPageDown, nullptr, false, down},
                        {kKeyDown, nullptr, false, down},
                        {kKeyPageUp, nullptr, false, up},
                        {kKeyUp, nullptr, false, up}},
            .escapeLeaves = false,
            .leastRows = kFewestRows};
}

}  // namespace

void drawNumberedList(const NumberedListEditor& editor) {
    size_t first = 0;
    drawScreen(numberedListOps(editor, first));
}

void runNumberedList(const NumberedListEditor& editor) {
    size_t first = 0;
    runScreen(numberedListOps(editor, first));
}

}  // namespace crv
