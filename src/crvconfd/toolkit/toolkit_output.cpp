// Drawing: clipping at the right edge, centring, mnemonics, the header bar and the timed messages.
#include <curses.h>

#include <algorithm>
#include <cstdarg>
#include <cstdlib>
#include <cwchar>
#include <cwctype>

#include "crvconfd/toolkit/encoding.h"
#include "crvconfd/toolkit/toolkit.h"
#include "crvconfd/toolkit/toolkit_internal.h"
#include "misc/utf8.h"

namespace crv {

namespace {

constexpr size_t kFormattedBytes = 256;

toolkit::Pen position;

MessageObserver messageObserver = nullptr;

void observe(const std::string& text) {
    if (messageObserver) messageObserver(text);
}

struct Glyph {
    wchar_t code;
    size_t bytes;
    int columns;
};

constexpr wchar_t kReplacement = L'?';

/// The first character of a text that is not empty. In an 8-bit locale the code is the byte; the C1 range is letters in
/// windows-1250 only and would command any other terminal.
Glyph firstGlyph(std::string_view text) {
    const auto byte = static_cast<unsigned char>(text.front());
    if (byte < 0x80) return {byte < 0x20 || byte == 0x7F ? kReplacement : static_cast<wchar_t>(byte), 1, 1};
    if (MB_CUR_MAX == 1) {
        const bool shown = byte >= 0xA0 || displayEncoding() == DisplayEncoding::Windows1250;
        return {shown ? static_cast<wchar_t>(byte) : kReplacement, 1, 1};
    }
    wchar_t code = 0;
    std::mbstate_t state{};
    const size_t bytes = std::mbrtowc(&code, text.data(), text.size(), &state);
    if (bytes == static_cast<size_t>(-1) || bytes == static_cast<size_t>(-2)) return {kReplacement, 1, 1};
    const int columns = wcwidth(code);
    // What has no width of its own (controls, marks that would change the cell before) is shown as a replacement too.
    if (columns < 1) return {kReplacement, bytes, 1};
    return {code, bytes, columns};
}

void drawGlyph(const Glyph& glyph) {
    if (MB_CUR_MAX == 1) {
        waddch(toolkit::pad(), static_cast<chtype>(glyph.code));
    } else {
        waddnwstr(toolkit::pad(), &glyph.code, 1);
    }
}

/// The text formatted, at most 256 bytes of it.
std::string formatted(const char* format, std::va_list arguments) {
    // One more character shows whether the last one is whole.
    std::string text(kFormattedBytes + 4, '\0');
    const int length = std::vsnprintf(text.data(), text.size() + 1, format, arguments);
    text.resize(std::min(text.size(), static_cast<size_t>(std::max(length, 0))));
    return std::string(cutText(text, kFormattedBytes));
}

void drawAt(int row, int col, std::string_view shown) {
    if (toolkit::movePen(row, col)) {
        toolkit::put(shown);
        toolkit::show();
    }
}

void drawMnemonicsAt(int row, int col, const std::string& shown) {
    if (toolkit::movePen(row, col)) {
        printTextWithShortcuts(shown.c_str(), static_cast<int>(shown.size()));
        toolkit::show();
    }
}

/// The mnemonic at the front of the text; returns its bytes.
size_t putMnemonic(std::string_view text) {
    Glyph glyph = firstGlyph(text);
    const std::string_view letter = text.substr(0, glyph.bytes);
    if (getShortcutAttr() != 0) {
        const AttrGuard guard(kAttrShortcut);
        toolkit::put(letter);
    } else if (position.col + glyph.columns <= screenColumns()) {
        glyph.code = static_cast<wchar_t>(std::towupper(static_cast<wint_t>(glyph.code)));
        drawGlyph(glyph);
        position.col += glyph.columns;
    }
    return glyph.bytes;
}

}  // namespace

// The arguments of a format as text; a macro because va_start belongs to the function that has them.
#define CRV_FORMATTED(text, format)                         \
    std::va_list arguments_;                                \
    va_start(arguments_, format);                           \
    const std::string text = formatted(format, arguments_); \
    va_end(arguments_)

namespace toolkit {

Pen pen() {
    return position;
}

bool movePen(int row, int col) {
    if (row < 0 || row >= screenRows() || col < 0 || col >= screenColumns()) return false;
    position = {row, col};
    wmove(pad(), row, col);
    return true;
}

void put(std::string_view text, int limit) {
    limit = std::min(limit, screenColumns());
    while (!text.empty()) {
        const Glyph glyph = firstGlyph(text);
        if (position.col + glyph.columns > limit) break;
        drawGlyph(glyph);
        position.col += glyph.columns;
        text.remove_prefix(glyph.bytes);
    }
    // Curses has wrapped to the next row after the last column; the pen has not.
    wmove(pad(), position.row, std::min(position.col, screenColumns() - 1));
}

void fillTo(int column) {
    put(std::string(static_cast<size_t>(std::max(column - position.col, 0)), ' '), column);
}

int centred(size_t bytes) {
    return static_cast<int>(bytes) >= shownColumns() ? 0 : (shownColumns() - static_cast<int>(bytes)) / 2;
}

}  // namespace toolkit

size_t columnsOf(std::string_view text) {
    const std::string converted = pl(text);
    size_t columns = 0;
    for (std::string_view rest = converted; !rest.empty();) {
        const Glyph glyph = firstGlyph(rest);
        columns += static_cast<size_t>(glyph.columns);
        rest.remove_prefix(glyph.bytes);
    }
    return columns;
}

size_t bytesWithin(std::string_view text, size_t columns) {
    // Far enough for so many characters; the conversion keeps the number of bytes.
    const std::string converted = pl(text.substr(0, columns * MB_CUR_MAX));
    std::string_view rest = converted;
    while (!rest.empty()) {
        const Glyph glyph = firstGlyph(rest);
        if (static_cast<size_t>(glyph.columns) > columns) break;
        columns -= static_cast<size_t>(glyph.columns);
        rest.remove_prefix(glyph.bytes);
    }
    return converted.size() - rest.size();
}

std::string fitText(std::string_view text, size_t columns) {
    std::string fitted(text.substr(0, bytesWithin(text, columns)));
    fitted.append(columns - columnsOf(fitted), ' ');
    return fitted;
}

void displLine(int row, int col, std::string_view text) {
    drawAt(row, col, pl(text));
}

void displText(int row, int col, const char* format, ...) {
    CRV_FORMATTED(text, format);
    drawAt(row, col, pl(text));
}

void displTextNoPl(int row, int col, const char* format, ...) {
    CRV_FORMATTED(text, format);
    drawAt(row, col, text);
}

void displCentText(int row, const char* format, ...) {
    CRV_FORMATTED(text, format);
    const std::string shown = pl(text);
    drawAt(row, toolkit::centred(shown.size()), shown);
}

void displColText(int row, int col, const char* format, ...) {
    CRV_FORMATTED(text, format);
    drawMnemonicsAt(row, col, pl(text));
}

void displCentColText(int row, const char* format, ...) {
    CRV_FORMATTED(text, format);
    const std::string shown = pl(text);
    const auto marks = static_cast<size_t>(std::count(shown.begin(), shown.end(), '~'));
    drawMnemonicsAt(row, toolkit::centred(shown.size() - marks), shown);
}

void displHeader(int row, const char* format, ...) {
    CRV_FORMATTED(text, format);
    std::string bar = text;
    const auto room = static_cast<size_t>(shownColumns());
    if (bar.size() > room) bar = std::string(cutText(text, room - 3)) + "...";
    if (!toolkit::movePen(row, 0)) return;
    {
        const AttrGuard guard(kAttrHeader);
        toolkit::fillTo(toolkit::centred(bar.size()));
        toolkit::put(pl(bar));
        toolkit::fillTo(screenColumns());
    }
    toolkit::show();
}

void observeMessages(MessageObserver observer) {
    messageObserver = observer;
}

void displInfo(int row, int col, const char* text, int n) {
    observe(text);
    clrToEol(row, 0);
    drawAt(row, col, pl(text));
    static_cast<void>(waitForKeyOrTimeout(n * 20));
    clrToEol(row, 0);
}

void displCentInfo(int row, const char* text, int n) {
    displInfo(row, toolkit::centred(std::string_view(text).size()), text, n);
}

void errInfo(int row, const char* format, ...) {
    CRV_FORMATTED(text, format);
    clrToEol(row, 0);
    beepSignal();
    dropTypedKeys();
    displCentInfo(row, text.c_str(), 2);
}

void warnInfo(int row, const char* format, ...) {
    CRV_FORMATTED(text, format);
    observe(text);
    clrToEol(row, 0);
    beepSignal();
    dropTypedKeys();
    displCentText(row, "%s", text.c_str());
    // A paste is no answer.
    while (getScrollKey() == kKeyPaste) static_cast<void>(toolkit::takePaste());
    clrToEol(row, 0);
}

void printTextWithShortcuts(const char* text, int length) {
    std::string_view rest = length < 0 ? std::string_view(text) : std::string_view(text, static_cast<size_t>(length));
    while (!rest.empty()) {
        const size_t mark = rest.find('~');
        toolkit::put(rest.substr(0, mark));
        if (mark == std::string_view::npos) break;
        rest.remove_prefix(mark + 1);
        if (!rest.empty()) rest.remove_prefix(putMnemonic(rest));
    }
    wmove(toolkit::pad(), position.row, std::min(position.col, screenColumns() - 1));
}

}  // namespace crv
