#include "crvconfd/engines/numbered_list.h"

#include <algorithm>

#include "crvconfd/toolkit/toolkit.h"

namespace crv {

namespace {

constexpr int kFirstRow = 2;
constexpr int kFooterRow = 22;
constexpr size_t kPageSize = kFooterRow - kFirstRow;
constexpr int kNumberColumn = 1;
constexpr int kOidColumn = 6;
constexpr int kNameColumn = 30;
constexpr const char* kFooter = "~Dodaj   ~Usuń   Po~wrót";

/// First entry of the last page.
size_t lastPage(size_t count) {
    return count == 0 ? 0 : (count - 1) / kPageSize * kPageSize;
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

void drawNumberedList(const NumberedListEditor& editor, const std::vector<NumberedEntry>& entries, size_t first) {
    clrScr();
    displHeader(0, "%s", editor.texts.title);
    if (entries.empty() && editor.drawEmpty) {
        editor.drawEmpty();
        return;
    }
    const size_t end = std::min(entries.size(), first + kPageSize);
    for (size_t i = first; i < end; ++i) drawNumberedEntry(kFirstRow + static_cast<int>(i - first), i + 1, entries[i]);
    displCentColText(kFooterRow, "%s", kFooter);
    if (entries.size() > kPageSize) displText(kFooterRow, 0, "%zu-%zu/%zu PgUp/PgDn", first + 1, end, entries.size());
}

int askForEntry(const NumberedListTexts& texts, size_t count) {
    const int number = input_positive_number_yx(kMessageRow, 0, texts.deletionPrompt);
    if (number < 1) return -1;
    if (static_cast<size_t>(number) <= count) return number - 1;
    errInfo(kMessageRow, "%s", texts.noSuchNumber);
    return -1;
}

void runNumberedList(const NumberedListEditor& editor) {
    size_t first = 0;
    for (;;) {
        const auto entries = editor.entries();
        first = std::min(first, lastPage(entries.size()));
        drawNumberedList(editor, entries, first);
        switch (getKey()) {
            case 'D':
            case 'd':
                editor.add();
                break;
            case 'U':
            case 'u':
                if (const int index = askForEntry(editor.texts, entries.size()); index >= 0)
                    editor.remove(static_cast<size_t>(index));
                break;
            case kKeyPageDown:
            case kKeyDown:
                first = std::min(first + kPageSize, lastPage(entries.size()));
                break;
            case kKeyPageUp:
            case kKeyUp:
                first -= std::min(first, kPageSize);
                break;
            case 'W':
            case 'w':
                return;
            default:
                break;
        }
    }
}

}  // namespace crv
